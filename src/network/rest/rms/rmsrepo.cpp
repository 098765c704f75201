// Roles and settings of one project, one operation of the module a row; and "local-db", by which a
// working copy keeps its own copy of its user's rules.
#include "network/rest/rms/rms.hpp"
#include "zev/oid.h"
#include "zev/path.h"
#include "zev/str.h"

#include <string>

namespace zev::rest {

namespace {

using enum Need;

constexpr const zwchar *kRightsFile = u"AUTHZ"; // of the server, and of each project
constexpr int32_t kAllRights = Z_PRIVILEGE_READ | Z_PRIVILEGE_WRITE | Z_PRIVILEGE_EXPORT;

Repository *project(const Call &call) { return call.repository.get(); }

// ---- Roles

HttpResponse *create_role(Call &call, Json *args) {
    return answer_status(auth_of(call).CreateRole(project(call), text_of(args, u"name")));
}

HttpResponse *delete_role(Call &call, Json *args) {
    return answer_status(auth_of(call).DeleteRole(project(call), text_of(args, u"name")));
}

HttpResponse *rename_role(Call &call, Json *args) {
    return answer_status(
        auth_of(call).RenameRole(project(call), text_of(args, u"name"), text_of(args, u"newname")));
}

HttpResponse *list_roles(Call &call, Json *) {
    return answer_tree([&](Json **list) { return auth_of(call).RoleList(project(call), list); });
}

HttpResponse *add_role_user(Call &call, Json *args) {
    return answer_status(
        auth_of(call).RoleAddUser(project(call), text_of(args, u"name"), text_of(args, u"user")));
}

HttpResponse *remove_role_user(Call &call, Json *args) {
    return answer_status(auth_of(call).RoleRemoveUser(project(call), text_of(args, u"name"),
                                                      text_of(args, u"user")));
}

HttpResponse *add_role_group(Call &call, Json *args) {
    return answer_status(
        auth_of(call).RoleAddGroup(project(call), text_of(args, u"name"), number_of(args, u"id")));
}

HttpResponse *remove_role_group(Call &call, Json *args) {
    return answer_status(auth_of(call).RoleRemoveGroup(project(call), text_of(args, u"name"),
                                                       number_of(args, u"id")));
}

HttpResponse *list_role_members(Call &call, Json *args) {
    return answer_tree([&](Json **list) {
        return auth_of(call).RoleMembers(project(call), text_of(args, u"name"), list);
    });
}

HttpResponse *purge_role_members(Call &call, Json *args) {
    return answer_status(auth_of(call).PurgeRoleMembers(project(call), text_of(args, u"name")));
}

// ---- Settings

HttpResponse *set_default(Call &call, Json *args) {
    return answer_status(auth_of(call).SetDefault(project(call), bits_of(args, u"setting")));
}

HttpResponse *tell_default(Call &call, Json *) {
    int32_t setting = 0;
    const int32_t status = auth_of(call).GetDefault(project(call), &setting);
    if (status != Z_AUTH_DONE) return answer_status(status);
    Tree result(zJsonNewObject(u"setting", zJsonNewInt(setting), nullptr));
    return result ? answer_status(status, std::move(result)) : nullptr;
}

HttpResponse *add_setting(Call &call, Json *args) {
    return answer_status(auth_of(call).AddSetting(
        project(call), text_of(args, u"path"), text_of(args, u"role"), bits_of(args, u"setting")));
}

HttpResponse *remove_setting(Call &call, Json *args) {
    return answer_status(
        auth_of(call).RemoveSetting(project(call), text_of(args, u"path"), text_of(args, u"role")));
}

HttpResponse *clear_settings(Call &call, Json *args) {
    return answer_status(auth_of(call).ClearSettings(project(call), text_of(args, u"path")));
}

HttpResponse *list_settings(Call &call, Json *args) {
    return answer_tree([&](Json **list) {
        return auth_of(call).ListSettings(project(call), text_of(args, u"path"), list);
    });
}

HttpResponse *list_role_settings(Call &call, Json *args) {
    return answer_tree([&](Json **list) {
        return auth_of(call).RoleSettings(project(call), text_of(args, u"role"), list);
    });
}

HttpResponse *list_user_settings(Call &call, Json *args) {
    return answer_tree([&](Json **list) {
        return auth_of(call).UserSettings(project(call), text_of(args, u"user"), list);
    });
}

// ---- The copy of a working copy

// What a rights file holds, as the id of a blob; empty for one that can't be read.
std::u16string state_of(const zwchar *directory) {
    zwchar path[Z_PATH_MAX] = {};
    Oid id;
    if (!zPathBuild(path, directory, kRightsFile, nullptr) || !zOidFromFile(&id, path)) return {};
    return id_text(id);
}

// A client without rules has to get some, even where there is no file on either side.
bool is_current(Json *args, const std::u16string &sid1, const std::u16string &sid2) {
    if (sid1.empty() && sid2.empty()) return false;
    return zStrcasesameW(text_of(args, u"sid1"), sid1.c_str()) &&
           zStrcasesameW(text_of(args, u"sid2"), sid2.c_str());
}

int32_t default_of(const Call &call, const zwchar *user) {
    if (zStrcasesameW(user, u"admin")) return kAllRights;
    int32_t setting = 0;
    return auth_of(call).GetDefault(project(call), &setting) == Z_AUTH_DONE ? setting : 0;
}

// The files are hashed before the rules are asked for: a change in between shows the next time.
HttpResponse *update_local_copy(Call &call, Json *args) {
    const zwchar *user = text_of(args, u"user");
    zwchar conf[Z_PATH_MAX] = {};
    const std::u16string sid1 = zPathGetConf(conf) ? state_of(conf) : std::u16string();
    const std::u16string sid2 = state_of(zRepositoryPath(project(call)));
    Tree result(zJsonNew(Z_JSON_OBJECT));
    if (!result || !zJsonPathSetString(result.get(), u"header.user", user) ||
        !zJsonPathSetString(result.get(), u"header.sid1", sid1.c_str()) ||
        !zJsonPathSetString(result.get(), u"header.sid2", sid2.c_str()))
        return nullptr;
    const bool changed = !is_current(args, sid1, sid2);
    if (!zJsonPathSetBool(result.get(), u"settings.changed", changed)) return nullptr;
    if (!changed) return answer_status(Z_AUTH_DONE, std::move(result));
    Json *list = nullptr;
    const int32_t status = auth_of(call).UserSettings(project(call), user, &list);
    Tree rules(list);
    if (status != Z_AUTH_DONE) return answer_status(status);
    Json *settings = zJsonPathGet(result.get(), u"settings");
    if (rules) {
        if (!zJsonObjectPut(settings, u"entries", rules.get())) return nullptr;
        static_cast<void>(rules.release());
    }
    if (!zJsonPathSetInt(settings, u"default", default_of(call, user))) return nullptr;
    return answer_status(status, std::move(result));
}

constexpr Command kCommands[] = {
    {u"role", u"create", u"name", create_role, administrator},
    {u"role", u"delete", u"name", delete_role, administrator},
    {u"role", u"rename", u"name newname", rename_role, administrator},
    {u"role", u"list", u"", list_roles, administrator},
    {u"role", u"add-user", u"name user", add_role_user, administrator},
    {u"role", u"remove-user", u"name user", remove_role_user, administrator},
    {u"role", u"add-group", u"name", add_role_group, administrator},
    {u"role", u"remove-group", u"name", remove_role_group, administrator},
    {u"role", u"member-list", u"name", list_role_members, administrator},
    {u"role", u"member-purge", u"name", purge_role_members, administrator},
    {u"settings", u"set-default", u"", set_default, administrator},
    {u"settings", u"get-default", u"", tell_default, administrator},
    {u"settings", u"add-setting", u"path role", add_setting, administrator},
    {u"settings", u"remove-setting", u"path role", remove_setting, administrator},
    {u"settings", u"clear-settings", u"path", clear_settings, administrator},
    {u"settings", u"list-settings", u"path", list_settings, administrator},
    {u"settings", u"role-settings", u"role", list_role_settings, administrator},
    {u"settings", u"user-settings", u"user", list_user_settings, administrator},
    {u"settings", u"local-db", u"user sid1 sid2", update_local_copy, login},
    {u"directories", u"create", u"path ref", create_directory, administrator},
    {u"directories", u"list", u"ref", list_directories, administrator},
    {u"directories", u"delete", u"path ref", delete_directory, administrator},
    {u"directories", u"rename", u"path ref newname", rename_directory, administrator},
};

} // namespace

const std::span<const Command> kProjectCommands = kCommands;

} // namespace zev::rest
