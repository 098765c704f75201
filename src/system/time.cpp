// Time: sums that wrap instead of trapping, since times come from files; the clock in steps of 100
// nanoseconds; wall clock readings kept as if they were UTC.
#include "zev/time.h"

#include "common/failure.hpp"
#include "common/utf.hpp"
#include "system/clock.hpp"
#include "system/os.hpp"

#include <string>

using namespace zev;

namespace {

constexpr int64_t kTick = 100; // what the clock tells, in nanoseconds

// Sums that wrap around, for times from files.
int64_t plus(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
int64_t minus(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

// Whole seconds leave the nanoseconds until these are within one second, either way; exactly one
// second stays.
void normalise(Time *time) {
    int64_t whole = 0;
    if (time->nanoseconds > kSecond) whole = (time->nanoseconds - 1) / kSecond;
    if (time->nanoseconds < -kSecond) whole = (time->nanoseconds + 1) / kSecond;
    time->seconds = plus(time->seconds, whole);
    time->nanoseconds -= whole * kSecond;
}

Time *shift(Time *out, const Time *time, int64_t seconds) {
    if (!out || !time) return fail_args();
    return zTimeMake(out, plus(time->seconds, seconds), time->nanoseconds);
}

bool format(zwchar *out, uint64_t size, const zwchar *text, int64_t seconds, bool local) try {
    if (!out || !size || !text) return fail_args();
    const std::u16string made = to_wide(os::format_time(to_utf8(text).c_str(), seconds, local));
    if (made.empty() || made.size() >= size) return false;
    out[made.copy(out, made.size())] = 0;
    return true;
} catch (...) {
    return fail_thrown();
}

} // namespace

Time *zTimeZero(Time *out) { return zTimeMake(out, 0, 0); }

Time *zTimeMake(Time *out, int64_t seconds, int64_t nanoseconds) {
    if (!out) return fail_args();
    *out = {seconds, nanoseconds};
    return out;
}

Time *zTimeGlobal(Time *out) {
    const Time now = time_of(os::calls.now() / kTick * kTick);
    return zTimeMake(out, now.seconds, now.nanoseconds);
}

Time *zTimeLocal(Time *out) {
    Time now;
    return shift(out, zTimeGlobal(&now), -zTimeZone());
}

int64_t zTimeZone() { return os::seconds_west(); }
Time *zTimeGlobalize(Time *out, const Time *local) { return shift(out, local, zTimeZone()); }
Time *zTimeLocalize(Time *out, const Time *global) { return shift(out, global, -zTimeZone()); }

bool zTimeIsZero(const Time *time) {
    if (!time) return fail_args();
    return time->seconds == 0 && time->nanoseconds == 0;
}

bool zTimeIsEqual(const Time *a, const Time *b) {
    if (!a || !b) return fail_args();
    return a->seconds == b->seconds && a->nanoseconds == b->nanoseconds;
}

double zTimeDiff(const Time *a, const Time *b) {
    if (!a || !b) return fail_args(), 0;
    return static_cast<double>(minus(a->seconds, b->seconds)) +
           static_cast<double>(minus(a->nanoseconds, b->nanoseconds)) / kSecond;
}

Time *zTimeNormal(Time *out, Time *time) {
    if (!out || !time) return fail_args();
    normalise(time);
    *out = *time;
    return out;
}

Time *zTimeAdd(Time *out, const Time *a, const Time *b) {
    if (!out || !a || !b) return fail_args();
    Time sum = {plus(a->seconds, b->seconds), plus(a->nanoseconds, b->nanoseconds)};
    return zTimeNormal(out, &sum);
}

Time *zTimeSub(Time *out, const Time *a, const Time *b) {
    if (!out || !a || !b) return fail_args();
    Time difference = {minus(a->seconds, b->seconds), minus(a->nanoseconds, b->nanoseconds)};
    return zTimeNormal(out, &difference);
}

bool zTimeInc(Time *time, const Time *delta) {
    if (!time || !delta) return fail_args();
    return zTimeAdd(time, time, delta) != nullptr;
}

bool zTimeDec(Time *time, const Time *delta) {
    if (!time || !delta) return fail_args();
    return zTimeSub(time, time, delta) != nullptr;
}

bool zTimeFormatGlobal(zwchar *out, uint64_t size, const zwchar *text, int64_t seconds) {
    return format(out, size, text, seconds, false);
}

bool zTimeFormatLocal(zwchar *out, uint64_t size, const zwchar *text, int64_t seconds) {
    return format(out, size, text, seconds, true);
}

bool zTimeParseGlobal(Time *out, const zwchar *text, const zwchar *format) try {
    if (!out || !text || !format) return fail_args();
    int64_t seconds;
    if (os::parse_time(to_utf8(text), to_utf8(format).c_str(), &seconds))
        return zTimeMake(out, seconds, 0) != nullptr;
    raise_args();
    return false;
} catch (...) {
    return fail_thrown();
}

// Read with the classic names too: a time that was written must be read again elsewhere.
bool zTimeParseLocal(Time *out, const zwchar *text, const zwchar *format) {
    return zTimeParseGlobal(out, text, format);
}
