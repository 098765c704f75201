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
