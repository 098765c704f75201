// UTF-8 both ways, what is malformed, and folding.
#include "common/fold.hpp"
#include "common/utf.hpp"

#include "support.hpp"

#include <cstring>

namespace {

using namespace std::string_literals;
using namespace zev;

// Well-formed text of each length, behind and in front of enough ASCII for the block loop.
TEST(Utf, ConvertsBothWays) {
    const struct {
        std::string narrow;
        std::u16string wide;
    } rows[] = {
        {"", u""},
        {"\x7F\xC2\x80\xDF\xBF", u"\x7F\x80\x7FF"},
        {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", u"\x800\xD7FF\xE000\xFFFF"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", u"\xD800\xDC00\xDBFF\xDFFF"},
        {"a\0b"s, u"a\0b"s},
    };
    for (const auto &[narrow, wide] : rows) {
        for (uint64_t ascii : {0u, 1u, 7u, 8u, 17u}) {
            const std::string n = std::string(ascii, 'x') + narrow + std::string(ascii, 'y');
            const std::u16string w =
                std::u16string(ascii, u'x') + wide + std::u16string(ascii, u'y');
            EXPECT_EQ(to_wide(n), w);
            EXPECT_EQ(to_utf8(w), n);
        }
    }
}

TEST(Utf, ReplacesWhatIsMalformed) {
    const struct {
        const char *narrow;
        std::u16string wide;
        const char *reason;
    } rows[] = {
        {"\x80z", u"\xFFFDz", "no lead"},
        {"\xC0\xAFz", u"\xFFFD\xFFFDz", "overlong slash"},
        {"\xE0\x80\x80", u"\xFFFD\xFFFD\xFFFD", "overlong, three bytes"},
        {"\xED\xA0\x80", u"\xFFFD\xFFFD\xFFFD", "a surrogate"},
        {"\xF4\x90\x80\x80", u"\xFFFD\xFFFD\xFFFD\xFFFD", "beyond U+10FFFF"},
        {"\xF8\x88", u"\xFFFD\xFFFD", "no such lead"},
        {"\xE2\x82z", u"\xFFFDz", "cut by a letter"},
        {"\xF0\x9F\x98", u"\xFFFD", "cut by the end"},
        {"\xE2\xC3\xA9", u"\xFFFD\xE9", "cut by a character"},
    };
    for (const auto &row : rows) EXPECT_EQ(to_wide(row.narrow), row.wide) << row.reason;
    for (const std::u16string lone : {u"\xD800", u"\xDC00", u"\xDC00\xD800", u"\xD800z"})
        EXPECT_EQ(to_wide(to_utf8(lone)),
                  std::u16string(lone.size() - lone.ends_with(u'z'), u'\uFFFD') +
                      (lone.ends_with(u'z') ? u"z" : u""));
}

TEST(Utf, PathIsCutAtAWholeCharacter) {
    const std::u16string fits = std::u16string(511, u'\xFFFF');
    EXPECT_EQ(strlen(Utf8Path(fits.c_str())), 3u * 511);
    const std::u16string cut = std::u16string(510, u'a') + u"\xD83D\xDE00";
    EXPECT_EQ(std::string(Utf8Path(cut.c_str())), std::string(510, 'a'));
    EXPECT_EQ(whole("a\xE2\x82", 3), 1u);
    EXPECT_EQ(whole("a\xE2\x82\xAC", 4), 4u);
    EXPECT_EQ(whole("\xC3", 1), 0u);
}

TEST(Fold, MapsUnitsToUnits) {
    EXPECT_TRUE(same_folded(u"\u00C4RGER.dwx", u"\u00E4rger.DWX"));
    EXPECT_TRUE(same_folded(u"\u0416\u03A3", u"\u0436\u03C2")); // final sigma too
    EXPECT_TRUE(same_folded(u"\u1E9E", u"\u00DF"));
    // Nothing beyond ASCII may turn into an ASCII letter: two names would become one user.
    for (uint32_t unit = 0x80; unit < 0x10000; ++unit) {
        const auto c = static_cast<zwchar>(unit);
        ASSERT_TRUE(fold(c) >= 0x80 && lower(c) >= 0x80 && upper(c) >= 0x80) << unit;
        ASSERT_EQ(fold(fold(c)), fold(c)) << unit;
        ASSERT_TRUE(c < 0xD800 || c >= 0xE000 || fold(c) == c) << unit;
    }
    EXPECT_EQ(lower(u'\u0130'), u'\u0130');
}

} // namespace
