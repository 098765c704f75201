// What a server takes from its settings, what it writes down, and how it says that it is well.
#include "service_fixture.hpp"

#include <memory>
#include <new>
#include <regex>
#include <vector>

#include <sys/stat.h>

using test::narrow, test::RawSocket, test::TempDir, test::TestServer;

namespace {

// Five bytes, whose last says with `?open=1` how many connections there are; `?code=N` is the
// status.
HttpResponse *answer(HttpServer *server, HttpRequest *request) {
    const zwchar *code = zHttpRequestQuery(request, u"code");
    HttpResponse *response = zHttpResponseBlank(code ? zStrtolW(code, nullptr, 10) : 200);
    Stream *body = zMemStream(0, 0);
    const bool counts = zHttpRequestQuery(request, u"open");
    zStreamWrite(body, "1234", 4);
    zStreamWrite(body, std::to_string(counts ? server->open : 5).data(), 1);
    zHttpResponseSetContents(response, u"text/plain", nullptr, nullptr, body);
    return response;
}

std::string ask(const TestServer &server, const std::string &request) {
    RawSocket client(server.port());
    client.send(request);
    return client.receive();
}

std::string get(const std::string &target, const std::string &fields = "") {
    return "GET " + target + " HTTP/1.1\r\nHost: h\r\nConnection: close\r\n" + fields + "\r\n";
}

TEST(ServerSettings, RefuseWhatNobodyCanMean) {
    const struct {
        const char *http;
        const char *refused; // empty for one that may pass
        const char *path = "";
    } cases[] = {
        {R"("limits": {"json": 1, "connections": 5, "head": 81920})", ""},
        {R"("port": 65535, "maxconn": 2147483647, "timeout": 4294967, "limits": {"json": 1})", ""},
        {R"("limits": {"json": 0})", "http.limits.json"},
        {R"("limits": {"head": 81921})", "http.limits.head"}, // more than the parser takes
        {R"("limits": {"object": 4294967296})", "http.limits.object"},
        {R"("limits": {"rowkey": 65})", "http.limits.rowkey"}, // more than clients read
        {R"("limits": {"pack": 1.5})", "http.limits.pack"},
        {R"("port": 4294970297)", "http.port"}, // 3001, cut to 32 bits
        {R"("maxconn": 2147483648)", "http.maxconn"},
        {R"("timeout": 4294968)", "http.timeout"}, // its milliseconds have no room
        {"", "path.repos", R"(, "repos": "file")"},
    };
    const TempDir dir;
    test::write(dir.path() / "file", "");
    for (const auto &each : cases) {
        const std::string text = R"({"path": {"root": ")" + dir.path().string() + '"' + each.path +
                                 R"(}, "http": {)" + each.http + "}}";
        const auto config = test::guard(zJsonReadTextual(test::wide(text).c_str()), zJsonFree);
        const auto server = test::guard(zHttpServerNew(config.get(), u"http"), zHttpServerFree);
        EXPECT_EQ(server != nullptr, !*each.refused) << each.http;
        EXPECT_TRUE(server ? server->limits.json == 1
                           : narrow(zErrorDetail()).find(each.refused) != std::string::npos)
            << each.http << narrow(zErrorDetail());
    }
}

// A body is bounded by what it has when it is decoded, and the connection goes on behind it.
TEST(HttpServer, BoundsDecodedBodies) {
    TestServer server(answer, [](HttpServer &record) {
        record.begin = [](HttpServer *, const HttpHandle &, HttpRequest *) {
            auto exchange = std::make_unique<zev::Exchange>();
            exchange->most = 1000;
            return exchange;
        };
    });
    const struct {
        uint64_t size;
        bool zipped;
        int32_t code;
    } cases[] = {{1000, false, 200}, {1001, false, 413}, {1000, true, 200}, {1001, true, 413}};
    const std::string url = "http://127.0.0.1:" + std::to_string(server.port()) + "/test";
    const auto request = test::guard(zHttpRequestNew(test::wide(url).c_str()), zHttpRequestFree);
    for (const auto &each : cases) {
        const std::string bytes(each.size, 'x');
        int32_t code = 0;
        if (each.zipped) { // as this library's clients send it
            Stream *body = zMemStream(0, 0);
            zStreamWrite(body, bytes.data(), bytes.size());
            zHttpRequestSetOctet(request.get(), body);
            code = zHttpResponseCode(zHttpRequestPut(request.get()));
        } else {
            const std::string head = "PUT /test HTTP/1.1\r\nHost: h\r\nConnection: close\r\n"
                                     "Content-Length: " +
                                     std::to_string(each.size) + "\r\n\r\n";
            code = std::stoi("0" + ask(server, head + bytes).substr(9, 3));
        }
        EXPECT_EQ(code, each.code) << each.size << each.zipped;
    }
    EXPECT_TRUE(ask(server, get("/test?open=1")).ends_with("12342")); // the first's, and its own
}

