// The printf engine, against the C library and by its own rules.
#include "common/format.hpp"

#include "support.hpp"

#include <climits>
#include <cmath>

namespace {

std::string formatted(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char *text = zev::format_narrow_dup(format, arguments);
    va_end(arguments);
    std::string result = text ? text : "FAILED";
    zStrfreeA(text);
    return result;
}
std::u16string formatted(const zwchar *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    zwchar *text = zev::format_wide_dup(format, arguments);
    va_end(arguments);
    std::u16string result = text ? text : u"FAILED";
    zStrfreeW(text);
    return result;
}

// What both engines have in common with the C library, each conversion against it.
template <class... T> void same(const char *format, T... arguments) {
    char expected[512];
    snprintf(expected, sizeof expected, format, arguments...);
    EXPECT_EQ(formatted(format, arguments...), expected) << format;
    EXPECT_EQ(formatted(test::wide(format).c_str(), arguments...), test::wide(expected)) << format;
}

TEST(Format, NumbersAsTheCLibrary) {
    for (const char *format : {"%d", "[%5d]", "[%-5d]", "%05d", "%+d", "% d", "%.3d", "%+.0d", "%i",
                               "%u", "%x", "%#X", "%#o", "%hhd", "%hd", "%hhu", "%hu"})
        for (int value : {0, 7, -7, 70000, INT32_MIN}) same(format, value);
    for (const char *format : {"%lld", "%llu", "%ld", "%zu", "%jd", "%td", "%#018llx"})
        for (long long value : {0LL, -1LL, LLONG_MIN, LLONG_MAX}) same(format, value);
    for (const char *format :
         {"%f", "%.2f", "%10.3e", "%-10.1f|", "%g", "%G", "%a", "%+08.2f", "%.0f"})
        for (double value : {0.0, -1.5, 1e300, 1.0 / 3, HUGE_VAL}) same(format, value);
    same("%*d|%-*d|%.*f|%*d", 5, 1, 5, 2, 2, 0.125, -4, 3);
    same("%.*d", -1, 0); // a negative precision is none
    same("100%% of %d%c", 3, '!');
    same("%Lf %200.150f", 1.5L, 0.1);
    EXPECT_EQ(formatted(u"%I64d %I32u %Id", int64_t{-1}, 3000000000u, int64_t{5}),
              u"-1 3000000000 5");
    EXPECT_EQ(formatted("%I64x", 0xFEDCBA9876543210), "fedcba9876543210");
    EXPECT_EQ(formatted(u"%p|%20p", (void *)0xABC, nullptr),
              u"0000000000000ABC|    0000000000000000");
}

TEST(Format, TextsOfBothWidths) {
    const char *narrow = "\xC3\xA9t\xC3\xA9";
    const zwchar *wide = u"\u00E9t\u00E9";
    EXPECT_EQ(formatted(u"%s|%S|%hs|%ls|%ws", wide, narrow, narrow, wide, wide),
              u"\u00E9t\u00E9|\u00E9t\u00E9|\u00E9t\u00E9|\u00E9t\u00E9|\u00E9t\u00E9");
    EXPECT_EQ(formatted("%s|%S|%hs|%ls", narrow, wide, narrow, wide),
              "\xC3\xA9t\xC3\xA9|\xC3\xA9t\xC3\xA9|\xC3\xA9t\xC3\xA9|\xC3\xA9t\xC3\xA9");
    EXPECT_EQ(formatted(u"%c%C%hc%lc", u'\u00E9', 'a', 'b', u'c'), u"\u00E9abc");
    EXPECT_EQ(formatted("%c%C|%5C|%-3c|", 'a', u'\u20AC', u'x', 'y'), "a\xE2\x82\xAC|    x|y  |");
    EXPECT_EQ(formatted(u"%s %hs %.3s", nullptr, nullptr, nullptr), u"(null) (null) (nu");
    // The width counts what comes out, the precision what goes in, never half a character.
    EXPECT_EQ(formatted(u"%5S|%-5hs|%.1S|%.4S", narrow, narrow, narrow, narrow),
              u"  \u00E9t\u00E9|\u00E9t\u00E9  ||\u00E9t");
    EXPECT_EQ(formatted("%6S|%.2s", wide, "abc"), " \xC3\xA9t\xC3\xA9|ab");
    // Longer than any block or local buffer.
    const std::string across = std::string(127, 'a') + "\xE2\x82\xAC" + std::string(900, 'b');
    EXPECT_EQ(formatted(u"%hs", across.c_str()), test::wide(across));
    EXPECT_EQ(formatted("%S", test::wide(across).c_str()), across);
}

TEST(Format, FillsBuffersLikeVsnprintf) {
    const struct {
        uint64_t size;
        int32_t result;
        std::u16string buffer;
    } rows[] = {{6, 4, {u"1234\0#", 6}},
                {5, 4, {u"1234\0#", 6}},
                {4, 4, u"1234##"},
                {3, -1, u"123###"},
                {0, -1, u"######"}};
    for (const auto &row : rows) {
        zwchar buffer[] = u"######";
        EXPECT_EQ(zSnprintfW(buffer, row.size, u"%d", 1234), row.result) << row.size;
        EXPECT_EQ(std::u16string(buffer, 6), row.buffer) << row.size;
    }
    EXPECT_EQ(zSnprintfW(nullptr, 0, u"%s", u"four"), 4);
}

TEST(Format, RefusesWhatItDoesNotKnow) {
    for (const zwchar *format : {u"a%n", u"%", u"%5", u"%y", u"%1$d", u"%99999999999d", u"%\u00E9",
                                 u"%2000000000d", u"%.2000000000f", u"%*c"})
        EXPECT_EQ(zSnprintfW(nullptr, 0, format, INT_MIN, 1), -1) << test::narrow(format);
    EXPECT_EQ(zSnprintfW(nullptr, 0, u"%1048577s", u"too wide"), -1);
    EXPECT_EQ(zSnprintfW(nullptr, 0, nullptr), -1);
}

TEST(Format, KeepsThePointUnderAHostsLocale) {
    test::CommaLocale comma;
    EXPECT_EQ(formatted(u"%.1f %g", 1.5, 0.25), u"1.5 0.25");
    EXPECT_EQ(zStrtodW(u"1.5", nullptr), 1.5);
    EXPECT_EQ(zStrtodA("1.5", nullptr), 1.5);
    float value = 0;
    EXPECT_TRUE(zSscanfA("2.5", "%f", &value) == 1 && value == 2.5f);
}

} // namespace
