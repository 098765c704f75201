// role: what rights of a project are given to.

#include "admin/admin.hpp"

namespace host {

namespace {

// A role of the verb's project.
struct Role {
    explicit Role(const AdminCall &call)
        : project(call.text("PROJECT")), name(call.wide_text("ROLE")),
          what(say("%s of %s", call.text("ROLE"), call.text("PROJECT"))) {}
    const zwchar *owner() const { return project.owner.c_str(); }
    const zwchar *repository() const { return project.name.c_str(); }
    ProjectName project;
    std::u16string name;
    std::string what;
};

void create(AdminCall &call) {
    const Role role(call);
    const int32_t status =
        zAdminCreateRole(call.admin(), role.owner(), role.repository(), role.name.c_str());
    call.tell("role create", call.text("ROLE"), say("made %s", role.what),
              call.done(status, role.what));
}

void remove(AdminCall &call) {
    const Role role(call);
    const int32_t status =
        zAdminDeleteRole(call.admin(), role.owner(), role.repository(), role.name.c_str());
    call.tell("role delete", call.text("ROLE"), say("deleted %s", role.what),
              call.done(status, role.what));
}

void rename(AdminCall &call) {
    const Role role(call);
    require_status(zAdminRenameRole(call.admin(), role.owner(), role.repository(),
                                    role.name.c_str(), call.wide_text("NEWNAME").c_str()),
                   role.what);
    call.tell("role rename", call.text("ROLE"),
              say("%s is now called %s", role.what, call.text("NEWNAME")));
}

void list(AdminCall &call) {
    const ProjectName project(call.text("PROJECT"));
    Json *tree = nullptr;
    const int32_t status =
        zAdminRoleList(call.admin(), project.owner.c_str(), project.name.c_str(), &tree);
    const OwnedJson result(tree);
    require_status(status, call.text("PROJECT"));
    each(tree, [&](const Json *element) {
        call.host.out.line(member(element, u"name"));
        call.host.out.record(Record("role")
                                 .set(u"project", call.text("PROJECT"))
                                 .set(u"name", member(element, u"name")));
    });
}

// A member that a verb adds or takes away: a user, or with --group a group.
struct Member {
    explicit Member(const AdminCall &call) : user(call.text("USER")), group(call.text("--group")) {
        if (user.empty() == group.empty())
            throw Failed(kInvalid, "name a user, or a group by --group");
        if (!group.empty()) id = find_group(call, group);
    }
    std::string shown() const { return user.empty() ? say("the group %s", group) : user; }
    std::string user, group;
    int32_t id = -1;
};

void add(AdminCall &call) {
    const Role role(call);
    const Member member(call);
    const int32_t status = member.user.empty()
                               ? zAdminRoleAddGroup(call.admin(), role.owner(), role.repository(),
                                                    role.name.c_str(), member.id)
                               : zAdminRoleAddUser(call.admin(), role.owner(), role.repository(),
                                                   role.name.c_str(), wide(member.user).c_str());
    require_status(status, say("%s in %s", member.shown(), role.what));
    call.tell("role add", call.text("ROLE"), say("%s has %s", member.shown(), role.what));
}

void take_away(AdminCall &call) {
    const Role role(call);
    const Member member(call);
    const int32_t status =
        member.user.empty() ? zAdminRoleRemoveGroup(call.admin(), role.owner(), role.repository(),
                                                    role.name.c_str(), member.id)
                            : zAdminRoleRemoveUser(call.admin(), role.owner(), role.repository(),
                                                   role.name.c_str(), wide(member.user).c_str());
    const bool changed = call.done(status, say("%s in %s", member.shown(), role.what));
    call.tell("role remove", call.text("ROLE"),
              say("%s has no longer %s", member.shown(), role.what), changed);
}

void clear(AdminCall &call) {
    const Role role(call);
    require_status(
        zAdminRoleMembersPurge(call.admin(), role.owner(), role.repository(), role.name.c_str()),
        role.what);
    call.tell("role clear", call.text("ROLE"), say("nobody has %s", role.what));
}

void show_members(AdminCall &call) {
    const Role role(call);
    Json *tree = nullptr;
    const int32_t status =
        zAdminRoleMembers(call.admin(), role.owner(), role.repository(), role.name.c_str(), &tree);
    const OwnedJson result(tree);
    require_status(status, role.what);
    each(tree, [&](const Json *element) {
        const bool is_group = flag(element, u"isgroup");
        const std::string name = member(element, u"name");
        const std::string shown = is_group ? name : member(element, u"username");
        call.host.out.line(padded(shown, 16) + (is_group ? say("group") : name));
        Record record("member");
        record.set(u"group", is_group).set(u"name", shown);
        if (is_group) record.set(u"id", number(element, u"id"));
        call.host.out.record(record);
    });
}

constexpr AdminVerb kVerbs[] = {
    {"create", "Make a role", "PROJECT ROLE", "--if-missing", create},
    {"delete", "Delete a role with the rights that it gives", "PROJECT ROLE", "--if-exists",
     remove},
    {"rename", "Give a role another name", "PROJECT ROLE NEWNAME", "", rename},
    {"list", "Show the roles of a project", "PROJECT", "", list},
    {"add", "Give a role to a user or a group", "PROJECT ROLE [USER]", "--group GROUP", add},
    {"remove", "Take a role from a user or a group", "PROJECT ROLE [USER]",
     "--group GROUP --if-exists", take_away},
    {"members", "Show who has a role", "PROJECT ROLE", "", show_members},
    {"clear", "Take a role from all who have it", "PROJECT ROLE", "", clear},
};

} // namespace

extern const AdminNoun kRoleNoun{
    "role", "Roles of a project, to which its rights are given",
    "Who has the role administrator administers the project.\n"
    "Examples:\n  zev admin role create team/plant drawers --if-missing\n"
    "  zev admin role add team/plant drawers anna\n"
    "  zev admin role add team/plant drawers --group design/site\n"
    "  zev admin role members team/plant drawers",
    kVerbs};

} // namespace host
