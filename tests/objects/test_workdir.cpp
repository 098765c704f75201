#include "copy_fixture.hpp"
#include "system/os.hpp"

#include "zev/workdir.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

using namespace test;

namespace fs = std::filesystem;

namespace {

struct WorkdirTest : WorkingCopyTest {
    // What stands in the work directory, directories with a slash.
    std::vector<std::string> tree() {
        std::vector<std::string> names;
        for (auto at = fs::recursive_directory_iterator(place); at != fs::end(at); ++at) {
            const std::string name = at->path().lexically_relative(place).string();
            if (name == ".git")
                at.disable_recursion_pending();
            else
                names.push_back(name + (at->is_directory() && !at->is_symlink() ? "/" : ""));
        }
        std::ranges::sort(names);
        return names;
    }
    using Names = std::vector<std::string>;
};

bool writable(const fs::path &path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && status.st_mode & 0222;
}

} // namespace

TEST_F(WorkdirTest, NothingLeadsOut) {
    const fs::path outside = dir.path() / "outside";
    write(outside / "keep", "theirs");
    fs::create_directory_symlink(outside, place / "out");
    put("docs/a", "1");
    for (auto path : {u"out/keep", u"docs/../../outside/keep", u"..", u"docs/.GIT/x"}) {
        SCOPED_TRACE(narrow(path));
        const auto refused = [](bool done) { return !done && zErrorClass() == 2; };
        struct stat status {};
        EXPECT_TRUE(refused(zWorkdirStat(&status, repository.get(), path)));
        EXPECT_TRUE(refused(zWorkdirPathExists(repository.get(), path)));
        EXPECT_TRUE(refused(zWorkdirChread(repository.get(), path, true)));
        for (auto take : {zWorkdirUnlink, zWorkdirRemove, zWorkdirDrop, zWorkdirRmdirR})
            EXPECT_TRUE(refused(take(repository.get(), path)));
        EXPECT_TRUE(refused(zWorkdirRemoveObstacle(repository.get(), path, 0)));
    }
    for (const zwchar *path : {u"", u"/", u"./"})
        for (auto take : {zWorkdirRemove, zWorkdirDrop})
            EXPECT_FALSE(take(repository.get(), path)) << narrow(path);
    EXPECT_OK(zWorkdirChread(repository.get(), u"out", true)); // a link has no mode of its own
    EXPECT_OK(zWorkdirRmdirR(repository.get(), u"out"));
    EXPECT_TRUE(writable(outside / "keep"));
    EXPECT_OK(zWorkdirRemove(repository.get(), u"out")); // the link alone
    EXPECT_EQ(tree(), (Names{"docs/", "docs/a"}));
    EXPECT_EQ(read(outside / "keep"), "theirs");
}

TEST_F(WorkdirTest, KeepsTheGitDirectoryWhereverItLies) {
    fs::create_directory(place / "in");
    git(place, "init -q --separate-git-dir " + (place / "in/store").string() + " .");
    repository.reset(zRepositoryOpen(place.u16string().c_str()));
    ASSERT_OK(repository);
    for (auto take : {zWorkdirRemove, zWorkdirDrop})
        for (const zwchar *path : {u"in", u"in/store"}) EXPECT_FALSE(take(repository.get(), path));
    EXPECT_TRUE(fs::exists(place / "in/store/HEAD"));
}

TEST_F(WorkdirTest, RenameKeepsWhatStandsInTheWay) {
    const auto rename = [&](const zwchar *from, const zwchar *to, bool replace) {
        return zWorkdirRename(zRepositoryWorkdir(repository.get()), from, to, replace);
    };
    put("a", "new"), put("b", "old"), put("full/f", "1"), put("tree/f", "2");
    for (auto path : {"hollow/x/y", "full/x/y"}) fs::create_directories(place / path);
    const Names before = tree();
    for (auto [from, to, replace] : {std::tuple{u"a", u"b", false},
                                     {u"a", u"full", true},
                                     {u"a", u"a", true},
                                     {u"a", u"../c", true},
                                     {u"tree/", u"tree/below/it", true}})
        EXPECT_FALSE(rename(from, to, replace)) << narrow(to);
    EXPECT_EQ(tree(), before); // with the empty directories
    static const auto real = zev::os::calls.rename;
    zev::os::calls.rename = [](const char *from, const char *to, unsigned flags) {
        const bool refused = std::string_view(from).ends_with("/tree");
        return refused ? (errno = EACCES, -1) : real(from, to, flags);
    };
    EXPECT_FALSE(rename(u"tree", u"b", true));
    zev::os::calls.rename = real;
    EXPECT_EQ(read(place / "b"), "old"); // what was to make way is back
    EXPECT_OK(rename(u"a", u"b", true));
    EXPECT_OK(rename(u"tree", u"b", true));
    EXPECT_OK(rename(u"b", u"hollow", false));
    EXPECT_EQ(read(place / "hollow/f"), "2");
}
