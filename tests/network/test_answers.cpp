// A server that answers what it likes: what an administrator and a working copy make of it.
#include "server_fixture.hpp"

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

std::u16string url_of(const TestServer &server) {
    return wide("http://127.0.0.1:" + std::to_string(server.port()) + "/test");
}

TEST(Answers, WhatIsNoSetOfRulesChangesNothing) {
    const TestServer server(reply, answer_all);
    const TempDir dir;
    const auto file = dir.path() / "AUTHZ";
    const auto request = guard(zHttpRequestNew(nullptr), zHttpRequestFree);
    zHttpRequestSetAccount(request.get(), u"ann", u"code");
    write(file, "old");
    const struct {
        int32_t code;
        const char *body;
        bool done;
    } rows[] = {
        {404, "", false},
        {200, "", false},
        {200, "{}", false},
        {200, R"({"data":{"result":7}})", false},
        {200, R"({"data":{"result":{"settings":{"changed":true,"entries":7}}}})", false},
        {200, R"({"data":{"result":{"settings":{"changed":false}}}})", true},
    };
    for (const auto &row : rows) {
        status = row.code, answer = row.body;
        EXPECT_EQ(
            zAuthUpdateDb(request.get(), nullptr, url_of(server).c_str(), file.u16string().c_str()),
            row.done)
            << row.body;
        EXPECT_EQ(read(file), "old") << row.body;
    }
}

TEST(Answers, AnAdministratorTakesNoneForAnother) {
    const TestServer server(reply, answer_all);
    const std::u16string url = url_of(server);
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
