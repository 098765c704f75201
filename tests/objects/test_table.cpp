// Tables on real LevelDB databases in a real repository, and the forms in which rows travel.
#include "common/limits.hpp"
#include "objects/drawing/drawing.hpp"
#include "support.hpp"

#include <algorithm>
#include <atomic>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

using namespace zev;
using namespace std::string_literals;
using test::TempDir;

namespace {

using StreamPtr = Owned<Stream, zStreamFree>;
using VectorPtr = Owned<Vector, zVectorFree>;
using RepositoryPtr = Owned<Repository, zRepositoryFree>;
using IterPtr = Owned<TableIter, zTableIterFree>;

constexpr uint64_t minus(uint64_t n) { return 0 - n; }

std::string be32(uint32_t value) {
    std::string text(4, 0);
    for (int i = 3; i >= 0; --i, value >>= 8) text[static_cast<size_t>(i)] = char(value & 255);
    return text;
}

std::string raw(const DrawingKey &key) {
    const KeyBytes bytes = key_bytes(key);
    return {bytes.begin(), bytes.end()};
}

std::string pair_of(const std::string &key, const std::string &value) {
    return be32(uint32_t(key.size())) + key + be32(uint32_t(value.size())) + value;
}

StreamPtr stream_of(const std::string &bytes) {
    StreamPtr stream{zMemStream(0, 0)};
    zStreamWrite(stream.get(), bytes.data(), bytes.size());
    zStreamRewind(stream.get());
    return stream;
}

std::string rest_of(Stream *stream) {
    std::string text, block(65536, 0);
    while (uint64_t got = zStreamRead(stream, block.data(), block.size()))
        text.append(block, 0, got);
    return text;
}

VectorPtr keys_from(const std::vector<DrawingKey> &list) {
    VectorPtr keys = new_keys(0);
    for (const DrawingKey &key : list) zVectorPush(keys.get(), &key);
    return keys;
}

using Rows = std::vector<std::pair<std::string, std::string>>;

Rows rows_of(Table *table) {
    Rows rows;
    IterPtr iter{zTableIterNew(table)};
    for (zTableIterSeekToFirst(iter.get()); !zTableIterDone(iter.get());
         zTableIterNext(iter.get())) {
        const void *key, *value;
        uint64_t key_length, value_length;
        zTableIterKey(&key, &key_length, iter.get());
        zTableIterValue(&value, &value_length, iter.get());
        rows.emplace_back(std::string(static_cast<const char *>(key), key_length),
                          std::string(static_cast<const char *>(value), value_length));
    }
    return rows;
}

bool put(Table *table, const DrawingKey &key, const std::string &value) {
    return zDrawingKeyPutData(table, &key, value.data(), value.size());
}

std::string get(Table *table, const DrawingKey &key) {
    void *value;
    uint64_t length;
    if (!zDrawingKeyGetData(table, &key, &value, &length)) return "(none)";
    Malloced<char> owned{static_cast<char *>(value)};
    return {owned.get(), length};
}

struct TableTest : testing::Test {
    TempDir dir;
    RepositoryPtr repository{zRepositoryInit((dir / u"copy").c_str(), false)};
    TablePtr table{repository ? zTableRand(repository.get()) : nullptr};
    void SetUp() override { ASSERT_OK(table); }
    TablePtr reopen() {
        const Oid id = *zTableId(table.get());
        table.reset();
        return TablePtr{zTableByid(repository.get(), &id)};
    }
};

} // namespace

TEST_F(TableTest, TagStartsAtOneAndIsStoredAsEightBytes) {
    EXPECT_EQ(zTableTagGet(table.get()), 1u);
    ASSERT_OK(zTableTagIncrement(table.get()));
    EXPECT_EQ(zTableTagGet(table.get()), 2u);
    EXPECT_EQ(get(table.get(), kTagKey), "\0\0\0\0\0\0\0\2"s);
    ASSERT_OK(zTableTagSet(table.get(), 0x0102030405060708));
    table = reopen();
    ASSERT_OK(table);
    EXPECT_EQ(zTableTagGet(table.get()), 0x0102030405060708u);

    // However the row changes, the table knows: a short value, none, one out of a pair stream.
    ASSERT_OK(put(table.get(), kTagKey, "1234567"));
    EXPECT_EQ(zTableTagGet(table.get()), 1u);
    ASSERT_OK(zTableReadStream(table.get(),
                               stream_of(pair_of(raw(kTagKey), "\0\0\0\0\0\0\0\x9"s)).get()));
    EXPECT_EQ(zTableTagGet(table.get()), 9u);
    ASSERT_OK(zTableDel(table.get(), raw(kTagKey).data(), 16));
    EXPECT_EQ(zTableTagGet(table.get()), 1u);
}

