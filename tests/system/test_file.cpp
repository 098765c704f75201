#include "child.hpp"
#include "support.hpp"

#include "system/os.hpp"

#include <cerrno>
#include <functional>

#include <sys/resource.h>
#include <sys/stat.h>

using test::TempDir;
namespace fs = std::filesystem;
namespace os = zev::os;

namespace {

struct Files : testing::Test {
    TempDir dir;
    const std::u16string f = dir / u"f";
    const fs::path file = dir.path() / "f", tree = dir.path() / "tree";
    const os::Calls calls = os::calls;
    void SetUp() override { test::write(file, "old"); }
    void TearDown() override { os::calls = calls; }
    auto entries() const { return std::distance(fs::directory_iterator(dir.path()), {}); }
};
using Replace = Files;

TEST_F(Files, AFullDiskIsToldByTheFlush) {
    char bytes[16] = {};
    FILE *full = zFileOpen(u"/dev/full", u"wb");
    EXPECT_EQ(zFilePrintfA(full, "x"), 1); // what a full disk refuses shows at the latest here:
    EXPECT_TRUE(!zFileFlush(full) && zErrorCode() == 28);
    EXPECT_TRUE(zFileRead(full, bytes, 1) == 0 && zErrorCode() == 9); // not open for that
    zFileClose(full);
}

TEST_F(Files, MoveKeepsWhatIsThere) {
    test::write(dir.path() / "b", "b");
    fs::create_directory(dir.path() / "empty");
    const std::u16string b = dir / u"b", empty = dir / u"empty";
    const auto refused = [&](const std::u16string &from, const std::u16string &to, bool replace) {
        return !zMove(from.c_str(), to.c_str(), replace) && zErrorClass() == 9;
    };
    EXPECT_TRUE(refused(f, b, false) && zErrorCode() == 17);
    EXPECT_TRUE(refused(f, empty, true) && refused(empty, b, false));
    // A file system that can't refuse by itself.
    os::calls.rename = [](const char *from, const char *to, unsigned flags) {
        return flags ? (errno = EINVAL, -1) : rename(from, to);
    };
    EXPECT_TRUE(refused(f, b, false) && refused(f, empty, false));
    EXPECT_OK(zMove(empty.c_str(), (dir / u"other").c_str(), false));
    EXPECT_OK(zMove(f.c_str(), (dir / u"c/").c_str(), false)); // the slash asks for nothing
    os::calls = calls;
    EXPECT_OK(zMove((dir / u"c//").c_str(), b.c_str(), true));
    EXPECT_EQ(test::read(dir.path() / "b"), "old");
    EXPECT_FALSE(fs::exists(file));
}

TEST_F(Files, MoveOfOneFile) {
    const std::u16string b = dir / u"b";
    for (bool replace : {false, true}) { // onto itself there is nothing to do
        EXPECT_OK(zMove(f.c_str(), (dir / u"./f").c_str(), replace));
        EXPECT_FALSE(zMove(b.c_str(), b.c_str(), replace));
    }
    fs::create_hard_link(file, dir.path() / "b");
    EXPECT_FALSE(zMove(f.c_str(), b.c_str(), false));
    EXPECT_OK(zMove(f.c_str(), b.c_str(), true));
    EXPECT_EQ(test::read(dir.path() / "b"), "old");
    EXPECT_EQ(entries(), 1);
}

// Neither a file nor a link: nothing takes its place.
TEST_F(Files, PipesAndDevicesStay) {
    ASSERT_EQ(mkfifo((dir.path() / "pipe").c_str(), 0600), 0);
    const std::u16string pipe = dir / u"pipe";
    const std::function<bool()> writers[] = {
        [&] { return os::replace_file(pipe.c_str(), "x", 1); },
        [&] { return os::make_link(pipe.c_str(), "f"); },
        [&] { return zCopy(f.c_str(), pipe.c_str()); },
        [&] { return zMove(f.c_str(), pipe.c_str(), true); },
    };
    for (const auto &write : writers) {
        EXPECT_FALSE(write());
        EXPECT_EQ(errno, ENOTSUP);
        EXPECT_TRUE(fs::is_fifo(dir.path() / "pipe"));
        EXPECT_EQ(entries(), 2) << "left over";
    }
}

// A tree with what is easily lost: modes, times, links, names beyond a path buffer.
void make_tree(const fs::path &top) {
    test::write(top / "sub/file", std::string(300'000, 'x'));
    test::write(top / std::string(200, 'l') / std::string(200, 'm') / std::string(200, 'n'), "n");
    fs::create_symlink("nowhere", top / "link");
    chmod((top / "sub/file").c_str(), 0440);
    chmod((top / "sub").c_str(), 0750);
    fs::last_write_time(top / "sub/file", fs::file_time_type(std::chrono::hours(-100'000)));
}

void expect_same(const fs::path &copy, const fs::path &model) {
    EXPECT_EQ(
        test::run("diff -r --no-dereference " + copy.string() + " " + model.string() + " 2>&1"),
        "");
    EXPECT_EQ(fs::last_write_time(copy / "sub/file"), fs::last_write_time(model / "sub/file"));
    for (const char *name : {"sub/file", "sub"})
        EXPECT_EQ(fs::status(copy / name).permissions(), fs::status(model / name).permissions());
}

TEST_F(Files, MoveAcrossDevices) {
    make_tree(tree);
    make_tree(dir.path() / "model");
    const fs::path other = "/dev/shm/zev-test-" + std::to_string(getpid());
    struct stat here, there;
    stat(dir.path().c_str(), &here);
    if (stat("/dev/shm", &there) != 0 || here.st_dev == there.st_dev)
        GTEST_SKIP() << "one device only";
    fs::create_directory(other);
    const std::u16string to = other.u16string() + u"/tree";
    EXPECT_OK(zMove((dir / u"tree").c_str(), to.c_str(), false));
    expect_same(other / "tree", dir.path() / "model");
    EXPECT_FALSE(fs::exists(tree));
    EXPECT_FALSE(zMove((dir / u"model").c_str(), to.c_str(), false)); // the source stays
    os::calls.syncfs = [](int) { return errno = EIO, -1; };           // until the copy is safe, too
    EXPECT_FALSE(zMove((dir / u"model").c_str(), (to + u"2").c_str(), false));
    EXPECT_TRUE(fs::exists(dir.path() / "model/sub/file"));
    EXPECT_EQ(std::distance(fs::directory_iterator(other), {}), 1); // and nothing is left over
    fs::remove_all(other);
}

TEST_F(Files, Copy) {
    make_tree(tree);
    EXPECT_OK(zCopy((dir / u"tree").c_str(), (dir / u"new/parent/copy").c_str()));
    expect_same(dir.path() / "new/parent/copy", tree);
    fs::create_directory(dir.path() / "there"); // takes it in
    EXPECT_OK(zCopy((dir / u"tree/").c_str(), (dir / u"there").c_str()));
    expect_same(dir.path() / "there/tree", tree);
    test::write(dir.path() / "there/tree/sub/more", "kept");
    EXPECT_OK(zCopy((dir / u"tree").c_str(), (dir / u"there").c_str())); // filled up
    EXPECT_EQ(test::read(dir.path() / "there/tree/sub/more"), "kept");
    EXPECT_FALSE(zCopy((dir / u"tree").c_str(), (dir / u"tree/new/parent/copy").c_str()));
    EXPECT_FALSE(fs::exists(dir.path() / "tree/new"));
    test::write(dir.path() / "other", "new");
    EXPECT_OK(zCopy((dir / u"other").c_str(), f.c_str()));
    EXPECT_FALSE(zCopy(f.c_str(), f.c_str()));
    EXPECT_EQ(test::read(file), "new");
}

// Deeper than a process may have files open, and with more to do on the way back.
TEST_F(Files, DeepTrees) {
    const std::string wide(200, 'w'); // a few such names fill what is read at once
    std::string above = "/d", below;
    for (int level = 0; level < 50; ++level) above += "/d";
    for (int level = 0; level < 20; ++level) below += "/d";
    for (char n = 'a'; n < 'a' + 12; ++n)
        fs::create_directories(dir.path().string() + "/tree" + above + "/" + n + wide + below);
    const std::u16string top = dir / u"tree", copy = dir / u"copy";
    const fs::path deep = dir.path().string() + "/copy" + above + "/h" + wide + below + "/file";
    test::Child child([&] {
        const rlimit limit = {60, 60};
        setrlimit(RLIMIT_NOFILE, &limit);
        if (os::holds_file(top.c_str()) != 0) return 1;
        if (!zCopy(top.c_str(), copy.c_str()) || !fs::is_directory(deep.parent_path())) return 2;
        test::write(deep, "1");
        if (os::holds_file(copy.c_str()) != 1) return 3;
        return zDirClear(copy.c_str()) && fs::is_empty(dir.path() / "copy") ? 0 : 4;
    });
    EXPECT_EQ(child.wait(), 0);
}

// A stick knows no modes, a server no syncing of names: what is copied or replaced there does
// without.
TEST_F(Files, FileSystemWithoutModes) {
    make_tree(tree);
    os::calls.fchmod = [](int, mode_t) { return errno = EPERM, -1; };
    os::calls.fsync = [](int fd) {
        struct stat info;
        return os::fd_stat(fd, &info) && S_ISREG(info.st_mode) ? 0 : (errno = EINVAL, -1);
    };
    EXPECT_OK(zCopy((dir / u"tree").c_str(), (dir / u"copy").c_str()));
    EXPECT_EQ(fs::file_size(dir.path() / "copy/sub/file"), 300'000u);
    EXPECT_TRUE(os::replace_file((dir / u"copy/sub/file").c_str(), "new", 3));
}

TEST_F(Files, RootsCopyRunsWithNobodysRights) {
    struct stat info;
    if (geteuid() != 0 || chown(file.c_str(), 65534, 65534) != 0) GTEST_SKIP() << "not root";
    chmod(file.c_str(), 06755);
    EXPECT_OK(zCopy(f.c_str(), (dir / u"copy").c_str()));
    ASSERT_OK(zFileStatW((dir / u"copy").c_str(), &info));
    EXPECT_EQ(info.st_uid, 0u);
    EXPECT_EQ(info.st_mode & 07777, 0755u);
}

// ---- Replacement

TEST_F(Replace, OldOrNewAtEveryFailure) {
    chmod(file.c_str(), 0640);
    void (*const arm[])() = {
        [] { os::calls.open = [](auto, auto, auto) { return errno = EMFILE, -1; }; },
        [] { os::calls.write = [](auto, auto, auto) { return errno = ENOSPC, ssize_t{-1}; }; },
        [] { os::calls.fsync = [](auto) { return errno = EIO, -1; }; },
        [] { os::calls.rename = [](auto, auto, auto) { return errno = EACCES, -1; }; },
    };
    for (auto fail : arm) {
        fail();
        EXPECT_FALSE(os::replace_file(f.c_str(), "new", 3));
        os::calls = calls;
        EXPECT_EQ(test::read(file), "old");
        EXPECT_EQ(entries(), 1) << "left over";
    }
    static int syncs;
    syncs = 0;
    os::calls.fsync = [](int) { return ++syncs, 0; };
    EXPECT_TRUE(os::replace_file(f.c_str(), "new", 3));
    EXPECT_EQ(syncs, 2); // the file, then its directory
    EXPECT_EQ(test::read(file), "new");
    EXPECT_EQ(fs::status(file).permissions(), fs::perms{0640});
}

TEST_F(Replace, Streamed) {
    for (const char *text : {"half", "whole"}) {
        os::Replacement replacement(f.c_str(), 0600);
        ASSERT_TRUE(replacement);
        fputs(text, replacement.file());
        EXPECT_EQ(test::read(file), "old");
        if (*text == 'h') continue; // dropped
        EXPECT_TRUE(replacement.commit(false) && !replacement.commit());
    }
    EXPECT_EQ(entries(), 1);
    EXPECT_EQ(test::read(file), "whole");
    EXPECT_FALSE(os::Replacement(dir.path().u16string().c_str())); // a directory stays
    fs::create_symlink("f", dir.path() / "link"); // the link is replaced, not what it names
    EXPECT_TRUE(os::replace_file((dir / u"link").c_str(), "other", 5));
    EXPECT_EQ(test::read(file), "whole");
}

// ---- Trash

struct Trash : Files {
    fs::path trash = dir.path() / "data/Trash";
    Trash() { setenv("XDG_DATA_HOME", (dir.path() / "data").c_str(), 1); }
    ~Trash() override { unsetenv("XDG_DATA_HOME"); }
    bool drop(const char16_t *name) { return zDrop((dir / name).c_str()); }
};

TEST_F(Trash, KeepsEveryVersion) {
    for (const char *content : {"one", "two"}) {
        test::write(dir.path() / "a b\xC3\xA4.dwx", content);
        EXPECT_TRUE(drop(u"a b\u00E4.dwx"));
    }
    test::write(dir.path() / "tree/sub/file", "1");
    EXPECT_TRUE(drop(u"tree\\"));
    fs::create_symlink("data", dir.path() / "link");
    EXPECT_TRUE(drop(u"link")); // itself
    for (auto [name, content] : {std::pair{"a b\xC3\xA4.dwx", "one"},
                                 {"a b\xC3\xA4.2.dwx", "two"},
                                 {"tree/sub/file", "1"}})
        EXPECT_EQ(test::read(trash / "files" / name), content);
    EXPECT_TRUE(fs::is_symlink(trash / "files/link") && fs::exists(dir.path() / "data"));
    const std::string info = test::read(trash / "info/a b\xC3\xA4.2.dwx.trashinfo");
    EXPECT_EQ(info.find("[Trash Info]\nPath=" + dir.path().string() +
                        "/a%20b%C3%A4.dwx\nDeletionDate=20"),
              0u)
        << info;
    EXPECT_EQ(fs::status(trash).permissions(), fs::perms{0700});
}

TEST_F(Trash, LongNames) {
    const std::string letters(240, 'n'), longest = letters + "\xC3\xA4\xC3\xA4\xC3\xA4.dwx";
    // Whole characters, with room for ".trashinfo".
    for (const std::string &name : {letters + ".dwx", letters.substr(1) + ".2.dwx"}) {
        test::write(dir.path() / longest, "1");
        EXPECT_TRUE(drop(fs::path(longest).u16string().c_str()));
        EXPECT_TRUE(fs::exists(trash / "files" / name)) << name;
        const std::string info = test::read(trash / "info" / (name + ".trashinfo"));
        EXPECT_NE(info.find("nn%C3%A4%C3%A4%C3%A4.dwx\n"), info.npos) << info; // the true one
    }
}

// What lies in the trash's place, and what becomes of a file that a plain user drops.
TEST_F(Trash, OnlyWhereThereCanBeNoneIsAnythingDeleted) {
    const fs::path real = dir.path() / "real", data = trash.parent_path();
    const struct {
        const char *reason;
        std::function<void()> lay;
        int error;        // 0: dropped
        const char *kept; // where the file is afterwards
    } rows[] = {
        {"none yet", [] {}, 0, "data/Trash/files/f"},
        {"a link", [&] { fs::create_directory_symlink(real, trash); }, 0, "real/files/f"},
        {"a link above", [&] { fs::remove(data), fs::create_directory_symlink(real, data); }, 0,
         "real/Trash/files/f"},
        {"on another device",
         [] { os::calls.rename = [](auto, auto, unsigned) { return errno = EXDEV, -1; }; }, 0,
         "data/Trash/files/f"},
        {"a link to nothing", [&] { fs::create_symlink("no", trash); }, EACCES, "f"},
        {"one to nothing above", [&] { fs::remove(data), fs::create_symlink("no/data", data); },
         EACCES, "f"},
        {"a file", [&] { test::write(trash, ""); }, EACCES, "f"},
        {"in parts a file", [&] { test::write(trash / "info", ""); }, EACCES, "f"},
        {"a closed one", [&] { fs::create_directory(trash), chmod(trash.c_str(), 0); }, EACCES,
         "f"},
        {"in a closed place", [&] { chmod(data.c_str(), 0); }, EACCES, "f"},
        {"where none can be made", [&] { chmod(data.c_str(), 0555); }, 0, ""},
    };
    chmod(dir.path().c_str(), 0777);
    fs::remove(file);
    for (const auto &row : rows) {
        test::Child child([&] {
            if (!test::unprivileged()) return 1;
            fs::create_directories(data);
            fs::create_directory(real);
            test::write(file, "1");
            row.lay();
            const bool dropped = drop(u"f");
            if (dropped == (row.error != 0) || (!dropped && errno != row.error)) return 2;
            for (const fs::path &place : {data, trash}) chmod(place.c_str(), 0755);
            std::string found;
            for (const auto &entry : fs::recursive_directory_iterator(dir.path()))
                if (entry.path().filename() == "f")
                    found += entry.path().lexically_relative(dir.path()).string();
            return found == row.kept ? 0 : 3;
        });
        EXPECT_EQ(child.wait(), 0) << row.reason;
        for (const char *made : {"data", "real", "f"}) fs::remove_all(dir.path() / made);
    }
}

// HOME may still name another user's, where he lets us write.
TEST_F(Trash, AnotherUsersHomeIsNone) {
    const fs::path data = trash.parent_path();
    fs::create_directories(data);
    if (chown(data.c_str(), 12345, 12345)) GTEST_SKIP() << "for root";
    for (const fs::path &open : {dir.path(), data}) chmod(open.c_str(), 0777);
    test::Child child([&] { return test::unprivileged() && drop(u"f") ? 0 : 1; });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_TRUE(fs::is_empty(data) && !fs::exists(file));
}

TEST_F(Trash, Failures) {
    EXPECT_TRUE(!drop(u"missing") && errno == ENOENT);
    test::write(dir.path() / "sub/f", "1");
    for (const std::u16string &path : {dir / u"sub/..", dir / u"sub/./"}) { // no names of their own
        EXPECT_TRUE(!zDrop(path.c_str()) && errno == EACCES);
        EXPECT_TRUE(fs::exists(dir.path() / "sub/f"));
    }
    test::write(dir.path() / "closed/f", "1");
    chmod((dir.path() / "closed").c_str(), 0555);
    test::Child child(
        [&] { return test::unprivileged() && !drop(u"closed/f") && errno == EACCES ? 0 : 1; });
    EXPECT_TRUE(child.wait() == 0 && fs::exists(dir.path() / "closed/f"));
    // Trash that can't take it is no reason to destroy it.
    os::calls.write = [](auto, auto, auto) { return errno = ENOSPC, ssize_t{-1}; };
    EXPECT_TRUE(!drop(u"f") && errno == EIO);
    EXPECT_EQ(test::read(file), "old");
    EXPECT_TRUE(fs::is_empty(trash / "info"));
}

} // namespace
