// History of 10,000 commits beside `git log` as a command: with the changed paths, without, by
// author, by path, the newest 20. The first log, whose records are yet to be made, also beside bare
// pruned comparisons whose results are written down. And the changes of a commit of ten files in
// projects of three sizes, beside libgit2's comparison and `git diff-tree`.
#include "bench.hpp"

#include "objects/history/revision.hpp"
#include "objects/store/object.hpp"
#include "objects/store/tree_changes.hpp"

#include "zev/zev.h"

using namespace zev;

namespace {

using RepositoryPtr = Owned<Repository, zRepositoryFree>;
using ListPtr = Owned<RevList, zRevListFree>;
using SpecPtr = Owned<RevSpec, zRevSpecFree>;

constexpr uint64_t kFiles = 2000, kDirectory = 100;

std::string path_of(uint64_t file) {
    return "d" + std::to_string(file / kDirectory) + "/f" + std::to_string(file);
}

void check(bool good) {
    if (good) return;
    fprintf(stderr, "%s\n", zStrtoutf8(zErrorDetail()));
    exit(1);
}

double command(const std::string &git, const std::string &rest, int runs = 5) {
    const std::string line = git + rest + " >/dev/null";
    return bench::median([&] { check(system(line.c_str()) == 0); }, runs);
}

// Each commit changes three files; some add one, some move one.
void import(const std::string &git, uint64_t commits) {
    FILE *to = popen((git + "fast-import --quiet --force").c_str(), "w");
    check(to);
    bench::Random random(3);
    for (uint64_t n = 0; n < commits; ++n) {
        const std::string message = "change " + std::to_string(n) + "\n\nof the plans\n";
        const char *author = n % 10 ? "Ann Archer" : "Bob Builder";
        fprintf(to, "commit refs/heads/master\ncommitter %s <x@y> %llu +0000\ndata %zu\n%s", author,
                1700000000ull + n * 60, message.size(), message.c_str());
        const auto put = [&](uint64_t file, uint64_t content) {
            fprintf(to, "M 100644 inline %s\ndata <<E\n%llu\nE\n", path_of(file).c_str(),
                    static_cast<unsigned long long>(content));
        };
        for (uint64_t i = 0; n == 0 && i < kFiles; ++i) put(i, i);
        for (int i = 0; i < 3; ++i) put(random.below(kFiles), random.next());
        if (n == 0) fprintf(to, "M 100644 inline moved/0\ndata 1\nx\n");
        const auto move = static_cast<unsigned long long>(n / 50);
        if (n && n % 50 == 0) fprintf(to, "R moved/%llu moved/%llu\n", move - 1, move);
    }
    check(pclose(to) == 0);
}

uint64_t build(Repository *repository, RevSpec *spec, bool changes) {
    const ListPtr list(zRevListBuild(repository, spec));
    check(list != nullptr);
    uint64_t count = 0;
    for (uint64_t i = 0; i < zRevListLength(list.get()); ++i)
        count += changes ? zDiffListLength(zRevisionChanges(zRevListEntry(list.get(), i))) : 1;
    return count;
}

// ---- What the first log can't do without

// Differing paths of two trees, and nothing else.
void differ(git_repository *repository, const git_tree *a, const git_tree *b,
            const std::string &directory, std::string &text) {
    const size_t n = a ? git_tree_entrycount(a) : 0, m = b ? git_tree_entrycount(b) : 0;
    for (size_t i = 0, j = 0; i < n || j < m;) {
        const git_tree_entry *x = i < n ? git_tree_entry_byindex(a, i) : nullptr;
        const git_tree_entry *y = j < m ? git_tree_entry_byindex(b, j) : nullptr;
        const int order = !x ? 1 : !y ? -1 : git_tree_entry_cmp(x, y);
        if (order > 0) x = nullptr;
        if (order < 0) y = nullptr;
        i += x != nullptr, j += y != nullptr;
        if (x && y && git_oid_equal(git_tree_entry_id(x), git_tree_entry_id(y))) continue;
        const std::string path = directory + git_tree_entry_name(x ? x : y);
        git::Tree from, to;
        if (git_tree_entry_type(x ? x : y) != GIT_OBJECT_TREE) {
            text += path + std::string(x ? 40 : 0, 'x') + std::string(y ? 40 : 0, 'y') + "\n";
            continue;
        }
        if (x) git_tree_lookup(out(from), repository, git_tree_entry_id(x));
        if (y) git_tree_lookup(out(to), repository, git_tree_entry_id(y));
        differ(repository, from.get(), to.get(), path + "/", text);
    }
}

// Follows first parents, and puts what each commit changed into a file of its own.
void bare_log(git_repository *repository, const std::filesystem::path &place) {
    git_oid id;
    check(!git_reference_name_to_id(&id, repository, "refs/heads/master"));
    for (unsigned parents = 1; parents;) {
        git::Commit commit, parent;
        git::Tree from, to;
        check(!git_commit_lookup(out(commit), repository, &id));
        check(!git_commit_tree(out(to), commit.get()));
        parents = git_commit_parentcount(commit.get());
        if (parents) {
            check(!git_commit_parent(out(parent), commit.get(), 0));
            check(!git_commit_tree(out(from), parent.get()));
        }
        std::string text = git_commit_message(commit.get());
        differ(repository, from.get(), to.get(), {}, text);
        const std::string name = git_oid_tostr_s(&id);
        const std::filesystem::path directory = place / name.substr(0, 2);
        std::filesystem::create_directory(directory);
        FILE *file = fopen((directory / "aside").c_str(), "wb");
        check(file && fwrite(text.data(), 1, text.size(), file) == text.size());
        fclose(file);
        std::filesystem::rename(directory / "aside", directory / name.substr(2));
        if (parents) id = *git_commit_id(parent.get());
    }
}

void first_log(const bench::Scratch &scratch, const std::string &git) {
    const std::u16string path = scratch / u"log";
    RepositoryPtr repository;
    const auto fresh = [&] {
        repository.reset(zRepositoryOpen(path.c_str())); // without libgit2's cache of objects
        check(repository && zRevdbDestroy(repository.get()));
        std::filesystem::remove_all(scratch.path() / "bare");
        std::filesystem::create_directory(scratch.path() / "bare");
    };
    const double ours = bench::median([&] { build(repository.get(), nullptr, true); }, fresh, 3);
    const double bare = bench::median(
        [&] { bare_log(repository->handle.get(), scratch.path() / "bare"); }, fresh, 3);
    bench::compare("log-first", "pruned-diffs", "ms", ours, bare);
    const double theirs =
        command(git, "log --first-parent --name-status -M100% --format=%H%n%an%n%B", 3);
    bench::line("log-first", "git", "ms", theirs);
}

// ---- Logs whose records are there

struct Query {
    const char *name, *git; // scenario, arguments of git log
    const zwchar *author, *path;
    bool changes;
    int64_t limit;
};
constexpr Query kQueries[] = {
    {"log-paths", "--name-status -M100%", nullptr, nullptr, true, 0},
    {"log", "", nullptr, nullptr, false, 0},
    {"log-author", "--author=Bob", u"Bob*", nullptr, false, 0},
    {"log-path", "-- d3", nullptr, u"d3", false, 0},
    {"log-newest-20", "-n20", nullptr, nullptr, false, 20},
};

void logs(const bench::Scratch &scratch, const std::string &git) {
    const std::u16string path = scratch / u"log";
    for (const Query &query : kQueries) {
        const SpecPtr spec(zRevSpecNew());
        if (query.author) zRevSpecIncludeAuthor(spec.get(), query.author);
        if (query.path) zRevSpecAddPath(spec.get(), query.path);
        zRevSpecSetLimit(spec.get(), query.limit);
        RepositoryPtr repository;
        const double ours =
            bench::median([&] { build(repository.get(), spec.get(), query.changes); },
                          [&] { repository.reset(zRepositoryOpen(path.c_str())); });
        const double theirs =
            command(git, std::string("log --first-parent --format=%H%n%an%n%ct%n%B ") + query.git);
        bench::compare(query.name, "git", "ms", ours, theirs);
    }
}

// ---- Changes of ten files

// A tree of `count` files whose blobs need not exist; `turn` changes ten of them.
Owned<Tree, zTreeFree> project(Repository *repository, uint64_t count, uint64_t turn) {
    const Owned<TreeBuilder, zTreeBuilderFree> builder(zTreeBuilderNew(repository, nullptr));
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t word[3] = {i, i % (count / 10) == 5 ? turn : 0, 1};
        Oid id{};
        memcpy(id.id, word, sizeof id.id);
        const std::string path = path_of(i);
        check(zTreeBuilderInsert(builder.get(), zStrfromutf8(path.c_str()), &id));
    }
    return Owned<Tree, zTreeFree>(zTreeBuilderWrite(builder.get(), repository));
}

