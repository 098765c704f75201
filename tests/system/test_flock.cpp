#include "child.hpp"
#include "support.hpp"

#include "system/flock.hpp"
#include "system/os.hpp"

#include <cerrno>
#include <fcntl.h>

#include <sys/stat.h>

using test::narrow, test::TempDir;
namespace fs = std::filesystem;
namespace os = zev::os;

namespace {

using Lock = test::Guard<Flock>;

struct Flocks : testing::Test {
    TempDir dir;
    const std::u16string target = dir / u"a.b.dwx";
    const fs::path file = dir.path() / "a.b.dwx", lock_file = dir.path() / ".a.b.dwx.zlck";
    const os::Calls calls = os::calls;

    void SetUp() override { test::write(file, "old"); }
    void TearDown() override { os::calls = calls; }
    Lock lock(bool save) { return Lock(zFlockOpen(target.c_str(), save), zFlockClose); }
    size_t files() {
        return static_cast<size_t>(std::distance(fs::directory_iterator(dir.path()), {}));
    }
    void leave(const std::string &saved, mode_t mode) {
        test::write(lock_file, saved);
        chmod(lock_file.c_str(), mode);
    }
    bool one_file() { return fs::equivalent(file, lock_file); }
};

TEST_F(Flocks, SavesAndPutsBack) {
    chmod(file.c_str(), 0754);
    const Lock held = lock(true);
    ASSERT_OK(held);
    EXPECT_EQ(test::read(lock_file), "old");
    EXPECT_EQ(fs::status(lock_file).permissions(), fs::perms{0600}); // complete
    for (int round = 0; round < 2; ++round) { // written in place, the second time into the saved
        test::write(file, "new and longer");
        chmod(file.c_str(), 0600);
        EXPECT_OK(zFlockUndo(held.get()));
        EXPECT_EQ(test::read(file) + test::read(lock_file), "oldold");
        EXPECT_EQ(fs::status(file).permissions(), fs::perms{0754});
        EXPECT_FALSE(one_file());
    }
    EXPECT_REFUSED(lock(false), 7);     // still held
    EXPECT_TRUE(fs::exists(lock_file)); // a refused lock deletes nobody's file
}

TEST_F(Flocks, NothingSavedIsUndoneByDeleting) {
    for (const char *before : {(const char *)nullptr, ""}) {
        fs::remove(file);
        if (before) test::write(file, before);
        const Lock held = lock(true);
        EXPECT_EQ(fs::file_size(lock_file), 0u);
        test::write(file, "new");
        EXPECT_OK(zFlockUndo(held.get()));
        EXPECT_FALSE(fs::exists(file));
        EXPECT_OK(zFlockUndo(held.get())); // gone already
        fs::create_directory(file);
        EXPECT_FALSE(zFlockUndo(held.get()));
    }
}

TEST_F(Flocks, HeldTargetIsNotReplaced) {
    const Lock held = lock(true);
    {
        const auto reader = test::guard(zShareOpen(target.c_str(), u"rb", 3), zShareClose);
        EXPECT_REFUSED(zFlockUndo(held.get()), 7);
        EXPECT_EQ(lock(true), nullptr);
        const fs::path other = dir.path() / ".other.zlck"; // recovery waits for no reader either
        fs::rename(lock_file, other);
        leave("older", 0600);
        EXPECT_TRUE(zFlockRecover(target.c_str()));
        EXPECT_EQ(test::read(file), "old");
        fs::rename(other, lock_file);
        test::write(file, "new"); // nor does it touch what is locked
        zRaiseNotFound(nullptr);
        EXPECT_TRUE(zFlockRecover(target.c_str()) && zErrorClass() == 7);
        EXPECT_TRUE(zFlockPurge(target.c_str()) && fs::exists(lock_file));
        EXPECT_EQ(test::read(file), "new");
    }
    EXPECT_OK(zFlockUndo(held.get()));
}

int data_syncs;

TEST_F(Flocks, LateSaving) {
    data_syncs = 0;
    os::calls.fdatasync = [](int) { return ++data_syncs, 0; };
    const Lock held(zev::flock_open_lazy(target.c_str()), zFlockClose);
    ASSERT_OK(held);
    EXPECT_OK(zFlockUndo(held.get())); // nothing has changed yet
    EXPECT_EQ(test::read(file), "old");
    EXPECT_EQ(data_syncs, 0);
    EXPECT_OK(zev::flock_complete(held.get()) && zev::flock_complete(held.get()));
    EXPECT_EQ(data_syncs, 1);
    test::write(file, "new");
    EXPECT_OK(zFlockUndo(held.get()));
    EXPECT_EQ(test::read(file), "old");
}

TEST_F(Flocks, Links) {
    test::write(dir.path() / "real/index", "old");
    fs::remove(file);
    fs::create_symlink("real/index", file);
    {
        const Lock held = lock(true);
        ASSERT_OK(held);
        test::write(file, "new"); // through the link
        EXPECT_OK(zFlockUndo(held.get()));
        EXPECT_TRUE(fs::is_symlink(file));
        EXPECT_EQ(test::read(dir.path() / "real/index"), "old");
    }
    fs::create_symlink("real/index", lock_file);
    EXPECT_EQ(lock(true), nullptr);
    EXPECT_TRUE(zFlockRecover(target.c_str()) && zFlockPurge(target.c_str()));
    EXPECT_EQ(test::read(dir.path() / "real/index"), "old");
}

// What would be locked is another file in another directory.
TEST_F(Flocks, CutTargetIsRefused) {
    const std::u16string inner = dir / std::u16string(200, u'd') + u'/';
    const std::u16string cut = inner + std::u16string(512 - inner.size(), u'x') + u"/f";
    fs::create_directory(inner);
    EXPECT_FAILS_WITH(zFlockOpen(cut.c_str(), false), 38);
    EXPECT_TRUE(fs::is_empty(inner));
    const std::u16string tight = dir / std::u16string(505 - dir.path().u16string().size(), u'x');
    EXPECT_FAILS_WITH(zFlockOpen(tight.c_str(), true), 38); // its lock file's path would be cut
}

// Modes as a stick shows them to all, be they refused or taken and forgotten: without the mark of
// an incomplete file no copy could be trusted later.
TEST_F(Flocks, FileSystemWithoutModes) {
    static mode_t shown;
    for (mode_t mode : {0644, 0755, 0700}) {
        for (bool refused : {false, true}) {
            shown = mode;
            os::calls.open = [](const char *path, int flags, mode_t) {
                return ::open(path, flags, shown);
            };
            os::calls.fchmod = [](int, mode_t) { return 0; };
            if (refused) os::calls.fchmod = [](int, mode_t) { return errno = EPERM, -1; };
            EXPECT_FAILS_WITH(lock(true), 129);
            EXPECT_NE(narrow(zErrorMsg()).find("keeps no file modes"), std::string::npos);
            EXPECT_EQ(files(), 1u) << "left over";
        }
    }
}

// ---- A full disk, and every other failure

void fill_disk() {
    os::calls.copy_range = [](int, int, size_t) { return errno = ENOSPC, int64_t{-1}; };
    os::calls.write = [](int, const void *, size_t) { return errno = ENOSPC, ssize_t{-1}; };
}

TEST_F(Flocks, UndoNeedsNoSpace) {
    test::Child child([&] { // is killed after its undo, with target and lock file still one
        const Lock held = lock(true);
        test::write(file, "new");
        fill_disk();
        if (!zFlockUndo(held.get()) || test::read(file) != "old") return 1;
        fs::rename(file, dir.path() / "moved"); // as who replaces the target does
        test::write(file, "newer");
        if (!zFlockUndo(held.get()) || test::read(file) != "old") return 2;
        ::kill(getpid(), SIGKILL);
        return 3;
    });
    EXPECT_EQ(child.wait(), 256 + SIGKILL);
    EXPECT_TRUE(one_file());
    EXPECT_TRUE(zFlockRecover(target.c_str()));
    EXPECT_EQ(test::read(file), "old");
    EXPECT_FALSE(one_file()); // there is space now
}

TEST_F(Flocks, LeftOverOfOneFileWithTheTarget) {
    fs::create_hard_link(file, lock_file);
    const Lock held = lock(true); // must not truncate the target through its other name
    ASSERT_OK(held);
    EXPECT_EQ(test::read(file), "old");
    EXPECT_FALSE(one_file());
}

int calls_left; // until one fails

bool due() { return calls_left >= 0 && calls_left-- == 0 && (errno = EIO, true); }

template <auto slot, class R, class... A> void watch(R (*os::Calls::*)(A...)) {
    static const auto real = os::calls.*slot;
    os::calls.*slot = [](A... arguments) { return due() ? R{-1} : real(arguments...); };
}

void arm(int n) {
    using C = os::Calls;
    calls_left = n;
    const auto all = []<auto... slot>() { (watch<slot>(slot), ...); };
    all.operator()<&C::open, &C::ftruncate, &C::copy_range, &C::rename, &C::link, &C::unlink,
                   &C::fsync, &C::fdatasync>();
}

TEST_F(Flocks, EveryFailureLeavesAWholeTarget) {
    int n = 0;
    for (bool hit = true; hit; ++n) {
        test::write(file, "old");
        arm(n);
        if (const Lock held = lock(true)) {
            test::write(file, "new");
            const bool undone = zFlockUndo(held.get());
            hit = calls_left < 0;
            calls_left = -1;
            EXPECT_TRUE(test::read(file) == "old" || (!undone && test::read(file) == "new")) << n;
            EXPECT_OK(zFlockUndo(held.get())) << n;
        }
        calls_left = -1;
        EXPECT_EQ(test::read(file), "old") << n;
    }
    EXPECT_GT(n, 10);
    os::calls = calls;
    lock(true);
    EXPECT_EQ(files(), 1u);
}

// ---- Recovery

TEST_F(Flocks, Recovery) {
    const struct {
        const char *target, *saved, *after; // null: missing
        mode_t mode;
    } cases[] = {
        {"new", "old", "old", 0600},
        {nullptr, "old", "old", 0600}, // `.X.zlck` alone names the target X
        {"new", "", nullptr, 0600},    // there was no target
        {"new", "ol", "new", 0700},    // incomplete: its holder died while saving
        {"new", "", "new", 0700},
    };
    for (auto [before, saved, after, mode] : cases) {
        fs::remove(file);
        fs::remove(lock_file);
        if (before) test::write(file, before);
        if (saved) leave(saved, mode);
        for (int again = 0; again < 2; ++again) {
            EXPECT_TRUE(zFlockRecover(target.c_str()));
            EXPECT_EQ(fs::exists(file), after != nullptr);
            EXPECT_EQ(fs::exists(file) ? test::read(file) : "", after ? after : "");
            EXPECT_EQ(fs::exists(lock_file), saved != nullptr);
        }
        EXPECT_TRUE(zFlockPurge(target.c_str()));
        EXPECT_FALSE(fs::exists(lock_file));
    }
}

} // namespace
