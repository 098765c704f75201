// What a server does between the head of a request and its end: who may not ask is told before he
// has sent all, and large bodies are worked on as they come.
#include "../objects/drawing_fixture.hpp"
#include "rights.hpp"
#include "service_fixture.hpp"

#include "system/clock.hpp"
#include "system/os.hpp"

#include <algorithm>

using test::be32, test::id_of, test::RawSocket, test::Rights, test::Service;

namespace {

constexpr int kBoth = Z_PRIVILEGE_READ | Z_PRIVILEGE_WRITE;

std::string noise(size_t size) { return test::noise(size, 1); }

std::string file_stream(std::string_view bytes, size_t told) {
    return be32(4) + "blob" + be32(told) + std::string(bytes);
}
std::string file_stream(std::string_view bytes) { return file_stream(bytes, bytes.size()); }

std::string gzip(std::string_view bytes) {
    const auto plain = test::guard(zMemStream(0, 0), zStreamFree);
    zStreamWrite(plain.get(), bytes.data(), bytes.size());
    zStreamRewind(plain.get());
    const auto zipped = test::guard(zStreamCompress(plain.get(), u"gzip"), zStreamFree);
    std::string out(zStreamSize(zipped.get()), 0);
    zStreamRead(zipped.get(), out.data(), out.size());
    return out;
}

struct Uploads : testing::Test {
    Uploads() {
        rights.codes = {{"ann", "c"}, {"ben", "c"}};
        rights.bits["ann"]["/"] = kBoth;
        rights.bits["ben"]["/"] = Z_PRIVILEGE_READ;
        service.log_in("ann", "c");
    }
    void SetUp() override {
        test::make_project(service, "ann/plant");
        test::make_project(service, "ann/other");
    }

    std::string head(const std::string &line, uint64_t length, const std::string &user = "ann",
                     const std::string &code = "c", const std::string &more = "") const {
        return line + " HTTP/1.1\r\nHost: h\r\nX-ZEV-USER: " + user + "\r\nX-ZEV-CODE: " + code +
               "\r\n" + more + "Content-Length: " + std::to_string(length) + "\r\n\r\n";
    }
    std::string put(const std::string &id, uint64_t length) const {
        return head("PUT " + objects + id, length);
    }
    size_t files(const char *project = "ann/plant") const {
        const std::filesystem::recursive_directory_iterator all(service.repos() / project);
        return size_t(std::count_if(begin(all), end(all),
                                    [](auto &entry) { return entry.is_regular_file(); }));
    }
    // Others are served meanwhile; false when it doesn't come.
    template <class F> bool comes(F what) {
        for (int n = 0; n < 5000 && !what(); ++n)
            if (service.get("/repos/ann/other").code != 200) return false;
        return what();
    }
    // By git, of one file.
    std::string pack_of(std::string_view bytes) {
        const std::string at = service.root().string();
        test::write(service.root() / "bytes", bytes);
        test::write(service.root() / "ids",
                    service.git("ann/other", "hash-object -w ../../../bytes"));
        service.git("ann/other",
                    "pack-objects -q --stdout < " + at + "/ids > " + at + "/pack; true");
        return test::read(service.root() / "pack");
    }
    bool has(const std::string &id) const { return service.has("ann/plant", id); }