TEST_F(TableTest, WalksInKeyOrder) {
    const std::vector<DrawingKey> order{kReferenceKey,   {1, 5},        {1, UINT64_MAX >> 1},
                                        {1, minus(101)}, {1, minus(1)}, {2, 1},
                                        kTagKey};
    for (size_t i = order.size(); i--;) ASSERT_OK(put(table.get(), order[i], std::to_string(i)));
    const Rows rows = rows_of(table.get());
    ASSERT_EQ(rows.size(), order.size());
    for (size_t i = 0; i < order.size(); ++i) {
        EXPECT_EQ(rows[i].first, raw(order[i]));
        EXPECT_EQ(rows[i].second, std::to_string(i));
    }

    IterPtr iter{zTableIterNew(table.get())};
    EXPECT_TRUE(zTableIterDone(iter.get()));
    EXPECT_FALSE(zTableIterNext(iter.get())) << "nowhere yet";
    zTableIterSeek(iter.get(), raw({1, 6}).data(), 16);
    const void *value;
    uint64_t length;
    ASSERT_OK(zTableIterValue(&value, &length, iter.get()));
    EXPECT_EQ(std::string(static_cast<const char *>(value), length), "2");
    zTableIterSeekToLast(iter.get());
    ASSERT_OK(zTableIterPrev(iter.get()) && zTableIterValue(&value, &length, iter.get()));
    EXPECT_EQ(std::string(static_cast<const char *>(value), length), "5");
    zTableIterNext(iter.get());
    zTableIterNext(iter.get());
    EXPECT_TRUE(zTableIterDone(iter.get()));
    EXPECT_FALSE(zTableIterKey(&value, &length, iter.get()));
}

TEST_F(TableTest, IsHeldByOneOpenerAndKeepsItsRows) {
    ASSERT_OK(put(table.get(), {1, 7}, ""));
    const std::u16string lock = std::u16string(zTablePath(table.get())) + u"/LOCK.zlck";
    EXPECT_TRUE(zPathFileExists(lock.c_str()));
    const Oid id = *zTableId(table.get());
    EXPECT_FALSE(TablePtr{zTableByid(repository.get(), &id)});
    EXPECT_EQ(zErrorClass(), 7) << "after a while";

    table.reset();
    EXPECT_FALSE(zPathFileExists(lock.c_str()));
    TablePtr again{zTableDiscover((dir / u"copy").c_str(), nullptr, &id)};
    ASSERT_OK(again);
    EXPECT_EQ(zTableOwner(again.get()), nullptr) << "it is closed by now";
    EXPECT_FALSE(TablePtr{zTableDuplicate(again.get())});
    EXPECT_EQ(get(again.get(), {1, 7}), "") << "an empty value is a value";
    EXPECT_EQ(get(again.get(), {1, 8}), "(none)");
    EXPECT_EQ(zErrorClass(), 13);
}

TEST_F(TableTest, KilledHolderFreesAtOnceAndLosesNothing) {
    const Oid id = *zTableId(table.get());
    table.reset();
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    const pid_t holder = fork();
    if (!holder) {
        Table *held = zTableByid(repository.get(), &id);
        const bool ok = held && put(held, {1, 7}, "row");
        if (write(pipe_ends[1], ok ? "y" : "n", 1) == 1) pause();
        _exit(0);
    }
    char answer = 0;
    ASSERT_EQ(read(pipe_ends[0], &answer, 1), 1);
    EXPECT_EQ(answer, 'y');
    EXPECT_FALSE(TablePtr{zTableByid(repository.get(), &id)});
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    close(pipe_ends[0]), close(pipe_ends[1]);
    TablePtr again{zTableByid(repository.get(), &id)};
    ASSERT_OK(again);
    EXPECT_EQ(get(again.get(), {1, 7}), "row");
}

