// Code ranges are those of the DXF reference.
#include "dxf/groups.hpp"

#include <bit>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace dxf {

namespace {

constexpr int kRecord = 0, kHandle = 5, kSubclass = 100, kControl = 102, kDimstyleHandle = 105,
              kExtended = 1000;

template <class T> std::optional<T> parse(std::string_view text, auto... base) {
    std::string_view digits = trim_blanks(text);
    if (digits.starts_with('+')) digits.remove_prefix(1);
    T value{};
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, base...);
    if (error != std::errc() || end != digits.data() + digits.size()) return {};
    return value;
}

constexpr bool is_between(int code, int first, int last) { return code >= first && code <= last; }

// The place of a line end among eight bytes, or 8. In x a byte is 0 where a line ends; taking 1
// from each sets the top bit of the first such byte, and of no byte in front of it.
size_t line_end_in(const char *bytes) {
    constexpr uint64_t kOnes = ~uint64_t{0} / 255;
    uint64_t word;
    memcpy(&word, bytes, sizeof word);
    if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
    const uint64_t x = word ^ kOnes * '\n', ends = (x - kOnes) & ~x & kOnes << 7;
    return static_cast<size_t>(std::countr_zero(ends)) / 8;
}

// Behind the line at `from`; past the end where nothing ends it. Most lines are so short that a
// call of memchr would take longer than its work.
size_t end_of_line(std::string_view text, size_t from) {
    for (int i = 0; i < 4 && text.size() - from >= 8; ++i, from += 8)
        if (const size_t place = line_end_in(text.data() + from); place < 8)
            return from + place + 1;
    const size_t end = text.find('\n', from);
    return end == text.npos ? text.size() : end + 1;
}

// Nearly every code is blanks, a few digits and a line end. Where its value begins, or 0.
size_t plain_code(std::string_view text, int &code) {
    size_t at = 0;
    while (at < text.size() && text[at] == ' ') ++at;
    const size_t digits = at;
    int number = 0;
    for (; at < text.size() && at - digits < 5 && text[at] >= '0' && text[at] <= '9'; ++at)
        number = number * 10 + (text[at] - '0');
    if (at == digits) return 0;
    if (at < text.size() && text[at] == '\r') ++at;
    if (at >= text.size() || text[at] != '\n') return 0;
    code = number;
    return at + 1;
}

} // namespace

std::string_view trim_blanks(std::string_view text) {
    const auto is_blank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    return text;
}

bool take_group(std::string_view &left, RawGroup &group) {
    int plain = 0;
    size_t middle = plain_code(left, plain);
    std::optional<int> code = plain;
    if (!middle) {
        middle = end_of_line(left, 0);
        code = parse<int>(left.substr(0, middle - 1));
    }
    if (middle >= left.size() || !code) return false;
    const size_t end = end_of_line(left, middle);
    group.code = *code;
    group.bytes = left.substr(0, end);
    group.value = left.substr(middle, end - middle);
    if (group.value.ends_with('\n')) group.value.remove_suffix(1);
    if (group.value.ends_with('\r')) group.value.remove_suffix(1);
    left.remove_prefix(end);
    return true;
}

std::string with_value(const RawGroup &group, std::string_view value) {
    const std::string_view former = trim_blanks(group.value);
    const std::string_view at = former.empty() ? group.value : former;
    const auto place = static_cast<size_t>(at.data() - group.bytes.data());
    std::string bytes(group.bytes.substr(0, place));
    bytes += value;
    return bytes += group.bytes.substr(place + at.size());
}

ValueType value_type(int code) {
    if (code == kRecord || code == kSubclass || code == kControl) return ValueType::word;
    if (code == kHandle || code == kDimstyleHandle || is_between(code, 320, 369) ||
        is_between(code, 390, 399) || code == 480 || code == 481 || code == 1005)
        return ValueType::handle;
    if (is_between(code, 10, 59) || is_between(code, 110, 149) || is_between(code, 210, 239) ||
        is_between(code, 460, 469) || is_between(code, 1010, 1059))
        return ValueType::real;
    if (is_between(code, 60, 99) || is_between(code, 160, 179) || is_between(code, 270, 299) ||
        is_between(code, 370, 389) || is_between(code, 400, 409) || is_between(code, 420, 429) ||
        is_between(code, 440, 459) || is_between(code, 1060, 1071))
        return ValueType::integer;
    return ValueType::text;
}

std::optional<double> real_in(std::string_view value) { return parse<double>(value); }
std::optional<int64_t> integer_in(std::string_view value) { return parse<int64_t>(value); }
std::optional<uint64_t> handle_in(std::string_view value) { return parse<uint64_t>(value, 16); }

std::string handle_text(uint64_t handle) {
    char digits[20];
    snprintf(digits, sizeof digits, "%" PRIX64, handle);
    return digits;
}

bool OwnHandle::is_at(const RawGroup &group) {
    if (is_first_ && group.code == kRecord && trim_blanks(group.value) == "DIMSTYLE")
        code_ = kDimstyleHandle;
    is_first_ = false;
    if (group.code >= kExtended) is_found_ = true;
    if (group.code == kControl) is_in_list_ = trim_blanks(group.value).starts_with('{');
    if (is_found_ || is_in_list_ || group.code != code_) return false;
    return is_found_ = true;
}

// Of another object, in a record of that kind.
static bool is_other_handle(std::string_view kind, int code) {
    if (code == kHandle || code == kDimstyleHandle) return is_sort_handle(kind, code);
    return value_type(code) == ValueType::handle;
}

bool is_same_translated(std::string_view a, std::string_view b, const HandleMap &map,
                        bool has_own) {
    OwnHandle own;
    RawGroup x, y;
    std::string_view kind;
    for (;;) {
        const bool more = take_group(a, x);
        if (more != take_group(b, y)) return false;
        if (!more) return a == b;
        const bool is_own = own.is_at(y) && has_own;
        if (x.code != y.code) return false;
        if (kind.empty()) kind = trim_blanks(y.value);
        const bool is_other = is_other_handle(kind, y.code);
        if (!is_own && !is_other) {
            if (x.value != y.value) return false;
            continue;
        }
        const auto from = handle_in(x.value), to = handle_in(y.value);
        if (from && to ? *from != map(*to) : x.value != y.value) return false;
    }
}

std::string translated(std::string_view record, const HandleMap &map, bool has_own) {
    std::string out;
    out.reserve(record.size() + 16);
    OwnHandle own;
    RawGroup group;
    std::string_view left = record, kind;
    while (take_group(left, group)) {
        const bool is_own = own.is_at(group) && has_own;
        if (kind.empty()) kind = trim_blanks(group.value);
        const bool is_other = is_other_handle(kind, group.code);
        const auto handle = is_own || is_other ? handle_in(group.value) : std::nullopt;
        if (handle && map(*handle) != *handle)
            out += with_value(group, handle_text(map(*handle)));
        else
            out += group.bytes;
    }
    return out += left;
}

} // namespace dxf
