// Whose request it is, and which bits he has on a path. Rules come from the authentication module
// once a caller and project; each path is answered from memory. Keys of rules compare by 16-bit
// unit. A caller who isn't known, or whose rules can't be had, has no right at all.
#include "rms/privilege.hpp"

#include "common/failure.hpp"
#include "common/guard.hpp"
#include "zev/admin.h"
#include "zev/http_request.h"
#include "zev/json.h"
#include "zev/server.h"
#include "zev/str.h"

#include <algorithm>

namespace zev {

namespace {

constexpr int32_t kAllRights = Z_PRIVILEGE_READ | Z_PRIVILEGE_WRITE | Z_PRIVILEGE_EXPORT;
constexpr int32_t kNothingSaid = 1; // a default that was never set: no right's bit

bool has_all(int32_t has, int32_t bits) { return (has & bits) == bits; }
bool says_of_root(const RuleMap &rules) {
    return rules.rules().contains(std::u16string_view(u"/"));
}

} // namespace

Privileges::Privileges(const AuthTable *auth, HttpRequest *request, Repository *repository) {
    if (!auth || !request || !repository) return;
    const zwchar *user = zHttpRequestUser(request);
    const zwchar *password = zHttpRequestPassword(request);
    if (!user || !password) return;
    const int32_t status = auth->CheckUser(user, password, false);
    failed_ = status == Z_AUTH_STORE_FAILED;
    if (status == Z_AUTH_DONE) load(*auth, user, repository);
}

Privileges::Privileges(const AuthTable *auth, const zwchar *user, Repository *repository) {
    if (auth && user && repository) load(*auth, user, repository);
}

// "admin" is asked nothing further: whatever became of the rules, he can look at what there is.
void Privileges::load(const AuthTable &auth, const zwchar *user, Repository *repository) {
    known_ = true;
    all_ = zStrcasesameW(user, u"admin");
    if (all_) return;
    Json *list = nullptr;
    int32_t status = auth.UserSettings(repository, user, &list);
    failed_ = status == Z_AUTH_STORE_FAILED;
    if (status != Z_AUTH_DONE) return;
    const Owned<Json, zJsonFree> owned(list);
    if (list && zJsonIsArray(list)) rules_.load(list);
    int32_t setting = kNothingSaid;
    status = auth.GetDefault(repository, &setting);
    failed_ = status == Z_AUTH_STORE_FAILED;
    rules_.set_fallback(status == Z_AUTH_DONE ? setting : kNothingSaid);
}

int32_t Privileges::at(std::u16string_view path) { return all_ ? kAllRights : rules_.at(path); }

// Where the root has a rule the default is reached by no path of a tree.
bool Privileges::anywhere(int32_t bits) const {
    if (all_) return has_all(kAllRights, bits);
    if (!known_) return false;
    if (!says_of_root(rules_) && has_all(rules_.fallback(), bits)) return true;
    return std::ranges::any_of(rules_.rules(),
                               [&](const auto &rule) { return has_all(rule.second, bits); });
}

bool Privileges::everywhere(int32_t bits) const {
    if (all_) return has_all(kAllRights, bits);
    if (!known_) return false;
    if (!says_of_root(rules_) && !has_all(rules_.fallback(), bits)) return false;
    return std::ranges::all_of(rules_.rules(),
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
