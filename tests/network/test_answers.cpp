// A server that answers what it likes: what an administrator and a working copy make of it.
#include "server_fixture.hpp"

#include "zev/authdb.h"
#include "zev/notify.h"

using namespace test;

namespace {

std::string answer; // the body; empty for none
int32_t status;

HttpResponse *reply(HttpServer *, HttpRequest *) {
    HttpResponse *response = zHttpResponseBlank(status);
    if (answer.empty()) return response;
    Stream *body = zMemStream(0, 0);
    zStreamWrite(body, answer.data(), answer.size());
    zHttpResponseSetContents(response, u"application/json", u"UTF-8", nullptr, body);
    return response;
}

// Nothing else answers, least of all the service.
void answer_all(HttpServer &server) {
    zVectorRemoveAll(&server.handles);
    HttpHandle handle;
    zHttpHandleInit(&handle, u"/test", reply);
    zHttpServerAddHandle(&server, &handle);
    zHttpHandleCleanup(&handle);
}

struct Told {
    Notify table{};
    std::string errors;
    bool breaks = false;
};

class Answers : public testing::Test {
  protected:
    TempDir dir;
    TestServer server{reply, answer_all};
    Told told;
    Guard<HttpRequest> request = guard(zHttpRequestNew(nullptr), zHttpRequestFree);
    std::filesystem::path file = dir.path() / "AUTHZ";

    void SetUp() override {
        told.table.error = [](const Notify *notify, const zwchar *text) {
            const_cast<Told *>(reinterpret_cast<const Told *>(notify))->errors += narrow(text);
        };
        told.table.usrbrk = [](const Notify *notify) {
            return reinterpret_cast<const Told *>(notify)->breaks;
        };
        zHttpRequestSetAccount(request.get(), u"ann", u"code");
        zHttpRequestSetNotify(request.get(), &told.table);
        write(file, "old");
    }
    bool update(int32_t code, std::string_view body) {
        status = code, answer = body;
        told.errors.clear();
        zRaiseNotFound(nullptr);
        const std::string url = "http://127.0.0.1:" + std::to_string(server.port()) + "/test";
        return zAuthUpdateDb(request.get(), &told.table, wide(url).c_str(),
                             file.u16string().c_str());
    }
};

TEST_F(Answers, WhatIsNoSetOfRulesChangesNothing) {
    const std::string summary =
        narrow(zI18nTextLookup(zI18nCurrentLang(), u"net.eFailedToFetchSummary"));
    const struct {
        int32_t code;
        const char *body;
        bool done;
        int32_t raised; // 0: nothing is told
    } rows[] = {
        {500, R"({"data":{"status":103}})", false, 500},
        {404, "", false, 404},
        {200, "", false, -1},
        {200, "{", false, -1},
        {200, "{}", false, 0},
        {200, R"({"data":{"result":7}})", false, 0},
        {200, R"({"data":{"result":{"settings":{"changed":false}}}})", true, 0},
        {200, R"({"data":{"result":{}}})", true, 0},
        {200, R"({"data":{"result":{"settings":{"changed":true,"entries":7}}}})", false, -1},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(update(row.code, row.body), row.done) << row.body;
        EXPECT_EQ(read(file), "old") << row.body;
        if (row.raised) {
            EXPECT_TRUE(zErrorClass() == 15 && zErrorCode() == row.raised) << row.body;
            EXPECT_EQ(told.errors.find(summary), 0u) << told.errors;
        } else {
            EXPECT_EQ(told.errors, "") << row.body;
        }
    }
    EXPECT_TRUE(update(200, R"({"data":{"result":{"settings":{"changed":true,"default":16}}}})"));
    EXPECT_EQ(read(file), R"({"settings":{"default":16}})");
    server.stop();
    EXPECT_FALSE(update(200, ""));
    EXPECT_EQ(zErrorCode(), 503);
    EXPECT_EQ(told.errors.find(summary), 0u);
}

TEST_F(Answers, ABreakIsToldToNobody) {
    told.breaks = true;
    EXPECT_FALSE(update(200, "{}"));
    EXPECT_EQ(zErrorClass(), 6);
    EXPECT_EQ(told.errors, "");
    const std::u16string longest = u"http://127.0.0.1/" + std::u16string(2027, u'a');
    EXPECT_FALSE(zAuthUpdateDb(request.get(), nullptr, longest.c_str(), u"x"));
    EXPECT_EQ(zErrorClass(), 2);
}

TEST_F(Answers, AnAdministratorTakesNoAnswerForAnother) {
    const std::u16string url = wide("http://127.0.0.1:" + std::to_string(server.port()) + "/test");
    const struct {
        int32_t code;
        const char *body;
        int32_t status, raised; // the second for 0 and 107
        bool lists = false;
    } rows[] = {
        {200, R"({"data":{"status":100}})", 100, 0},
        {500, R"({"data":{"status":103}})", 103, 0},
        {200, R"({"data":{"entries":[]}})", 0, -1, true},
        {200, R"({"data":{"entries":{}}})", 0, -1},
        {200, "[]", 0, -1},
        {200, "{", 0, -1},
        {200, "", 0, -1},
        {403, R"({"error":{"code":403,"message":"no"}})", 0, 403},
        {400, R"({"data":{"status":100}})", 107, 400},
    };
    for (const auto &row : rows) {
        status = 200, answer = R"({"data":{"status":100}})";
        Admin *session = nullptr;
        ASSERT_EQ(zAdminLoginRms(url.c_str(), u"a", u"b", false, false, &session), 100);
        const auto admin = guard(session, zAdminLogoutRms);
        status = row.code, answer = row.body;
        zRaiseNotFound(nullptr);
        EXPECT_EQ(zAdminDeleteGroup(session, 7), row.status) << row.body;
        EXPECT_TRUE(!row.raised || (zErrorClass() == 15 && zErrorCode() == row.raised)) << row.body;
        Json *list = nullptr;
        EXPECT_EQ(zAdminListRepo(session, &list), row.lists) << row.body;
        EXPECT_EQ(list != nullptr, row.lists) << row.body;
        zJsonFree(list);
    }
}

} // namespace
