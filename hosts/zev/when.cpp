// Times are local unless they say otherwise; a day has its two ends, for "since" and "until".
#include "when.hpp"

#include "host.hpp"

#include <charconv>
#include <ctime>

namespace host {

namespace {

// Takes numbers and single characters off the front of a text.
class Scanner {
  public:
    explicit Scanner(std::string_view text) : left_(text) {}
    bool at_end() const { return left_.empty(); }

    // Exactly so many digits; with 0, as many as there are.
    bool number(int &value, size_t digits) {
        const size_t count = std::min(left_.find_first_not_of("0123456789"), left_.size());
        const size_t taken = digits ? digits : count;
        if (!taken || count < taken) return false;
        const char *end = left_.data() + taken;
        if (std::from_chars(left_.data(), end, value).ptr != end) return false;
        left_.remove_prefix(taken);
        return true;
    }
    bool any_of(std::string_view characters, char *found = nullptr) {
        if (left_.empty() || characters.find(left_.front()) == characters.npos) return false;
        if (found) *found = left_.front();
        left_.remove_prefix(1);
        return true;
    }
    std::string_view word() {
        left_.remove_prefix(std::min(left_.find_first_not_of(' '), left_.size()));
        std::string_view word = left_.substr(0, left_.find(' '));
        left_.remove_prefix(word.size());
        return word;
    }

  private:
    std::string_view left_;
};

tm local(time_t seconds) {
    tm fields{};
    localtime_r(&seconds, &fields);
    return fields;
}

int64_t seconds_of(tm fields) {
    fields.tm_isdst = -1; // as is in force then
    return mktime(&fields);
}

int64_t day(tm fields, DayEnd end) {
    const bool last = end == DayEnd::last;
    fields.tm_hour = last ? 23 : 0;
    fields.tm_min = fields.tm_sec = last ? 59 : 0;
    return seconds_of(fields);
}

bool is_date(const tm &wanted) {
    tm fields = wanted;
    fields.tm_hour = 12, fields.tm_isdst = -1;
    mktime(&fields); // moves the 31st of a short month
    return fields.tm_mday == wanted.tm_mday && fields.tm_mon == wanted.tm_mon;
}

// Behind the time of day: Z, or an offset from UTC such as +02:00.
bool offset(Scanner &in, int &seconds) {
    char sign = 0;
    int hours = 0, minutes = 0;
    seconds = 0;
    if (in.any_of("Z")) return in.at_end();
    if (!in.any_of("+-", &sign) || !in.number(hours, 2)) return false;
    in.any_of(":");
    if (!in.number(minutes, 2) || hours > 14 || minutes > 59) return false;
    seconds = (hours * 60 + minutes) * (sign == '-' ? -60 : 60);
    return in.at_end();
}

bool parse_date(const std::string &text, DayEnd end, int64_t &result) {
    Scanner in(text);
    tm fields{};
    if (!in.number(fields.tm_year, 4) || !in.any_of("-") || !in.number(fields.tm_mon, 2) ||
        !in.any_of("-") || !in.number(fields.tm_mday, 2))
        return false;
    fields.tm_year -= 1900, fields.tm_mon -= 1;
    if (!is_date(fields)) return false;
    if (in.at_end()) return result = day(fields, end), true;
    if (!in.any_of("T ") || !in.number(fields.tm_hour, 2) || !in.any_of(":") ||
        !in.number(fields.tm_min, 2))
        return false;
    if (in.any_of(":") && !in.number(fields.tm_sec, 2)) return false;
    if (fields.tm_hour > 23 || fields.tm_min > 59 || fields.tm_sec > 60) return false;
    if (in.at_end()) return result = seconds_of(fields), true;
    int east = 0;
    if (!offset(in, east)) return false;
    return result = timegm(&fields) - east, true;
}

// "2 weeks ago": the same time of day then, but for hours and minutes, which are a span.
bool parse_ago(const std::string &text, int64_t &result) {
    constexpr struct {
        std::string_view unit;
        int tm::*field;
        int count;
    } kUnits[] = {{"day", &tm::tm_mday, 1},
                  {"week", &tm::tm_mday, 7},
                  {"month", &tm::tm_mon, 1},
                  {"year", &tm::tm_year, 1}};
    constexpr int kMax = 100000;
    Scanner in(text);
    int count = 0;
    if (!in.number(count, 0) || count > kMax) return false;
    std::string_view unit = in.word();
    if (unit.ends_with('s')) unit.remove_suffix(1);
    if (in.word() != "ago" || !in.at_end()) return false;
    const time_t now = time(nullptr);
    if (unit == "hour" || unit == "minute")
        return result = now - int64_t{count} * (unit == "hour" ? 3600 : 60), true;
    tm fields = local(now);
    for (const auto &known : kUnits) {
        if (known.unit != unit) continue;
        fields.*known.field -= count * known.count;
        return result = seconds_of(fields), true;
    }
    return false;
}

std::string formatted(int64_t seconds, const char *format) {
    const tm fields = local(static_cast<time_t>(seconds));
    char text[40];
    return std::string(text, strftime(text, sizeof text, format, &fields));
}

} // namespace

int64_t parse_when(const std::string &text, DayEnd end) {
    int64_t result = 0;
    if (text == "today" || text == "yesterday") {
        tm fields = local(time(nullptr));
        if (text == "yesterday") --fields.tm_mday;
        return day(fields, end);
    }
    if (parse_date(text, end, result) || parse_ago(text, result)) return result;
    throw Failed(kInvalid, say("\"%s\" is no time; write 2024-05-17, \"2024-05-17 09:30\", today, "
                               "yesterday or \"3 days ago\"",
                               text));
}

std::string iso_time(int64_t seconds) {
    std::string stamp = formatted(seconds, "%Y-%m-%dT%H:%M:%S%z");
    return stamp.size() > 2 ? stamp.insert(stamp.size() - 2, ":") : std::to_string(seconds);
}

std::string short_time(int64_t seconds) { return formatted(seconds, "%Y-%m-%d %H:%M"); }

} // namespace host
