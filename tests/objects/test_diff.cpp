#include "copy_fixture.hpp"

#include "objects/store/diff.hpp"

#include <filesystem>

using namespace test;

namespace {

using DiffListTest = WorkingCopyTest;

int g_calls, g_stop_at; // of the cancel function, which has no context of its own

bool cancel(const void *, const void *, const char *, void *self) {
    EXPECT_EQ(self, reinterpret_cast<void *>(cancel));
    return ++g_calls == g_stop_at;
}

} // namespace

TEST_F(DiffListTest, TreesByRecord) {
    TreePtr from = tree({{u"a", "1"}, {u"docs/b", "1"}, {u"gone", "1"}, {u"same", "1"}});
    TreePtr to = tree({{u"a", "22"}, {u"docs/b", "1"}, {u"new", "333"}, {u"same", "1"}});
    DiffPtr list(zDiffTreeToTree(from.get(), to.get(), nullptr, nullptr));
    EXPECT_EQ(told(list), "3 a>a;2 gone>gone;1 new>new;");
    DiffEntry *added = zDiffListLookup(list.get(), u"new");
    ASSERT_OK(added);
    EXPECT_EQ(hex(zDiffEntryOldId(added)), hex(zDiffEntryNewId(added))); // the only side

    DiffPtr all(zDiffTreeToTree(from.get(), to.get(), spec({u"same"}, Z_SPEC_NO_ADDED).get(),
                                nullptr)); // any option off the default asks for unchanged ones
    EXPECT_EQ(told(all), "0 same>same;");
    DiffPtr root(zDiffTreeToTree(nullptr, to.get(), spec({u"DOCS"}).get(), nullptr));
    EXPECT_EQ(told(root), "1 docs/b>docs/b;");
    EXPECT_FALSE(zDiffTreeToTree(to.get(), to.get(),
                                 spec({}, Z_SPEC_NO_UNCHANGED | Z_SPEC_MUST_MATCH).get(), nullptr));
}

TEST_F(DiffListTest, OnlyIdenticalContentIsARename) {
    TreePtr from = tree({{u"0/empty", ""},
                         {u"0/keep", ""},
                         {u"a", "moved as it is"},
                         {u"b", "moved and changed"},
                         {u"c", "twice"}});
    TreePtr to = tree({{u"1/keep", ""}, // of the same name, though another comes first
                       {u"a2", "moved as it is"},
                       {u"b2", "moved and changed!"},
                       {u"c2", "twice"},
                       {u"c3", "twice"}});
    DiffPtr list(zDiffTreeToTree(from.get(), to.get(), nullptr, nullptr));
    EXPECT_EQ(told(list), "2 0/empty>0/empty;4 0/keep>1/keep;4 a>a2;2 b>b;1 b2>b2;4 c>c2;1 c3>c3;");
    // The other half of a rename lies outside: then it is none.
    DiffPtr half(zDiffTreeToTree(from.get(), to.get(), spec({u"a2"}).get(), nullptr));
    EXPECT_EQ(told(half), "1 a2>a2;");
}

TEST_F(DiffListTest, ALinkWhereTheFileWas) {
    put("a", "moved");
    commit_all();
    const TreePtr from(zTreeHead(repository.get()));
    git(place, "mv a b");
    std::filesystem::create_symlink("b", place / "a");
    git(place, "add a");
    DiffPtr list(zDiffTreeToIndex(nullptr, from.get(), nullptr, nullptr, nullptr));
    EXPECT_EQ(told(list), "1 a>a;4 a>b;");
    DiffEntry *added = zDiffListLookup(list.get(), u"a");
    EXPECT_TRUE(zDiffEntryNewMode(added) == 0120000 && zDiffEntryOldMode(added) == 0120000);
    DiffPtr plain(zDiffTreeToIndex(nullptr, from.get(), nullptr,
                                   spec({}, Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_RENAMED).get(),
                                   nullptr));
    EXPECT_EQ(told(plain), "8 a>a;1 b>b;");
}

