#include "repo_fixture.hpp"

#include <sys/resource.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace test;

namespace {

using BlobPtr = Held<Blob, zBlobFree>;
using ObjectPtr = Held<Object, zObjectFree>;

struct OdbTest : RepositoryTest {
    OdbPtr odb{zOdbOpen(repository.get())};

    StreamPtr stream(std::string_view bytes) {
        StreamPtr made(zMemStream(0, 0));
        zStreamWrite(made.get(), bytes.data(), bytes.size());
        zStreamRewind(made.get());
        return made;
    }
    std::string objects() { return git(place, "count-objects"); }
};

// Gives `left` zero bytes, never more than asked for, and fails at its end if told.
struct Zeros {
    Stream head;
    uint64_t left;
    bool broken, failed;
};
Zeros zeros(uint64_t size, bool broken) {
    Zeros made{{}, size, broken, false};
    made.head.read = [](Stream *stream, void *buffer, uint64_t count) {
        auto *self = reinterpret_cast<Zeros *>(stream);
        count = std::min(count, self->left);
        memset(buffer, 0, count);
        self->left -= count;
        self->failed = self->broken && !self->left;
        return count;
    };
    made.head.eof = [](Stream *stream) { return !reinterpret_cast<Zeros *>(stream)->left; };
    made.head.error = [](Stream *stream) { return reinterpret_cast<Zeros *>(stream)->failed; };
    return made;
}

} // namespace

