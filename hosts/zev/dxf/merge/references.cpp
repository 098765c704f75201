// Codes of handles: 5 and 105 the record's own, 320 to 369, 390 to 399, 480 and 481 those of
// others, 1005 likewise in the data of applications. Within a list in braces, of 102, they name
// those that name the record back, which it can do without, but for the hard ones.
#include "dxf/merge/references.hpp"

#include "dxf/reader.hpp"
#include "host.hpp"

#include <algorithm>
#include <array>

namespace dxf::merging {

namespace {

constexpr int kHandle = 5, kDimstyleHandle = 105, kOwner = 330, kSubclass = 100, kExtended = 1000,
              kApplication = 1001, kExtendedHandle = 1005;

bool is_handle(int code) {
    return (code >= 320 && code <= 369) || (code >= 390 && code <= 399) || code == 480 ||
           code == 481 || code == kExtendedHandle;
}

// In a table of draw orders those by which it sorts as well.
bool is_handle_in(std::string_view type, int code) {
    return is_handle(code) || is_sort_handle(type, code);
}

// To what the record can't do without.
bool is_pointer(int code) { return (code >= 340 && code <= 349) || (code >= 390 && code <= 399); }
bool is_hard(int code) { return is_pointer(code) || (code >= 350 && code <= 369); }

bool is_one_of(std::string_view type, std::initializer_list<std::string_view> types) {
    return std::find(types.begin(), types.end(), type) != types.end();
}

// Follows the groups of a record and tells which is its own handle.
class OwnHandle {
  public:
    explicit OwnHandle(std::string_view type)
        : code_(type == "DIMSTYLE" ? kDimstyleHandle : kHandle) {}
    // The first one outside of lists and before the data of applications.
    bool is(const Group &group, bool is_in_list) {
        if (group.code >= kExtended) is_seen_ = true;
        if (is_seen_ || is_in_list || group.code != code_) return false;
        return is_seen_ = true;
    }

