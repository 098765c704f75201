// What each call of an administrator is on the server: the operation that it reaches, with which
// arguments, and what comes back of its result.
#include "fake_module.hpp"
#include "service_fixture.hpp"

namespace fake = test::fake;
using test::guard, test::narrow, test::wide;

namespace {

// A pointer of one kind or another that a call fills, as text; "untouched" before.
struct Outs {
    Json *tree = nullptr;
    zwchar *text = nullptr;
    int32_t number = -77;

    ~Outs() { zJsonFree(tree), zStrfreeW(text); }
    std::string shown() const {
        if (text) return narrow(text);
        if (number != -77) return std::to_string(number);
        if (!tree) return "untouched";
        return narrow(guard(zJsonWriteTextual(tree), zStrfreeW).get());
    }
};

struct Row {
    const char *asked; // of the module
    const char *result;
    int32_t (*call)(Admin *admin, Outs &outs);
    const char *failed = "untouched"; // the result beside another status
};

const zwchar *const kOwner = u"ann", *const kName = u"house";
constexpr const char *kTree = R"({"user":{"name":"Ann"}})";

const Row kRows[] = {
    {"CreateUser(anna,Anna Lind,,A@x,true,false)", "",
     [](Admin *a, Outs &) {
         return zAdminCreateUser(a, u"ANNA", u"Anna Lind", u"password", u"A@x", true, false);
     }},
    {"CreateUser(anna,-,,-,false,true)", "",
     [](Admin *a, Outs &) {
         return zAdminCreateUser(a, u"anna", nullptr, u"password", nullptr, false, true);
     }},
    {"ModifyUser(anna,-,-,-,true,true)", "",
     [](Admin *a, Outs &) {
         return zAdminModifyUser(a, u"anna", nullptr, nullptr, nullptr, true, true);
     }},
    {"ModifyUser(anna,eva,Eva,E@x,false,false)", "",
     [](Admin *a, Outs &) {
         return zAdminModifyUser(a, u"anna", u"Eva", u"Eva", u"E@x", false, false);
     }},
    {"DeleteUser(eva)", "", [](Admin *a, Outs &) { return zAdminDeleteUser(a, u"EVA"); }},
    {"ResetPassword(eva,)", "",
     [](Admin *a, Outs &) { return zAdminResetPassword(a, u"eva", u"password"); }},
    {"UserInfo(eva)", kTree,
     [](Admin *a, Outs &o) { return zAdminGetUserInfo(a, u"Eva", &o.tree); }},
    {"UserList()", kTree, [](Admin *a, Outs &o) { return zAdminUserList(a, &o.tree); }},

    {"CreateGroup(site,3)", "7",
     [](Admin *a, Outs &o) { return zAdminCreateGroup(a, u"Site", 3, &o.number); }, "-1"},
    {"CreateGroup(site,3)", "",
     [](Admin *a, Outs &) { return zAdminCreateGroup(a, u"site", 3, nullptr); }},
    {"GroupId(3,site)", "7",
     [](Admin *a, Outs &o) { return zAdminGetGroupId(a, 3, u"SITE", &o.number); }, "-1"},
    {"GroupName(3)", "guests", [](Admin *a, Outs &o) { return zAdminGetGroupName(a, 3, &o.text); }},
    {"DeleteGroup(-1)", "", [](Admin *a, Outs &) { return zAdminDeleteGroup(a, -1); }},
    {"RootGroup()", "7", [](Admin *a, Outs &o) { return zAdminGetRootGroup(a, &o.number); }},
    {"RenameGroup(3,yard)", "", [](Admin *a, Outs &) { return zAdminRenameGroup(a, 3, u"Yard"); }},
    {"SetGroupParent(3,2)", "", [](Admin *a, Outs &) { return zAdminSetGroupOwner(a, 3, 2); }},
    {"AddMember(3,eva)", "", [](Admin *a, Outs &) { return zAdminGroupAddUser(a, 3, u"Eva"); }},
    {"RemoveMember(3,eva)", "",
     [](Admin *a, Outs &) { return zAdminGroupRemoveUser(a, 3, u"Eva"); }},
    {"GroupMembers(3)", kTree, [](Admin *a, Outs &o) { return zAdminGroupMembers(a, 3, &o.tree); }},

    {"CreateRole(house,r)", "",
     [](Admin *a, Outs &) { return zAdminCreateRole(a, kOwner, kName, u"R"); }},
    {"DeleteRole(house,r)", "",
     [](Admin *a, Outs &) { return zAdminDeleteRole(a, kOwner, kName, u"R"); }},
    {"RenameRole(house,r,s)", "",
     [](Admin *a, Outs &) { return zAdminRenameRole(a, kOwner, kName, u"R", u"S"); }},
    {"RoleList(house)", kTree,
     [](Admin *a, Outs &o) { return zAdminRoleList(a, kOwner, kName, &o.tree); }},
    {"RoleAddUser(house,r,eva)", "",
     [](Admin *a, Outs &) { return zAdminRoleAddUser(a, kOwner, kName, u"R", u"Eva"); }},
    {"RoleRemoveUser(house,r,eva)", "",
     [](Admin *a, Outs &) { return zAdminRoleRemoveUser(a, kOwner, kName, u"R", u"Eva"); }},
    {"RoleAddGroup(house,r,3)", "",
     [](Admin *a, Outs &) { return zAdminRoleAddGroup(a, kOwner, kName, u"R", 3); }},
    {"RoleRemoveGroup(house,r,3)", "",
     [](Admin *a, Outs &) { return zAdminRoleRemoveGroup(a, kOwner, kName, u"R", 3); }},
    {"RoleMembers(house,r)", kTree,
     [](Admin *a, Outs &o) { return zAdminRoleMembers(a, kOwner, kName, u"R", &o.tree); }},
    {"PurgeRoleMembers(house,r)", "",
     [](Admin *a, Outs &) { return zAdminRoleMembersPurge(a, kOwner, kName, u"R"); }},

    {"SetDefault(house,48)", "",
     [](Admin *a, Outs &) { return zAdminSetDefaultPrivilege(a, kOwner, kName, 48); }},
    {"GetDefault(house)", "7",
     [](Admin *a, Outs &o) { return zAdminDefaultPrivilege(a, kOwner, kName, &o.number); }},
    {"AddSetting(house,Docs,r,16)", "",
     [](Admin *a, Outs &) { return zAdminSetPrivilege(a, kOwner, kName, u"Docs", u"R", 16); }},
    {"RemoveSetting(house,Docs,r)", "",
     [](Admin *a, Outs &) { return zAdminRemovePrivilege(a, kOwner, kName, u"Docs", u"R"); }},
    {"ClearSettings(house,Docs)", "",
     [](Admin *a, Outs &) { return zAdminClearPrivilege(a, kOwner, kName, u"Docs"); }},
    {"ListSettings(house,Docs)", kTree,
     [](Admin *a, Outs &o) { return zAdminPrivilegeList(a, kOwner, kName, u"Docs", &o.tree); }},
    {"RoleSettings(house,r)", kTree,
     [](Admin *a, Outs &o) { return zAdminRolePrivileges(a, kOwner, kName, u"R", &o.tree); }},
    {"UserSettings(house,eva)", kTree,
     [](Admin *a, Outs &o) { return zAdminUserPrivileges(a, kOwner, kName, u"Eva", &o.tree); }},
};

// The expected call, in which "" stands for the wire form of the password "password".
std::string expected(std::string asked) {
    const std::string form = "e8f97fba9104d1ea5047948e6dfb67facd9f5b73";
    for (size_t at; (at = asked.find(",,")) != asked.npos;) asked.insert(at + 1, form);
    if (asked.ends_with(",)")) asked.insert(asked.size() - 1, form);
    return asked;
}

class AdminCalls : public testing::Test {
  protected:
    test::Service service{u"none", &fake::table};
    std::u16string url = wide(service.url());

