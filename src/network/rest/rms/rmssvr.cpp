// Users and groups of the whole server. A row is one operation of the module, but for "dis-name",
// which tells a user who proves himself how he is called.
#include "network/rest/access.hpp"
#include "network/rest/rms/rms.hpp"

namespace zev::rest {

namespace {

using enum Need;

// ---- Users

HttpResponse *create_user(Call &call, Json *args) {
    return answer_status(auth_of(call).CreateUser(
        text_of(args, u"login"), text_of(args, u"name"), text_of(args, u"password"),
        text_of(args, u"mail"), flag_of(args, u"power"), flag_of(args, u"lock")));
}

HttpResponse *modify_user(Call &call, Json *args) {
    return answer_status(auth_of(call).ModifyUser(
        text_of(args, u"login"), text_of(args, u"newlogin"), text_of(args, u"name"),
        text_of(args, u"mail"), flag_of(args, u"power"), flag_of(args, u"lock")));
}

HttpResponse *delete_user(Call &call, Json *args) {
    return answer_status(auth_of(call).DeleteUser(text_of(args, u"login")));
}

HttpResponse *reset_password(Call &call, Json *args) {
    return answer_status(
        auth_of(call).ResetPassword(text_of(args, u"login"), text_of(args, u"password")));
}

HttpResponse *tell_user(Call &call, Json *args) {
    return answer_tree(
        [&](Json **info) { return auth_of(call).UserInfo(text_of(args, u"login"), info); });
}

HttpResponse *list_users(Call &call, Json *) { return answer_tree(auth_of(call).UserList); }

using PasswordCheck = int32_t (*)(const zwchar *login, const zwchar *password, bool power);

int32_t look_at_password(Call &call, Json *args, PasswordCheck check, bool power) {
    const zwchar *login = text_of(args, u"login");
    const int32_t status = check(login, text_of(args, u"password"), power);
    count_attempt(call, login, status);
    return status;
}

HttpResponse *log_in(Call &call, Json *args) {
    return answer_status(
        look_at_password(call, args, auth_of(call).Login, flag_of(args, u"power")));
}

HttpResponse *check_user(Call &call, Json *args) {
    return answer_status(
        look_at_password(call, args, auth_of(call).CheckUser, flag_of(args, u"power")));
}

HttpResponse *tell_name(Call &call, Json *args) {
    int32_t status = look_at_password(call, args, auth_of(call).CheckUser, false);
    if (status != Z_AUTH_DONE) return answer_status(status);
    Json *tree = nullptr;
    status = auth_of(call).UserInfo(text_of(args, u"login"), &tree);
    const Tree info(tree);
    if (status != Z_AUTH_DONE || !info) return answer_status(status);
    const zwchar *name = zJsonPathGetString(info.get(), u"user.name");
    Tree result(zJsonNewObject(u"name", zJsonNewString(name), nullptr));
    return result ? answer_status(status, std::move(result)) : nullptr;
}

// ---- Groups

// The id is shown whatever the status, -1 where the module gave none.
template <class F> HttpResponse *answer_id(const zwchar *name, F ask) {
    int32_t id = -1;
    const int32_t status = ask(&id);
    Tree result(zJsonNewObject(name, zJsonNewInt(id), nullptr));
    return result ? answer_status(status, std::move(result)) : nullptr;
}

HttpResponse *create_group(Call &call, Json *args) {
    return answer_id(u"result", [&](int32_t *id) {
        return auth_of(call).CreateGroup(text_of(args, u"name"), number_of(args, u"parent"), id);
    });
}

HttpResponse *find_group(Call &call, Json *args) {
    return answer_id(u"gid", [&](int32_t *id) {
        return auth_of(call).GroupId(number_of(args, u"parent"), text_of(args, u"name"), id);
    });
}

HttpResponse *tell_root_group(Call &call, Json *) {
    return answer_id(u"result", auth_of(call).RootGroup);
}

HttpResponse *tell_group_name(Call &call, Json *args) {
    zwchar *text = nullptr;
    const int32_t status = auth_of(call).GroupName(number_of(args, u"id"), &text);
    const Wide name(text);
    if (status != Z_AUTH_DONE) return answer_status(status);
    Tree result(zJsonNewObject(u"name", zJsonNewString(name.get()), nullptr));
    return result ? answer_status(status, std::move(result)) : nullptr;
}

HttpResponse *delete_group(Call &call, Json *args) {
    return answer_status(auth_of(call).DeleteGroup(number_of(args, u"id")));
}

HttpResponse *rename_group(Call &call, Json *args) {
    return answer_status(auth_of(call).RenameGroup(number_of(args, u"id"), text_of(args, u"name")));
}

HttpResponse *set_group_parent(Call &call, Json *args) {
    return answer_status(
        auth_of(call).SetGroupParent(number_of(args, u"id"), number_of(args, u"parent")));
}

HttpResponse *add_member(Call &call, Json *args) {
    return answer_status(auth_of(call).AddMember(number_of(args, u"id"), text_of(args, u"user")));
}

HttpResponse *remove_member(Call &call, Json *args) {
    return answer_status(
        auth_of(call).RemoveMember(number_of(args, u"id"), text_of(args, u"user")));
}

HttpResponse *list_members(Call &call, Json *args) {
    return answer_tree(
        [&](Json **list) { return auth_of(call).GroupMembers(number_of(args, u"id"), list); });
}

constexpr Command kCommands[] = {
    {u"user", u"create", u"login password", create_user, power},
    {u"user", u"modify", u"login", modify_user, power},
    {u"user", u"delete", u"login", delete_user, power},
    {u"user", u"reset-password", u"login password", reset_password, login},
    {u"user", u"get-info", u"login", tell_user, login},
    {u"user", u"dis-name", u"login password", tell_name, nobody},
    {u"user", u"list", u"", list_users, power},
    {u"user", u"login", u"login password", log_in, nobody},
    {u"user", u"check", u"login password", check_user, nobody},
    {u"group", u"create", u"name", create_group, power},
    {u"group", u"get", u"name", find_group, power},
    {u"group", u"get-name", u"", tell_group_name, power},
    {u"group", u"delete", u"", delete_group, power},
    {u"group", u"get-root", u"", tell_root_group, power},
    {u"group", u"rename", u"id name", rename_group, power},
    {u"group", u"set-parent", u"id", set_group_parent, power},
    {u"group", u"add-member", u"id user", add_member, power},
    {u"group", u"rem-member", u"id user", remove_member, power},
    {u"group", u"member-list", u"id", list_members, power},
};

} // namespace

const std::span<const Command> kServerCommands = kCommands;

} // namespace zev::rest