  private:
    int code_;
    bool is_seen_ = false;
};

bool is_dimension(std::string_view type) {
    return is_one_of(type, {"DIMENSION", "ARC_DIMENSION", "LARGE_RADIAL_DIMENSION"});
}

// Arrows, which dimension styles of old files name; newer ones have their handles.
bool is_arrow(std::string_view type, const Group &group) {
    return type == "DIMSTYLE" && group.code >= 5 && group.code <= 7 &&
           !trim_blanks(group.value).empty();
}

Table table_of_name(std::string_view type, int code) {
    switch (code) {
    case 8:
        return is_one_of(type, {"XRECORD", "LAYER_FILTER", "LAYER"}) ? Table::none : Table::layer;
    case 6:
        return is_one_of(type, {"XRECORD", "DIMSTYLE"}) ? Table::none : Table::linetype;
    case 7:
        return is_one_of(type, {"TEXT", "MTEXT", "ATTRIB", "ATTDEF", "SHAPE"}) ? Table::style
                                                                               : Table::none;
    case 3:
        return is_dimension(type) || is_one_of(type, {"LEADER", "TOLERANCE"})
                   ? Table::dimension_style
                   : Table::none;
    case 2:
        return is_dimension(type) || is_one_of(type, {"INSERT", "ACAD_TABLE"}) ? Table::block
                                                                               : Table::none;
    case kApplication:
        return Table::application;
    default:
        return Table::none;
    }
}

struct NamedType {
    std::string_view type;
    Table table;
};
constexpr NamedType kNamedTypes[] = {
    {"LAYER", Table::layer},        {"LTYPE", Table::linetype},
    {"STYLE", Table::style},        {"DIMSTYLE", Table::dimension_style},
    {"APPID", Table::application},  {"BLOCK", Table::block},
    {"BLOCK_RECORD", Table::block}, {"UCS", Table::coordinates},
    {"VIEW", Table::view},
};

} // namespace

std::string upper(std::string_view name) {
    std::string text(trim_blanks(name));
    bool is_ascii = true;
    for (char &c : text) {
        is_ascii &= static_cast<uint8_t>(c) < 0x80;
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    if (is_ascii) return text;
    std::u16string units = host::wide(text); // bytes of a code page stay as they are
    return host::narrow(units.c_str()) == text ? host::narrow(zStruprW(units.data())) : text;
}

Name name_of(std::string_view record) {
    const std::string_view type = record_type(record);
    const auto *named = std::ranges::find(kNamedTypes, type, &NamedType::type);
    if (named == std::end(kNamedTypes)) return {};
    ListState list;
    for (Group group; take_group(record, group) && group.code < kExtended;) {
        list.take(group);
        if (group.code != 2 || list.is_in_list()) continue;
        std::string text = upper(group.value);
        return text.empty() ? Name{} : Name{named->table, std::move(text)};
    }
    return {};
}

void visit_needs(std::string_view record, const std::function<void(const Reference &)> &visit) {
    const std::string_view type = record_type(record);
    ListState list;
    bool is_own_part = true; // up to the first subclass
    for (Group group; take_group(record, group);) {
        list.take(group);
        if (group.code == kSubclass || group.code >= kExtended) is_own_part = false;
        const bool is_owner = group.code == kOwner && is_own_part && !list.is_in_list();
        // What a hatch is bound by, and the block of a layout.
        const bool is_bound = is_one_of(type, {"HATCH", "LAYOUT"}) && group.code == kOwner &&
                              !is_own_part && !list.is_in_list();
        if (is_owner || is_bound || is_hard(group.code)) {
            const auto handle = parse_handle(group.value);
            if (is_owner) is_own_part = false;
            if (handle) visit({is_owner ? Need::owner : Need::object, *handle, {}});
        } else if (!list.is_in_list()) {
            const Table table =
                is_arrow(type, group) ? Table::block : table_of_name(type, group.code);
            if (table != Table::none) visit({Need::name, 0, {table, upper(group.value)}});
        }
    }
}

std::optional<uint64_t> owner_of(std::string_view record) {
    std::optional<uint64_t> owner;
    visit_needs(record, [&owner](const Reference &reference) {
        if (reference.need == Need::owner) owner = reference.handle;
    });
    return owner;
}

bool is_member(std::string_view type) { return is_one_of(type, {"VERTEX", "ATTRIB", "SEQEND"}); }

void visit_handles(std::string_view record, const std::function<void(uint64_t)> &visit) {
    const std::string_view type = record_type(record);
    OwnHandle is_own(type);
    ListState list;
    for (Group group; take_group(record, group);) {
        list.take(group);
        if (is_own.is(group, list.is_in_list()) || !is_handle_in(type, group.code)) continue;
        if (const auto handle = parse_handle(group.value)) visit(*handle);
    }
}

std::optional<std::string> with_handles(std::string_view record, const Handles &handles,
                                        uint64_t own) {
    std::string out;
    const std::string_view type = record_type(record);
    OwnHandle is_own(type);
    ListState list;
    std::string_view left = record;
    for (Group group; take_group(left, group);) {
        list.take(group);
        const bool is_its_own = is_own.is(group, list.is_in_list());
        const bool is_other = !is_its_own && is_handle_in(type, group.code);
        const auto handle = is_other ? parse_handle(group.value) : std::nullopt;
        const auto at = handle ? handles.find(*handle) : handles.end();
        if (is_its_own && own)
            out += with_value(group, handle_text(own));
        else if (at != handles.end())
            out += with_value(group, handle_text(at->second));
        else
            out += group.bytes;
    }
    out += left;
    if (out == record) return {};
    return out;
}

std::optional<std::string> with_names(std::string_view record, const Names &names) {
    const std::string_view type = record_type(record);
    const bool is_block = type == "BLOCK" || type == "BLOCK_RECORD";
    if (!is_block && table_of_name(type, 2) != Table::block) return {};
    std::string out;
    ListState list;
    std::string_view left = record;
    bool is_own_data = true;
    for (Group group; take_group(left, group);) {
        list.take(group);
        is_own_data &= group.code < kExtended;
        const bool is_name = group.code == 2 || (group.code == 3 && type == "BLOCK");
        const bool may_change = is_own_data && is_name && !list.is_in_list();
        const auto at = may_change ? names.find(upper(group.value)) : names.end();
        out += at != names.end() ? with_value(group, at->second) : std::string(group.bytes);
    }
    out += left;
    if (out == record) return {};
    return out;
}

bool same_but_handles(std::string_view a, std::string_view b) {
    if (record_type(a) != record_type(b)) return false;
    const auto counts = [](int code) {
        return is_pointer(code) || (!is_handle(code) && code != kHandle && code != kDimstyleHandle);
    };
    const auto next = [&counts](std::string_view &left, Group &group) {
        while (take_group(left, group))
            if (counts(group.code)) return true;
        return false;
    };
    for (Group left, right;;) {
        const bool more = next(a, left);
        if (more != next(b, right)) return false;
        if (!more) return a == b;
        if (left.code != right.code || trim_blanks(left.value) != trim_blanks(right.value))
            return false;
    }
}

} // namespace dxf::merging
