// Resets to a revision, and the making of a copy.
#include "team_fixture.hpp"

using namespace test;

namespace {

struct ResetTest : Team {
    void SetUp() override {
        Team::SetUp();
        other("plan", "first"), old = other("gone", "only then"), other("notes/a", "a");
        other_removes("gone"), other("plan", "second"), newest = other("notes/a", "a2");
        copy = get("ann");
    }
    std::string old, newest;
    Copy copy;
};

TEST_F(ResetTest, TheDifferenceIsAChangeOfHis) {
    const std::string theirs = server("rev-parse HEAD");
    ASSERT_OK(copy.reset(old, {u"plan", u"gone"}));
    EXPECT_EQ(copy.host.ends(), "d");
    EXPECT_TRUE(copy.host.dialogs.empty());
    EXPECT_EQ(copy.at("plan") + copy.at("gone") + copy.at("notes/a"), "firstonly thena2");
    EXPECT_EQ(copy.status(), "M  plan\n?? gone");
    EXPECT_EQ(copy.git("log -1 --format='%an %s'"), "remote Revert to: " + old.substr(0, 8));
    EXPECT_EQ(copy.git("diff HEAD origin/master --stat") + copy.locks(), "");
    EXPECT_EQ(server("rev-parse HEAD"), theirs);
    ASSERT_OK(copy.commit({u"plan", u"gone"}));
    EXPECT_EQ(server("show HEAD:plan") + server("show HEAD:gone"), "firstonly then");
    // All of it, and back to what the server has.
    ASSERT_OK(copy.reset(old));
    EXPECT_EQ(copy.at("notes/a") + copy.status(), "(none)D  notes/a");
    copy.host.answers = {1};
    ASSERT_OK(copy.reset());
    EXPECT_EQ(copy.at("notes/a") + copy.status(), "a2");
    EXPECT_EQ(copy.git("log -1 --format=%s"), "Revert to: HEAD");
}

// Which is in nobody's tree: it must not be staged, or the directory would go with the next commit.
TEST_F(ResetTest, AFileComesWhereADirectoryStandsNow) {
    const std::string file = other("place", "a file");
    other_removes("place"), other("place/x", "below");
    ASSERT_OK(copy.update());
    ASSERT_OK(copy.reset(file));
    EXPECT_EQ(copy.at("place"), "a file");
    EXPECT_EQ(copy.git("ls-files place"), "");
    EXPECT_EQ(copy.status(), "D  place/x\n?? place");
    copy.put("notes/a", "mine");
    ASSERT_OK(copy.commit({u"notes"}));
    EXPECT_EQ(server("ls-tree -r --name-only HEAD") + server_at("place/x"),
              "notes/a\nplace/x\nplan\nbelow");
}

TEST_F(ResetTest, ChangesAreAskedAbout) {
    copy.put("plan", "mine");
    copy.put(".git/info/exclude", "*.bak\n"), copy.put("plan.bak", "x");
    const std::string before = copy.state();
    relay.play();
    EXPECT_FALSE(copy.reset(old)); // nobody answers
    EXPECT_EQ(copy.host.ends() + copy.at("plan"), "cmine");
    EXPECT_EQ(relay.lines(), "GET \n"); // whose project it is, and nothing more
    EXPECT_EQ(copy.host.dialogs[0], "Changed files: 1\n\nplan (modified)\n\n"
                                    "Overwrite this change, or keep it?");
    EXPECT_EQ(copy.state(), before);
    for (const char *path : {"a1", "a2", "a3"}) copy.put(path, "new");
    copy.host.answers = {3};
    EXPECT_FALSE(copy.reset(old));
    EXPECT_EQ(copy.host.dialogs[1],
              "Changed files: 4\n\na1 (not under version control)\na2 (not under "
              "version control)\n"
              "a3 (not under version control)\n...\n\nOverwrite these changes, "
              "or keep them?");
    EXPECT_EQ(copy.host.ends(), "c");
    for (const char *path : {"a1", "a2", "a3"}) fs::remove(copy.place / path);

    copy.host.answers = {2}; // his work stays, beside what comes in
    ASSERT_OK(copy.reset(old));
    EXPECT_EQ(copy.at("plan"), "mine");
    EXPECT_EQ(copy.git("ls-files -u").find("plan") != std::string::npos, true);
    copy.host.answers = {1}; // it goes to the trash
    ASSERT_OK(copy.reset(old, {u"plan"}));
    EXPECT_EQ(copy.at("plan") + copy.git("ls-files -u"), "first");
    EXPECT_NE(run("grep -rl mine '" + copy.place.string() + "/.git/trash'"), "");
}

// At each question: either nothing has moved, or it is done.
TEST_F(ResetTest, ABreakPutsAllBack) {
    const std::string again = copy.state();
    for (int n = 0;; ++n) {
        copy.host.asks_left = n;
        copy.host.answers.assign(1, 1);
        const bool done = copy.reset(old);
        if (copy.host.asks_left >= 0) break;
        EXPECT_FALSE(done) << n;
        EXPECT_EQ(copy.host.ends(), "c") << n;
        EXPECT_EQ(copy.state(), again) << n;
        ASSERT_LT(n, 500);
    }
    EXPECT_EQ(copy.host.ends() + copy.at("plan") + copy.at("gone"), "dfirstonly then");
}

// ---- A new copy

struct CheckoutTest : Team {
    void SetUp() override {
        Team::SetUp();
        other("plan", "first");
        zLoginInfoSet(u"ann", nullptr, u"code");
    }
    bool checkout(const char16_t *branch = nullptr, const std::string &name = "copy") {
        copy.place = dir.path() / name;
        host().lines.clear();
        const CheckPtr spec = copy.spec();
        zCheckSpecSetBranch(spec.get(), branch);
        return zShellCheckout(wide(relay.url()).c_str(), copy.place.u16string().c_str(),
                              spec.get());
    }
    Host &host() { return copy.host; }
    Copy copy{{}, "ann"};
};

TEST_F(CheckoutTest, MakesABoundCopy) {
    server("branch side"), other("plan", "second");
    for (const char16_t *branch : {u"", u"head", u"refs/heads/master"}) {
        ASSERT_OK(checkout(branch));
        EXPECT_EQ(host().ends() + copy.at("plan") + copy.status(), "dsecond");
        EXPECT_EQ(copy.git("symbolic-ref HEAD") + copy.git("config branch.master.merge"),
                  "refs/heads/masterrefs/heads/master");
        fs::remove_all(copy.place);
    }
    ASSERT_OK(checkout(u"refs/heads/side"));
    EXPECT_EQ(copy.at("plan") + copy.git("symbolic-ref HEAD"), "firstrefs/heads/side");
    // No history came along.
    EXPECT_EQ(copy.git("rev-list --count HEAD"), "1");
}

TEST_F(CheckoutTest, ATakenPlaceIsTheUsersToDecideOn) {
    const fs::path place = dir.path() / "copy";
    for (const bool file : {true, false}) {
        write(file ? place : place / "his", "his");
        EXPECT_FALSE(checkout());
        EXPECT_EQ(host().ends(), "c");
        host().answers = {1, 1, 3}; // it is still there
        EXPECT_FALSE(checkout());
        EXPECT_EQ(host().ends() + std::to_string(host().answers.size()), "c0");
        EXPECT_EQ(read(file ? place : place / "his"), "his");
        EXPECT_FALSE(fs::exists(place / ".git"));
        host().answers = {1, 1};
        host().dialogs.clear();
        const auto shown = host().dialog;
        host().dialog = [](auto *, auto *) -> int32_t { return 2; };
        setenv("XDG_DATA_HOME", dir.path().c_str(), 1);
        ASSERT_OK(checkout());
        host().dialog = shown;
        unsetenv("XDG_DATA_HOME");
        EXPECT_EQ(copy.at("plan") + copy.at("his"), "first(none)");
        fs::remove_all(place);
    }
}

// ---- The front of a drawing application

TEST_F(CheckoutTest, TheFrontTakesTheRoadToTheServer) {
    const std::string old = server("rev-parse HEAD");
    const std::string second = other("plan", "second");
    other("notes/a", "a");
    const std::u16string place = (dir.path() / "front").u16string();
    const zwchar *where = place.c_str();
    ASSERT_OK(zCommandBuild(where, wide(relay.url()).c_str(), &host()));
    copy.place = dir.path() / "front";
    EXPECT_EQ(copy.at("plan"), "second");
    EXPECT_EQ(zCommandPrivilege(where, u"plan"), 112);

    // No history comes along.
    const Oid revision = parsed(second), first = parsed(old);
    EXPECT_EQ(zCommandCheckout(where, &revision, u"plan", u"older", &host()), 1);

    other("plan", "third");
    const Oid middle = parsed(other("notes/a", "aa"));
    other("notes/a", "b");
    std::string told;
    const zwchar *paths[] = {u"plan", nullptr, u"notes"}; // a directory needs no slash
    uint8_t stop = 0;
    const auto note = [](int32_t status, const zwchar *, const zwchar *path, void *all) {
        *static_cast<std::string *>(all) += std::to_string(status) + " " + narrow(path) + ";";
        return true;
    };
    zCommandRefresh(where, 3, paths, &stop, note, &told);
    EXPECT_EQ(told + copy.at("plan"), "3 notes/a;3 plan;second");
    stop = 1;
    zCommandRefresh(where, 3, paths, &stop, note, &told);
    EXPECT_EQ(told, "3 notes/a;3 plan;");
    ASSERT_OK(zCommandFetch(where, u"plan", &host()));
    EXPECT_EQ(copy.at("plan") + copy.at("notes/a"), "thirda");
    ASSERT_OK(zCommandFetch(where, u"notes", &host()));
    EXPECT_EQ(copy.at("notes/a"), "b");
    ASSERT_EQ(zCommandCheckout(where, nullptr, nullptr, nullptr, &host()), 0);

    // A file of an older state: its tree and its blob come from the server.
    const RepositoryPtr repository = copy.open();
    const Held<Remote, zRemoteFree> remote(zRemoteOpen(repository.get()));
    const Oid newest = parsed(server("rev-parse HEAD"));
    ASSERT_OK(zRemoteDownloadCommits(remote.get(), &newest, 0, nullptr));
    ASSERT_EQ(zCommandCheckout(where, &revision, u"plan", u"older", &host()), 0);
    ASSERT_EQ(zCommandCheckout(where, &first, u"plan", u"oldest", &host()), 0);
    EXPECT_EQ(copy.at("older") + copy.at("oldest"), "secondfirst");
    // Of the tree only the top is here.
    ASSERT_OK(zRemoteDownloadNested(remote.get(), &middle, Z_OBJECT_TREE, nullptr));
    ASSERT_EQ(zCommandCheckout(where, &middle, u"notes/a", u"note", &host()), 0);
    EXPECT_EQ(copy.at("note"), "aa");
    EXPECT_EQ(zCommandCheckout(where, &middle, u"notes/b", u"note", &host()), 1);

    const zwchar *names[] = {u"older"};
    ASSERT_OK(zCommandAdd(where, u"older"));
    ASSERT_OK(zCommandCommit(where, u"ann", u"front", 1, names, &host()));
    EXPECT_EQ(server_at("older"), "second");
    EXPECT_EQ(zCommandReset(where, &revision, u"plan", &host()), 0);
    EXPECT_EQ(copy.at("plan"), "second");
    zCommandDisconnect(where);
}

} // namespace
