// Commits against a server, between two copies.
#include "team_fixture.hpp"

#include "system/clock.hpp"
#include "system/os.hpp"
#include "zev/recovery.h"
#include "zev/share.h"

using namespace test;

namespace {

// The system's allocator can be used by a child whatever the server's thread was at when it began;
// that of GCC's ASan it may find locked, for ever.
#ifdef __SANITIZE_ADDRESS__
constexpr bool kForksBesideThreads = false;
#else
constexpr bool kForksBesideThreads = true;
#endif

struct CommitTest : Team {
    void SetUp() override {
        Team::SetUp();
        other("plan", "first"), other("notes/a", "a"), other("notes/b", "b");
        copy = get("ann");
    }
    std::string tip() { return server("rev-parse HEAD"); }
    // Whether a process that commits died at the n-th line that its host is told.
    static bool dies(const Copy &copy, int n) {
        Child child([&] {
            int left = n;
            copy.host.at_line = [&] {
                if (left-- == 0) _exit(7);
            };
            return copy.commit() ? 0 : 1;
        });
        return child.wait() == 7;
    }
    Copy copy;
};

TEST_F(CommitTest, TellsWhatItSent) {
    copy.put("plan", "second"), copy.put("new/deep/file", "new");
    fs::rename(copy.place / "notes/b", copy.place / "notes/c");
    const std::string before = server("log -1 --format=%H");
    ASSERT_OK(copy.commit({}, u"mine,\vpasted"));
    EXPECT_EQ(copy.host.ends(), "dd"); // of the update, and its own
    for (const char *path : {"new/deep/file", "notes/c"})
        EXPECT_TRUE(copy.host.told_of(u"action.sAdded", path)) << path;
    EXPECT_TRUE(copy.host.told_of(u"action.sModified", "plan"));
    EXPECT_TRUE(copy.host.told_of(u"action.sDeleted", "notes/b"));
    EXPECT_EQ(server("log -1 --format='%an %P %s'"),
              "ann " + before.substr(0, 40) + " mine, pasted\n");
    EXPECT_EQ(copy.git("rev-parse origin/master") + "\n", tip());
    EXPECT_EQ(copy.git("diff HEAD origin/master --stat") + copy.status() + copy.locks(), "");
    EXPECT_EQ(copy.git("log -1 --format='%an %s'"), "ann mine, pasted");
    // Once more, with nothing to do: no request is made.
    relay.play();
    EXPECT_FALSE(copy.commit());
    EXPECT_EQ(zErrorClass(), 3);
    EXPECT_EQ(relay.lines() + copy.host.ends(), "a");
    EXPECT_EQ(copy.host.errors(), text(u"odb.eNoChangesToCommit") + "|");
}

// A copy whose settings can't be read may follow a server: nothing is committed past it.
TEST_F(CommitTest, UnreadableSettingsAreNoReasonToCommitHere) {
    copy.put("plan", "second"), copy.git("add plan");
    const RepositoryPtr repository = copy.open();
    const std::string settings = copy.at(".git/config"), tip = copy.git("rev-parse HEAD");
    copy.put(".git/config", settings + "[broken");
    EXPECT_FALSE(zShellCommit(repository.get(), nullptr, u"ann", u"mine"));
    copy.put(".git/config", settings);
    copy.git("config remote.origin.url ''");
    EXPECT_FALSE(zReferenceLookup(repository.get(), u"refs/none")); // raised, and of no weight
    const RepositoryPtr again = copy.open();
    EXPECT_FALSE(zShellCommit(again.get(), nullptr, u"ann", u"mine"));
    EXPECT_NE(narrow(zErrorReason()).find("has no URL"), std::string::npos);
    EXPECT_EQ(copy.git("rev-parse HEAD") + server_at("plan"), tip + "first");
}

TEST_F(CommitTest, OnlyTheSelectedGoes) {
    copy.put("plan", "second"), copy.put("notes/a", "a2"), copy.put("own", "x");
    copy.put(".git/info/exclude", "*.bak\n"), copy.put("plan.bak", "old");
    ASSERT_OK(copy.commit({u"notes"}));
    EXPECT_EQ(server_at("plan") + server_at("notes/a"), "firsta2");
    EXPECT_EQ(copy.status(), " M plan\n?? own");
    ASSERT_OK(copy.commit());
    EXPECT_EQ(server("ls-tree -r --name-only HEAD"), "notes/a\nnotes/b\nown\nplan\n");
    EXPECT_FALSE(copy.commit()); // what is ignored is no change
    EXPECT_EQ(copy.host.errors(), text(u"odb.eNoChangesToCommit") + "|");
    // Without a selection it is what is staged.
    copy.put("plan", "third"), copy.put("notes/a", "a3");
    copy.git("add plan");
    const RepositoryPtr repository = copy.open();
    ASSERT_OK(zShellCommit(repository.get(), nullptr, u"ann", u"staged"));
    EXPECT_EQ(server_at("plan") + server_at("notes/a"), "thirda2");
    EXPECT_EQ(copy.status(), " M notes/a");
}

// Somebody else was faster.
TEST_F(CommitTest, TheUpdateComesFirst) {
    copy.put("plan", "same"), other("plan", "same");
    const std::string theirs = tip();
    ASSERT_OK(copy.commit());
    EXPECT_TRUE(copy.host.told("info: " + text(u"odb.eNoChangesToCommit")));
    EXPECT_EQ(copy.host.ends() + copy.status() + tip(), "dd" + theirs);

    copy.put("plan", "mine"), copy.put("notes/a", "mine too");
    other("plan", "theirs"), other("notes/b", "b2");
    EXPECT_FALSE(copy.commit());
    EXPECT_EQ(copy.host.ends(), "da");
    EXPECT_EQ(copy.host.errors(), text(u"odb.eNeedResolveConflicts") + "|");
    EXPECT_EQ(copy.at("plan") + copy.at("notes/b") + server_at("notes/a"), "mineb2a");
    EXPECT_EQ(copy.status(), " M notes/a\nUU plan");
    ASSERT_OK(copy.commit({u"notes"})); // what is in conflict is not of these
    EXPECT_EQ(server_at("notes/a") + server_at("plan"), "mine tootheirs");
    copy.git("add plan");
    ASSERT_OK(copy.commit());
    EXPECT_EQ(server_at("plan") + copy.status(), "mine");
}

TEST_F(CommitTest, ARefusedPathTakesAllBack) {
    rights.bits["ann"] = {{"/", 112}, {"notes", 0x10}};
    ASSERT_OK(copy.update());
    fs::permissions(copy.place / "notes/a", fs::perms(0644));
    copy.put("notes/a", "forbidden"), copy.put("plan", "second");
    const std::string theirs = tip(), before = copy.git("for-each-ref");
    EXPECT_FALSE(copy.commit());
    EXPECT_TRUE(copy.host.told_of(u"action.sUnauthorized",
                                  "notes")); // the directory itself
    EXPECT_EQ(copy.host.ends(), "da");
    EXPECT_EQ(copy.git("for-each-ref") + tip(), before + theirs);
    EXPECT_EQ(copy.status() + copy.at("notes/a"), " M notes/a\n M plan" + std::string("forbidden"));
    ASSERT_OK(copy.commit({u"plan"}));
}

TEST_F(CommitTest, ABreakAtAnyMomentTakesItBack) {
    copy.put("plan", "second"), copy.put("new", std::string(300000, 'x'));
    const std::string before = copy.state(), theirs = tip();
    for (int n = 0;; ++n) {
        copy.host.asks_left = n;
        const bool done = copy.commit();
        if (copy.host.asks_left >= 0 || tip() != theirs) break;
        EXPECT_FALSE(done) << n;
        const std::string ends = copy.host.ends();
        EXPECT_TRUE(ends == "ca" || ends == "dc" || ends == "cc") << n << ends;
        EXPECT_EQ(copy.state(), before) << n;
        EXPECT_EQ(copy.at("plan"), "second");
        ASSERT_LT(n, 500);
    }
    copy.host.asks_left = -1;
    if (!copy.commit()) {
        EXPECT_EQ(zErrorClass(), 3);
    }
    EXPECT_EQ(server_at("plan") + copy.status(), "second");
}

// At each line that the host is told: the work is there, and shows as not committed until the
// server has it; the next update doesn't take it back.
TEST_F(CommitTest, WhoeverDiesInItLosesNothing) {
    if (!kForksBesideThreads) GTEST_SKIP();
    copy.put("plan", "second"), copy.put("new", "n"), fs::remove(copy.place / "notes/b");
    const auto work = [&] { return copy.at("plan") + copy.at("new") + copy.at("notes/b"); };
    for (int n = 0, alive = 1; alive; ++n) {
        if (n % 4 == 2 || n % 3 == 1) copy.git("pack-refs --all"); // the branch has no file then
        alive = dies(copy, n);
        if (n % 3 == 1) copy.git("pack-refs --all"); // so does git, on its own, at any time
        EXPECT_EQ(work(), "secondn(none)") << n;
        const RepositoryPtr opened = copy.open(); // nobody tells it to recover
        if (n % 4 == 3) {                         // a look takes the copy of the index away
            EXPECT_OK(test::guard(zIndexHead(opened.get(), true), zIndexFree));
        }
        if (n % 2) {
            ASSERT_OK(copy.update()) << n;
            EXPECT_EQ(work(), "secondn(none)") << n;
        }
        ASSERT_LT(n, 100);
    }
    copy.commit();
    EXPECT_EQ(server("ls-tree -r --name-only HEAD") + server_at("plan"),
              "new\nnotes/a\nplan\nsecond");
    EXPECT_EQ(server("rev-list --count HEAD"), "4\n");
    EXPECT_EQ(copy.status() + copy.locks(), "");
}

// Git packs even a reference that came with the commit; it has no file to be taken away then.
TEST_F(CommitTest, WhoeverDiesInTheFirstLosesNothing) {
    if (!kForksBesideThreads) GTEST_SKIP();
    make_project(service, "ann/empty");
    Copy first{dir.path() / "empty", "ann"};
    ASSERT_OK(zShellCheckout(wide(relay.url("ann/empty")).c_str(), first.place.u16string().c_str(),
                             first.spec().get()));
    first.put("plan", "one");
    for (int n = 0, alive = 1; alive; ++n) {
        alive = dies(first, n);
        first.git("pack-refs --all");
        const bool sent = !service.git("ann/empty", "for-each-ref refs/heads").empty();
        ASSERT_OK(first.update()) << n;
        EXPECT_EQ(first.at("plan"), "one") << n;
        if (!sent) {
            EXPECT_EQ(first.git("for-each-ref"), "") << n;
        }
        ASSERT_LT(n, 100);
    }
    EXPECT_EQ(service.git("ann/empty", "show HEAD:plan"), "one");
    EXPECT_EQ(first.status() + first.locks(), "");
}

// Somebody reads the index while it is to go back.
TEST_F(CommitTest, WhatCannotGoBackIsLeftToRecovery) {
    copy.put("plan", "second");
    const std::string before = copy.state(), refs = copy.git("for-each-ref");
    Share *reader = nullptr;
    relay.play([&](const Asked &asked, size_t) -> std::optional<std::string> {
        if (asked.line != "POST /commits") return {};
        const std::u16string index = (copy.place / ".git/index").u16string();
        reader = zShareOpen(index.c_str(), u"rb", Z_SHARE_NONE);
        return answer_of(500);
    });
    EXPECT_FALSE(copy.commit());
    ASSERT_TRUE(reader);
    EXPECT_EQ(copy.git("for-each-ref"), refs); // what can go back does
    EXPECT_NE(copy.state(), before);
    zShareClose(reader);
    int32_t outcome = 0;
    EXPECT_OK(zRepositoryRecover(&outcome, copy.open().get()));
    EXPECT_EQ(outcome, Z_RECOVERY_PUT_BACK);
    EXPECT_EQ(copy.state(), before);
    relay.play();
    ASSERT_OK(copy.commit());
    EXPECT_EQ(server_at("plan") + copy.status(), "second");
}

// What the update leaves, since a program has the file open, is newer than what the commit goes out
// from.
TEST_F(CommitTest, WhatTheUpdateLeftIsNotOverwritten) {
    other("place", "a file"), other("kept", "k");
    ASSERT_OK(copy.update());
    other("plan", "theirs"), other_removes("place"), other("place/x", "below");
    copy.put("notes/a", "mine");
    {
        std::ofstream plan(copy.place / "plan", std::ios::app),
            place(copy.place / "place", std::ios::app);
        copy.host.at_line = [&] { // it saves
            if (copy.host.lines.back() != text(u"action.sSkipped") + " plan") return;
            plan << ", and more" << std::flush;
            fs::remove(copy.place / "place");
        };
        const std::string theirs = tip();
        EXPECT_FALSE(copy.commit());
        EXPECT_EQ(copy.at("plan"), "first, and more");
        EXPECT_TRUE(copy.host.told_of(u"action.sFailed", "plan"));
        EXPECT_FALSE(copy.host.told_of(u"action.sFailed", "notes/a"));
        EXPECT_EQ(copy.host.errors(), text(u"odb.eFailedToMergeLocalChanages") + "|");
        EXPECT_EQ(tip(), theirs);
        ASSERT_OK(copy.commit({u"notes", u"place"}));
        EXPECT_EQ(server("ls-tree -r --name-only HEAD"), "kept\nnotes/a\nnotes/b\nplace/x\nplan\n");
        EXPECT_EQ(server_at("plan") + server_at("notes/a"), "theirsmine");
    }
    copy.host.at_line = {};
    EXPECT_FALSE(copy.commit());
    EXPECT_EQ(copy.host.errors(), text(u"odb.eNeedResolveConflicts") + "|");
    EXPECT_EQ(copy.status(), "UU plan");
}

// What only names a commit of a repository within can't be sent, and is told by its name.
TEST_F(CommitTest, ARepositoryWithinStaysHere) {
    run("git init -q '" + (copy.place / "module").string() + "'");
    copy.put("module/file", "within");
    copy.git("-C module add file"),
        copy.git("-C module -c user.name=a -c user.email=a commit -qm m");
    copy.git("add module 2>/dev/null"), copy.put("plan", "second");
    ASSERT_EQ(copy.git("ls-files -s module").substr(0, 6), "160000");
    const std::string before = copy.state(), theirs = tip();
    EXPECT_FALSE(copy.commit());
    EXPECT_TRUE(copy.host.told_of(u"action.sFailed", "module"));
    EXPECT_EQ(copy.host.errors(),
              "'module' is a repository of its own, and can't be sent to the server|");
    EXPECT_EQ(copy.state() + tip(), before + theirs);
    ASSERT_OK(copy.commit({u"plan"}));
    EXPECT_EQ(server("ls-tree -r --name-only HEAD") + server_at("plan"),
              "notes/a\nnotes/b\nplan\nsecond");
    EXPECT_EQ(copy.at("module/file") + copy.status() + copy.locks(), "withinA  module");
}

// What a path is travels with it: as a change of its own, too, and the way back.
TEST_F(CommitTest, LinksAndFilesToRunTravel) {
    const Copy bob = get("bob");
    const auto modes = [&] {
        return server("ls-tree -r HEAD | grep -v notes | sed 's/ .*\\t/ /' | tr '\\n' ','");
    };
    const auto is_to_run = [&](const char *path) {
        return (fs::status(bob.place / path).permissions() & fs::perms::owner_exec) !=
               fs::perms::none;
    };
    fs::create_symlink("../plan", copy.place / "notes/link");
    fs::create_symlink("nowhere.dwx", copy.place / "drawn.dwx");
    copy.put("tool", "#!"), copy.git("add tool"), copy.git("update-index --chmod=+x tool");
    ASSERT_OK(copy.commit());
    EXPECT_EQ(modes(), "120000 drawn.dwx,100644 plan,100755 tool,");
    EXPECT_EQ(server_at("notes/link") + server("ls-tree HEAD notes/link").substr(0, 6),
              "../plan120000");
    EXPECT_EQ(copy.git("rev-parse HEAD^{tree}") + "\n", server("rev-parse HEAD^{tree}"));
    ASSERT_OK(bob.update());
    EXPECT_EQ(fs::read_symlink(bob.place / "notes/link"), "../plan");
    EXPECT_EQ(fs::read_symlink(bob.place / "drawn.dwx"), "nowhere.dwx");
    EXPECT_TRUE(is_to_run("tool") && !is_to_run("plan"));
    EXPECT_EQ(bob.status(), "");

    copy.git("update-index --chmod=+x plan"), copy.git("update-index --chmod=-x tool");
    ASSERT_OK(copy.commit());
    EXPECT_TRUE(copy.host.told_of(u"action.sModified", "plan"));
    fs::remove(copy.place / "notes/link");
    ASSERT_OK(copy.commit());
    EXPECT_EQ(modes(), "120000 drawn.dwx,100755 plan,100644 tool,");
    ASSERT_OK(bob.update());
    EXPECT_TRUE(is_to_run("plan") && !is_to_run("tool"));
    EXPECT_FALSE(fs::exists(fs::symlink_status(bob.place / "notes/link")));
    EXPECT_EQ(bob.at("plan") + bob.status() + copy.status(), "first");
    EXPECT_EQ(bob.git("rev-parse HEAD^{tree}") + "\n", server("rev-parse HEAD^{tree}"));
}

// A service that makes plain files of all is not to commit a link as one.
TEST_F(CommitTest, AServerThatKeepsNoLinksGetsNone) {
    copy.put("plan", "second"), fs::create_symlink("plan", copy.place / "link");
    const std::string before = copy.state(), theirs = tip();
    const std::string plain = server("rev-parse HEAD^{tree}").substr(0, 40);
    relay.play([&](const Asked &asked, size_t) -> std::optional<std::string> {
        if (asked.line != "POST /trees") return std::nullopt;
        return answer(200, R"({"data":{"id":")" + plain + "\"}}");
    });
    EXPECT_FALSE(copy.commit());
    EXPECT_EQ(relay.lines().find("POST /commits"), std::string::npos);
    EXPECT_TRUE(copy.host.told_of(u"action.sFailed", "link"));
    EXPECT_EQ(copy.host.errors().find("'link' is a link"), 0u) << copy.host.errors();
    EXPECT_EQ(copy.state() + tip(), before + theirs);
}

// Its device, not the client's.
TEST_F(CommitTest, AFullServerSaysSo) {
    static const auto real = zev::os::calls.syncfs;
    copy.put("plan", "second");
    const std::string before = copy.state(), theirs = tip();
    relay.play([&](const Asked &asked, size_t) -> std::optional<std::string> {
        if (asked.line == "POST /commits")
            service.have_done(
                [] { zev::os::calls.syncfs = [](int) { return errno = ENOSPC, -1; }; });
        return std::nullopt;
    });
    EXPECT_FALSE(copy.commit());
    service.have_done([] { zev::os::calls.syncfs = real; });
    EXPECT_NE(copy.host.errors().find("No space is left on the device of the server"),
              std::string::npos)
        << copy.host.errors();
    EXPECT_EQ(copy.state() + tip(), before + theirs);
    relay.play();
    EXPECT_OK(copy.commit()); // nobody's failure is taken for a later one
}

TEST_F(CommitTest, ANameGetsAnotherCase) {
    copy.git("mv plan Plan");
    ASSERT_OK(copy.commit());
    EXPECT_EQ(server("ls-tree -r --name-only HEAD"), "Plan\nnotes/a\nnotes/b\n");
    EXPECT_EQ(copy.status(), "");
}

} // namespace
