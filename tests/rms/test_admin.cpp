// An administrator at the service itself, and what never reaches it.
#include "running_service.hpp"

using namespace test;

namespace {

class AdminTest : public ServiceTest {
  protected:
    std::string projects(Admin *admin) {
        Json *list = nullptr;
        if (!zAdminListRepo(admin, &list)) return "no";
        const auto owned = guard(list, zJsonFree);
        std::string names;
        for (uint64_t i = 0; i < zJsonArraySize(list); ++i)
            names += narrow(zJsonPathGetString(zJsonArrayAt(list, i), u"name")) + " ";
        return names;
    }
};

// Nobody answers: what gives another status than 107 was never sent.
TEST_F(AdminTest, WhatIsNotSent) {
    const auto admin = log_in(u"admin", u"secret", true);
    Admin *a = admin.get();
    stop();
    const std::u16string longer(512, u't'), longest(2047, u'u');
    Json *tree = nullptr;
    zwchar *name = nullptr;
    const auto named = [&](const std::u16string &login) {
        return zAdminGetUserInfo(a, login.c_str(), &tree);
    };
    const auto with_mail = [&](const std::u16string &mail) {
        return zAdminModifyUser(a, u"anna", nullptr, nullptr, mail.c_str(), false, false);
    };
    const struct {
        const char *what;
        int32_t status, expected;
    } rows[] = {
        {"one that is sent", named(u"anna"), 107},
        {"empty", named(u""), 106},
        {"new login", zAdminModifyUser(a, u"anna", u"b/c", nullptr, nullptr, false, false), 106},
        {"512 units of mail", with_mail(longer), 101},
        {"group", zAdminRenameGroup(a, 1, u"a~"), 106},
        {"a project's name that ends the path", zAdminCreateRole(a, u"team", u"plant#2", u"r"),
         101},
        {"an owner of two segments", zAdminCreateRole(a, u"te/am", u"plant", u"r"), 101},
        {"oneself", zAdminDeleteUser(a, u"ADMIN"), 102},
        {"a URL without end", zAdminLogin(longest.c_str(), u"a", u"p", false, false), 101},
        {"log-in's name", zAdminLogin(url.c_str(), u"a b", u"p", false, false), 106},
        {"name's password", zAdminGetUserName(url.c_str(), u"a", longer.c_str(), &name), 101},
    };
    for (const auto &row : rows) EXPECT_EQ(row.status, row.expected) << row.what;
    EXPECT_FALSE(tree || name);
}

// "#" would end the path, and the project of the shorter name would go.
TEST_F(AdminTest, NoProjectGoesForAnother) {
    const auto admin = log_in(u"admin", u"secret", true);
    for (const zwchar *name : {u"plant", u"plant2"})
        ASSERT_OK(zAdminCreateRepo(admin.get(), u"team", name));
    for (const zwchar *name : {u"plant#2", u"plant?2", u"plant/x", u"plant%23", u"", u".", u".."})
        EXPECT_FALSE(zAdminDestroyRepo(admin.get(), u"team", name)) << narrow(name);
    EXPECT_FALSE(zAdminRenameRepo(admin.get(), u"team", u"plant#2", u"hall"));
    EXPECT_EQ(projects(admin.get()), "plant plant2 ");
}

} // namespace
