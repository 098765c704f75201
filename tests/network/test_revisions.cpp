// Revisions over the wire.
#include "commit_fixture.hpp"

using test::Answer, test::narrow, test::Service;

namespace {

struct Revisions : testing::Test {
    void SetUp() override {
        test::make_project(service, "ann/plant");
        for (int n = 0; n < 3; ++n) commit(n);
        branch = service.git("ann/plant", "symbolic-ref HEAD");
        branch.pop_back();
    }
    // One file more, an hour later.
    void commit(int n) {
        const std::string bytes = "line " + std::to_string(n);
        ids.push_back(
            test::commit_file(service, "ann/plant", "f" + std::to_string(n) + ".txt", &bytes, n));
        ASSERT_EQ(ids.back().size(), 40u) << ids.back();
    }
    std::string list(const std::string &query) {
        const Answer answer = service.get(revisions + query);
        if (answer.code != 200) return std::to_string(answer.code) + " " + answer.message();
        std::string all;
        for (uint64_t n = 0; n < answer.entries(); ++n) {
            const auto id = narrow(zJsonGetString(zJsonArrayAt(answer.at("data.entries"), n)));
            for (size_t i = 0; i < ids.size(); ++i)
                if (ids[i] == id) all += std::to_string(i);
        }
        return all;
    }

    Service service;
    std::vector<std::string> ids;
    std::string branch;
    const std::string revisions = "/repos/ann/plant/revisions";
};

TEST_F(Revisions, AreListed) {
    const struct {
        std::string query, ids;
    } cases[] = {
        {"?head=" + branch, "210"},
        {"?limit=1&head=" + ids[1], "1"},
        {"?since=2020-01-01T01:00:00Z&until=2020-01-01T01:00:00Z", "1"},
        {"?since=yesterday",
         "400 The field '?since' is invalid: The server did not understand the request"},
        {"?head=nothing", "404 The server has nothing at this address"},
    };
    for (const auto &[query, expected] : cases) EXPECT_EQ(list(query), expected) << query;
    test::make_project(service, "ann/empty");
    EXPECT_EQ(service.get("/repos/ann/empty/revisions").body, R"({"data":{"entries":[]}})");
}

TEST_F(Revisions, AreRead) {
    const Answer first = service.get(revisions + "/" + ids[1]);
    ASSERT_EQ(first.code, 200) << first.message();
    EXPECT_EQ(first.text("oid"), ids[1]);
    EXPECT_EQ(first.text("author"), "Ann");
    EXPECT_EQ(first.text("seconds"), "1577840400");
    ASSERT_EQ(zJsonArraySize(first.at("changes")), 1u);
    Json *change = zJsonArrayAt(first.at("changes"), 0);
    EXPECT_EQ(narrow(zJsonPathGetString(change, u"new_file.path")), "f1.txt");

    // From its record now, which need not be true.
    const auto record =
        service.repos() / "ann/plant/revisions" / ids[1].substr(0, 2) / ids[1].substr(2);
    std::string text = test::read(record);
    ASSERT_NE(text.find("Ann"), text.npos);
    test::write(record, text.replace(text.find("Ann"), 3, "Bob"));
    EXPECT_EQ(service.get(revisions + "/" + ids[1]).text("author"), "Bob");
    test::write(record, "damaged");
    EXPECT_EQ(service.get(revisions + "/" + ids[1]).text("author"), "Ann");
}

TEST_F(Revisions, ComeInBatchesWholeOrNotAtAll) {
    const std::string good = R"({"oid":")" + ids[2] + R"("})";
    const std::string gone = R"({"oid":")" + std::string(40, 'a') + R"("})";
    const struct {
        std::string body;
        int32_t code;
        const char *message;
    } cases[] = {
        {"[]", 200, "(null)"},
        {"[" + good + "," + good + "]", 200, "(null)"},
        {"[" + good + "," + gone + "]", 404, "There is no revision 'aaaa"},
        {"[" + good + R"(,{"oid":"x"}])", 400, "The field 'id' is invalid"},
        {"[" + good + R"(,{"id":"x"}])", 400, "The field 'id' is required"},
        {"[7]", 400, "The field 'id' is required"},
        {R"({"query":[]})", 400, "The content of the request could not be read"},
        {"[", 400, "The content of the request could not be read"},
    };
    for (const auto &[body, code, message] : cases) {
        const Answer answer =
            service.ask(Z_HTTP_PATCH, revisions + "/any", body, u"application/octet-stream");
        EXPECT_EQ(answer.code, code) << body;
        EXPECT_EQ(answer.message().substr(0, strlen(message)), message) << body;
        EXPECT_EQ(answer.entries(), code == 200 && body.size() > 2 ? 2u : 0u) << body;
    }
    EXPECT_EQ(service.ask(Z_HTTP_PATCH, revisions).message().substr(0, 26),
              "The request needs content ");
    EXPECT_EQ(service.post(revisions, "[]").code, 400);
}

} // namespace
