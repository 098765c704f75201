// A caller's bits on a path, by the rules that a module gives for him.
#include "support.hpp"

#include "rms/privilege.hpp"
#include "zev/http_request.h"

using namespace test;
using zev::Privileges;

namespace {

// The part of a module's table that is asked, with rules as they come over its interface.
constexpr const zwchar *kRules = uR"([
    {"setting":{"path":"docs","privilege":16}},
    {"setting":{"path":"docs/a.dwx","privilege":48}},
    {"setting":{"path":"Site","privilege":16}},
    {"setting":{"path":"twice","privilege":112}}, {"setting":{"path":"twice","privilege":16}},
    {"setting":{"path":"closed","privilege":0}}, {"setting":{"path":"closed/open"}},
    {"setting":{"privilege":112}}, {"other":1}, 7])";
std::u16string rules;
int32_t fallback;

int32_t check(const zwchar *user, const zwchar *password, bool power) {
    return !power && zStrsameW(password, u"right") && !zStrsameW(user, u"nobody") ? 100 : 105;
}
int32_t settings(Repository *, const zwchar *user, Json **list) {
    if (zStrsameW(user, u"bob")) return 103;
    return *list = zJsonReadTextual(rules.c_str()), 100;
}
int32_t get_default(Repository *, int32_t *setting) {
    if (fallback < 0) return 103;
    return *setting = fallback, 100;
}

class PrivilegeTest : public testing::Test {
  protected:
    TempDir dir;
    test::Guard<Repository> repository =
        guard(zRepositoryInit((dir / u"r").c_str(), true), zRepositoryFree);

    void SetUp() override {
        rules = kRules;
        fallback = 32;
    }
    Privileges of(const zwchar *user, const zwchar *password = u"right") {
        AuthTable table{};
        table.CheckUser = check;
        table.UserSettings = settings;
        table.GetDefault = get_default;
        auto request = guard(zHttpRequestNew(nullptr), zHttpRequestFree);
        zHttpRequestSetAccount(request.get(), user, password);
        return Privileges(&table, request.get(), repository.get());
    }
};

TEST_F(PrivilegeTest, TheNearestRuleCounts) {
    const std::u16string endless(600, u'a');
    const struct {
        const zwchar *path;
        int32_t without_root, with_root; // a rule on "/"
    } rows[] = {
        {u"docs/a.dwx", 48, 48}, // its own, though its directory was just looked up
        {u"docs\\c/../a.dwx/", 48, 48},
        {u"docs2/a", 32, 64},
        {u"site/a", 32, 64},  // case counts
        {u"twice/a", 16, 16}, // the later element
        {u"closed/x", 0, 0},
        {u"closed/open", 0, 0},   // no bits told are none
        {u"/docs/a.dwx", 32, 32}, // never reaches "/", nor what has no slash before it
        {endless.c_str(), 0, 0},  // cut, it would be another one
    };
    Privileges without = of(u"ann");
    rules.insert(1, uR"({"setting":{"path":"/","privilege":64}},)");
    Privileges with = of(u"ann");
    for (const auto &row : rows) {
        EXPECT_EQ(without.at(row.path), row.without_root) << narrow(row.path);
        EXPECT_EQ(with.at(row.path), row.with_root) << narrow(row.path);
    }
    EXPECT_TRUE(with.anywhere(64) && with.anywhere(48) && !with.anywhere(112));
    EXPECT_TRUE(without.anywhere(32) && !without.anywhere(64));
    fallback = 112; // which no path of a tree reaches past the root's rule
    EXPECT_FALSE(of(u"ann").anywhere(112) || of(u"ann").everywhere(16));
    rules = u"[]";
    EXPECT_TRUE(of(u"ann").anywhere(112) && of(u"ann").everywhere(112));
    rules = uR"([{"setting":{"path":"a","privilege":48}}])";
    EXPECT_TRUE(of(u"ann").everywhere(48) && !of(u"ann").everywhere(112));
    fallback = 32;
    EXPECT_FALSE(of(u"ann").everywhere(16)); // the root has no rule
    rules.insert(1, uR"({"setting":{"path":"/","privilege":16}},)");
    EXPECT_TRUE(of(u"ann").everywhere(16));
    rules = u"[]";
    fallback = -1;
    EXPECT_EQ(of(u"ann").at(u"docs"), 1);
    EXPECT_FALSE(of(u"ann").anywhere(16));
}

TEST_F(PrivilegeTest, WhoHasNoRightAndWhoHasAll) {
    EXPECT_EQ(of(u"ADMIN").at(u"docs"), 112);
    EXPECT_TRUE(of(u"Admin").anywhere(112) && of(u"Admin").everywhere(112));
    const std::pair<const zwchar *, const zwchar *> unknown[] = {
        {u"admin", u"wrong"}, {u"nobody", u"right"}, {nullptr, u"right"}, {u"ann", nullptr}};
    for (const auto &[user, password] : unknown) {
        Privileges none = of(user, password);
        EXPECT_FALSE(none.is_known() || none.at(u"docs") || none.anywhere(16) ||
                     none.everywhere(0));
    }
    Privileges bob = of(u"bob"); // known, but nothing can be told of him
    EXPECT_TRUE(bob.is_known() && !bob.at(u"docs") && !bob.anywhere(16));
}

} // namespace