void changes(const bench::Scratch &scratch, uint64_t count) {
    const RepositoryPtr repository(zRepositoryInit((scratch / u"trees").c_str(), false));
    const auto from = project(repository.get(), count, 1), to = project(repository.get(), count, 2);
    check(from && to);
    const auto run = [&](auto compare) {
        return bench::median(
            [&] {
                const DiffListPtr list(compare(from.get(), to.get(), nullptr, nullptr));
                check(list && zDiffListLength(list.get()) == 10);
            },
            51);
    };
    const std::string name = "changes-of-ten-in-" + std::to_string(count);
    const double ours = run(diff_trees);
    bench::compare(name.c_str(), "libgit2", "ms", ours, run(zDiffTreeToTree));
    const std::string trees = std::string(git_oid_tostr_s(git_tree_id(from->handle.get()))) + " " +
                              git_oid_tostr_s(git_tree_id(to->handle.get()));
    const std::string git = "git -C " + (scratch.path() / "trees").string() + " ";
    bench::compare(name.c_str(), "git", "ms", ours,
                   command(git, "diff-tree -r -M100% " + trees, 9));
    std::filesystem::remove_all(scratch.path() / "trees");
}

} // namespace

int main() {
    if (!zGlobalInit(nullptr, nullptr)) return 1;
    bench::Scratch scratch;
    const std::string git = "git -C " + (scratch.path() / "log").string() + " ";
    {
        const RepositoryPtr made(zRepositoryInit((scratch / u"log").c_str(), false));
        check(made != nullptr);
    }
    import(git, bench::size("ZEV_BENCH_COMMITS", 10000));
    first_log(scratch, git);
    logs(scratch, git);
    for (uint64_t count : {1000, 10000, 100000}) changes(scratch, count);
    zGlobalCleanup();
    return 0;
}
