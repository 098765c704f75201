// The walk from a path upward. A path that begins with a slash never reaches the rule on "/".
#include "rms/rule_map.hpp"

#include "common/fold.hpp"
#include "zev/path.h"

#include <algorithm>

namespace zev {

namespace {

// The next place of the walk upward. "/" stands above a relative path's first name; above it, and
// above the first name of a path that begins with a slash, there is nothing.
std::u16string_view above(std::u16string_view path) {
    const size_t slash = path.rfind(u'/');
    return slash == path.npos ? std::u16string_view(u"/") : path.substr(0, slash);
}

} // namespace

void RuleMap::put(const zwchar *path, int32_t bits) {
    std::u16string key = path;
    if (any_case_)
        for (zwchar &unit : key) unit = unit == u'\\' ? u'/' : fold(unit);
    rules_[std::move(key)] = bits;
    looked_up_ = false;
}

void RuleMap::load(const Json *list) {
    for (uint64_t i = 0, count = zJsonArraySize(list); i < count; ++i) {
        const Json *element = zJsonArrayAt(list, i);
        Json *setting = zJsonIsObject(element) ? zJsonObjectAt(element, u"setting") : nullptr;
        if (!setting || !zJsonIsObject(setting)) continue;
        const zwchar *path = zJsonPathGetString(setting, u"path");
        const Json *bits = zJsonObjectAt(setting, u"privilege");
        if (path) put(path, bits ? static_cast<int32_t>(zJsonGetInt(bits)) : 0);
    }
}

int32_t RuleMap::at(std::u16string_view path) {
    zwchar canonical[Z_PATH_MAX];
    if (path.size() >= Z_PATH_MAX) return 0; // cut, it would be another one
    *std::copy(path.begin(), path.end(), canonical) = 0;
    if (!zPathCanonicalized(canonical, canonical)) return 0;
    if (any_case_)
        for (zwchar *unit = canonical; *unit; ++unit) *unit = fold(*unit);
    std::u16string_view place(canonical);
    while (place.ends_with(u'/') || place.ends_with(u'\\')) place.remove_suffix(1);
    if (place.empty()) return fallback_;
    if (const auto own = rules_.find(place); own != rules_.end()) return own->second;
    const std::u16string_view directory = above(place);
    if (!looked_up_ || directory != directory_) {
        directory_bits_ = look_up(directory);
        directory_ = directory;
        looked_up_ = true;
    }
    return directory_bits_;
}

int32_t RuleMap::look_up(std::u16string_view path) const {
    for (; !path.empty(); path = above(path))
        if (const auto rule = rules_.find(path); rule != rules_.end()) return rule->second;
    return fallback_;
}

} // namespace zev
