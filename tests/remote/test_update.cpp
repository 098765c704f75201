// Updates of a copy, and the list of what one would bring.
#include "team_drawings.hpp"

#include "zev/command.h"

#include <sys/stat.h>

using namespace test;

namespace {

struct UpdateTest : Team {
    void SetUp() override {
        Team::SetUp();
        other("plan", "first"), other("notes/a", "a"), other("notes/b", "b");
        copy = get("ann");
    }
    Copy copy;
};

mode_t mode_of(const fs::path &path) {
    struct stat status {};
    return stat(path.c_str(), &status) ? 0 : status.st_mode & 07777;
}

TEST_F(UpdateTest, BringsWhatOthersDidAndKeepsWhatIsHis) {
    copy.put("plan", "mine"), copy.put("own", "mine alone");
    const std::string newest = (other("plan", "theirs"), other("notes/a", "a2"), other("new", "n"),
                                other_removes("notes/b"));
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.host.ends(), "d");
    EXPECT_TRUE(copy.host.told_of(u"action.sConflicted", "plan"));
    EXPECT_EQ(copy.at("plan") + copy.at("notes/a") + copy.at("new") + copy.at("notes/b"),
              "minea2n(none)");
    EXPECT_EQ(copy.status(), "UU plan\n?? own");
    EXPECT_EQ(copy.git("rev-parse refs/remotes/origin/master"), newest);
    EXPECT_EQ(copy.git("diff HEAD origin/master --stat"), "");
    EXPECT_EQ(copy.locks(), "");
    // Nothing new: the tree isn't asked for once more, and nothing moves.
    const std::string before = copy.state();
    relay.play();
    ASSERT_OK(copy.update());
    EXPECT_EQ(relay.lines().find("/trees"), std::string::npos) << relay.lines();
    EXPECT_EQ(copy.state(), before);
}

// What an update needs and has is not asked for again; another selection, other rights and another
// user need something else.
TEST_F(UpdateTest, AListingIsAskedForAsLongAsSomethingIsMissing) {
    const auto lists = [&](std::vector<const char16_t *> paths = {}) {
        relay.play();
        EXPECT_OK(copy.update({}, paths));
        return relay.lines().find("GET /trees/") != std::string::npos;
    };
    other("notes/a", "a2"), other("plan", "second");
    EXPECT_TRUE(lists({u"notes"}));
    EXPECT_FALSE(lists({u"notes"}));
    EXPECT_TRUE(lists({u"plan"}));
    EXPECT_EQ(copy.at("plan"), "second");
    EXPECT_FALSE(lists());

    rights.bits["ann"] = {{"/", 112}, {"plan", 0}};
    other("plan", "secret");
    EXPECT_TRUE(lists());
    EXPECT_FALSE(lists());
    rights.bits["bob"] = {{"/", 112}, {"notes/b", 0}};
    copy.user = "bob";
    EXPECT_TRUE(lists());
    EXPECT_EQ(copy.at("plan") + copy.at("notes/b"), "secret(none)");
    rights.bits["bob"] = {{"/", 112}};
    EXPECT_FALSE(lists()); // of the former user's
    EXPECT_EQ(copy.at("notes/b") + copy.status(), "b");
}

// A directory that is not here is missing even where nobody has selected it: it stands in the
// branch's tree, and in what the list compares.
TEST_F(UpdateTest, ATreeIsWholeOrListed) {
    other("deep/x", "x");
    ASSERT_OK(copy.update());
    other("deep/x", "x2");
    const std::string tip = other("notes/a", "a2");
    const auto bring = [&](const std::string &name) {
        const std::string kind = server("cat-file -t " + name);
        run("git -C '" + service.at("ann/plant") + "' cat-file " + kind.substr(0, kind.size() - 1) +
            " " + name + " | git -C '" + copy.place.string() + "' hash-object -w --stdin -t " +
            kind);
    };
    for (const char *name : {"HEAD", "HEAD^{tree}", "HEAD:notes", "HEAD:notes/a"}) bring(name);
    copy.git("update-ref refs/remotes/origin/master " + tip);
    // A list of the part is one, but not what is kept.
    EXPECT_EQ(copy.updates(false, {u"notes"}), "3 notes/a>notes/a;");
    EXPECT_FALSE(fs::exists(copy.place / ".git/tmp/updates.json"));
    EXPECT_EQ(copy.updates(false), "(null)");
    relay.play();
    ASSERT_OK(copy.update({}, {u"notes"}));
    EXPECT_NE(relay.lines().find("GET /trees/"), std::string::npos) << relay.lines();
    EXPECT_EQ(copy.at("notes/a") + copy.updates(false), "a23 deep/x>deep/x;");
}

