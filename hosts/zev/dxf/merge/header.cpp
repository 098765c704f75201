// A variable is its name, a group 9, and the groups up to the next name. What stands before the
// first counts as one without a name.
#include "dxf/merge/header.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace dxf::merging {

namespace {

constexpr int kVariable = 9;

// What every save writes anew, and tells of the drawing nothing.
constexpr std::string_view kStamps[] = {
    "$TDUPDATE",        "$TDUUPDATE",   "$TDINDWG",          "$TDUSRTIMER",   "$VERSIONGUID",
    "$FINGERPRINTGUID", "$LASTSAVEDBY", "$REQUIREDVERSIONS", "$ACADMAINTVER", "$DWGNAME"};

NamedParts variables(std::string_view header) {
    NamedParts parts;
    std::string_view left = header, begin = header;
    std::string name;
    const auto cut = [&](std::string_view rest) {
        if (rest.size() == begin.size()) return;
        parts.push_back({{name, 0}, begin.substr(0, begin.size() - rest.size())});
        begin = rest;
    };
    for (Group group; take_group(left, group);) {
        if (group.code != kVariable) continue;
        const std::string_view here(group.bytes.data(), group.bytes.size() + left.size());
        cut(here);
        name = trim_blanks(group.value);
    }
    cut({});
    number_names(parts);
    return parts;
}

std::optional<double> number(std::string_view text) {
    const std::string_view digits = trim_blanks(text);
    double value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error != std::errc() || end != digits.data() + digits.size() || !std::isfinite(value))
        return {};
    return value;
}

// The first group behind a variable's name.
std::optional<Group> variable_value(std::string_view header, std::string_view name) {
    bool is_here = false;
    for (Group group; take_group(header, group);) {
        if (is_here) return group;
        is_here = group.code == kVariable && trim_blanks(group.value) == name;
    }
    return {};
}

// The corner of a box that holds both: the lower, or higher, of each coordinate.
std::string united_corner(std::string_view ours, std::string_view theirs, bool is_lower) {
    std::string out;
    for (Group a, b; take_group(ours, a);) {
        if (!take_group(theirs, b) || a.code != b.code) b = a;
        const auto x = number(a.value), y = number(b.value);
        const bool takes_theirs = x && y && (is_lower ? *y < *x : *y > *x);
        out += takes_theirs ? with_value(a, trim_blanks(b.value)) : std::string(a.bytes);
    }
    return out;
}

class HeaderMerge {
  public:
    HeaderMerge(Side newer, std::optional<Side> others) : newer_(newer), others_(others) {}

    std::optional<std::string> resolve(const std::string &name, Bytes base, Bytes ours,
                                       Bytes theirs) {
        if (name == "$HANDSEED" && ours && theirs) return std::string(larger_seed(*ours, *theirs));
        if ((name == "$EXTMIN" || name == "$EXTMAX") && ours && theirs)
            return united_corner(*ours, *theirs, name == "$EXTMIN");
        const bool is_stamp = std::ranges::find(kStamps, name) != std::end(kStamps);
        const auto side = is_stamp ? std::optional(newer_) : others_;
        if (!side) conflict(name, base, ours, theirs);
        const Bytes taken = side == Side::theirs ? theirs : ours;
        return taken ? std::optional<std::string>(*taken) : std::nullopt;
    }

    std::vector<MergeConflict> conflicts;

  private:
    static std::string_view larger_seed(std::string_view ours, std::string_view theirs) {
        return handle_seed(theirs) > handle_seed(ours) ? theirs : ours;
    }

    void conflict(const std::string &name, Bytes base, Bytes ours, Bytes theirs) {
        MergeConflict conflict;
        conflict.what = MergeConflict::variable;
        conflict.name = name;
        conflict.base = base, conflict.ours = ours, conflict.theirs = theirs;
        conflict.reason = !ours     ? host::say("deleted by us, changed by them")
                          : !theirs ? host::say("changed by us, deleted by them")
                                    : host::say("changed by both");
        conflicts.push_back(std::move(conflict));
    }

    Side newer_;
    std::optional<Side> others_;
};

} // namespace

uint64_t handle_seed(std::string_view header) {
    const auto seed = variable_value(header, "$HANDSEED");
    return seed ? parse_handle(seed->value).value_or(0) : 0;
}

std::string encoding_of(std::string_view header) {
    constexpr std::string_view kUtf8From = "AC1021";
    const auto version = variable_value(header, "$ACADVER");
    if (version && upper(version->value) >= kUtf8From) return "UTF-8";
    const auto page = variable_value(header, "$DWGCODEPAGE");
    return page ? upper(page->value) : "";
}

Side newer_side(const Headers &headers) {
    const auto stamp = [&headers](Version version) {
        const std::string_view header = headers[version];
        const auto time = variable_value(header, "$TDUPDATE");
        return std::tuple(handle_seed(header), time ? number(time->value).value_or(0) : 0, header);
    };
    return stamp(kTheirs) > stamp(kOurs) ? Side::theirs : Side::ours;
}

MergedHeader merge_header(const Headers &headers, Side newer, std::optional<Side> others,
                          const Handles &handles) {
    std::array<NamedParts, 3> versions;
    std::string theirs(headers[kTheirs]);
    if (!handles.empty()) theirs = with_handles(theirs, handles, 0).value_or(theirs);
    for (const Version version : {kBase, kOurs}) versions[version] = variables(headers[version]);
    versions[kTheirs] = variables(theirs);
    HeaderMerge merge(newer, others);
    MergedHeader merged;
    for (const MergedPart &part : merge_parts(
             versions, [&merge](const std::string &name, Bytes base, Bytes ours, Bytes theirs) {
                 return merge.resolve(name, base, ours, theirs);
             }))
        merged.bytes += part.bytes;
    merged.conflicts = std::move(merge.conflicts);
    return merged;
}

namespace {

std::string with_group(std::string_view header, const Group &group, std::string_view value) {
    const auto begin = static_cast<size_t>(group.bytes.data() - header.data());
    return std::string(header.substr(0, begin)) + with_value(group, value) +
           std::string(header.substr(begin + group.bytes.size()));
}

} // namespace

std::string with_names_there(std::string_view header, const Headers &headers,
                             const std::function<bool(const Name &)> &is_gone) {
    constexpr std::pair<std::string_view, Table> kNames[] = {{"$CLAYER", Table::layer},
                                                             {"$CELTYPE", Table::linetype},
                                                             {"$TEXTSTYLE", Table::style},
                                                             {"$DIMSTYLE", Table::dimension_style}};
    std::string out(header);
    for (const auto &[variable, table] : kNames) {
        const auto is_there = [&, table = table](const std::optional<Group> &value) {
            return value && !is_gone({table, upper(value->value)});
        };
        const auto here = variable_value(out, variable);
        if (!here || is_there(here)) continue;
        auto side = variable_value(headers[kOurs], variable);
        if (!is_there(side)) side = variable_value(headers[kTheirs], variable);
        if (is_there(side)) out = with_group(out, *here, trim_blanks(side->value));
    }
    return out;
}

std::string with_seed_above(std::string_view header, uint64_t highest) {
    const auto seed = variable_value(header, "$HANDSEED");
    const uint64_t told = handle_seed(header);
    if (!told || told > highest) return std::string(header);
    return with_group(header, *seed, handle_text(highest + 1));
}

} // namespace dxf::merging
