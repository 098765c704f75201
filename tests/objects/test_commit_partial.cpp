#include "copy_fixture.hpp"

#include "system/os.hpp"

#include <csignal>
#include <filesystem>

#include <sys/wait.h>
#include <unistd.h>

using namespace test;

namespace fs = std::filesystem;

namespace {

struct SyncCount {
    static inline int count;
    decltype(zev::os::calls.syncfs) before = zev::os::calls.syncfs;
    SyncCount() {
        count = 0;
        zev::os::calls.syncfs = [](int) { return ++count, 0; };
    }
    ~SyncCount() { zev::os::calls.syncfs = before; }
};

} // namespace

class PartialCommitTest : public WorkingCopyTest {
  protected:
    CommitPtr commit_only(std::vector<std::u16string> patterns, uint32_t options = 0,
                          const Notify *notify = nullptr) {
        IndexPtr index = lock();
        return CommitPtr(zIndexCommit(index.get(), spec(patterns, options, notify).get(), u"HEAD",
                                      u"Ada", u"part"));
    }
    std::string files(const char *revision = "HEAD") {
        return git(place, std::string("ls-tree -r --name-only ") + revision);
    }
    std::string changed() { return git(place, "show --format= --name-status --no-renames"); }
};

TEST_F(PartialCommitTest, TakesWhatIsSelectedAndNothingElse) {
    for (auto name : {"docs/a", "docs/deep/b", "gone", "dropped", "other", "x/only"})
        put(name, "1");
    commit_all();
    put("docs/a", "22");
    put("docs/new", "1");
    put("other", "22");
    put("fresh/file", "1");
    git(place, "add other");
    git(place, "rm -q --cached dropped");
    fs::remove(place / "gone");
    fs::remove(place / "x/only");
    ASSERT_OK(commit_only({u"docs", u"gone", u"dropped", u"x", u"fresh"}, Z_SPEC_NO_IGNORED));
    EXPECT_EQ(changed(), "M\tdocs/a\nA\tdocs/new\nD\tdropped\nA\tfresh/file\nD\tgone\nD\tx/only");
    EXPECT_EQ(git(place, "status --porcelain"), "M  other\n?? dropped");
    expect_sound();
    EXPECT_FALSE(commit_only({u"docs"}));
    EXPECT_EQ(zErrorClass(), 3);
    EXPECT_EQ(narrow(zErrorMsg()), text(u"odb.eNoChangesToCommit"));
}

// No tree may hold both: a Windows machine has place for one.
TEST_F(PartialCommitTest, ANewCaseOfANameTakesThePlaceOfTheOld) {
    for (auto name : {"Plan", "dir/Größe", "dir/stays"}) put(name, "1");
    commit_all();
    git(place, "mv Plan plan");
    git(place, "mv dir/Größe DIR-");
    fs::create_directory(place / "DIR");
    fs::rename(place / "DIR-", place / "DIR/GRÖßE");
    git(place, "rm -q --cached DIR-");
    ASSERT_OK(commit_only({u"plan", u"DIR/GRÖßE"}, kLiteral));
    EXPECT_EQ(git(place, "-c core.quotepath=off ls-tree -r --name-only HEAD"),
              "DIR/GRÖßE\ndir/stays\nplan");
    EXPECT_EQ(git(place, "status --porcelain"), "");
    put("Plan", "2"); // both are there: nothing takes anything's place
    EXPECT_FALSE(commit_only({u"Plan"}, kLiteral));
    EXPECT_EQ(zErrorClass(), 4);
}

// They would keep everybody else's files from being committed; whoever names one is told.
TEST_F(PartialCommitTest, NewNamesThatCantEnterAreLeftOut) {
    put("a", "1");
    commit_all();
    put("a", "22");
    git(place, "init -q inner");
    for (auto name : {"inner/f", "tab\there", "bad\xFF", "A", "new"}) put(name, "1");
    const std::string deep = std::string(240, 'd') + "/" + std::string(250, 'd');
    put(deep, "1");
    Report report;
    ASSERT_OK(commit_only({u"*"}, 0, &report));
    EXPECT_EQ(changed(), "M\ta\nA\tnew");
    std::string told;
    for (auto name : {"A", "bad\uFFFD", deep.c_str(), "inner", "tab\there"})
        told += text(u"action.sSkipped") + " " + name + "\n";
    std::string lines;
    for (const auto &line : report.lines) lines += line + "\n";
    EXPECT_EQ(lines, told);
    for (auto [name, failure] : {std::pair{u"A", 4}, {u"tab\there", 2}, {u"inner", 2}}) {
        EXPECT_FALSE(commit_only({name}));
        EXPECT_EQ(zErrorClass(), failure) << narrow(name);
    }
    EXPECT_FALSE(commit_only({u"ta*"})); // nothing is left
    EXPECT_EQ(zErrorClass(), 3);
}

