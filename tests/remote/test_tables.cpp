// Rows of drawings from the server: what goes into a table of a working copy, and what does not.
#include "drawn.hpp"

using namespace test;

namespace {

struct Tables : Session {
    void SetUp() override {
        Session::SetUp();
        table.reset(zTableRand(copy.get()));
        ASSERT_OK(table);
        path = "/repos/ann/plant/tables/" + text_of(zTableId(table.get()));
    }
    std::string rows_of(const std::vector<std::pair<DrawingKey, std::string>> &rows) const {
        std::string body;
        for (const auto &[key, value] : rows) body += pair(raw(key), value);
        return body + be32(0);
    }
    static std::string pair(const std::string &key, const std::string &value) {
        return be32(key.size()) + key + be32(value.size()) + value;
    }
    bool fetch(const std::vector<DrawingKey> &keys) {
        return zRemoteDownloadTable(remote.get(), table.get(), vector_of(keys).get(), &told);
    }
    TablePtr table;
    std::string path;
};

constexpr DrawingKey one{1, 10}, two{1, 20}, other{1, 30}, note{0, 0}, tag{UINT64_MAX, UINT64_MAX};
const std::string tag9("\0\0\0\0\0\0\0\x09", 8), tag3("\0\0\0\0\0\0\0\x03", 8);

TEST_F(Tables, AskForManyKeysByParts) {
    std::vector<DrawingKey> keys;
    for (uint64_t n = 0; n < 120'000; ++n) keys.push_back({7, n + 1});
    ASSERT_OK(fetch(keys));
    EXPECT_EQ(relay.asked().size(), 3u);
    const size_t half = keys.size() - 20'000;
    keys.resize(half);
    relay.play();
    ASSERT_OK(fetch(keys));
    EXPECT_EQ(relay.asked().size(), 2u) << "and for no more when they end with a part";
}

TEST_F(Tables, KeepTheirPathAndTheHigherTag) {
    const struct {
        const char *what;
        std::string sent, tag;
        uint64_t expected;
    } cases[] = {
        {"higher", tag9, tag3, 9},
        {"lower", tag3, tag9, 9},
        {"no number", "9", tag9, 9},
    };
    put(table.get(), note, "own path");
    for (const auto &each : cases) {
        put(table.get(), tag, each.tag);
        relay.give(octets(rows_of({{note, "its path"}, {tag, each.sent}, {one, each.what}})));
        ASSERT_OK(fetch({note, tag, one}));
        EXPECT_EQ(zTableTagGet(table.get()), each.expected) << each.what;
        EXPECT_EQ(get(table.get(), note), "own path");
        EXPECT_EQ(get(table.get(), one), each.what);
    }
    zTableDel(table.get(), raw(note).data(), 16);
    ASSERT_OK(fetch({note, tag, one}));
    EXPECT_EQ(get(table.get(), note), "its path") << "where there is none";
}

// What the server sends beyond that is no row of ours, and what is no pair stream a failure.
TEST_F(Tables, TakeNothingElse) {
    put(table.get(), other, "mine");
    put(table.get(), tag, tag3);
    const std::string good = pair(raw(one), "1");
    const struct {
        const char *what;
        std::string answer;
        bool taken;
        std::string first; // the value of `one` then
    } cases[] = {
        {"others beside",
         octets(pair(raw(other), "yours") + pair(raw(tag), tag9) + pair("k", "v") + good + be32(0)),
         true, "1"},
        {"only the mark", octets(be32(0)), true, "(none)"},
        {"no mark", octets(good), false, "(none)"},
        {"an endless key", octets(good + be32(65) + std::string(65, 'k') + be32(0)), false, "1"},
        {"an endless value", octets(good + be32(16) + raw(two) + be32(1u << 30) + be32(0)), false,
         "1"},
        {"a failure", answer(500, good + be32(0), "application/octet-stream"), false, "(none)"},
    };
    for (const auto &each : cases) {
        zTableDel(table.get(), raw(one).data(), 16);
        relay.give(each.answer);
        EXPECT_EQ(fetch({one, two}), each.taken) << each.what;
        EXPECT_TRUE(each.taken || zErrorClass() == 15) << each.what;
        EXPECT_EQ(get(table.get(), one), each.first) << each.what;
        EXPECT_EQ(get(table.get(), other), "mine") << each.what;
        EXPECT_EQ(get(table.get(), two), "(none)") << each.what;
        EXPECT_EQ(zTableTagGet(table.get()), 3u) << each.what << ": the tag was not asked for";
    }
    EXPECT_EQ(told.each(), "") << "nobody is told";
}

// A drawing whose manifest came alone.
TEST_F(Tables, AreCompletedFromTheServer) {
    const std::string file = at() + "/d.dwx";
    const Sheet sheet = draw(table.get(), file, {{10, "ten"}, {20, "twenty"}});
    const Oid id = *zTableId(table.get());
    ASSERT_EQ(service.put(path, read_rows(table.get())).code, 201);
    table.reset();
    std::filesystem::remove_all(at() + "/.git/tables");

    const DrawingPtr drawing(zDrawingRead(wide(file).c_str()));
    ASSERT_OK(zDrawingDataPrepare(wide(file).c_str(), drawing.get()));
    EXPECT_EQ(relay.asked().size(), 2u) << "objects, then the single blocks";
    {
        const TablePtr fetched(zTableByid(copy.get(), &id));
        EXPECT_EQ(get(fetched.get(), *zDrawingObjectGetAt(drawing.get(), 1)), "twenty");
        EXPECT_EQ(get(fetched.get(), *zDrawingHeader(drawing.get())), "header");
        EXPECT_GT(zTableTagGet(fetched.get()), 1u);
    }
    relay.play();
    ASSERT_OK(zDrawingDataPrepare(wide(file).c_str(), drawing.get()));
    EXPECT_EQ(relay.asked().size(), 0u) << "it is complete";

    // What can't be had: the server fails, or lacks it, too.
    std::filesystem::remove_all(at() + "/.git/tables");
    relay.give(answer(500, "{}"));
    EXPECT_FALSE(zDrawingDataPrepare(wide(file).c_str(), drawing.get()));
    EXPECT_EQ(zErrorClass(), 15);
    relay.give(octets(be32(0)));
    EXPECT_FALSE(zDrawingDataPrepare(wide(file).c_str(), drawing.get()));
    EXPECT_EQ(zErrorClass(), 3);
    size_t asked = 0; // single blocks that fail leave it usable
    relay.play([&](const auto &...) -> std::optional<std::string> {
        return asked++ ? std::optional<std::string>("") : std::nullopt;
    });
    EXPECT_OK(zDrawingDataPrepare(wide(file).c_str(), drawing.get()));
}

} // namespace
