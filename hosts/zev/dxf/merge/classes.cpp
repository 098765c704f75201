// A class is known by its group 1. Group 91 counts its instances, as far as an editor cares.
#include "dxf/merge/classes.hpp"

#include <charconv>

namespace dxf::merging {

namespace {

constexpr int kRecordName = 1, kInstances = 91;

std::optional<Group> find_group(std::string_view record, int code) {
    for (Group group; take_group(record, group);)
        if (group.code == code) return group;
    return {};
}

NamedParts named(const std::vector<std::string_view> &records) {
    NamedParts parts;
    for (const std::string_view record : records) {
        const auto name = find_group(record, kRecordName);
        parts.push_back({{std::string(name ? trim_blanks(name->value) : ""), 0}, record});
    }
    number_names(parts);
    return parts;
}

std::string with_instances(std::string_view record, const Group &own, std::string_view count) {
    const auto begin = static_cast<size_t>(own.bytes.data() - record.data());
    return std::string(record.substr(0, begin)) + with_value(own, count) +
           std::string(record.substr(begin + own.bytes.size()));
}

uint64_t number(const Group &group) {
    const std::string_view digits = trim_blanks(group.value);
    uint64_t value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return value;
}

// Two records that differ in the number of instances alone: with the larger one.
std::optional<std::string> larger(Bytes ours, Bytes theirs) {
    if (!ours || !theirs) return {};
    const auto a = find_group(*ours, kInstances), b = find_group(*theirs, kInstances);
    if (!a || !b) return {};
    const std::string_view count = trim_blanks(number(*b) > number(*a) ? b->value : a->value);
    std::string mine = with_instances(*ours, *a, count);
    if (mine != with_instances(*theirs, *b, count)) return {};
    return mine;
}

} // namespace

MergedClasses merge_classes(const std::array<std::vector<std::string_view>, 3> &versions,
                            std::optional<Side> others) {
    MergedClasses merged;
    const auto resolve = [&](const std::string &name, Bytes base, Bytes ours,
                             Bytes theirs) -> std::optional<std::string> {
        if (auto record = larger(ours, theirs)) return record;
        if (!others) {
            MergeConflict conflict;
            conflict.what = MergeConflict::classes;
            conflict.name = name;
            conflict.base = base, conflict.ours = ours, conflict.theirs = theirs;
            conflict.reason = host::say("changed by both");
            merged.conflicts.push_back(std::move(conflict));
        }
        const Bytes taken = others == Side::theirs ? theirs : ours;
        return taken ? std::optional<std::string>(*taken) : std::nullopt;
    };
    const std::array<NamedParts, 3> parts{named(versions[0]), named(versions[1]),
                                          named(versions[2])};
    for (MergedPart &part : merge_parts(parts, resolve))
        merged.records.push_back(std::move(part.bytes));
    return merged;
}

} // namespace dxf::merging
