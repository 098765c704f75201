// When: times as a user writes and reads them, in local time.
#pragma once

#include <cstdint>
#include <string>

namespace host {

constexpr int64_t kSecondsPerDay = 86400;

// The two ends of a day that was named without a time of day.
enum class DayEnd { first, last };

// Seconds since 1970 of "2024-05-17", "2024-05-17 09:30" with seconds and an offset if need be, a T
// in place of the blank, "today", "yesterday", "3 days ago" (minutes to years). Throws for others.
int64_t parse_when(const std::string &text, DayEnd end);

// As in 2024-05-17T09:30:00+02:00, and as in 2024-05-17 09:30.
std::string iso_time(int64_t seconds);
std::string short_time(int64_t seconds);

} // namespace host
