// Rights of a project's paths.
#include "rms/admin.hpp"

using namespace zev;

namespace {

Command of_project(Admin *admin, const zwchar *action, const zwchar *owner,
                   const zwchar *repository, Here at = {}) {
    Command command(admin, u"settings", action, at);
    command.in(owner, repository);
    return command;
}

} // namespace

int32_t zAdminSetDefaultPrivilege(Admin *admin, const zwchar *owner, const zwchar *repository,
                                  int32_t setting) {
    return of_project(admin, u"set-default", owner, repository).number(u"setting", setting).run();
}

int32_t zAdminDefaultPrivilege(Admin *admin, const zwchar *owner, const zwchar *repository,
                               int32_t *setting) {
    return of_project(admin, u"get-default", owner, repository).run_for(u"setting", setting);
}

int32_t zAdminSetPrivilege(Admin *admin, const zwchar *owner, const zwchar *repository,
                           const zwchar *path, const zwchar *role, int32_t setting) {
    return of_project(admin, u"add-setting", owner, repository)
        .name(u"role", role)
        .text(u"path", path)
        .number(u"setting", setting)
        .run();
}

int32_t zAdminRemovePrivilege(Admin *admin, const zwchar *owner, const zwchar *repository,
                              const zwchar *path, const zwchar *role) {
    return of_project(admin, u"remove-setting", owner, repository)
        .name(u"role", role)
        .text(u"path", path)
        .run();
}

int32_t zAdminClearPrivilege(Admin *admin, const zwchar *owner, const zwchar *repository,
                             const zwchar *path) {
    return of_project(admin, u"clear-settings", owner, repository).text(u"path", path).run();
}

int32_t zAdminPrivilegeList(Admin *admin, const zwchar *owner, const zwchar *repository,
                            const zwchar *path, Json **result) {
    return of_project(admin, u"list-settings", owner, repository)
        .text(u"path", path)
        .run_for(result);
}

int32_t zAdminRolePrivileges(Admin *admin, const zwchar *owner, const zwchar *repository,
                             const zwchar *role, Json **result) {
    return of_project(admin, u"role-settings", owner, repository)
        .name(u"role", role)
        .run_for(result);
}

int32_t zAdminUserPrivileges(Admin *admin, const zwchar *owner, const zwchar *repository,
                             const zwchar *user, Json **result) {
    return of_project(admin, u"user-settings", owner, repository)
        .name(u"user", user)
        .run_for(result);
}
