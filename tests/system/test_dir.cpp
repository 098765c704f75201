#include "child.hpp"
#include "support.hpp"

#include "system/os.hpp"

#include <cerrno>
#include <vector>

#include <sys/stat.h>

using test::narrow, test::TempDir;
namespace fs = std::filesystem;

namespace {

std::vector<std::string> names(const std::u16string &path) {
    std::vector<std::string> all;
    const auto dir = test::guard(zDirOpen(path.c_str()), zDirClose);
    while (const Dirent *entry = dir ? zDirRead(dir.get()) : nullptr)
        all.push_back(narrow(zDirentName(entry)));
    return all;
}

TEST(Dir, ReadsSorted) {
    TempDir dir;
    for (const char *name : {"b", "A", "\xC3\xA4", "a b", "bad\\name"})
        test::write(dir.path() / name, "");
    fs::create_directory_symlink("/", dir.path() / "C");
    const std::vector<std::string> expected = {
        ".", "..", "A", "a b", "b", "bad\xEF\xBF\xBDname", "C", "\xC3\xA4"};
    EXPECT_EQ(names(dir.path().u16string()), expected);
    EXPECT_EQ(names(dir / u"/"), expected);

    EXPECT_EQ(zDirOpen((dir / u"missing").c_str()), nullptr);
    EXPECT_EQ(zErrorClass(), 9);
    EXPECT_EQ(zErrorCode(), 2);
    EXPECT_EQ(zDirOpen((dir / u"b").c_str()), nullptr);
    EXPECT_EQ(zErrorCode(), 20);
}

struct Visits {
    std::vector<std::string> seen;
    std::string at; // where `answer` is given
    int32_t answer = 0;
};

int32_t visit(const zwchar *path, const Dirent *entry, void *context) {
    auto visits = static_cast<Visits *>(context);
    visits->seen.push_back(narrow(zPathFindName(path)) + (zDirentIsDir(entry) ? "/" : ""));
    return narrow(zDirentName(entry)) == visits->at ? visits->answer : 0;
}

struct Walk : testing::Test {
    TempDir dir;
    void SetUp() override {
        for (const char *name : {"a/x", "a/y", "b/c/z", "d"}) test::write(dir.path() / name, "");
    }
    bool walk(Visits &visits, bool recursive = true) {
        return zDirForeach(dir.path().u16string().c_str(), recursive, visit, &visits);
    }
};

TEST_F(Walk, OrderAndEnds) {
    using Seen = std::vector<std::string>;
    const struct {
        Visits visits;
        bool result;
        Seen seen;
    } cases[] = {
        {{}, true, {"a/", "x", "y", "b/", "c/", "z", "d"}},
        {{{}, "b", 1}, true, {"a/", "x", "y", "b/", "d"}},        // stays out of one directory
        {{{}, "z", -1}, true, {"a/", "x", "y", "b/", "c/", "z"}}, // ends all levels
        {{{}, "x", -2}, false, {"a/", "x"}},
    };
    for (const auto &row : cases) {
        Visits visits = row.visits;
        EXPECT_EQ(walk(visits), row.result) << row.visits.at;
        EXPECT_EQ(visits.seen, row.seen) << row.visits.at;
    }
    Visits flat, nowhere;
    EXPECT_TRUE(walk(flat, false));
    EXPECT_EQ(flat.seen, (Seen{"a/", "b/", "d"}));
    EXPECT_FALSE(zDirForeach((dir / u"missing").c_str(), true, visit, &nowhere));
}

TEST_F(Walk, Remove) {
    const std::u16string top = dir / u"b";
    EXPECT_FALSE(zDirRemove(top.c_str(), false, false));
    EXPECT_EQ(zErrorCode(), 41);
    fs::create_directory(dir.path() / "b/c/empty");
    EXPECT_FALSE(zDirRemove(top.c_str(), true, false)); // a file is left
    EXPECT_FALSE(fs::exists(dir.path() / "b/c/empty"));
    EXPECT_TRUE(fs::exists(dir.path() / "b/c/z"));
    EXPECT_FALSE(zDirRemove(top.c_str(), false, true)); // a directory is left
    chmod((dir.path() / "b/c/z").c_str(), 0444);
    EXPECT_OK(zDirRemove(top.c_str(), true, true));
    EXPECT_FALSE(fs::exists(dir.path() / "b"));
    EXPECT_TRUE(zDirRemove(top.c_str(), true, true));
    EXPECT_TRUE(zDirRemove(top.c_str(), false, false));
    EXPECT_FALSE(zDirRemove((dir / u"d").c_str(), true, true)); // no directory
    EXPECT_TRUE(fs::exists(dir.path() / "d"));
}

TEST_F(Walk, RemovalStaysInside) {
    TempDir outside;
    test::write(outside.path() / "kept/file", "1");
    fs::create_directory_symlink(outside.path() / "kept", dir.path() / "b/link");
    fs::create_symlink(outside.path() / "kept/file", dir.path() / "a/link");
    EXPECT_OK(zDirRemove((dir / u"b").c_str(), true, true));
    EXPECT_OK(zDirClear((dir / u"a").c_str()));
    EXPECT_TRUE(fs::is_empty(dir.path() / "a"));
    fs::create_directory_symlink(outside.path() / "kept", dir.path() / "top");
    EXPECT_FALSE(zDirClear((dir / u"top").c_str()));
    EXPECT_FALSE(zDirRemove((dir / u"top/").c_str(), true, true));
    EXPECT_EQ(test::read(outside.path() / "kept/file"), "1");
}

// Paths here are longer than a buffer, and the owner took rights from himself.
TEST(Dir, RemovesDeepAndClosedTrees) {
    TempDir dir;
    chmod(dir.path().c_str(), 0777);
    test::Child child([&] {
        if (!test::unprivileged()) return 10;
        fs::path deep = dir.path() / "top";
        for (int level = 0; level < 60; ++level) deep /= "directory-with-a-long-name";
        fs::create_directories(deep);
        test::write(deep / "file", "1");
        fs::create_directory(dir.path() / "top/closed");
        test::write(dir.path() / "top/closed/file", "1");
        chmod((dir.path() / "top/closed").c_str(), 0);
        chmod((dir.path() / "top").c_str(), 0500);
        const std::u16string top = dir / u"top";
        if (!zev::os::remove_tree(top.c_str(), true)) return 11;
        if (!fs::is_empty(dir.path() / "top")) return 12;
        return zev::os::remove_tree(top.c_str(), false) && !fs::exists(dir.path() / "top") ? 0 : 13;
    });
    EXPECT_EQ(child.wait(), 0);
}

TEST(Dir, Make) {
    TempDir dir;
    EXPECT_OK(zDirMake((dir / u"a\\b/c/").c_str(), true));
    EXPECT_TRUE(fs::is_directory(dir.path() / "a/b/c"));
    EXPECT_OK(zDirMake((dir / u"a/b/c").c_str(), true));
    EXPECT_FALSE(zDirMake((dir / u"a").c_str(), false));
    EXPECT_EQ(zErrorClass(), 10);
    EXPECT_EQ(zErrorCode(), 17);
    EXPECT_FALSE(zDirMake((dir / u"x/y").c_str(), false));
    EXPECT_EQ(zErrorClass(), 3);
    test::write(dir.path() / "f", "");
    EXPECT_FALSE(zDirMake((dir / u"f/g/h").c_str(), true));
    chmod(dir.path().c_str(), 0555);
    test::Child child([&] { // on the way to a refused place nothing counts as made
        return test::unprivileged() && !zDirMake((dir / u"q/r").c_str(), true) && zErrorCode() == 13
                   ? 0
                   : 1;
    });
    EXPECT_EQ(child.wait(), 0);
    chmod(dir.path().c_str(), 0755);
}

TEST(Dir, EmptyAndSign) {
    TempDir dir;
    EXPECT_TRUE(zDirIsEmpty(dir.path().u16string().c_str()));
    EXPECT_TRUE(zDirIsEmpty((dir / u"missing").c_str()));
    test::write(dir.path() / ".hidden", "");
    EXPECT_FALSE(zDirIsEmpty(dir.path().u16string().c_str()));

    const auto now = zev::os::calls.now;
    zev::os::calls.now = [] { return int64_t{0x5F000000} * 1'000'000'000; };
    char first[34], second[34];
    EXPECT_TRUE(zDirSign(u"drawing", first) && zDirSign(u"\u5716", second));
    zev::os::calls.now = now;
    EXPECT_EQ(std::string(first, 25), "d00000007        5F000000");
    EXPECT_EQ(std::string(second, 25), "_00000001        5F000000");
    EXPECT_STRNE(first + 25, second + 25);
    zRaiseLocked(nullptr);
    EXPECT_FALSE(zDirSign(nullptr, first));
    EXPECT_EQ(zErrorClass(), 7); // raises nothing
    EXPECT_EQ(strlen(second), 33u);
}

} // namespace
