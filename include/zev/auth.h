// AuthTable: what a server asks of its authentication module, a shared object beside the library
// that holds users, groups, roles and the rights of paths.
#ifndef ZEV_AUTH_H
#define ZEV_AUTH_H

#include "zev/base.h"

ZEV_BEGIN

// Bits of a privilege.
enum { Z_PRIVILEGE_READ = 0x10, Z_PRIVILEGE_WRITE = 0x20, Z_PRIVILEGE_EXPORT = 0x40 };

// What every operation gives. 102, 106 and 107 are also made by the client itself.
enum {
    Z_AUTH_DONE = 100,
    Z_AUTH_BAD_ARGUMENT = 101,
    Z_AUTH_OWN_LOGIN = 102, // a user can't delete himself
    Z_AUTH_NOT_FOUND = 103, // no such user, group, role or setting
    Z_AUTH_EXISTS = 104,
    Z_AUTH_WRONG_PASSWORD = 105, // or no such user: not told apart
    Z_AUTH_BAD_NAME = 106,
    Z_AUTH_NO_ANSWER = 107,
    Z_AUTH_POWER_NEEDED = 108,
    Z_AUTH_LOCKED = 109,
    Z_AUTH_STORE_FAILED = 110,
    Z_AUTH_IN_USE = 111 // a group with children, or one that would become its own parent
};

// Filled by the module, in this order. Passwords come in their wire form, 40 hexadecimal digits.
// An `out` is written on success alone: trees go back through zJsonFree, texts through free.
//
// Logins, and names of groups and roles, are 1 to 64 units of what the rule of names lets through;
// they and paths compare without regard to case. What is added twice is done, what is taken away
// and isn't there is Z_AUTH_NOT_FOUND. "admin" and the last user with power stay
// (Z_AUTH_POWER_NEEDED); so does the root group (Z_AUTH_BAD_ARGUMENT).
typedef struct AuthTable {
    void *module; // the handle of the loaded module

    int32_t (*CreateUser)(const zwchar *login, const zwchar *name, const zwchar *password,
                          const zwchar *mail, bool power, bool lock);
    int32_t (*ModifyUser)(const zwchar *login, const zwchar *newlogin, const zwchar *name,
                          const zwchar *mail, bool power, bool lock);
    int32_t (*DeleteUser)(const zwchar *login);
    int32_t (*ResetPassword)(const zwchar *login, const zwchar *password);
    // {user: {login, name, mail, power, lock}}, and an array of these.
    int32_t (*UserInfo)(const zwchar *login, Json **info);
    int32_t (*UserList)(Json **list);
    // The password is judged first, then lock and power. One who never had a password is locked.
    int32_t (*Login)(const zwchar *login, const zwchar *password, bool power);
    int32_t (*CheckUser)(const zwchar *login, const zwchar *password, bool power);

    int32_t (*CreateGroup)(const zwchar *name, int32_t parent, int32_t *id);
    int32_t (*GroupId)(int32_t parent, const zwchar *name, int32_t *id);
    int32_t (*GroupName)(int32_t id, zwchar **name);
    int32_t (*DeleteGroup)(int32_t id);
    int32_t (*RootGroup)(int32_t *id);
    int32_t (*RenameGroup)(int32_t id, const zwchar *name);
    int32_t (*SetGroupParent)(int32_t id, int32_t parent);
    int32_t (*AddMember)(int32_t id, const zwchar *user);
    int32_t (*RemoveMember)(int32_t id, const zwchar *user);
    int32_t (*GroupMembers)(int32_t id, Json **members); // [{isgroup, id or username, name}]

    int32_t (*CreateRole)(Repository *repo, const zwchar *name);
    int32_t (*DeleteRole)(Repository *repo, const zwchar *name);
    int32_t (*RenameRole)(Repository *repo, const zwchar *name, const zwchar *newname);
    int32_t (*RoleList)(Repository *repo, Json **list); // [{name}]; the server reads it, too
    int32_t (*RoleAddUser)(Repository *repo, const zwchar *name, const zwchar *user);
    int32_t (*RoleRemoveUser)(Repository *repo, const zwchar *name, const zwchar *user);
    int32_t (*RoleAddGroup)(Repository *repo, const zwchar *name, int32_t id);
    int32_t (*RoleRemoveGroup)(Repository *repo, const zwchar *name, int32_t id);
    int32_t (*RoleMembers)(Repository *repo, const zwchar *name, Json **members); // as of a group

    // Bits other than the three don't count. Lists: [{setting: {path, privilege, role}}]; of
    // RoleSettings the server reads path and privilege of each element, which have to be there.
    int32_t (*SetDefault)(Repository *repo, int32_t setting);
    int32_t (*GetDefault)(Repository *repo, int32_t *setting);
    int32_t (*AddSetting)(Repository *repo, const zwchar *path, const zwchar *role,
                          int32_t setting);
    int32_t (*RemoveSetting)(Repository *repo, const zwchar *path, const zwchar *role);
    int32_t (*ClearSettings)(Repository *repo, const zwchar *path);
    int32_t (*ListSettings)(Repository *repo, const zwchar *path, Json **list);
    int32_t (*RoleSettings)(Repository *repo, const zwchar *role, Json **list);

    // All of them.
    int32_t (*PurgeRoleMembers)(Repository *repo, const zwchar *name);
    // [{setting: {path, privilege}}]: the rules of the user's roles, one element a path.
    int32_t (*UserSettings)(Repository *repo, const zwchar *user, Json **list);
} AuthTable;

// Loads libzevauth.so from the library's directory and lets it fill a table. Null, logged, when it
// can't be loaded or leaves an operation out.
ZEV_API AuthTable *zAuthServerStart(void);
// Lets the module go, and frees the table; null is accepted.
ZEV_API void zAuthServerShutdown(AuthTable *table);

ZEV_END
#endif
