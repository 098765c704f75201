// Two records say the same if they have the same groups, where
//  - numbers are equal as such: 1.0, 1 and 1.00E+00; -0 and 0; and two reals that are no further
//    apart than what reckoning with doubles and printing 16 digits of them leaves, as an angle that
//    went through radians: 1e-12, of the number or, below 1, of one;
//  - handles are equal without zeros in front and in either case;
//  - words of the format are trimmed; other texts are equal byte for byte, blanks at their ends
//    too, since a designer sees those and the editors known keep them;
//  - groups that say nothing (dxf/defaults.hpp) and comments are left out;
//  - what all entities have, layer and colour and such, may stand in any subclass;
//  - within a subclass, order matters from the first code on that stands in it several times;
//  - lists of handles stand in any order, those of reactors in any order within, and those of a
//    block's references, which are found again from the drawing, not at all;
//  - the owner counts where both have one, and not at all where the record's place tells it: in
//    tables, at the bounds of blocks, of vertices and attributes;
//  - a moment in ISO 8601 at the end of a text in a DICTIONARYVAR or a BLOCK is a mark of saving.
// Records of XRECORD's subclass are data of applications, in which all order matters.
#include "dxf/normal.hpp"

#include "dxf/hash.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace dxf {

namespace {

constexpr int kRecord = 0, kText = 1, kOwner = 330, kSubclass = 100, kControl = 102, kComment = 999,
              kExtended = 1000, kVariable = 9;
constexpr double kTolerance = 1e-12;

// Places of the digits of a moment: 2021-05-14T12:30:59.
bool is_moment(std::string_view text) {
    constexpr std::string_view form = "dddd-dd-ddTdd:dd:dd";
    if (text.size() < form.size()) return false;
    for (size_t i = 0; i < form.size(); ++i) {
        const bool is_digit = text[i] >= '0' && text[i] <= '9';
        if (form[i] == 'd' ? !is_digit : text[i] != form[i]) return false;
    }
    return text.find_first_not_of("0123456789.:+-Z", form.size()) == text.npos;
}

std::string_view without_moment(std::string_view text) {
    for (size_t at = text.find('-'); at != text.npos; at = text.find('-', at + 1))
        if (at >= 4 && is_moment(text.substr(at - 4))) return text.substr(0, at - 4);
    return text;
}

bool is_near(double a, double b) {
    if (a == b) return true;
    return std::abs(a - b) <= kTolerance * std::max({1.0, std::abs(a), std::abs(b)});
}

bool is_same(const NormalGroup &a, const NormalGroup &b) {
    if (a.code != b.code || a.type != b.type) return false;
    switch (a.type) {
    case ValueType::real:
        return a.is_exact ? a.real == b.real : is_near(a.real, b.real);
    case ValueType::integer:
        return a.integer == b.integer;
    case ValueType::handle:
        return a.handle == b.handle;
    default:
        return a.text == b.text;
    }
}

bool is_same(const std::vector<NormalGroup> &a, const std::vector<NormalGroup> &b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const NormalGroup &x, const NormalGroup &y) { return is_same(x, y); });
}

// The value by its code's type; as a trimmed text where it is none of that.
NormalGroup normal(const RawGroup &group, ValueType type) {
    NormalGroup out{group.code, ValueType::text, false, {}, trim_blanks(group.value)};
    if (type == ValueType::real) {
        const auto real = real_in(group.value);
        if (real && std::isfinite(*real)) out.type = type, out.real = *real + 0.0;
    } else if (type == ValueType::integer) {
        if (const auto integer = integer_in(group.value)) out.type = type, out.integer = *integer;
    } else if (type == ValueType::handle) {
        if (const auto handle = handle_in(group.value)) out.type = type, out.handle = *handle;
    } else {
        out.type = type;
        if (type == ValueType::text) out.text = group.value;
    }
    if (out.type == ValueType::real || out.type == ValueType::integer ||
        out.type == ValueType::handle)
        out.text = {};
    return out;
}