TEST_F(TableTest, ReadersWaitForEachOther) {
    ASSERT_OK(put(table.get(), {1, 7}, "row"));
    const Oid id = *zTableId(table.get());
    table.reset();
    std::atomic<int> served = 0;
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 3; ++reader)
        readers.emplace_back([&] {
            for (int round = 0; round < 3; ++round)
                if (const TablePtr own{zTableByid(repository.get(), &id)}; own)
                    served += get(own.get(), {1, 7}) == "row";
        });
    for (std::thread &reader : readers) reader.join();
    EXPECT_EQ(served, 9);
}

// An archive: nothing is written there, and nothing is said to be.
TEST_F(TableTest, IsReadWhereNobodyMayWrite) {
    ASSERT_OK(put(table.get(), {1, 7}, "row"));
    const std::filesystem::path path = zTablePath(table.get());
    ASSERT_OK(reopen()); // into a file of rows, with a log of the rest
    const auto files = [&] {
        std::map<std::string, std::string> all;
        for (auto &entry : std::filesystem::directory_iterator(path))
            all[entry.path().filename()] = test::read(entry.path());
        return all;
    };
    const auto before = files();
    using std::filesystem::perms;
    std::filesystem::permissions(path, perms::owner_read | perms::owner_exec);
    TablePtr archived{zTableOpen(path.u16string().c_str(), false)};
    std::filesystem::permissions(path, perms::owner_all);
    ASSERT_OK(archived);
    EXPECT_EQ(get(archived.get(), {1, 7}), "row");
    EXPECT_FALSE(put(archived.get(), {1, 8}, "more"));
    EXPECT_EQ(zErrorCode(), 30);
    EXPECT_FALSE(zTableReadStream(archived.get(), stream_of(pair_of(raw({1, 8}), "more")).get()));
    EXPECT_FALSE(zTableTagIncrement(archived.get()));
    EXPECT_FALSE(zTableDel(archived.get(), "a", 1));
    archived.reset();
    EXPECT_EQ(files(), before);
}

// What a linked worktree keeps must survive its removal; what one kept in its own directory once is
// still found.
TEST_F(TableTest, LinkedWorktreesShareOnePlace) {
    const std::string copy = (dir.path() / "copy").string(), other = (dir.path() / "side").string();
    const std::string git = "git -c user.name=a -c user.email=b -C '" + copy + "' ";
    test::run(git + "commit -q --allow-empty -m first && " + git + "worktree add -q '" + other +
              "'");
    const std::filesystem::path shared = copy + "/.git", own = shared / "worktrees/side";
    test::write(own / "trash/slot/file", "dropped");
    RepositoryPtr side{zRepositoryOpen((dir / u"side").c_str())};
    ASSERT_OK(side);
    EXPECT_EQ(test::narrow(zRepositoryTrash(side.get())), (shared / "trash").string());
    EXPECT_EQ(test::read(shared / "trash/slot/file"), "dropped");

    ASSERT_OK(put(table.get(), {1, 7}, "row"));
    const Oid id = *zTableId(table.get());
    table.reset();
    EXPECT_EQ(get(TablePtr{zTableByid(side.get(), &id)}.get(), {1, 7}), "row");
    std::filesystem::rename(shared / "tables", own / "tables");
    EXPECT_EQ(get(TablePtr{zTableByid(side.get(), &id)}.get(), {1, 7}), "row");
    EXPECT_FALSE(std::filesystem::exists(shared / "tables"));
}

TEST_F(TableTest, RefusesPathsThatItCanNotServe) {
    const std::u16string fresh = dir / u"deep/er/table";
    EXPECT_FALSE(zTableOpen(fresh.c_str(), false));
    EXPECT_EQ(zErrorClass(), 13);
    EXPECT_FALSE(zPathExists(fresh.c_str())) << "looking for a table makes none";
    EXPECT_OK(TablePtr{zTableOpen(fresh.c_str(), true)});
    for (const std::u16string &name : {std::u16string(500, 'a'), std::u16string(300, u'é')}) {
        EXPECT_FALSE(zTableOpen((dir / name).c_str(), true));
        EXPECT_EQ(zErrorCode(), 38) << "refused, not cut";
    }
}

