// Text functions and the scanf engine.
#include "support.hpp"

#include <cmath>

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
    const std::u16string zeros = std::u16string(5000, u'0') + u"1.5e1z", other = u" \u00E91";
    zwchar *end = nullptr;
    EXPECT_TRUE(zStrtodW(zeros.c_str(), &end) == 15 && end == &zeros[5005]);
    EXPECT_TRUE(zStrtodW(other.c_str(), &end) == 0 && end == other.c_str());
    EXPECT_TRUE(zStrtodA("-1e-2,", nullptr) == -0.01 && std::isinf(zStrtodW(u"-inf", nullptr)));
}

TEST(Scan, StoresConversions) {
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
