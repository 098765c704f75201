#include "support.hpp"

#include "system/os.hpp"

#include <ctime>

using test::narrow;

namespace {

TEST(Time, ClockAndZones) {
    const auto now = zev::os::calls.now;
    zev::os::calls.now = [] { return int64_t{1'720'000'000'123'456'789}; };
    const struct {
        const char *zone;
        int64_t west;
    } zones[] = {{"UTC", 0},
                 {"EST5EDT", 5 * 3600},
                 {"IST-1GMT0,M10.5.0,M3.5.0/1", 0},                 // summer is the rule by law
                 {"<+1030>-10:30<+11>-11,M10.1.0,M4.1.0", -37800}}; // January is summer
    for (auto [zone, west] : zones) {
        setenv("TZ", zone, 1);
        EXPECT_EQ(zTimeZone(), west) << zone;
        Time global, local, back;
        zTimeGlobal(&global);
        zTimeLocal(&local);
        EXPECT_EQ(local.seconds, 1'720'000'000 - west) << zone;
        EXPECT_TRUE(zTimeIsEqual(zTimeGlobalize(&back, &local), &global));
        EXPECT_TRUE(zTimeIsEqual(zTimeLocalize(&back, &global), &local));
        EXPECT_EQ(global.nanoseconds, 123'456'700); // steps of 100

        zwchar text[64];
        for (const zwchar *format : {u"%Y-%m-%dT%H:%M:%SZ", u"%Y-%m-%d %H:%M:%S"}) {
            ASSERT_TRUE(zTimeFormatGlobal(text, 64, format, 1'720'000'000));
            EXPECT_EQ(narrow(text).replace(10, 1, " ").substr(0, 19), "2024-07-03 09:46:40");
            for (auto parse : {zTimeParseGlobal, zTimeParseLocal})
                EXPECT_TRUE(parse(&back, text, format) && back.seconds == 1'720'000'000) << zone;
        }
    }
    unsetenv("TZ");
    tzset();
    zev::os::calls.now = now;
}

TEST(Time, TextLimits) {
    zwchar text[32] = u"kept";
    EXPECT_TRUE(zTimeFormatGlobal(text, 5, u"%Y", 0));
    EXPECT_FALSE(zTimeFormatGlobal(text, 4, u"%Y", 0)); // no room for the terminator
    EXPECT_FALSE(zTimeFormatGlobal(text, 32, u"%Y", INT64_MAX));
    EXPECT_TRUE(zTimeFormatGlobal(text, 32, u"%a %b \u00E4", -1));
    EXPECT_EQ(narrow(text), "Wed Dec \xC3\xA4");
    Time time = {7, 7};
    EXPECT_FALSE(zTimeParseGlobal(&time, u"2024-13-01", u"%Y-%m-%d"));
    EXPECT_TRUE(zErrorClass() == 2 && time.seconds == 7);
    EXPECT_TRUE(zTimeParseGlobal(&time, u"2024-03", u"%Y-%m")); // a month begins on its first day
    EXPECT_EQ(time.seconds, 1'709'251'200);
}

} // namespace
