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
};

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
        EXPECT_REFUSED(zShellResolve(shell, analysis.get()), 7);
        EXPECT_REFUSED(zShellAdd(shell, nullptr), 2); // before it waits for the lock in vain
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

} // namespace