// A record's own handle and another group of its code, as the name of a block in old records.
ValueType type_of(const RawGroup &group, bool is_own) {
    const bool is_other = !is_own && (group.code == 5 || group.code == 105);
    return is_other ? ValueType::text : value_type(group.code);
}

std::optional<double> number_in(const NormalGroup &group) {
    if (group.type == ValueType::real) return group.real;
    if (group.type == ValueType::integer) return static_cast<double>(group.integer);
    return {};
}

// Only small records have subclasses and none of AcDb's.
Family family_of_record(std::string_view record, std::string_view kind) {
    const bool is_entity = record.find("AcDbEntity") != record.npos;
    bool has_subclasses = is_entity || record.find("AcDb") != record.npos;
    RawGroup group;
    while (!has_subclasses && take_group(record, group)) has_subclasses = group.code == kSubclass;
    return family_of(kind, has_subclasses, is_entity);
}

void add_masked(Hash &hash, const NormalGroup &group) {
    hash.add(static_cast<uint64_t>(group.code));
    if (group.type == ValueType::real)
        hash.add(group.real);
    else if (group.type == ValueType::integer)
        hash.add(static_cast<uint64_t>(group.integer));
    else if (group.type != ValueType::handle)
        hash.add(group.text);
}

// Layer, linetype, colour, scale of linetypes, visibility, space, weight, transparency.
bool is_common(int code) {
    constexpr int codes[] = {6, 8, 48, 60, 62, 67, 370, 420, 430, 440};
    return std::find(std::begin(codes), std::end(codes), code) != std::end(codes);
}

bool has_lower_code(const NormalGroup &a, const NormalGroup &b) { return a.code < b.code; }

bool is_moment_of_saving(std::string_view kind, int code) {
    return (kind == "DICTIONARYVAR" && code == kText) || (kind == "BLOCK" && code == kExtended);
}

} // namespace

void NormalRecord::read(std::string_view record, const HandleMap *map, bool has_own) {
    common_.clear();
    groups_.clear();
    list_groups_.clear();
    lists_.clear();
    owner_.reset();
    kind_ = {};
    widths_ = 0;
    has_axis_ = has_owner_ = false;
    is_in_subclass_ = is_raw_ = false;
    OwnHandle own;
    RawGroup group;
    bool is_first = true;
    std::string_view left = record;
    while (take_group(left, group)) {
        const bool is_own = own.is_at(group) && has_own;
        if (group.code == kComment) continue;
        if (is_first) {
            kind_ = trim_blanks(group.value);
            family_ = family_of_record(record, kind_);
            is_first = false;
        }
        const bool opens = group.code == kControl && trim_blanks(group.value).starts_with('{');
        if (opens && !is_raw_)
            take_list(group, left, map, own);
        else
            take(group, is_own, map);
    }
    rest_ = trim_blanks(left);
    std::stable_sort(common_.begin(), common_.end(), has_lower_code);
    std::stable_sort(lists_.begin(), lists_.end(),
                     [](const List &a, const List &b) { return a.name < b.name; });
    if (!is_raw_) sort_chunks();
}

void NormalRecord::take_list(const RawGroup &head, std::string_view &left, const HandleMap *map,
                             OwnHandle &own) {
    const std::string_view name = trim_blanks(head.value);
    const size_t begin = list_groups_.size();
    RawGroup group;
    while (take_group(left, group)) {
        own.is_at(group);
        if (group.code == kControl) break;
        if (group.code == kComment) continue;
        NormalGroup out = normal(group, type_of(group, false));
        if (out.type == ValueType::handle && map) out.handle = (*map)(out.handle);
        list_groups_.push_back(out);
    }
    if (name == "{BLKREFS") return list_groups_.resize(begin);
    if (name == "{ACAD_REACTORS")
        std::sort(list_groups_.begin() + static_cast<std::ptrdiff_t>(begin), list_groups_.end(),
                  [](const NormalGroup &a, const NormalGroup &b) {
                      return a.code != b.code ? a.code < b.code : a.handle < b.handle;
                  });
    lists_.push_back({name, begin, list_groups_.size()});
}

