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

    Service service;
    std::vector<std::string> ids;
    std::string branch;
    const std::string revisions = "/repos/ann/plant/revisions";
};

TEST_F(Revisions, AreListed) {
    const std::pair<std::string, std::string> cases[] = {
        {"?head=" + branch, ids[2] + R"(",")" + ids[1] + R"(",")" + ids[0]},
        {"?limit=1&head=" + ids[1], ids[1]},
        {"?since=2020-01-01T01:00:00Z&until=2020-01-01T01:00:00Z", ids[1]},
    };
    for (const auto &[query, listed] : cases)
        EXPECT_EQ(service.get(revisions + query).body,
                  R"({"data":{"entries":[")" + listed + R"("]}})")
            << query;
    EXPECT_EQ(service.get(revisions + "?since=yesterday").code, 400);
    EXPECT_EQ(service.get(revisions + "?head=nothing").code, 404);
}

TEST_F(Revisions, AreRead) {
    const Answer first = service.get(revisions + "/" + ids[1]);
    ASSERT_EQ(first.code, 200) << first.message();
    EXPECT_EQ(first.text("oid"), ids[1]);
    EXPECT_EQ(first.text("author") + first.text("seconds"), "Ann1577840400");
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
        {"[7]", 400, "The field 'id' is required"},
        {"[", 400, "The content of the request could not be read"},
    };
    for (const auto &[body, code, message] : cases) {
        const Answer answer =
            service.ask(Z_HTTP_PATCH, revisions + "/any", body, u"application/octet-stream");
        EXPECT_EQ(answer.code, code) << body;
        EXPECT_EQ(answer.message().substr(0, strlen(message)), message) << body;
        EXPECT_EQ(answer.entries(), code == 200 && body.size() > 2 ? 2u : 0u) << body;
    }
}

} // namespace
