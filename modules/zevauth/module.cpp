// The module's one symbol: fills the table that the library hands over.
#include "operations.hpp"
#include "store.hpp"

#include "zev/log.h"

namespace {

// An operation as the table takes it: what runs out below it, memory above all, is a failure of
// the store, and no exception leaves it.
template <auto Operation> struct Slot;
template <class... Arguments, int32_t (*Operation)(Arguments...)> struct Slot<Operation> {
    static int32_t call(Arguments... arguments) noexcept {
        try {
            return Operation(arguments...);
        } catch (...) {
            zLogReport(__FILE__, __LINE__, 2, 5, u"rights can't be looked at: out of memory");
            return Z_AUTH_STORE_FAILED;
        }
    }
};

} // namespace

// True when there is a store to work on; without one every operation tells so.
extern "C" ZEV_API int32_t zAuthSvrInit(AuthTable *table) {
    using namespace zevauth;
    if (!table) return false;
    table->CreateUser = Slot<create_user>::call;
    table->ModifyUser = Slot<modify_user>::call;
    table->DeleteUser = Slot<delete_user>::call;
    table->ResetPassword = Slot<reset_password>::call;
    table->UserInfo = Slot<user_info>::call;
    table->UserList = Slot<user_list>::call;
    table->Login = Slot<check_user>::call;
    table->CheckUser = Slot<check_user>::call;
    table->CreateGroup = Slot<create_group>::call;
    table->GroupId = Slot<group_id>::call;
    table->GroupName = Slot<group_name>::call;
    table->DeleteGroup = Slot<delete_group>::call;
    table->RootGroup = Slot<root_group>::call;
    table->RenameGroup = Slot<rename_group>::call;
    table->SetGroupParent = Slot<set_group_parent>::call;
    table->AddMember = Slot<add_member>::call;
    table->RemoveMember = Slot<remove_member>::call;
    table->GroupMembers = Slot<group_members>::call;
    table->CreateRole = Slot<create_role>::call;
    table->DeleteRole = Slot<delete_role>::call;
    table->RenameRole = Slot<rename_role>::call;
    table->RoleList = Slot<role_list>::call;
    table->RoleAddUser = Slot<role_add_user>::call;
    table->RoleRemoveUser = Slot<role_remove_user>::call;
    table->RoleAddGroup = Slot<role_add_group>::call;
    table->RoleRemoveGroup = Slot<role_remove_group>::call;
    table->RoleMembers = Slot<role_members>::call;
    table->SetDefault = Slot<set_default>::call;
    table->GetDefault = Slot<get_default>::call;
    table->AddSetting = Slot<add_setting>::call;
    table->RemoveSetting = Slot<remove_setting>::call;
    table->ClearSettings = Slot<clear_settings>::call;
    table->ListSettings = Slot<list_settings>::call;
    table->RoleSettings = Slot<role_settings>::call;
    table->PurgeRoleMembers = Slot<purge_role_members>::call;
    table->UserSettings = Slot<user_settings>::call;
    try {
        return prepare_store();
    } catch (...) {
        return false;
    }
}
