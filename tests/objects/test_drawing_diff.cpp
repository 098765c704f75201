// Versions of a drawing compared by their keys, and the tie between a table and its file.
#include "drawing_fixture.hpp"
#include "system/os.hpp"

#include <algorithm>
#include <cerrno>
#include <random>

using namespace zev;
using namespace test;

namespace {

using Keys = std::vector<DrawingKey>;
using Numbers = std::vector<uint64_t>;

struct Outcome {
    Numbers added, modified, removed;
    bool operator==(const Outcome &) const = default;
};

// The rule as it is told, one search and one removal an object.
Outcome model(const Keys &from, const Keys &to) {
    Outcome outcome;
    Keys left = from;
    std::ranges::stable_sort(left, {}, &DrawingKey::object);
    for (const DrawingKey &key : to) {
        auto found = std::ranges::find(left, key.object, &DrawingKey::object);
        if (found == left.end()) {
            outcome.added.push_back(key.object);
            continue;
        }
        if (found->tag != key.tag) outcome.modified.push_back(key.object);
        left.erase(found);
    }
    for (const DrawingKey &key : left) outcome.removed.push_back(key.object);
    return outcome;
}

Numbers numbers(Vector *vector) {
    VectorPtr owned{vector};
    const auto *data = static_cast<const uint64_t *>(zVectorDataConst(vector));
    return Numbers(data, data + zVectorSize(vector));
}

struct DiffTest : testing::Test {
    TempDir dir;
    std::u16string from = dir / u"from.dwx", to = dir / u"to.dwx";

    static DrawingPtr make(const Keys &objects) {
        DrawingPtr drawing{zDrawingNew(nullptr, nullptr)};
        for (const DrawingKey &key : objects) zVectorPush(drawing->objects.get(), &key);
        return drawing;
    }
    Outcome differences(const Keys &before, const Keys &after) {
        zDrawingWrite(make(before).get(), from.c_str());
        zDrawingWrite(make(after).get(), to.c_str());
        return differences();
    }
    bool increments(Vector **keys) { // of the newer one, which is read from its start
        StreamPtr a{zFileStream(from.c_str(), u"rb")}, b{zFileStream(to.c_str(), u"rb")};
        zStreamSeek(b.get(), 50, 0);
        return zDrawingIncrements(a.get(), b.get(), keys);
    }
    Outcome differences() {
        Vector *added = nullptr, *modified = nullptr, *removed = nullptr;
        EXPECT_OK(zDrawingGetDifference(from.c_str(), to.c_str(), &added, &modified, &removed));
        return {numbers(added), numbers(modified), numbers(removed)};
    }
};

} // namespace

TEST_F(DiffTest, FollowsTheOrderOfTheNewerVersion) {
    std::mt19937 random(7);
    for (int round = 0; round < 16; ++round) {
        Keys before, after;
        for (uint64_t object = 0; object < 60; ++object) {
            for (auto times = random() % 3; times--;) before.push_back({1, object});
            for (auto times = random() % 3; times--;) after.push_back({1 + random() % 2, object});
        }
        if (round & 1) std::ranges::shuffle(before, random);
        if (round & 2) std::ranges::shuffle(after, random);
        EXPECT_EQ(differences(before, after), model(before, after)) << "round " << round;
    }
}

