// The files of the store: shared, damaged, lost, and written by a process that is killed.
#include "auth_fixture.hpp"
#include "child.hpp"
#include "strike.hpp"

#include <cstring>
#include <functional>
#include <map>

#include <sys/stat.h>

using namespace test;

namespace {

class StoreTest : public AuthTest {
  protected:
    void expect_service(const char *what);
    void restart() {
        zAuthServerShutdown(auth);
        auth = zAuthServerStart();
        ASSERT_OK(auth);
    }
};
using Files = std::map<std::string, std::string>; // by name, without the logs

Files files_below(const std::filesystem::path &conf, const std::filesystem::path &project) {
    Files files;
    for (const auto &directory : {conf, project})
        for (const auto &entry : std::filesystem::directory_iterator(directory))
            if (entry.is_regular_file() &&
                entry.path().filename().string().find("AUTHZ") != std::string::npos)
                files[entry.path().string()] = read(entry.path());
    return files;
}

void restore(const Files &now, const Files &wanted) {
    for (const auto &[path, bytes] : now)
        if (!wanted.contains(path)) std::filesystem::remove(path);
    for (const auto &[path, bytes] : wanted) write(path, bytes);
}

TEST_F(StoreTest, AnotherProcessesChangesAreSeen) {
    create(u"ann");
    role(u"draft");
    EXPECT_EQ(check(u"ann"), 100); // remembered here
    const int done = Child([&] {
                         const bool changed =
                             auth->ResetPassword(u"ann", wire(u'2').c_str()) == 100 &&
                             create(u"bob") == 100 &&
                             auth->RoleAddUser(project, u"draft", u"bob") == 100 &&
                             auth->AddSetting(project, u"docs", u"draft", 0x10) == 100;
                         return changed ? 0 : 1;
                     }).wait();
    ASSERT_EQ(done, 0);
    EXPECT_EQ(check(u"ann"), 105);
    EXPECT_EQ(check(u"ann", u'2'), 100);
    EXPECT_EQ(settings_of(u"bob"), R"([{"setting":{"path":"docs","privilege":16}}])");
}

TEST_F(StoreTest, ServersDontLoseEachOthersUsers) {
    const auto work = [this](char16_t letter) {
        return [this, letter] {
            for (char16_t i = u'0'; i < u'9'; ++i)
                if (group(std::u16string{letter, i}.c_str()) < 0) return 1;
            return 0;
        };
    };
    Child a(work(u'a')), b(work(u'b'));
    EXPECT_EQ(a.wait(), 0);
    EXPECT_EQ(b.wait(), 0);
    EXPECT_EQ(group(u"last"), 19); // each id once
}

TEST_F(StoreTest, WhatChangesNothingWritesNothing) {
    create(u"ann");
    role(u"draft");
    auth->RoleAddUser(project, u"draft", u"ann");
    const Files before = files_below(conf, place);
    struct stat first, second;
    ASSERT_EQ(stat(project_authz.c_str(), &first), 0);
    check(u"ann"), check(u"ann", u'2'), settings_of(u"ann"), create(u"ANN");
    auth->RoleAddUser(project, u"draft", u"ann");
    EXPECT_EQ(files_below(conf, place), before);
    ASSERT_EQ(stat(project_authz.c_str(), &second), 0);
    EXPECT_EQ(first.st_ino, second.st_ino);
}

// A file that can't be understood answers 110, and stays as it is for whoever mends it.
TEST_F(StoreTest, DamageIsNeverReplaced) {
    create(u"ann");
    const std::string sound = read(authz);
    const auto with = [&](const char *part, const char *other) {
        std::string text = sound;
        return text.replace(text.find(part), strlen(part), other);
    };
    const std::string damaged[] = {
        "",
        sound.substr(0, sound.size() / 2),
        with(R"("version":1)", R"("version":2)"),
        with(R"("uid":2)", R"("uid":1)"),
        with(R"("user":3)", R"("user":2)"),
        with(R"("login":"ann")", R"("login":"Admin")"),
        with(R"("login":"ann")", R"("login":"a/b")"),
        with(R"("name":"root",)", R"("name":"root","parent":0,)")
            .replace(sound.find(R"("id":0)"), 6, R"("id":1)"),
        with(R"("users":[])", R"("users":[7])"),
        with(R"("power":true)", R"("power":1)"),
    };
    for (const std::string &text : damaged) {
        write(authz, text);
        EXPECT_EQ(check(u"ann"), 110) << text;
        EXPECT_EQ(create(u"bob"), 110) << text;
        EXPECT_EQ(role(u"draft"), 110) << text;
        EXPECT_EQ(settings_of(u"ann"), "110") << text;
        EXPECT_EQ(read(authz), text);
    }
    std::filesystem::remove(authz); // ids would be given out again
    EXPECT_EQ(create(u"bob"), 110);
    write(authz, sound);
    EXPECT_EQ(check(u"ann"), 100);
    for (const char *text : {"{", R"({"roles":[],"settings":[]})",
                             R"({"roles":[],"settings":[{"path":"a","privilege":16,"role":"x"}],)"
                             R"("version":1})",
                             R"({"default":1,"roles":[],"settings":[],"version":1})"}) {
        write(project_authz, text);
        EXPECT_EQ(role(u"draft"), 110) << text;
        EXPECT_EQ(settings_of(u"ann"), "110") << text;
        EXPECT_EQ(read(project_authz), text);
    }
    write(secret, "{}");
    EXPECT_EQ(check(u"ann"), 110);
    EXPECT_EQ(auth->ResetPassword(u"ann", wire(u'1').c_str()), 110);
    EXPECT_EQ(read(secret), "{}");
}

// Without the file of secrets nobody was given a wrong password, nor is anybody locked: it is lost.
// Only where nobody was ever made it is the first start.
TEST_F(StoreTest, LostSecretsAreAFailureOfTheStore) {
    EXPECT_EQ(check(u"admin"), 109); // has no password yet
    std::filesystem::remove(secret); // killed behind the first file
    EXPECT_EQ(check(u"admin"), 110);
    restart();
    EXPECT_EQ(check(u"admin"), 109);
    EXPECT_EQ(auth->ResetPassword(u"admin", wire(u'2').c_str()), 100);
    create(u"ann");
    const std::string sound = read(secret);
    std::filesystem::remove(secret);
    for (int start = 0; start < 2; ++start, restart()) {
        EXPECT_EQ(check(u"ann"), 110);
        EXPECT_EQ(check(u"nobody"), 110);
        EXPECT_EQ(create(u"bob"), 110);
        EXPECT_EQ(auth->ResetPassword(u"ann", wire(u'3').c_str()), 110);
        EXPECT_FALSE(std::filesystem::exists(secret));
    }
    write(secret, sound);
    EXPECT_EQ(check(u"ann"), 100);
    write(secret, R"({"secrets":[],"version":1})"); // the way back without a copy
    EXPECT_EQ(check(u"ann"), 109);
    EXPECT_EQ(auth->ResetPassword(u"ann", wire(u'3').c_str()), 100);
    EXPECT_EQ(check(u"ann", u'3'), 100);
}

TEST_F(StoreTest, WhereNothingCanBeWrittenReadingGoesOn) {
    create(u"ann");
    std::filesystem::permissions(dir.path(), std::filesystem::perms(0755));
    std::filesystem::permissions(secret, std::filesystem::perms(0644));
    std::filesystem::permissions(conf, std::filesystem::perms(0555));
    const int done = Child([&] {
                         if (!unprivileged()) return 9;
                         int32_t id = -1;
                         if (check(u"ann") != 100) return 1;
                         if (auth->CreateGroup(u"site", 0, &id) != 110) return 2;
                         return create(u"bob") == 110 ? 0 : 3;
                     }).wait();
    std::filesystem::permissions(conf, std::filesystem::perms(0755));
    EXPECT_EQ(done, 0);
}

// Who is there can log in, and rights can be changed.
void StoreTest::expect_service(const char *what) {
    int32_t id = -1;
    const bool has_ann = info_of(u"ann") != "103";
    EXPECT_TRUE(!has_ann || check(u"ann") == 100 || check(u"ann", u'3') == 100) << what;
    EXPECT_TRUE(info_of(u"bob") == "103" || check(u"bob") == 100) << what;
    EXPECT_EQ(role(u"next"), 100) << what;
    EXPECT_EQ(auth->CreateGroup(u"next", 0, &id), 100) << what;
    EXPECT_FALSE(std::filesystem::exists(conf / ".AUTHZ.new")) << what;
}

// Killed, or let down by the disk, at each of its calls: the files are the old or the new ones, and
// the next change goes on.
TEST_F(StoreTest, EveryChangeIsWholeOrNone) {
    create(u"ann");
    role(u"draft");
    const struct {
        const char *what;
        std::function<int32_t()> change;
    } rows[] = {
        {"create", [&] { return create(u"bob"); }},
        {"delete", [&] { return auth->DeleteUser(u"ann"); }},
        {"reset", [&] { return auth->ResetPassword(u"ann", wire(u'3').c_str()); }},
        {"setting", [&] { return auth->AddSetting(project, u"docs", u"draft", 16); }},
    };
    const Files before = files_below(conf, place);
    for (const auto &row : rows) {
        restore(files_below(conf, place), before);
        ASSERT_EQ(row.change(), 100) << row.what;
        const Files after = files_below(conf, place);
        for (const Strike how : {Strike::kill, Strike::fail}) {
            int hit = 1, n = 0;
            while (hit != 0 && n < 60) {
                restore(files_below(conf, place), before);
                ++n;
                hit = Child([&] {
                          strike_at(n, how);
                          row.change();
                          return struck() ? 1 : 0;
                      }).wait();
                for (const auto &file : {authz, project_authz}) {
                    const std::string bytes = read(file), path = file.string();
                    EXPECT_TRUE(bytes == before.at(path) || bytes == after.at(path))
                        << row.what << " at call " << n << ": " << bytes;
                }
                expect_service(row.what);
            }
            EXPECT_GE(n, 3) << row.what;
            EXPECT_EQ(hit, 0) << row.what;
        }
    }
}

} // namespace