// What was refused for its depth when it came is so when it is here, and tracked, too.
TEST_F(UpdateTest, ATreeWithoutEndIsRefusedTheSecondTime) {
    std::string path;
    for (int depth = 0; depth < 300; ++depth) path += "d/";
    const fs::path stream = dir.path() / "stream";
    write(stream, "commit refs/heads/master\ncommitter a <a> 0 +0000\ndata 0\n"
                  "from refs/heads/master^0\nM 100644 inline " +
                      path + "f\ndata 1\nx\n");
    server("fast-import --quiet < '" + stream.string() + "'");
    copy.git("fetch -q '" + service.at("ann/plant") + "' master");
    copy.git("update-ref refs/remotes/origin/master FETCH_HEAD");
    const std::string before = copy.git("rev-parse HEAD");
    for (const bool refresh : {true, false}) {
        EXPECT_EQ(copy.updates(refresh), "(null)");
        EXPECT_NE(copy.host.errors(), "");
    }
    EXPECT_FALSE(copy.update());
    EXPECT_NE(relay.lines().find("GET /trees/"), std::string::npos) << relay.lines();
    EXPECT_EQ(copy.git("rev-parse HEAD") + copy.at("plan"), before + "first");
}

// What he may not read is neither on the disk nor in his tree; what he may not write has no write
// bit, and no other bit changed.
TEST_F(UpdateTest, RightsComeWithTheNextUpdate) {
    fs::permissions(copy.place / "notes/b", fs::perms(0750));
    rights.bits["ann"] = {{"/", 112}, {"plan", 0}, {"notes/b", 0x10}};
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.at("plan") + copy.git("ls-tree -r --name-only HEAD"), "(none)notes/a\nnotes/b");
    EXPECT_EQ(mode_of(copy.place / "notes/b"), 0550u);
    EXPECT_EQ(mode_of(copy.place / "notes/a") & 0600, 0600u);
    EXPECT_EQ(copy.git("-c core.filemode=false status --porcelain"), "");

    other("plan", "secret"), other("notes/b", "b2");
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.at("plan") + copy.at("notes/b"), "(none)b2");
    EXPECT_EQ(mode_of(copy.place / "notes/b") & 0222, 0u);
    int status = 0;
    run("git -C '" + copy.place.string() + "' cat-file -e " + server("rev-parse HEAD:plan"),
        &status);
    EXPECT_NE(status, 0);              // not even in the store
    EXPECT_EQ(copy.updates(true), ""); // nor is it told of

    rights.bits["ann"] = {{"/", 112}};
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.at("plan") + copy.status(), "secret");
    EXPECT_EQ(mode_of(copy.place / "notes/b") & 0600, 0600u);

    // A change of his in what is withdrawn stays his; a revert respects what is read-only.
    copy.put("plan", "mine");
    rights.bits["ann"] = {{"/", 0x10}, {"plan", 0}};
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.at("plan"), "mine");
    fs::permissions(copy.place / "notes/a", fs::perms(0644));
    copy.put("notes/a", "changed");
    const RepositoryPtr repository = copy.open();
    const Held<PathSpec, zPathSpecFree> spec(Copy::select({u"notes/a"}, nullptr));
    ASSERT_OK(zShellRevert(repository.get(), spec.get()));
    EXPECT_EQ(copy.at("notes/a"), "a");
    EXPECT_EQ(mode_of(copy.place / "notes/a") & 0222, 0u);
}