TEST_F(DiffTest, IncrementsAreTheNewKeysInWireForm) {
    DrawingPtr before = make({{1, 5}, {1, 3}, {1, 9}}),
               after = make({{1, 9}, {2, 3}, {1, 4}, {1, 5}});
    before->header = after->header = {1, ~0ull};
    after->summary = {2, ~1ull};
    after->vba = {0xFFFFFFFF, ~3ull}; // says that there is no project
    const DrawingKey kClass{2, ~100ull};
    zVectorPush(after->classes.get(), &kClass);
    ASSERT_OK(zDrawingWrite(before.get(), from.c_str()));
    ASSERT_OK(zDrawingWrite(after.get(), to.c_str()));
    Vector *keys = nullptr;
    ASSERT_OK(increments(&keys));
    const VectorPtr owned{keys};
    const Keys expected{kClass, {2, ~1ull}, {2, 3}, {1, 4}};
    ASSERT_EQ(zVectorSize(keys), expected.size());
    for (size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(memcmp(zVectorAddrAt(keys, i), key_bytes(expected[i]).data(), 16), 0) << i;
    before->table.id[19] = 1; // of another table
    ASSERT_OK(zDrawingWrite(before.get(), from.c_str()));
    Vector *added = nullptr, *modified = nullptr, *removed = nullptr;
    EXPECT_FALSE(zDrawingGetDifference(from.c_str(), to.c_str(), &added, &modified, &removed));
    EXPECT_FALSE(increments(&added));
    modified = keys; // an out that is full
    EXPECT_FALSE(zDrawingGetDifference(from.c_str(), from.c_str(), &added, &modified, &removed));
    EXPECT_TRUE(!added && !removed);
}

namespace {

// A working copy with a drawing docs/a.dwx whose table holds its rows and one more.
struct IdentityTest : testing::Test {
    TempDir dir;
    std::u16string work = dir / u"copy", source = work + u"/docs/a.dwx";
    RepositoryPtr repository{zRepositoryInit(work.c_str(), false)};
    Oid id{};

    void SetUp() override {
        ASSERT_OK(repository);
        std::filesystem::create_directories(work + u"/docs/sub");
        TablePtr table{zTableRand(repository.get())};
        ASSERT_OK(table);
        id = *zTableId(table.get());
        DrawingPtr drawing{zDrawingNew(nullptr, nullptr)};
        zDrawingTableIdSet(drawing.get(), &id);
        Table *t = table.get();
        zTableTagSet(t, 6);
        for (const DrawingKey *key :
             {zDrawingHeaderSet(drawing.get(), t), zDrawingSummarySet(drawing.get(), t),
              zDrawingDSSet(drawing.get(), t), zDrawingClassAdd(drawing.get(), t)})
            ASSERT_OK(put(t, *key, "block"));
        for (uint64_t n : {30, 10, 20})
            ASSERT_OK(put(t, *zDrawingObjectAdd(drawing.get(), t, n), "object"));
        ASSERT_OK(put(t, {5, 77}, "older"));
        ASSERT_OK(zDrawingTableBackwardRefSet(t, work.c_str(), source.c_str()));
        ASSERT_OK(zDrawingWrite(drawing.get(), source.c_str()));
    }
    TablePtr open(const Oid &which) { return TablePtr{zTableByid(repository.get(), &which)}; }
    std::u16string copy(std::u16string_view name) {
        const std::u16string path = work + u"/docs/" + std::u16string(name);
        std::filesystem::copy_file(source, path);
        return path;
    }
    size_t tables() {
        size_t count = 0;
        const auto root = std::filesystem::path(work) / ".git/tables";
        for (auto &group : std::filesystem::directory_iterator(root))
            for (auto &each : std::filesystem::directory_iterator(group))
                count += each.is_directory();
        return count;
    }
};

std::string utf16le(std::string_view text) {
    std::string wide;
    for (char c : text) wide += {c, 0};
    return wide + std::string(2, 0);
}

} // namespace

TEST_F(IdentityTest, SameFileKeepsItsTable) {
    const struct {
        std::string value;
        bool kept;
        const char *why;
    } kRows[] = {
        {utf16le("./docs/a.dwx"), true, "as it was set"},
        {utf16le("DOCS/A.dwx"), true, "case and the dot aside"},
        {utf16le("docs/b.dwx"), false, "another file"},
        {utf16le("docs/a.dwx").substr(0, 20), false, "without its zero"},
        {utf16le("docs/a.dwx") + "x", false, "of odd length"},
        {"", false, "no text at all"},
    };
    const std::string original = read(source);
    std::filesystem::create_directory_symlink("copy", dir / u"link");
    zDrawingConfirmTableBackwardRef((dir / u"link/docs/a.dwx").c_str());
    EXPECT_EQ(read(source), original) << "the same file by another way";
    for (auto &row : kRows) {
        write(source, original);
        ASSERT_OK(put(open(id).get(), kReferenceKey, row.value));
        zDrawingConfirmTableBackwardRef(source.c_str());
        EXPECT_EQ(read(source) == original, row.kept) << row.why;
    }
}

TEST_F(IdentityTest, StaysAsItIsWhenItCanNotBeSplit) {
    const std::u16string path = copy(u"b.dwx");
    const std::string original = read(path);
    DrawingPtr drawing{zDrawingRead(path.c_str())};
    EXPECT_OK(zDrawingDataPrepare(path.c_str(), drawing.get()));

    const auto calls = os::calls; // the rows can't be brought to the disk
    os::calls.syncfs = [](int) { return errno = EIO, -1; };
    zDrawingConfirmTableBackwardRef(path.c_str());
    os::calls = calls;
    EXPECT_EQ(zErrorCode(), 5);
    EXPECT_EQ(read(path), original);

    std::filesystem::permissions(path, std::filesystem::perms::owner_read);
    zDrawingConfirmTableBackwardRef(path.c_str());
    EXPECT_EQ(zErrorCode(), 13) << "a read-only file keeps its table";
    EXPECT_EQ(tables(), 1u) << "and the new one has gone again";
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);

    // A row that can't be read keeps it where that is known: in a new table there would be none.
    const std::string header = noise(8000, 1);
    {
        const TablePtr table = open(id);
        ASSERT_OK(put(table.get(), *zDrawingHeader(drawing.get()), header));
        for (const DrawingKey &key :
             {DrawingKey{6, 100}, *zDrawingSummary(drawing.get()), *zDrawingDS(drawing.get()),
              keys_of(drawing->classes.get())[0]})
            ASSERT_OK(put(table.get(), key, noise(8000, 2))); // a block of its own each
    }
    const std::filesystem::path place = zTablePath(open(id).get());
    damage_table(place, header);
    zDrawingConfirmTableBackwardRef(path.c_str());
    EXPECT_EQ(zErrorClass(), 13);
    EXPECT_EQ(read(path), original);
    EXPECT_EQ(tables(), 1u);
    ASSERT_OK(put(open(id).get(), *zDrawingHeader(drawing.get()), "block"));

    ASSERT_OK(zTableDel(open(id).get(), raw({6, 20}).data(), 16));
    EXPECT_REFUSED(zDrawingDataPrepare(path.c_str(), drawing.get()), 3) << "an object is missing";
    zDrawingConfirmTableBackwardRef(path.c_str());
    EXPECT_EQ(read(path), original);

    ASSERT_OK(zTableDel(open(id).get(), raw({}).data(), 16));
    zDrawingConfirmTableBackwardRef(path.c_str());
    EXPECT_EQ(zErrorClass(), 13) << "a table without a reference is never split";
    EXPECT_EQ(read(path), original);
    EXPECT_EQ(tables(), 1u) << "nothing left behind";
}

// To a link's repository it is no drawing, and its rows lie elsewhere.
TEST_F(IdentityTest, ALinkIsNotWritten) {
    const std::filesystem::path link = work + u"/docs/link.dwx", none = work + u"/docs/none.dwx";
    std::filesystem::create_symlink(source, link);
    std::filesystem::create_symlink("nowhere.dwx", none);
    DrawingPtr drawing{zDrawingRead(link.u16string().c_str())};
    ASSERT_OK(drawing);
    const std::string bytes = read(source);
    ASSERT_OK(zDrawingSetThumbnail(drawing.get(), 3, "new"));
    for (const auto &path : {link, none}) {
        EXPECT_REFUSED(zDrawingWrite(drawing.get(), path.u16string().c_str()), 10);
        EXPECT_TRUE(std::filesystem::is_symlink(path));
    }
    EXPECT_EQ(read(source), bytes);
}
