// What a user may not do, by every road that leads there from a working copy.
#include "team_drawings.hpp"

#include "zev/remote.h"

using namespace test;

namespace {

constexpr int kRead = 0x10, kAll = 0x70;

using RemotePtr = Held<Remote, zRemoteFree>;

struct ReaderTest : Team {
    void SetUp() override {
        Team::SetUp();
        other("open/plan", "open plan"), other("secret/plan", "the secret plan");
        ann = get("ann");
        ann.put("secret/drawn.dwx", draw(ann, table, {{1, "a secret row"}, {2, "another"}}));
        ann.put("open/drawn.dwx", draw(ann, open_table, {{1, "an open row"}}));
        ASSERT_OK(ann.commit());
        old = server("rev-parse HEAD").substr(0, 40);
        other("secret/plan", "the next secret plan"), other("open/plan", "next");
    }
    // Every file of the project but the index of its paths, which readers make.
    std::string project() const {
        return run("cd '" + service.at("ann/plant") +
                   "' && find . -type f ! -path './paths/*' ! -name 'LOG*' -exec sha1sum {} + | "
                   "sort -k2");
    }
    std::vector<std::string> secret_ids() {
        std::vector<std::string> ids;
        for (const std::string &at : {old, std::string("HEAD")})
            for (const char *path : {":secret/plan", ":secret/drawn.dwx"})
                ids.push_back(server("rev-parse " + at + path).substr(0, 40));
        return ids;
    }
    // Whatever is secret in the store or the tables of a copy.
    std::string secrets_in(const Copy &copy) {
        std::string found;
        const std::string all = copy.git("cat-file --batch-all-objects --batch-check");
        for (const std::string &id : secret_ids())
            if (all.find(id) != all.npos) found += id + "\n";
        const std::string text = hex(&table);
        if (fs::exists(copy.place / ".git/tables" / text.substr(0, 2) / text.substr(2)))
            found += "table\n";
        return found + run("grep -rla 'secret plan\\|secret row' '" + copy.place.string() + "'");
    }
    void limit(const std::string &user, std::map<std::string, int> bits) {
        rights.bits[user] = std::move(bits);
    }

