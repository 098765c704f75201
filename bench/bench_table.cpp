// Rows into and out of a table, beside LevelDB alone with its default options, which do not
// verify checksums on reading as ours do. Rows go out into a temporary file on both sides; the
// peer leveldb-read drops what it read.
#include "bench.hpp"

#include "common/reader.hpp"
#include "objects/drawing/drawing.hpp"

#include "zev/zev.h"

using namespace zev;

namespace {

struct Rows {
    std::vector<DrawingKey> keys;
    std::vector<std::string> values;
};

Rows make_rows(uint64_t count) {
    bench::Random random(11);
    Rows rows;
    for (uint64_t i = 0; i < count; ++i) {
        rows.keys.push_back({1 + random.below(4), i});
        std::string value(300 + random.below(400), 0);
        for (char &c : value)
            c = static_cast<char>('0' + random.below(24)); // as drawings: half air
        rows.values.push_back(std::move(value));
    }
    return rows;
}

// A database of LevelDB alone.
struct Bare {
    ldb::Options options{leveldb_options_create()};
    ldb::ReadOptions reading{leveldb_readoptions_create()};
    ldb::WriteOptions writing{leveldb_writeoptions_create()};
    ldb::Database database;

    void open(const std::string &path) {
        leveldb_options_set_create_if_missing(options.get(), 1);
        ldb::Text error;
        database.reset(leveldb_open(options.get(), path.c_str(), out(error)));
        if (!database) exit(1);
    }
    void put(const DrawingKey &key, const std::string &value) {
        const KeyBytes bytes = key_bytes(key);
        ldb::Text error;
        leveldb_put(database.get(), writing.get(), ldb::chars(bytes.data()), bytes.size(),
                    value.data(), value.size(), out(error));
        if (error) exit(1);
    }
    void put_batches(const Rows &rows) {
        ldb::Batch batch{leveldb_writebatch_create()};
        uint64_t held = 0;
        for (size_t i = 0; i < rows.keys.size(); ++i) {
            const KeyBytes bytes = key_bytes(rows.keys[i]);
            leveldb_writebatch_put(batch.get(), ldb::chars(bytes.data()), bytes.size(),
                                   rows.values[i].data(), rows.values[i].size());
            held += bytes.size() + rows.values[i].size();
            if (held < 1u << 20 && i + 1 < rows.keys.size()) continue;
            ldb::Text error;
            leveldb_write(database.get(), writing.get(), batch.get(), out(error));
            if (error) exit(1);
            leveldb_writebatch_clear(batch.get());
            held = 0;
        }
    }
    void walk(FILE *out) {
        ldb::Iterator iter{leveldb_create_iterator(database.get(), reading.get())};
        for (leveldb_iter_seek_to_first(iter.get()); leveldb_iter_valid(iter.get());
             leveldb_iter_next(iter.get())) {
            size_t key_length = 0, value_length = 0;
            const char *key = leveldb_iter_key(iter.get(), &key_length);
            const char *value = leveldb_iter_value(iter.get(), &value_length);
            write_pair(out, key, key_length, value, value_length);
        }
    }
    void get(const std::vector<DrawingKey> &keys, FILE *out) {
        for (const DrawingKey &key : keys) {
            const KeyBytes bytes = key_bytes(key);
            size_t length = 0;
            ldb::Text error;
            ldb::Text value{leveldb_get(database.get(), reading.get(), ldb::chars(bytes.data()),
                                        bytes.size(), &length, zev::out(error))};
            write_pair(out, ldb::chars(bytes.data()), bytes.size(), value.get(), length);
        }
    }
    static void write_pair(FILE *out, const char *key, size_t key_length, const char *value,
                           size_t value_length) {
        if (!out) return;
        uint8_t length[4];
        store_u32(length, static_cast<uint32_t>(key_length));
        fwrite(length, 1, 4, out);
        fwrite(key, 1, key_length, out);
        store_u32(length, static_cast<uint32_t>(value_length));
        fwrite(length, 1, 4, out);
        fwrite(value, 1, value_length, out);
    }
};

Owned<Stream, zStreamFree> pair_stream(const Rows &rows) {
    Owned<Stream, zStreamFree> stream{zMemStream(0, 1 << 26)};
    const auto u32 = [&](uint64_t n) { zStreamWrUInt32(stream.get(), static_cast<uint32_t>(n)); };
    for (size_t i = 0; i < rows.keys.size(); ++i) {
        u32(16);
        zDrawingKeyWrite(stream.get(), &rows.keys[i]);
        u32(rows.values[i].size());
        zStreamWrite(stream.get(), rows.values[i].data(), rows.values[i].size());
    }
    u32(0);
    zStreamRewind(stream.get());
    return stream;
}

struct Bench {
    bench::Scratch scratch;
    Rows rows = make_rows(bench::size("ZEV_BENCH_OBJECTS", 100000));
    TablePtr table;
    Bare bare;
    int fresh = 0;

