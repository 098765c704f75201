#include "child.hpp"
#include "repo_fixture.hpp"

#include "objects/store/sweep.hpp"
#include "system/os.hpp"

using namespace test;

using RepositoryRecord = RepositoryTest;

TEST_F(RepositoryRecord, IsMadeInNoFullDirectory) {
    write(dir.path() / "full/file", "x");
    EXPECT_REFUSED(zRepositoryInit((dir / u"full").c_str(), false), 2);
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "full/.git"));
}

TEST_F(RepositoryRecord, SwitchesAreWrittenOnlyWhereTheyDiffer) {
    git(place, "config core.autocrlf true");
    ASSERT_OK(opened());
    EXPECT_EQ(git(place, "config --local core.autocrlf"), "false");
    EXPECT_EQ(git(place, "config --local core.filemode"), "false");
    const auto file = place / ".git/config";
    const auto before = std::filesystem::last_write_time(file);
    write(place / ".git/config.lock", ""); // a write would stumble over it
    ASSERT_OK(opened());
    EXPECT_EQ(std::filesystem::last_write_time(file), before);
}

TEST_F(RepositoryRecord, UsersSettingsDontCount) {
    ASSERT_OK(commit({{u"docs/a.txt", "one\n"}}));
    write(dir.path() / "home/.gitconfig",
          "[init]\n\tdefaultBranch = trunk\n[core]\n\tautocrlf = true\n");
    git_buf before{};
    git_libgit2_opts(GIT_OPT_GET_SEARCH_PATH, GIT_CONFIG_LEVEL_GLOBAL, &before);
    git_libgit2_opts(GIT_OPT_SET_SEARCH_PATH, GIT_CONFIG_LEVEL_GLOBAL,
                     (dir.path() / "home").c_str());
    RepositoryPtr made(zRepositoryInit((dir / u"made").c_str(), false));
    RepositoryPtr copy(
        zRepositoryClone(place.u16string().c_str(), (dir / u"clone").c_str(), false));
    git(dir.path(), "init -q --bare empty");
    RepositoryPtr first(
        zRepositoryClone((dir / u"empty").c_str(), (dir / u"first").c_str(), false));
    git_libgit2_opts(GIT_OPT_SET_SEARCH_PATH, GIT_CONFIG_LEVEL_GLOBAL, before.ptr);
    git_buf_dispose(&before);
    ASSERT_OK(made && copy && first);
    for (const char *name : {"made", "first"})
        EXPECT_EQ(git(dir.path() / name, "symbolic-ref HEAD"), "refs/heads/master");
    EXPECT_EQ(git(dir.path() / "first", "config --local --get-regexp '^(branch|init)'"),
              "branch.master.remote origin\nbranch.master.merge refs/heads/master");
    EXPECT_EQ(read(dir.path() / "clone/docs/a.txt"), "one\n");
    EXPECT_EQ(git(dir.path() / "clone", "status --porcelain"), "");
}

TEST_F(RepositoryRecord, IdIsDrawnOnceAndKept) {
    for (const char *malformed : {"abc", "0123456789012345678901234567890123456789ff", "zz"}) {
        git(place, std::string("config zev.id ") + malformed);
        EXPECT_TRUE(zOidIsZero(zRepositoryId(opened().get(), false))) << malformed;
        EXPECT_EQ(git(place, "config zev.id"), malformed); // looking writes nothing
    }
    const std::string id = hex(zRepositoryId(repository.get(), true));
    EXPECT_EQ(git(place, "config zev.id"), id);
    EXPECT_EQ(hex(zRepositoryId(opened().get(), true)), id);
}

// Killed on the way: nothing looks like a repository, and the next call ends what was begun.
TEST_F(RepositoryRecord, DestroyIsEndedByTheNext) {
    repository.reset();
    write(place / "sub/file", "x");
    std::filesystem::permissions(place / "sub/file", std::filesystem::perms::owner_read);
    Child child([&] {
        static decltype(zev::os::calls.rename) real;
        real = zev::os::calls.rename;
        zev::os::calls.rename = [](const char *from, const char *to, unsigned flags) {
            return real(from, to, flags) ? -1 : kill(getpid(), SIGKILL);
        };
        return zRepositoryDestroy(place.u16string().c_str());
    });
    EXPECT_EQ(child.wait(), 256 + SIGKILL);
    EXPECT_FALSE(std::filesystem::exists(place));
    EXPECT_EQ(zRepositoryOpen((dir / u".zev-removed").c_str()), nullptr);
    ASSERT_OK(zRepositoryDestroy(place.u16string().c_str()));
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
    EXPECT_REFUSED(zRepositoryDestroy(dir.path().u16string().c_str()), 3);
}

