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

struct Dirs : testing::Test {
    TempDir dir;
    const std::u16string top = dir.path().u16string();
};

TEST_F(Dirs, ReadsSorted) {
    for (const char *name : {"b", "A", "\xC3\xA4", "a b", "bad\\name"})
        test::write(dir.path() / name, "");
    fs::create_directory_symlink("/", dir.path() / "C");
    const std::vector<std::string> expected = {
        ".", "..", "A", "a b", "b", "bad\xEF\xBF\xBDname", "C", "\xC3\xA4"};
    EXPECT_EQ(names(top), expected);
    EXPECT_EQ(names(dir / u"/"), expected);

    EXPECT_TRUE(!zDirOpen((dir / u"missing").c_str()) && zErrorCode() == 2);
    EXPECT_TRUE(!zDirOpen((dir / u"b").c_str()) && zErrorCode() == 20);
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

struct Walk : Dirs {
    void SetUp() override {
        for (const char *name : {"a/x", "a/y", "b/c/z", "d"}) test::write(dir.path() / name, "");
    }
    bool walk(Visits &visits, bool recursive) {
        return zDirForeach(top.c_str(), recursive, visit, &visits);
    }
};

TEST_F(Walk, OrderAndEnds) {
    using Seen = std::vector<std::string>;
    const struct {
        Visits visits;
        bool result;
        Seen seen;
        bool recursive = true;
    } cases[] = {
        {{}, true, {"a/", "x", "y", "b/", "c/", "z", "d"}},
        {{}, true, {"a/", "b/", "d"}, false},
        {{{}, "b", 1}, true, {"a/", "x", "y", "b/", "d"}},        // stays out of one directory
        {{{}, "z", -1}, true, {"a/", "x", "y", "b/", "c/", "z"}}, // ends all levels
        {{{}, "x", -2}, false, {"a/", "x"}},
    };
    for (const auto &row : cases) {
        Visits visits = row.visits;
        EXPECT_EQ(walk(visits, row.recursive), row.result) << row.visits.at;
        EXPECT_EQ(visits.seen, row.seen) << row.visits.at;
    }
    Visits nowhere;
    EXPECT_FALSE(zDirForeach((dir / u"missing").c_str(), true, visit, &nowhere));
}

TEST_F(Walk, RemoveTakesWhatItIsToldTo) {
    const std::u16string b = dir / u"b";
    fs::create_directory(dir.path() / "b/c/empty");
    for (bool files : {false, true}) // the other kind is left
        EXPECT_FALSE(zDirRemove(b.c_str(), !files, files));
    EXPECT_TRUE(!fs::exists(dir.path() / "b/c/empty") && fs::exists(dir.path() / "b/c/z"));
    chmod((dir.path() / "b/c/z").c_str(), 0444);
    EXPECT_OK(zDirRemove(b.c_str(), true, true));
    EXPECT_FALSE(fs::exists(dir.path() / "b"));
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
TEST_F(Dirs, RemovesDeepAndClosedTrees) {
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
        const std::u16string closed = dir / u"top";
        if (!zev::os::remove_tree(closed.c_str(), true)) return 11;
        if (!fs::is_empty(closed)) return 12;
        return zev::os::remove_tree(closed.c_str(), false) && !fs::exists(closed) ? 0 : 13;
    });
    EXPECT_EQ(child.wait(), 0);
}

TEST_F(Dirs, MakingFailsWithItsReason) {
    test::write(dir.path() / "f", "");
    EXPECT_FALSE(zDirMake((dir / u"f/g/h").c_str(), true));
    chmod(dir.path().c_str(), 0555);
    test::Child child([&] { // on the way to a refused place nothing counts as made
        if (!test::unprivileged()) return 1;
        return !zDirMake((dir / u"q/r").c_str(), true) && zErrorCode() == 13 ? 0 : 2;
    });
    EXPECT_EQ(child.wait(), 0);
    chmod(dir.path().c_str(), 0755);
}

} // namespace
