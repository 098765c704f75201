#include "repo_fixture.hpp"

#include "objects/store/bulk.hpp"
#include "system/os.hpp"

#include <csignal>
#include <sys/resource.h>

using namespace test;
using zev::BulkWriter;

namespace {

struct BulkTest : RepositoryTest {
    git_odb *odb = nullptr;

    void SetUp() override {
        RepositoryTest::SetUp();
        ASSERT_EQ(git_repository_odb(&odb, repository->handle.get()), 0);
    }
    void TearDown() override { git_odb_free(odb); }

    static std::string content(int n) {
        return std::string(static_cast<size_t>(n * 7 % 5000), static_cast<char>('a' + n % 26)) +
               std::to_string(n);
    }
    Oid try_to_write(int n) {
        Oid id{}, none{};
        const std::string bytes = content(n);
        const int code = zev::write_blob(zev::git::oid(&id), odb, bytes.data(), bytes.size());
        return code < 0 ? none : id;
    }
    Oid write(int n) {
        const Oid id = try_to_write(n);
        EXPECT_FALSE(zOidIsZero(&id));
        return id;
    }
    bool holds(const Oid &id, int n) {
        zev::git::OdbObject object;
        if (git_odb_read(zev::out(object), odb, zev::git::oid(&id)) < 0) return false;
        return std::string(static_cast<const char *>(git_odb_object_data(object.get())),
                           git_odb_object_size(object.get())) == content(n);
    }
    std::string count(const char *what) { // of git's own count
        std::string text = git(place, "count-objects -v");
        const size_t at = text.find(std::string(what) + ": ");
        return text.substr(at, text.find('\n', at) - at);
    }
    size_t files_in_packs() {
        size_t files = 0;
        for (auto &entry : std::filesystem::directory_iterator(place / ".git/objects/pack"))
            files += entry.is_regular_file();
        return files;
    }
};

} // namespace

TEST_F(BulkTest, ManyBecomeOnePackThatGitTrusts) {
    constexpr int kCount = 700;
    write(3); // there already
    std::vector<Oid> ids;
    auto bulk = BulkWriter::begin(repository.get());
    ASSERT_OK(bulk);
    for (int n = 0; n < kCount; ++n) {
        ids.push_back(write(n));
        EXPECT_TRUE(holds(ids[static_cast<size_t>(n / 2)], n / 2)) << n; // while others come
    }
    write(5); // twice
    BuilderPtr builder(zTreeBuilderNew(repository.get(), nullptr));
    for (int n = 0; n < kCount; ++n)
        zTreeBuilderInsert(builder.get(), wide("d/" + std::to_string(n)).c_str(),
                           &ids[static_cast<size_t>(n)]);
    TreePtr root(zTreeBuilderWrite(builder.get(), repository.get()));
    ASSERT_OK(root);
    ASSERT_OK(bulk->finish());

    EXPECT_EQ(count("in-pack"), "in-pack: " + std::to_string(kCount - 1 + 2)); // and two trees
    EXPECT_EQ(files_in_packs(), 2u);
    CommitPtr made(zCommitCreate(u"HEAD", u"Ada", u"bulk", root.get()));
    ASSERT_OK(made);
    expect_sound();
    for (int n = 0; n < kCount; n += 97)
        EXPECT_EQ(git(place, "cat-file blob " + hex(&ids[static_cast<size_t>(n)])), content(n));
    write(kCount); // afterwards objects are loose again
    EXPECT_EQ(count("count"), "count: 3");
}

TEST_F(BulkTest, UnfinishedLeavesNothing) {
    Oid first{}, last{};
    {
        auto bulk = BulkWriter::begin(repository.get());
        first = write(0);
        for (int n = 1; n < 200; ++n) last = write(n);
        EXPECT_TRUE(holds(write(500), 500)); // now libgit2 has it in its cache
        EXPECT_EQ(files_in_packs(), 1u);
    }
    EXPECT_EQ(files_in_packs(), 0u);
    EXPECT_EQ(git_odb_exists(odb, zev::git::oid(&first)), 0);
    EXPECT_EQ(git_odb_exists(odb, zev::git::oid(&last)), 0);
    EXPECT_TRUE(holds(write(0), 0));
    write(500);                            // whatever the cache says
    EXPECT_EQ(count("count"), "count: 2"); // the repository works on

    auto bulk = BulkWriter::begin(repository.get());
    write(1);
    {
        auto inner = BulkWriter::begin(repository.get()); // adds to the outer one
        write(2);
        ASSERT_OK(inner->finish());
        EXPECT_EQ(count("count"), "count: 2");
    }
    ASSERT_OK(bulk->finish()); // of few, which become loose
    EXPECT_EQ(count("count"), "count: 4");
    EXPECT_EQ(files_in_packs(), 0u);
}

// libgit2 writes elsewhere what the bulk refuses, so its caller goes on: finish must not.
TEST_F(BulkTest, AWriteThatFailedOnTheWayFailsTheWhole) {
    signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit none{0, before.rlim_max};
    const auto no_open = [](const char *, int, mode_t) { return errno = EMFILE, -1; };
    int first = 1000;
    for (const std::string fault : {"none", "read", "open"}) {
        auto bulk = BulkWriter::begin(repository.get());
        const Oid oldest = write(first);
        for (int n = 1; n < 63; ++n) write(first + n);
        for (char c : {'a', 'b', 'c'}) { // the second one begins the pack
            const auto calls = zev::os::calls;
            if (fault == "open" && c == 'b') zev::os::calls.open = no_open;
            const std::string bytes = fault + c;
            git_oid id;
            EXPECT_EQ(git_odb_write(&id, odb, bytes.data(), bytes.size(), GIT_OBJECT_BLOB), 0);
            zev::os::calls = calls;
        }
        if (fault == "read") { // what is still in the buffer goes out before, and can't
            setrlimit(RLIMIT_FSIZE, &none);
            EXPECT_FALSE(holds(oldest, first));
            setrlimit(RLIMIT_FSIZE, &before);
        }
        for (int n = 63; n < 99; ++n) try_to_write(first + n);
        EXPECT_EQ(bulk->finish(), fault == "none") << fault;
        EXPECT_EQ(files_in_packs(), 2u) << fault;
        expect_sound();
        first += 1000;
    }
}

// The index of the pack can't be put in its place.
TEST_F(BulkTest, APackWithoutIndexDoesNotStay) {
    const auto calls = zev::os::calls;
    auto bulk = BulkWriter::begin(repository.get());
    for (int n = 1; n < 100; ++n) write(n);
    zev::os::calls.fsync = [](int) { return errno = EIO, -1; };
    EXPECT_FALSE(bulk->finish());
    zev::os::calls = calls;
    EXPECT_EQ(zErrorCode(), 5);
    EXPECT_EQ(files_in_packs(), 0u);
}