    void SetUp() override {
        fake::status = 100;
        make_project(service, "ann/house");
    }
};

TEST_F(AdminCalls, EachReachesItsOperation) {
    Admin *session = nullptr;
    ASSERT_EQ(zAdminLoginRms(url.c_str(), u"Root", u"password", false, true, &session), 100);
    const auto admin = guard(session, zAdminLogoutRms);
    EXPECT_EQ(fake::asked, expected("Login(root,,true)"));
    for (const Row &row : kRows) {
        fake::status = 100;
        Outs done, refused;
        EXPECT_EQ(row.call(admin.get(), done), 100) << row.asked;
        EXPECT_EQ(fake::asked, expected(row.asked));
        EXPECT_EQ(done.shown(), *row.result ? row.result : "untouched") << row.asked;
        fake::status = 104; // which comes as HTTP 500
        EXPECT_EQ(row.call(admin.get(), refused), 104) << row.asked;
        EXPECT_EQ(refused.shown(), row.failed) << row.asked;
        fake::asked.clear();
        Outs none;
        EXPECT_EQ(row.call(nullptr, none), 101) << row.asked;
        EXPECT_EQ(none.shown() + fake::asked, "untouched") << row.asked;
    }
}

TEST_F(AdminCalls, SessionsProveThemselves) {
    const std::u16string form = u"E8f97fba9104d1ea5047948e6dfb67facd9f5b73", longer = form + u"0";
    Admin *session = nullptr;
    zwchar *name = nullptr;
    EXPECT_EQ(zAdminCheckUser(url.c_str(), u"Eva", u"password", false, false), 100);
    EXPECT_EQ(fake::asked, expected("CheckUser(eva,,false)"));
    EXPECT_EQ(zAdminLogin(url.c_str(), u"Eva", form.c_str(), true, true), 100);
    EXPECT_EQ(fake::asked, "Login(eva," + narrow(form.c_str()) + ",true)");
    EXPECT_EQ(zAdminLogin(url.c_str(), u"eva", longer.c_str(), true, true), 101); // is no such form
    EXPECT_EQ(zAdminGetUserName(url.c_str(), u"Eva", u"as given", &name), 100);
    EXPECT_EQ(fake::asked, "UserInfo(eva)");
    EXPECT_EQ(narrow(guard(name, zStrfreeW).get()), "Ann");
    fake::status = 105;
    EXPECT_EQ(zAdminLoginRms(url.c_str(), u"eva", u"password", false, false, &session), 105);
    EXPECT_FALSE(session);
}

// What the service itself refuses has no status, and its text is the reason.
TEST_F(AdminCalls, RefusalsOfTheServiceAreToldApart) {
    Admin *session = nullptr;
    ASSERT_EQ(zAdminLoginRms(url.c_str(), u"eva", u"password", false, false, &session), 100);
    const auto admin = guard(session, zAdminLogoutRms);
    EXPECT_EQ(zAdminCreateRole(admin.get(), u"ann", u"none", u"r"), 0); // HTTP 404
    EXPECT_TRUE(zErrorClass() == 15 && zErrorCode() == 404);
    EXPECT_NE(narrow(zErrorReason()).find("There is no project 'none'"), std::string::npos);
    EXPECT_EQ(zAdminRenameGroup(admin.get(), -1, u"g"), 107); // HTTP 400
    EXPECT_TRUE(zErrorClass() == 15 && zErrorCode() == 400);
    service.server().head.auth = nullptr;
    Json *list = nullptr;
    EXPECT_EQ(zAdminUserList(admin.get(), &list), 0); // HTTP 500 without a status
    EXPECT_FALSE(list);
}

} // namespace
