// Checkout beside `git switch`: a project of 10,000 files from an empty copy, and a hundred changed
// ones in it; the status right after that beside a clean one; the largest memory with a file of
// 1 GiB that lies loose in the store. Ours replaces each file in one step, makes a commit and syncs
// all of that; git removes it, writes it anew and syncs nothing, so it stands there a second
// time with a sync behind it. Both take their objects from a pack.
#include "bench.hpp"

#include "objects/store/odb.hpp"

#include "zev/zev.h"

#include <fstream>

#include <sys/resource.h>

using namespace zev;
namespace fs = std::filesystem;

namespace {

using RepositoryPtr = Owned<Repository, zRepositoryFree>;
using IndexPtr = Owned<Index, zIndexFree>;
using SpecPtr = Owned<CheckSpec, zCheckSpecFree>;

void check(bool good) {
    if (good) return;
    fprintf(stderr, "%s\n", zStrtoutf8(zErrorDetail()));
    exit(1);
}

void run(const fs::path &place, const std::string &line) {
    if (!system(("cd " + place.string() + " && " + line + " >/dev/null").c_str())) return;
    fprintf(stderr, "failed: %s\n", line.c_str());
    exit(1);
}

constexpr const char *kGit = "git -c user.name=b -c user.email=b ";

void checkout(Repository *repository, const zwchar *target) {
    const Oid *id = nullptr;
    Owned<Commit, zCommitFree> commit(zCommitByref(repository, target));
    check(commit && (id = zCommitId(commit.get())));
    const SpecPtr spec(zCheckSpecByid(id, nullptr));
    check(zRepositoryCheckout(repository, spec.get()));
}

double status(Repository *repository) {
    return bench::once([&] {
        const IndexPtr index(zIndexHead(repository, false));
        StatusList *list = zStatusListBuild(index.get(), nullptr);
        check(list != nullptr);
        zStatusListFree(list);
    });
}

// Branches: empty, full, and next with a hundred files changed.
void make_source(const fs::path &root, uint64_t files) {
    bench::Random random(7);
    const auto write = [&](uint64_t n) {
        const fs::path directory = root / ("d" + std::to_string(n / 100));
        fs::create_directories(directory);
        std::ofstream file(directory / ("f" + std::to_string(n) + ".txt"));
        for (int k = 0; k < 250; ++k) file << random.next() % 9000000 + 1000000 << ' ';
    };
    fs::create_directories(root);
    run(root, std::string("git init -q -b empty && git config gc.auto 0 && ") + kGit +
                  "commit -q --allow-empty -m none");
    for (uint64_t n = 0; n < files; ++n) write(n);
    const std::string commit = std::string("git add . && ") + kGit + "commit -qm all";
    run(root, "git switch -qc full && " + commit);
    for (uint64_t n = 0; n < files; n += files / 100) write(n);
    run(root, "git switch -qc next && " + commit + " && git gc -q");
}

double median_of(std::vector<double> times) {
    std::ranges::sort(times);
    return times[times.size() / 2];
}

// A sync is of all the file system: what cloning left to be written is written ahead. By turns,
// each in a copy of its own that nothing was deleted from: for a minute after a deletion
// ext4 is slow to make files.
void compare(const fs::path &scratch, const char *scenario, const char *from, const zwchar *to) {
    constexpr int kRuns = 5;
    std::vector<double> theirs, synced, ours, after, clean;
    const std::string forth = "git switch -q --detach origin/" + std::string(zStrtoutf8(to));
    const std::u16string target = std::u16string(u"refs/remotes/origin/") + to;
    for (int n = 0; n < kRuns; ++n) {
        const std::string name = scenario + std::to_string(n);
        const fs::path git = scratch / (name + "-git"), place = scratch / (name + "-zev");
        for (const fs::path &copy : {git, place})
            run(scratch, "git clone -q -c gc.auto=0 -b " + std::string(from) + " source " +
                             copy.string() + " && sleep 1.1 && git -C " + copy.string() +
                             " status >/dev/null && sync -f " + copy.string());
        theirs.push_back(bench::once([&] { run(git, forth); }));
        synced.push_back(theirs.back() + bench::once([&] { run(git, "sync -f ."); }));
        const RepositoryPtr repository(zRepositoryOpen(place.u16string().c_str()));
        check(repository != nullptr);
        ours.push_back(bench::once([&] { checkout(repository.get(), target.c_str()); }));
        after.push_back(status(repository.get()));
        run(place, "sleep 1.1 && git status");
        status(repository.get());
        clean.push_back(status(repository.get()));
    }
    const std::string status = std::string(scenario) + "-status";
    bench::compare(scenario, "git-switch", "ms", median_of(ours), median_of(theirs));
    bench::line(scenario, "git-switch-and-sync", "ms", median_of(synced));
    bench::line(scenario, "git-switch-and-sync", "ratio", median_of(ours) / median_of(synced));
    bench::compare(status.c_str(), "clean", "ms", median_of(after), median_of(clean));
}

void large_file(const fs::path &root, uint64_t mebibytes) {
    fs::create_directories(root);
    run(root, std::string("git init -q -b empty && git config gc.auto 0 && ") + kGit +
                  "commit -q --allow-empty -m none && git switch -qc full && head -c " +
                  std::to_string(mebibytes) +
                  "M /dev/urandom >big.bin && git -c core.bigFileThreshold=8g add . && " + kGit +
                  "commit -qm big && git switch -q empty");
    const RepositoryPtr repository(zRepositoryOpen(root.u16string().c_str()));
    check(repository != nullptr);
    const double took = bench::once([&] { checkout(repository.get(), u"refs/heads/full"); });
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    check(fs::file_size(root / "big.bin") == mebibytes << 20);
    bench::line("checkout-large", "zev", "ms", took);
    bench::line("checkout-large", "zev", "MiB", static_cast<double>(usage.ru_maxrss) / 1024);
}

} // namespace

int main() {
    check(zGlobalInit(nullptr, nullptr));
    {
        bench::Scratch scratch;
        if (const uint64_t big = bench::size("ZEV_BENCH_BIG", 1024))
            large_file(scratch.path() / "large", big);
        fs::remove_all(scratch.path() / "large");
        const uint64_t files = bench::size("ZEV_BENCH_FILES", 10000);
        make_source(scratch.path() / "source", files);
        compare(scratch.path(), "checkout-all", "empty", u"full");
        compare(scratch.path(), "checkout-100", "full", u"next");
    }
    zGlobalCleanup();
}
