// group: users put together, as a tree of names.

#include "admin/admin.hpp"

#include <algorithm>

namespace host {

namespace {

constexpr size_t kGroupsMax = 100'000; // a server may send what it likes

int32_t root_group(const AdminCall &call) {
    int32_t id = -1;
    require_status(zAdminGetRootGroup(call.admin(), &id), say("the groups"));
    return id;
}

// The last name of a path, and what stands before it.
struct Place {
    explicit Place(std::string path) {
        while (path.ends_with('/')) path.pop_back();
        const size_t slash = path.rfind('/');
        name = path.substr(slash == path.npos ? 0 : slash + 1);
        above = slash == path.npos ? "/" : path.substr(0, slash);
        if (name.empty()) throw Failed(kInvalid, "/: the group above all can't be meant");
    }
    std::string above, name;
};

void create(AdminCall &call) {
    const std::string path = call.text("GROUP");
    const Place place(path);
    const int32_t parent = find_group(call, place.above);
    const int32_t status =
        zAdminCreateGroup(call.admin(), wide(place.name).c_str(), parent, nullptr);
    call.tell("group create", path, say("made %s", path), call.done(status, path));
}

// Null for one that is not there, where that is nothing wrong.
std::optional<int32_t> existing(const AdminCall &call, const std::string &path) try {
    return find_group(call, path);
} catch (const Failed &failed) {
    if (failed.error_class == kNotFound && call.has("--if-exists")) return {};
    throw;
}

void remove(AdminCall &call) {
    const std::string path = call.text("GROUP");
    const std::optional<int32_t> id = existing(call, path);
    const bool gone = id && call.done(zAdminDeleteGroup(call.admin(), *id), path);
    call.tell("group delete", path, say("deleted %s", path), gone);
}

void rename(AdminCall &call) {
    const std::string path = call.text("GROUP"), name = call.text("NEWNAME");
    require_status(zAdminRenameGroup(call.admin(), find_group(call, path), wide(name).c_str()),
                   path);
    call.tell("group rename", path, say("%s is now called %s", path, name));
}

void move(AdminCall &call) {
    const std::string path = call.text("GROUP"), parent = call.text("PARENT");
    const int32_t id = find_group(call, path);
    require_status(zAdminSetGroupOwner(call.admin(), id, find_group(call, parent)), path);
    call.tell("group move", path, say("%s is now below %s", path, parent));
}

void add(AdminCall &call) {
    const std::string path = call.text("GROUP"), user = call.text("USER");
    require_status(zAdminGroupAddUser(call.admin(), find_group(call, path), wide(user).c_str()),
                   say("%s in %s", user, path));
    call.tell("group add", path, say("%s is in %s", user, path));
}

void take_out(AdminCall &call) {
    const std::string path = call.text("GROUP"), user = call.text("USER");
    const int32_t status =
        zAdminGroupRemoveUser(call.admin(), find_group(call, path), wide(user).c_str());
    call.tell("group remove", path, say("%s is no longer in %s", user, path),
              call.done(status, say("%s in %s", user, path)));
}

void list(AdminCall &call) {
    const std::vector<GroupPlace> groups = list_groups(call);
    if (groups.size() == 1) call.host.out.line("no groups");
    for (const GroupPlace &group : groups) {
        if (group.path == "/") continue;
        std::string users;
        for (const std::string &user : group.users) users += (users.empty() ? "  " : ", ") + user;
        call.host.out.line(group.path + call.host.out.paint(Colour::dim, users));
        call.host.out.record(Record("group")
                                 .set(u"path", group.path)
                                 .set(u"id", group.id)
                                 .set(u"users", group.users));
    }
}

constexpr AdminVerb kVerbs[] = {
    {"create", "Make a group below another", "GROUP", "--if-missing", create},
    {"delete", "Delete a group that has no groups below it", "GROUP", "--if-exists", remove},
    {"list", "Show all groups and who is in them", "", "", list},
    {"rename", "Give a group another name", "GROUP NEWNAME", "", rename},
    {"move", "Put a group below another", "GROUP PARENT", "", move},
    {"add", "Put a user into a group", "GROUP USER", "", add},
    {"remove", "Take a user out of a group", "GROUP USER", "--if-exists", take_out},
};

} // namespace

int32_t find_group(const AdminCall &call, const std::string &path) {
    int32_t id = root_group(call);
    for (size_t at = 0; at < path.size();) {
        const size_t end = std::min(path.find('/', at), path.size());
        const std::string name = path.substr(at, end - at);
        at = end + 1;
        if (name.empty()) continue;
        const int32_t status = zAdminGetGroupId(call.admin(), id, wide(name).c_str(), &id);
        if (status == Z_AUTH_NOT_FOUND)
            throw Failed(kNotFound, status, say("%s: no such group", path));
        require_status(status, path);
    }
    return id;
}

// A directory of names above those below it; a loop that a server sends ends at the bound.
std::vector<GroupPlace> list_groups(const AdminCall &call) {
    std::vector<GroupPlace> groups{{root_group(call), -1, "/", {}}};
    for (size_t i = 0; i < groups.size(); ++i) {
        stop_on_break(call.host.notify);
        Json *tree = nullptr;
        const int32_t status = zAdminGroupMembers(call.admin(), groups[i].id, &tree);
        const OwnedJson members(tree);
        require_status(status, groups[i].path);
        if (groups.size() > kGroupsMax) throw Failed(kServer, "the server's groups have no end");
        each(tree, [&](const Json *element) {
            if (!flag(element, u"isgroup"))
                return groups[i].users.push_back(member(element, u"username"));
            const std::string above = groups[i].path == "/" ? "" : groups[i].path + "/";
            groups.push_back(
                {number(element, u"id"), groups[i].id, above + member(element, u"name"), {}});
        });
    }
    std::sort(groups.begin(), groups.end(),
              [](const auto &a, const auto &b) { return a.path < b.path; });
    return groups;
}

extern const AdminNoun kGroupNoun{
    "group", "Users put together, group below group",
    "A group is named by the way to it. Who is in a group is in those above it, too.\n"
    "Examples:\n  zev admin group create design\n  zev admin group create design/site\n"
    "  zev admin group add design/site anna\n  zev admin group list",
    kVerbs};

} // namespace host