// Rules that are no more, where the server says that none have changed.
TEST_F(UpdateTest, WithoutRulesNothingComes) {
    write(copy.place / ".git/AUTHZ", "no rules");
    const std::string before = copy.state();
    relay.give_to("POST /rms",
                  answer(200, "{\"data\":{\"status\":100,\"result\":{\"settings\":{\"changed\":"
                              "false}}}}"));
    other("plan", "more");
    EXPECT_FALSE(copy.update());
    EXPECT_NE(copy.host.errors(), "");
    EXPECT_EQ(copy.host.ends() + copy.at("plan"), "afirst");
    EXPECT_EQ(copy.state(), before);
}

// As long as a program has the only new file open, there is nothing to commit either.
TEST_F(UpdateTest, WhatIsLeftEachTimeMakesNoCommits) {
    other("plan", "theirs");
    const std::string before = copy.git("rev-parse HEAD"), work = copy.status();
    {
        const std::ofstream held(copy.place / "plan", std::ios::app);
        for (int n = 0; n < 3; ++n) {
            ASSERT_OK(copy.update());
            EXPECT_TRUE(copy.host.told_of(u"action.sSkipped", "plan"));
            EXPECT_EQ(copy.host.ends() + copy.git("rev-parse HEAD"), "d" + before) << n;
            EXPECT_EQ(copy.status() + copy.locks(), work) << n;
        }
        other("other", "new"); // beside something else it is as ever
        ASSERT_OK(copy.update());
        EXPECT_EQ(copy.git("diff --name-only HEAD origin/master") + copy.at("other"), "plannew");
    }
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.at("plan") + copy.git("diff --stat HEAD origin/master"), "theirs");
}

// A replica that lags behind tells of an older state. Nobody knows whether the rest is lost: it
// stays, as what is his, no commit goes on top of the old state, and none is needed later.
TEST_F(UpdateTest, AnOlderStateTakesNothingAway) {
    const std::string old = copy.git("rev-parse origin/master");
    other("plan", "second"), other("new", "n");
    ASSERT_OK(copy.update());
    copy.put("notes/a", "mine");
    const std::string tip = server("rev-parse HEAD");
    const auto lag = [&](const Asked &asked, size_t) -> std::optional<std::string> {
        if (asked.line != "GET /refs") return {};
        return answer(200, R"({"data":{"entries":[{"type":"ref","refname":"refs/heads/master",)"
                           R"("reftype":"oid","target":")" +
                               old + "\"}]}}");
    };
    relay.play(lag);
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.at("plan") + copy.at("notes/a") + copy.at("new"), "secondminen");
    EXPECT_EQ(copy.status(), "A  new\n M notes/a\nM  plan");
    EXPECT_FALSE(copy.commit());
    EXPECT_EQ(server("rev-parse HEAD") + copy.at("notes/a"), tip + "mine");
    relay.play();
    ASSERT_OK(copy.commit());
    EXPECT_EQ(server_at("plan") + server_at("notes/a") + server_at("new"), "secondminen");
    EXPECT_EQ(copy.at("plan") + copy.at("new") + copy.status(), "secondn");
}

// Up to the last request the tracking reference is where it was. What breaks off leaves no name of
// what has not come, be it in a log.
TEST_F(UpdateTest, WhatIsTrackedIsHere) {
    const Copy second = get("bob");
    other("deep/er/file", "x"), other("big/file", std::string(3 << 20, 'x'));
    const std::string tip = other("notes/a", "a2");
    // What a list doesn't hear of rights is no failure, nor of history what anybody doesn't.
    const auto play = [&](const Copy &at, const char *forgiven, auto operate) {
        const std::string track = "rev-parse origin/master", old = at.git(track);
        bool early = false, done = false;
        for (size_t n = 0; !done && n < 20; ++n) {
            size_t needed = 0;
            relay.play([&, n](const Asked &asked, size_t) -> std::optional<std::string> {
                early |= at.git(track) != old;
                const bool is_history = asked.line.starts_with("GET /commits?");
                if (is_history || asked.line == forgiven || needed++ == n) return answer_of(500);
                return {};
            });
            done = operate();
            EXPECT_EQ(done, needed <= n);
            EXPECT_EQ(at.git(track), done ? tip : old) << relay.lines();
            EXPECT_EQ(run("cd '" + at.place.string() +
                          "' && sed -E 's/^[^ ]* ([^ ]*).*/\\1^{tree}/' "
                          ".git/logs/refs/remotes/origin/master | git cat-file --batch-check | "
                          "grep missing"),
                      "")
                << relay.lines();
        }
        EXPECT_TRUE(done && !early) << relay.lines();
    };
    play(copy, "POST /rms", [&] { return copy.updates(true) != "(null)"; });
    play(second, "", [&] { return second.update(); });
}

