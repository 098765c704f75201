// Each part of ours is followed by the additions of theirs that stand behind it there.
#include "dxf/merge/parts.hpp"

namespace dxf::merging {

namespace {

using PartName = std::pair<std::string, int>;
using Lookup = std::map<PartName, std::string_view>;

Bytes find(const Lookup &parts, const PartName &name) {
    const auto at = parts.find(name);
    return at == parts.end() ? Bytes() : Bytes(at->second);
}

} // namespace

void number_names(NamedParts &parts) {
    std::map<std::string, int> seen;
    for (NamedPart &part : parts) part.name.second = seen[part.name.first]++;
}

std::vector<MergedPart>
merge_parts(const std::array<NamedParts, 3> &versions,
            const std::function<std::optional<std::string>(const std::string &name, Bytes base,
                                                           Bytes ours, Bytes theirs)> &resolve) {
    std::array<Lookup, 3> lookups;
    for (size_t v = 0; v < 3; ++v)
        for (const NamedPart &part : versions[v]) lookups[v].emplace(part.name, part.bytes);
    std::vector<MergedPart> merged;
    const auto put = [&](const PartName &name) {
        const Bytes base = find(lookups[kBase], name), ours = find(lookups[kOurs], name),
                    theirs = find(lookups[kTheirs], name);
        std::optional<std::string> bytes;
        if (ours == theirs || base == theirs)
            bytes = ours;
        else if (base == ours)
            bytes = theirs;
        else
            bytes = resolve(name.first, base, ours, theirs);
        if (bytes) merged.push_back({name, std::move(*bytes)});
    };
    std::map<PartName, std::vector<PartName>> behind; // additions of theirs, by their neighbour
    PartName neighbour{"", -1};                       // before all
    for (const NamedPart &part : versions[kTheirs]) {
        if (lookups[kOurs].contains(part.name))
            neighbour = part.name;
        else
            behind[neighbour].push_back(part.name);
    }
    for (const PartName &name : behind[{"", -1}]) put(name);
    for (const NamedPart &part : versions[kOurs]) {
        put(part.name);
        for (const PartName &name : behind[part.name]) put(name);
    }
    return merged;
}

} // namespace dxf::merging
