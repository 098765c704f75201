// The gate of the required mode. Each password that is looked at is counted when it was wrong, here
// and by the commands that exist to look at one; nothing is told of a project to a caller who
// hasn't proven who he is.
#include "network/rest/access.hpp"

#include "common/utf.hpp"
#include "network/http/server.hpp"
#include "network/rest/rms/rms.hpp"
#include "network/tcp/tcp.hpp"
#include "rms/privilege.hpp"
#include "zev/auth.h"
#include "zev/error.h"
#include "zev/str.h"

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <uv.h>

namespace zev::rest {

namespace {

constexpr const zwchar *kAdministrators = u"administrator"; // the role

HttpResponse *forbid(const Call &call, Here at = {}) {
    return refuse(call, 403, nullptr, nullptr, at);
}

// ---- Who asks

bool is_loopback(std::u16string_view address) {
    return address.starts_with(u"127.") || address == u"::1" || address.starts_with(u"::ffff:127.");
}

bool is_address(const std::u16string &text) {
    unsigned char bytes[16];
    const int family = text.find(u':') == text.npos ? AF_INET : AF_INET6;
    return !uv_inet_pton(family, to_utf8(text).c_str(), bytes);
}

// Behind a proxy on this machine everybody has the same address, and one who guesses would shut
// all others out: there it is the one that the proxy saw, which it put last.
std::u16string address_of(const Call &call) {
    std::u16string peer = peer_address(call.server->tcp);
    const zwchar *list =
        is_loopback(peer) ? zHttpRequestField(call.request, u"X-Forwarded-For") : nullptr;
    if (!list) return peer;
    std::u16string last = list;
    last.erase(0, last.rfind(u',') + 1);
    std::erase(last, u' ');
    return is_address(last) ? last : peer;
}

bool is_shut_out(const Call &call, const zwchar *login) {
    const Throttle &throttle = call.server->throttle;
    if (throttle.is_empty()) return false;
    return throttle.is_shut_out({zStrsafeW(login), address_of(call)});
}

// A valid login, with power where that is asked for; the module is asked for each once a request.
HttpResponse *need_login(Call &call, bool power = false) {
    if (power ? call.power == true : call.is_proven) return nullptr;
    const AuthTable *auth = zHttpServerAuth(call.server);
    if (!auth) return refuse(call, 500, u"admin.ePermissionDenied", zErrorDetail());
    const zwchar *user = zHttpRequestUser(call.request);
    const zwchar *password = zHttpRequestPassword(call.request);
    if (!user || !password) return refuse(call, 401);
    if (is_shut_out(call, user)) return refuse(call, 429);
    const int32_t status = auth->CheckUser(user, password, power);
    count_attempt(call, user, status);
    switch (status) {
    case Z_AUTH_DONE:
        call.is_proven = true;
        if (power) call.power = true;
        return nullptr;
    case Z_AUTH_POWER_NEEDED:
        return forbid(call);
    case Z_AUTH_STORE_FAILED:
        return refuse(call, 500, u"srv.eInternalError");
    default:
        return refuse(call, 401);
    }
}

// ---- What he may do in a project

HttpResponse *need_bit(Call &call, int32_t bit) {
    if (HttpResponse *refusal = need_login(call)) return refusal;
    if (HttpResponse *refusal = open_project(call)) return refusal;
    if (rights(call).anywhere(bit)) return nullptr;
    return rights(call).has_failed() ? refuse(call, 500, u"srv.eInternalError") : forbid(call);
}

// A member list is looked through; the groups in it that weren't met before are to be looked
// through, too.
bool lists_user(Json *members, const zwchar *user, std::set<int32_t> &met,
                std::vector<int32_t> &groups) {
    if (!members || !zJsonIsArray(members)) return false;
    for (uint64_t i = 0; i < zJsonArraySize(members); ++i) {
        Json *member = zJsonArrayAt(members, i);
        if (!zJsonIsObject(member)) continue;
        if (!zJsonPathGetBool(member, u"isgroup")) {
            const zwchar *name = zJsonPathGetString(member, u"username");
            if (name && zStrcasesameW(name, user)) return true;
            continue;
        }
        const auto id = static_cast<int32_t>(zJsonPathGetInt(member, u"id"));
        if (met.insert(id).second) groups.push_back(id);
    }
    return false;
}

// Directly, or in one of the role's groups at any depth. Not known where the store failed.
std::optional<bool> has_role(const AuthTable *auth, Repository *repository, const zwchar *role,
                             const zwchar *user) {
    std::set<int32_t> met;
    std::vector<int32_t> groups;
    Json *list = nullptr;
    int32_t status = auth->RoleMembers(repository, role, &list);
    for (;;) {
        const Tree members(list);
        if (status == Z_AUTH_DONE && lists_user(list, user, met, groups)) return true;
        if (status == Z_AUTH_STORE_FAILED) return {};
        if (groups.empty()) return false;
        const int32_t id = groups.back();
        groups.pop_back();
        list = nullptr;
        status = auth->GroupMembers(id, &list);
    }
}

HttpResponse *need_administrator(Call &call) {
    if (HttpResponse *refusal = need_login(call)) return refusal;
    if (HttpResponse *refusal = open_project(call)) return refusal;
    const AuthTable *auth = zHttpServerAuth(call.server);
    const zwchar *user = zHttpRequestUser(call.request);
    if (has_power(call)) return nullptr;
    const auto member = has_role(auth, call.repository.get(), kAdministrators, user);
    if (!member) return refuse(call, 500, u"srv.eInternalError");
    return *member ? nullptr : forbid(call);
}

// ---- Commands

bool is_own(const Call &call, const Command &command, Json *arguments) {
    const std::u16string_view needs = command.needs;
    const std::u16string name(needs.substr(0, needs.find(u' ')));
    const zwchar *whose = text_of(arguments, name.c_str());
    const zwchar *user = zHttpRequestUser(call.request);
    return whose && user && zStrcasesameW(whose, user);
}

// The row that would answer only looks at what stands in front: what follows the name is no part of
// a project, and a slip in an address must not rename or remove one.
bool overshoots(const Call &call) {
    const Operation &operation = *call.operation;
    const zwchar *other = capture(call, u":other");
    const bool changes = operation.method == Z_HTTP_POST || operation.method == Z_HTTP_DELETE;
    return operation.route == Route::projects && changes && other && *other;
}

HttpResponse *meet(Call &call, Need need) {
    switch (need) {
    case Need::login:
        return need_login(call);
    case Need::read:
        return need_bit(call, Z_PRIVILEGE_READ);
    case Need::write:
        return need_bit(call, Z_PRIVILEGE_WRITE);
    case Need::power:
        return need_login(call, true);
    case Need::administrator:
        return need_administrator(call);
    case Need::nobody:
    case Need::command:
        break;
    }
    return nullptr;
}

} // namespace

HttpResponse *admit(Call &call) {
    if (!call.guarded) return nullptr;
    if (overshoots(call)) return refuse(call, 400);
    if (call.operation->route == Route::project_rms) return need_login(call);
    return meet(call, call.operation->need);
}

HttpResponse *admit_command(Call &call, const Command &command, Json *arguments) {
    if (!call.guarded) return nullptr;
    if (command.need == Need::nobody)
        return is_shut_out(call, text_of(arguments, u"login")) ? refuse(call, 429) : nullptr;
    if (command.need != Need::login) return meet(call, command.need);
    if (is_own(call, command, arguments)) return need_login(call);
    const bool in_project = call.operation->route == Route::project_rms;
    return meet(call, in_project ? Need::administrator : Need::power);
}

// The module tells an unknown user from a wrong password no more than the answer does. Where
// nothing is required everybody may try.
void count_attempt(Call &call, const zwchar *login, int32_t status) {
    const bool failed = status == Z_AUTH_WRONG_PASSWORD || status == Z_AUTH_LOCKED;
    if (!call.guarded || !failed) return;
    call.server->throttle.count_failure({zStrsafeW(login), address_of(call)});
}

} // namespace zev::rest
