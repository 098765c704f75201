#include "copy_fixture.hpp"

#include "system/os.hpp"

#include <filesystem>

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
    CommitPtr commit_only(std::vector<std::u16string> patterns, uint32_t options = 0) {
        IndexPtr index = lock();
        return CommitPtr(
            zIndexCommit(index.get(), spec(patterns, options).get(), u"HEAD", u"Ada", u"part"));
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

TEST_F(PartialCommitTest, TypeChangesAreNotTakenAndConflictsStopIt) {
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
