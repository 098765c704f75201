#include "repo_fixture.hpp"

using namespace test;

namespace {

using EntryPtr = Held<TreeEntry, zTreeEntryFree>;
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

TEST_F(TreeTest, EntriesOutliveTheirTree) {
    TreePtr root = tree({{u"dir/file", "1"}, {u"top", "2"}});
    EntryPtr deep(zTreeEntryBypath(root.get(), u"dir/file"));
    ASSERT_OK(deep);
    EXPECT_EQ(zTreeEntryByindex(root.get(), 2), nullptr);
    EXPECT_EQ(zErrorClass(), 3);
    EXPECT_EQ(zTreeEntryBypath(root.get(), u"dir/none"), nullptr);
    EXPECT_EQ(zErrorClass(), 3);
    root.reset();
    EXPECT_EQ(narrow(zTreeEntryName(deep.get())), "file");
}

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

TEST_F(TreeTest, WalkIsSteered) {
    TreePtr root = tree({{u"a/x", "1"}, {u"b/y", "2"}, {u"c", "3"}});
    struct Seen {
        std::string text;
        std::string skip, stop;
    };
    auto step = [](const zwchar *directory, const TreeEntry *entry, void *context) -> int32_t {
        auto *seen = static_cast<Seen *>(context);
        std::string path = narrow(directory) + narrow(zTreeEntryName(entry));
        seen->text += path + ";";
        return path == seen->skip ? 1 : path == seen->stop ? -1 : 0;
    };
    for (auto [skip, stop, told] : {std::tuple{"", "", "a;a/x;b;b/y;c;"}, // before what it holds
                                    {"a", "", "a;b;b/y;c;"},
                                    {"", "b", "a;a/x;b;"}}) {
        Seen seen{"", skip, stop};
        EXPECT_EQ(zTreeWalk(root.get(), step, &seen), !*stop);
        EXPECT_EQ(seen.text, told);
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
    EXPECT_FALSE(insert(u"PLAN"));
    EXPECT_EQ(zErrorClass(), 4);
    for (auto path : {u"docs/a", u"docs/b", u"docs2"}) EXPECT_OK(insert(path));
    EXPECT_FALSE(insert(u"Docs/A"));
    EXPECT_OK(zTreeBuilderRmdir(builder.get(), u"docs/"));
    EXPECT_EQ(zTreeBuilderEntryCount(builder.get()), 3u);
    EXPECT_OK(zTreeBuilderRemove(builder.get(), u"docs2"));
    for (auto path : {u"Docs/A", u"Docs2"}) EXPECT_OK(insert(path)); // the other one went
}
