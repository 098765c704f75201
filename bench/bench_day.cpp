// A designer's day on a copy of 10,000 files: connecting to it and making its tree of nodes anew,
// beside the bare status that this needs; one directory listed; half of the files changed and
// reverted, removed (beside `git rm`), looked for in the trash and brought back; 1,000 conflicts
// analysed and resolved both ways; a commit beside the same one that syncs nothing.
#include "bench.hpp"

#include "objects/work/index.hpp"
#include "system/os.hpp"

#include "zev/zev.h"

#include <fstream>

using namespace zev;
namespace fs = std::filesystem;

namespace {

using RepositoryPtr = Owned<Repository, zRepositoryFree>;
using SpecPtr = Owned<PathSpec, zPathSpecFree>;
using CommitPtr = Owned<Commit, zCommitFree>;

void check(bool good) {
    if (good) return;
    fprintf(stderr, "%s\n", zStrtoutf8(zErrorDetail()));
    exit(1);
}

std::string path_of(uint64_t file) {
    return "d" + std::to_string(file / 100) + "/f" + std::to_string(file) + ".txt";
}

class Day {
  public:
    explicit Day(uint64_t files) : files_(files), root_(scratch_ / u"copy") {
        repository_.reset(zRepositoryInit(root_.c_str(), false));
        check(repository_ != nullptr);
        for (uint64_t i = 0; i < files; ++i) write(i, "first");
        const IndexPtr index(zIndexHead(repository_.get(), true));
        const SpecPtr all(zPathSpecNew(u"*", 0));
        check(index && zIndexAdd(index.get(), all.get()) && zIndexWrite(index.get()));
        commit(index.get());
    }

    void connect() {
        const double bare = bench::median([&] { bare_status(); }, 9);
        const double connected = bench::median([&] { check(zCommandConnect(root_.c_str())); },
                                               [&] { zCommandDisconnect(root_.c_str()); }, 9);
        const double again =
            bench::median([&] { zCommandReload(root_.c_str(), nullptr, false); }, 9);
        const auto one = [](int32_t, const zwchar *, const zwchar *, void *) { return true; };
        const double list =
            bench::median([&] { check(zCommandList(root_.c_str(), u"d3", one, nullptr)); }, 101);
        zCommandDisconnect(root_.c_str());
        bench::compare("connect", "bare-status", "ms", connected, bare);
        bench::compare("reload", "bare-status", "ms", again, bare);
        bench::line("list-directory", "zev", "ms", list);
    }

    void revert() {
        for (uint64_t i = 0; i < files_; i += 2) write(i, "second");
        report("revert", [&](Index *index, PathSpec *spec) { return zIndexRevert(index, spec); });
    }

    // The trash then holds what was removed and no more.
    void remove() {
        purge();
        report("remove", [&](Index *index, PathSpec *spec) { return zIndexRemove(index, spec); });
        double first = 0;
        const double all = bench::once([&] { first = search(u"*", SIZE_MAX); });
        bench::line("trash-search-first", "zev", "ms", first);
        bench::line("trash-search-all", "zev", "ms", all);
        restore(500);
        bench::line("trash-purge", "zev", "ms", purge());
    }

    // `git rm` of as many files; it keeps nothing.
    void remove_by_git() {
        const fs::path copy = scratch_.path() / "git";
        check(!system(("git clone -q " + fs::path(root_).string() + " " + copy.string()).c_str()));
        {
            std::ofstream list(copy / ".git/list");
            for (uint64_t i = 0; i < files_; i += 2) list << path_of(i) << '\0';
        }
        const std::string line = "cd " + copy.string() +
                                 " && git rm -q --pathspec-from-file=.git/list "
                                 "--pathspec-file-nul";
        bench::line("remove", "git-rm", "ms", bench::once([&] { check(!system(line.c_str())); }));
    }

    void conflicts(uint64_t count) {
        for (const uint32_t solution : {Z_CONFLICT_USE_OURS, Z_CONFLICT_USE_THEIRS}) {
            const IndexPtr index(zIndexHead(repository_.get(), true));
            check(index != nullptr);
            const double made = bench::once([&] {
                for (uint64_t i = 1; i < count * 2; i += 2) make_conflict(index.get(), i);
            });
            ConflictAnalysis *analysis = nullptr;
            const double analysed =
                bench::once([&] { analysis = zConflictAnalyze(index.get(), nullptr); });
            check(analysis && zConflictAnalysisLength(analysis) == count);
            for (uint64_t i = 0; i < count; ++i)
                zConflictNodeSetSolution(zConflictAnalysisEntry(analysis, i), solution);
            const double resolved =
                bench::once([&] { check(zConflictResolve(index.get(), analysis)); });
            check(!zIndexHasConflicts(index.get()));
            zConflictAnalysisFree(analysis);
            const char *name =
                solution == Z_CONFLICT_USE_OURS ? "conflict-ours" : "conflict-theirs";
            bench::line(name, "zev", "ms-made", made);
            bench::line(name, "zev", "ms-analysed", analysed);
            bench::line(name, "zev", "ms-resolved", resolved);
        }
    }

