// Numbers for people.
#include "support.hpp"

#include <cmath>

namespace {

TEST(Number, HumanBytes) {
    const struct {
        uint64_t count;
        const zwchar *text;
    } rows[] = {
        {1023, u"1023 Bytes"},           {1024, u"1.00 KB"},
        {(1u << 20) - 1, u"1024.00 KB"}, // the unit goes by the count, not by what is printed
        {1536ull << 20, u"1.50 GB"},     {1ull << 50, u"1.00 PB"},
        {UINT64_MAX, u"16384.00 PB"},
    };
    for (auto [count, text] : rows)
        EXPECT_EQ(std::u16string(zNumToHumanBytes(count)), text) << count;
}

TEST(Number, HumanTime) {
    auto word = [](const zwchar *key) {
        return std::u16string(zI18nTextLookup(zI18nCurrentLang(), key));
    };
    const std::u16string second = word(u"datetime.second"), seconds = word(u"datetime.seconds"),
                         minute = word(u"datetime.minute"), minutes = word(u"datetime.minutes"),
                         hour = word(u"datetime.hour"), days = word(u"datetime.days");
    ASSERT_NE(second, seconds);
    const struct {
        double seconds;
        std::u16string text;
    } rows[] = {
        {0.5, u"0.50 " + second},
        {1, u"1.00 " + seconds},
        {90, u"1 " + minute + u" 30 " + seconds + u" "},
        {3600, u"1 " + hour + u" 0 " + minute + u" 0 " + second + u" "},
        {2 * 86400 + 120.9,
         u"2 " + days + u" 0 " + hour + u" 2 " + minutes + u" 0 " + second + u" "},
    };
    for (const auto &row : rows)
        EXPECT_EQ(std::u16string(zNumToHumanTime(row.seconds)), row.text) << row.seconds;
    for (double bad : {-1.0, std::nan("")}) {
        EXPECT_EQ(std::u16string(zNumToHumanTime(bad)), u"0.00 " + second);
        EXPECT_EQ(zErrorClass(), 2);
    }
    EXPECT_TRUE(zNumToHumanTime(HUGE_VAL));
}

} // namespace
