// Tables on real LevelDB databases in a real repository, and the forms in which rows travel.
#include "child.hpp"
#include "common/limits.hpp"
#include "drawing_fixture.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <map>
#include <set>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

using namespace zev;
using namespace std::string_literals;
using namespace test;

namespace {

using IterPtr = Owned<TableIter, zTableIterFree>;

std::string pair_of(const std::string &key, const std::string &value) {
    return be32(uint32_t(key.size())) + key + be32(uint32_t(value.size())) + value;
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

TEST_F(TableTest, TagIsWhatItsRowSays) {
    ASSERT_OK(zTableTagSet(table.get(), 0x0102030405060708));
    EXPECT_EQ(get(table.get(), kTagKey), "\1\2\3\4\5\6\7\x08"s);

    // However the row changes, the table knows: a short value, none, one out of a pair stream.
    ASSERT_OK(put(table.get(), kTagKey, "1234567"));
    EXPECT_EQ(zTableTagGet(table.get()), 1u);
    ASSERT_OK(zTableReadStream(table.get(),
                               stream_of(pair_of(raw(kTagKey), "\0\0\0\0\0\0\0\x9"s)).get()));
    EXPECT_EQ(zTableTagGet(table.get()), 9u);
    ASSERT_OK(zTableDel(table.get(), raw(kTagKey).data(), 16));
    EXPECT_EQ(zTableTagGet(table.get()), 1u);
}

TEST_F(TableTest, IsHeldByOneOpenerUntilItIsKilled) {
    const Oid id = *zTableId(table.get());
    table.reset();
    {
        Signal ready;
        const Child holder([&] {
            Table *held = zTableByid(repository.get(), &id);
            ready.send(held && put(held, {1, 7}, "") ? 'y' : 'n');
            return pause();
        });
        EXPECT_EQ(ready.receive(), 'y');
        EXPECT_REFUSED(TablePtr{zTableByid(repository.get(), &id)}, 7) << "after a while";
    } // killed here
    TablePtr again{zTableDiscover((dir / u"copy").c_str(), nullptr, &id)};
    ASSERT_OK(again);
    EXPECT_FALSE(TablePtr{zTableByid(repository.get(), &id)}) << "in this process, too";
    EXPECT_EQ(zTableOwner(again.get()), nullptr) << "it is closed by now";
    EXPECT_FALSE(TablePtr{zTableDuplicate(again.get())});
    EXPECT_EQ(get(again.get(), {1, 7}), "") << "an empty value is a value";
    EXPECT_EQ(get(again.get(), {1, 8}), "(none)");
    EXPECT_EQ(zErrorClass(), 13);
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

// Who writes waits for those who look, and they for him.
TEST_F(TableTest, ManyLookAtOnce) {
    ASSERT_OK(put(table.get(), {1, 7}, "row"));
    const Oid id = *zTableId(table.get());
    const std::string path = std::filesystem::path(zTablePath(table.get())).string();
    table.reset();
    TablePtr one{zTableLook(repository.get(), &id)}, other{zTableLook(repository.get(), &id)};
    ASSERT_OK(one && other);
    EXPECT_EQ(get(one.get(), {1, 7}) + get(other.get(), {1, 7}), "rowrow");
    EXPECT_FAILS_WITH(put(one.get(), {1, 8}, "more"), 13);
    EXPECT_TRUE(zOidIsEqual(zTableId(one.get()), &id));
    const auto is_free = [&] {
        const int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const bool locked = flock(fd, LOCK_EX | LOCK_NB) == 0;
        return close(fd), locked;
    };
    EXPECT_FALSE(is_free());
    std::thread writer([&] {
        const TablePtr own{zTableByid(repository.get(), &id)};
        EXPECT_OK(own && put(own.get(), {1, 8}, "more"));
    });
    one.reset();
    EXPECT_FALSE(is_free());
    other.reset();
    writer.join();
    EXPECT_TRUE(is_free());
    EXPECT_EQ(get(TablePtr{zTableLook(repository.get(), &id)}.get(), {1, 8}), "more");
    const Oid none{};
    EXPECT_FAILS_WITH(TablePtr{zTableLook(repository.get(), &none)}, 13);
}

// An archive: nothing is written there, and nothing is said to be.
TEST_F(TableTest, IsReadWhereNobodyMayWrite) {
    ASSERT_OK(put(table.get(), {1, 7}, "row"));
    const std::filesystem::path path = zTablePath(table.get());
    ASSERT_OK(reopen()); // into a file of rows, with a log of the rest
    const auto files = [&] {
        std::map<std::string, std::string> all;
        for (auto &entry : std::filesystem::directory_iterator(path))
            all[entry.path().filename()] = read(entry.path());
        return all;
    };
    const auto before = files();
    using std::filesystem::perms;
    std::filesystem::permissions(path, perms::owner_read | perms::owner_exec);
    TablePtr archived{zTableOpen(path.u16string().c_str(), false)};
    std::filesystem::permissions(path, perms::owner_all);
    ASSERT_OK(archived);
    EXPECT_EQ(get(archived.get(), {1, 7}), "row");
    EXPECT_FAILS_WITH(put(archived.get(), {1, 8}, "more"), 30);
    EXPECT_FALSE(zTableReadStream(archived.get(), stream_of(pair_of(raw({1, 8}), "more")).get()));
    EXPECT_FALSE(zTableTagIncrement(archived.get()));
    EXPECT_FALSE(zTableDel(archived.get(), "a", 1));
    archived.reset();
    EXPECT_EQ(files(), before);
}

std::set<std::string> kinds_in(const std::filesystem::path &path) {
    std::set<std::string> kinds;
    for (auto &entry : std::filesystem::directory_iterator(path)) {
        const std::string name = entry.path().filename(), kind = entry.path().extension();
        EXPECT_TRUE(kinds.insert(kind.empty() ? name.substr(0, name.find('-')) : kind).second);
    }
    return kinds;
}

// A drawing of few objects has as many files as it must.
TEST_F(TableTest, LeavesThreeFiles) {
    using Kinds = std::set<std::string>;
    const std::filesystem::path path = zTablePath(table.get());
    table = reopen();
    table = reopen();
    const Oid id = *zTableId(table.get());
    table.reset();
    EXPECT_EQ(kinds_in(path), (Kinds{"CURRENT", "MANIFEST", ".log"})) << "empty, and none was lost";
    for (const char *value : {"first", "second", "third"}) {
        table.reset(zTableByid(repository.get(), &id));
        ASSERT_OK(put(table.get(), {1, 7}, value));
        table.reset();
        EXPECT_TRUE(kinds_in(path).contains(".log")) << "of the row";
        table.reset(zTableByid(repository.get(), &id));
        EXPECT_EQ(get(table.get(), {1, 7}), value);
        ASSERT_OK(zTableCompact(table.get()));
        table.reset();
        EXPECT_EQ(kinds_in(path), (Kinds{"CURRENT", "MANIFEST", ".ldb"}));
    }

    // Another program that has the database open does so by its LOCK.
    test::write(path / "LOCK", "");
    test::write(path / "LOG", "of its own");
    test::write(path / "000999.log", "");
    Signal ready;
    Child other([&] {
        const int file = ::open((path / "LOCK").c_str(), O_RDWR);
        struct flock whole {};
        whole.l_type = F_WRLCK;
        ready.send(fcntl(file, F_SETLK, &whole) ? 'n' : 'y');
        return pause();
    });
    ASSERT_EQ(ready.receive(), 'y');
    tidy_table(path.u16string().c_str());
    EXPECT_EQ(kinds_in(path), (Kinds{"CURRENT", "MANIFEST", ".ldb", ".log", "LOCK", "LOG"}));
    other.kill();
    other.wait();
    tidy_table(path.u16string().c_str());
    EXPECT_EQ(kinds_in(path), (Kinds{"CURRENT", "MANIFEST", ".ldb"}));
}

TEST_F(TableTest, IsPutInOrderOrTakenAway) {
    const std::filesystem::path path = zTablePath(table.get());
    const Oid id = *zTableId(table.get());
    for (unsigned round = 0; round < 3; ++round) {
        for (uint64_t i = 0; i < 20; ++i) ASSERT_OK(put(table.get(), {1, i}, noise(4096, round)));
        table = reopen();
    }
    const auto size = [&] {
        uintmax_t sum = 0;
        for (auto &entry : std::filesystem::directory_iterator(path)) sum += entry.file_size();
        return sum;
    };
    const DrawingKey last{1, 19};
    EXPECT_GT(size(), 2u * 20 * 4096);
    ASSERT_OK(zTableDel(table.get(), key_bytes(last).data(), 16));
    ASSERT_OK(zTableCompact(table.get()));
    table = reopen();
    EXPECT_LT(size(), 20u * 4096);
    EXPECT_EQ(rows_of(table.get()).size(), 19u);

    using std::filesystem::perms;
    table.reset();
    std::filesystem::permissions(path, perms::owner_read | perms::owner_exec);
    table.reset(zTableByid(repository.get(), &id));
    EXPECT_FALSE(zTableCompact(table.get()));
    EXPECT_FALSE(zTableRemove(table.release())) << "and closed nevertheless";
    EXPECT_EQ(zErrorCode(), 30);
    std::filesystem::permissions(path, perms::owner_all);
    table.reset(zTableByid(repository.get(), &id));
    ASSERT_OK(table);
    EXPECT_EQ(rows_of(table.get()).size(), 19u);

    // Who waits for it doesn't get its rows, nor its name back.
    std::thread waiter([&] { TablePtr{zTableByid(repository.get(), &id)}; });
    ASSERT_OK(zTableRemove(table.release()));
    waiter.join();
    table.reset(zTableByid(repository.get(), &id));
    ASSERT_OK(table);
    EXPECT_TRUE(rows_of(table.get()).empty());
    EXPECT_FALSE(std::filesystem::exists(path.string() + ".removed"));
}

// What a linked worktree keeps must survive its removal; what one kept in its own directory once is
// still found.
TEST_F(TableTest, LinkedWorktreesShareOnePlace) {
    const std::string copy = (dir.path() / "copy").string(), other = (dir.path() / "side").string();
    const std::string git = "git -c user.name=a -c user.email=b -C '" + copy + "' ";
    run(git + "commit -q --allow-empty -m first && " + git + "worktree add -q '" + other + "'");
    const std::filesystem::path shared = copy + "/.git", own = shared / "worktrees/side";
    write(own / "trash/slot/file", "dropped");
    RepositoryPtr side{zRepositoryOpen((dir / u"side").c_str())};
    ASSERT_OK(side);
    EXPECT_EQ(narrow(zRepositoryTrash(side.get())), (shared / "trash").string());
    EXPECT_EQ(read(shared / "trash/slot/file"), "dropped");

    ASSERT_OK(put(table.get(), {1, 7}, "row"));
    const Oid id = *zTableId(table.get());
    const std::string path = narrow(zTablePath(table.get()));
    table.reset();
    const auto lies = [&] { // to who stands before somebody's work directory
        zwchar found[Z_PATH_MAX];
        EXPECT_OK(zTablePlaceIn(found, (dir / u"side/").c_str(), &id));
        return narrow(found);
    };
    EXPECT_EQ(lies(), path);
    EXPECT_EQ(get(TablePtr{zTableByid(side.get(), &id)}.get(), {1, 7}), "row");
    std::filesystem::rename(shared / "tables", own / "tables");
    EXPECT_EQ(get(TablePtr{zTableByid(side.get(), &id)}.get(), {1, 7}), "row");
    EXPECT_FALSE(std::filesystem::exists(shared / "tables"));
    EXPECT_EQ(lies(), own.string() + path.substr(shared.string().size()));
}

TEST_F(TableTest, RefusesPathsThatItCanNotServe) {
    const std::u16string fresh = dir / u"deep/er/table";
    EXPECT_REFUSED(zTableOpen(fresh.c_str(), false), 13);
    EXPECT_FALSE(zPathExists(fresh.c_str())) << "looking for a table makes none";
    EXPECT_OK(TablePtr{zTableOpen(fresh.c_str(), true)});
    EXPECT_FALSE(zTableOpen((dir / std::u16string(300, u'é')).c_str(), true));
    EXPECT_EQ(zErrorCode(), 38) << "refused, not cut";
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

    std::string large; // many batches
    for (uint64_t i = 0; i < 50; ++i)
        large += pair_of(raw({3, i}), std::string(limits::batch_bytes / 9, char('a' + i % 26)));
    ASSERT_OK(zTableReadStream(other.get(), stream_of(large).get()));
    TablePtr copy{zTableDuplicate(other.get())};
    ASSERT_OK(copy);
    EXPECT_EQ(rows_of(copy.get()).size(), 52u);
    EXPECT_EQ(rows_of(copy.get()), rows_of(other.get()));
}

// A flipped bit on the disk is an error, never another value and never a shorter table.
TEST_F(TableTest, DamageIsNoticed) {
    const std::string value = noise(65536, 3);
    for (uint64_t i = 0; i < 100; ++i) ASSERT_OK(put(table.get(), {1, i}, value));
    const std::filesystem::path path = zTablePath(table.get());
    table = reopen(); // all rows move into sorted files
    const Oid id = *zTableId(table.get());
    table.reset();
    damage_table(path);
    table.reset(zTableByid(repository.get(), &id));
    ASSERT_OK(table);
    EXPECT_EQ(get(table.get(), {1, 0}), "(none)");
    EXPECT_EQ(zErrorClass(), 13);
    EXPECT_FALSE(StreamPtr{zTableWriteOut(table.get())});
    EXPECT_FALSE(TablePtr{zTableDuplicate(table.get())});
    StreamPtr part{zTablePartialWriteOut(table.get(), keys_from({{1, 0}}).get())};
    EXPECT_EQ(rest_of(part.get()), be32(0));

    // Without its CURRENT the table isn't begun anew over its rows.
    table.reset();
    std::filesystem::remove(std::filesystem::path(path) / "CURRENT");
    EXPECT_REFUSED(TablePtr{zTableByid(repository.get(), &id)}, 13);
    EXPECT_TRUE(std::ranges::any_of(std::filesystem::directory_iterator(path), [](auto &entry) {
        return entry.path().extension() == ".ldb";
    }));
}

// As what counts from 1 again would write over the rows of commits.
TEST_F(TableTest, ADamagedTagStampsNothing) {
    const std::string value = noise(20'000, 3);
    ASSERT_OK(put(table.get(), {1, 1}, value) && zTableTagSet(table.get(), 7));
    const std::filesystem::path path = zTablePath(table.get());
    table = reopen();
    const Oid id = *zTableId(table.get());
    table.reset();
    damage_behind(path, value);
    table.reset(zTableByid(repository.get(), &id));
    const DrawingPtr drawing(zDrawingNew(nullptr, nullptr));
    EXPECT_FALSE(zDrawingObjectAdd(drawing.get(), table.get(), 1));
    EXPECT_EQ(zErrorClass(), 13);
    EXPECT_FALSE(zDrawingHeaderSet(drawing.get(), table.get()));
    EXPECT_FALSE(zDrawingVbaProjectSet(drawing.get(), table.get(), "vba", 3));
    EXPECT_EQ(zDrawingObjectCount(drawing.get()), 0u);
    EXPECT_FALSE(zTableTagIncrement(table.get()));
}

TEST_F(TableTest, WhatCantBecomeOneKeepsItsFiles) {
    const std::filesystem::path plans = dir.path() / "plans";
    write(plans / "plan", "ann's");
    std::filesystem::create_directories(plans / "LOCK");
    EXPECT_FALSE(TablePtr(zTableOpen(plans.u16string().c_str(), true)));
    EXPECT_TRUE(std::filesystem::exists(plans / "plan"));
}

// What decompresses gives less than asked for before its end.
TEST_F(TableTest, TakesRowsPieceByPiece) {
    std::string pairs;
    for (uint64_t i = 0; i < 20; ++i) pairs += pair_of(raw({1, i}), noise(30'000, unsigned(i)));
    const StreamPtr packed(zStreamCompress(stream_of(pairs + be32(0)).get(), u"gzip"));
    const StreamPtr source(zUnzipStream(packed.get(), u"gzip"));
    ASSERT_OK(zTableReadStream(table.get(), source.get()));
    EXPECT_EQ(get(table.get(), {1, 19}), noise(30'000, 19));
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
    for (const std::string &cut : {wire.substr(0, 3), wire.substr(0, wire.size() - 1)})
        EXPECT_FALSE(zDrawingKeyVectorRead(stream_of(cut).get()));

    for (const auto &[from, limit, next] : std::initializer_list<std::array<uint64_t, 3>>{
             {0, 2, 2}, {2, 2, 3}, {3, 2, 3}, {0, 50000, 3}}) {
        uint64_t cursor = from;
        StreamPtr stream{zDrawingKeyVectorWriteTrunk(keys.get(), limit, &cursor)};
        EXPECT_EQ(rest_of(stream.get()),
                  be32(next - from) + wire.substr(4 + 16 * from, 16 * (next - from)));
        EXPECT_EQ(cursor, next);
    }
}
