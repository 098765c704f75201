#include "child.hpp"
#include "copy_fixture.hpp"

#include "system/os.hpp"

#include <filesystem>

using namespace test;

namespace fs = std::filesystem;

class PartialCommitTest : public WorkingCopyTest {
  protected:
    CommitPtr commit_only(std::vector<std::u16string> patterns, uint32_t options = 0,
                          const Notify *notify = nullptr) {
        IndexPtr index = lock();
        return CommitPtr(zIndexCommit(index.get(), spec(patterns, options, notify).get(), u"HEAD",
                                      u"Ada", u"part"));
    }
    std::string files() { return git(place, "-c core.quotepath=off ls-tree -r --name-only HEAD"); }
    std::string changed() { return git(place, "show --format= --name-status --no-renames"); }
    void expect_refused(std::vector<std::u16string> patterns, int failure, uint32_t options = 0) {
        EXPECT_FALSE(commit_only(patterns, options));
        EXPECT_EQ(zErrorClass(), failure) << narrow(patterns[0].c_str());
    }
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
    EXPECT_EQ(brief_status(), "M  other\n?? dropped");
    expect_sound();
    EXPECT_FALSE(commit_only({u"docs"}));
    EXPECT_EQ(zErrorClass(), 3);
    EXPECT_EQ(narrow(zErrorMsg()), text(u"odb.eNoChangesToCommit"));
    for (auto name : {"#1.dwx", "st*r.dwx", "stair.dwx"}) put(name, "1");
    add({u"other", u"st*r.dwx"}, kLiteral);
    put("other", "333");
    ASSERT_OK(commit_only({u"other", u"st*r.dwx", u"#1.dwx"}, kLiteral));
    EXPECT_EQ(changed(), "A\t#1.dwx\nM\tother\nA\tst*r.dwx");
    EXPECT_EQ(git(place, "cat-file blob HEAD:other"), "333"); // changed since it was staged
    put("docs/a", "4444");
    put("other", "4444");
    add({u"other"});
    put("other", "55555");
    ASSERT_OK(commit_only({u"docs", u"other"}, Z_SPEC_INDEX_ONLY)); // tells what, not which bytes
    EXPECT_EQ(changed(), "M\tother");
    EXPECT_EQ(git(place, "cat-file blob HEAD:other"), "55555");
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
    for (auto [name, failure] : {std::pair{u"A", 4}, {u"tab\there", 2}, {u"inner", 2}})
        expect_refused({name}, failure);
    EXPECT_FALSE(commit_only({u"ta*"})); // nothing is left
    EXPECT_EQ(zErrorClass(), 3);
}

TEST_F(PartialCommitTest, AConflictStopsIt) {
    make_conflict("a");
    const std::string head = git(place, "rev-parse HEAD");
    expect_refused({u"a"}, 2);
    EXPECT_EQ(git(place, "rev-parse HEAD"), head);
    EXPECT_EQ(git(place, "ls-files -u | wc -l"), "3"); // nothing reached the disk
    IndexPtr index = lock();
    EXPECT_FALSE(zIndexRename(index.get(), u"a", u"b")); // would resolve it unseen
    EXPECT_TRUE(zErrorClass() == 2 && zIndexPathIsConflict(index.get(), u"a"));
    ASSERT_OK(zIndexAdd(index.get(), spec({u"*"}).get()));
    EXPECT_FALSE(zIndexHasConflicts(index.get()));
}

// No tree may hold both: a Windows machine has place for one.
TEST_F(PartialCommitTest, ANewCaseOfANameTakesThePlaceOfTheOld) {
    for (auto name : {"Plan", "dir/Größe", "dir/stays"}) put(name, "1");
    commit_all();
    git(place, "mv Plan plan");
    git(place, "rm -q --cached dir/Größe");
    fs::create_directory(place / "DIR");
    fs::rename(place / "dir/Größe", place / "DIR/GRÖßE");
    ASSERT_OK(commit_only({u"plan", u"DIR/GRÖßE"}, kLiteral));
    EXPECT_EQ(files(), "DIR/GRÖßE\ndir/stays\nplan");
    EXPECT_EQ(brief_status(), "");
    put("Plan", "2"); // both are there: nothing takes anything's place
    expect_refused({u"Plan"}, 4, kLiteral);
}

