#include "repo_fixture.hpp"

#include <zev/config.h>

using namespace test;

namespace {

using ConfigPtr = Held<Config, zConfigFree>;
using ConfigTest = RepositoryTest;

} // namespace

// `on` alone is true; it has no value, not an empty one.
TEST_F(ConfigTest, KeysWithoutAValue) {
    write(dir.path() / "settings", "[zev]\n\ton\n\tempty =\n");
    ConfigPtr config(zConfigRead((dir / u"settings").c_str()));
    EXPECT_TRUE(zConfigGetBool(config.get(), u"zev.on"));
    for (const zwchar *key : {u"zev.on", u"zev.empty"})
        EXPECT_EQ(narrow(zConfigGetString(config.get(), key)), "") << narrow(key);
    EXPECT_OK(zConfigSetString(config.get(), u"zev.on", u"true"));
    EXPECT_EQ(read(dir.path() / "settings"), "[zev]\n\ton = true\n\tempty =\n");
}

// A lock file that a killed writer left stops nobody, and what stands is not written again.
TEST_F(ConfigTest, WritesARepositoryUnderItsLock) {
    ConfigPtr config(zConfigRepo(repository.get()));
    ASSERT_OK(zConfigSetString(config.get(), u"zev.color", u"blue"));
    EXPECT_EQ(git(place, "config --local zev.color"), "blue");
    const auto past =
        std::filesystem::last_write_time(place / ".git/config") - std::chrono::hours(1);
    std::filesystem::last_write_time(place / ".git/config", past);
    ASSERT_OK(zConfigSetString(config.get(), u"zev.color", u"blue"));
    EXPECT_EQ(std::filesystem::last_write_time(place / ".git/config"), past);

    write(place / ".git/.config.zlck", "");
    write(place / ".git/config.lock", "half");
    ASSERT_OK(zConfigSetString(config.get(), u"zev.color", u"red"));
    EXPECT_EQ(git(place, "config --local zev.color"), "red");
}

// What the file was when it was read last says nothing of what it is.
TEST_F(ConfigTest, WritesWhatWasPutBackFromOutside) {
    ConfigPtr config(zConfigRepo(repository.get()));
    const std::string before = read(place / ".git/config");
    for (int round = 0; round < 2; ++round) {
        ASSERT_OK(zConfigSetString(config.get(), u"zev.color", u"blue"));
        EXPECT_EQ(git(place, "config --local zev.color"), "blue");
        write(place / ".git/config", before);
        EXPECT_EQ(zConfigGetString(config.get(), u"zev.color"), nullptr);
    }
}

// Another one's lock is respected, rights are kept, and what a link names is written.
TEST_F(ConfigTest, ChangesAFileAsGitDoes) {
    const auto real = dir.path() / "dots/gitconfig", link = dir.path() / "settings";
    write(real, "[user]\n\ttoken = x\n");
    std::filesystem::permissions(real, std::filesystem::perms{0600});
    std::filesystem::create_symlink(real, link);
    ConfigPtr config(zConfigRead((dir.path().u16string() + u"\\settings").c_str()));
    write(dir.path() / "dots/gitconfig.lock", "git's");
    EXPECT_FAILS_WITH(zConfigSetInt(config.get(), u"zev.n", 1), -14);
    EXPECT_EQ(read(dir.path() / "dots/gitconfig.lock"), "git's");
    std::filesystem::remove(dir.path() / "dots/gitconfig.lock");
    ASSERT_OK(zConfigSetInt(config.get(), u"zev.n", 1));
    EXPECT_EQ(read(real), "[user]\n\ttoken = x\n[zev]\n\tn = 1\n");
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(static_cast<int>(std::filesystem::status(real).permissions()), 0600);
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "dots/gitconfig.lock"));
}
