// The operations of the module's table, a file a family. Each gives a status; null for an argument
// that is needed is Z_AUTH_BAD_ARGUMENT. What they throw, for lack of memory, is caught around
// them.
#pragma once

#include "records.hpp"
#include "zev/auth.h"

#include <cstdint>

namespace zevauth {

int32_t create_user(const zwchar *login, const zwchar *name, const zwchar *password,
                    const zwchar *mail, bool power, bool lock);
int32_t modify_user(const zwchar *login, const zwchar *newlogin, const zwchar *name,
                    const zwchar *mail, bool power, bool lock);
int32_t delete_user(const zwchar *login);
int32_t reset_password(const zwchar *login, const zwchar *password);
int32_t user_info(const zwchar *login, Json **info);
int32_t user_list(Json **list);
int32_t check_user(const zwchar *login, const zwchar *password, bool power);

int32_t create_group(const zwchar *name, int32_t parent, int32_t *id);
int32_t group_id(int32_t parent, const zwchar *name, int32_t *id);
int32_t group_name(int32_t id, zwchar **name);
int32_t delete_group(int32_t id);
int32_t root_group(int32_t *id);
int32_t rename_group(int32_t id, const zwchar *name);
int32_t set_group_parent(int32_t id, int32_t parent);
int32_t add_member(int32_t id, const zwchar *user);
int32_t remove_member(int32_t id, const zwchar *user);
int32_t group_members(int32_t id, Json **members);

int32_t create_role(Repository *repo, const zwchar *name);
int32_t delete_role(Repository *repo, const zwchar *name);
int32_t rename_role(Repository *repo, const zwchar *name, const zwchar *newname);
int32_t role_list(Repository *repo, Json **list);
int32_t role_add_user(Repository *repo, const zwchar *name, const zwchar *user);
int32_t role_remove_user(Repository *repo, const zwchar *name, const zwchar *user);
int32_t role_add_group(Repository *repo, const zwchar *name, int32_t id);
int32_t role_remove_group(Repository *repo, const zwchar *name, int32_t id);
int32_t role_members(Repository *repo, const zwchar *name, Json **members);
int32_t purge_role_members(Repository *repo, const zwchar *name);

int32_t set_default(Repository *repo, int32_t setting);
int32_t get_default(Repository *repo, int32_t *setting);
int32_t add_setting(Repository *repo, const zwchar *path, const zwchar *role, int32_t setting);
int32_t remove_setting(Repository *repo, const zwchar *path, const zwchar *role);
int32_t clear_settings(Repository *repo, const zwchar *path);
int32_t list_settings(Repository *repo, const zwchar *path, Json **list);
int32_t role_settings(Repository *repo, const zwchar *role, Json **list);
int32_t user_settings(Repository *repo, const zwchar *user, Json **list);

// Elements of lists of members.
Tree member_tree(const User &user);
Tree member_tree(const Group &group);

} // namespace zevauth
