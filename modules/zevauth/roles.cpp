// Roles of a project: names that settings grant rights to, and who has them. Users and groups are
// held by their ids; those that are no more count for nothing.
#include "operations.hpp"
#include "store.hpp"

namespace zevauth {

namespace {

Role *find(Rights &rights, const zwchar *name) {
    const auto found = rights.roles.find(name);
    return found != rights.roles.end() ? &found->second : nullptr;
}

void move_settings(Rights &rights, const Text &from, const Text &to) {
    std::map<Place, int32_t> moved;
    for (const auto &[place, bits] : rights.settings)
        moved.emplace(Place{place.path, place.role == from ? to : place.role}, bits);
    rights.settings = std::move(moved);
}

// Changes one side of a role's members; `user` is a login.
template <class Change>
int32_t change_users(Repository *repo, const zwchar *name, const zwchar *user, Change change) {
    if (!repo || !name || !user) return Z_AUTH_BAD_ARGUMENT;
    return change_rights(repo, [&](Rights &rights, const Team &team) -> int32_t {
        Role *role = find(rights, name);
        const User *member = team.find(user);
        return role && member && change(role->users, member->uid) ? Z_AUTH_DONE : Z_AUTH_NOT_FOUND;
    });
}

template <class Change>
int32_t change_groups(Repository *repo, const zwchar *name, int32_t id, Change change) {
    if (!repo || !name) return Z_AUTH_BAD_ARGUMENT;
    return change_rights(repo, [&](Rights &rights, const Team &team) -> int32_t {
        Role *role = find(rights, name);
        return role && team.groups.contains(id) && change(role->groups, id) ? Z_AUTH_DONE
                                                                            : Z_AUTH_NOT_FOUND;
    });
}

bool add(Ids &ids, int32_t id) { return ids.insert(id), true; }
bool remove(Ids &ids, int32_t id) { return ids.erase(id) > 0; }

} // namespace

int32_t create_role(Repository *repo, const zwchar *name) {
    if (!repo || !name) return Z_AUTH_BAD_ARGUMENT;
    if (!is_name(name)) return Z_AUTH_BAD_NAME;
    return change_rights(repo, [&](Rights &rights, const Team &) -> int32_t {
        return rights.roles.emplace(name, Role{name, {}, {}}).second ? Z_AUTH_DONE : Z_AUTH_EXISTS;
    });
}

int32_t delete_role(Repository *repo, const zwchar *name) {
    if (!repo || !name) return Z_AUTH_BAD_ARGUMENT;
    return change_rights(repo, [&](Rights &rights, const Team &) -> int32_t {
        const auto role = rights.roles.find(name);
        if (role == rights.roles.end()) return Z_AUTH_NOT_FOUND;
        std::erase_if(rights.settings,
                      [&](const auto &setting) { return setting.first.role == role->second.name; });
        rights.roles.erase(role);
        return Z_AUTH_DONE;
    });
}

int32_t rename_role(Repository *repo, const zwchar *name, const zwchar *newname) {
    if (!repo || !name || !newname) return Z_AUTH_BAD_ARGUMENT;
    if (!is_name(newname)) return Z_AUTH_BAD_NAME;
    return change_rights(repo, [&](Rights &rights, const Team &) -> int32_t {
        const auto role = rights.roles.find(name), taken = rights.roles.find(newname);
        if (role == rights.roles.end()) return Z_AUTH_NOT_FOUND;
        if (taken != rights.roles.end() && taken != role) return Z_AUTH_EXISTS;
        move_settings(rights, role->second.name, newname);
        auto node = rights.roles.extract(role);
        node.key() = node.mapped().name = newname;
        rights.roles.insert(std::move(node));
        return Z_AUTH_DONE;
    });
}

int32_t role_list(Repository *repo, Json **list) {
    if (!repo || !list) return Z_AUTH_BAD_ARGUMENT;
    const Shared<Rights> kept = rights(repo);
    if (!kept) return Z_AUTH_STORE_FAILED;
    Tree roles = array();
    for (const auto &[key, role] : kept->roles) {
        Tree tree = object();
        put(tree, u"name", text(role.name));
        push(roles, std::move(tree));
    }
    *list = roles.release();
    return Z_AUTH_DONE;
}

int32_t role_add_user(Repository *repo, const zwchar *name, const zwchar *user) {
    return change_users(repo, name, user, add);
}
int32_t role_remove_user(Repository *repo, const zwchar *name, const zwchar *user) {
    return change_users(repo, name, user, remove);
}
int32_t role_add_group(Repository *repo, const zwchar *name, int32_t id) {
    return change_groups(repo, name, id, add);
}
int32_t role_remove_group(Repository *repo, const zwchar *name, int32_t id) {
    return change_groups(repo, name, id, remove);
}

int32_t role_members(Repository *repo, const zwchar *name, Json **members) {
    if (!repo || !name || !members) return Z_AUTH_BAD_ARGUMENT;
    const Shared<Team> known = team();
    const Shared<Rights> kept = rights(repo);
    if (!known || !kept) return Z_AUTH_STORE_FAILED;
    const auto role = kept->roles.find(name);
    if (role == kept->roles.end()) return Z_AUTH_NOT_FOUND;
    Tree list = array();
    for (const int32_t id : role->second.groups)
        if (const auto group = known->groups.find(id); group != known->groups.end())
            push(list, member_tree(group->second));
    for (const int32_t uid : role->second.users)
        if (const auto user = known->users.find(uid); user != known->users.end())
            push(list, member_tree(user->second));
    *members = list.release();
    return Z_AUTH_DONE;
}

int32_t purge_role_members(Repository *repo, const zwchar *name) {
    if (!repo || !name) return Z_AUTH_BAD_ARGUMENT;
    return change_rights(repo, [&](Rights &rights, const Team &) -> int32_t {
        Role *role = find(rights, name);
        if (!role) return Z_AUTH_NOT_FOUND;
        role->users.clear();
        role->groups.clear();
        return Z_AUTH_DONE;
    });
}

} // namespace zevauth