// By a link, with the link; and under the longest names, which have no room for what is put to them
// aside.
TEST_F(RepositoryRecord, DestroyTakesLinksAndLongNames) {
    repository.reset();
    namespace fs = std::filesystem;
    const auto destroy = [](const fs::path &path) {
        return zRepositoryDestroy(path.u16string().c_str());
    };
    const auto link = dir.path() / "link";
    fs::create_symlink(place, link);
    EXPECT_OK(destroy(link));
    EXPECT_FALSE(fs::exists(fs::symlink_status(link)));
    EXPECT_FALSE(fs::exists(place));
    for (const size_t length : {60u, 241u, 255u}) {
        const fs::path path = dir.path() / std::string(length, 'n');
        git(dir.path(), "init -q " + path.string());
        EXPECT_OK(destroy(path)) << length;
    }
    EXPECT_TRUE(fs::is_empty(dir.path()));
    // Whoever may put a name here leads nothing out of the way, nor anybody's files into it.
    const TempDir others;
    test::write(others.path() / "kept/file", "another's");
    fs::create_directory_symlink(others.path(), dir.path() / ".zev-removed");
    git(dir.path(), "init -q " + place.string());
    EXPECT_FALSE(destroy(place));
    EXPECT_REFUSED(destroy(dir.path() / "none"), 3);
    EXPECT_TRUE(fs::exists(place / ".git/HEAD") && fs::exists(others.path() / "kept/file"));
}

TEST_F(RepositoryRecord, AnotherUsersIsRefused) {
    if (geteuid() != 0) GTEST_SKIP() << "needs to give a repository away";
    repository.reset();
    for (const char *name : {"copy", "copy/.git"})
        ASSERT_EQ(chown((dir.path() / name).c_str(), 12345, 12345), 0);
    EXPECT_FAILS_WITH(opened(), -36);
    EXPECT_EQ(narrow(zErrorReason()),
              "repository path '" + place.string() + "' is not owned by current user");
}

// ---- What a killed writer leaves

namespace {

struct SweepTest : RepositoryTest {
    // Kills a process that holds the lock on a file of the Git directory, with these files made
    // under it.
    void crash(const char *guarded, std::initializer_list<const char *> files) {
        Child child([&] {
            const auto target = (place / ".git" / guarded).u16string();
            if (!zFlockOpen(target.c_str(), true)) return 1;
            for (const char *file : files) write(place / ".git" / file, "");
            return kill(getpid(), SIGKILL);
        });
        ASSERT_EQ(child.wait(), 256 + SIGKILL);
    }
    bool stays(const char *file) { // over a sweep
        EXPECT_OK(zev::sweep_stale(repository.get()));
        return there(file);
    }
    bool there(const char *file) { return std::filesystem::exists(place / ".git" / file); }
};

} // namespace

TEST_F(SweepTest, TakesWhatWasMadeUnderTheLock) {
    ASSERT_OK(commit({{u"a", "1"}}));
    const auto files = {"index.lock",
                        "HEAD.lock",
                        "refs/heads/master.lock",
                        "refs/heads/deep/er.lock",
                        "packed-refs.lock",
                        "objects/tmp_object_git2_abc",
                        "objects/pack/pack_git2_abc",
                        "objects/cc/11111111111111111111111111111111111111",
                        "../deep/tmp_zev_0123456789abcdef"}; // in the user's directories
    crash("index", files);
    const auto past = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
    std::filesystem::last_write_time(place / ".git" / *(files.end() - 2), past); // libgit2 does so
    write(place / ".git/refs/heads/other", "");
    write(place / "deep/tmp_zev_0123456789abcdeg", ""); // a file of the user
    ASSERT_OK(zev::sweep_stale(repository.get()));
    for (const char *file : files) EXPECT_FALSE(there(file)) << file;
    EXPECT_TRUE(there("refs/heads/other") && there("../deep/tmp_zev_0123456789abcdeg"));
    // A branch that was only begun leaves no log; the log of another one stays.
    const std::string line =
        std::string(40, '0') + " " + std::string(40, '1') + " a <b> 1 +0000\tx\n";
    crash("index", {"refs/heads/begun.lock", "refs/heads/gone.lock"});
    write(place / ".git/logs/refs/heads/begun", line);
    write(place / ".git/logs/refs/heads/gone", line + line);
    ASSERT_OK(zev::sweep_stale(repository.get()));
    EXPECT_FALSE(there("logs/refs/heads/begun"));
    EXPECT_TRUE(there("logs/refs/heads/gone"));
    std::filesystem::remove(place / ".git/logs/refs/heads/gone");
    std::filesystem::remove(place / ".git/refs/heads/other");
    ASSERT_OK(commit({{u"a", "2"}}, u"after the crash"));
    expect_sound();
}

TEST_F(SweepTest, LeavesTheLocksOfTheLiving) {
    write(place / ".git/index.lock", "git's"); // nobody of ours crashed
    EXPECT_TRUE(stays("index.lock"));

    // It was there before the killed writer began.
    const auto past = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
    std::filesystem::last_write_time(place / ".git/index.lock", past);
    crash("index", {"HEAD.lock"});
    EXPECT_TRUE(stays("index.lock"));
    EXPECT_FALSE(there("HEAD.lock"));

    // Somebody writes at this moment.
    std::ofstream held(place / ".git/index.lock");
    EXPECT_TRUE(stays("index.lock"));
    held.close();

    // Our own lock is held.
    auto lock = guard(zFlockOpen((place / ".git/index").u16string().c_str(), false), zFlockClose);
    ASSERT_OK(lock);
    EXPECT_TRUE(stays("index.lock"));
}