    std::string path(const char *side) {
        return (scratch.path() / (side + std::to_string(fresh))).string();
    }
    void renew() {
        table.reset();
        bare.database.reset();
        ++fresh;
        table.reset(zTableOpen(zStrfromutf8(path("zev").c_str()), true));
        bare.open(path("bare"));
        if (!table) exit(1);
    }
    // Both sides from files, what they hold moved out of the log by opening anew.
    void reopen() {
        table.reset();
        bare.database.reset();
        table.reset(zTableOpen(zStrfromutf8(path("zev").c_str()), false));
        bare.open(path("bare"));
        if (!table) exit(1);
    }

    // Turn about, so that both sides meet the same disturbances.
    template <class Ours, class Theirs, class Reset>
    void rate(const char *scenario, const char *peer, uint64_t count, Ours ours, Theirs theirs,
              Reset reset) {
        std::vector<double> a, b;
        for (int run = 0; run < 7; ++run) {
            reset();
            a.push_back(bench::once(ours));
            reset();
            b.push_back(bench::once(theirs));
        }
        std::ranges::sort(a);
        std::ranges::sort(b);
        const double rows_each = static_cast<double>(count) * 1000;
        bench::compare(scenario, peer, "rows/s", rows_each / a[a.size() / 2],
                       rows_each / b[b.size() / 2]);
    }

    void in() {
        const auto anew = [this] { renew(); };
        rate(
            "table-put", "leveldb", rows.keys.size(),
            [&] {
                for (size_t i = 0; i < rows.keys.size(); ++i)
                    zDrawingKeyPutData(table.get(), &rows.keys[i], rows.values[i].data(),
                                       rows.values[i].size());
            },
            [&] {
                for (size_t i = 0; i < rows.keys.size(); ++i)
                    bare.put(rows.keys[i], rows.values[i]);
            },
            anew);
        const auto stream = pair_stream(rows);
        rate(
            "table-pairs-in", "leveldb", rows.keys.size(),
            [&] {
                zStreamRewind(stream.get());
                if (!zTableReadStream(table.get(), stream.get())) exit(1);
            },
            [&] { bare.put_batches(rows); }, anew);
    }

    void out() {
        renew();
        zTableReadStream(table.get(), pair_stream(rows).get());
        bare.put_batches(rows);
        const auto anew = [this] { reopen(); };
        for (bool spool : {true, false})
            rate(
                "table-out", spool ? "leveldb" : "leveldb-read", rows.keys.size(),
                [&] { zStreamFree(zTableWriteOut(table.get())); },
                [&] { with_file(spool, [&](FILE *file) { bare.walk(file); }); }, anew);

        std::vector<DrawingKey> chosen; // every other key, in key order
        for (size_t i = 0; i < rows.keys.size(); i += 2) chosen.push_back(rows.keys[i]);
        keys_out("table-keys-shuffled", chosen, anew);
        std::ranges::sort(chosen, {},
                          [](const DrawingKey &k) { return std::pair(k.tag, k.object); });
        keys_out("table-keys-out", chosen, anew);
    }

    template <class Reset>
    void keys_out(const char *scenario, const std::vector<DrawingKey> &chosen, Reset reset) {
        const auto keys = new_keys(chosen.size());
        for (const DrawingKey &key : chosen) zVectorPush(keys.get(), &key);
        for (bool spool : {true, false})
            rate(
                scenario, spool ? "leveldb" : "leveldb-read", chosen.size(),
                [&] { zStreamFree(zTablePartialWriteOut(table.get(), keys.get())); },
                [&] { with_file(spool, [&](FILE *file) { bare.get(chosen, file); }); }, reset);
    }

    template <class F> static void with_file(bool wanted, F work) {
        FILE *file = wanted ? tmpfile() : nullptr;
        work(file);
        if (file) fclose(file);
    }
};

} // namespace

int main() {
    if (!zGlobalInit(nullptr, nullptr)) return 1;
    {
        Bench run;
        run.in();
        run.out();
    }
    zGlobalCleanup();
    return 0;
}
