#include "repo_fixture.hpp"

#include <sys/resource.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace test;

namespace {

using BlobPtr = Held<Blob, zBlobFree>;
using ObjectPtr = Held<Object, zObjectFree>;
using TagPtr = Held<Tag, zTagFree>;

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

TEST_F(OdbTest, WrittenObjectsAreGits) {
    const std::string large(100'000, 'x');
    const struct {
        int32_t type;
        std::string bytes;
        const char *name;
    } kRows[] = {
        {Z_OBJECT_BLOB, "", "blob"}, // the empty blob
        {Z_OBJECT_BLOB, {"a\0b", 3}, "blob"},
        {Z_OBJECT_BLOB, large, "blob"},
        {Z_OBJECT_TREE, "", "tree"},
    };
    for (auto &row : kRows) {
        Oid id{};
        ASSERT_OK(zOdbWrite(&id, odb.get(), row.type, row.bytes.size(), stream(row.bytes).get()));
        EXPECT_EQ(git(place, "cat-file -t " + hex(&id)), row.name);
        EXPECT_EQ(git(place, "cat-file -s " + hex(&id)), std::to_string(row.bytes.size()));
        StreamPtr back(zMemStream(0, 0));
        ASSERT_OK(zOdbRead(odb.get(), &id, back.get()));
        std::string bytes(zStreamSize(back.get()), '\0');
        zStreamRewind(back.get());
        zStreamRead(back.get(), bytes.data(), bytes.size());
        EXPECT_TRUE(bytes == row.bytes);
    }
    expect_sound();
}

TEST_F(OdbTest, RefusedWritesLeaveNoObject) {
    const std::string before = objects();
    constexpr struct {
        int32_t type;
        uint64_t size;
        const char *why;
    } kRows[] = {
        {Z_OBJECT_BLOB, 4, "the stream is longer"},
        {Z_OBJECT_BLOB, 6, "the stream is shorter"},
        {Z_OBJECT_ANY, 5, "no type of an object"},
        {0, 5, "no type of an object"},
    };
    for (auto &row : kRows) {
        Oid id{};
        EXPECT_FALSE(zOdbWrite(&id, odb.get(), row.type, row.size, stream("12345").get()))
            << row.why;
        EXPECT_TRUE(zOidIsZero(&id)) << row.why;
    }
    EXPECT_FALSE(zOdbRead(odb.get(), zOidIdentity(), stream("").get()));
    EXPECT_EQ(zErrorClass(), 3);
    Zeros broken = zeros(50'000, true);
    EXPECT_FALSE(zOdbWrite(nullptr, odb.get(), Z_OBJECT_BLOB, 50'000, &broken.head));
    EXPECT_EQ(zErrorClass(), 10);
    EXPECT_EQ(zErrorCode(), 5);
    EXPECT_EQ(objects(), before);
    for (auto &entry : std::filesystem::directory_iterator(place / ".git/objects"))
        EXPECT_TRUE(entry.is_directory()) << entry.path(); // no temporary file stays
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

TEST_F(OdbTest, LooksUpByIdPrefixPathAndPeels) {
    CommitPtr made = commit({{u"docs/a.txt", "one"}});
    ASSERT_OK(made);
    ObjectPtr any(zObjectByid(repository.get(), zCommitId(made.get()), Z_OBJECT_ANY));
    ASSERT_OK(any);
    EXPECT_EQ(zBlobByid(repository.get(), zCommitId(made.get())), nullptr); // not of that type
    ObjectPtr root(zObjectPeel(any.get(), Z_OBJECT_TREE));
    ASSERT_OK(root);
    BlobPtr file(zBlobBypath(root.get(), u"docs/a.txt"));
    ASSERT_OK(file);
    uint64_t size = 0;
    const auto *bytes = static_cast<const char *>(zBlobData(file.get(), &size));
    EXPECT_EQ(std::string(bytes, size), "one");
    BlobPtr again(zBlobByprefix(repository.get(), zBlobId(file.get()), 10));
    ASSERT_OK(again);
    EXPECT_EQ(hex(zBlobId(again.get())), hex(zBlobId(file.get())));
    EXPECT_EQ(zBlobBypath(root.get(), u"docs/b.txt"), nullptr);
    EXPECT_EQ(zErrorClass(), 3);
}

TEST_F(OdbTest, ReadsAnnotatedTags) {
    CommitPtr made = commit({{u"a", "1"}});
    git(place, "-c user.name=Bob -c user.email=b@x tag -a v1 -m 'first version'");
    Oid id{};
    ASSERT_OK(zOidFromStr(&id, wide(git(place, "rev-parse v1")).c_str()));
    TagPtr tag(zTagByid(repository.get(), &id));
    ASSERT_OK(tag);
    EXPECT_EQ(narrow(zTagTagger(tag.get())), "Bob");
    EXPECT_EQ(narrow(zTagMessage(tag.get())), "first version\n");
    ObjectPtr target(zTagTarget(tag.get()));
    ASSERT_OK(target);
    EXPECT_EQ(hex(zObjectId(target.get())), hex(zCommitId(made.get())));
    CommitPtr tagged(zCommitByid(repository.get(), &id)); // a tag's id names the commit
    ASSERT_OK(tagged);
    EXPECT_EQ(hex(zCommitId(tagged.get())), hex(zCommitId(made.get())));
}

TEST_F(OdbTest, ExportsRawBytes) {
    Oid id = blob("line\r\nline\n");
    BlobPtr file(zBlobByid(repository.get(), &id));
    write(place / "out", "something longer that was there before");
    ASSERT_OK(zBlobExport(file.get(), (place / "out").u16string().c_str(), u"wb+"));
    EXPECT_EQ(read(place / "out"), "line\r\nline\n");
    ASSERT_OK(zBlobExport(file.get(), (place / "out").u16string().c_str(), u"ab"));
    EXPECT_EQ(read(place / "out"), "line\r\nline\nline\r\nline\n");

    std::filesystem::permissions(place / "out", std::filesystem::perms::owner_read);
    EXPECT_FALSE(zBlobExport(file.get(), (place / "out").u16string().c_str(), u"wb"));
    EXPECT_EQ(zErrorCode(), 13);
    EXPECT_FALSE(zBlobCheckout(file.get(), u"out")) << "read-only";
    EXPECT_EQ(read(place / "out"), "line\r\nline\nline\r\nline\n");

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

TEST_F(OdbTest, ChecksOutThroughFilters) {
    Oid id = blob("one\ntwo\n");
    BlobPtr file(zBlobByid(repository.get(), &id));
    write(place / ".gitattributes", "*.txt text eol=crlf\n");
    ASSERT_OK(zBlobCheckout(file.get(), u"deep\\er/a.txt")); // makes the directories
    ASSERT_OK(zBlobCheckout(file.get(), u"deep/er/a.dwx"));
    EXPECT_EQ(read(place / "deep/er/a.txt"), "one\r\ntwo\r\n");
    EXPECT_EQ(read(place / "deep/er/a.dwx"), "one\ntwo\n");
}

// What a loss of power leaves of an object's file, from nothing to all but a byte, and rubbish:
// every road to it ends with an error, and soon.
TEST_F(OdbTest, DamagedFilesOfObjectsAreRefused) {
    std::string text;
    for (int n = 0; n < 3000; ++n) text += std::to_string(n * 7919 % 1009);
    const CommitPtr made = commit({{u"a.txt", text}});
    ASSERT_OK(made);
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
            const RepositoryPtr again(zRepositoryOpen(place.u16string().c_str()));
            const OdbPtr store(zOdbOpen(again.get()));
            const StreamPtr target(zMemStream(0, 0));
            EXPECT_FALSE(ObjectPtr(zObjectByid(again.get(), &id, Z_OBJECT_ANY))) << name;
            EXPECT_NE(narrow(zErrorReason()).find(name + " is damaged"), std::string::npos);
            EXPECT_FALSE(ObjectPtr(zObjectByprefix(again.get(), &id, 7, Z_OBJECT_ANY)));
            EXPECT_FALSE(zOdbRead(store.get(), &id, target.get())) << name << " " << bytes.size();
        }
        write(file, whole);
        EXPECT_OK(ObjectPtr(zObjectByid(repository.get(), &id, Z_OBJECT_ANY)));
    }
    expect_sound();
}
