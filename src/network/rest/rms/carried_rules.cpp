// Reads the rules of all roles from the module and sets those of one directory for another name.
#include "network/rest/rms/carried_rules.hpp"

#include "common/failure.hpp"
#include "common/guard.hpp"
#include "common/json.hpp"
#include "zev/json.h"
#include "zev/str.h"

#include <algorithm>
#include <cerrno>

namespace zev::rest {

namespace {

using Tree = Owned<Json, zJsonFree>;

// What stands in each object of an array that an operation gives; false, raised, where it fails.
template <class Ask, class Visit> bool each_of(Ask ask, Visit visit) {
    Json *list = nullptr;
    const int32_t status = ask(&list);
    const Tree owned(list);
    if (status != Z_AUTH_DONE) return fail_os(EIO, u"AUTHZ");
    const uint64_t count = list && zJsonIsArray(list) ? zJsonArraySize(list) : 0;
    for (uint64_t i = 0; i < count; ++i) {
        Json *element = zJsonArrayAt(list, i);
        if (zJsonIsObject(element) && !visit(element)) return false;
    }
    return true;
}

bool is_same(const std::u16string &a, const std::u16string &b) {
    return zStrcasesameW(a.c_str(), b.c_str());
}

bool is_within(const std::u16string &path, const std::u16string &directory) {
    const size_t size = directory.size();
    if (path.size() < size || !is_same(path.substr(0, size), directory)) return false;
    return path.size() == size || path[size] == u'/';
}

} // namespace

bool CarriedRules::list_role(const zwchar *role) {
    return each_of([&](Json **out) { return auth_.RoleSettings(repository_, role, out); },
                   [&](Json *element) {
                       const zwchar *path = zJsonPathGetString(element, u"setting.path");
                       const int64_t bits = zJsonPathGetInt(element, u"setting.privilege");
                       if (path) rules_.push_back({path, role, static_cast<int32_t>(bits)});
                       return true;
                   });
}

bool CarriedRules::list() {
    return each_of([&](Json **out) { return auth_.RoleList(repository_, out); },
                   [&](Json *element) {
                       const zwchar *role = zJsonPathGetString(element, u"name");
                       return !role || list_role(role);
                   });
}

const CarriedRules::Rule *CarriedRules::find(const std::u16string &path,
                                             const std::u16string &role) const {
    const auto found = std::ranges::find_if(rules_, [&](const Rule &rule) {
        return is_same(rule.path, path) && is_same(rule.role, role);
    });
    return found == rules_.end() ? nullptr : &*found;
}

bool CarriedRules::set(Rule rule) {
    const int32_t status =
        auth_.AddSetting(repository_, rule.path.c_str(), rule.role.c_str(), rule.bits);
    if (status == Z_AUTH_BAD_ARGUMENT) return raise_args(rule.path); // the new one is too long
    if (status != Z_AUTH_DONE) return fail_os(EIO, u"AUTHZ");
    set_.push_back(std::move(rule));
    return true;
}

bool CarriedRules::carry(const std::u16string &from, const std::u16string &to) {
    if (!list()) return false;
    for (const Rule &rule : rules_) {
        if (!is_within(rule.path, from)) continue;
        if (is_same(from, to)) return raise_exists(rule.path);
        Rule carried{to + rule.path.substr(from.size()), rule.role, rule.bits};
        const Rule *there = find(carried.path, carried.role);
        if (there) carried.bits &= there->bits;
        if (there && there->bits == carried.bits && there->path == carried.path) continue;
        if (!set(std::move(carried))) return take_back(), false;
    }
    return true;
}

void CarriedRules::take_back() {
    const KeptFailure kept;
    for (const Rule &rule : set_) {
        if (const Rule *before = find(rule.path, rule.role))
            auth_.AddSetting(repository_, before->path.c_str(), before->role.c_str(), before->bits);
        else
            auth_.RemoveSetting(repository_, rule.path.c_str(), rule.role.c_str());
    }
    set_.clear();
}

} // namespace zev::rest
