// Roles of a project.
#include "rms/admin.hpp"

using namespace zev;

namespace {

// A command about a role, by its name.
Command of_role(Admin *admin, const zwchar *action, const zwchar *owner, const zwchar *repository,
                const zwchar *name, Here at = {}) {
    Command command(admin, u"role", action, at);
    command.in(owner, repository).name(u"name", name);
    return command;
}

} // namespace

int32_t zAdminCreateRole(Admin *admin, const zwchar *owner, const zwchar *repository,
                         const zwchar *name) {
    return of_role(admin, u"create", owner, repository, name).run();
}

int32_t zAdminDeleteRole(Admin *admin, const zwchar *owner, const zwchar *repository,
                         const zwchar *name) {
    return of_role(admin, u"delete", owner, repository, name).run();
}

int32_t zAdminRenameRole(Admin *admin, const zwchar *owner, const zwchar *repository,
                         const zwchar *name, const zwchar *newname) {
    return of_role(admin, u"rename", owner, repository, name).name(u"newname", newname).run();
}

int32_t zAdminRoleList(Admin *admin, const zwchar *owner, const zwchar *repository, Json **result) {
    return Command(admin, u"role", u"list").in(owner, repository).run_for(result);
}

int32_t zAdminRoleAddUser(Admin *admin, const zwchar *owner, const zwchar *repository,
                          const zwchar *name, const zwchar *user) {
    return of_role(admin, u"add-user", owner, repository, name).name(u"user", user).run();
}

int32_t zAdminRoleRemoveUser(Admin *admin, const zwchar *owner, const zwchar *repository,
                             const zwchar *name, const zwchar *user) {
    return of_role(admin, u"remove-user", owner, repository, name).name(u"user", user).run();
}

int32_t zAdminRoleAddGroup(Admin *admin, const zwchar *owner, const zwchar *repository,
                           const zwchar *name, int32_t id) {
    return of_role(admin, u"add-group", owner, repository, name).number(u"id", id).run();
}

int32_t zAdminRoleRemoveGroup(Admin *admin, const zwchar *owner, const zwchar *repository,
                              const zwchar *name, int32_t id) {
    return of_role(admin, u"remove-group", owner, repository, name).number(u"id", id).run();
}

int32_t zAdminRoleMembers(Admin *admin, const zwchar *owner, const zwchar *repository,
                          const zwchar *name, Json **result) {
    return of_role(admin, u"member-list", owner, repository, name).run_for(result);
}

int32_t zAdminRoleMembersPurge(Admin *admin, const zwchar *owner, const zwchar *repository,
                               const zwchar *name) {
    return of_role(admin, u"member-purge", owner, repository, name).run();
}
