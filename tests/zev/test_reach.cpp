// What people of other systems reach for first, at odd moments.
#include "support.hpp"
#include "zev_program.hpp"

namespace {

namespace fs = std::filesystem;

struct Reach : CopyTest {
    void SetUp() override {
        CopyTest::SetUp();
        keep({"a", "b", "d/c"}, "first");
    }
};

TEST_F(Reach, AddIsUndone) {
    EXPECT_EQ(code("add --undo"), 3); // nothing is
    EXPECT_EQ(code("add"), 2);
    write("a", "a2");
    write("new/x", "x");
    ok("add .");
    write("a", "a3"); // changed once more: this stays, too
    ok("mv b moved");
    ok("rm d");
    EXPECT_EQ(code("add --undo nowhere"), 3);
    EXPECT_EQ(ok("add --undo new a"), "Unstaged   new/\nUnstaged   new/x\nUnstaged   a\n");
    EXPECT_EQ(content("a") + content("new/x"), "a3x");
    EXPECT_EQ(git("status --short"), " M a\nD  d/.gitkeep\nD  d/c\nR  b -> moved\n?? new/\n");
    ok("add --undo b"); // one side of a rename
    EXPECT_EQ(git("status --short"), " M a\n D b\nD  d/.gitkeep\nD  d/c\nA  moved\n?? new/\n");
    ok("add --undo");
    EXPECT_EQ(git("diff --cached --name-only"), "");
    EXPECT_EQ(content("moved"), "first b");
    EXPECT_EQ(code("commit -m nothing"), 3);
}

TEST_F(Reach, AddIsUndoneBeforeTheFirstCommitAndInAMerge) {
    ASSERT_EQ(zev(home, "init fresh").code, 0);
    test::write(home + "/fresh/x", "x");
    EXPECT_EQ(zev(home + "/fresh", "add x").code, 0);
    EXPECT_EQ(zev(home + "/fresh", "add --undo x").code, 0);
    EXPECT_EQ(zev(home + "/fresh", "status --short").out, "?? x\n");
    ok("switch -c side");
    keep({"a", "theirs"}, "side");
    ok("switch master");
    keep({"a"}, "ours");
    EXPECT_EQ(code("merge side"), 4);
    const std::string said = both("add --undo").out; // the conflict is no mark
    EXPECT_NE(said.find("Unstaged   theirs"), said.npos) << said;
    EXPECT_NE(said.find("a: is in conflict"), said.npos) << said;
    EXPECT_NE(said.find("a merge is not committed yet"), said.npos) << said;
    EXPECT_EQ(git("status --short"), "UU a\n?? theirs\n");
}

} // namespace
