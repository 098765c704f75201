#include "repo_fixture.hpp"

#include <set>

using namespace test;

namespace {

using EntryPtr = Held<TreeEntry, zTreeEntryFree>;
using SpecPtr = Held<PathSpec, zPathSpecFree>;
using ListPtr = Held<Vector, zPathListFree>;
using TreeTest = RepositoryTest;

std::set<std::string> names(const Vector *list) {
    std::set<std::string> found;
    for (uint64_t i = 0; i < zPathListLength(list); ++i)
        found.insert(narrow(zPathListEntry(list, i)));
    return found;
}

} // namespace

TEST_F(TreeTest, BuilderWritesAtAnyDepth) {
    BuilderPtr builder(zTreeBuilderNew(repository.get(), nullptr));
    ASSERT_OK(builder);
    Oid one = blob("one"), two = blob("two"), absent{};
    ASSERT_OK(zOidRand(&absent));
    ASSERT_OK(zTreeBuilderInsert(builder.get(), u"a/b/c.txt", &one));
    ASSERT_OK(zTreeBuilderInsert(builder.get(), u"a/b/c.txt", &two)); // the second one counts
    ASSERT_OK(zTreeBuilderInsert(builder.get(), u"gone/x", &one));
    ASSERT_OK(zTreeBuilderInsert(builder.get(), u"gone/y/z", &one));
    ASSERT_OK(zTreeBuilderInsert(builder.get(), u"far.dwx", &absent)); // a client has only a part
    for (const zwchar *path :
         {u"../a", u"a/../b", u".git/config", u"a/.GIT/x", u"/a", u"a//b", u""})
        EXPECT_FALSE(zTreeBuilderInsert(builder.get(), path, &one)) << narrow(path);
    EXPECT_EQ(zTreeBuilderEntryCount(builder.get()), 4u);
    EXPECT_TRUE(zTreeBuilderExists(builder.get(), u"gone/y/z"));
    EXPECT_FALSE(zTreeBuilderExists(builder.get(), u"gone/y"));
    ASSERT_OK(zTreeBuilderRmdir(builder.get(), u"gone"));
    ASSERT_OK(zTreeBuilderRemove(builder.get(), u"never/there"));
    TreePtr written(zTreeBuilderWrite(builder.get(), repository.get()));
    ASSERT_OK(written);
    EXPECT_EQ(git(place, "ls-tree -r " + hex(zTreeId(written.get()))),
              "100644 blob " + hex(&two) + "\ta/b/c.txt\n100644 blob " + hex(&absent) +
                  "\tfar.dwx");

    BuilderPtr next(zTreeBuilderNew(repository.get(), written.get()));
    ASSERT_OK(zTreeBuilderRemove(next.get(), u"far.dwx"));
    TreePtr smaller(zTreeBuilderWrite(next.get(), repository.get()));
    EXPECT_EQ(git(place, "ls-tree -r --name-only " + hex(zTreeId(smaller.get()))), "a/b/c.txt");
    for (const zwchar *path : {u"0", u"a"}) ASSERT_OK(zTreeBuilderInsert(next.get(), path, &one));
    TreePtr flat(zTreeBuilderWrite(next.get(), repository.get()));
    EXPECT_EQ(git(place, "ls-tree -r --name-only " + hex(zTreeId(flat.get()))), "0\na");
}

TEST_F(TreeTest, EntriesOutliveTheirTree) {
    TreePtr root = tree({{u"dir/file", "1"}, {u"top", "2"}});
    EntryPtr first(zTreeEntryByindex(root.get(), 0)),
        deep(zTreeEntryBypath(root.get(), u"dir/file"));
    ASSERT_OK(first && deep);
    EXPECT_EQ(zTreeEntryByindex(root.get(), 2), nullptr);
    EXPECT_EQ(zErrorClass(), 3);
    EXPECT_EQ(zTreeEntryBypath(root.get(), u"dir/none"), nullptr);
    EXPECT_EQ(zErrorClass(), 3);
    root.reset();
    EXPECT_EQ(narrow(zTreeEntryName(first.get())), "dir");
    EXPECT_EQ(narrow(zTreeEntryName(deep.get())), "file");
    auto object = guard(zTreeEntryToObject(deep.get(), repository.get()), zObjectFree);
    ASSERT_OK(object);
    EXPECT_EQ(zObjectType(object.get()), Z_OBJECT_BLOB);
}

