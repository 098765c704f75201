#include "repo_fixture.hpp"

using namespace test;

namespace {

using SpecPtr = Held<PathSpec, zPathSpecFree>;

struct TreeTest : RepositoryTest {
    // By `git mktree`, which takes modes that no index has, and objects that aren't there.
    TreePtr made_of(const std::string &lines) {
        const Oid id =
            parsed(run("printf '" + lines + "' | git -C '" + place.string() + "' mktree --missing")
                       .substr(0, 40));
        return TreePtr(zTreeByid(repository.get(), &id));
    }
};

} // namespace

// A client that holds a part: what a name can't lie in isn't opened.
TEST_F(TreeTest, NamesOpenNothingButTheirDirectories) {
    const std::string absent(40, 'a'), whole = hex(zTreeId(tree({{u"Sub/f", "1"}}).get()));
    const TreePtr root =
        made_of("040000 tree " + absent + "\\tabsent\\n040000 tree " + whole + "\\tdocs\\n");
    ASSERT_OK(root);
    const struct {
        const zwchar *pattern;
        uint32_t options;
        bool there;
    } kRows[] = {{u"docs/sub/F", Z_SPEC_LITERAL, true},
                 {u"docs/Sub/", Z_SPEC_LITERAL, true},
                 {u"docs", 0, true},
                 {u"docs", Z_SPEC_LITERAL, false},
                 {u"docs/Sub/f/g", 0, false}};
    for (auto &row : kRows) {
        SpecPtr spec(zPathSpecNew(row.pattern, row.options));
        zSetErrorReason(u"%s", u"");
        EXPECT_EQ(zTreeExists(root.get(), spec.get()), row.there) << narrow(row.pattern);
        EXPECT_EQ(narrow(zErrorReason()), "") << narrow(row.pattern);
    }
}

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
