// An authentication module that knows nobody: it notes what it is asked, with the arguments, and
// gives the status that the test wants. Results are the same each time.
#pragma once

#include "support.hpp"

#include <cstdlib>

namespace test {

namespace fake {

inline std::string asked;    // "CreateRole(name)", the last one
inline int32_t status = 100; // of every operation

struct Name {
    template <size_t size> consteval Name(const char (&name)[size]) {
        std::copy_n(name, size, text);
    }
    char text[24] = {};
};

inline void note(const zwchar *text) { asked += narrow(text) + ","; }
inline void note(int32_t number) { asked += std::to_string(number) + ","; }
inline void note(bool flag) { asked += flag ? "true," : "false,"; }
inline void note(Repository *repository) { asked += narrow(zRepositoryName(repository)) + ","; }
inline void note(Json **out) {
    const bool is_list = asked.starts_with("RoleList"); // which the server itself reads
    if (status == 100) *out = zJsonReadTextual(is_list ? u"[]" : uR"({"user":{"name":"Ann"}})");
}
inline void note(int32_t *out) {
    if (status == 100) *out = 7;
}
inline void note(zwchar **out) {
    if (status == 100) *out = zStrdupW(u"guests");
}

// What fills a slot of any form, by its name.
template <Name name> struct Slot {
    template <class... Arguments> using Form = int32_t (*)(Arguments...);
    template <class... Arguments> operator Form<Arguments...>() const {
        return [](Arguments... arguments) -> int32_t {
            asked = std::string(name.text) + "(";
            (note(arguments), ...);
            if (asked.back() == ',') asked.pop_back();
            asked += ")";
            return status;
        };
    }
};

inline AuthTable table = {nullptr,
                          Slot<"CreateUser">{},
                          Slot<"ModifyUser">{},
                          Slot<"DeleteUser">{},
                          Slot<"ResetPassword">{},
                          Slot<"UserInfo">{},
                          Slot<"UserList">{},
                          Slot<"Login">{},
                          Slot<"CheckUser">{},
                          Slot<"CreateGroup">{},
                          Slot<"GroupId">{},
                          Slot<"GroupName">{},
                          Slot<"DeleteGroup">{},
                          Slot<"RootGroup">{},
                          Slot<"RenameGroup">{},
                          Slot<"SetGroupParent">{},
                          Slot<"AddMember">{},
                          Slot<"RemoveMember">{},
                          Slot<"GroupMembers">{},
                          Slot<"CreateRole">{},
                          Slot<"DeleteRole">{},
                          Slot<"RenameRole">{},
                          Slot<"RoleList">{},
                          Slot<"RoleAddUser">{},
                          Slot<"RoleRemoveUser">{},
                          Slot<"RoleAddGroup">{},
                          Slot<"RoleRemoveGroup">{},
                          Slot<"RoleMembers">{},
                          Slot<"SetDefault">{},
                          Slot<"GetDefault">{},
                          Slot<"AddSetting">{},
                          Slot<"RemoveSetting">{},
                          Slot<"ClearSettings">{},
                          Slot<"ListSettings">{},
                          Slot<"RoleSettings">{},
                          Slot<"PurgeRoleMembers">{},
                          Slot<"UserSettings">{}};

} // namespace fake

} // namespace test