TEST_F(TreeTest, ModesOfAllKinds) {
    Oid file = blob("x");
    // `git mktree` takes modes that no index has.
    const std::string id = hex(&file), commit_id(40, 'a');
    std::string lines = "100644 blob " + id + "\\tfile\\n100755 blob " + id +
                        "\\trun\\n120000 blob " + id + "\\tlink\\n160000 commit " + commit_id +
                        "\\tsub\\n100664 blob " + id + "\\told\\n";
    const std::string made =
        run("printf '" + lines + "' | git -C '" + place.string() + "' mktree --missing");
    Oid tree_id{};
    ASSERT_OK(zOidFromStr(&tree_id, wide(made.substr(0, 40)).c_str()));
    TreePtr root(zTreeByid(repository.get(), &tree_id));
    ASSERT_OK(root);
    constexpr struct {
        const zwchar *name;
        uint32_t mode;
        int32_t type;
    } kRows[] = {{u"file", 33188, 3},
                 {u"run", 33261, 3},
                 {u"link", 40960, 3},
                 {u"sub", 57344, 1},
                 {u"old", 0, 3}}; // a mode of git's first days
    for (auto &row : kRows) {
        EntryPtr entry(zTreeEntryByname(root.get(), row.name));
        ASSERT_OK(entry);
        EXPECT_EQ(zTreeEntryMode(entry.get()), row.mode) << narrow(row.name);
        EXPECT_EQ(zTreeEntryType(entry.get()), row.type) << narrow(row.name);
    }
}

// A client that holds a part: what a name can't lie in isn't opened.
TEST_F(TreeTest, NamesOpenNothingButTheirDirectories) {
    const std::string absent(40, 'a'), whole = hex(zTreeId(tree({{u"Sub/f", "1"}}).get()));
    const std::string made =
        run("printf '040000 tree " + absent + "\\tabsent\\n040000 tree " + whole +
            "\\tdocs\\n' | git -C '" + place.string() + "' mktree --missing");
    Oid id{};
    ASSERT_OK(zOidFromStr(&id, wide(made.substr(0, 40)).c_str()));
    TreePtr root(zTreeByid(repository.get(), &id));
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

TEST_F(TreeTest, MatchDisregardsCaseAndTakesLiteralsExactly) {
    TreePtr root = tree({{u"Docs/A.dwx", "1"},
                         {u"Docs/sub/b.txt", "2"},
                         {u"docs2/c.dwx", "3"},
                         {u"#1.dwx", "4"},
                         {u"a[1].dwx", "5"}});
    const struct {
        const zwchar *pattern;
        uint32_t options;
        std::set<std::string> found;
    } kRows[] = {
        {nullptr, 0, {"Docs/A.dwx", "Docs/sub/b.txt", "docs2/c.dwx", "#1.dwx", "a[1].dwx"}},
        {u"docs", 0, {"Docs/A.dwx", "Docs/sub/b.txt"}}, // a prefix is no directory
        {u"*.dwx", 0, {"Docs/A.dwx", "docs2/c.dwx", "#1.dwx", "a[1].dwx"}},
        {u"none", 0, {}},
    };
    for (auto &row : kRows) {
        SpecPtr spec(zPathSpecNew(row.pattern, row.options));
        ListPtr list(zTreeMatch(root.get(), spec.get()));
        ASSERT_OK(list);
        EXPECT_EQ(names(list.get()), row.found) << narrow(row.pattern);
        EXPECT_EQ(zTreeExists(root.get(), spec.get()), !row.found.empty()) << narrow(row.pattern);
    }
    SpecPtr must(zPathSpecNew(u"none", Z_SPEC_MUST_MATCH));
    EXPECT_EQ(zTreeMatch(root.get(), must.get()), nullptr);
    EXPECT_EQ(zErrorClass(), 3);
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
    Seen all{}, skip{{}, "a", ""}, stop{{}, "", "b"};
    EXPECT_OK(zTreeWalk(root.get(), step, &all));
    EXPECT_EQ(all.text, "a;a/x;b;b/y;c;"); // a directory before what it holds
    EXPECT_OK(zTreeWalk(root.get(), step, &skip));
    EXPECT_EQ(skip.text, "a;b;b/y;c;");
    EXPECT_FALSE(zTreeWalk(root.get(), step, &stop));
    EXPECT_EQ(stop.text, "a;a/x;b;");
}
