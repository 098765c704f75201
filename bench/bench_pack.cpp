// A pack of 10,000 objects, built and written beside `git pack-objects` without delta search and
// beside libgit2's builder as it comes, once of loose objects and once of packed ones; then walked
// and taken in by another repository, beside `git index-pack`. At last the memory that a pack of
// one large file takes on both sides.
#include "bench.hpp"

#include "common/utf.hpp"
#include "objects/store/odb.hpp"
#include "zev/pack.h"
#include "zev/zev.h"

#include <cstring>

#include <git2/pack.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace zev;
namespace fs = std::filesystem;

namespace {

using RepositoryPtr = Owned<::Repository, zRepositoryFree>;
using BuilderPtr = Owned<PackBuilder, zPackBuilderFree>;
using WriterPtr = Owned<PackWriter, zPackWriterFree>;

void check(bool good) {
    if (good) return;
    fprintf(stderr, "%s\n", zStrtoutf8(zErrorDetail()));
    exit(1);
}

// The most memory that a process of its own had, in MiB.
template <class F> double peak_of(F work) {
    fflush(stdout);
    const pid_t child = fork();
    if (!child) {
        work();
        _exit(0);
    }
    int status = 0;
    rusage used{};
    if (wait4(child, &status, 0, &used) != child || status) exit(1);
    return static_cast<double>(used.ru_maxrss) / 1024;
}

// What the work adds to what this process already holds.
template <class F> double peak(F work) {
    return peak_of(work) - peak_of([] {});
}

class Packs {
  public:
    explicit Packs(uint64_t count) : count_(count), from_(scratch_ / u"from") {
        fs::create_directory(fs::path(scratch_ / u"packs"));
        make(from_);
        repository_ = open(from_);
        bench::Random random(7);
        for (uint64_t i = 0; i < count; ++i) {
            std::string text;
            while (text.size() < 2000) text += std::to_string(random.below(10'000'000)) + " ";
            ids_.push_back(blob(text.data(), text.size()));
        }
    }

    void compare(const char *scenario) {
        const double ours = bench::median([&] { write(); }, [&] { clean(); }, 3);
        const double plain = bench::median([&] { write_plain(); }, [&] { clean(); }, 3);
        const std::string list = to_utf8(scratch_ / u"ids"), place = to_utf8(from_);
        if (FILE *file = fopen(list.c_str(), "w")) {
            for (const git_oid &id : ids_) fprintf(file, "%s\n", git_oid_tostr_s(&id));
            fclose(file);
        }
        const std::string line = "git -C " + place + " pack-objects -q --window=0 " +
                                 to_utf8(scratch_ / u"packs/git") + " <" + list + " >" + list +
                                 ".out";
        const double gits =
            bench::median([&] { check(!system(line.c_str())); }, [&] { clean(); }, 3);
        bench::compare(scenario, "git", "ms", ours, gits);
        bench::compare(scenario, "libgit2", "ms", ours, plain);
    }

    void take_in() {
        const std::string pack = walked();
        const fs::path to = scratch_ / u"to";
        const double ours =
            bench::median([&] { take(to, pack); }, [&] { make(to.u16string()); }, 3);
        FILE *file = fopen((scratch_.path() / "one.pack").c_str(), "wb");
        fwrite(pack.data(), 1, pack.size(), file);
        fclose(file);
        const std::string line = "git -C " + to.string() + " index-pack --stdin <" +
                                 (scratch_.path() / "one.pack").string() + " >/dev/null";
        const double gits =
            bench::median([&] { check(!system(line.c_str())); }, [&] { make(to.u16string()); }, 3);
        bench::compare("pack-take-in", "git", "ms", ours, gits);
    }

    // All loose objects into one pack.
    void repack() {
        const std::string line = "git -C " + to_utf8(from_) + " repack -adq --window=0; git -C " +
                                 to_utf8(from_) + " pack-objects -q --window=0 " + to_utf8(from_) +
                                 "/objects/pack/pack <" + to_utf8(scratch_ / u"ids") +
                                 " >/dev/null && git -C " + to_utf8(from_) + " prune-packed -q";
        check(!system(line.c_str()));
        repository_ = open(from_);
    }