TEST_F(PartialCommitTest, LiteralNamesOfAFirstCommit) {
    for (auto name : {"#1.dwx", "st*r.dwx", "stair.dwx"}) put(name, "1");
    ASSERT_OK(commit_only({u"st*r.dwx", u"#1.dwx"}, kLiteral));
    EXPECT_EQ(files(), "#1.dwx\nst*r.dwx");
    EXPECT_EQ(git(place, "status --porcelain"), "?? stair.dwx");
}

// A file where a directory was, and the other way round: the tree is built the long way.
TEST_F(PartialCommitTest, FilesAndDirectoriesChangePlaces) {
    put("a", "1");
    put("b/file", "1");
    put("keep", "1");
    commit_all();
    fs::remove(place / "a");
    fs::remove_all(place / "b");
    put("a/file", "1");
    put("b", "1");
    ASSERT_OK(commit_only({u"a", u"b", u"a/file", u"b/file"}));
    EXPECT_EQ(files(), "a/file\nb\nkeep");
    EXPECT_EQ(git(place, "status --porcelain"), "");
    expect_sound();
}

TEST_F(PartialCommitTest, StagedAsItWasAddedUnlessTheFileChangedSince) {
    put("a", "1");
    put("b", "1");
    commit_all();
    put("a", "22");
    put("b", "22");
    add({u"*"});
    put("b", "333");
    ASSERT_OK(commit_only({u"a", u"b"}, kLiteral));
    EXPECT_EQ(git(place, "cat-file blob HEAD:a"), "22");
    EXPECT_EQ(git(place, "cat-file blob HEAD:b"), "333");
    EXPECT_EQ(git(place, "status --porcelain"), "");
}

// `git add -N`: named as to be added, without content.
TEST_F(PartialCommitTest, PlannedFilesEnterWhenTheyAreStaged) {
    for (auto name : {"a", "empty", "planned"}) put(name, name[0] == 'e' ? "" : "1");
    git(place, "add a");
    git(place, "add -N empty planned");
    {
        IndexPtr index = lock();
        ASSERT_OK(CommitPtr(zIndexCommit(index.get(), nullptr, u"HEAD", u"Ada", u"whole")));
    }
    EXPECT_EQ(files(), "a");
    EXPECT_EQ(git(place, "status --porcelain"), " A empty\n A planned");
    ASSERT_OK(commit_only({u"empty", u"planned"}));
    EXPECT_EQ(git(place, "status --porcelain"), "");
    EXPECT_EQ(files(), "a\nempty\nplanned");
    expect_sound();
}

TEST_F(PartialCommitTest, AConflictStopsIt) {
    put("a", "base");
    commit_all();
    git(place, "checkout -q -b other");
    put("a", "theirs");
    git(place, "-c user.name=x -c user.email=x commit -qam theirs");
    git(place, "checkout -q master");
    put("a", "ours");
    git(place, "-c user.name=x -c user.email=x commit -qam ours");
    const std::string head = git(place, "rev-parse HEAD");
    git(place, "-c user.name=x -c user.email=x merge -q other");
    EXPECT_FALSE(commit_only({u"a"}));
    EXPECT_EQ(zErrorClass(), 2);
    EXPECT_EQ(git(place, "rev-parse HEAD"), head);
    EXPECT_EQ(git(place, "ls-files -u | wc -l"), "3"); // nothing reached the disk
}

TEST_F(PartialCommitTest, FileThatBecameALinkWaitsForTheCommitOfTheWhole) {
    put("docs/a", "1");
    put("docs/b", "1");
    commit_all();
    put("docs/b", "22");
    fs::remove(place / "docs/a");
    fs::create_symlink("b", place / "docs/a");
    ASSERT_OK(commit_only({u"docs"}));
    EXPECT_EQ(git(place, "status --porcelain"), " T docs/a");
    commit_all();
    EXPECT_EQ(git(place, "ls-tree HEAD docs/a").substr(0, 6), "120000");
}

// Somebody holds the reference's lock.
class StuckReferenceTest : public PartialCommitTest {
  protected:
    fs::path held = place / ".git/refs/heads/master.lock", file = place / ".git/index";

    void expect_locked(Index *index, PathSpec *wanted) {
        EXPECT_FALSE(CommitPtr(zIndexCommit(index, wanted, u"HEAD", u"Ada", u"stuck")));
        EXPECT_EQ(zErrorClass(), 7) << narrow(zErrorDetail()); // not what undoing ran into
    }
};

TEST_F(StuckReferenceTest, IndexFileStaysAsItWas) {
    put("a", "1");
    write(held, "");
    {
        IndexPtr index = lock();
        expect_locked(index.get(), spec({u"a"}).get());
        EXPECT_FALSE(fs::exists(file)); // there was none
        expect_locked(index.get(), spec({u"a"}).get());
        EXPECT_FALSE(fs::exists(file));
    }
    fs::remove(held);
    commit_all();
    put("a", "22");
    put("b", "1");
    write(held, "");
    const std::string before = read(file);
    {
        IndexPtr index = lock();
        expect_locked(index.get(), spec({u"a"}).get());
        EXPECT_EQ(read(file), before);
        ASSERT_OK(zIndexAdd(index.get(), spec({u"*"}).get()));
        expect_locked(index.get(), nullptr);
        EXPECT_EQ(read(file), before);
    }
    EXPECT_EQ(status(),
              (std::map<std::string, int>{{"a", Z_KIND_MODIFIED}, {"b", Z_KIND_UNTRACKED}}));
    fs::remove(held);
    ASSERT_OK(commit_only({u"a"}));
    EXPECT_EQ(git(place, "status --porcelain"), "?? b");
}