TEST(HttpServer, TurnsAwayWhoIsOneTooMany) {
    TestServer server(answer, [](HttpServer &record) { record.limits.connections = 1; });
    const RawSocket first(server.port());
    ASSERT_TRUE(first.send("GET /test HTTP/1.1\r\nHost: h\r\n\r\n"));
    EXPECT_NE(first.receive("12345").find(" 200 "), std::string::npos);
    EXPECT_EQ(ask(server, get("/test")), "");
}

// Who was refused and is only heard out takes no other's place, however many they are.
TEST(HttpServer, ServesBesideThoseThatItRefused) {
    TestServer server(answer, [](HttpServer &record) { record.limits.connections = 2; });
    std::vector<std::unique_ptr<RawSocket>> refused;
    for (int n = 0; n < 40; ++n) {
        const auto &client = refused.emplace_back(std::make_unique<RawSocket>(server.port()));
        client->send("PUT /test HTTP/1.1\r\nHost: h\r\nContent-Length: 99999999999\r\n\r\nsome");
        EXPECT_TRUE(client->receive("}}").starts_with("HTTP/1.1 413 ")) << n;
    }
    EXPECT_TRUE(ask(server, get("/test?open=1")).ends_with("12341"));
    bool closed = false; // to make room
    refused.front()->receive({}, &closed);
    EXPECT_TRUE(closed);
    EXPECT_TRUE(refused.back()->send(std::string(100'000, 'x')));
    EXPECT_TRUE(ask(server, get("/test?open=1")).ends_with("12341"));
}

// Where a request's head can't be looked at, for want of memory above all, its peer is told.
TEST(HttpServer, TellsOfItsOwnFaults) {
    TestServer server(answer, [](HttpServer &record) {
        record.begin = [](HttpServer *, const HttpHandle &,
                          HttpRequest *request) -> std::unique_ptr<zev::Exchange> {
            if (zHttpRequestQuery(request, u"bad")) throw std::bad_alloc();
            return nullptr;
        };
    });
    for (const char *more : {"", "Content-Length: 5\r\n", "Transfer-Encoding: chunked\r\n"}) {
        const std::string told = ask(server, get("/test?bad=1", more) + "GET /test HTTP/1.1\r\n");
        EXPECT_TRUE(told.starts_with("HTTP/1.1 500 ")) << told;
        EXPECT_NE(told.find("\r\nConnection: close\r\n"), told.npos) << told;
    }
    EXPECT_TRUE(ask(server, get("/test?open=1")).ends_with("12341"));
}

// One line an answer, whatever a peer puts into it, and a file that was moved away is made anew.
TEST(AccessLog, TellsEachAnswerOnALine) {
    const TempDir dir;
    const auto path = dir.path() / "requests.log", audit = dir.path() / "audit.log";
    TestServer server(answer, [&](HttpServer &record) {
        record.logs.access.set_path(path.u16string());
        record.logs.audit.set_path(audit.u16string());
    });
    const struct {
        std::string request;
        const char *line; // behind the address, with the time and the milliseconds cut out
    } cases[] = {
        {get("/test?code=404", "X-ZEV-USER: ann b\r\nX-ZEV-CODE: secret\r\n"),
         R"(- ann\x20b "GET /test?code=404 HTTP/1.1" 404 5)"},
        {get("/test?a=\"\\"), R"(- - "GET /test?a=\x22\x5c HTTP/1.1" 200 5)"},
        {get("http://ann:secret@h/test"), R"(- - "GET http://h/test HTTP/1.1" 200 5)"},
        {get("/test?code=401", "X-ZEV-USER: \"eve\"\r\n"),
         R"(- \x22eve\x22 "GET /test?code=401 HTTP/1.1" 401 5)"},
        {get("/" + std::string(3000, 'a')), nullptr},
    };
    const std::regex form(R"(127\.0\.0\.1 (- \S+) \[\d\d/\w{3}/\d{4}:[\d:]{8} \+0000\] )"
                          R"((".*" \d{3} \d+) \d+\.\d{3}\n)");
    for (const auto &each : cases) {
        ask(server, each.request);
        const std::string line = test::read(path);
        std::smatch found;
        ASSERT_TRUE(std::regex_match(line, found, form)) << line;
        if (each.line) {
            EXPECT_EQ(found.str(1) + " " + found.str(2), each.line);
        }
        std::filesystem::rename(path, dir.path() / "old");
    }
    const std::string refusal = test::read(audit);
    EXPECT_TRUE(std::regex_match(
        refusal, std::regex(R"(\{"time":"[^"]+","host":"127.0.0.1","login":"\\"eve\\"",)"
                            R"("target":"","act":"refused","name":"","owner":"","project":"",)"
                            R"("request":"GET /test\?code=401 HTTP/1.1","status":401\}\n)")))
        << refusal;
}

// While its directory is away, as one who keeps old logs moves it, and where it is gone.
TEST(AccessLog, LosesNoLineOfAnAudit) {
    const TempDir dir;
    const auto logs = dir.path() / "logs", away = dir.path() / "away";
    std::filesystem::create_directory(logs);
    zev::LineFile file(true);
    file.set_path((logs / "audit.log").u16string());
    file.write("1\n");
    std::filesystem::rename(logs, away);
    file.write("2\n");
    EXPECT_EQ(test::read(away / "audit.log"), "1\n2\n");
    std::filesystem::create_directory(logs);
    file.write("3\n");
    EXPECT_EQ(test::read(logs / "audit.log"), "3\n");
    std::filesystem::remove_all(logs);
    testing::internal::CaptureStderr();
    file.write("4\n");
    EXPECT_NE(testing::internal::GetCapturedStderr().find("4\n"), std::string::npos);
    std::filesystem::create_directory(logs);
    file.write("5\n");
    EXPECT_EQ(test::read(logs / "audit.log"), "5\n");
}

// What one server is told to take, whatever others take.
TEST(ServerSettings, BoundObjectsPacksAndTrees) {
    test::Service service;
    test::make_project(service, "ann/plant");
    zev::HttpLimits &limits = service.server().limits;
    limits.object = 4, limits.pack = 1, limits.nodes = 3, limits.row_value = 4;
    const std::string project = "/repos/ann/plant", none(40, '0'), head("\0\0\0\4blob\0\0\0", 11);
    const auto put = [&](const std::string &bytes) {
        return service.ask(Z_HTTP_PUT, project + "/objects/" + none, head + bytes, u"x/y").code;
    };
    EXPECT_TRUE(put("\4abcd") != 413 && put("\5abcde") == 413);
    const auto send = [&](char objects) {
        const std::string pack = std::string("\0\0\0\14PACK\0\0\0\2\0\0\0", 15) + objects;
        return service.ask(Z_HTTP_POST, project + "/packs", pack, u"x/y").code;
    };
    EXPECT_TRUE(send(1) != 413 && send(2) == 413);
    const auto store = [&](const std::string &value) {
        const std::string row = std::string("\0\0\0\20", 4) + std::string(16, 'k') + value;
        return service
            .ask(Z_HTTP_PUT, project + "/tables/" + std::string(40, '1'),
                 row + std::string(4, '\0'), u"x/y")
            .code;
    };
    EXPECT_EQ(store(std::string("\0\0\0\4abcd", 8)), 400); // a tag that no client takes
    EXPECT_EQ(store(std::string("\0\0\0\5abcde", 9)), 413);
    EXPECT_NE(service.post(project + "/objects/diff", R"({"query":{}})").code, 413);
    EXPECT_EQ(service.post(project + "/objects/diff", R"({"query":{"a":1,"b":2}})").code, 413);
}

TEST(Health, TellsWhetherTheServiceCanStore) {
    TestServer server(answer);
    Json *config = zHttpServerConfig(&server.server());
    const std::filesystem::path repos = narrow(zJsonPathGetString(config, u"path.repos"));
    std::filesystem::create_directories(repos / "ann" / "plant");
    std::filesystem::create_directories(repos / "~aside" / "plant"); // no name of an owner
    EXPECT_NE(ask(server, get("/health")).find(R"("projects":1,)"), std::string::npos);
    chmod(repos.c_str(), 0500);
    const std::string ill = ask(server, get("/health"));
    chmod(repos.c_str(), 0700);
    EXPECT_TRUE(ill.starts_with("HTTP/1.1 503 ")) << ill;
}

} // namespace
