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
    EXPECT_STREQ(zMatchResultA(narrow.get(), 2), "");
}

TEST(Regex, FailsWithoutAnErrorUnlessAnArgumentIsMissing) {
    zRaiseNotFound(nullptr);
    const std::string longest(0x8000, 'b'), pattern = std::string(1024, 'b') + "|b";
    const std::pair<std::string, std::string> rows[] = {
        {"abc", "x"},        {"abc", "("},         {"\xFF", "."},  {"abc", "\xFF"},
        {"\xC3\xA4", "\\C"}, {longest + "b", "b"}, {"b", pattern},
    };
    for (const auto &[text, wanted] : rows) {
        EXPECT_FALSE(zRegexMatchA(text.c_str(), wanted.c_str())) << wanted;
        EXPECT_FALSE(zRegexCatchA(text.c_str(), wanted.c_str())) << wanted;
    }
    EXPECT_TRUE(zRegexMatchA(longest.c_str(), "b"));
    EXPECT_EQ(zErrorClass(), 3);
    EXPECT_FALSE(zRegexMatchA(nullptr, "a") || zRegexCatchW(u"a", nullptr));
    EXPECT_EQ(zErrorClass(), 2);
}

// Each of the second kind would run for years, or take all memory, without bounds; a long text
// that is simple must not suffer from them.
TEST(Regex, WorkIsBounded) {
    const std::string a(2000, 'a'), longer(32'000, 'a'), bulk(30'000, 'b');
    const struct {
        std::string text;
        const char *pattern;
        bool matches;
    } rows[] = {
        {bulk + "=a", "^(.+)=(.+)$", true},
        {"a=" + bulk, "^(.+)=(.+)$", true}, // goes back through it all
        {"\xC3\xA4"
         "a=" +
             bulk,
         "(\\w+)=(.+)", true},
        {a, "(a+)+$b", false},
        {a, "(a|aa)+x", false},
        {longer, "(a*)*(a*)*[bc]", false},
        {longer, "(?:a*[bc]|a)*x", false},
        {longer, "((a)|b)*c", false},
        {longer, "^(?:(?=(a*))a)*(?R)?x", false},
        {a, "(((((a{1,500}){1,500}){1,500}){1,500}){1,500})x", false},
    };
    for (const auto &row : rows) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(zRegexMatchA(row.text.c_str(), row.pattern), row.matches) << row.pattern;
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        EXPECT_LT(taken.count(), 30) << row.pattern; // a second or two, with room for sanitizers
    }
}

} // namespace
