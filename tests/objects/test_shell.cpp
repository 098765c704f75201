#include "conflict_fixture.hpp"

#include "objects/conflict/conflict.hpp"
#include "system/os.hpp"
#include "zev/revision.h"
#include "zev/revlist.h"
#include "zev/shell.h"

#include <fcntl.h>

using namespace test;
namespace fs = std::filesystem;

namespace {

using RevSpecPtr = Held<RevSpec, zRevSpecFree>;
using RevListPtr = Held<RevList, zRevListFree>;

struct ShellTest : ConflictFixture {
    Repository *shell = nullptr;
    std::string index_bytes() { return read(place / ".git/index"); }
    void SetUp() override {
        ConflictFixture::SetUp();
        shell = repository.get();
    }
};

TEST_F(ShellTest, ADayOnTheIndex) {
    RepositoryPtr opened(zShellOpen(place.u16string().c_str()));
    ASSERT_OK(opened);
    EXPECT_EQ(narrow(zShellPath(opened.get())), place.string() + "/");
    put("a.dwx", "one");
    put("d/b.dwx", "two");
    EXPECT_OK(zShellAdd(shell, spec({u"*.dwx"}).get()));
    EXPECT_EQ(porcelain(), "A  a.dwx\nA  d/b.dwx");
    EXPECT_OK(zShellCommit(shell, nullptr, u"Ada", u"first"));
    EXPECT_OK(zShellMv(shell, u"d/b.dwx", u"d/c.dwx"));
    put("a.dwx", "changed");
    EXPECT_OK(zShellRefresh(shell, spec({u"a.dwx"}).get()));
    EXPECT_EQ(porcelain(), "M  a.dwx\nR  d/b.dwx -> d/c.dwx");
    const StatusPtr status(zShellStatus(shell, spec({u"a.dwx"}).get()));
    ASSERT_OK(status);
    EXPECT_EQ(zStatusListLength(status.get()), 1u);

    EXPECT_OK(zShellCommit(shell, spec({u"a.dwx"}).get(), u"Ada", u"second"));
    EXPECT_EQ(git(place, "log --format=%s:%an --name-only -1"), "second:Ada\n\na.dwx");
    EXPECT_EQ(porcelain(), "R  d/b.dwx -> d/c.dwx"); // staged, and left so
    EXPECT_OK(zShellRm(shell, spec({u"a.dwx"}, kLiteral).get()));
    EXPECT_FALSE(fs::exists(place / "a.dwx"));
    EXPECT_OK(zShellRevert(shell, spec({u"a.dwx"}, kLiteral).get()));
    EXPECT_EQ(at("a.dwx"), "changed");
    const RevSpecPtr all(zRevSpecNew());
    const RevListPtr log(zShellLog(shell, all.get()));
    ASSERT_OK(log);
    EXPECT_EQ(zRevListLength(log.get()), 2u);
    EXPECT_FALSE(zShellCommit(shell, spec({u"a.dwx"}).get(), u"Ada", u"nothing"));
    EXPECT_EQ(zErrorClass(), 3);
    expect_sound();
}

TEST_F(ShellTest, ConflictsAreDecidedWithoutTheLock) {
    put("a.dwx", "base");
    commit("base");
    merge([&] { put("a.dwx", "theirs"); }, [&] { put("a.dwx", "ours"); });
    AnalysisPtr analysis(zShellConflict(shell, spec({}).get()));
    ASSERT_OK(analysis);
    EXPECT_EQ(told(analysis.get()), "a.dwx: ours a.dwx=3, theirs a.dwx=3;");
    {
        const IndexPtr other = lock();
        EXPECT_OK(other);
        EXPECT_FALSE(zShellResolve(shell, analysis.get()));
        EXPECT_EQ(zErrorClass(), 7);
    }
    EXPECT_OK(zShellResolve(shell, analysis.get())); // with theirs
    EXPECT_EQ(analysis->index, nullptr);             // that one is gone
    EXPECT_EQ(at("a.dwx"), "theirs");
    EXPECT_EQ(unmerged(), "");
    EXPECT_OK(lock());
}

// Before an operation looks at anything: nulls first, so that nobody waits for a lock in vain.
TEST_F(ShellTest, RefusesNullsAndALockedIndex) {
    const SpecPtr paths = spec({u"a.dwx"});
    const IndexPtr held = lock();
    ASSERT_OK(held);
    const std::pair<int32_t, std::function<bool()>> kCalls[] = {
        {2, [&] { return zShellAdd(shell, nullptr); }},
        {2, [&] { return zShellMv(shell, u"a.dwx", nullptr); }},
        {2, [&] { return zShellStatus(shell, nullptr) != nullptr; }},
        {2, [&] { return zShellLog(shell, nullptr) != nullptr; }},
        {2, [&] { return zShellResolve(shell, nullptr); }},
        {2, [&] { return zShellCommit(shell, nullptr, nullptr, u"message"); }},
        {2, [&] { return zShellUpdate(shell, nullptr); }},
        {2, [&] { return zShellCheckout(nullptr, u"path", nullptr); }},
        {7, [&] { return zShellRm(shell, paths.get()); }},
        {7, [&] { return zShellCommit(shell, nullptr, u"Ada", u"message"); }}};
    for (const auto &[error_class, call] : kCalls) {
        zRaiseOutOfRange(nullptr);
        EXPECT_FALSE(call());
        EXPECT_EQ(zErrorClass(), error_class) << narrow(zErrorDetail());
    }
}

// Where no lock can be made, nothing can change either.
TEST_F(ShellTest, AReadOnlyFileSystemCanBeLookedAt) {
    put("a.dwx", "base");
    commit("base");
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
    put("a.dwx", "base");
    put("b.dwx", "base");
    commit("base");
    put("a.dwx", "edited");
    put("c.dwx", "new");
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
