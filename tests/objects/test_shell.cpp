#include "conflict_fixture.hpp"

#include "objects/conflict/conflict.hpp"
#include "system/os.hpp"
#include "zev/shell.h"

#include <fcntl.h>

using namespace test;
namespace fs = std::filesystem;

namespace {

struct ShellTest : ConflictFixture {
    Repository *const shell = repository.get();
    std::string index_bytes() { return read(place / ".git/index"); }
};

TEST_F(ShellTest, EachOperationWritesTheIndex) {
    put("a.dwx", "one"), put("d/b.dwx", "two");
    EXPECT_OK(zShellAdd(shell, spec({u"*.dwx"}).get()));
    EXPECT_OK(zShellCommit(shell, nullptr, u"Ada", u"first"));
    EXPECT_OK(zShellMv(shell, u"d/b.dwx", u"d/c.dwx"));
    put("a.dwx", "changed");
    EXPECT_OK(zShellRefresh(shell, spec({u"a.dwx"}).get()));
    EXPECT_EQ(porcelain(), "M  a.dwx\nR  d/b.dwx -> d/c.dwx");
    EXPECT_OK(zShellCommit(shell, spec({u"a.dwx"}).get(), u"Ada", u"second"));
    EXPECT_OK(zShellRm(shell, spec({u"a.dwx"}, kLiteral).get()));
    EXPECT_EQ(porcelain(), "D  a.dwx\nR  d/b.dwx -> d/c.dwx"); // staged, and left so
    EXPECT_OK(zShellRevert(shell, spec({u"a.dwx"}, kLiteral).get()));
    EXPECT_EQ(porcelain(), "R  d/b.dwx -> d/c.dwx");
}

TEST_F(ShellTest, ConflictsAreDecidedWithoutTheLock) {
    put("a.dwx", "base");
    git_commit("base");
    merge([&] { put("a.dwx", "theirs"); }, [&] { put("a.dwx", "ours"); });
    AnalysisPtr analysis(zShellConflict(shell, spec({}).get()));
    ASSERT_OK(analysis);
    EXPECT_EQ(told(analysis.get()), "a.dwx: ours a.dwx=3, theirs a.dwx=3;");
    {
        const IndexPtr other = lock();
        EXPECT_OK(other);
        EXPECT_FALSE(zShellResolve(shell, analysis.get()));
        EXPECT_EQ(zErrorClass(), 7);
        EXPECT_FALSE(zShellAdd(shell, nullptr)); // before it waits for the lock in vain
        EXPECT_EQ(zErrorClass(), 2);
    }
    EXPECT_OK(zShellResolve(shell, analysis.get())); // with theirs
    EXPECT_EQ(analysis->index, nullptr);             // that one is gone
    EXPECT_EQ(at("a.dwx"), "theirs");
    EXPECT_EQ(unmerged(), "");
    EXPECT_OK(lock());
}

// Where no lock can be made, nothing can change either.
TEST_F(ShellTest, AReadOnlyFileSystemCanBeLookedAt) {
    put("a.dwx", "base");
    git_commit("base");
    put("a.dwx", "edited");
    const zev::os::Calls kept = zev::os::calls;
    zev::os::calls.open = [](const char *path, int flags, mode_t mode) {
        return flags & O_CREAT ? (errno = EROFS, -1) : ::open(path, flags, mode);
    };
    const StatusPtr status(zShellStatus(shell, spec({}, Z_SPEC_NO_UNCHANGED).get()));
    const AnalysisPtr analysis(zShellConflict(shell, spec({}).get()));
    EXPECT_FALSE(zShellAdd(shell, spec({u"a.dwx"}).get()));
    zev::os::calls = kept;
    ASSERT_OK(status);
    EXPECT_EQ(zStatusListLength(status.get()), 1u);
    EXPECT_OK(analysis);
}

TEST_F(ShellTest, AFailureLeavesTheIndexFileAsItWas) {
    put("a.dwx", "base"), put("b.dwx", "base");
    git_commit("base");
    put("a.dwx", "edited"), put("c.dwx", "new");
    const std::string before = index_bytes();
    EXPECT_OK(zShellRevert(shell, spec({u"b.dwx"}).get()));
    EXPECT_EQ(index_bytes(), before); // nothing to write
    EXPECT_FALSE(zShellMv(shell, u"a.dwx", u"b.dwx"));
    fs::permissions(place / "c.dwx", fs::perms::none);
    write(place / ".git/refs/heads/master", std::string(40, '1') + "\n");
    EXPECT_FALSE(zShellRevert(shell, spec({u"a.dwx"}).get()));
    EXPECT_FALSE(zShellCommit(shell, spec({u"a.dwx"}).get(), u"Ada", u"message"));
    EXPECT_EQ(index_bytes(), before);
    EXPECT_EQ(at("a.dwx"), "edited");
}

} // namespace