    Copy ann;
    Oid table{}, open_table{};
    std::string old;
};

TEST_F(ReaderTest, WritesByNoRoad) {
    limit("bob", {{"/", kRead}});
    const Copy bob = get("bob");
    EXPECT_EQ(bob.at("open/plan") + bob.at("secret/plan"), "nextthe next secret plan");
    const std::string before = project();
    // By force: modes are no wall.
    fs::permissions(bob.place / "open/plan", fs::perms(0644));
    bob.put("open/plan", "forbidden"), bob.put("new/file", "forbidden, too");
    fs::remove(bob.place / "secret/plan");
    bob.put("open/drawn.dwx.new", draw(bob, open_table = {}, {{1, "a row of his"}}));
    fs::permissions(bob.place / "open/drawn.dwx", fs::perms(0644));
    fs::rename(bob.place / "open/drawn.dwx.new", bob.place / "open/drawn.dwx");
    const std::string work = bob.status();
    for (const std::vector<const char16_t *> &paths :
         {std::vector<const char16_t *>{}, {u"open/plan"}, {u"new"}, {u"secret"}, {u"open"}}) {
        EXPECT_FALSE(bob.commit(paths));
        EXPECT_TRUE(bob.host.ends().ends_with("a")) << bob.host.ends();
        EXPECT_NE(zErrorClass(), 0);
        EXPECT_EQ(bob.status() + bob.locks(), work);
    }
    const std::u16string place = bob.place.u16string();
    const zwchar *paths[] = {u"new/file"};
    ASSERT_OK(zCommandConnect(place.c_str()));
    ASSERT_OK(zCommandAdd(place.c_str(), u"new/file")); // to his own copy
    EXPECT_FALSE(zCommandCommit(place.c_str(), u"bob", u"mine", 1, paths, &bob.host));
    zCommandDisconnect(place.c_str());
    {
        const RepositoryPtr repository = bob.open();
        const RemotePtr remote(zRemoteOpen(repository.get()));
        const OdbPtr odb(zOdbOpen(repository.get()));
        const StreamPtr stream(zMemStream(0, 0));
        zStreamWrite(stream.get(), "his", 3), zStreamRewind(stream.get());
        Oid id;
        ASSERT_OK(zOdbWrite(&id, odb.get(), Z_OBJECT_BLOB, 3, stream.get()));
        EXPECT_FALSE(zRemoteUploadObject(remote.get(), &id, nullptr));
        EXPECT_EQ(zErrorCode(), 403);
        const auto ids = guard(zJsonReadTextual(wide("[\"" + hex(&id) + "\"]").c_str()), zJsonFree);
        EXPECT_FALSE(zRemoteUploadPack(remote.get(), ids.get(), nullptr));
        EXPECT_EQ(zErrorCode(), 403);
    }
    EXPECT_EQ(project(), before);
}

// Who may write somewhere writes there, and takes nothing along that he can't see.
TEST_F(ReaderTest, WritesWhereHeMay) {
    limit("bob", {{"/", kRead}, {"secret", 0}, {"own", kAll}});
    const Copy bob = get("bob");
    bob.put("own/file", "his"), fs::permissions(bob.place / "open/plan", fs::perms(0644));
    bob.put("open/plan", "forbidden");
    EXPECT_FALSE(bob.commit());
    ASSERT_OK(bob.commit({u"own"}));
    EXPECT_EQ(server("ls-tree -r --name-only HEAD"),
              "open/drawn.dwx\nopen/plan\nown/file\nsecret/drawn.dwx\nsecret/plan\n");
    EXPECT_EQ(server_at("secret/plan") + server_at("open/plan"), "the next secret plannext");
    // Not by a name that he can't see, and not over it.
    bob.put("secret/plan", "guessed");
    EXPECT_FALSE(bob.commit({u"secret"}));
    EXPECT_TRUE(bob.host.told_of(u"action.sUnauthorized", "secret/plan"));
    EXPECT_EQ(bob.host.errors(), text(u"odb.eFailedToMergeLocalChanages") + "|");
    EXPECT_EQ(narrow(zErrorReason()), text(u"action.sUnauthorized"));
    EXPECT_EQ(server_at("secret/plan") + bob.at("secret/plan"), "the next secret planguessed");
    fs::remove_all(bob.place / "secret");
    // An older state of what he sees goes up; the rest of the tree is what it was.
    limit("bob", {{"/", kAll}, {"secret", 0}});
    bob.host.answers = {1};
    ASSERT_OK(bob.reset(old));
    EXPECT_EQ(bob.at("open/plan") + bob.at("secret/plan"), "open plan(none)");
    ASSERT_OK(bob.commit({u"open"}));
    EXPECT_EQ(server_at("secret/plan") + server_at("open/plan"), "the next secret planopen plan");
    EXPECT_EQ(secrets_in(bob), "");
    // What is hidden isn't stored by a name of his own, which he is told.
    bob.put("own/same", "the next secret plan");
    EXPECT_FALSE(bob.commit({u"own"}));
    EXPECT_NE(bob.host.errors().find("'own/same'"), std::string::npos) << bob.host.errors();
    EXPECT_EQ(bob.host.errors().find("secret"), std::string::npos);
}

TEST_F(ReaderTest, HasNothingThatHeMayNotRead) {
    limit("bob", {{"/", kAll}, {"secret", 0}});
    const Copy bob = get("bob");
    EXPECT_EQ(secrets_in(bob), "");
    other("secret/more", "a secret plan more"), other("open/more", "more");
    EXPECT_EQ(bob.updates(true).find("secret"), std::string::npos);
    ASSERT_OK(bob.update());
    ASSERT_OK(bob.reset(old));
    ASSERT_OK(bob.update());
    bob.host.answers = {1};
    ASSERT_OK(bob.reset());
    bob.put("open/own", "his");
    ASSERT_OK(bob.commit());
    EXPECT_EQ(secrets_in(bob), "");

    // One who knows the names of all, and asks for it himself.
    const std::vector<std::string> ids = secret_ids();
    const std::string head = server("rev-parse HEAD").substr(0, 40);
    {
        const RepositoryPtr repository = bob.open();
        const RemotePtr remote(zRemoteOpen(repository.get()));
        const Oid top = parsed(head);
        const auto ask_pack = [&](const std::string &id, const char *more) {
            const auto query = guard(
                zJsonReadTextual(
                    wide(R"({"query":{"entries":[{"id":")" + id + "\"" + more + "}]}}").c_str()),
                zJsonFree);
            return zRemoteDownloadPack(remote.get(), query.get(), nullptr);
        };
        EXPECT_OK(zRemoteDownloadRevlist(remote.get(), &top, 100, nullptr));
        EXPECT_OK(zRemoteDownloadCommits(remote.get(), &top, 0, nullptr));
        EXPECT_OK(
            zRemoteDownloadTree(remote.get(), &top, true, Z_OBJECT_ANY, nullptr, nullptr, nullptr));
        EXPECT_OK(zRemoteDownloadMatches(remote.get(), &top, Z_OBJECT_ANY, nullptr));
        for (const std::string &id : ids) {
            const Oid wanted = parsed(id);
            EXPECT_FALSE(zRemoteDownloadObject(remote.get(), &wanted, nullptr)) << id;
            EXPECT_FALSE(zRemoteDownloadNested(remote.get(), &wanted, Z_OBJECT_ANY, nullptr));
            EXPECT_FALSE(ask_pack(id, "")) << id;
        }
        EXPECT_FALSE(ask_pack(head, ",\"recursive\":true"));
        zCommandCheckout(bob.place.u16string().c_str(), &top, u"secret/plan", u"found", &bob.host);
        zCommandFetch(bob.place.u16string().c_str(), u"secret/plan", &bob.host);
        zCommandDisconnect(bob.place.u16string().c_str());
    }
    EXPECT_EQ(secrets_in(bob) + bob.at("found") + bob.at("secret/plan"), "(none)(none)");
    // Nor the rows of a drawing whose table he has heard of.
    {
        const RepositoryPtr repository = bob.open();
        const RemotePtr remote(zRemoteOpen(repository.get()));
        const auto rows = [&](const Oid &of) {
            const zev::TablePtr own(zTableByid(repository.get(), &of));
            const auto keys = zev::new_keys(8);
            for (uint64_t object : {1, 2}) {
                const DrawingKey key{1, object};
                zVectorPush(keys.get(), &key);
            }
            const bool done = zRemoteDownloadTable(remote.get(), own.get(), keys.get(), nullptr);
            void *value = nullptr;
            uint64_t length = 0;
            const DrawingKey key{1, 1};
            const bool there = zDrawingKeyGetData(own.get(), &key, &value, &length);
            free(value);
            return std::to_string(done) + std::to_string(there);
        };
        EXPECT_EQ(rows(open_table), "11");
        EXPECT_EQ(rows(table), "00");
    }
}

