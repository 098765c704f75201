// Settings of a project: which bits a role has on a path, and what holds where nothing is said.
#include "operations.hpp"
#include "store.hpp"

#include <algorithm>

namespace zevauth {

namespace {

// [{"setting":{"path","privilege","role"}}]; no role where several were put together.
void push_setting(const Tree &list, const Text &path, const Text *role, int32_t bits) {
    Tree fields = object(), tree = object();
    put(fields, u"path", text(path));
    put(fields, u"privilege", number(bits));
    if (role) put(fields, u"role", text(*role));
    put(tree, u"setting", std::move(fields));
    push(list, std::move(tree));
}

// Those of a project's settings that are asked for, in order of their paths and roles.
template <class Wanted> Tree listed(const Rights &rights, Wanted is_wanted) {
    Tree list = array();
    for (const auto &[place, bits] : rights.settings)
        if (is_wanted(place)) push_setting(list, place.path, &place.role, bits);
    return list;
}

// The groups that a user is in, by himself or through one below.
Ids groups_of(const Team &team, int32_t uid) {
    Ids groups;
    for (const auto &[id, group] : team.groups) {
        if (!group.users.contains(uid)) continue;
        for (int32_t at = id; at != kNoGroup && groups.insert(at).second;)
            at = team.groups.at(at).parent;
    }
    return groups;
}

std::set<Text> roles_of(const Rights &rights, const Team &team, int32_t uid) {
    const Ids groups = groups_of(team, uid);
    std::set<Text> roles;
    for (const auto &[key, role] : rights.roles) {
        const bool grants = role.users.contains(uid) ||
                            std::any_of(role.groups.begin(), role.groups.end(),
                                        [&](int32_t id) { return groups.contains(id); });
        if (grants) roles.insert(role.name);
    }
    return roles;
}

} // namespace

int32_t set_default(Repository *repo, int32_t setting) {
    if (!repo || setting < 0) return Z_AUTH_BAD_ARGUMENT;
    return change_rights(repo, [&](Rights &rights, const Team &) -> int32_t {
        rights.fallback = setting & kBits;
        return Z_AUTH_DONE;
    });
}

int32_t get_default(Repository *repo, int32_t *setting) {
    if (!repo || !setting) return Z_AUTH_BAD_ARGUMENT;
    const Shared<Rights> kept = rights(repo);
    if (!kept) return Z_AUTH_STORE_FAILED;
    if (!kept->fallback) return Z_AUTH_NOT_FOUND;
    *setting = *kept->fallback;
    return Z_AUTH_DONE;
}

int32_t add_setting(Repository *repo, const zwchar *path, const zwchar *role, int32_t setting) {
    Text kept;
    if (!repo || !path || !role || !rule_path(path, &kept)) return Z_AUTH_BAD_ARGUMENT;
    if (setting < 0) return Z_AUTH_BAD_ARGUMENT; // every bit, whatever was meant
    return change_rights(repo, [&](Rights &rights, const Team &) -> int32_t {
        const auto found = rights.roles.find(role);
        if (found == rights.roles.end()) return Z_AUTH_NOT_FOUND;
        const Place place{kept, found->second.name};
        rights.settings.erase(place); // which may be spelled in another way
        rights.settings.emplace(place, setting & kBits);
        return Z_AUTH_DONE;
    });
}

int32_t remove_setting(Repository *repo, const zwchar *path, const zwchar *role) {
    Text kept;
    if (!repo || !path || !role || !rule_path(path, &kept)) return Z_AUTH_BAD_ARGUMENT;
    return change_rights(repo, [&](Rights &rights, const Team &) -> int32_t {
        return rights.settings.erase({kept, role}) ? Z_AUTH_DONE : Z_AUTH_NOT_FOUND;
    });
}

int32_t clear_settings(Repository *repo, const zwchar *path) {
    Text kept;
    if (!repo || !path || !rule_path(path, &kept)) return Z_AUTH_BAD_ARGUMENT;
    return change_rights(repo, [&](Rights &rights, const Team &) -> int32_t {
        std::erase_if(rights.settings, [&](const auto &setting) {
            return is_same(setting.first.path, kept.c_str());
        });
        return Z_AUTH_DONE;
    });
}

int32_t list_settings(Repository *repo, const zwchar *path, Json **list) {
    Text wanted;
    if (!repo || !path || !list || !rule_path(path, &wanted)) return Z_AUTH_BAD_ARGUMENT;
    const Shared<Rights> kept = rights(repo);
    if (!kept) return Z_AUTH_STORE_FAILED;
    *list = listed(*kept, [&](const Place &place) {
                return is_same(place.path, wanted.c_str());
            }).release();
    return Z_AUTH_DONE;
}

int32_t role_settings(Repository *repo, const zwchar *role, Json **list) {
    if (!repo || !role || !list) return Z_AUTH_BAD_ARGUMENT;
    const Shared<Rights> kept = rights(repo);
    if (!kept) return Z_AUTH_STORE_FAILED;
    if (!kept->roles.contains(role)) return Z_AUTH_NOT_FOUND;
    *list = listed(*kept, [&](const Place &place) { return is_same(place.role, role); }).release();
    return Z_AUTH_DONE;
}

// Settings come in order of their paths, so that those of one path follow each other; they are
// shown in the spelling of the first.
int32_t user_settings(Repository *repo, const zwchar *user, Json **list) {
    if (!repo || !user || !list) return Z_AUTH_BAD_ARGUMENT;
    const Shared<Team> known = team();
    const Shared<Rights> kept = rights(repo);
    if (!known || !kept) return Z_AUTH_STORE_FAILED;
    const User *found = known->find(user);
    if (!found) return Z_AUTH_NOT_FOUND;
    const std::set<Text> roles = roles_of(*kept, *known, found->uid);
    std::map<Text, int32_t, CaseLess> paths;
    for (const auto &[place, bits] : kept->settings)
        if (roles.contains(place.role)) paths[place.path] |= bits;
    Tree settings = array();
    for (const auto &[path, bits] : paths) push_setting(settings, path, nullptr, bits);
    *list = settings.release();
    return Z_AUTH_DONE;
}

} // namespace zevauth
