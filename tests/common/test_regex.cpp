// Regular expressions, with the bound on their work.
#include "support.hpp"

#include "zev/regex.h"

#include <chrono>

namespace {

TEST(Regex, CatchesGroups) {
    const struct {
        const zwchar *text, *pattern;
        std::vector<std::u16string> groups;
    } rows[] = {
        {u"a=b=c", u"(.+)=(.+)", {u"a=b=c", u"a=b", u"c"}},
        {u"Größe 図面", u"([図-圖].)$", {u"図面", u"図面"}},
        {u"b", u"(a)?b(c)?", {u"b", u"", u""}}, // no part in it, first and last
        {u"xab", u"a\\Kb(c)?", {u"b", u""}},
        {u"ab", u"a(?C1)b", {u"ab"}},
    };
    for (const auto &row : rows) {
        const auto list = test::guard(zRegexCatchW(row.text, row.pattern), zMatchFreeW);
        std::vector<std::u16string> groups;
        for (uint64_t i = 0; i < zMatchCountW(list.get()); ++i)
            groups.emplace_back(zMatchResultW(list.get(), i));
        EXPECT_EQ(groups, row.groups) << test::narrow(row.pattern);
        EXPECT_FALSE(zMatchResultW(list.get(), groups.size()));
    }
    const auto narrow = test::guard(zRegexCatchA("\xC3\xA4=", "(.)=(x)?"), zMatchFreeA);
    ASSERT_EQ(zMatchCountA(narrow.get()), 3u);
    EXPECT_STREQ(zMatchResultA(narrow.get(), 1), "\xC3\xA4");
}

TEST(Regex, FailsWithoutAnErrorUnlessAnArgumentIsMissing) {
    zRaiseNotFound(nullptr);
    const std::string longest(0x8000, 'b'), pattern = std::string(1024, 'b') + "|b";
    const std::pair<std::string, std::string> rows[] = {
        {"abc", "x"},        {"abc", "("},         {"\xFF", "."},  {"abc", "\xFF"},
        {"\xC3\xA4", "\\C"}, {longest + "b", "b"}, {"b", pattern},
    };
    for (const auto &[text, wanted] : rows) {
        EXPECT_FALSE(zRegexMatchA(text.c_str(), wanted.c_str()) ||
                     zRegexCatchA(text.c_str(), wanted.c_str()))
            << wanted;
    }
    EXPECT_TRUE(zRegexMatchA(longest.c_str(), "b"));
    EXPECT_EQ(zErrorClass(), 3);
}

// What is not found for want of work says so; some of these would run for years, or take all
// memory, without bounds. A long text that is simple must not suffer from them.
TEST(Regex, WorkIsBounded) {
    constexpr int kNo = 3, kSpent = 5; // classes, the former as it was before
    const std::string a(1000, 'a'), longer(32'000, 'a'), bulk(30'000, 'b');
    const struct {
        std::string text;
        const char *pattern;
        bool matches;
        int error_class;
    } rows[] = {
        {bulk + "=a", "^(.+)=(.+)$", true, kNo},
        {"a=" + bulk, "^(.+)=(.+)$", true, kNo}, // goes back through it all
        {"\u00E4a=" + bulk, "(\\w+)=(.+)", true, kNo},
        {a + "dbc", "(a|b)*c", true, kNo},    // goes to the end and back from each place
        {a + "!=x", "(\\w)+=|!=", true, kNo}, // the same
        {a, "(a|b)*[xy]", false, kNo},        // the same, in vain
        {a, "(a|aa)+[xy]", false, kSpent},
        {longer, "(a*)*(a*)*[bc]", false, kSpent},
        {longer, "(?:a*[bc]|a)*[xy]", false, kSpent},
        {longer, "^(?:(?=(a*))a)*(?R)?x", false, kSpent},
        {a, "(((((a{1,500}){1,500}){1,500}){1,500}){1,500})x", false, kNo},
    };
    for (const auto &row : rows) {
        zRaiseNotFound(nullptr);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(zRegexMatchA(row.text.c_str(), row.pattern), row.matches) << row.pattern;
        EXPECT_EQ(zErrorClass(), row.error_class) << row.pattern;
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        EXPECT_LT(taken.count(), 60) << row.pattern; // some seconds, with room for sanitizers
    }
}

} // namespace
