// Text functions and the scanf engine.
#include "support.hpp"

#include <cmath>
#include <cstring>

namespace {

struct Owned {
    zwchar *text = nullptr;
    ~Owned() { zStrfreeW(text); }
};

TEST(Str, HoldsCopies) {
    Owned held, whole{zStrndupW(u"text", 0)}; // 0 counts as all
    EXPECT_EQ(std::u16string(whole.text), u"text");
    EXPECT_FALSE(zStrnewA(UINT64_MAX) || zStrnewW(UINT64_MAX / 2));
    ASSERT_TRUE(zStrupdW(&held.text, u"first text"));
    EXPECT_EQ(zStrupdW(&held.text, held.text + 6), held.text); // a part of itself
    EXPECT_FALSE(zStrnupdW(&held.text, nullptr, 2));           // never stores null
    EXPECT_EQ(std::u16string(held.text), u"text");
    ASSERT_TRUE(zStrnupdW(&held.text, u"abc", 2));
    EXPECT_EQ(std::u16string(held.text), u"ab");
}

TEST(Str, ComparesUnsignedAndFolds) {
    EXPECT_TRUE(zStrcmpW(u"\xFF00", u"a") == 1 && zStrcmpA("\xFF", "a") == 1);
    EXPECT_TRUE(zStrcasesameW(u"\u00C9T\u00C9", u"\u00E9t\u00E9"));
    EXPECT_TRUE(zStrcasesameA("ABC", "abc") && !zStrcasesameA("\xC3\x89", "\xC3\xA9"));
    EXPECT_TRUE(zStrncasesameA("ABc", "abX", 2) && zStrncasecmpW(u"B", u"a", 1) == 1);
    EXPECT_EQ(zStrcasecmpW(u"_", u"A"), -1); // by what they fold to: lower case
}

TEST(Str, CollatesForPeople) {
    const struct {
        const zwchar *a, *b;
        int32_t order;
    } rows[] = {
        {nullptr, u"", 0},  {u"a", nullptr, 1},        {nullptr, u"a", -1}, {u"", u"", 0},
        {u"a", u"A", 0},    {u"\u00E9", u"E", 0},      {u"B", u"a", 1},     {u"z", u"\u00E4", 1},
        {u"a1", u"a2", -1}, {u"\u3042", u"\u30A2", 0}, // kana types are one
    };
    for (auto [a, b, order] : rows)
        EXPECT_EQ(zStricollW(a, b), order) << test::narrow(a) << " " << test::narrow(b);
}

TEST(Str, ChangesInPlace) {
    const struct {
        const zwchar *text, *set, *start, *end;
    } rows[] = {
        {u" \t\r\n", nullptr, u"", u""},
        {u" a b ", nullptr, u"a b ", u" a b"},
        {u"//a//", u"/", u"a//", u"//a"},
    };
    for (const auto &row : rows) {
        Owned start{zStrdupW(row.text)}, end{zStrdupW(row.text)};
        EXPECT_EQ(std::u16string(zStrtrimW(start.text, row.set)), row.start);
        EXPECT_EQ(std::u16string(zStrrtrimW(end.text, row.set)), row.end);
    }
    char bytes[8] = "#######";
    EXPECT_EQ(memcmp(zStrncpyA(bytes, "ab", 6), "ab\0\0\0\0#", 7), 0);
    EXPECT_STREQ(zStrncatA(bytes, "cdef", 2), "abcd");
}

TEST(Str, Finds) {
    const zwchar *text = u"abcabc";
    EXPECT_TRUE(zStrchrW(text, 0) == text + 6 && zStrrchrW(text, 0) == text + 6);
    EXPECT_TRUE(zStrcasestrW(text, u"CAB") == text + 2 && zStrcasestrW(text, u"") == text);
    EXPECT_FALSE(zStrstrW(text, u"cb") || zStrcasestrW(text, u"bcabcd"));

    zwchar list[] = u",,a,b;;c;", *context = nullptr;
    std::u16string tokens;
    for (zwchar *token = list; (token = zStrtokW(token, u",;", &context)); token = nullptr)
        tokens.append(token).append(u"|");
    EXPECT_EQ(tokens, u"a|b|c|");
}

TEST(Str, ReadsNumbers) {
    const struct {
        const zwchar *text;
        int32_t base;
        int64_t value;
        int used;
    } rows[] = {
        {u" \t-42x", 10, -42, 5},
        {u"0x1Fg", 0, 31, 4},
        {u"0x", 16, 0, 1}, // no digit behind the prefix
        {u"017", 0, 15, 3},
        {u"9223372036854775808", 10, INT64_MAX, 19},
        {u"-9223372036854775808", 10, INT64_MIN, 20},
        {u"-99999999999999999999", 10, INT64_MIN, 21},
        {u"+", 10, 0, 0},
    };
    for (const auto &row : rows) {
        zwchar *end = nullptr;
        EXPECT_EQ(zStrtollW(row.text, &end, row.base), row.value) << test::narrow(row.text);
        EXPECT_EQ(end - row.text, row.used) << test::narrow(row.text);
    }
    EXPECT_EQ(zStrtolA("2147483648", nullptr, 10), INT32_MAX);
    EXPECT_EQ(zStrtolW(u"-2147483649", nullptr, 10), INT32_MIN);

    const std::u16string zeros = std::u16string(5000, u'0') + u"1.5e1z", other = u" \u00E91";
    zwchar *end = nullptr;
    EXPECT_TRUE(zStrtodW(zeros.c_str(), &end) == 15 && end == &zeros[5005]);
    EXPECT_TRUE(zStrtodW(other.c_str(), &end) == 0 && end == other.c_str());
    EXPECT_TRUE(zStrtodA("-1e-2,", nullptr) == -0.01 && std::isinf(zStrtodW(u"-inf", nullptr)));
}

TEST(Scan, StoresConversions) {
    int day = 0, month = 0, year = 0, used = 0;
    EXPECT_EQ(zSscanfW(u"202402-29T", u"%4d%2d-%2d%n", &year, &month, &day, &used), 3);
    EXPECT_TRUE(year * 10000 + month * 100 + day == 20240229 && used == 9);

    unsigned long long big = 0;
    short small = 0;
    double real = 0;
    EXPECT_EQ(zSscanfA("ffffffffffffffff -7 1.25e2", "%llx %hd %lf", &big, &small, &real), 3);
    EXPECT_TRUE(big == UINT64_MAX && small == -7 && real == 125);

    zwchar wide[8] = {}, rest[8] = {};
    char narrow[8] = {};
    EXPECT_EQ(zSscanfW(u"\u00E9a key=v;x", u"%hs %[^=]=%*[a-u]%2c", narrow, wide, rest), 2);
    EXPECT_EQ(std::string(narrow) + test::narrow(wide), "\u00E9akey");
    EXPECT_EQ(zSscanfW(u"\u00E9\u00E9\u00E9", u"%3hs", narrow), 1); // a bound on what is stored
    EXPECT_STREQ(narrow, "\u00E9");
    EXPECT_TRUE(zSscanfW(u"abcd", u"%3hs", narrow) == 1 && narrow == std::string("abc"));
    EXPECT_TRUE(zSscanfA("]a", "%[]a]", narrow) == 1 && narrow == std::string("]a"));
    EXPECT_EQ(zSscanfA("\u00E9;", "%[^;-\xFF]", narrow), 0); // bytes are unsigned
    EXPECT_TRUE(zSscanfA("\u00E9;", "%[\x80-\xFF]", narrow) == 1 &&
                narrow == std::string("\u00E9"));
}

} // namespace
