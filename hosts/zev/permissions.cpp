// What holds is asked of the library; which rule it is by is found in the file, AUTHZ in the Git
// directory: settings.entries[].setting {path, privilege} and settings.default.
#include "permissions.hpp"

#include <algorithm>

namespace host {

namespace {

std::string without_slashes(std::string path) {
    if (path == "/") return path;
    while (path.ends_with('/')) path.pop_back();
    return path;
}

} // namespace

Permissions::Permissions(const WorkingCopy &copy)
    : db_(check(zAuthdbOpen(copy.repository()), say("the rules"))) {
    zwchar path[Z_PATH_MAX];
    check(zAuthdbPath(path, copy.repository()));
    has_rules_ = zPathFileExists(path);
    if (!has_rules_) return;
    const OwnedJson file(check(zJsonReadFile(path), say("the rules")));
    fallback_ = static_cast<int32_t>(zJsonPathGetLarge(file.get(), u"settings.default"));
    const Json *entries = zJsonPathGet(file.get(), u"settings.entries");
    const uint64_t count = entries && zJsonIsArray(entries) ? zJsonArraySize(entries) : 0;
    for (uint64_t i = 0; i < count; ++i) {
        Json *entry = zJsonArrayAt(entries, i);
        const zwchar *rule =
            zJsonIsObject(entry) ? zJsonPathGetString(entry, u"setting.path") : nullptr;
        if (rule)
            rules_.emplace_back(
                without_slashes(narrow(rule)),
                static_cast<int32_t>(zJsonPathGetLarge(entry, u"setting.privilege")));
    }
    std::sort(rules_.begin(), rules_.end());
}

Permission Permissions::of(const std::string &path) const {
    Permission permission{zAuthdbEntryMode(db_.get(), wide(path.empty() ? "/" : path).c_str()), {}};
    const auto rule_at = [&](const std::string &place) {
        const std::u16string name = wide(place);
        return std::find_if(rules_.begin(), rules_.end(), [&](const auto &rule) {
            return zStrcasesameW(wide(rule.first).c_str(), name.c_str());
        });
    };
    for (std::string at = path.empty() ? "/" : path;;) {
        if (const auto rule = rule_at(at); rule != rules_.end()) {
            permission.rule = rule->first;
            break;
        }
        if (at == "/") break;
        const size_t slash = at.rfind('/');
        at = slash == at.npos ? "/" : at.substr(0, slash);
    }
    return permission;
}

std::string rights_letters(int32_t bits) {
    std::string text;
    if (bits & Z_PRIVILEGE_READ) text += 'r';
    if (bits & Z_PRIVILEGE_WRITE) text += 'w';
    if (bits & Z_PRIVILEGE_EXPORT) text += 'e';
    return text.empty() ? "-" : text;
}

} // namespace host