// At every question in turn: one end is told, and either nothing has moved or what was done stays.
TEST_F(UpdateTest, ABreakAtAnyMomentIsToldOnce) {
    other("notes/a", "a2"), other("notes/b", "b2"), other("plan", "p2");
    copy.put("own", "mine alone");
    const std::string before = copy.state();
    bool stopped_in_files = false;
    for (int n = 0;; ++n) {
        copy.host.asks_left = n;
        const bool done = copy.update();
        if (copy.host.asks_left >= 0) { // it has not come to that
            EXPECT_EQ(copy.host.ends(), "d");
            break;
        }
        EXPECT_EQ(copy.host.ends(), "c") << n;
        EXPECT_EQ(copy.host.errors(), "") << n;
        EXPECT_EQ(copy.locks() + copy.at("own"), "mine alone") << n;
        stopped_in_files |= done;
        if (!done) {
            EXPECT_EQ(zErrorClass(), 6) << n;
        }
        if (!stopped_in_files) {
            EXPECT_EQ(copy.state(), before) << n;
        }
        ASSERT_LT(n, 500);
    }
    EXPECT_TRUE(stopped_in_files);
    EXPECT_EQ(copy.at("notes/a") + copy.at("notes/b") + copy.at("plan"), "a2b2p2");
    EXPECT_EQ(copy.status(), "?? own");
}

// ---- The list

TEST_F(UpdateTest, TheListComesFromWhatIsKept) {
    const fs::path kept = copy.place / ".git/tmp/updates.json";
    const std::string id = other("plan", "second");
    other("notes/a", "a2");
    EXPECT_EQ(copy.updates(true), "3 notes/a>notes/a;3 plan>plan;");
    EXPECT_EQ(copy.host.ends(), "d");
    EXPECT_EQ(copy.at("plan") + copy.status(), "first");
    const std::string whole = read(kept);
    relay.play();
    EXPECT_EQ(copy.updates(false, {u"plan"}), "3 plan>plan;");
    EXPECT_EQ(relay.lines(), "");
    EXPECT_EQ(read(kept), whole); // one file for every selection
    // It counts as long as both trees are those.
    write(kept, std::string(whole).replace(whole.find("plan"), 4, "xlan"));
    EXPECT_EQ(copy.updates(false, {u"xlan"}), "3 plan>xlan;");
    for (const std::string &broken :
         {std::string("{"), whole.substr(0, whole.size() / 2),
          std::string(whole).replace(whole.find("\"plan\""), 6, "\"../plan\""),
          std::string(whole).replace(whole.find("\"status\":"), 10, "\"status\":x"),
          std::string("{\"diff\":[{\"status\":3,\"flags\":0,\"similarity\":0}]") +
              whole.substr(whole.find(",\"head\""))}) {
        write(kept, broken);
        EXPECT_EQ(copy.updates(false), "3 notes/a>notes/a;3 plan>plan;") << broken;
        EXPECT_EQ(copy.host.errors(), "");
        EXPECT_EQ(read(kept), whole);
    }
    rights.bits["ann"] = {{"/", 112}, {"plan", 0}};
    ASSERT_OK(copy.update({}, {u"none"})); // the rules alone
    EXPECT_EQ(copy.updates(false), "3 notes/a>notes/a;");
    EXPECT_EQ(read(kept), whole);
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.updates(false), "");
}