// In front of the first subclass, where no other handle has its code.
bool NormalRecord::is_owner(const RawGroup &group) const {
    return group.code == kOwner && !is_in_subclass_;
}

void NormalRecord::take(const RawGroup &group, bool is_own, const HandleMap *map) {
    const bool sorts = !is_own && is_sort_handle(kind_, group.code);
    NormalGroup out = normal(group, sorts ? ValueType::handle : type_of(group, is_own));
    out.is_exact = is_raw_ || group.code >= kExtended;
    if (kind_ == "VERTEX" && (group.code == 40 || group.code == 41)) widths_ |= group.code - 39u;
    if (out.type == ValueType::handle && map) out.handle = (*map)(out.handle);
    if (is_owner(group) && !has_owner_) { // the first one, be it of none
        has_owner_ = true;
        if (out.type == ValueType::handle && out.handle) owner_ = out.handle;
        return;
    }
    if (group.code == kSubclass) {
        is_in_subclass_ = true;
        is_raw_ = is_raw_ || out.text == "AcDbXrecord";
    } else if (out.type == ValueType::text && is_moment_of_saving(kind_, group.code)) {
        out.text = without_moment(out.text);
    }
    // Of an angle and a direction in a text of lines the one that comes last counts.
    has_axis_ = has_axis_ || (kind_ == "MTEXT" && group.code == 11);
    const bool counts = has_axis_ && group.code == 50;
    if (!is_raw_ && !counts && group.code < kExtended &&
        says_nothing(family_, kind_, group.code, out.text, number_in(out)))
        return;
    (family_ == Family::entity && is_common(group.code) ? common_ : groups_).push_back(out);
}

void NormalRecord::sort_chunks() {
    size_t begin = 0;
    for (size_t i = 1; i < groups_.size() && groups_[i].code < kExtended; ++i)
        if (groups_[i].code == kSubclass) sort_chunk(begin, i), begin = i;
    size_t end = begin;
    while (end < groups_.size() && groups_[end].code < kExtended) ++end;
    sort_chunk(begin, end);
}

// Its first group is the record's kind or the subclass.
void NormalRecord::sort_chunk(size_t begin, size_t end) {
    if (begin + 2 >= end) return;
    constexpr size_t kCodes = kExtended;
    std::array<uint8_t, kCodes> seen{};
    const auto code = [&](size_t i) {
        return static_cast<size_t>(groups_[i].code) < kCodes ? static_cast<size_t>(groups_[i].code)
                                                             : kCodes - 1;
    };
    for (size_t i = begin + 1; i < end; ++i) seen[code(i)] += seen[code(i)] < 2;
    size_t last = begin + 1;
    while (last < end && seen[code(last)] == 1) ++last;
    std::sort(groups_.begin() + static_cast<std::ptrdiff_t>(begin + 1),
              groups_.begin() + static_cast<std::ptrdiff_t>(last), has_lower_code);
}

uint64_t NormalRecord::content_hash() const {
    Hash hash;
    for (const NormalGroup &group : common_) add_masked(hash, group);
    for (const NormalGroup &group : groups_) add_masked(hash, group);
    hash.add(rest_);
    return hash.value();
}

