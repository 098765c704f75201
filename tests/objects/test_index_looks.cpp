// Looks at an index while another one holds the lock: libgit2 has one in memory for both.
#include "copy_fixture.hpp"

using namespace test;

namespace {

struct IndexLooks : WorkingCopyTest {
    void SetUp() override {
        WorkingCopyTest::SetUp();
        put("a", "1");
        git_commit("first");
        put_all({"x", "y"});
    }
    std::string staged() { return git(place, "diff --cached --name-only"); }
};

} // namespace

// What the holder had staged went with the old file: he is told, in place of a commit without it.
TEST_F(IndexLooks, AreToldToAHolderWhoseChangesTheyReplaced) {
    const std::function<void()> looks[] = {
        [&] { zStatusFile(repository.get(), u"a"); },
        [&] { IndexPtr(zIndexHead(repository.get(), false)); },
        [&] { DiffPtr(zDiffTreeToIndex(repository.get(), nullptr, nullptr, nullptr, nullptr)); },
        [&] {
            IndexPtr other(zIndexHead(repository.get(), false));
            zIndexRead(other.get(), true);
        },
    };
    for (size_t n = 0; n < std::size(looks); ++n) {
        IndexPtr holder(zIndexHead(repository.get(), true));
        ASSERT_OK(zIndexAddBypath(holder.get(), u"x"));
        looks[n]();
        EXPECT_EQ(zIndexWrite(holder.get()), n < 3) << n; // nothing was written meanwhile
        git(place, "reset -q");
        if (n == 3) continue;
        holder.reset();
        holder.reset(zIndexHead(repository.get(), true));
        ASSERT_OK(zIndexAddBypath(holder.get(), u"x"));
        git(place, "add y");
        looks[n]();
        EXPECT_FALSE(zIndexWrite(holder.get())) << n;
        EXPECT_FALSE(zIndexCommit(holder.get(), nullptr, u"a", u"m", nullptr)) << n;
        EXPECT_EQ(staged(), "y");
        holder.reset();
        holder.reset(zIndexHead(repository.get(), true));
        ASSERT_OK(zIndexAddBypath(holder.get(), u"x"));
        EXPECT_OK(zIndexWrite(holder.get())) << n;
        EXPECT_EQ(staged(), "x\ny");
        git(place, "reset -q");
    }
}

TEST_F(IndexLooks, LeaveNothingOfWhatTheyGaveUp) {
    IndexPtr given_up(zIndexHead(repository.get(), false));
    ASSERT_OK(zIndexAddBypath(given_up.get(), u"x"));
    given_up.reset();
    IndexPtr next(zIndexHead(repository.get(), false));
    EXPECT_FALSE(zIndexEntryBypath(next.get(), u"x"));
}
