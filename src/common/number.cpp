// Numbers for people, in the words of the current catalogue; and sorting.
#include "zev/number.h"

#include "common/failure.hpp"
#include "common/utf.hpp"

#include "zev/lang.h"
#include "zev/str.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string>

using namespace zev;

namespace {

const zwchar *text_of(const zwchar *key) { return zI18nTextLookup(zI18nCurrentLang(), key); }

struct Part {
    uint64_t seconds;
    const zwchar *one, *many; // keys
};
constexpr Part kParts[] = {
    {86400, u"datetime.day", u"datetime.days"},
    {3600, u"datetime.hour", u"datetime.hours"},
    {60, u"datetime.minute", u"datetime.minutes"},
    {1, u"datetime.second", u"datetime.seconds"},
};

// "1 hour 0 minute 30 seconds ": from the first part that is there, each with a blank behind it.
std::u16string parts_of(uint64_t seconds) {
    std::u16string text;
    for (const Part &part : kParts) {
        const uint64_t count = seconds / part.seconds;
        seconds %= part.seconds;
        if (!count && text.empty()) continue;
        zwchar number[24];
        zSnprintfW(number, std::size(number), u"%llu ", static_cast<unsigned long long>(count));
        text.append(number).append(text_of(count > 1 ? part.many : part.one)).append(u" ");
    }
    return text;
}

} // namespace

const zwchar *zNumToHumanBytes(uint64_t count) {
    constexpr const zwchar *kFormats[] = {u"%.2f KB", u"%.2f MB", u"%.2f GB", u"%.2f TB",
                                          u"%.2f PB"};
    zwchar text[40];
    if (count < 1024) {
        zSnprintfW(text, std::size(text), u"%d Bytes", static_cast<int>(count));
        return park(text);
    }
    double value = static_cast<double>(count) / 1024;
    size_t power = 0;
    for (uint64_t rest = count >> 20; rest && power + 1 < std::size(kFormats); rest >>= 10) {
        value /= 1024;
        ++power;
    }
    zSnprintfW(text, std::size(text), kFormats[power], value);
    return park(text);
}

const zwchar *zNumToHumanTime(double seconds) try {
    constexpr double kMost = 1e18; // still a whole number of 64 bits
    if (!(seconds >= 0)) {
        fail_args();
        seconds = 0;
    }
    if (seconds >= 60)
        return park(parts_of(static_cast<uint64_t>(std::min(seconds, kMost))).c_str());
    zwchar text[Z_PATH_MAX] = {};
    zSnprintfW(text, std::size(text) - 1, u"%.2f %s", seconds,
               text_of(seconds < 1 ? u"datetime.second" : u"datetime.seconds"));
    return park(text);
} catch (...) {
    return fail_thrown();
}

void zQuickSort(void *base, uint64_t count, uint64_t size, QuickSortComp compare, void *user) {
    qsort_r(base, count, size, compare, user);
}