// What comes by a right that is given back is told before it comes.
TEST_F(ReaderTest, IsToldOfWhatARightBrings) {
    limit("bob", {{"/", kAll}, {"secret", 0}});
    const Copy bob = get("bob");
    EXPECT_EQ(bob.updates(true), "");
    limit("bob", {{"/", kAll}});
    EXPECT_EQ(bob.updates(false), ""); // nobody was asked
    EXPECT_EQ(bob.updates(true), "1 secret/drawn.dwx>secret/drawn.dwx;1 secret/plan>secret/plan;");
    ASSERT_OK(bob.update());
    EXPECT_EQ(bob.at("secret/plan") + bob.updates(true), "the next secret plan");
    // A server that doesn't tell the rights is no reason to hide what is new.
    other("open/plan", "later");
    relay.play([](const Asked &asked, size_t) -> std::optional<std::string> {
        if (asked.line.find("/rms") == std::string::npos) return std::nullopt;
        return answer_of(500);
    });
    EXPECT_EQ(bob.updates(true), "3 open/plan>open/plan;");
    EXPECT_EQ(bob.host.errors(), "");
}

// A link's mode has no rights: git pushed these, one of them where he may not look.
TEST_F(ReaderTest, GetsTheLinksThatHeMayRead) {
    const auto link = [&](const std::string &path, const std::string &target) {
        return run("cd " + service.at("ann/plant") + " && export GIT_INDEX_FILE=$PWD/../index" +
                   " && git read-tree HEAD && git update-index --add --cacheinfo 120000,$(printf " +
                   target + " | git hash-object -w --stdin)," + path +
                   " && git update-ref HEAD $(git -c user.name=Ann -c user.email=a commit-tree "
                   "$(git write-tree) -p HEAD -m link) && git rev-parse HEAD:" +
                   path)
            .substr(0, 40);
    };
    const std::string hidden = link("secret/link", "a-secret-place");
    link("open/link", "plan"), link("link", "open");
    limit("bob", {{"/", kAll}, {"secret", 0}});
    const Copy bob = get("bob");
    const auto target = [&](const char *path) {
        std::error_code none;
        return fs::read_symlink(bob.place / path, none).string();
    };
    EXPECT_EQ(target("open/link") + " " + target("link"), "plan open");
    link("open/link", "drawn.dwx"), link("secret/more", "another-secret-place");
    other("open/plan", "with it");
    ASSERT_OK(bob.update());
    EXPECT_EQ(target("open/link") + bob.at("open/plan"), "drawn.dwxwith it");
    EXPECT_FALSE(fs::exists(fs::symlink_status(bob.place / "secret")));
    EXPECT_EQ(bob.git("cat-file -e " + hidden + " || echo none"), "none");
    EXPECT_EQ(bob.status() + secrets_in(bob), "");
    relay.play();
    ASSERT_OK(bob.update());
    EXPECT_EQ(relay.lines().find("/trees/"), std::string::npos) << "nothing is missing";
}

