// Groups, roles and settings: what the rules of a user are put together from.
#include "auth_fixture.hpp"

using namespace test;

namespace {

using RightsTest = AuthTest;

TEST_F(RightsTest, GroupsAreATree) {
    const int32_t site = group(u"Site"), crew = group(u"crew", site), deep = group(u"deep", crew);
    int32_t id = -1;
    create(u"ann");
    const struct {
        const char *what;
        int32_t status, expected;
    } rows[] = {
        {"the same name below another one", auth->CreateGroup(u"site", site, &id), 100},
        {"a sibling's name", auth->RenameGroup(group(u"yard"), u"SITE"), 104},
        {"its own in another case", auth->RenameGroup(site, u"site"), 100},
        {"the root's name", auth->RenameGroup(0, u"top"), 101},
        {"the root elsewhere", auth->SetGroupParent(0, deep), 101},
        {"below itself", auth->SetGroupParent(site, site), 111},
        {"below what is below it", auth->SetGroupParent(site, deep), 111},
        {"where its name is taken", auth->SetGroupParent(id, 0), 104},
        {"up", auth->SetGroupParent(deep, site), 100},
        {"not empty", auth->DeleteGroup(site), 111},
        {"member", auth->AddMember(crew, u"ANN"), 100},
        {"with members only", auth->DeleteGroup(crew), 100},
    };
    for (const auto &row : rows) EXPECT_EQ(row.status, row.expected) << row.what;
    auth->AddMember(site, u"ann");
    EXPECT_EQ(members_of(site),
              R"([{"id":3,"isgroup":true,"name":"deep"},{"id":4,"isgroup":true,"name":"site"},)"
              R"({"isgroup":false,"name":"","username":"ann"}])");
}

TEST_F(RightsTest, RolesAreRenamedAndGoWithAllOfTheirs) {
    create(u"ann");
    const int32_t site = group(u"site");
    role(u"draft");
    const struct {
        const char *what;
        int32_t status, expected;
    } rows[] = {
        {"twin", role(u"DRAFT"), 104},
        {"bad name", role(u"a\tb"), 106},
        {"user", auth->RoleAddUser(project, u"Draft", u"ann"), 100},
        {"group", auth->RoleAddGroup(project, u"draft", site), 100},
        {"setting", auth->AddSetting(project, u"docs", u"DRAFT", 0x10), 100},
        {"other role", role(u"other"), 100},
        {"its setting", auth->AddSetting(project, u"docs", u"other", 0x20), 100},
        {"to a taken name", auth->RenameRole(project, u"draft", u"Other"), 104},
        {"to a new name", auth->RenameRole(project, u"draft", u"Planner"), 100},
        {"with its settings", auth->DeleteRole(project, u"other"), 100},
    };
    for (const auto &row : rows) EXPECT_EQ(row.status, row.expected) << row.what;
    EXPECT_EQ(members_of(u"planner"), R"([{"id":1,"isgroup":true,"name":"site"},)"
                                      R"({"isgroup":false,"name":"","username":"ann"}])");
    EXPECT_EQ(shown([&](Json **out) { return auth->ListSettings(project, u"/DOCS/", out); }),
              R"([{"setting":{"path":"docs","privilege":16,"role":"Planner"}}])");
    EXPECT_EQ(members_of(u"draft"), "103");
}

// Where a path is kept, and how it compares.
TEST_F(RightsTest, PathsOfSettings) {
    role(u"r");
    const std::u16string endless(512, u'a');
    const struct {
        const zwchar *path;
        const char *kept;
    } rows[] = {
        {u"/", "/"},           {u"", "/"},
        {u".", "/"},           {u"..", "/"},
        {u"docs/", "docs"},    {u"/docs", "docs"},
        {u"a\\b", "a/b"},      {u"a//b/./c", "a/b/c"},
        {u"a/../b", "b"},      {u"../../etc", "etc"},
        {u"//a/..", "/"},      {u"//..", "/"},
        {endless.c_str(), ""}, {u"a\nb", ""},
        {u"a\xDC00", ""},
    };
    for (const auto &row : rows) {
        const bool is_path = *row.kept;
        EXPECT_EQ(auth->AddSetting(project, row.path, u"r", 0xFF), is_path ? 100 : 101);
        const std::string list =
            shown([&](Json **out) { return auth->RoleSettings(project, u"R", out); });
        EXPECT_EQ(list, is_path ? std::string(R"([{"setting":{"path":")") + row.kept +
                                      R"(","privilege":112,"role":"r"}}])"
                                : "[]");
        EXPECT_EQ(auth->RemoveSetting(project, row.path, u"R"), is_path ? 100 : 101);
    }
    auth->AddSetting(project, u"Docs", u"r", 0x10);
    auth->AddSetting(project, u"docs", u"r", 0x20); // instead of it
    EXPECT_EQ(shown([&](Json **out) { return auth->RoleSettings(project, u"r", out); }),
              R"([{"setting":{"path":"docs","privilege":32,"role":"r"}}])");
    EXPECT_EQ(auth->ClearSettings(project, u"DOCS"), 100);
    EXPECT_EQ(auth->RemoveSetting(project, u"docs", u"r"), 103);
}

TEST_F(RightsTest, AUsersRulesComeFromAllHisRolesAndGroups) {
    create(u"ann"), create(u"bob");
    const int32_t site = group(u"site"), crew = group(u"crew", site), yard = group(u"yard");
    auth->AddMember(crew, u"ann");
    const struct {
        const zwchar *role, *path;
        int32_t bits, group; // -1: ann herself
    } rows[] = {
        {u"own", u"docs", 0x10, -1},    {u"own", u"b", 0x20, -1}, {u"crew", u"Docs", 0x20, crew},
        {u"above", u"A/b", 0x10, site}, {u"all", u"/", 0x40, 0},  {u"other", u"docs", 0x40, yard},
    };
    for (const auto &row : rows) {
        role(row.role);
        ASSERT_EQ(auth->AddSetting(project, row.path, row.role, row.bits), 100);
        ASSERT_EQ(row.group < 0 ? auth->RoleAddUser(project, row.role, u"ann")
                                : auth->RoleAddGroup(project, row.role, row.group),
                  100);
    }
    EXPECT_EQ(settings_of(u"ANN"), R"([{"setting":{"path":"/","privilege":64}},)"
                                   R"({"setting":{"path":"A/b","privilege":16}},)"
                                   R"({"setting":{"path":"b","privilege":32}},)"
                                   R"({"setting":{"path":"Docs","privilege":48}}])");
    EXPECT_EQ(settings_of(u"bob"), "[]");
    EXPECT_EQ(settings_of(u"nobody"), "103");
    ASSERT_EQ(auth->SetGroupParent(crew, yard), 100);
    EXPECT_EQ(settings_of(u"ann"), R"([{"setting":{"path":"/","privilege":64}},)"
                                   R"({"setting":{"path":"b","privilege":32}},)"
                                   R"({"setting":{"path":"Docs","privilege":112}}])");
    ASSERT_EQ(auth->DeleteGroup(crew), 100);
    EXPECT_EQ(settings_of(u"ann"), R"([{"setting":{"path":"b","privilege":32}},)"
                                   R"({"setting":{"path":"docs","privilege":16}}])");
}

} // namespace