    Rights rights;
    Service service{u"required", rights.table()};
    const std::string objects = "/repos/ann/plant/objects/", packs = "/repos/ann/plant/packs";
};

// Before any of the body is there; and to a peer that sends it all before it reads.
TEST_F(Uploads, AreRefusedAtTheirHead) {
    constexpr uint64_t kMany = 8u << 20;
    const std::string object = "PUT " + objects + std::string(40, 'a');
    const struct {
        std::string head;
        const char *status;
    } cases[] = {
        {head(object, kMany, "ann", "x"), "401"},
        {head(object, kMany, "ben"), "403"},
        {head(object, kMany, "ben", "c", "Expect: 100-continue\r\n"), "403"},
        {head("POST /repos/ann/plant/commits", (64u << 20) + 1), "413"},
        {head("POST /repos/ann/none/packs", kMany), "404"},
        {head("POST /nowhere", kMany), "404"},
        {head("GET /" + std::string(3000, 'a'), kMany), "414"},
    };
    for (const auto &[head, status] : cases) {
        const std::string begins = "HTTP/1.1 " + std::string(status) + " ";
        const RawSocket early(service.port()), late(service.port());
        ASSERT_TRUE(early.send(head));
        const std::string answer = early.receive("}}");
        EXPECT_TRUE(answer.starts_with(begins)) << answer;
        EXPECT_NE(answer.find("\r\nConnection: close\r\n"), answer.npos) << answer;
        EXPECT_TRUE(late.send(head + std::string(kMany, 'x'))) << head;
        EXPECT_TRUE(late.receive("}}").starts_with(begins)) << head;
        shutdown(late.fd(), SHUT_WR);
        bool closed = false;
        late.receive({}, &closed);
        EXPECT_TRUE(closed) << head;
    }
}

// A password is looked at once a request: of ten failures these are five.
TEST_F(Uploads, CountAWrongPasswordOnce) {
    for (int n = 0; n < 5; ++n) {
        const RawSocket client(service.port());
        client.send(head("POST " + packs, 2, "ann", "x") + "ab");
        EXPECT_TRUE(client.receive("}}").starts_with("HTTP/1.1 401 "));
    }
    EXPECT_EQ(service.get("/repos/ann/plant").code, 200);
}

// This library's client stops sending when it is answered, and takes a new connection for what
// comes next.
TEST_F(Uploads, AreGivenUpByTheClient) {
    const std::string bytes = noise(30'000'000);
    service.log_in("ben", "c");
    EXPECT_EQ(service.put(objects + id_of(bytes), file_stream(bytes)).code, 403);
    EXPECT_EQ(service.get("/repos/ann/plant").code, 200);
}

// The time that the server spends on others is not the sender's.
TEST_F(Uploads, AreNotTooSlowWhileTheirBytesWait) {
    const std::string stream = file_stream(noise(200'000));
    const RawSocket client(service.port());
    const int room = 1 << 20;
    setsockopt(client.fd(), SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    ASSERT_TRUE(client.send(put(id_of(stream.substr(12)), stream.size()) + stream.substr(0, 1000)));
    for (int n = 0; n < 3; ++n) EXPECT_EQ(service.get("/repos/ann/plant").code, 200);
    static const auto steady = zev::os::calls.steady;
    service.have_done([&] { // a quarter of an hour; more than a block comes meanwhile
        zev::os::calls.steady = [] { return steady() + 900 * zev::kSecond; };
        EXPECT_TRUE(client.send(stream.substr(1000)));
    });
    const std::string answer = client.receive("}}");
    EXPECT_TRUE(answer.starts_with("HTTP/1.1 200 ")) << answer;
    service.have_done([] { zev::os::calls.steady = steady; });
}

// While half of a file is there it lies in the store without a name; when the rest never comes, it
// is gone, whatever the project is called by then.
TEST_F(Uploads, LeaveNothingWhenTheyAreCut) {
    const std::string bytes = noise(3'000'000), stream = file_stream(bytes), id = id_of(bytes);
    const std::string plain = pack_of(bytes), pack = be32(plain.size()) + plain;
    const size_t before = files();
    const auto project = service.repos() / "ann/plant", aside = service.repos() / "ann/aside";
    for (const bool renamed : {false, true})
        for (const std::string &sent :
             {put(id, stream.size()) + stream, head("POST " + packs, pack.size()) + pack}) {
            SCOPED_TRACE(sent.substr(0, 60) + (renamed ? "renamed" : ""));
            {
                const RawSocket client(service.port());
                ASSERT_TRUE(client.send(sent.substr(0, 1'000'000)));
                EXPECT_TRUE(comes([&] { return files() > before; }));
                EXPECT_FALSE(has(id));
                if (renamed) std::filesystem::rename(project, aside);
            }
            const char *place = renamed ? "ann/aside" : "ann/plant";
            EXPECT_TRUE(comes([&] { return files(place) == before; }))
                << service.git(place, "count-objects -v; find objects");
            if (renamed) std::filesystem::rename(aside, project);
        }
}

// What the procedure looks at when all is there is what it looked at before files came in pieces.
TEST_F(Uploads, AreLookedAtWhenTheyAreWhole) {
    const std::string bytes = noise(500'000), id = id_of(bytes), wrong(40, 'b');
    const size_t before = files();
    const auto code = [&](const std::string &target, const std::string &stream) {
        return service.put(target, stream).code;
    };
    EXPECT_EQ(code(objects + id, file_stream(bytes, bytes.size() + 1)), 500);
    EXPECT_EQ(code(objects + id, file_stream(bytes, bytes.size() - 1)), 500);
    EXPECT_EQ(code(objects + id, file_stream(bytes, 0xFFFFFFFF)), 500);
    EXPECT_EQ(code(objects + "x", file_stream(bytes)), 400);
    EXPECT_EQ(code("/repos/ann/none/objects/" + id, file_stream(bytes)), 404);
    EXPECT_EQ(files(), before);
    EXPECT_EQ(code(objects + wrong, file_stream(bytes)), 400);
    EXPECT_TRUE(has(id));
    EXPECT_FALSE(has(wrong));                               // the bytes decide on the name
    EXPECT_EQ(code(objects + id, file_stream(bytes)), 200); // a second time
    EXPECT_EQ(service.git("ann/plant", "cat-file -s " + id), "500000\n");
}

// Others may rename and remove a project while a file for it comes.
TEST_F(Uploads, EndWhereTheirProjectWent) {
    const std::string bytes = noise(1'000'000), stream = file_stream(bytes), id = id_of(bytes);
    const auto project = service.repos() / "ann/plant", aside = service.repos() / "ann/aside";
    const auto send = [&](auto meanwhile) {
        const RawSocket client(service.port());
        const size_t before = files();
        EXPECT_TRUE(client.send(put(id, stream.size()) + stream.substr(0, 600'000)));
        EXPECT_TRUE(comes([&] { return files() > before; }));
        meanwhile();
        EXPECT_TRUE(client.send(stream.substr(600'000)));
        return client.receive("}}").substr(0, 13);
    };
    EXPECT_EQ(send([&] { std::filesystem::rename(project, aside); }), "HTTP/1.1 404 ");
    std::filesystem::rename(aside, project);
    const auto replace = [&] {
        std::filesystem::rename(project, aside);
        test::make_project(service, "ann/plant");
        rights.bits.clear(); // whoever may write to the one need not to the other
    };
    EXPECT_EQ(send(replace), "HTTP/1.1 403 ");
    EXPECT_FALSE(has(id));
    std::filesystem::remove_all(project);
    std::filesystem::rename(aside, project);
    rights.bits["ann"]["/"] = kBoth;
    EXPECT_EQ(send([] {}), "HTTP/1.1 200 ");
    EXPECT_TRUE(has(id));
}

// What inflates to more than a block is taken in turns; what came behind it waits.
TEST_F(Uploads, AreDecodedInTurns) {
    const std::string json = R"({"query":{"entries":[)" + std::string(9'000'000, ' ') + R"("x"]}})";
    const std::string zipped = gzip(json), encoding = "Content-Encoding: gzip\r\n";
    const auto post = [&](const std::string &bytes) {
        return head("POST " + objects + "diff", bytes.size(), "ann", "c", encoding) + bytes;
    };
    const RawSocket client(service.port());
    ASSERT_TRUE(client.send(post(zipped) + head("GET /repos/ann/plant/refs", 0)));
    const std::string answers = client.receive("\"entries\":[]");
    EXPECT_TRUE(answers.starts_with("HTTP/1.1 400 ")) << answers;
    EXPECT_NE(answers.find("The content of the request"), answers.npos) << answers;
    EXPECT_NE(answers.find("HTTP/1.1 200 "), answers.npos) << answers;
    for (const std::string &bad : {zipped.substr(0, zipped.size() - 1), zipped + "x"}) {
        const RawSocket other(service.port());
        other.send(post(bad));
        const std::string answer = other.receive("}}");
        EXPECT_TRUE(answer.starts_with("HTTP/1.1 400 ")) << answer;
        EXPECT_EQ(answer.find("The content of the request"), answer.npos) << answer;
    }
}

} // namespace
