#include "repo_fixture.hpp"

#include <set>

using namespace test;

namespace {

using EntryPtr = Held<TreeEntry, zTreeEntryFree>;
using SpecPtr = Held<PathSpec, zPathSpecFree>;
using ListPtr = Held<Vector, zPathListFree>;

struct TreeTest : RepositoryTest {
    // By `git mktree`, which takes modes that no index has, and objects that aren't there.
    TreePtr made_of(const std::string &lines) {
        const Oid id =
            parsed(run("printf '" + lines + "' | git -C '" + place.string() + "' mktree --missing")
                       .substr(0, 40));
        return TreePtr(zTreeByid(repository.get(), &id));
    }
};

std::set<std::string> names(const Vector *list) {
    std::set<std::string> found;
    for (uint64_t i = 0; i < zPathListLength(list); ++i)
        found.insert(narrow(zPathListEntry(list, i)));
    return found;
}

} // namespace

TEST_F(TreeTest, BuilderWritesAtAnyDepth) {
    BuilderPtr builder(zTreeBuilderNew(repository.get(), nullptr));
    const Oid one = blob("one"), two = blob("two"), absent = parsed(std::string(40, 'a'));
    ASSERT_OK(zTreeBuilderInsert(builder.get(), u"a/b/c.txt", &one));
    ASSERT_OK(zTreeBuilderInsert(builder.get(), u"a/b/c.txt", &two)); // the second one counts
    ASSERT_OK(zTreeBuilderInsert(builder.get(), u"gone/x", &one));
    ASSERT_OK(zTreeBuilderInsert(builder.get(), u"gone/y/z", &one));
    ASSERT_OK(zTreeBuilderInsert(builder.get(), u"far.dwx", &absent)); // a client has only a part
    for (const zwchar *path :
         {u"../a", u"a/../b", u".git/config", u"a/.GIT/x", u"/a", u"a//b", u""})
        EXPECT_FALSE(zTreeBuilderInsert(builder.get(), path, &one)) << narrow(path);
    EXPECT_FALSE(zTreeBuilderExists(builder.get(), u"gone/y"));
    ASSERT_OK(zTreeBuilderRmdir(builder.get(), u"gone"));
    ASSERT_OK(zTreeBuilderRemove(builder.get(), u"never/there"));
    TreePtr written(zTreeBuilderWrite(builder.get(), repository.get()));
    EXPECT_EQ(git(place, "ls-tree -r " + hex(zTreeId(written.get()))),
              "100644 blob " + hex(&two) + "\ta/b/c.txt\n100644 blob " + hex(&absent) +
                  "\tfar.dwx");

    BuilderPtr next(zTreeBuilderNew(repository.get(), written.get()));
    ASSERT_OK(zTreeBuilderRemove(next.get(), u"far.dwx"));
    for (const zwchar *path : {u"0", u"a"}) ASSERT_OK(zTreeBuilderInsert(next.get(), path, &one));
    TreePtr flat(zTreeBuilderWrite(next.get(), repository.get()));
    EXPECT_EQ(git(place, "ls-tree -r --name-only " + hex(zTreeId(flat.get()))), "0\na");
}

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

TEST_F(TreeTest, ModesAndMatches) {
    const Oid file = blob("x");
    const std::string id = hex(&file);
    const TreePtr all = made_of("100644 blob " + id + "\\tfile\\n100755 blob " + id +
                                "\\trun\\n120000 blob " + id + "\\tlink\\n160000 commit " +
                                std::string(40, 'a') + "\\tsub\\n100664 blob " + id + "\\told\\n");
    constexpr struct {
        const zwchar *name;
        uint32_t mode;
        int32_t type;
    } kModes[] = {{u"file", 0100644, 3},
                  {u"run", 0100755, 3},
                  {u"link", 0120000, 3},
                  {u"sub", 0160000, 1},
                  {u"old", 0, 3}}; // a mode of git's first days
    for (auto &row : kModes) {
        EntryPtr entry(zTreeEntryByname(all.get(), row.name));
        EXPECT_EQ(zTreeEntryMode(entry.get()), row.mode) << narrow(row.name);
        EXPECT_EQ(zTreeEntryType(entry.get()), row.type) << narrow(row.name);
    }
    TreePtr root = tree({{u"Docs/A.dwx", "1"}, {u"Docs/sub/b.txt", "2"}, {u"docs2/c.dwx", "3"}});
    const std::pair<const zwchar *, std::set<std::string>> kMatches[] = {
        {nullptr, {"Docs/A.dwx", "Docs/sub/b.txt", "docs2/c.dwx"}},
        {u"docs", {"Docs/A.dwx", "Docs/sub/b.txt"}}, // a prefix is no directory
        {u"none", {}}};
    for (auto &[pattern, found] : kMatches) {
        SpecPtr spec(zPathSpecNew(pattern, 0));
        EXPECT_EQ(names(ListPtr(zTreeMatch(root.get(), spec.get())).get()), found);
        EXPECT_EQ(zTreeExists(root.get(), spec.get()), !found.empty());
    }
    SpecPtr must(zPathSpecNew(u"none", Z_SPEC_MUST_MATCH));
    EXPECT_TRUE(!zTreeMatch(root.get(), must.get()) && zErrorClass() == 3);
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