// A file where a directory was, and the other way round: the tree is built the long way.
TEST_F(PartialCommitTest, EntriesChangeTheirKind) {
    for (auto name : {"a", "b/file", "keep", "docs/a", "docs/b"}) put(name, "1");
    commit_all();
    for (auto name : {"a", "b", "docs/a"}) fs::remove_all(place / name);
    put("a/file", "1");
    put("b", "1");
    ASSERT_OK(commit_only({u"a", u"b", u"a/file", u"b/file"}));
    EXPECT_EQ(files(), "a/file\nb\ndocs/a\ndocs/b\nkeep");
    put("docs/b", "22");
    fs::create_symlink("b", place / "docs/a");
    ASSERT_OK(commit_only({u"docs"})); // a link waits for the commit of the whole
    EXPECT_EQ(brief_status(), " T docs/a");
    commit_all();
    EXPECT_EQ(git(place, "ls-tree HEAD docs/a").substr(0, 6), "120000");
    // `git add -N`: named as to be added, without content.
    for (auto name : {"a/new", "empty", "planned"}) put(name, name[0] == 'e' ? "" : "1");
    git(place, "add a/new && git -C '" + place.string() + "' add -N empty planned");
    {
        IndexPtr index = lock();
        ASSERT_OK(CommitPtr(zIndexCommit(index.get(), nullptr, u"HEAD", u"Ada", u"whole")));
    }
    EXPECT_EQ(changed(), "A\ta/new");
    EXPECT_EQ(brief_status(), " A empty\n A planned");
    ASSERT_OK(commit_only({u"empty", u"planned"}));
    EXPECT_EQ(changed(), "A\tempty\nA\tplanned");
    EXPECT_EQ(brief_status(), "");
    expect_sound();
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
        for (int twice = 0; twice < 2; ++twice) {
            expect_locked(index.get(), spec({u"a"}).get());
            EXPECT_FALSE(fs::exists(file)); // there was none
        }
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
    EXPECT_EQ(brief_status(), "?? b");
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

// Git stages between the writing of the index and the moving of the reference, when the saved copy
// of the index loses its mark.
TEST_F(StuckReferenceTest, WhatGitHasStagedMeanwhileIsNotTakenBack) {
    put_all({"a", "b", "c"});
    add({u"c"});
    write(held, "");
    static fs::path where;
    where = place;
    zev::os::calls.fchmod = [](int fd, mode_t mode) {
        if (mode == 0700 && fs::exists(where / ".git/.index.zlck")) git(where, "add b");
        return fchmod(fd, mode);
    };
    {
        IndexPtr index = lock();
        expect_locked(index.get(), spec({u"a"}).get());
    }
    zev::os::calls.fchmod = ::fchmod;
    EXPECT_EQ(tracked(), (std::vector<std::string>{"a", "b", "c"}));
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
            Child child([&] {
                IndexPtr index = lock();
                if (written) zIndexAddBypath(index.get(), u"a"), zIndexWrite(index.get());
                die_after_syncs(left);
                return zIndexCommit(index.get(), spec({u"a"}).get(), u"HEAD", u"Ada", u"killed") !=
                       nullptr;
            });
            EXPECT_EQ(child.wait(), 256 + SIGKILL);
            ASSERT_TRUE(fs::exists(place / ".git/.index.zlck"));
            EXPECT_EQ(git(place, "rev-parse HEAD") == head, left == 0);
            ASSERT_OK(zFlockRecover((place / ".git/index").u16string().c_str()));
            EXPECT_EQ(brief_status(), left ? " M b" : " M a\n M b");
            IndexPtr index = lock();
            ASSERT_OK(zIndexAddBypath(index.get(), u"b"));
            if (!left) zIndexAddBypath(index.get(), u"a");
            CommitPtr made(zIndexCommit(index.get(), nullptr, u"HEAD", u"Ada", u"next"));
            ASSERT_OK(made);
            EXPECT_EQ(git(place, "cat-file blob HEAD:a"), bytes) << written << left;
            index.reset();
            EXPECT_EQ(brief_status(), "");
            expect_sound();
        }
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
