// Sessions: the remote of a working copy, its one request, and which repository the server's is.
#include "remote_fixture.hpp"

#include "zev/authdb.h"
#include "zev/login.h"

using namespace test;

namespace {

using Sessions = Session;

TEST_F(Sessions, BindACopyToOneRepository) {
    const std::string id =
        narrow(zStrfromutf8(service.get("/repos/ann/plant").text("data.id").c_str()));
    ASSERT_OK(zRemoteVerifyRepo(remote.get(), &told));
    EXPECT_EQ(text_of(zRepositoryId(copy.get(), false)), id);
    EXPECT_OK(zRemoteVerifyRepo(remote.get(), &told));

    const std::string other(40, 'b'), zero(40, '0');
    const struct {
        std::string body, error;
    } cases[] = {
        {R"({"data":{"id":")" + other + R"("}})",
         "The project on the server is not the one of this working copy"},
        {R"({"data":{"id":")" + zero + R"("}})", "sent wrong data"},
        {R"({"data":{"id":")" + other.substr(1) + R"("}})", "sent wrong data"},
        {R"({"data":{"id":7}})", "sent wrong data"},
    };
    for (const auto &[body, error] : cases) {
        relay.give(answer(200, body));
        told.errors.clear();
        EXPECT_FALSE(zRemoteVerifyRepo(remote.get(), &told)) << body;
        EXPECT_NE(told.only().find(error), std::string::npos) << body << ": " << told.each();
        EXPECT_EQ(zErrorClass(), 15) << body;
        EXPECT_EQ(text_of(zRepositoryId(copy.get(), false)), id) << body;
    }
}

// A break is told to nobody, and another timeout holds from the next request on, on a session that
// has a connection.
TEST_F(Sessions, EndAtABreakAndInTime) {
    told.asks_left = 1;
    EXPECT_FALSE(zRemoteVerifyRepo(remote.get(), &told));
    EXPECT_EQ(zErrorClass(), 6);
    EXPECT_TRUE(zRemoteUsrbrk(remote.get()));
    EXPECT_EQ(told.each(), "");
    zRemoteSetTimeout(remote.get(), 40000), zRemoteDisconnect(remote.get());
    ASSERT_OK(zRemoteVerifyRepo(remote.get(), &told));
    EXPECT_FALSE(zRemoteUsrbrk(remote.get()));
    zRemoteSetTimeout(remote.get(), 100);
    relay.give(Relay::kSilence);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(zRemoteVerifyRepo(remote.get(), &told));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

// What the server says of paths stays in the copy, and cuts trees down to what their reader may
// read.
TEST_F(Sessions, BringTheRulesOfPaths) {
    using AuthdbPtr = zev::Owned<Authdb, zAuthdbFree>;
    const auto left = [&](Authdb *authdb, PathSpec *spec) {
        const auto builder = guard(zTreeBuilderNew(copy.get(), nullptr), zTreeBuilderFree);
        const Oid id = oid(std::string(40, 'a'));
        for (const char16_t *path : {u"docs/a", u"secret/b", u"secret/.gitkeep", u"c"})
            EXPECT_OK(zTreeBuilderInsert(builder.get(), path, &id));
        EXPECT_OK(zTreeBuilderFilter(builder.get(), authdb, spec));
        return zTreeBuilderEntryCount(builder.get());
    };
    EXPECT_EQ(left(AuthdbPtr(zAuthdbOpen(copy.get())).get(), nullptr), 4u) << "there are no rules";
    relay.give(answer(200, R"({"data":{"status":100,"result":{
        "header":{"user":"ann","sid1":"a","sid2":"b"},"settings":{"changed":true,"default":0,
        "entries":[{"setting":{"path":"docs","privilege":16}}]}}}})"));
    ASSERT_OK(zRemoteUpdateAuth(remote.get(), &told));
    EXPECT_EQ(relay.lines(), "POST /rms\n");
    const AuthdbPtr authdb(zAuthdbOpen(copy.get()));
    EXPECT_EQ(left(authdb.get(), nullptr), 2u) << "docs/a, and the keep-file";
    const zev::Owned<PathSpec, zPathSpecFree> spec(zPathSpecNew(u"secret", Z_SPEC_MUST_MATCH));
    EXPECT_EQ(left(authdb.get(), spec.get()), 3u);
    const zev::Owned<PathSpec, zPathSpecFree> none(zPathSpecNew(u"none", Z_SPEC_MUST_MATCH));
    EXPECT_EQ(left(authdb.get(), none.get()), 4u);
}

} // namespace
