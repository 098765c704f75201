#include "command_fixture.hpp"

using namespace test;

namespace {

struct ChangelistTest : Connected<WorkingCopyTest> {
    void SetUp() override {
        Connected::SetUp();
        for (const char *path : {"a/.gitkeep", "a/f.dwx", "a/g.dwx", "a2/x.dwx", "top.dwx"})
            put(path, path);
        commit_all();
        connect();
    }
    void stage(const std::string &command) {
        int status = 0;
        const std::string said = git(place, command, &status);
        ASSERT_EQ(status, 0) << said;
        reload();
    }
};

TEST_F(ChangelistTest, AFileTakesItsNewOrMovedDirectoryAlong) {
    ASSERT_OK(zCommandMkdir(copy.c_str(), u"new"));
    put("new/f.dwx", "f");
    put("new/#1.dwx", "sorts before the keep-file");
    put("new/(old)/x.dwx", "a directory that does");
    put("a/plain.dwx", "p");
    stage("add -A");
    const Lines fresh{"1 >new/#1.dwx", "1 >new/(old)/x.dwx", "1 >new/", "1 >new/f.dwx"};
    EXPECT_EQ(changelist({u"new/f.dwx"}), fresh);
    EXPECT_EQ(changelist({u"NEW/", u"new/f.dwx"}), fresh);
    EXPECT_EQ(changelist({u"a/plain.dwx"}), Lines{"1 >a/plain.dwx"}); // whose directory is old
    ASSERT_OK(zCommandMkdir(copy.c_str(), u"a2"));
    put("a2/x.dwx", "an old file, in a directory that is new to git");
    stage("add -A");
    EXPECT_EQ(changelist({u"a2/x.dwx"}), Lines{"3 >a2/x.dwx"});
    stage("rm -qf a/plain.dwx a/g.dwx");
    stage("mv a b");
    EXPECT_EQ(list(), (Lines{"3 >a2/", "4 a/>b/", "3 >new/", "0 >top.dwx"}));
    EXPECT_EQ(changelist({u"b/f.dwx"}),
              (Lines{"2 (null)>a/g.dwx", "4 a/>b/", "4 a/f.dwx>b/f.dwx"}));
}

TEST_F(ChangelistTest, DeletedPathsOfADirectoryAndNoOther) {
    stage("rm -q a/f.dwx a2/x.dwx");
    EXPECT_EQ(changelist({u"a"}), Lines{"2 (null)>a/f.dwx"});
    EXPECT_EQ(changelist({u"a/f.dwx", u"nowhere"}), Lines{}); // no nodes
    stage("rm -q a/.gitkeep");
    EXPECT_EQ(changelist({u"A/"}), (Lines{"2 (null)>a/", "2 (null)>a/f.dwx"}));
    EXPECT_EQ(changelist({nullptr}),
              (Lines{"2 (null)>a/", "2 (null)>a/f.dwx", "2 (null)>a2/x.dwx"}));
}

TEST_F(ChangelistTest, EachPathOnceInKeyOrderWhateverTheCallbackSays) {
    for (const char *path : {"top.dwx", "Z.dwx", "a/g.dwx", "untracked.dwx"}) put(path, "new");
    stage("mv a2/x.dwx a2/moved.dwx");
    stage("add Z.dwx");
    const zwchar *paths[] = {u"a2", u"", u"a/g.dwx", u"A/G.dwx", u"a2/moved.dwx"};
    Listed told{.most = 1};
    EXPECT_OK(zCommandChangelist(copy.c_str(), 5, paths, Listed::take, &told));
    EXPECT_EQ(told.lines,
              (Lines{"1 >Z.dwx", "3 >a/g.dwx", "4 a2/x.dwx>a2/moved.dwx", "3 >top.dwx"}));
    EXPECT_EQ(changelist({u"a/f.dwx"}), Lines{}); // unchanged
}

} // namespace