// A host that brings the references alone moves the tracking one to what is not here. That is no
// branch without files.
TEST_F(UpdateTest, TheListOfWhatIsNotHereIsNone) {
    const fs::path kept = copy.place / ".git/tmp/updates.json";
    other("plan", "second");
    {
        const RepositoryPtr repository = copy.open();
        const Held<Remote, zRemoteFree> remote(zRemoteOpen(repository.get()));
        ASSERT_OK(zRemoteDownloadRefs(remote.get(), nullptr));
    }
    relay.play();
    for (const char16_t *selected : {u"*", u"plan", u"nothing"}) {
        EXPECT_EQ(copy.updates(false, {selected}), "(null)");
        EXPECT_EQ(copy.host.ends(), "a");
        EXPECT_NE(copy.host.errors(), "");
        EXPECT_FALSE(fs::exists(kept));
    }
    EXPECT_EQ(relay.lines(), "");
    EXPECT_EQ(copy.updates(true), "3 plan>plan;");
}

// A server that keeps silent costs half a second, and what is kept stays.
TEST_F(UpdateTest, TheListWaitsForNobody) {
    other("plan", "second");
    ASSERT_EQ(copy.updates(true), "3 plan>plan;");
    const std::string before = copy.state() + read(copy.place / ".git/tmp/updates.json");
    relay.play([](const Asked &, size_t) { return std::string(Relay::kSilence); });
    const auto began = std::chrono::steady_clock::now();
    EXPECT_EQ(copy.updates(true), "(null)");
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(3));
    EXPECT_EQ(copy.host.ends(), "a");
    EXPECT_EQ(copy.state() + read(copy.place / ".git/tmp/updates.json"), before);
    EXPECT_EQ(copy.updates(false), "3 plan>plan;");
}

// ---- A new copy

// What fails before there is a copy takes away what it has made, and nothing that others have made
// there meanwhile.
TEST_F(UpdateTest, AFailedCheckoutTakesOnlyItsOwnAway) {
    Copy made{dir.path() / "deep" / "copy", "ann"};
    const auto check_out = [&] {
        const CheckPtr spec = made.spec();
        zCheckSpecSetBranch(spec.get(), u"nonsense");
        made.host.lines.clear();
        EXPECT_FALSE(
            zShellCheckout(wide(relay.url()).c_str(), made.place.u16string().c_str(), spec.get()));
        EXPECT_EQ(made.host.ends(), "a");
        return made.host.errors();
    };
    EXPECT_NE(check_out().find("nonsense"), std::string::npos);
    EXPECT_FALSE(fs::exists(made.place));
    fs::create_directories(made.place);
    check_out();
    EXPECT_TRUE(fs::is_empty(made.place));
    fs::remove(made.place);
    made.host.at_line = [&] {
        if (made.host.errors().empty()) return;
        fs::create_directories(made.place / ".git");
        made.put(".git/theirs", "1"), made.put("theirs", "2");
    };
    check_out();
    EXPECT_EQ(made.at(".git/theirs") + made.at("theirs"), "12");
    EXPECT_EQ(std::distance(fs::directory_iterator(made.place), {}), 2);
}

// ---- The paths of a host

