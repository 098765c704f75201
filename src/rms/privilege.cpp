// Whose request it is, and which bits he has on a path. Rules come from the authentication module
// once a caller and project; each path is answered from memory. Keys of rules compare by 16-bit
// unit. A caller who isn't known, or whose rules can't be had, has no right at all.
#include "rms/privilege.hpp"

#include "common/failure.hpp"
#include "common/guard.hpp"
#include "zev/admin.h"
#include "zev/http_request.h"
#include "zev/json.h"
#include "zev/path.h"
#include "zev/server.h"
#include "zev/str.h"

#include <algorithm>

namespace zev {

namespace {

constexpr int32_t kAllRights = Z_PRIVILEGE_READ | Z_PRIVILEGE_WRITE | Z_PRIVILEGE_EXPORT;
constexpr int32_t kNothingSaid = 1; // a default that was never set: no right's bit

bool has_all(int32_t has, int32_t bits) { return (has & bits) == bits; }

// The next place of the walk upward. "/" stands above a relative path's first name; above it, and
// above the first name of a path that begins with a slash, there is nothing.
std::u16string_view above(std::u16string_view path) {
    const size_t slash = path.rfind(u'/');
    return slash == path.npos ? std::u16string_view(u"/") : path.substr(0, slash);
}

// An element without a path says nothing; of twins the later one counts.
void load(std::map<std::u16string, int32_t, std::less<>> &rules, const Json *list) {
    for (uint64_t i = 0, count = zJsonArraySize(list); i < count; ++i) {
        const Json *element = zJsonArrayAt(list, i);
        Json *setting = zJsonIsObject(element) ? zJsonObjectAt(element, u"setting") : nullptr;
        if (!setting || !zJsonIsObject(setting)) continue;
        const zwchar *path = zJsonPathGetString(setting, u"path");
        const Json *bits = zJsonObjectAt(setting, u"privilege");
        if (path) rules[path] = bits ? static_cast<int32_t>(zJsonGetInt(bits)) : 0;
    }
}

} // namespace

Privileges::Privileges(const AuthTable *auth, HttpRequest *request, Repository *repository) {
    if (!auth || !request || !repository) return;
    const zwchar *user = zHttpRequestUser(request);
    const zwchar *password = zHttpRequestPassword(request);
    known_ = user && password && auth->CheckUser(user, password, false) == Z_AUTH_DONE;
    if (!known_) return;
    all_ = zStrcasesameW(user, u"admin");
    if (all_) return;
    Json *list = nullptr;
    if (auth->UserSettings(repository, user, &list) != Z_AUTH_DONE) return;
    const Owned<Json, zJsonFree> owned(list);
    if (list && zJsonIsArray(list)) load(rules_, list);
    if (auth->GetDefault(repository, &default_) != Z_AUTH_DONE) default_ = kNothingSaid;
}

int32_t Privileges::at(std::u16string_view path) {
    if (all_) return kAllRights;
    zwchar canonical[Z_PATH_MAX];
    if (path.size() >= Z_PATH_MAX) return 0; // cut, it would be another one
    *std::copy(path.begin(), path.end(), canonical) = 0;
    if (!zPathCanonicalized(canonical, canonical)) return 0;
    std::u16string_view place(canonical);
    while (place.ends_with(u'/') || place.ends_with(u'\\')) place.remove_suffix(1);
    if (place.empty()) return default_;
    if (const auto own = rules_.find(place); own != rules_.end()) return own->second;
    const std::u16string_view directory = above(place);
    if (directory_bits_ < 0 || directory != directory_) {
        directory_bits_ = look_up(directory);
        directory_ = directory;
    }
    return directory_bits_;
}

int32_t Privileges::look_up(std::u16string_view path) const {
    for (; !path.empty(); path = above(path))
        if (const auto rule = rules_.find(path); rule != rules_.end()) return rule->second;
    return default_;
}

// Where the root has a rule the default is reached by no path of a tree.
bool Privileges::anywhere(int32_t bits) const {
    if (all_) return has_all(kAllRights, bits);
    if (!known_) return false;
    if (!rules_.contains(std::u16string_view(u"/")) && has_all(default_, bits)) return true;
    return std::ranges::any_of(rules_,
                               [&](const auto &rule) { return has_all(rule.second, bits); });
}

bool Privileges::everywhere(int32_t bits) const {
    if (all_) return has_all(kAllRights, bits);
    if (!known_) return false;
    if (!rules_.contains(std::u16string_view(u"/")) && !has_all(default_, bits)) return false;
    return std::ranges::all_of(rules_,
                               [&](const auto &rule) { return has_all(rule.second, bits); });
}

} // namespace zev

using namespace zev;

int32_t zAdminGetPrivilege(HttpRequest *request, Repository *repository, const zwchar *path) try {
    if (!request || !repository || !path) return fail_args(), 0;
    const AuthTable *auth = zServerAuth();
    return auth ? Privileges(auth, request, repository).at(path) : 0;
} catch (...) {
    return fail_thrown(), 0;
}