TEST_F(TableTest, WholeTableTravels) {
    ASSERT_OK(put(table.get(), {2, 1}, "second"));
    ASSERT_OK(put(table.get(), {1, 1}, ""));
    ASSERT_OK(zTablePut(table.get(), "", 0, "nameless", 8));
    StreamPtr stream{zTableWriteOut(table.get())};
    ASSERT_OK(stream);
    const std::string wire = pair_of(raw({1, 1}), "") + pair_of(raw({2, 1}), "second") + be32(0);
    EXPECT_EQ(rest_of(stream.get()), wire) << "an empty key would read as the end";

    TablePtr other{zTableRand(repository.get())};
    StreamPtr with_more = stream_of(wire + "more");
    ASSERT_OK(zTableReadStream(other.get(), with_more.get()));
    EXPECT_EQ(rest_of(with_more.get()), "more") << "taken up to the end mark and no further";
    EXPECT_EQ(rows_of(other.get()), (Rows{{raw({1, 1}), ""}, {raw({2, 1}), "second"}}));
}

TEST_F(TableTest, ChosenKeysTravelInTheirOrder) {
    std::mt19937 random(1);
    std::vector<DrawingKey> keys;
    for (uint64_t i = 0; i < 2000; ++i) keys.push_back({1 + i % 3, i});
    for (const DrawingKey &key : keys)
        ASSERT_OK(key.object % 5 == 0 || put(table.get(), key, "v" + std::to_string(key.object)));
    for (bool shuffled : {false, true}) {
        if (shuffled) std::shuffle(keys.begin(), keys.end(), random);
        std::string wire;
        for (const DrawingKey &key : keys)
            if (key.object % 5) wire += pair_of(raw(key), "v" + std::to_string(key.object));
        zRaiseNotFound(nullptr);
        StreamPtr stream{zTablePartialWriteOut(table.get(), keys_from(keys).get())};
        ASSERT_OK(stream);
        EXPECT_TRUE(rest_of(stream.get()) == wire + be32(0));
        EXPECT_EQ(zErrorClass(), 13) << "what is missing is left out, and raised";
    }
}

TEST_F(TableTest, PairsBeforeABreakAreStored) {
    const std::vector<std::string> pairs{pair_of(raw({1, 1}), "one"), pair_of(raw({1, 2}), ""),
                                         pair_of("k", "three")};
    const std::string wire = pairs[0] + pairs[1] + pairs[2] + be32(0);
    for (size_t cut = 0; cut <= wire.size(); ++cut) {
        for (auto &row : rows_of(table.get()))
            zTableDel(table.get(), row.first.data(), row.first.size());
        ASSERT_OK(zTableReadStream(table.get(), stream_of(wire.substr(0, cut)).get()));
        size_t whole = 0;
        for (size_t end = 0; whole < 3 && (end += pairs[whole].size()) <= cut;) ++whole;
        EXPECT_EQ(rows_of(table.get()).size(), whole) << "cut at " << cut;
    }
    for (uint32_t length : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        for (const std::string &bad :
             {be32(length) + "key", be32(1) + "b" + be32(length) + "value"}) {
            ASSERT_OK(zTableReadStream(table.get(), stream_of(pairs[0] + bad).get()));
            EXPECT_EQ(get(table.get(), {1, 1}), "one");
            EXPECT_EQ(rows_of(table.get()).size(), 3u);
        }
    }
}

TEST_F(TableTest, RowsInManyBatchesAllArrive) {
    std::string wire;
    for (uint64_t i = 0; i < 50; ++i)
        wire += pair_of(raw({1, i}), std::string(limits::batch_bytes / 9, char('a' + i % 26)));
    ASSERT_OK(zTableReadStream(table.get(), stream_of(wire).get()));
    table = reopen();
    StreamPtr back{zTableWriteOut(table.get())};
    EXPECT_TRUE(rest_of(back.get()) == wire + be32(0));
    TablePtr copy{zTableDuplicate(table.get())};
    ASSERT_OK(copy);
    EXPECT_FALSE(zOidIsEqual(zTableId(copy.get()), zTableId(table.get())));
    EXPECT_EQ(rows_of(copy.get()), rows_of(table.get()));
}

