#include "support.hpp"

#include "zev/regex.h"

#include <chrono>

namespace {

using List = test::Guard<Vector>;

List caught(const zwchar *text, const zwchar *pattern) {
    return test::guard(zRegexCatchW(text, pattern), zMatchFreeW);
}

TEST(Regex, CatchesGroups) {
    const struct {
        const zwchar *text, *pattern;
        std::vector<std::u16string> groups;
    } rows[] = {
        {u"a=b", u"(.+)=(.+)", {u"a=b", u"a", u"b"}},
        {u"a=b=c", u"(.+)=(.+)", {u"a=b=c", u"a=b", u"c"}},
        {u"Gr\u00F6\u00DFe \u56F3\u9762",
         u"([\u56F2-\u56F4].)$",
         {u"\u56F3\u9762", u"\u56F3\u9762"}},
        {u"b", u"(a)?b(c)?", {u"b", u"", u""}}, // no part in it, first and last
        {u"xab", u"a\\Kb(c)?", {u"b", u""}},
        {u"ab", u"a(?C1)b", {u"ab"}},
    };
    for (const auto &row : rows) {
        const List list = caught(row.text, row.pattern);
        const std::string name = test::narrow(row.pattern);
        ASSERT_TRUE(list) << name;
        std::vector<std::u16string> groups;
        for (uint64_t i = 0; i < zMatchCountW(list.get()); ++i)
            groups.emplace_back(zMatchResultW(list.get(), i));
        EXPECT_EQ(groups, row.groups) << name;
        EXPECT_TRUE(zRegexMatchW(row.text, row.pattern)) << name;
        EXPECT_FALSE(zMatchResultW(list.get(), groups.size()));
        EXPECT_EQ(zErrorClass(), 2);
    }
    auto narrow = test::guard(zRegexCatchA("\xC3\xA4=", "(.)=(x)?"), zMatchFreeA);
    ASSERT_TRUE(narrow);
    ASSERT_EQ(zMatchCountA(narrow.get()), 3u);
    EXPECT_STREQ(zMatchResultA(narrow.get(), 1), "\xC3\xA4");
    EXPECT_STREQ(zMatchResultA(narrow.get(), 2), "");
}

TEST(Regex, FailsWithoutAnErrorUnlessAnArgumentIsMissing) {
    zRaiseNotFound(nullptr);
    const struct {
        const char *text, *pattern;
    } rows[] = {
        {"abc", "x"}, {"abc", "("}, {"\xFF", "."}, {"abc", "\xFF"}, {"\xC3\xA4", "\\C"},
    };
    for (const auto &row : rows) {
        EXPECT_FALSE(zRegexMatchA(row.text, row.pattern)) << row.pattern;
        EXPECT_FALSE(zRegexCatchA(row.text, row.pattern)) << row.pattern;
    }
    EXPECT_EQ(zErrorClass(), 3);
    EXPECT_FALSE(zRegexMatchA(nullptr, "a"));
    EXPECT_EQ(zErrorClass(), 2);
    EXPECT_FALSE(zRegexCatchW(u"a", nullptr));
    EXPECT_EQ(zMatchCountA(nullptr), 0u);
    zMatchFreeA(nullptr);
}

TEST(Regex, LongTextsMatchWhereTheyAreSimple) {
    const std::string bulk(30'000, 'b');
    EXPECT_TRUE(zRegexMatchA((bulk + "=a").c_str(), "^(.+)=(.+)$"));
    EXPECT_TRUE(zRegexMatchA(("a=" + bulk).c_str(), "^(.+)=(.+)$")); // goes back through it all
    EXPECT_TRUE(zRegexMatchA(("\xC3\xA4"
                              "a=" +
                              bulk)
                                 .c_str(),
                             "(\\w+)=(.+)"));
    EXPECT_FALSE(zRegexMatchA((bulk + bulk).c_str(), "b"));
    EXPECT_FALSE(zRegexMatchA("b", std::string(2000, 'b').append("|b").c_str()));
}

// Each of these would run for years, or take all memory, without bounds.
TEST(Regex, WorkIsBounded) {
    const std::string a(2000, 'a'), longer(32'000, 'a');
    const struct {
        const std::string &text;
        const char *pattern;
    } rows[] = {
        {a, "(a+)+$b"},
        {a, "(a|aa)+x"},
        {longer, "(a*)*(a*)*[bc]"},
        {longer, "(?:a*[bc]|a)*x"},
        {longer, "((a)|b)*c"},
        {longer, "^(?:(?=(a*))a)*(?R)?x"},
        {a, "(((((a{1,500}){1,500}){1,500}){1,500}){1,500})x"},
    };
    for (const auto &row : rows) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_FALSE(zRegexMatchA(row.text.c_str(), row.pattern)) << row.pattern;
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        EXPECT_LT(taken.count(), 30) << row.pattern; // a second or two, with room for sanitizers
    }
}

} // namespace
