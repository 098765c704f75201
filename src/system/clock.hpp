// What the clock tells, in nanoseconds (os::calls.now), and the records that are made of it.
#pragma once

#include "zev/base.h"

namespace zev {

inline constexpr int64_t kMillisecond = 1'000'000; // nanoseconds
inline constexpr int64_t kSecond = 1000 * kMillisecond;

constexpr Time time_of(int64_t nanoseconds) {
    return {nanoseconds / kSecond, nanoseconds % kSecond};
}
constexpr int64_t nanoseconds_of(const Time &time) {
    return time.seconds * kSecond + time.nanoseconds;
}

} // namespace zev
