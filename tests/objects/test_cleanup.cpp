#include "copy_fixture.hpp"

#include <zev/cleanup.h>

using namespace test;

namespace {

using CleanupPtr = Held<CleanupSpec, zCleanupSpecFree>;

class CleanupTest : public WorkingCopyTest {
  protected:
    CleanupPtr spec{zCleanupSpecNew()};

    bool clean_up() { return zRepositoryCleanup(repository.get(), spec.get()); }
    void SetUp() override {
        put(".gitignore", "*.bak\n"), put("kept", "kept");
        git_commit("first");
        put("kept", "changed"), put_all({"new 1", "d/new2", "x.bak"});
    }
};

} // namespace

TEST_F(CleanupTest, TakesUntrackedFilesIntoTheTrash) {
    ASSERT_OK(clean_up());
    EXPECT_EQ(porcelain("--ignored"), " M kept\n!! x.bak");
    EXPECT_FALSE(exists("d"));
    EXPECT_EQ(trashed(), "new 1=1;new2=1;");

    // With paths only what they select; without the trash it is gone, and the trash with it.
    put_all({"a", "b"});
    ASSERT_OK(zCleanupSpecAdd(spec.get(), u"a"));
    ASSERT_OK(clean_up());
    EXPECT_EQ(trashed(), "a=1;new 1=1;new2=1;");
    for (int times = 0; times < 2; ++times) { // at last there is no trash
        ASSERT_OK(zRepositoryCleanup(repository.get(), nullptr));
        EXPECT_EQ(porcelain("--ignored"), " M kept\n!! x.bak");
        EXPECT_EQ(trashed(), "");
    }
}

// A repository within is somebody's own, and so are the files of one that is damaged.
TEST_F(CleanupTest, LeavesARepositoryWithinAlone) {
    git(place, "init -q nested/whole");
    put_all({"nested/damaged/.git/HEAD", "nested/new"}, "");
    for (auto *path : {"whole", "damaged/below"})
        put(std::string("nested/") + path + "/plan.dwx", "its own");
    for (bool trash : {true, false}) {
        Report report;
        ASSERT_OK(zCleanupSpecSetOptions(spec.get(), trash ? Z_CLEANUP_USE_TRASH : 0));
        ASSERT_OK(zCleanupSpecSetNotify(spec.get(), &report));
        ASSERT_OK(clean_up());
        EXPECT_TRUE(report.told(text(u"action.sSkipped") + " nested/whole/"));
        EXPECT_TRUE(exists("nested/whole/.git/HEAD"));
        EXPECT_EQ(read(place / "nested/damaged/below/plan.dwx"), "its own");
        EXPECT_FALSE(exists("nested/new"));
    }
}

// A process died in a change: what it left complete is put back and used up, its locks go.
TEST_F(CleanupTest, RecoversAndNothingElse) {
    const std::string index = read(place / ".git/index");
    put(".git/.index.zlck", index), put(".git/index", "half written"), put(".git/index.lock", "");
    ASSERT_OK(zCleanupSpecSetOptions(spec.get(), Z_CLEANUP_KEEP_UNTRACKED | Z_CLEANUP_USE_TRASH));
    ASSERT_OK(clean_up());
    EXPECT_EQ(read(place / ".git/index"), index);
    EXPECT_FALSE(exists(".git/.index.zlck") || exists(".git/index.lock"));
    EXPECT_TRUE(exists("new 1"));
    // The old copy can't undo what comes now.
    git_as("commit -qam second");
    ASSERT_OK(clean_up());
    EXPECT_EQ(git(place, "status --porcelain -uno"), "");
}

// Git, which knows no copies of ours, has committed and packed since.
TEST_F(CleanupTest, RecoveryTakesNoCommitBack) {
    for (bool packed : {false, true}) {
        put(".git/.index.zlck", read(place / ".git/index"));
        put(".git/refs/heads/.master.zlck", git(place, "rev-parse HEAD") + "\n");
        put("new 1", packed ? "packed" : "loose");
        git_commit("since");
        if (packed) git(place, "pack-refs --all");
        ASSERT_OK(zTransactionRecover(repository.get()));
        EXPECT_EQ(porcelain(), "") << packed;
        ASSERT_OK(clean_up());
        EXPECT_EQ(git(place, "log -1 --format=%s") + porcelain(), "since");
        EXPECT_FALSE(exists(".git/.index.zlck") || exists(".git/refs/heads/.master.zlck"));
    }
}