// Rules that changed arrive with whatever he does next, be it a commit.
TEST_F(ReaderTest, GetsNewRulesWithTheNextRequest) {
    limit("bob", {{"/", kAll}, {"secret", 0}, {"open", kRead}});
    Copy bob = get("bob");
    fs::permissions(bob.place / "open/plan", fs::perms(0644));
    bob.put("open/plan", "his");
    EXPECT_FALSE(bob.commit());
    limit("bob", {{"/", kAll}});
    ASSERT_OK(bob.commit());
    EXPECT_EQ(server_at("open/plan") + bob.at("secret/plan"), "histhe next secret plan");
    limit("bob", {{"/", kAll}, {"open", 0}});
    bob.put("own", "all his");
    ASSERT_OK(bob.commit());
    EXPECT_EQ(bob.at("open/plan") + bob.at("own") + server_at("open/plan"), "(none)all hishis");
    EXPECT_EQ(bob.status(), "");
    // On the same copy another one sees and may what is his.
    limit("ann", {{"/", kRead}, {"secret", kAll}});
    bob.user = "ann";
    ASSERT_OK(bob.update());
    EXPECT_EQ(bob.at("open/plan"), "his");
    bob.put("secret/plan", "hers"), fs::permissions(bob.place / "own", fs::perms(0644));
    bob.put("own", "all hers");
    EXPECT_FALSE(bob.commit());
    ASSERT_OK(bob.commit({u"secret"}));
    EXPECT_EQ(server_at("secret/plan") + server_at("own"), "hersall his");
    bob.user = "bob";
    EXPECT_FALSE(bob.commit({u"secret"})); // nothing is left there
    ASSERT_OK(bob.commit());
    EXPECT_EQ(server_at("own") + server("log -1 --format=%an"), "all hersbob\n");
    EXPECT_EQ(bob.at("open/plan"), "(none)");
}

} // namespace