// A flipped bit on the disk is an error, never another value and never a shorter table.
TEST_F(TableTest, DamageIsNoticed) {
    std::mt19937 random(3);
    std::string noise(65536, 0); // which no decompression would stumble over
    for (char &c : noise) c = static_cast<char>(random());
    for (uint64_t i = 0; i < 100; ++i) ASSERT_OK(put(table.get(), {1, i}, noise));
    const std::filesystem::path path = zTablePath(table.get());
    table = reopen(); // all rows move into sorted files
    const Oid id = *zTableId(table.get());
    table.reset();
    for (auto &entry : std::filesystem::directory_iterator(path)) {
        if (entry.path().extension() != ".ldb") continue;
        std::string bytes = test::read(entry);
        for (size_t at = 100; at < bytes.size() / 2; at += 1000) bytes[at] ^= 1;
        test::write(entry, bytes);
    }
    table.reset(zTableByid(repository.get(), &id));
    ASSERT_OK(table);
    EXPECT_EQ(get(table.get(), {1, 0}), "(none)");
    EXPECT_EQ(zErrorClass(), 13);
    EXPECT_NE(test::narrow(zErrorMsg()).find("orruption"), std::string::npos);
    EXPECT_FALSE(StreamPtr{zTableWriteOut(table.get())});
    EXPECT_FALSE(TablePtr{zTableDuplicate(table.get())});
    StreamPtr part{zTablePartialWriteOut(table.get(), keys_from({{1, 0}}).get())};
    EXPECT_EQ(rest_of(part.get()), be32(0));

    // Without its CURRENT the table isn't begun anew over its rows.
    table.reset();
    std::filesystem::remove(std::filesystem::path(path) / "CURRENT");
    EXPECT_FALSE(TablePtr{zTableByid(repository.get(), &id)});
    EXPECT_EQ(zErrorClass(), 13);
    const auto is_row_file = [](auto &entry) { return entry.path().extension() == ".ldb"; };
    EXPECT_TRUE(std::ranges::any_of(std::filesystem::directory_iterator(path), is_row_file));
}

TEST(KeyList, TravelsWholeOrInTrunks) {
    const std::vector<DrawingKey> list{{1, 2}, {0x0102030405060708, minus(1)}, {3, 4}};
    VectorPtr keys = keys_from(list);
    std::string wire = be32(3);
    for (const DrawingKey &key : list) wire += raw(key);
    EXPECT_EQ(rest_of(StreamPtr{zDrawingKeyVectorWrite(keys.get())}.get()), wire);

    VectorPtr back{zDrawingKeyVectorRead(stream_of(wire).get())};
    ASSERT_OK(back);
    EXPECT_TRUE(std::ranges::equal(keys_of(back.get()), list, same_key));
    StreamPtr single = stream_of("");
    DrawingKey read{};
    ASSERT_OK(zDrawingKeyWrite(single.get(), &list[1]) && zStreamRewind(single.get()));
    EXPECT_TRUE(zDrawingKeyRead(single.get(), &read) && zDrawingKeyEqual(&read, &list[1]));
    EXPECT_FALSE(zDrawingKeyRead(single.get(), &read)) << "a short read";
    for (size_t cut = 0; cut < wire.size(); ++cut)
        EXPECT_FALSE(zDrawingKeyVectorRead(stream_of(wire.substr(0, cut)).get())) << cut;
    EXPECT_FALSE(zDrawingKeyVectorRead(stream_of(be32(0xFFFFFFFF) + wire).get()));

    const struct {
        uint64_t cursor, limit, next;
    } trunks[] = {{0, 2, 2}, {2, 2, 3}, {3, 2, 3}, {0, 50000, 3}};
    for (auto &trunk : trunks) {
        uint64_t cursor = trunk.cursor;
        StreamPtr stream{zDrawingKeyVectorWriteTrunk(keys.get(), trunk.limit, &cursor)};
        ASSERT_OK(stream);
        EXPECT_EQ(cursor, trunk.next);
        const uint64_t count = trunk.next - trunk.cursor;
        EXPECT_EQ(rest_of(stream.get()),
                  be32(uint32_t(count)) + wire.substr(4 + 16 * trunk.cursor, 16 * count));
    }
}
