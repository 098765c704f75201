// Groups of the server.
#include "rms/admin.hpp"

using namespace zev;

int32_t zAdminCreateGroup(Admin *admin, const zwchar *name, int32_t parent, int32_t *id) {
    return Command(admin, u"group", u"create")
        .name(u"name", name)
        .number(u"parent", parent)
        .run_for_any(u"result", id);
}

int32_t zAdminGetGroupId(Admin *admin, int32_t parent, const zwchar *name, int32_t *id) {
    return Command(admin, u"group", u"get")
        .name(u"name", name)
        .number(u"parent", parent)
        .run_for_any(u"gid", id);
}

int32_t zAdminGetGroupName(Admin *admin, int32_t id, zwchar **name) {
    return Command(admin, u"group", u"get-name").number(u"id", id).run_for(u"name", name);
}

int32_t zAdminDeleteGroup(Admin *admin, int32_t id) {
    return Command(admin, u"group", u"delete").number(u"id", id).run();
}

int32_t zAdminGetRootGroup(Admin *admin, int32_t *id) {
    return Command(admin, u"group", u"get-root").run_for(u"result", id);
}

int32_t zAdminRenameGroup(Admin *admin, int32_t id, const zwchar *name) {
    return Command(admin, u"group", u"rename").name(u"name", name).number(u"id", id).run();
}

int32_t zAdminSetGroupOwner(Admin *admin, int32_t id, int32_t parent) {
    return Command(admin, u"group", u"set-parent")
        .number(u"id", id)
        .number(u"parent", parent)
        .run();
}

int32_t zAdminGroupAddUser(Admin *admin, int32_t id, const zwchar *user) {
    return Command(admin, u"group", u"add-member").name(u"user", user).number(u"id", id).run();
}

int32_t zAdminGroupRemoveUser(Admin *admin, int32_t id, const zwchar *user) {
    return Command(admin, u"group", u"rem-member").name(u"user", user).number(u"id", id).run();
}

int32_t zAdminGroupMembers(Admin *admin, int32_t id, Json **result) {
    return Command(admin, u"group", u"member-list").number(u"id", id).run_for(result);
}
