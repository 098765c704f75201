// An administrator at the service itself, and what never reaches it.
#include "running_service.hpp"

using namespace test;

namespace {

class AdminTest : public ServiceTest {
  protected:
    static std::string json_of(Json *tree) {
        const auto owned = guard(tree, zJsonFree);
        const auto text = guard(tree ? zJsonWriteTextual(tree) : nullptr, zStrfreeW);
        return narrow(text.get());
    }
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

TEST_F(AdminTest, ADayOfAnAdministrator) {
    const auto admin = log_in(u"ADMIN", u"secret", true);
    Admin *a = admin.get();
    ASSERT_OK(zAdminCreateRepo(a, u"team", u"plant"));
    EXPECT_FALSE(zAdminCreateRepo(a, u"team", u"plant"));
    EXPECT_TRUE(zErrorClass() == 15 && zErrorCode() == 409);
    EXPECT_EQ(zAdminCreateUser(a, u"anna", u"Anna Lind", u"pw", nullptr, false, false), 100);
    EXPECT_EQ(zAdminCreateUser(a, u"Anna", nullptr, u"pw", nullptr, false, false), 104);
    EXPECT_EQ(zAdminCreateRole(a, u"team", u"plant", u"Drawers"), 100);
    EXPECT_EQ(zAdminSetPrivilege(a, u"team", u"plant", u"/Standards", u"drawers", 16), 100);
    int32_t root = -1, site = -1, found = -1;
    EXPECT_EQ(zAdminGetRootGroup(a, &root), 100);
    EXPECT_EQ(zAdminCreateGroup(a, u"site", root, &site), 100);
    EXPECT_EQ(zAdminGetGroupId(a, root, u"Site", &found), 100);
    EXPECT_EQ(found, site);
    EXPECT_EQ(zAdminGetGroupId(a, root, u"yard", &found), 103);
    EXPECT_EQ(found, -1); // told, whatever the status
    EXPECT_EQ(zAdminGroupAddUser(a, site, u"anna"), 100);
    EXPECT_EQ(zAdminRoleAddGroup(a, u"team", u"plant", u"drawers", site), 100);
    Json *tree = nullptr;
    EXPECT_EQ(zAdminUserPrivileges(a, u"team", u"plant", u"anna", &tree), 100);
    EXPECT_EQ(json_of(tree), R"([{"setting":{"path":"Standards","privilege":16}}])");

    Json *directories = nullptr;
    EXPECT_TRUE(zAdminRepoDirectories(a, u"team", u"plant", nullptr, &directories));
    EXPECT_FALSE(directories); // none yet
    EXPECT_OK(zAdminRepoCreateDir(a, u"team", u"plant", nullptr, u"plans/upper"));
    EXPECT_OK(zAdminRepoRenameDir(a, u"team", u"plant", u"HEAD", u"plans/upper", u"roof"));
    EXPECT_FALSE(zAdminRepoDeleteDir(a, u"team", u"plant", nullptr, u"../x"));
    EXPECT_TRUE(zAdminRepoDirectories(a, u"team", u"plant", u"master", &directories));
    EXPECT_EQ(json_of(directories), R"(["plans/roof"])");

    EXPECT_OK(zAdminCloneRepo(a, u"team", u"hall", u"team", u"plant"));
    EXPECT_OK(zAdminRenameRepo(a, u"team", u"hall", u"Große Halle"));
    EXPECT_EQ(projects(a), "Große Halle plant ");
    EXPECT_OK(zAdminDestroyRepo(a, u"team", u"Große Halle"));
    EXPECT_EQ(projects(a), "plant ");
    EXPECT_EQ(zAdminDeleteUser(a, u"Admin"), 102);

    zwchar *name = nullptr;
    EXPECT_EQ(zAdminGetUserName(url.c_str(), u"anna", code(u"pw").c_str(), &name), 100);
    EXPECT_EQ(narrow(guard(name, zStrfreeW).get()), "Anna Lind");
    EXPECT_EQ(zAdminCheckUser(url.c_str(), u"anna", u"pw", false, true), 108);
}

// Who has no power is refused by the service, in whose words the record tells why.
TEST_F(AdminTest, WithoutPower) {
    const auto admin = log_in(u"admin", u"secret", true);
    ASSERT_EQ(zAdminCreateUser(admin.get(), u"anna", nullptr, u"pw", nullptr, false, false), 100);
    const auto anna = log_in(u"anna", u"pw");
    EXPECT_FALSE(zAdminCreateRepo(anna.get(), u"team", u"plant"));
    EXPECT_EQ(zErrorCode(), 403);
    EXPECT_EQ(zAdminDeleteUser(anna.get(), u"admin"), 0);
    EXPECT_EQ(zErrorCode(), 403);
    EXPECT_EQ(projects(anna.get()), "");
}

// Nobody answers: what gives another status than 107 was never sent.
TEST_F(AdminTest, WhatIsNotSent) {
    const auto admin = log_in(u"admin", u"secret", true);
    Admin *a = admin.get();
    stop();
    const std::u16string most(64, u'n'), more(65, u'n'), text(511, u't'), longer(512, u't'),
        longest(2047, u'u');
    Json *tree = nullptr;
    zwchar *name = nullptr;
    Admin *other = nullptr;
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
        {"64 units", named(most), 107},
        {"65 units", named(more), 106},
        {"empty", named(u""), 106},
        {"blank", named(u"an na"), 106},
        {"a line end", named(u"an\nna"), 106},
        {"without an out argument", zAdminGetUserInfo(a, u"anna", nullptr), 101},
        {"without both", zAdminGetUserInfo(a, u"an na", nullptr), 101}, // arguments come first
        {"new login", zAdminModifyUser(a, u"anna", u"b/c", nullptr, nullptr, false, false), 106},
        {"no password", zAdminCreateUser(a, u"b", nullptr, nullptr, nullptr, false, false), 101},
        {"511 units of mail", with_mail(text), 107},
        {"512 units of mail", with_mail(longer), 101},
        {"group", zAdminRenameGroup(a, 1, u"a~"), 106},
        {"member", zAdminGroupAddUser(a, 1, u"a%"), 106},
        {"role's new name", zAdminRenameRole(a, u"team", u"plant", u"r", u"s t"), 106},
        {"no project", zAdminCreateRole(a, u"team", nullptr, u"r"), 101},
        {"a project's name that ends the path", zAdminCreateRole(a, u"team", u"plant#2", u"r"),
         101},
        {"an owner of two segments", zAdminCreateRole(a, u"te/am", u"plant", u"r"), 101},
        {"oneself", zAdminDeleteUser(a, u"ADMIN"), 102},
        {"a URL without end", zAdminLogin(longest.c_str(), u"a", u"p", false, false), 101},
        {"no URL", zAdminLoginRms(nullptr, u"a", u"p", false, false, &other), 101},
        {"log-in's name", zAdminLogin(url.c_str(), u"a b", u"p", false, false), 106},
        {"name's password", zAdminGetUserName(url.c_str(), u"a", longer.c_str(), &name), 101},
    };
    for (const auto &row : rows) EXPECT_EQ(row.status, row.expected) << row.what;
    EXPECT_FALSE(tree || name || other);
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