bool NormalRecord::operator==(const NormalRecord &other) const {
    const bool follows = family_ == Family::block || family_ == Family::table ||
                         family_ == Family::symbol || kind_ == "VERTEX" || kind_ == "ATTRIB" ||
                         kind_ == "SEQEND";
    if (!follows && owner_ && other.owner_ && *owner_ != *other.owner_) return false;
    if (!is_same(common_, other.common_) || !is_same(groups_, other.groups_)) return false;
    if (rest_ != other.rest_) return false;
    const auto same = [&](const List &a, const List &b) {
        const auto at = [](const std::vector<NormalGroup> &groups, size_t place) {
            return groups.begin() + static_cast<std::ptrdiff_t>(place);
        };
        return a.name == b.name &&
               std::equal(at(list_groups_, a.begin), at(list_groups_, a.end),
                          at(other.list_groups_, b.begin), at(other.list_groups_, b.end),
                          [](const NormalGroup &x, const NormalGroup &y) { return is_same(x, y); });
    };
    return std::equal(lists_.begin(), lists_.end(), other.lists_.begin(), other.lists_.end(), same);
}

size_t NormalRecord::shared_groups(const NormalRecord &other) const {
    const auto shared = [](const std::vector<NormalGroup> &a, const std::vector<NormalGroup> &b) {
        size_t count = 0, j = 0;
        for (const NormalGroup &group : a) {
            while (j < b.size() && b[j].code < group.code) ++j;
            if (j == b.size()) break;
            if (b[j].code != group.code) continue;
            count += group.type != ValueType::handle && is_same(group, b[j++]);
        }
        return count;
    };
    return shared(common_, other.common_) + shared(groups_, other.groups_);
}

bool is_same_in_normal_form(std::string_view a, std::string_view b) {
    return NormalRecord(a) == NormalRecord(b);
}

bool is_same_literal(std::string_view a, std::string_view b) {
    const auto next = [](std::string_view &left, RawGroup &group) {
        while (take_group(left, group))
            if (group.code != kComment) return true;
        return false;
    };
    RawGroup x, y;
    for (;;) {
        const bool more = next(a, x);
        if (more != next(b, y)) return false;
        if (!more) return a == b;
        if (!is_same(normal(x, value_type(x.code)), normal(y, value_type(y.code)))) return false;
    }
}

namespace {

struct Variable {
    std::string_view name;
    std::vector<NormalGroup> values;
};

constexpr std::array<std::string_view, 10> kMarks = {
    "$TDCREATE",   "$TDUCREATE",   "$TDUPDATE",        "$TDUUPDATE",    "$TDINDWG",
    "$TDUSRTIMER", "$VERSIONGUID", "$FINGERPRINTGUID", "$ACADMAINTVER", "$LASTSAVEDBY"};

std::vector<Variable> variables_of(std::string_view header) {
    std::vector<Variable> out;
    RawGroup group;
    while (take_group(header, group)) {
        if (group.code == kComment) continue;
        if (group.code == kVariable)
            out.push_back({trim_blanks(group.value), {}});
        else if (!out.empty())
            out.back().values.push_back(
                normal(group, group.code == 5 ? ValueType::handle : value_type(group.code)));
    }
    std::erase_if(out, [](const Variable &variable) {
        return std::find(kMarks.begin(), kMarks.end(), variable.name) != kMarks.end();
    });
    std::stable_sort(out.begin(), out.end(),
                     [](const Variable &a, const Variable &b) { return a.name < b.name; });
    return out;
}

} // namespace

bool is_same_header(std::string_view a, std::string_view b, uint64_t highest) {
    const std::vector<Variable> of_a = variables_of(a), of_b = variables_of(b);
    const auto same = [&](const Variable &x, const Variable &y) {
        if (x.name != y.name) return false;
        if (x.name == "$HANDSEED" && x.values.size() == 1 &&
            x.values[0].type == ValueType::handle && x.values[0].handle > highest)
            return true;
        return is_same(x.values, y.values);
    };
    return std::equal(of_a.begin(), of_a.end(), of_b.begin(), of_b.end(), same);
}

bool is_drawn(std::string_view record) {
    RawGroup group;
    std::string_view left = record;
    if (!take_group(left, group) || group.code != kRecord) return false;
    return family_of_record(record, trim_blanks(group.value)) == Family::entity ||
           record.find("AcDbEntity") != record.npos; // an application's own
}

} // namespace dxf
