// What calls of an administrator are on the server where it refuses: what comes back of a result,
// and how a session proves itself. The calls that are done are played by tests/admin.py.
#include "fake_module.hpp"
#include "service_fixture.hpp"

namespace fake = test::fake;
using test::guard, test::narrow, test::wide;

namespace {

struct AdminCalls : testing::Test {
    test::Service service{u"none", &fake::table};
    std::u16string url = wide(service.url());

    void SetUp() override {
        fake::status = 100;
        make_project(service, "ann/house");
    }
};

// A status that comes as HTTP 500, and no session at all.
TEST_F(AdminCalls, ResultsStayUntouchedByFailures) {
    Admin *session = nullptr;
    ASSERT_EQ(zAdminLoginRms(url.c_str(), u"Root", u"password", false, true, &session), 100);
    const auto admin = guard(session, zAdminLogoutRms);
    EXPECT_EQ(zAdminRoleRemoveGroup(session, u"ann", u"house", u"R", 3), 100);
    EXPECT_EQ(fake::asked, "RoleRemoveGroup(house,r,3)");
    fake::status = 104;
    for (const auto &[caller, failure] : {std::pair{session, 104}, {nullptr, 101}}) {
        Json *tree = nullptr;
        zwchar *text = nullptr;
        int32_t number = -77;
        fake::asked.clear();
        EXPECT_EQ(zAdminGetUserInfo(caller, u"Eva", &tree), failure);
        EXPECT_EQ(zAdminGetGroupName(caller, 3, &text), failure);
        EXPECT_EQ(zAdminSetPrivilege(caller, u"ann", u"house", u"Docs", u"R", 16), failure);
        EXPECT_FALSE(tree || text);
        EXPECT_EQ(fake::asked, caller ? "AddSetting(house,Docs,r,16)" : "");
        EXPECT_EQ(zAdminCreateGroup(caller, u"Site", 3, &number), failure);
        EXPECT_EQ(number, caller ? -1 : -77);
    }
}

TEST_F(AdminCalls, SessionsProveThemselves) {
    const std::u16string form = u"E8f97fba9104d1ea5047948e6dfb67facd9f5b73", longer = form + u"0";
    Admin *session = nullptr;
    zwchar *name = nullptr;
    EXPECT_EQ(zAdminCheckUser(url.c_str(), u"Eva", u"password", false, false), 100);
    EXPECT_EQ(fake::asked, "CheckUser(eva,e8f97fba9104d1ea5047948e6dfb67facd9f5b73,false)");
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

} // namespace