TEST_F(OdbTest, RefusedWritesLeaveNoObject) {
    const std::string before = objects();
    constexpr std::tuple<int32_t, uint64_t, const char *> kRows[] = {
        {Z_OBJECT_BLOB, 4, "the stream is longer"},
        {Z_OBJECT_BLOB, 6, "the stream is shorter"},
        {Z_OBJECT_ANY, 5, "no type of an object"},
        {0, 5, "no type of an object"},
    };
    for (auto &[type, size, why] : kRows) {
        Oid id{};
        EXPECT_FALSE(zOdbWrite(&id, odb.get(), type, size, stream("12345").get())) << why;
        EXPECT_TRUE(zOidIsZero(&id)) << why;
    }
    EXPECT_REFUSED(zOdbRead(odb.get(), zOidIdentity(), stream("").get()), 3);
    Zeros broken = zeros(50'000, true);
    EXPECT_FALSE(zOdbWrite(nullptr, odb.get(), Z_OBJECT_BLOB, 50'000, &broken.head));
    EXPECT_TRUE(zErrorClass() == 10 && zErrorCode() == 5);
    EXPECT_EQ(objects(), before);
    for (auto &entry : std::filesystem::directory_iterator(place / ".git/objects"))
        EXPECT_TRUE(entry.is_directory()) << entry.path(); // no temporary file stays
    Oid empty{};
    ASSERT_OK(zOdbWrite(&empty, odb.get(), Z_OBJECT_TREE, 0, stream("").get()));
    EXPECT_EQ(git(place, "cat-file -t " + hex(&empty)), "tree");
}

TEST_F(OdbTest, StreamsALargeObjectInBoundedMemory) {
    constexpr uint64_t kSize = 256u << 20;
    rusage before{}, after{};
    getrusage(RUSAGE_SELF, &before);
    Zeros source = zeros(kSize, false);
    Oid id{};
    ASSERT_OK(zOdbWrite(&id, odb.get(), Z_OBJECT_BLOB, kSize, &source.head));
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 16 * 1024); // kilobytes
    EXPECT_EQ(zOdbSize(odb.get(), &id), kSize);
}

TEST_F(OdbTest, ExportsOverNothingButWritableFiles) {
    Oid id = blob("line\r\nline\n");
    BlobPtr file(zBlobByid(repository.get(), &id));
    write(place / "out", "kept");
    const std::u16string out = (place / "out").u16string();
    std::filesystem::permissions(place / "out", std::filesystem::perms::owner_read);
    EXPECT_FAILS_WITH(zBlobExport(file.get(), out.c_str(), u"wb"), 13);
    EXPECT_FALSE(zBlobCheckout(file.get(), u"out")) << "read-only";
    EXPECT_EQ(read(place / "out"), "kept");

    // What is no file takes the bytes, by whatever name, or refuses them: it is never replaced.
    ASSERT_EQ(mkfifo((place / "pipe").c_str(), 0600), 0);
    std::filesystem::create_symlink("pipe", place / "name");
    const int end = open((place / "pipe").c_str(), O_RDONLY | O_NONBLOCK);
    EXPECT_OK(zBlobExport(file.get(), (place / "name").u16string().c_str(), u"wb"));
    char bytes[64] = {};
    EXPECT_EQ(::read(end, bytes, sizeof bytes), 11);
    close(end);
    EXPECT_FALSE(zBlobCheckout(file.get(), u"pipe"));
    EXPECT_TRUE(std::filesystem::is_fifo(place / "pipe"));
}

TEST_F(OdbTest, NeverWritesThroughALink) {
    Oid id = blob("new");
    BlobPtr file(zBlobByid(repository.get(), &id));
    write(dir.path() / "outside/a", "kept");
    std::filesystem::create_symlink(dir.path() / "outside", place / "link");
    std::filesystem::create_symlink(dir.path() / "outside/a", place / "a");
    EXPECT_FALSE(zBlobCheckout(file.get(), u"link/a"));
    EXPECT_FALSE(zBlobExport(file.get(), (place / "a").u16string().c_str(), u"ab"));
    ASSERT_OK(zBlobCheckout(file.get(), u"a")); // takes the link's place
    EXPECT_FALSE(std::filesystem::is_symlink(place / "a"));
    EXPECT_EQ(read(place / "a"), "new");
    EXPECT_EQ(read(dir.path() / "outside/a"), "kept");
    for (const zwchar *path :
         {u"../b", u"/b", u"x/../../b", u".git/b", u".GIT/b", u"x//b", u"", u"x/"})
        EXPECT_FALSE(zBlobCheckout(file.get(), path)) << narrow(path);
    EXPECT_FALSE(zBlobCheckout(file.get(), std::u16string(600, u'n').c_str()));
    EXPECT_EQ(zErrorCode(), 38); // a path that was cut would name another file
}

// An empty file must not count as the object: nobody would write it then.
TEST_F(OdbTest, WritesOverWhatALossOfPowerLeftEmpty) {
    const Oid id = blob("a line");
    const std::string name = hex(&id);
    const auto file = place / ".git/objects" / name.substr(0, 2) / name.substr(2);
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    write(file, "");
    blob("a line");
    const RepositoryPtr again = opened();
    EXPECT_OK(ObjectPtr(zObjectByid(again.get(), &id, Z_OBJECT_ANY)) != nullptr);
    for (const auto &entry : std::filesystem::directory_iterator(place / ".git/objects"))
        EXPECT_FALSE(entry.is_regular_file()) << entry.path();
}

// What a loss of power leaves of an object's file, from nothing to all but a byte, and rubbish:
// every road to it ends with an error, and soon.
TEST_F(OdbTest, DamagedFilesOfObjectsAreRefused) {
    std::string text;
    for (int n = 0; n < 3000; ++n) text += std::to_string(n * 7919 % 1009);
    const CommitPtr made = commit({{u"a.txt", text}});
    const TreePtr root(zCommitTree(made.get()));
    const Oid ids[] = {blob(text), *zTreeId(root.get()), *zCommitId(made.get())};
    for (const Oid &id : ids) {
        const std::string name = hex(&id);
        const auto file = place / ".git/objects" / name.substr(0, 2) / name.substr(2);
        const std::string whole = read(file), flipped = whole.substr(0, 9) + "?????" + whole;
        const std::string endless = "\x78\x01" + std::string(100, '\0'); // empty blocks, no end
        std::vector<std::string> damaged = {flipped, endless, "rubbish"};
        for (const size_t size : {size_t{0}, size_t{1}, size_t{2}, size_t{12}, whole.size() / 2,
                                  whole.size() - 5, whole.size() - 1})
            damaged.push_back(whole.substr(0, size));
        std::filesystem::permissions(file, std::filesystem::perms::owner_all);
        for (const std::string &bytes : damaged) {
            write(file, bytes);
            const RepositoryPtr again = opened();
            const OdbPtr store(zOdbOpen(again.get()));
            const StreamPtr target(zMemStream(0, 0));
            EXPECT_FALSE(ObjectPtr(zObjectByid(again.get(), &id, Z_OBJECT_ANY))) << name;
            EXPECT_NE(narrow(zErrorReason()).find(name + " is damaged"), std::string::npos);
            EXPECT_FALSE(ObjectPtr(zObjectByprefix(again.get(), &id, 7, Z_OBJECT_ANY)));
            EXPECT_FALSE(zOdbRead(store.get(), &id, target.get())) << name << " " << bytes.size();
        }
        write(file, whole);
        const StreamPtr target(zMemStream(0, 0));
        EXPECT_OK(zOdbRead(odb.get(), &id, target.get()));
        EXPECT_EQ(std::to_string(zStreamSize(target.get())), git(place, "cat-file -s " + name));
    }
    expect_sound();
}
