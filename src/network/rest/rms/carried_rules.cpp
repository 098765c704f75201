// Reads the rules of all roles from the module and sets those of one directory for another name.
//
// A user has the rules of all his roles, put together path by path, and of those the nearest: a
// rule of one role hides what another one has farther up. So what a role alone may at a place is
// more than some of its members may, who have another role with a rule in between.
#include "network/rest/rms/carried_rules.hpp"

#include "common/failure.hpp"
#include "common/fold.hpp"
#include "common/guard.hpp"
#include "zev/json.h"
#include "zev/str.h"

#include <cerrno>

namespace zev::rest {

namespace {

using Tree = Owned<Json, zJsonFree>;

constexpr int32_t kAllRights = Z_PRIVILEGE_READ | Z_PRIVILEGE_WRITE | Z_PRIVILEGE_EXPORT;

// What stands in each element of an array that an operation gives; nothing where it knows of no
// such thing. False, raised, where it fails or an element isn't understood, which might forbid.
template <class Ask, class Visit> bool each_of(Ask ask, Visit visit) {
    Json *list = nullptr;
    const int32_t status = ask(&list);
    const Tree owned(status == Z_AUTH_DONE ? list : nullptr);
    if (status != Z_AUTH_DONE && status != Z_AUTH_NOT_FOUND) return fail_os(EIO, u"AUTHZ");
    if (!owned) return true;
    if (!zJsonIsArray(list)) return fail_os(EBADMSG, u"AUTHZ");
    for (uint64_t i = 0, count = zJsonArraySize(list); i < count; ++i)
        if (!visit(zJsonArrayAt(list, i))) return fail_os(EBADMSG, u"AUTHZ");
    return true;
}

// Null where there is no text.
const zwchar *text_at(Json *element, const zwchar *path) {
    const Json *node = zJsonIsObject(element) ? zJsonPathGet(element, path) : nullptr;
    return node && zJsonIsString(node) ? zJsonGetString(node) : nullptr;
}

std::u16string folded(std::u16string_view path) {
    std::u16string key(path);
    for (char16_t &unit : key) unit = fold(unit);
    return key;
}

bool is_same(const std::u16string &a, const std::u16string &b) {
    return zStrcasesameW(a.c_str(), b.c_str());
}

// In whatever case.
bool is_within(const std::u16string &path, const std::u16string &directory) {
    const size_t size = directory.size();
    if (path.size() < size || !is_same(path.substr(0, size), directory)) return false;
    return path.size() == size || path[size] == u'/';
}

// The next place upward, "/" above the first name, at last nothing.
std::u16string_view above(std::u16string_view place) {
    const size_t slash = place.rfind(u'/');
    return slash == place.npos ? std::u16string_view(u"/") : place.substr(0, slash);
}

} // namespace

// ---- What the module says

bool CarriedRules::list_role(const zwchar *role) {
    const auto take = [&](Json *element) {
        const zwchar *path = text_at(element, u"setting.path");
        const Json *bits = path ? zJsonPathGet(element, u"setting.privilege") : nullptr;
        if (!bits || !zJsonIsInt(bits)) return false;
        paths_.emplace(folded(path), rules_.size());
        rules_.push_back({path, role, static_cast<int32_t>(zJsonGetInt(bits)) & kAllRights});
        return true;
    };
    return each_of([&](Json **out) { return auth_.RoleSettings(repository_, role, out); }, take);
}

// Without a default nothing is granted.
bool CarriedRules::read_default() {
    const int32_t status = auth_.GetDefault(repository_, &fallback_);
    if (status != Z_AUTH_DONE) fallback_ = 0;
    fallback_ &= kAllRights;
    return status == Z_AUTH_DONE || status == Z_AUTH_NOT_FOUND || fail_os(EIO, u"AUTHZ");
}

bool CarriedRules::list() {
    const auto take = [&](Json *element) {
        const zwchar *role = text_at(element, u"name");
        return role && list_role(role);
    };
    const auto ask = [&](Json **out) { return auth_.RoleList(repository_, out); };
    failed_ = !each_of(ask, take) || !read_default();
    return !failed_;
}

// ---- What holds

// Every rule on a path, in whatever case.
template <class Visit> void CarriedRules::each_at(std::u16string_view path, Visit visit) const {
    const auto [from, to] = paths_.equal_range(folded(path));
    for (auto at = from; at != to; ++at) visit(rules_[at->second]);
}

const CarriedRules::Rule *CarriedRules::find(std::u16string_view path,
                                             const std::u16string &role) const {
    const Rule *found = nullptr;
    each_at(path, [&](const Rule &rule) {
        if (is_same(rule.role, role)) found = &rule;
    });
    return found;
}

// As a server goes upward, by spelling.
CarriedRules::Held CarriedRules::held(const std::u16string &role, std::u16string_view place) const {
    int32_t others = kAllRights;
    for (; !place.empty(); place = above(place)) {
        const Rule *own = nullptr;
        int32_t here = kAllRights;
        each_at(place, [&](const Rule &rule) {
            if (rule.path != place) return;
            if (is_same(rule.role, role))
                own = &rule;
            else
                here &= rule.bits;
        });
        if (own) return {own->bits, own->bits & others};
        others &= here;
    }
    return {fallback_, fallback_ & others};
}

// ---- Changes

// A role that is no more has nothing to carry.
bool CarriedRules::note(const std::u16string &path, const std::u16string &role, int32_t status) {
    if (status == Z_AUTH_BAD_ARGUMENT) return raise_args(path); // the new one is too long
    if (status == Z_AUTH_NOT_FOUND) return true;
    failed_ = status != Z_AUTH_DONE;
    if (failed_) return fail_os(EIO, u"AUTHZ");
    changed_.push_back({path, role, 0});
    return true;
}

// One of another spelling would be written over if it is the role's own, and hide this one from
// the role's members if it is another role's.
bool CarriedRules::set(const std::u16string &path, const std::u16string &role, int32_t bits) {
    bool is_alone = true;
    each_at(path, [&](const Rule &rule) { is_alone = is_alone && rule.path == path; });
    if (!is_alone) return raise_exists(path);
    return note(path, role, auth_.AddSetting(repository_, path.c_str(), role.c_str(), bits));
}

bool CarriedRules::drop(const Rule &rule) {
    return note(rule.path, rule.role,
                auth_.RemoveSetting(repository_, rule.path.c_str(), rule.role.c_str()));
}

// A rule of the old name: `place` is its path as the tree spells it, `target` that by the new name.
bool CarriedRules::carry_one(const Rule &rule, const std::u16string &place,
                             const std::u16string &target) {
    const bool holds = rule.path == place;
    const int32_t least = holds ? rule.bits : held(rule.role, place).least;
    const int32_t granted = rule.bits & least;
    const Rule *left = find(target, rule.role);
    const int32_t bits = left ? granted & left->bits : granted;
    const bool is_there = left && left->path == target;
    const bool is_needed = is_there ? bits != left->bits : holds || bits != least;
    return !is_needed || set(target, rule.role, bits);
}

// A rule of the new name where the role has none by the old one, at `place`. It goes where it would
// only be in the way: the role has no more without it.
bool CarriedRules::narrow(const Rule &left, const std::u16string &place) {
    const auto [own, least] = held(left.role, place);
    const int32_t bits = left.bits & least;
    if (bits == left.bits) return true;
    const bool is_idle = (own & ~left.bits) == 0;
    return is_idle ? drop(left) : set(left.path, left.role, bits);
}

bool CarriedRules::carry(const std::u16string &from, const std::u16string &to) {
    if (!list()) return false;
    for (const Rule &rule : rules_) {
        bool done = true;
        if (is_within(rule.path, from)) {
            if (is_same(from, to)) return raise_exists(rule.path);
            const std::u16string tail = rule.path.substr(from.size());
            done = carry_one(rule, from + tail, to + tail);
        } else if (rule.path.starts_with(to) && is_within(rule.path, to)) {
            const std::u16string place = from + rule.path.substr(to.size());
            done = find(place, rule.role) || narrow(rule, place);
        }
        if (!done) return take_back(), false;
    }
    return true;
}

void CarriedRules::take_back() {
    const KeptFailure kept;
    for (const Rule &rule : changed_) {
        const Rule *before = find(rule.path, rule.role);
        const int32_t status =
            before ? auth_.AddSetting(repository_, before->path.c_str(), before->role.c_str(),
                                      before->bits)
                   : auth_.RemoveSetting(repository_, rule.path.c_str(), rule.role.c_str());
        if (status == Z_AUTH_DONE || status == Z_AUTH_NOT_FOUND) continue;
        fail_os(EIO, rule.path + u" (" + rule.role + u")");
        log_raised(kError, {}, kFacilitySrv);
    }
    changed_.clear();
}

} // namespace zev::rest
