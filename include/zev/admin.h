// Admin: the client of a server's rights: its projects, users, groups, roles and the rights of
// paths. Each call is one request, answered before it returns, and nothing is shown or told.
//
// Most give a status (zev/auth.h), Z_AUTH_DONE for success. Of their own:
//   Z_AUTH_BAD_ARGUMENT  an argument is missing, a text has more than 511 units, an owner or
//                        project is none that zSNValid lets through, the URL is too long: class 2,
//                        logged
//   Z_AUTH_BAD_NAME      a login, or the name of a group or role: 1 to 64 units are valid, none of
//                        < > / \ " : ; ? * | , = ` @ & # $ ^ ~ % blank, tab and line ends
//   Z_AUTH_OWN_LOGIN     to delete oneself
//   Z_AUTH_NO_ANSWER     from the server, or it didn't understand (HTTP 400)
//   0                    the answer had no status
// In these cases no request was sent, but for the last two, which leave class 15 with the HTTP code
// and the server's text, -1 for an answer that is none, or what the transport raised. Logins and
// names of users, groups and roles go out in lower case.
//
// An `out` is written on success alone, unless told otherwise: a tree is the caller's (zJsonFree),
// a text too (zStrfreeW).
#ifndef ZEV_ADMIN_H
#define ZEV_ADMIN_H

#include "zev/auth.h"

ZEV_BEGIN

// ---- Sessions. `url` is the server's, as "http://plant:3001". A password goes out in its wire
// form (zev/login.h); with `hashed` it already has that form, 40 units at most, and goes as it is.

// Whether the account is good, and with `power` whether it may administer the server. Login is the
// act of logging in, CheckUser only asks.
ZEV_API int32_t zAdminLogin(const zwchar *url, const zwchar *login, const zwchar *password,
                            bool hashed, bool power);
ZEV_API int32_t zAdminCheckUser(const zwchar *url, const zwchar *login, const zwchar *password,
                                bool hashed, bool power);
// As zAdminLogin, and a session for all that follows. It belongs to one thread.
ZEV_API int32_t zAdminLoginRms(const zwchar *url, const zwchar *login, const zwchar *password,
                               bool hashed, bool power, Admin **admin);
ZEV_API void zAdminLogoutRms(Admin *admin); // accepts null
// How the user is called; the password in its wire form.
ZEV_API int32_t zAdminGetUserName(const zwchar *url, const zwchar *login, const zwchar *password,
                                  zwchar **name);

// ---- Projects. False for what the server refuses, with class 15, the HTTP code and its text.
ZEV_API bool zAdminCreateRepo(Admin *admin, const zwchar *owner, const zwchar *name);
// With the content and the rights of another project.
ZEV_API bool zAdminCloneRepo(Admin *admin, const zwchar *owner, const zwchar *name,
                             const zwchar *tmpl_owner, const zwchar *tmpl_name);
ZEV_API bool zAdminDestroyRepo(Admin *admin, const zwchar *owner, const zwchar *name);
ZEV_API bool zAdminRenameRepo(Admin *admin, const zwchar *owner, const zwchar *name,
                              const zwchar *newname);
// An array of {owner, name, id, type, url}.
ZEV_API bool zAdminListRepo(Admin *admin, Json **entries);

// ---- Directories of a project, each change a commit on the branch `ref`, null for HEAD. The list
// is an array of paths; a project without any leaves `result` alone, which is no failure.
ZEV_API bool zAdminRepoDirectories(Admin *admin, const zwchar *owner, const zwchar *name,
                                   const zwchar *ref, Json **result);
ZEV_API bool zAdminRepoCreateDir(Admin *admin, const zwchar *owner, const zwchar *name,
                                 const zwchar *ref, const zwchar *path);
ZEV_API bool zAdminRepoDeleteDir(Admin *admin, const zwchar *owner, const zwchar *name,
                                 const zwchar *ref, const zwchar *path);
// `newname` is a name, beside the directory's own place.
ZEV_API bool zAdminRepoRenameDir(Admin *admin, const zwchar *owner, const zwchar *name,
                                 const zwchar *ref, const zwchar *path, const zwchar *newname);

// ---- Users. `name`, the one that is shown, `mail` and `newlogin` may be null: none, or as it was.
// Passwords as they are typed.
ZEV_API int32_t zAdminCreateUser(Admin *admin, const zwchar *login, const zwchar *name,
                                 const zwchar *password, const zwchar *mail, bool power, bool lock);
ZEV_API int32_t zAdminModifyUser(Admin *admin, const zwchar *login, const zwchar *newlogin,
                                 const zwchar *name, const zwchar *mail, bool power, bool lock);
ZEV_API int32_t zAdminDeleteUser(Admin *admin, const zwchar *login);
ZEV_API int32_t zAdminResetPassword(Admin *admin, const zwchar *login, const zwchar *password);
// {user: {login, name, mail, power, lock}}, and an array of these.
ZEV_API int32_t zAdminGetUserInfo(Admin *admin, const zwchar *login, Json **result);
ZEV_API int32_t zAdminUserList(Admin *admin, Json **result);

