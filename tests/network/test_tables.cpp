// The rows of drawings over the wire.
#include "../objects/drawing_fixture.hpp"
#include "service_fixture.hpp"

#include "common/limits.hpp"

using test::Answer, test::be32, test::narrow, test::raw, test::Service;

namespace {

const std::string kTagBytes(16, '\xFF');

std::string be64(uint64_t value) { return be32(value >> 32) + be32(value & 0xFFFFFFFF); }

std::string pair(std::string_view key, std::string_view value) {
    return be32(key.size()) + std::string(key) + be32(value.size()) + std::string(value);
}
std::string row(uint64_t tag, uint64_t object, std::string_view value) {
    return pair(raw({tag, object}), value);
}
std::string keys(std::initializer_list<std::string> each) {
    std::string list = be32(each.size());
    for (const std::string &key : each) list += key;
    return list;
}
const std::string kEnd = be32(0);

struct Tables : testing::Test {
    void SetUp() override { test::make_project(service, "ann/plant"); }

    Answer store(const std::string &body) { return service.put(one, body); }
    Answer read(const std::string &body) {
        return service.ask(Z_HTTP_PATCH, one, body, u"application/octet-stream");
    }
    // By opening the table without the service.
    std::string there(const DrawingKey &key) {
        const auto table = test::guard(zTableOpen(test::wide(place()).c_str(), false), zTableFree);
        return table ? test::get(table.get(), key) : narrow(zErrorDetail());
    }
    std::string place() { return service.at("ann/plant/tables/ab/" + id.substr(2)); }

    Service service;
    const std::string id = "ab" + std::string(38, 'c'), tables = "/repos/ann/plant/tables";
    const std::string one = tables + "/" + id;
};

TEST_F(Tables, AreMadeOrOpened) {
    const std::string body = R"({"query":{"id":")" + id + R"("}})";
    for (int n = 0; n < 2; ++n) {
        const Answer answer = service.post(tables, body);
        ASSERT_EQ(answer.code, 201) << answer.message();
        EXPECT_EQ(answer.text("data.tag"), n ? "2" : "1");
        if (!n) {
            EXPECT_EQ(store(row(1, 7, "seven") + kEnd).text("data.tag"), "2");
        }
    }
    EXPECT_EQ(there({1, 7}), "seven");
    EXPECT_EQ(service.post(tables, R"({"query":{"id":"x"}})").code, 400);
    test::write(service.at("ann/plant/tables/ab/" + std::string(38, 'd')), "no directory");
    EXPECT_EQ(service.put(tables + "/ab" + std::string(38, 'd'), kEnd).code, 404);
}

// Tags are drawn by chance: the table's one is above all that came, and never falls.
TEST_F(Tables, RaiseTheirTagAboveTheirRows) {
    const uint64_t far = uint64_t{1} << 40;
    const struct {
        const char *what;
        std::string body;
        uint64_t tag;
    } cases[] = {
        {"no row", kEnd, 2},
        {"a row below", row(1, 1, "a") + kEnd, 3},
        {"a row at the tag", row(3, 1, "a") + kEnd, 4},
        {"rows far above", row(far, 1, "a") + row(9, 1, "b") + kEnd, far + 1},
        {"a row below it", row(9, 2, "a") + kEnd, far + 2},
        {"a tag that is lower", pair(kTagBytes, be64(5)) + kEnd, far + 3},
        {"a tag that is higher", pair(kTagBytes, be64(far + 9)) + kEnd, far + 10},
        {"a tag that is none", pair(kTagBytes, "x") + kEnd, far + 11},
        {"no end", row(far, 3, "c"), far + 12},
        {"nothing at all", "x", far + 13},
    };
    for (const auto &[what, body, tag] : cases) {
        const Answer answer = store(body);
        ASSERT_EQ(answer.code, 201) << what << answer.message();
        EXPECT_EQ(answer.text("data.tag"), std::to_string(tag)) << what;
        EXPECT_EQ(there(zev::kTagKey), be64(tag)) << what;
    }
    EXPECT_EQ(there({9, 1}), "b");
    EXPECT_EQ(there({far, 3}), "c");
}

TEST_F(Tables, KeepRowsBeforeABreak) {
    const std::string body = row(1, 1, "first") + row(1, 2, "");
    EXPECT_EQ(store((body + row(1, 3, "third")).substr(0, 75)).code, 201);
    EXPECT_EQ(there({1, 1}) + there({1, 2}) + there({1, 3}), "first(none)");
}

// What can't be read is not left out: its reader would take it for a row that nobody has.
TEST_F(Tables, DamagedRowsAreErrors) {
    const std::string bytes = test::noise(20'000, 1);
    ASSERT_EQ(store(row(1, 1, bytes) + kEnd).code, 201);
    ASSERT_EQ(there({1, 1}), bytes);
    test::damage_table(place());
    EXPECT_EQ(read(be32(1) + raw({1, 1})).code, 500);
}

// Rows that come in several batches leave a tag alone that can't be read: it may be a high one.
TEST_F(Tables, NeverLowerADamagedTag) {
    const std::string bytes = test::noise(20'000, 1);
    ASSERT_EQ(store(row(7, 1, bytes) + kEnd).code, 201);
    ASSERT_EQ(there({7, 1}), bytes); // moves the rows into a file
    test::damage_behind(place(), bytes);
    ASSERT_EQ(there(zev::kTagKey), "(none)");
    const std::string large = row(1, 1, test::noise(zev::limits::sent_batch_bytes, 2));
    EXPECT_EQ(store(large + row(1, 2, "b") + kEnd).code, 500);
    EXPECT_EQ(there(zev::kTagKey) + there({1, 1}), "(none)(none)");
}

TEST_F(Tables, RefuseWhatIsTooLarge) {
    const std::string first = row(1, 1, "a");
    const struct {
        const char *what;
        std::string body;
        int32_t code;
    } cases[] = {
        {"a key", first + pair(std::string(65, 'k'), "v") + kEnd, 413},
        {"a value that is only told", first + be32(16) + raw({1, 2}) + be32(0x7FFFFFFF), 413},
        {"a tag without another above", first + row(UINT64_MAX, 1, "a") + kEnd, 400},
        {"the last tag", first + pair(kTagBytes, be64(INT64_MAX)) + kEnd, 400},
        {"a tag that leaves too few", first + pair(kTagBytes, be64(1ull << 61)) + kEnd, 400},
    };
    for (const auto &[what, body, code] : cases) {
        EXPECT_EQ(store(body).code, code) << what;
        EXPECT_EQ(there({1, 1}), "(none)") << what;
    }
    EXPECT_EQ(store(pair(std::string(64, 'k'), "v") + kEnd).code, 201);
}

TEST_F(Tables, GiveOutRowsAndANewTag) {
    store(row(1, 1, "one") + row(1, 2, "two") + kEnd);
    const std::string list = keys({raw({1, 2}), raw({1, 9}), kTagBytes, raw({1, 1})});
    for (uint64_t tag : {3u, 4u}) {
        const Answer answer = read(list);
        ASSERT_EQ(answer.code, 200) << answer.message();
        EXPECT_EQ(answer.body,
                  row(1, 2, "two") + pair(kTagBytes, be64(tag)) + row(1, 1, "one") + kEnd);
    }
    EXPECT_EQ(read(keys({})).code, 400);
    EXPECT_EQ(read(be32(9) + raw({1, 1})).code, 400);
    EXPECT_EQ(there(zev::kTagKey), be64(4));
}

} // namespace
