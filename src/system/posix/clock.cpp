// Waiting, the time zone, and times as text. Nothing here depends on a locale that the host has
// set.
#include "system/clock.hpp"
#include "system/posix/native.hpp"

#include <iomanip>
#include <locale>
#include <sstream>

#include <langinfo.h>
#include <locale.h>
#include <sched.h>
#include <time.h>

namespace zev::os {

void sleep(uint32_t milliseconds) {
    if (!milliseconds) {
        sched_yield();
        return;
    }
    timespec left = {milliseconds / 1000, static_cast<long>(milliseconds % 1000) * 1'000'000};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) continue;
}

// File systems stamp by the clock of the last tick, which stands still for 1 to 10 ms. A stamp of
// another machine's clock may lie far ahead: it is not waited for longer than that.
void wait_past(const timespec &stamp) {
    constexpr long kStep = 500'000;
    constexpr int kSteps = 20;
    for (int n = 0; n < kSteps; ++n) {
        timespec now;
        clock_gettime(CLOCK_REALTIME_COARSE, &now);
        if (now.tv_sec != stamp.tv_sec ? now.tv_sec > stamp.tv_sec : now.tv_nsec > stamp.tv_nsec)
            return;
        const timespec step = {0, kStep};
        nanosleep(&step, nullptr);
    }
}

// Without summer time, which north and south of the equator keep at opposite ends of a year;
// glibc's own `timezone` is summer time where the law calls winter the exception.
int64_t seconds_west() {
    tzset();
    const time_t now = static_cast<time_t>(calls.now() / kSecond);
    tm today;
    if (!localtime_r(&now, &today)) return 0;
    long most = LONG_MIN;
    for (int month : {0, 6}) {
        tm day = {};
        day.tm_year = today.tm_year;
        day.tm_mon = month;
        day.tm_mday = 1;
        day.tm_hour = 12;
        const time_t seconds = timegm(&day);
        if (localtime_r(&seconds, &day)) most = std::max(most, -day.tm_gmtoff);
    }
    return most == LONG_MIN ? 0 : most;
}

namespace {

locale_t c_locale() {
    static const locale_t made = newlocale(LC_ALL_MASK, "C", nullptr);
    return made;
}

// The user's language for names of days and months, where its text is UTF-8.
locale_t user_locale() {
    static const locale_t made = [] {
        const std::string name = locale_name("LC_TIME");
        locale_t own = newlocale(LC_TIME_MASK | LC_CTYPE_MASK, name.c_str(), nullptr);
        if (own && std::string_view(nl_langinfo_l(CODESET, own)) == "UTF-8") return own;
        if (own) freelocale(own);
        return c_locale();
    }();
    return made;
}

} // namespace

std::string format_time(const char *format, int64_t seconds, bool local) {
    const time_t moment = seconds;
    tm parts;
    if (!gmtime_r(&moment, &parts)) return {};
    // A blank behind the text tells an empty one from one that doesn't fit.
    const std::string marked = std::string(format) + ' ';
    std::string text(marked.size() * 4 + 64, 0);
    for (; text.size() < (1u << 20); text.resize(text.size() * 4)) {
        const size_t length = strftime_l(text.data(), text.size(), marked.c_str(), &parts,
                                         local ? user_locale() : c_locale());
        if (!length) continue;
        text.resize(length - 1);
        return text;
    }
    return {};
}

bool parse_time(const std::string &text, const char *format, int64_t *seconds) {
    // Something always follows: at a text's end the library takes the rest of the format for read.
    std::istringstream stream(text + '\1');
    stream.imbue(std::locale::classic());
    tm parts = {};
    parts.tm_mday = 1;
    stream >> std::get_time(&parts, format);
    if (stream.fail()) return false;
    *seconds = timegm(&parts);
    return true;
}

} // namespace zev::os
