// Users, their passwords, and what a login costs.
#include "auth_fixture.hpp"
#include "strike.hpp"

using namespace test;

namespace {

using UserTest = AuthTest;

TEST_F(UserTest, LoginsAndStatuses) {
    const std::u16string longest(64, u'x'), longer(65, u'x');
    EXPECT_EQ(check(u"admin"), 109); // until he has a password
    ASSERT_EQ(create(u"Ann"), 100);
    EXPECT_EQ(std::filesystem::status(secret).permissions(), std::filesystem::perms(0600));
    EXPECT_NE(read(secret).find("$y$"), std::string::npos);
    const struct {
        const char *what;
        int32_t status, expected;
    } rows[] = {
        {"taken in another case", create(u"ANN"), 104},
        {"65 units", create(longer.c_str()), 106},
        {"half a pair", create(u"a\xD83D"), 106},
        {"control character", create(u"a\x1b[2J"), 106},
        {"beyond the basic plane", create(u"\xD83D\xDE00"), 100},
        {"no wire form", auth->CreateUser(u"bob", nullptr, u"secret", nullptr, false, false), 101},
        {"half a pair in a name",
         auth->CreateUser(u"bob", u"\xDE00", wire(u'1').c_str(), nullptr, false, false), 101},
        {"right, upper-case digits", auth->ResetPassword(u"ann", wire(u'A').c_str()), 100},
        {"as the lower-case ones", check(u"ann", u'a'), 100},
        {"wrong", check(u"ann", u'1'), 105},
        {"unknown", check(u"nobody", u'a'), 105},
        {"no power", check(u"ann", u'a', true), 108},
        {"wrong, no power", check(u"ann", u'2', true), 105},
        {"to a taken login", auth->ModifyUser(u"ann", u"Admin", nullptr, nullptr, false, false),
         104},
    };
    for (const auto &row : rows) EXPECT_EQ(row.status, row.expected) << row.what;
}

TEST_F(UserTest, ModifyKeepsWhatIsNotGivenAndTheUid) {
    auth->CreateUser(u"ann", u"Ann", wire(u'1').c_str(), u"ann@x", false, false);
    role(u"draft");
    auth->RoleAddUser(project, u"draft", u"ann");
    ASSERT_EQ(auth->ModifyUser(u"ann", u"Anna", nullptr, u"a@x", true, true), 100);
    EXPECT_EQ(members_of(u"draft"), R"([{"isgroup":false,"name":"Ann","username":"Anna"}])");
    EXPECT_EQ(check(u"anna"), 109); // locked, and the password is known
    EXPECT_EQ(check(u"anna", u'2'), 105);
    ASSERT_EQ(auth->ModifyUser(u"anna", nullptr, nullptr, nullptr, false, false), 100);
    EXPECT_EQ(auth->Login(u"anna", wire(u'1').c_str(), false), 100);
}

TEST_F(UserTest, SomebodyKeepsPower) {
    const auto modify = [&](const zwchar *login, bool power, bool lock) {
        return auth->ModifyUser(login, nullptr, nullptr, nullptr, power, lock);
    };
    EXPECT_EQ(auth->DeleteUser(u"Admin"), 108);
    EXPECT_EQ(auth->ModifyUser(u"admin", u"root", nullptr, nullptr, true, false), 108);
    EXPECT_EQ(modify(u"admin", false, false), 108);
    ASSERT_EQ(create(u"ann", u'1', true), 100);
    EXPECT_EQ(modify(u"admin", false, false), 100);
    EXPECT_EQ(auth->DeleteUser(u"ann"), 108);
    EXPECT_EQ(modify(u"ann", true, true), 108); // nobody could unlock her
    ASSERT_EQ(modify(u"admin", true, false), 100);
    EXPECT_EQ(auth->DeleteUser(u"ann"), 100);
    EXPECT_EQ(read(secret), R"({"secrets":[],"version":1})");
}

TEST_F(UserTest, ANewUserOfAnOldNameHasNothingOfTheOldOnes) {
    create(u"ann");
    role(u"draft");
    auth->RoleAddUser(project, u"draft", u"ann");
    auth->AddSetting(project, u"docs", u"draft", 0x30);
    const int32_t site = group(u"site");
    auth->AddMember(site, u"ann");
    ASSERT_EQ(auth->DeleteUser(u"ann"), 100);
    ASSERT_EQ(create(u"ann", u'2'), 100);
    EXPECT_EQ(check(u"ann", u'1'), 105);
    EXPECT_EQ(settings_of(u"ann"), "[]");
    EXPECT_EQ(members_of(u"draft"), "[]");
    EXPECT_EQ(members_of(site), "[]");
    ASSERT_EQ(auth->DeleteGroup(site), 100);
    EXPECT_GT(group(u"site"), site);
    EXPECT_NE(read(project_authz).find(R"("users":[2])"), std::string::npos);
    role(u"other"); // the next write takes the old uid away
    EXPECT_EQ(read(project_authz).find(R"("users":[2])"), std::string::npos);
}

TEST_F(UserTest, OneHashAnswersManyChecks) {
    create(u"ann");
    const auto hashes = [](const auto &work) {
        const int before = hashes_made();
        work();
        return hashes_made() - before;
    };
    EXPECT_EQ(hashes([&] {
                  for (int i = 0; i < 10'000; ++i) ASSERT_EQ(check(u"ann"), 100);
              }),
              1);
    EXPECT_EQ(hashes([&] { check(u"ann", u'2'), check(u"ann", u'2'); }), 2); // never the wrong one
    EXPECT_EQ(hashes([&] { check(u"ann"); }), 0);
    EXPECT_EQ(hashes([&] { check(u"nobody"); }), 1);
    EXPECT_EQ(hashes([&] { auth->CheckUser(u"ann", u"short", false); }), 1);
    auth->ModifyUser(u"ann", nullptr, nullptr, nullptr, false, false);
    EXPECT_EQ(hashes([&] { EXPECT_EQ(check(u"ann"), 100); }), 1);
    auth->ResetPassword(u"ann", wire(u'2').c_str());
    EXPECT_EQ(hashes([&] { EXPECT_EQ(check(u"ann"), 105); }), 1); // the remembered one is no more
}

} // namespace