TEST_F(UpdateTest, AHostsPathIsNoPattern) {
    const char *names[] = {"a[1].dwx", "a1.dwx", "b*.dwx", "bc.dwx"};
    for (const char *path : names) other(path, "1");
    ASSERT_OK(copy.update());
    const Oid old = parsed(copy.git("rev-parse origin/master"));
    for (const char *path : names) other(path, "2");
    const std::u16string place = copy.place.u16string();
    const zwchar *where = place.c_str();
    ASSERT_OK(zCommandConnect(where));
    const auto held = [&] {
        std::string bytes;
        for (const char *path : names) bytes += copy.at(path);
        return bytes;
    };
    EXPECT_EQ(zCommandCheckout(where, nullptr, u"b*.dwx", nullptr, nullptr), 0);
    EXPECT_EQ(held(), "1121");
    EXPECT_EQ(zCommandCheckout(where, nullptr, u"a[1].dwx", u"", nullptr), 0);
    EXPECT_EQ(held(), "2121");
    ASSERT_OK(zCommandFetch(where, u"a1.dwx", nullptr));
    EXPECT_EQ(held(), "2221");
    EXPECT_EQ(zCommandCheckout(where, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(zCommandReset(where, &old, u"b*.dwx", nullptr), 0);
    EXPECT_EQ(held(), "2212");
    EXPECT_EQ(zCommandReset(where, &old, u"a[1].dwx", nullptr), 0);
    EXPECT_EQ(held(), "1212");
    zCommandDisconnect(where);
}

// ---- What a verification can know of a copy that has only what it needed

// The objects of a copy as files of their own, one of which can go.
struct Loose {
    explicit Loose(const Copy &copy) : place(copy.place) {
        run("cd '" + place.string() +
            "' && mv .git/objects/pack ../packs && for p in ../packs/*.pack;"
            " do git unpack-objects -q <$p; done");
    }
    std::string findings_without(const std::string &object) const {
        const std::string id = git(place, "rev-parse " + object).substr(0, 40);
        const fs::path file = place / ".git/objects" / id.substr(0, 2) / id.substr(2);
        EXPECT_TRUE(fs::exists(file)) << object;
        fs::rename(file, place / "../aside");
        const std::string found = findings_in(place, false);
        fs::rename(place / "../aside", file);
        return found;
    }
    fs::path place;
};

TEST_F(UpdateTest, OnlyWhatWasHereAndWentIsLost) {
    other("plan", "second"), other("more/x", "x");
    ASSERT_OK(copy.update({}, {u"plan"}));
    EXPECT_EQ(findings_in(copy.place, false), "");
    const Loose loose(copy);
    const struct {
        const char *object, *path; // null: a server may have it, for all that is known here
    } cases[] = {
        {"HEAD", "refs/heads/master: "}, {"HEAD~1", ": "},
        {"HEAD^{tree}", ": "},           {"HEAD:notes", "notes: "},
        {"HEAD:notes/a", "notes/a: "},   {"HEAD:plan", "plan: "},
        {"origin/master", nullptr},      {"origin/master^{tree}", nullptr},
        {"origin/master:more", nullptr},
    };
    for (const auto &[object, path] : cases) {
        const std::string found = loose.findings_without(object);
        EXPECT_EQ(found.substr(0, found.find("object")), path ? path : "") << object << found;
    }
}

TEST_F(UpdateTest, RowsThatNobodyElseHasAreLost) {
    Oid table{};
    copy.put("d.dwx", draw(copy, table, {{1, "a"}, {2, "b"}}));
    ASSERT_OK(copy.commit());
    const std::string first = server("rev-parse HEAD").substr(0, 40);
    copy.put("d.dwx", draw(copy, table, {{1, "a2"}, {2, "b2"}}));
    ASSERT_OK(copy.commit());
    // Another one has drawn nothing, be it the older version that he changed to.
    const Copy bob = get("bob");
    ASSERT_OK(bob.reset(first, {u"d.dwx"}));
    EXPECT_EQ(bob.status(), "M  d.dwx");
    EXPECT_EQ(findings_in(bob.place, false), "");
    // Not committed, not staged.
    copy.put("d.dwx", draw(copy, table, {{1, "a3"}, {2, "b3"}}));
    EXPECT_EQ(findings_in(copy.place, false), "");
    const std::string id = hex(&table);
    const fs::path rows = copy.place / ".git/tables" / id.substr(0, 2) / id.substr(2);
    fs::rename(rows, dir.path() / "rows");
    const std::string lost =
        "d.dwx: 3 of 3 blocks that are not committed yet are missing from table " + id + "\n";
    EXPECT_EQ(findings_in(copy.place, false), lost);
    copy.git("add d.dwx");
    EXPECT_EQ(findings_in(copy.place, false), lost);
    fs::rename(dir.path() / "rows", rows);
    EXPECT_EQ(findings_in(copy.place, false), "");
}

} // namespace