    void durable() {
        const auto call = os::calls.syncfs;
        const double synced = commit_one();
        os::calls.syncfs = [](int) { return 0; };
        const double bare = commit_one();
        os::calls.syncfs = call;
        bench::compare("commit-durable", "no-sync", "ms", synced, bare);
    }

  private:
    double commit_one() {
        const IndexPtr index(zIndexHead(repository_.get(), true));
        const SpecPtr one(zPathSpecNew(zStrfromutf8(path_of(7).c_str()), Z_SPEC_LITERAL));
        return bench::median(
            [&] {
                check(zIndexAdd(index.get(), one.get()) && zIndexWrite(index.get()));
                commit(index.get());
            },
            [&, n = 0]() mutable { write(7, std::to_string(++n).c_str()); }, 25);
    }

    void write(uint64_t file, const char *what) {
        const fs::path path = fs::path(root_) / path_of(file);
        if (file % 100 == 0) fs::create_directories(path.parent_path());
        std::ofstream(path) << what << " " << file << "\n" << std::string(2000, 'x');
    }

    void commit(Index *index) {
        const CommitPtr made(zIndexCommit(index, nullptr, u"HEAD", u"bench", u"all"));
        check(made != nullptr);
    }

    void bare_status() {
        git_repository *handle = nullptr;
        check(!git_repository_open(&handle, fs::path(root_).c_str()));
        git_status_options options;
        git_status_options_init(&options, GIT_STATUS_OPTIONS_VERSION);
        options.show = GIT_STATUS_SHOW_INDEX_AND_WORKDIR;
        options.flags = GIT_STATUS_OPT_INCLUDE_UNTRACKED | GIT_STATUS_OPT_RENAMES_HEAD_TO_INDEX |
                        GIT_STATUS_OPT_SORT_CASE_SENSITIVELY;
        git_status_list *list = nullptr;
        check(!git_status_list_new(&list, handle, &options));
        git_status_list_free(list);
        git_repository_free(handle);
    }

    template <class F> void report(const char *name, F operation) {
        const SpecPtr spec(zPathSpecNew(nullptr, Z_SPEC_LITERAL));
        for (uint64_t i = 0; i < files_; i += 2)
            check(zPathSpecAdd(spec.get(), zStrfromutf8(path_of(i).c_str())));
        const double took = bench::once([&] {
            const IndexPtr index(zIndexHead(repository_.get(), true));
            check(index && operation(index.get(), spec.get()) && zIndexWrite(index.get()));
        });
        bench::line(name, "zev", "ms", took);
    }

    // Milliseconds to the first hit, then on to `count` of them.
    double search(const zwchar *pattern, uint64_t count) {
        TrashFind *find = zTrashFindNew(repository_.get(), nullptr, pattern, false);
        bool hit = false;
        const double first = bench::once([&] { check(hit = zTrashFindFirst(find)); });
        for (uint64_t n = 1; hit && n < count; ++n) hit = zTrashFindNext(find);
        zTrashFindFree(find);
        return first;
    }

    double purge() {
        return bench::once([&] { check(zTrashPurge(repository_.get(), 0)); });
    }

    void restore(uint64_t count) {
        std::vector<TrashEntry *> entries;
        TrashFind *find = zTrashFindNew(repository_.get(), nullptr, nullptr, false);
        for (bool hit = zTrashFindFirst(find); hit && entries.size() < count;
             hit = zTrashFindNext(find))
            entries.push_back(zTrashEntryDup(zTrashFindEntry(find)));
        zTrashFindFree(find);
        const double took = bench::once([&] {
            for (TrashEntry *entry : entries)
                check(zTrashMoveBack(repository_.get(), entry, nullptr));
        });
        bench::line("trash-restore", "zev", "ms-each", took / static_cast<double>(entries.size()));
        for (TrashEntry *entry : entries) zTrashEntryFree(entry);
    }

    void make_conflict(Index *index, uint64_t file) {
        const std::u16string path = zStrfromutf8(path_of(file).c_str());
        const IndexEntry *entry = zIndexEntryBypath(index, path.c_str());
        check(entry != nullptr);
        IndexEntry *theirs = zIndexEntryDup(entry), *ours = zIndexEntryDup(entry);
        const IndexEntry *other = zIndexEntryBypath(index, zStrfromutf8(path_of(file + 2).c_str()));
        git_entry(theirs)->id = git_entry(other)->id;
        check(zConflictAdd(index, nullptr, ours, theirs));
        zIndexEntryFree(theirs);
        zIndexEntryFree(ours);
    }

    bench::Scratch scratch_;
    uint64_t files_;
    std::u16string root_;
    RepositoryPtr repository_;
};

} // namespace

int main() {
    check(zGlobalInit(nullptr, nullptr));
    {
        Day day(bench::size("ZEV_BENCH_FILES", 10000));
        day.connect();
        day.revert();
        day.remove_by_git();
        day.remove();
        day.conflicts(1000);
        day.durable();
    }
    zGlobalCleanup();
}
