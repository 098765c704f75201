// What a working copy's user may do with each path, and how his rules come from the server.
#include "running_service.hpp"

#include <sys/stat.h>

using namespace test;

namespace {

class PathRulesTest : public ServiceTest {
  protected:
    Guard<Repository> copy =
        guard(zRepositoryInit((dir / u"copy").c_str(), false), zRepositoryFree);
    std::filesystem::path file = dir.path() / "copy/.git/AUTHZ";
    Guard<HttpRequest> request = guard(zHttpRequestNew(nullptr), zHttpRequestFree);

    Guard<Authdb> open() { return guard(zAuthdbOpen(copy.get()), zAuthdbFree); }
    Guard<Authdb> open(std::string_view text) {
        write(file, text);
        return open();
    }
    bool update(const zwchar *user, const zwchar *password) {
        zHttpRequestSetAccount(request.get(), user, code(password).c_str());
        zwchar path[Z_PATH_MAX] = {};
        EXPECT_TRUE(zAuthdbPath(path, copy.get()));
        return zAuthUpdateDb(request.get(), nullptr, (url + u"/repos/team/plant").c_str(), path);
    }
    ino_t inode() const {
        struct stat info {};
        stat(file.c_str(), &info);
        return info.st_ino;
    }
};

// A work tree that git has put beside the first would else be without any.
TEST_F(PathRulesTest, AreThoseOfAllWorkTrees) {
    write(file, R"({"settings":{"default":16}})");
    const auto beside = dir.path() / "beside";
    run("cd " + (dir.path() / "copy").string() + " && git -c user.name=a -c user.email=a commit " +
        "-q --allow-empty -m a && git worktree add -q " + beside.string() + " 2>&1");
    const auto other = guard(zRepositoryOpen(beside.u16string().c_str()), zRepositoryFree);
    ASSERT_OK(other);
    const auto rules = guard(zAuthdbOpen(other.get()), zAuthdbFree);
    EXPECT_EQ(zAuthdbEntryMode(rules.get(), u"a"), 16);
}

TEST_F(PathRulesTest, TheNearestRuleInAnyCase) {
    const auto rules = open(R"({"settings":{"default":32,"entries":[
        {"setting":{"path":"Docs","privilege":16}},
        {"setting":{"path":"docs\\Sub\\a.dwx","privilege":48}},
        {"setting":{"path":"closed","privilege":0}}, {"setting":{"path":"none"}},
        {"setting":{"privilege":112}}, 7, "x", [], {"setting":3}, {"other":1}]}})");
    ASSERT_OK(rules);
    EXPECT_FALSE(zAuthdbIsEmpty(rules.get()));
    const std::u16string endless = u"docs/" + std::u16string(600, u'a'),
                         keep = endless + u"/.gitkeep";
    const struct {
        const zwchar *path;
        int32_t bits;
    } rows[] = {
        {u"docs/sub/b.dwx", 16},    {u"DOCS/SUB/A.DWX", 48},
        {u"docs\\sub\\..\\x/", 16}, {u"docs2", 32},
        {u"closed/x", 0},           {u"closed/.gitkeep", 112},
        {u".gitkeep", 112},         {u"closed/x.gitkeep", 0},
        {u"/docs/a", 32},           {u"", 32},
        {endless.c_str(), 0},       {keep.c_str(), 112},
    };
    for (const auto &row : rows)
        EXPECT_EQ(zAuthdbEntryMode(rules.get(), row.path), row.bits) << narrow(row.path);
}

TEST_F(PathRulesTest, FilesThatSayLittleOrNothing) {
    EXPECT_TRUE(zAuthdbIsEmpty(open().get()));
    EXPECT_EQ(zAuthdbEntryMode(open().get(), u"a/b"), 112);
    const struct {
        const char *text;
        int32_t bits; // of any path, -1 where it can't be opened
        bool empty;
    } rows[] = {
        {R"({"settings":{"default":16,"entries":[]}})", 16, true},
        {R"({"settings":{"default":112,"entries":[{"setting":{"path":"/","privilege":48}}]}})", 48,
         false},
        {"{}", 0, false},
        {R"({"settings":7})", 0, false},
        {R"({"settings":{"entries":{}}})", -1, true},
        {"{", -1, true},
        {"", -1, true},
    };
    for (const auto &row : rows) {
        const auto rules = open(row.text);
        EXPECT_EQ(rules != nullptr, row.bits >= 0) << row.text;
        EXPECT_EQ(zAuthdbIsEmpty(rules.get()), row.empty) << row.text;
        if (rules) {
            EXPECT_EQ(zAuthdbEntryMode(rules.get(), u"a/b"), row.bits) << row.text;
        }
    }
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    EXPECT_FALSE(open());
}

// The server's rules come once, again when they or the user changed, and not in between.
TEST_F(PathRulesTest, ComeFromTheServerWhenTheyChanged) {
    const auto admin = log_in(u"admin", u"secret", true);
    Admin *a = admin.get();
    ASSERT_OK(zAdminCreateRepo(a, u"team", u"plant"));
    ASSERT_EQ(zAdminCreateUser(a, u"anna", nullptr, u"pw", nullptr, false, false), 100);
    ASSERT_EQ(zAdminCreateRole(a, u"team", u"plant", u"readers"), 100);
    ASSERT_EQ(zAdminRoleAddUser(a, u"team", u"plant", u"readers", u"anna"), 100);
    ASSERT_EQ(zAdminSetPrivilege(a, u"team", u"plant", u"/", u"readers", 16), 100);
    ASSERT_OK(update(u"Anna", u"pw"));
    EXPECT_EQ(zAuthdbEntryMode(open().get(), u"docs/a"), 16);
    const ino_t before = inode();
    EXPECT_OK(update(u"anna", u"pw"));
    EXPECT_EQ(inode(), before);

    // Rules that can't be read are asked for anew although their states are right.
    std::string text = read(file);
    text.replace(text.find("\"entries\":["), 11, "\"entries\":{},\"x\":[");
    write(file, text);
    EXPECT_OK(update(u"anna", u"pw"));
    EXPECT_TRUE(open());

    // Of another one the states are as before, the rules are not.
    EXPECT_OK(update(u"admin", u"secret"));
    EXPECT_EQ(zAuthdbEntryMode(open().get(), u"docs/a"), 112);
    EXPECT_OK(update(u"anna", u"pw"));
    EXPECT_EQ(zAuthdbEntryMode(open().get(), u"docs/a"), 16);

    EXPECT_FALSE(update(u"anna", u"wrong"));
    EXPECT_TRUE(zErrorClass() == 15 && zErrorCode() == 401);
    EXPECT_REFUSED(update(u"", u"pw"), 2);
    EXPECT_TRUE(open()); // what was there stays
}

} // namespace
