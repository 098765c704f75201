#include "copy_fixture.hpp"

#include "common/guard.hpp"
#include "system/os.hpp"

#include <cerrno>
#include <filesystem>

#include <fcntl.h>

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
        EXPECT_REFUSED(commit_only(patterns, options), failure) << narrow(patterns[0].c_str());
    }
};

TEST_F(PartialCommitTest, TakesWhatIsSelectedAndNothingElse) {
    put_all({"docs/a", "other"});
    commit_all();
    put_all({"#1.dwx", "st*r.dwx", "stair.dwx"});
    add({u"other", u"st*r.dwx"}, kLiteral);
    put("other", "333");
    ASSERT_OK(commit_only({u"other", u"st*r.dwx", u"#1.dwx"}, kLiteral));
    EXPECT_EQ(changed(), "A\t#1.dwx\nM\tother\nA\tst*r.dwx");
    EXPECT_EQ(git(place, "cat-file blob HEAD:other"), "333"); // changed since it was staged
    put_all({"docs/a", "other"}, "4444");
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
    put_all({"inner/f", "tab\there", "bad\xFF", "A", "new"});
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
    EXPECT_REFUSED(commit_only({u"ta*"}), 3); // nothing is left
}

// Nor does one that belongs to somebody else; what is tracked is not left out unseen.
TEST_F(PartialCommitTest, ANewFileThatCantBeReadIsLeftOut) {
    put("tracked", "1");
    commit_all();
    put_all({"new", "secret"});
    static constexpr const char *kClosed[] = {"/secret", "/tracked"};
    static size_t closed;
    closed = 0;
    const zev::os::Calls kept = zev::os::calls;
    zev::os::calls.open = [](const char *path, int flags, mode_t mode) {
        if (std::string_view(path).ends_with(kClosed[closed])) return errno = EACCES, -1;
        return ::open(path, flags, mode);
    };
    const zev::Finally open_again([&] { zev::os::calls = kept; });
    Report report;
    ASSERT_OK(commit_only({u"*"}, 0, &report));
    EXPECT_EQ(changed(), "A\tnew");
    EXPECT_EQ(report.lines, std::vector{text(u"action.sSkipped") + " secret"});
    EXPECT_EQ(report.reasons["secret"], text(u"reason.eNoAccess"));
    expect_refused({u"secret"}, 10, kLiteral);
    Report added;
    const SpecPtr all = spec({u"*"}, 0, &added), named = spec({u"secret"}, kLiteral);
    EXPECT_OK(zIndexAdd(lock().get(), all.get()));
    EXPECT_TRUE(added.told(text(u"action.sSkipped") + " secret"));
    EXPECT_REFUSED(zIndexAdd(lock().get(), named.get()), 10);
    closed = 1;
    put("tracked", "22");
    expect_refused({u"*"}, 10);
    EXPECT_REFUSED(zIndexAdd(lock().get(), all.get()), 10);
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
    put_all({"Plan", "dir/Größe", "dir/stays"});
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
    put_all({"a", "b/file", "keep", "docs/a", "docs/b"});
    commit_all();
    for (auto name : {"a", "b", "docs/a"}) fs::remove_all(place / name);
    put_all({"a/file", "b"});
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
    fs::path held = place / ".git/refs/heads/master.lock";

    void expect_locked(Index *index, PathSpec *wanted) {
        EXPECT_FALSE(CommitPtr(zIndexCommit(index, wanted, u"HEAD", u"Ada", u"stuck")));
        EXPECT_EQ(zErrorClass(), 7) << narrow(zErrorDetail()); // not what undoing ran into
    }
};

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
