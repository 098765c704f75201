#include "copy_fixture.hpp"

#include <zev/cleanup.h>

using namespace test;

namespace {

using CleanupPtr = Held<CleanupSpec, zCleanupSpecFree>;

class CleanupTest : public WorkingCopyTest {
  protected:
    CleanupPtr spec{zCleanupSpecNew()};

    void SetUp() override {
        put("kept", "kept");
        git_commit("first");
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
        ASSERT_OK(zRepositoryCleanup(repository.get(), spec.get()));
        EXPECT_TRUE(report.told(text(u"action.sSkipped") + " nested/whole/"));
        EXPECT_TRUE(exists("nested/whole/.git/HEAD"));
        EXPECT_EQ(read(place / "nested/damaged/below/plan.dwx"), "its own");
        EXPECT_FALSE(exists("nested/new"));
    }
}