    void memory(uint64_t mebibytes) {
        const double megs = static_cast<double>(mebibytes);
        std::string bytes(mebibytes << 20, 0);
        bench::Random random(3);
        for (size_t i = 0; i < bytes.size(); i += 8) {
            const uint64_t value = random.next();
            memcpy(bytes.data() + i, &value, 8);
        }
        ids_ = {blob(bytes.data(), bytes.size())};
        bytes = {};
        repository_.reset();
        const fs::path to = scratch_ / u"to";
        const std::string pack = (scratch_.path() / "one.pack").string();
        make(to.u16string());
        const double building = peak([&] {
            repository_ = open(from_);
            FILE *file = fopen(pack.c_str(), "wb");
            check(zPackBuilderForeach(
                builder().get(),
                [](const void *piece, uint64_t size, void *target) {
                    return fwrite(piece, 1, size, static_cast<FILE *>(target)) == size ? 0 : -1;
                },
                file));
            fclose(file);
        });
        const double taking = peak([&] {
            const RepositoryPtr target = open(to.u16string());
            const WriterPtr writer(zPackWriterNew(target.get()));
            std::vector<char> block(1 << 20);
            FILE *file = fopen(pack.c_str(), "rb");
            while (const size_t got = fread(block.data(), 1, block.size(), file))
                check(zPackWriterAppend(writer.get(), block.data(), got));
            check(zPackWriterCommit(writer.get()));
            fclose(file);
        });
        bench::line("pack-memory-build", "zev", "MiB", building);
        bench::line("pack-memory-build", "file", "ratio", building / megs);
        bench::line("pack-memory-take-in", "zev", "MiB", taking);
    }

  private:
    static void make(const std::u16string &place) {
        fs::remove_all(fs::path(place));
        check(RepositoryPtr(zRepositoryInit(place.c_str(), true)) != nullptr);
    }
    static RepositoryPtr open(const std::u16string &place) {
        RepositoryPtr repository(zRepositoryOpen(place.c_str()));
        check(repository != nullptr);
        return repository;
    }
    git_oid blob(const void *bytes, size_t size) {
        git_oid id;
        check(!git_blob_create_from_buffer(&id, repository_->handle.get(), bytes, size));
        return id;
    }
    void clean() {
        fs::remove_all(fs::path(scratch_ / u"packs"));
        fs::create_directory(fs::path(scratch_ / u"packs"));
    }
    BuilderPtr builder() {
        BuilderPtr builder(zPackBuilderNew(repository_.get()));
        for (const git_oid &id : ids_) check(zPackBuilderInsert(builder.get(), git::oid(&id)));
        return builder;
    }
    void write() { check(zPackBuilderWrite(builder().get(), (scratch_ / u"packs").c_str())); }
    void write_plain() {
        git_packbuilder *builder = nullptr;
        check(!git_packbuilder_new(&builder, repository_->handle.get()));
        git_packbuilder_set_threads(builder, 0);
        for (const git_oid &id : ids_) check(!git_packbuilder_insert(builder, &id, nullptr));
        const std::string target = to_utf8(scratch_ / u"packs");
        check(!git_packbuilder_write(builder, target.c_str(), 0, nullptr, nullptr));
        git_packbuilder_free(builder);
    }
    std::string walked() {
        std::string bytes;
        const auto take = [](const void *piece, uint64_t size, void *target) {
            static_cast<std::string *>(target)->append(static_cast<const char *>(piece), size);
            return 0;
        };
        check(zPackBuilderForeach(builder().get(), take, &bytes));
        return bytes;
    }
    void take(const fs::path &to, const std::string &pack) {
        const RepositoryPtr target = open(to.u16string());
        const WriterPtr writer(zPackWriterNew(target.get()));
        constexpr size_t kPiece = 2 << 20;
        for (size_t at = 0; at < pack.size(); at += kPiece)
            check(zPackWriterAppend(writer.get(), pack.data() + at,
                                    std::min(kPiece, pack.size() - at)));
        check(zPackWriterCommit(writer.get()));
    }

    bench::Scratch scratch_;
    uint64_t count_;
    std::u16string from_;
    RepositoryPtr repository_;
    std::vector<git_oid> ids_;
};

} // namespace

int main() {
    check(zGlobalInit(nullptr, nullptr));
    {
        Packs packs(bench::size("ZEV_BENCH_FILES", 10000));
        packs.compare("pack-of-loose");
        packs.take_in();
        packs.repack();
        packs.compare("pack-of-packed");
        packs.memory(bench::size("ZEV_BENCH_BIG", 1024));
    }
    zGlobalCleanup();
}
