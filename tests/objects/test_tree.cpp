#include "repo_fixture.hpp"

using namespace test;

namespace {

struct TreeTest : RepositoryTest {
    // By `git mktree`, which takes twins.
    TreePtr made_of(const std::string &lines) {
        const Oid id = parsed(
            run("printf '" + lines + "' | git -C '" + place.string() + "' mktree").substr(0, 40));
        return TreePtr(zTreeByid(repository.get(), &id));
    }
};

} // namespace

// A working copy on Windows can hold one of two names that differ in case only.
TEST_F(TreeTest, ABuilderTakesNoTwins) {
    const Oid id = blob("2");
    const std::string file = "100644 blob " + hex(&id) + "\t";
    const TreePtr base = made_of(file + "Plan\n" + file + "plan\n"); // as git has made it
    BuilderPtr builder(zTreeBuilderNew(repository.get(), base.get()));
    const auto insert = [&](const zwchar *path) {
        return zTreeBuilderInsert(builder.get(), path, &id);
    };
    EXPECT_OK(insert(u"plan")); // it is there
    EXPECT_REFUSED(insert(u"PLAN"), 4);
    for (auto path : {u"docs/a", u"docs/b", u"docs2"}) EXPECT_OK(insert(path));
    EXPECT_FALSE(insert(u"Docs/A"));
    EXPECT_OK(zTreeBuilderRmdir(builder.get(), u"docs/"));
    EXPECT_EQ(zTreeBuilderEntryCount(builder.get()), 3u);
    EXPECT_OK(zTreeBuilderRemove(builder.get(), u"docs2"));
    for (auto path : {u"Docs/A", u"Docs2"}) EXPECT_OK(insert(path)); // the other one went
}
