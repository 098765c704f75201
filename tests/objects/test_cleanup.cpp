#include "copy_fixture.hpp"

#include <zev/checkspec.h>
#include <zev/cleanup.h>

using namespace test;

namespace {

namespace fs = std::filesystem;
using CleanupPtr = Held<CleanupSpec, zCleanupSpecFree>;

size_t trash_count(const fs::path &place) {
    size_t count = 0;
    const fs::path trash = place / ".git/trash";
    if (!fs::exists(trash)) return 0;
    for (const auto &entry : fs::recursive_directory_iterator(trash))
        count += entry.is_regular_file() && entry.path().filename() != "info.$$$";
    return count;
}

class CleanupTest : public RepositoryTest {
  protected:
    void SetUp() override {
        ASSERT_OK(repository);
        write(place / ".gitignore", "*.bak\n");
        write(place / "kept", "kept");
        git(place, "add -A");
        git(place, "-c user.name=a -c user.email=b commit -qm first");
        write(place / "kept", "changed");
        write(place / "new 1", "one");
        write(place / "d/new2", "two");
        write(place / "x.bak", "ignored");
    }
    bool exists(const char *path) const { return fs::exists(place / path); }
};

} // namespace

TEST_F(CleanupTest, TakesUntrackedFilesIntoTheTrash) {
    CleanupPtr spec(zCleanupSpecNew());
    ASSERT_OK(zRepositoryCleanup(repository.get(), spec.get()));
    EXPECT_FALSE(exists("new 1"));
    EXPECT_FALSE(exists("d"));
    EXPECT_TRUE(exists("x.bak"));
    EXPECT_EQ(read(place / "kept"), "changed");
    EXPECT_EQ(trash_count(place), 2u);

    // With paths only what they select; without the trash it is gone, and the trash with it.
    write(place / "a", "a");
    write(place / "b", "b");
    ASSERT_OK(zCleanupSpecAdd(spec.get(), u"a"));
    EXPECT_FALSE(zCleanupSpecAdd(spec.get(), u""));
    ASSERT_OK(zRepositoryCleanup(repository.get(), spec.get()));
    EXPECT_EQ(trash_count(place), 3u);
    EXPECT_TRUE(exists("b"));
    ASSERT_OK(zRepositoryCleanup(repository.get(), nullptr));
    EXPECT_FALSE(exists("b"));
    EXPECT_EQ(trash_count(place), 0u);
    EXPECT_TRUE(exists("x.bak"));
    ASSERT_OK(zRepositoryCleanup(repository.get(), nullptr)); // there is no trash
}

// A repository within is somebody's own, and so are the files of one that is damaged.
TEST_F(CleanupTest, LeavesARepositoryWithinAlone) {
    git(place, "init -q nested/whole");
    write(place / "nested/whole/plan.dwx", "its own");
    write(place / "nested/damaged/.git/HEAD", "");
    write(place / "nested/damaged/below/plan.dwx", "its own");
    write(place / "nested/new", "ours");
    for (bool trash : {true, false}) {
        Report report;
        CleanupPtr spec(zCleanupSpecNew());
        ASSERT_OK(zCleanupSpecSetOptions(spec.get(), trash ? Z_CLEANUP_USE_TRASH : 0));
        ASSERT_OK(zCleanupSpecSetNotify(spec.get(), &report));
        ASSERT_OK(zRepositoryCleanup(repository.get(), spec.get()));
        EXPECT_TRUE(report.told(text(u"action.sSkipped") + " nested/whole/"));
        EXPECT_TRUE(exists("nested/whole/.git/HEAD"));
        EXPECT_EQ(read(place / "nested/damaged/below/plan.dwx"), "its own");
        EXPECT_FALSE(exists("nested/new"));
    }
}