TEST_F(StuckReferenceTest, WhatTheCallerHasWrittenIsNotTakenBack) {
    put("a", "1");
    commit_all();
    put("a", "22");
    put("b", "1");
    write(held, "");
    {
        IndexPtr index = lock();
        ASSERT_OK(zIndexAddBypath(index.get(), u"a"));
        ASSERT_OK(zIndexWrite(index.get()));
        expect_locked(index.get(), spec({u"b"}).get());
    }
    EXPECT_EQ(git(place, "diff --cached --name-only a"), "a");
}

// The signal that ends another process.
template <class F> int ended_by(F work) {
    const pid_t child = fork();
    if (!child) work(), _exit(0);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

void die_after_syncs(int count) {
    static int left;
    left = count;
    zev::os::calls.syncfs = [](int) { return left-- ? 0 : raise(SIGKILL); };
}

// Killed in the first sync, before index and reference, or in the second one, behind both.
// Recovery puts index and head on the same side, and takes nothing of the commit back.
TEST_F(PartialCommitTest, KilledInASync) {
    put("a", "1");
    put("b", "1");
    commit_all();
    int round = 1;
    for (bool written : {false, true}) // the index, by the caller
        for (int left : {0, 1}) {      // syncs that come to their end
            const std::string bytes = std::string(static_cast<size_t>(++round), '2');
            const std::string head = git(place, "rev-parse HEAD");
            put("a", bytes);
            put("b", bytes);
            const int signal = ended_by([&] {
                IndexPtr index = lock();
                if (written) zIndexAddBypath(index.get(), u"a"), zIndexWrite(index.get());
                die_after_syncs(left);
                zIndexCommit(index.get(), spec({u"a"}).get(), u"HEAD", u"Ada", u"killed");
            });
            EXPECT_EQ(signal, SIGKILL);
            ASSERT_TRUE(fs::exists(place / ".git/.index.zlck"));
            EXPECT_EQ(git(place, "rev-parse HEAD") == head, left == 0);
            ASSERT_OK(zFlockRecover((place / ".git/index").u16string().c_str()));
            EXPECT_EQ(git(place, "status --porcelain"), left ? " M b" : " M a\n M b");
            IndexPtr index = lock();
            ASSERT_OK(zIndexAddBypath(index.get(), u"b"));
            if (!left) zIndexAddBypath(index.get(), u"a");
            CommitPtr made(zIndexCommit(index.get(), nullptr, u"HEAD", u"Ada", u"next"));
            ASSERT_OK(made);
            EXPECT_EQ(git(place, "cat-file blob HEAD:a"), bytes) << written << left;
            index.reset();
            EXPECT_EQ(git(place, "status --porcelain"), "");
            expect_sound();
        }
}

TEST_F(PartialCommitTest, TwoSyncsEach) {
    put("a", "1");
    add({u"*"});
    {
        SyncCount syncs;
        IndexPtr index = lock();
        CommitPtr made(zIndexCommit(index.get(), nullptr, u"HEAD", u"Ada", u"all"));
        ASSERT_OK(made);
        EXPECT_EQ(SyncCount::count, 2);
    }
    put("a", "22");
    SyncCount syncs;
    ASSERT_OK(commit_only({u"a"}));
    EXPECT_EQ(SyncCount::count, 2);
    EXPECT_EQ(git(place, "log --format=%s"), "part\nall");
}

// Git commits while an index is held, and knows no lock of ours: the index must not take that back.
// Commits of its own are no hindrance.
TEST_F(PartialCommitTest, TakesNoOtherCommitBack) {
    put("a", "1");
    commit_all();
    const SpecPtr part = spec({u"a"});
    for (PathSpec *wanted : {part.get(), static_cast<PathSpec *>(nullptr)}) {
        IndexPtr index = lock();
        put("theirs", wanted ? "1" : "2");
        git(place, "add theirs");
        git(place, "-c user.name=b -c user.email=b commit -qm theirs");
        const auto commit = [&](const std::string &bytes) {
            put("a", bytes);
            EXPECT_OK(zIndexAddBypath(index.get(), u"a"));
            return bool(CommitPtr(zIndexCommit(index.get(), wanted, u"HEAD", u"Ada", u"ours")));
        };
        EXPECT_FALSE(commit(wanted ? "one" : "two"));
        EXPECT_EQ(git(place, "log -1 --format=%s"), "theirs");
        EXPECT_EQ(git(place, "diff --name-only --cached"), "");
        index.reset(), index = lock();
        for (const char *bytes : {"three", "four"}) EXPECT_TRUE(commit(bytes + !wanted));
        EXPECT_EQ(git(place, "diff --name-only HEAD~2"), "a");
    }
}
