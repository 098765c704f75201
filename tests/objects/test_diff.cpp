#include "copy_fixture.hpp"

#include <filesystem>

using namespace test;

namespace {

using DiffListTest = WorkingCopyTest;

} // namespace

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
    put_all({"Docs/b", "other"});
    commit_all();
    TreePtr from(zTreeHead(repository.get()));
    put_all({"Docs/b", "other"}, "22");
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
