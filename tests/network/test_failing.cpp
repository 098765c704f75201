// A store that fails is the server's fault, and told as such: nobody hears that something isn't
// there which may well be, nor that his request was wrong.
#include "../objects/drawing_fixture.hpp"
#include "service_fixture.hpp"

#include "system/clock.hpp"
#include "system/os.hpp"

#include <atomic>

#include <sys/resource.h>

using test::Service;

namespace {

const std::string kNone(40, 'e');

struct Failing : testing::Test {
    // While no service runs yet: others read which clock there is at any time.
    static void SetUpTestSuite() {
        zev::os::calls.now = [] { return now() + ahead; };
    }
    static void TearDownTestSuite() { zev::os::calls.now = now; }
    void SetUp() override {
        test::make_project(service, "ann/plant");
        test::make_project(service, "ann/other"); // never opened by the service
        tree = test::store_tree(service, "ann/plant", {{"a/b", "b"}}), blob = test::id_of("b");
        commit = commit_tree(service, "ann/plant", tree);
        service.git("ann/plant", "update-ref refs/heads/master " + commit);
        // A project that changed a moment ago isn't kept open, and would fail at the gate.
        ahead = 60 * zev::kSecond;
        for (int n = 0; n < 2; ++n) // the first one draws the project's id
            EXPECT_EQ(service.get(project).code, 200);
    }
    void TearDown() override { ahead = 0; }
    std::string new_commit(const std::string &ref, const std::string &parent) const {
        return R"({"query":{"author":"a","message":"m","tree":")" + tree + R"(","update":")" + ref +
               "\"" + (parent.empty() ? "" : R"(,"parent":")" + parent + "\"") + "}}";
    }

    static inline const auto now = zev::os::calls.now;
    static inline std::atomic<int64_t> ahead = 0; // nanoseconds
    Service service;
    const std::string project = "/repos/ann/plant", one = project + "/tables/" + kNone;
    std::string commit, tree, blob;
};

// While the process has no descriptor left: what is open, as the client's connection, goes on.
class NoFiles {
  public:
    explicit NoFiles(Service &service) : service_(service) {
        getrlimit(RLIMIT_NOFILE, &before_);
        service_.have_done([&] { set(3); });
    }
    ~NoFiles() {
        service_.have_done([&] { set(before_.rlim_cur); });
    }

  private:
    void set(rlim_t files) const {
        const rlimit bounds{files, before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &bounds);
    }
    Service &service_;
    rlimit before_{};
};

TEST_F(Failing, IsNoAbsence) {
    const struct {
        uint32_t method;
        std::string target, body;
        int32_t code; // while nothing fails
    } cases[] = {
        {Z_HTTP_GET, "/repos/ann/other", "", 200},
        {Z_HTTP_GET, "/repos/ann", "", 200},
        {Z_HTTP_GET, project + "/commits", "", 200},
        {Z_HTTP_GET, project + "/commits?head=" + kNone, "", 404},
        {Z_HTTP_GET, project + "/commits/" + commit, "", 200},
        {Z_HTTP_GET, project + "/trees/" + tree, "", 200},
        {Z_HTTP_GET, project + "/trees/" + kNone, "", 404},
        {Z_HTTP_GET, project + "/refs/none", "", 404},
        {Z_HTTP_GET, project + "/revisions?head=none", "", 404},
        {Z_HTTP_GET, project + "/revisions/" + kNone, "", 404},
        {Z_HTTP_GET, project + "/objects/" + blob, "", 200},
        {Z_HTTP_POST, project + "/packs/diff", R"({"query":{"entries":[{"id":")" + kNone + "\"}]}}",
         400},
        {Z_HTTP_POST, project + "/trees", R"({"query":{"base":")" + kNone + R"(","entries":[]}})",
         400},
        {Z_HTTP_POST, project + "/commits", new_commit("refs/heads/master", kNone), 409},
        {Z_HTTP_POST, project + "/commits", new_commit("refs/heads/new", kNone), 400},
        {Z_HTTP_PATCH, one, test::be32(1) + std::string(16, 'k'), 200},
        {Z_HTTP_PUT, one, test::be32(0), 201},
    };
    const auto ask = [&](const auto &each) {
        return service.ask(each.method, each.target, each.body, each.body.empty() ? nullptr : u"x")
            .code;
    };
    {
        const NoFiles none(service);
        for (const auto &each : cases) EXPECT_EQ(ask(each), 500) << each.target << each.body;
    }
    for (const auto &each : cases) EXPECT_EQ(ask(each), each.code) << each.target << each.body;
    EXPECT_EQ(service.get(project + "/refs/" + std::string(300, 'n')).code, 404);
}

// A body that is too large for memory has no file to go to.
TEST_F(Failing, IsToldWhereABodyCantBeKept) {
    const std::string head =
        "PUT " + one + " HTTP/1.1\r\nHost: h\r\nContent-Length: 400000\r\n\r\n";
    const test::RawSocket client(service.port());
    EXPECT_TRUE(client.send("GET / HTTP/1.1\r\nHost: h\r\n\r\n"));
    EXPECT_TRUE(client.receive("}}").starts_with("HTTP/1.1 404 "));
    const NoFiles none(service);
    EXPECT_TRUE(client.send(head + std::string(400'000, 'x')));
    const std::string told = client.receive("}}");
    EXPECT_TRUE(told.starts_with("HTTP/1.1 500 ")) << told;
}

} // namespace
