// What the clock tells, in nanoseconds (os::calls.now), and the records that are made of it.
#pragma once

#include "zev/base.h"

#include <ctime>

namespace zev {

inline constexpr int64_t kMillisecond = 1'000'000; // nanoseconds
inline constexpr int64_t kSecond = 1000 * kMillisecond;

constexpr Time time_of(int64_t nanoseconds) {
    return {nanoseconds / kSecond, nanoseconds % kSecond};
}
constexpr int64_t nanoseconds_of(const Time &time) {
    return time.seconds * kSecond + time.nanoseconds;
}
// Times of files.
constexpr bool is_before(const timespec &a, const timespec &b) {
    return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_nsec < b.tv_nsec;
}
constexpr bool is_equal(const timespec &a, const timespec &b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}
// Whether what has a file's time can be known by it at `now`, nanoseconds of the wall clock: what
// changed a moment ago may change again without another time.
constexpr bool has_settled(const timespec &time, int64_t now) {
    return now / kSecond > time.tv_sec + 1;
}

} // namespace zev
