// Groups: a tree below one root, with users as members at any place of it.
#include "operations.hpp"
#include "store.hpp"

#include <algorithm>
#include <limits>

namespace zevauth {

namespace {

Group *find(Team &team, int32_t id) {
    const auto found = team.groups.find(id);
    return found != team.groups.end() ? &found->second : nullptr;
}

// Whether `id` is `above`, or lies somewhere below it.
bool is_within(const Team &team, int32_t id, int32_t above) {
    while (id != above && id != kRootGroup) id = team.groups.at(id).parent;
    return id == above;
}

bool is_free(const Team &team, int32_t parent, const zwchar *name, int32_t id) {
    const Group *taken = team.child(parent, name);
    return !taken || taken->id == id;
}

// Changes, and looks at, a group that is there.
template <class Edit> int32_t change_group(int32_t id, Edit edit) {
    return change_team([&](Team &team) -> int32_t {
        Group *group = find(team, id);
        return group ? edit(team, *group) : Z_AUTH_NOT_FOUND;
    });
}
template <class Look> int32_t look_at_group(int32_t id, Look look) {
    const Shared<Team> known = team();
    if (!known) return Z_AUTH_STORE_FAILED;
    const auto group = known->groups.find(id);
    return group != known->groups.end() ? look(*known, group->second) : Z_AUTH_NOT_FOUND;
}

// Changes its members, about one who is a user; the edit is false where it had nothing to change.
template <class Edit> int32_t change_members(int32_t id, const zwchar *user, Edit edit) {
    if (!user) return Z_AUTH_BAD_ARGUMENT;
    return change_group(id, [&](Team &team, Group &group) -> int32_t {
        const User *member = team.find(user);
        return member && edit(group.users, member->uid) ? Z_AUTH_DONE : Z_AUTH_NOT_FOUND;
    });
}

bool has_children(const Team &team, int32_t id) {
    return std::any_of(team.groups.begin(), team.groups.end(),
                       [id](const auto &group) { return group.second.parent == id; });
}

} // namespace

int32_t create_group(const zwchar *name, int32_t parent, int32_t *id) {
    if (!name || !id) return Z_AUTH_BAD_ARGUMENT;
    if (!is_name(name)) return Z_AUTH_BAD_NAME;
    int32_t made = kNoGroup;
    const int32_t status = change_team([&](Team &team) -> int32_t {
        if (!find(team, parent)) return Z_AUTH_NOT_FOUND;
        if (!is_free(team, parent, name, kNoGroup)) return Z_AUTH_EXISTS;
        if (team.next_group == std::numeric_limits<int32_t>::max()) return Z_AUTH_STORE_FAILED;
        made = team.next_group++;
        team.groups[made] = {made, name, parent, {}};
        return Z_AUTH_DONE;
    });
    if (status == Z_AUTH_DONE) *id = made;
    return status;
}

int32_t group_id(int32_t parent, const zwchar *name, int32_t *id) {
    if (!name || !id) return Z_AUTH_BAD_ARGUMENT;
    const Shared<Team> known = team();
    if (!known) return Z_AUTH_STORE_FAILED;
    const Group *group = known->child(parent, name);
    if (!group || parent == kNoGroup) return Z_AUTH_NOT_FOUND;
    *id = group->id;
    return Z_AUTH_DONE;
}

int32_t group_name(int32_t id, zwchar **name) {
    if (!name) return Z_AUTH_BAD_ARGUMENT;
    return look_at_group(id, [&](const Team &, const Group &group) -> int32_t {
        zwchar *copy = zStrdupW(group.name.c_str());
        if (!copy) return Z_AUTH_STORE_FAILED;
        *name = copy;
        return Z_AUTH_DONE;
    });
}

int32_t delete_group(int32_t id) {
    if (id == kRootGroup) return Z_AUTH_BAD_ARGUMENT;
    return change_group(id, [&](Team &team, Group &) -> int32_t {
        if (has_children(team, id)) return Z_AUTH_IN_USE;
        team.groups.erase(id);
        return Z_AUTH_DONE;
    });
}

int32_t root_group(int32_t *id) {
    if (!id) return Z_AUTH_BAD_ARGUMENT;
    if (!team()) return Z_AUTH_STORE_FAILED;
    *id = kRootGroup;
    return Z_AUTH_DONE;
}

int32_t rename_group(int32_t id, const zwchar *name) {
    if (!name || id == kRootGroup) return Z_AUTH_BAD_ARGUMENT;
    if (!is_name(name)) return Z_AUTH_BAD_NAME;
    return change_group(id, [&](Team &team, Group &group) -> int32_t {
        if (!is_free(team, group.parent, name, id)) return Z_AUTH_EXISTS;
        group.name = name;
        return Z_AUTH_DONE;
    });
}

int32_t set_group_parent(int32_t id, int32_t parent) {
    if (id == kRootGroup) return Z_AUTH_BAD_ARGUMENT;
    return change_group(id, [&](Team &team, Group &group) -> int32_t {
        if (!find(team, parent)) return Z_AUTH_NOT_FOUND;
        if (is_within(team, parent, id)) return Z_AUTH_IN_USE;
        if (!is_free(team, parent, group.name.c_str(), id)) return Z_AUTH_EXISTS;
        group.parent = parent;
        return Z_AUTH_DONE;
    });
}

int32_t add_member(int32_t id, const zwchar *user) {
    return change_members(id, user, [](Ids &users, int32_t uid) {
        users.insert(uid);
        return true;
    });
}

int32_t remove_member(int32_t id, const zwchar *user) {
    return change_members(id, user, [](Ids &users, int32_t uid) { return users.erase(uid) > 0; });
}

int32_t group_members(int32_t id, Json **members) {
    if (!members) return Z_AUTH_BAD_ARGUMENT;
    return look_at_group(id, [&](const Team &team, const Group &group) -> int32_t {
        Tree list = array();
        for (const auto &[other, child] : team.groups)
            if (child.parent == id) push(list, member_tree(child));
        for (const int32_t uid : group.users) push(list, member_tree(team.users.at(uid)));
        *members = list.release();
        return Z_AUTH_DONE;
    });
}

Tree member_tree(const User &user) {
    Tree tree = object();
    put(tree, u"isgroup", truth(false));
    put(tree, u"username", text(user.login));
    put(tree, u"name", text(user.name));
    return tree;
}

Tree member_tree(const Group &group) {
    Tree tree = object();
    put(tree, u"isgroup", truth(true));
    put(tree, u"id", number(group.id));
    put(tree, u"name", text(group.name));
    return tree;
}

} // namespace zevauth