// ---- Groups, a tree below one root. The `id` of the first two may be null; it is written
// whenever the answer has one, -1 for none.
ZEV_API int32_t zAdminCreateGroup(Admin *admin, const zwchar *name, int32_t parent, int32_t *id);
ZEV_API int32_t zAdminGetGroupId(Admin *admin, int32_t parent, const zwchar *name, int32_t *id);
ZEV_API int32_t zAdminGetGroupName(Admin *admin, int32_t id, zwchar **name);
ZEV_API int32_t zAdminDeleteGroup(Admin *admin, int32_t id);
ZEV_API int32_t zAdminGetRootGroup(Admin *admin, int32_t *id);
ZEV_API int32_t zAdminRenameGroup(Admin *admin, int32_t id, const zwchar *name);
ZEV_API int32_t zAdminSetGroupOwner(Admin *admin, int32_t id, int32_t parent);
ZEV_API int32_t zAdminGroupAddUser(Admin *admin, int32_t id, const zwchar *user);
ZEV_API int32_t zAdminGroupRemoveUser(Admin *admin, int32_t id, const zwchar *user);
// [{isgroup, id or username, name}], the groups directly below it too.
ZEV_API int32_t zAdminGroupMembers(Admin *admin, int32_t id, Json **result);

// ---- Roles of the project owner/repository
ZEV_API int32_t zAdminCreateRole(Admin *admin, const zwchar *owner, const zwchar *repository,
                                 const zwchar *name);
ZEV_API int32_t zAdminDeleteRole(Admin *admin, const zwchar *owner, const zwchar *repository,
                                 const zwchar *name);
ZEV_API int32_t zAdminRenameRole(Admin *admin, const zwchar *owner, const zwchar *repository,
                                 const zwchar *name, const zwchar *newname);
ZEV_API int32_t zAdminRoleList(Admin *admin, const zwchar *owner, const zwchar *repository,
                               Json **result); // [{name}]
ZEV_API int32_t zAdminRoleAddUser(Admin *admin, const zwchar *owner, const zwchar *repository,
                                  const zwchar *name, const zwchar *user);
ZEV_API int32_t zAdminRoleRemoveUser(Admin *admin, const zwchar *owner, const zwchar *repository,
                                     const zwchar *name, const zwchar *user);
ZEV_API int32_t zAdminRoleAddGroup(Admin *admin, const zwchar *owner, const zwchar *repository,
                                   const zwchar *name, int32_t id);
ZEV_API int32_t zAdminRoleRemoveGroup(Admin *admin, const zwchar *owner, const zwchar *repository,
                                      const zwchar *name, int32_t id);
ZEV_API int32_t zAdminRoleMembers(Admin *admin, const zwchar *owner, const zwchar *repository,
                                  const zwchar *name, Json **result); // as of a group
ZEV_API int32_t zAdminRoleMembersPurge(Admin *admin, const zwchar *owner, const zwchar *repository,
                                       const zwchar *name);

// ---- Rights of its paths, in bits. Lists: [{setting: {path, privilege, role}}].
ZEV_API int32_t zAdminSetDefaultPrivilege(Admin *admin, const zwchar *owner,
                                          const zwchar *repository, int32_t setting);
ZEV_API int32_t zAdminDefaultPrivilege(Admin *admin, const zwchar *owner, const zwchar *repository,
                                       int32_t *setting);
ZEV_API int32_t zAdminSetPrivilege(Admin *admin, const zwchar *owner, const zwchar *repository,
                                   const zwchar *path, const zwchar *role, int32_t setting);
ZEV_API int32_t zAdminRemovePrivilege(Admin *admin, const zwchar *owner, const zwchar *repository,
                                      const zwchar *path, const zwchar *role);
ZEV_API int32_t zAdminClearPrivilege(Admin *admin, const zwchar *owner, const zwchar *repository,
                                     const zwchar *path);
ZEV_API int32_t zAdminPrivilegeList(Admin *admin, const zwchar *owner, const zwchar *repository,
                                    const zwchar *path, Json **result);
ZEV_API int32_t zAdminRolePrivileges(Admin *admin, const zwchar *owner, const zwchar *repository,
                                     const zwchar *role, Json **result);
ZEV_API int32_t zAdminUserPrivileges(Admin *admin, const zwchar *owner, const zwchar *repository,
                                     const zwchar *user, Json **result); // without role

// ---- On a server: the bits that the request's user has on a path of the repository, by the rule
// of the path itself or of the nearest directory above it, else the repository's default. 1, which
// is no right, where nothing says anything; 0 for a user who can't prove who he is, and, class 2,
// logged, without a running server.
ZEV_API int32_t zAdminGetPrivilege(HttpRequest *request, Repository *repository,
                                   const zwchar *path);

ZEV_END
#endif