// A process died in a change: what it left complete is put back and used up, its locks go.
TEST_F(CleanupTest, RecoversAndNothingElse) {
    const std::string index = read(place / ".git/index");
    write(place / ".git/.index.zlck", index);
    write(place / ".git/index", "half written");
    write(place / ".git/index.lock", "");
    write(place / ".git/refs/heads/.gone.zlck", git(place, "rev-parse HEAD") + "\n");
    CleanupPtr spec(zCleanupSpecNew());
    ASSERT_OK(zCleanupSpecSetOptions(spec.get(), Z_CLEANUP_KEEP_UNTRACKED | Z_CLEANUP_USE_TRASH));
    ASSERT_OK(zRepositoryCleanup(repository.get(), spec.get()));
    EXPECT_EQ(read(place / ".git/index"), index);
    EXPECT_EQ(git(place, "rev-parse gone"), git(place, "rev-parse HEAD"));
    for (const char *left : {".git/.index.zlck", ".git/index.lock", ".git/refs/heads/.gone.zlck"})
        EXPECT_FALSE(exists(left)) << left;
    EXPECT_TRUE(exists("new 1"));
    // The old copy can't undo what comes now.
    git(place, "-c user.name=a -c user.email=b commit -qam second");
    const std::string head = git(place, "rev-parse HEAD");
    ASSERT_OK(zRepositoryCleanup(repository.get(), spec.get()));
    EXPECT_EQ(git(place, "rev-parse HEAD"), head);
    EXPECT_EQ(git(place, "status --porcelain -uno"), "");
}

TEST_F(CleanupTest, FailsWhileTheCopyIsLocked) {
    IndexPtr held(zIndexHead(repository.get(), true));
    ASSERT_OK(held);
    RepositoryPtr other(zRepositoryOpen(place.u16string().c_str()));
    EXPECT_FALSE(zRepositoryCleanup(other.get(), nullptr));
    EXPECT_EQ(zErrorClass(), 7);
    EXPECT_TRUE(exists("new 1"));
}

TEST(CheckSpecTest, TellsWhatItIsFor) {
    using CheckPtr = Held<CheckSpec, zCheckSpecFree>;
    Oid id{};
    ASSERT_OK(zOidFromStr(&id, u"0123456789abcdef0123456789abcdef01234567"));
    EXPECT_EQ(narrow(zCheckSpecStringfy(nullptr)), "HEAD");
    CheckPtr spec(zCheckSpecNew());
    EXPECT_EQ(narrow(zCheckSpecStringfy(spec.get())), "HEAD");
    ASSERT_OK(zCheckSpecSetBranch(spec.get(), u"side"));
    EXPECT_EQ(narrow(zCheckSpecStringfy(spec.get())), "side");
    ASSERT_OK(zCheckSpecSetTarget(spec.get(), &id));
    EXPECT_EQ(narrow(zCheckSpecStringfy(spec.get())), "side@01234567");
    ASSERT_OK(zCheckSpecSetBranch(spec.get(), nullptr));
    EXPECT_EQ(narrow(zCheckSpecStringfy(spec.get())), "01234567");

    ASSERT_OK(zCheckSpecAddPath(spec.get(), u"a*"));
    EXPECT_FALSE(zCheckSpecAddPath(spec.get(), u""));
    ASSERT_OK(zCheckSpecUseGlob(spec.get(), false));
    ASSERT_OK(zCheckSpecSetOn(spec.get(), Z_CHECK_FORCE));
    CheckPtr copy(zCheckSpecDup(spec.get()));
    ASSERT_OK(zCheckSpecSetPaths(spec.get(), nullptr));
    EXPECT_EQ(zPathSpecCount(zCheckSpecPaths(spec.get())), 0u);
    EXPECT_EQ(zPathSpecCount(zCheckSpecPaths(copy.get())), 1u);
    EXPECT_TRUE(zPathSpecIsOn(zCheckSpecPaths(copy.get()), Z_SPEC_LITERAL));
    EXPECT_TRUE(zCheckSpecIsOn(copy.get(), Z_CHECK_FORCE));
    EXPECT_TRUE(zOidIsEqual(zCheckSpecTarget(copy.get()), &id));
}
