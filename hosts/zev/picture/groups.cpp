// Half of all bytes of a drawing go through here: nothing is copied.
#include "picture/groups.hpp"

#include "picture/scene.hpp"

#include <charconv>
#include <cmath>
#include <limits>

namespace picture {

namespace {

constexpr int kControl = 102, kEmbedded = 101, kExtended = 1000;

// A number may have a plus sign, which is none for the parser.
std::string_view digits_of(std::string_view value) {
    value = trimmed(value);
    if (value.starts_with('+')) value.remove_prefix(1);
    return value;
}

} // namespace

double number_of(std::string_view value) {
    const std::string_view digits = digits_of(value);
    double number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    const bool is_tiny =
        error == std::errc::result_out_of_range && digits.find("e-") != digits.npos;
    if (is_tiny) return 0;
    const bool is_whole = error == std::errc() && end == digits.data() + digits.size();
    return is_whole && std::abs(number) <= kFarthest ? number
                                                     : std::numeric_limits<double>::quiet_NaN();
}

int integer_of(std::string_view value, int otherwise) {
    const std::string_view digits = digits_of(value);
    int number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return error == std::errc() ? number : otherwise;
}

uint64_t handle_of(std::string_view value) {
    const std::string_view digits = trimmed(value);
    uint64_t number = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
    return error == std::errc() && end == digits.data() + digits.size() ? number : 0;
}

void Groups::read(std::string_view record) {
    groups_.clear();
    extended_.clear();
    bool in_list = false;
    for (dxf::RawGroup raw; dxf::take_group(record, raw);) {
        const Group group{raw.code, raw.value};
        if (group.code >= kExtended) {
            extended_.push_back(group);
        } else if (group.code == kEmbedded || !extended_.empty()) {
            break;
        } else if (group.code == kControl) {
            in_list = trimmed(group.value).starts_with('{');
        } else if (!in_list && group.code != 999) {
            groups_.push_back(group);
        }
    }
}

const Group *Groups::find(int code) const {
    for (const Group &group : groups_)
        if (group.code == code) return &group;
    return nullptr;
}

std::string_view Groups::kind() const { return name(0); }

double Groups::number(int code, double otherwise) const {
    const Group *group = find(code);
    return group ? number_of(group->value) : otherwise;
}

int Groups::integer(int code, int otherwise) const {
    const Group *group = find(code);
    return group ? integer_of(group->value, otherwise) : otherwise;
}

std::string_view Groups::name(int code) const { return trimmed(text(code)); }

std::string_view Groups::text(int code) const {
    const Group *group = find(code);
    return group ? group->value : std::string_view();
}

Vec Groups::vec(int code) const { return {number(code), number(code + 10), number(code + 20)}; }

} // namespace picture
