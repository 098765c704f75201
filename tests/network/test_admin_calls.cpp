// What calls of an administrator are on the server: the operation that they reach, with which
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
    {"ModifyUser(anna,eva,Eva,E@x,false,false)", "",
     [](Admin *a, Outs &) {
         return zAdminModifyUser(a, u"anna", u"Eva", u"Eva", u"E@x", false, false);
     }},
    {"UserInfo(eva)", kTree,
     [](Admin *a, Outs &o) { return zAdminGetUserInfo(a, u"Eva", &o.tree); }},
    {"CreateGroup(site,3)", "7",
     [](Admin *a, Outs &o) { return zAdminCreateGroup(a, u"Site", 3, &o.number); }, "-1"},
    {"GroupName(3)", "guests", [](Admin *a, Outs &o) { return zAdminGetGroupName(a, 3, &o.text); }},
    {"SetGroupParent(3,2)", "", [](Admin *a, Outs &) { return zAdminSetGroupOwner(a, 3, 2); }},
    {"RemoveMember(3,eva)", "",
     [](Admin *a, Outs &) { return zAdminGroupRemoveUser(a, 3, u"Eva"); }},
    {"RoleRemoveGroup(house,r,3)", "",
     [](Admin *a, Outs &) { return zAdminRoleRemoveGroup(a, kOwner, kName, u"R", 3); }},
    {"AddSetting(house,Docs,r,16)", "",
     [](Admin *a, Outs &) { return zAdminSetPrivilege(a, kOwner, kName, u"Docs", u"R", 16); }},
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