// Between trees libgit2 disregards case, against an index it doesn't: one answer all the same.
TEST_F(DiffListTest, SpecsSelectAlikeInTreesAndIndex) {
    put("Docs/b", "1");
    put("other", "1");
    commit_all();
    TreePtr from(zTreeHead(repository.get()));
    put("Docs/b", "22");
    put("other", "22");
    add({u"*"});
    IndexPtr index(zIndexHead(repository.get(), false));
    TreePtr to(zIndexWriteTree(index.get()));
    constexpr struct {
        const zwchar *pattern;
        uint32_t options;
        bool selects;
    } kRows[] = {{u"docs/B", 0, true},        {u"DOCS", 0, true},
                 {u"docs/B", kLiteral, true}, {u"docs/", kLiteral, true},
                 {u"Docs", kLiteral, false}, // a directory is no file
                 {u"docs", kLiteral, false}};
    for (const auto &row : kRows) {
        SpecPtr wanted = spec({row.pattern}, row.options | Z_SPEC_NO_UNCHANGED);
        DiffPtr trees(zDiffTreeToTree(from.get(), to.get(), wanted.get(), nullptr));
        DiffPtr staged(
            zDiffTreeToIndex(repository.get(), from.get(), index.get(), wanted.get(), nullptr));
        const char *expected = row.selects ? "3 Docs/b>Docs/b;" : "";
        EXPECT_EQ(told(trees), expected) << narrow(row.pattern) << row.options;
        EXPECT_EQ(told(staged), expected) << narrow(row.pattern) << row.options;
    }
    DiffPtr all(zDiffTreeToIndex(repository.get(), from.get(), nullptr, nullptr, nullptr));
    EXPECT_EQ(told(all), "3 Docs/b>Docs/b;3 other>other;"); // null: the repository's index
    from = tree({{u"Docs/Plan.dwx", "1"}, {u"größe", "1"}});
    to = tree({{u"docs/plan.dwx", "1"}, {u"größe", "22"}});
    DiffPtr case_aside(zDiffTreeToTree(from.get(), to.get(), nullptr, nullptr));
    EXPECT_EQ(told(case_aside), "3 größe>größe;");
}

TEST_F(DiffListTest, CancelEndsIt) {
    TreePtr to = tree({{u"a", "1"}, {u"b", "1"}, {u"c", "1"}});
    for (int stop = 1; stop <= 4; ++stop) {
        g_calls = 0, g_stop_at = stop;
        DiffPtr list(zDiffTreeToTree(nullptr, to.get(), spec({u"a", u"b"}).get(), cancel));
        EXPECT_EQ(list != nullptr, stop > 2) << stop; // what is not selected isn't asked for
        EXPECT_EQ(list || zErrorClass() == 11, true);
    }
}

TEST_F(DiffListTest, ListsAreCopiedAndFiltered) {
    TreePtr from = tree({{u"old/a", "moved"}, {u"b", "1"}});
    TreePtr to = tree({{u"new/a", "moved"}, {u"b", "22"}, {u"c", "1"}});
    DiffPtr list(zDiffTreeToTree(from.get(), to.get(), nullptr, nullptr));
    ASSERT_EQ(told(list), "3 b>b;1 c>c;4 old/a>new/a;");
    auto filtered = [&](std::vector<std::u16string> patterns, uint32_t options) {
        SpecPtr wanted = spec(patterns, options);
        auto copy = zev::diff_list_filtered(list.get(), wanted.get());
        EXPECT_EQ(zev::diff_list_any(list.get(), wanted.get()),
                  copy && zDiffListLength(copy.get()) > 0);
        return copy ? told(copy) : "(null)";
    };
    EXPECT_EQ(filtered({}, Z_SPEC_NO_RENAMED), "3 b>b;1 c>c;1 new/a>new/a;2 old/a>old/a;");
    EXPECT_EQ(filtered({u"old"}, Z_SPEC_NO_RENAMED), "2 old/a>old/a;");
    EXPECT_EQ(filtered({u"old"}, Z_SPEC_NO_RENAMED | Z_SPEC_NO_DELETED), "");
    EXPECT_EQ(filtered({u"old"}, 0), ""); // a rename counts by its new path
    EXPECT_EQ(filtered({u"none"}, Z_SPEC_MUST_MATCH), "(null)");
    auto copy = zev::diff_list_dup(list.get());
    list.reset();
    EXPECT_EQ(told(copy), "3 b>b;1 c>c;4 old/a>new/a;");
}
