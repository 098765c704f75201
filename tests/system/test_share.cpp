#include "child.hpp"
#include "support.hpp"

#include "system/os.hpp"
#include "system/share.hpp"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>

using test::narrow, test::TempDir;
namespace fs = std::filesystem;

namespace {

using Open = test::Guard<Share>;

Open open_share(const std::u16string &path, const zwchar *mode, uint32_t flags) {
    return Open(zShareOpen(path.c_str(), mode, flags), zShareClose);
}

struct Shares : testing::Test {
    TempDir dir;
    const std::u16string path = dir / u"f";
    void SetUp() override { test::write(path, "content"); }
};

// ---- Who gets in beside whom

struct Opener {
    unsigned access; // 1 reads, 2 writes
    uint32_t share;  // what others may do, in the same bits
    explicit Opener(unsigned n) : access(1 + n / 4), share(n % 4) {}
};
constexpr unsigned kOpeners = 12;

Open open_as(const std::u16string &path, Opener opener) {
    constexpr const zwchar *kModes[] = {nullptr, u"rb", u"ab", u"r+b"};
    return open_share(path, kModes[opener.access], opener.share);
}

void expect_pairs(const std::u16string &path, Opener first) {
    for (unsigned n = 0; n < kOpeners; ++n) {
        const Opener second(n);
        const Open open = open_as(path, second);
        EXPECT_EQ(open != nullptr,
                  !(first.access & ~second.share) && !(second.access & ~first.share))
            << first.access << first.share << " then " << second.access << second.share;
        if (open) continue;
        EXPECT_EQ(errno, EACCES);
        EXPECT_TRUE(zErrorClass() == 7 && zErrorCode() == 7);
        EXPECT_EQ(narrow(zErrorMsg()), narrow(path.c_str()));
    }
}

TEST_F(Shares, AllPairsInOneProcessAndInTwo) {
    for (unsigned n = 0; n < kOpeners; ++n) {
        const Open open = open_as(path, Opener(n));
        ASSERT_OK(open);
        expect_pairs(path, Opener(n));
    }
    test::Signal held, next;
    test::Child holder([&] {
        for (unsigned n = 0; n < kOpeners; ++n) {
            const Open open = open_as(path, Opener(n));
            held.send(open ? 1 : 2);
            next.receive();
        }
        return 0;
    });
    for (unsigned n = 0; n < kOpeners; ++n) {
        ASSERT_EQ(held.receive(), 1);
        expect_pairs(path, Opener(n));
        next.send();
    }
    EXPECT_EQ(holder.wait(), 0);
    EXPECT_EQ(test::read(path), "content");
}

// ---- What opening does to the file

TEST_F(Shares, RefusedOpenChangesNothing) {
    const Open reader = open_share(path, u"rb", Z_SHARE_READ);
    EXPECT_EQ(open_share(path, u"w+b", Z_SHARE_READ), nullptr);
    EXPECT_EQ(test::read(path), "content");
    EXPECT_REFUSED(open_share(path, u"wx", Z_SHARE_ALL), 7); // exists: counts as locked
    EXPECT_REFUSED(open_share(dir / u"missing", u"rb", Z_SHARE_ALL), 3);
    EXPECT_EQ(errno, ENOENT);
    // Another descriptor of this process that comes and goes takes no grant along.
    close(open((dir.path() / "f").c_str(), O_RDONLY));
    EXPECT_EQ(open_share(path, u"r+b", Z_SHARE_ALL), nullptr);
}

// None to share: by this a drawing table is held.
TEST_F(Shares, DeletedOnClose) {
    {
        const Open held = open_share(dir / u"LOCK", zev::kGuardMode, Z_SHARE_NONE);
        ASSERT_OK(held);
        EXPECT_TRUE(fs::exists(dir.path() / "LOCK"));
        EXPECT_EQ(open_share(dir / u"LOCK", zev::kGuardMode, Z_SHARE_NONE), nullptr);
        EXPECT_TRUE(fs::exists(dir.path() / "LOCK")); // the refused one has no say
    }
    EXPECT_FALSE(fs::exists(dir.path() / "LOCK"));
}

TEST_F(Shares, ForeignProgramsCountForUpdate) {
    test::Signal opened, done;
    test::Child other([&] {
        const int fd = open((dir.path() / "f").c_str(), O_RDONLY);
        opened.send();
        done.receive();
        close(fd);
        return 0;
    });
    opened.receive();
    EXPECT_REFUSED(open_share(path, u"r+b", Z_SHARE_NONE), 7);
    EXPECT_OK(open_share(path, u"w+b", Z_SHARE_NONE)); // only updating asks for it
    done.send();
    EXPECT_EQ(other.wait(), 0);
    EXPECT_OK(open_share(path, u"r+b", Z_SHARE_NONE));
}

// By rights, or on a disk that nobody writes: a reader is alone there all the same.
TEST_F(Shares, AloneWithoutTheRightToWrite) {
    static const auto before = zev::os::calls.open;
    static int refusal;
    for (int number : {EACCES, EPERM, EROFS, ETXTBSY}) {
        refusal = number;
        zev::os::calls.open = [](const char *path, int flags, mode_t mode) {
            return flags & O_RDWR ? (errno = refusal, -1) : before(path, flags, mode);
        };
        {
            const Open one = open_share(path, u"rb", Z_SHARE_READ);
            EXPECT_OK(open_share(path, u"rb", Z_SHARE_READ));
            EXPECT_EQ(open_share(path, u"rb", Z_SHARE_NONE), nullptr);
        }
        const Open alone = open_share(path, u"rb", Z_SHARE_NONE);
        EXPECT_TRUE(alone && !open_share(path, u"rb", Z_SHARE_ALL)) << number;
        EXPECT_EQ(open_share(path, u"r+b", Z_SHARE_ALL), nullptr);
        EXPECT_EQ(errno, refusal);
        zev::os::calls.open = before;
    }
}

} // namespace
