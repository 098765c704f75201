// Remembered logins.
#include "support.hpp"

#include "system/os.hpp"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

using namespace test;

namespace {

class LoginTest : public testing::Test {
  protected:
    TempDir dir;
    std::filesystem::path file = dir.path() / "data/Tessavane/ZEV/zev.simple";
    std::u16string user = std::u16string(600, u'?'), code = user;

    void SetUp() override { setenv("APPDATA", (dir.path() / "data").c_str(), 1); }
    void TearDown() override { unsetenv("APPDATA"); }
    bool find(const zwchar *first, const zwchar *second) {
        user[0] = code[0] = u'?';
        user[1] = code[1] = 0;
        return zCookieRead(first, second, user.data(), code.data());
    }
    std::string found() const { return narrow(user.c_str()) + " " + narrow(code.c_str()); }
    static mode_t mode_of(const std::filesystem::path &path) {
        struct stat info {};
        stat(path.c_str(), &info);
        return info.st_mode & 07777;
    }
};

TEST_F(LoginTest, CookiesAreKeptForTheirTextsAlone) {
    EXPECT_TRUE(zCookieClear(u"plant", u"zev"));
    EXPECT_FALSE(find(u"plant", u"zev"));
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "data")); // to look makes nothing
    ASSERT_OK(zCookieWrite(u"plant", u"zev", u"Anna", u"c0de"));
    ASSERT_OK(zCookieWrite(u"yard", u"zev", u"Bob", u"c0de"));
    ASSERT_TRUE(find(u"plant", u"zev"));
    EXPECT_EQ(found(), "Anna c0de");
    EXPECT_FALSE(find(u"Plant", u"zev"));
    EXPECT_EQ(found(), "? ?");
    for (auto at = file.parent_path(); at != dir.path() / "data"; at = at.parent_path())
        EXPECT_EQ(mode_of(at), 0700u) << at;
    ASSERT_OK(zCookieClear(u"yard", u"zev"));
    EXPECT_FALSE(find(u"yard", u"zev"));
    EXPECT_TRUE(find(u"plant", u"zev"));
    zRaiseCanceled(nullptr);
    EXPECT_FALSE(find(u"", u"zev") || find(u"a", nullptr) || zCookieClear(nullptr, u"b") ||
                 zCookieWrite(u"a", u"", u"u", u"c"));
    EXPECT_EQ(zErrorClass(), 6); // none of them raises
}

TEST_F(LoginTest, WhatIsNoCookieFileCountsAsNone) {
    const std::string key =
        run("printf a/b | iconv -t utf-16le | sha1sum | cut -c 1-40").substr(0, 40);
    const std::string endless(512, 'u');
    const auto entry = [&](const std::string &fields) {
        return "{\"" + key + "\":" + fields + "}";
    };
    for (const std::string &text :
         {std::string("{"), std::string("[1]"), std::string(""), entry("7"),
          entry(R"({"user":"u","code":1})"), entry(R"({"user":")" + endless + R"(","code":"c"})"),
          "{\"x\":\"" + std::string(1 << 20, 'x') + "\"}"}) {
        write(file, text);
        EXPECT_FALSE(find(u"a", u"b")) << text.substr(0, 80);
        EXPECT_EQ(found(), "? ?");
        EXPECT_TRUE(zCookieClear(u"a", u"b")) << text.substr(0, 80);
        ASSERT_OK(zCookieWrite(u"a", u"b", u"u", u"c"));
        EXPECT_TRUE(find(u"a", u"b") && read(file).find(key) != text.npos);
    }
    std::filesystem::permissions(file, std::filesystem::perms(0644));
    ASSERT_OK(zCookieWrite(u"a", u"b", u"u", u"d"));
    EXPECT_EQ(mode_of(file), 0600u); // whatever it had
    EXPECT_FALSE(zCookieWrite(u"a", u"b", std::u16string(512, u'u').c_str(), u"c"));
    EXPECT_TRUE(find(u"a", u"b"));
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    EXPECT_FALSE(zCookieWrite(u"a", u"b", u"u", u"c"));
    EXPECT_EQ(zErrorCode(), 13);
}

// Others' logins stay, whichever call into the system fails.
TEST_F(LoginTest, AWriteThatFailsChangesNothing) {
    ASSERT_OK(zCookieWrite(u"plant", u"zev", u"anna", u"c0de"));
    const std::string before = read(file);
    zev::os::Calls &calls = zev::os::calls;
    const zev::os::Calls kept = calls;
    static const auto open = calls.open;
    const std::pair<const char *, void (*)(zev::os::Calls &)> faults[] = {
        {"read",
         [](auto &c) {
             c.open = [](const char *path, int flags, mode_t mode) {
                 const bool reads = (flags & O_ACCMODE) == O_RDONLY && !(flags & O_DIRECTORY);
                 return reads ? (errno = ENOSPC, -1) : open(path, flags, mode);
             };
         }},
        {"write",
         [](auto &c) {
             c.write = [](int, const void *, size_t) -> ssize_t { return errno = ENOSPC, -1; };
         }},
        {"fsync", [](auto &c) { c.fsync = [](int) { return errno = ENOSPC, -1; }; }},
    };
    for (const auto &[name, fail] : faults) {
        zwchar texts[2][Z_LOGIN_MAX] = {};
        fail(calls);
        const bool written = zCookieWrite(u"yard", u"zev", u"bob", u"0");
        const int32_t code = zErrorCode();
        const bool reads = calls.open == kept.open;
        calls.open = kept.open;
        const bool cleared = zCookieClear(u"plant", u"zev");
        calls = kept;
        EXPECT_FALSE(written) << name;
        EXPECT_EQ(code, ENOSPC) << name;
        EXPECT_EQ(cleared, !reads) << name;
        if (cleared) {
            ASSERT_OK(zCookieWrite(u"plant", u"zev", u"anna", u"c0de"));
        }
        EXPECT_EQ(read(file), before) << name;
        EXPECT_TRUE(zCookieRead(u"plant", u"zev", texts[0], texts[1])) << name;
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(file.parent_path()), {}), 1)
            << name;
    }
}

} // namespace
