// What a copy has and its server has not: commits that were never sent, and what a server lost that
// went back. Nothing of it leaves the disk by an update, and a commit sends it.
#include "team_fixture.hpp"

#include "zev/checkout.h"

using namespace test;

namespace {

struct StandingTest : Team {
    void SetUp() override {
        Team::SetUp();
        other("plan", "first"), other("notes/a", "a");
        start = other("notes/b", "b");
        copy = get("ann");
    }
    static void commit_by_git(const Copy &in, const std::string &message,
                              const std::string &options = "-a") {
        int status = 0;
        const std::string text = test::git(in.place,
                                           "-c user.name=Ann -c user.email=a commit -q " + options +
                                               " -m '" + message + "'",
                                           &status);
        EXPECT_EQ(status, 0) << text;
    }
    // "N" or "N back", and the messages of what was never sent.
    static std::string standing(const Copy &in) {
        const RepositoryPtr repository = in.open();
        RemoteStanding found{};
        std::string words;
        const auto take = [](const Commit *commit, void *words) {
            *static_cast<std::string *>(words) += " " + narrow(zCommitMessage(commit));
            return true;
        };
        if (!zRemoteStanding(&found, repository.get(), take, &words)) return "(failed)";
        std::erase(words, '\n');
        return std::to_string(found.unsent) + (found.went_back ? " back" : "") + words;
    }
    void go_back(const std::string &id) { server("update-ref refs/heads/master " + id); }
    // That an operation told of it.
    static bool told(const Copy &in, const zwchar *key) {
        const std::string begin = "info: " + text(key);
        return std::ranges::any_of(in.host.lines, [&](const std::string &line) {
            return line.starts_with(begin.substr(0, begin.find('%')));
        });
    }
    std::string start; // the server's first state
    Copy copy;
};

// Added, changed and deleted by git: an update keeps it as it is, beside what is new.
TEST_F(StandingTest, WhatGitCommittedIsAChangeOfTheUsers) {
    copy.put("plan", "mine"), copy.put("own", "o"), copy.git("add .");
    commit_by_git(copy, "one");
    copy.git("rm -q notes/b");
    commit_by_git(copy, "two");
    const std::string tip = copy.git("rev-parse HEAD");
    EXPECT_EQ(standing(copy), "2 two one");
    EXPECT_EQ(copy.updates(true), "") << "none of it is the server's to take";
    other("plan", "theirs"), other("notes/a", "a2");
    EXPECT_EQ(copy.updates(true), "3 notes/a>notes/a;3 plan>plan;");
    EXPECT_TRUE(told(copy, u"odb.sUnsentCommits_d"));

    ASSERT_OK(copy.update());
    EXPECT_TRUE(told(copy, u"odb.sUnsentCommits_d"));
    EXPECT_EQ(copy.host.ends(), "d");
    EXPECT_EQ(copy.at("plan") + copy.at("own") + copy.at("notes/a") + copy.at("notes/b"),
              "mineoa2(none)");
    EXPECT_EQ(copy.status(), "D  notes/b\nA  own\nUU plan");
    EXPECT_EQ(copy.git("diff HEAD origin/master --stat"), "");
    EXPECT_EQ(copy.git("merge-base HEAD " + tip), tip) << "it stays in the history";
    EXPECT_EQ(standing(copy) + findings_in(copy.place, false), "0");
    const std::string before = copy.state();
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.state(), before) << "and is told once";
    EXPECT_FALSE(told(copy, u"odb.sUnsentCommits_d"));

    // While that is in conflict more of it must wait: nothing is changed then.
    copy.put("more", "m"), copy.git("add more"), copy.git("add plan");
    commit_by_git(copy, "three");
    other("plan", "theirs again"), copy.put("plan", "mine again"), copy.git("add plan");
    ASSERT_OK(copy.update());
    ASSERT_NE(copy.git("ls-files -u plan"), "");
    const std::string four =
        copy.git("-c user.name=A -c user.email=a commit-tree -p HEAD -m four HEAD~1^{tree}");
    copy.git("update-ref refs/heads/master " + four);
    const std::string locked = copy.state();
    EXPECT_FALSE(copy.update());
    EXPECT_EQ(copy.host.ends() + copy.host.errors(),
              "a" + text(u"odb.eNeedResolveConflicts") + "|");
    EXPECT_EQ(copy.state(), locked);
}

// All of it, or what was named; where none of it was, nobody is asked.
TEST_F(StandingTest, ACommitSendsIt) {
    copy.put("plan", "mine"), copy.put("own", "o"), copy.git("add .");
    commit_by_git(copy, "by git");
    relay.play();
    EXPECT_FALSE(copy.commit({u"notes/*"}));
    EXPECT_EQ(copy.host.errors() + relay.lines(), text(u"odb.eNoChangesToCommit") + "|");
    ASSERT_OK(copy.commit({u"own"}));
    EXPECT_EQ(server_at("own") + server_at("plan"), "ofirst");
    EXPECT_EQ(copy.status() + standing(copy), "M  plan0");
    commit_by_git(copy, "once more");
    copy.put("notes/a", "a by git");
    commit_by_git(copy, "and more");
    ASSERT_OK(copy.commit({}, u"all of it"));
    EXPECT_EQ(server_at("plan") + server_at("notes/a"), "minea by git");
    EXPECT_EQ(server("log -2 --format=%s"), "all of it\nmine\n");
    EXPECT_EQ(copy.status() + standing(copy), "0");
    const Copy bob = get("bob");
    EXPECT_EQ(bob.at("plan") + bob.at("own"), "mineo");
}

// What git amends was sent before, in part; of a side line the fork lies far back; and a branch
// that git put on the server's own commit has nothing of its own.
TEST_F(StandingTest, LinesOfGitAreFollowed) {
    copy.git("branch side");
    copy.put("plan", "second");
    ASSERT_OK(copy.commit());
    copy.put("notes/a", "amended");
    commit_by_git(copy, "amended", "-a --amend");
    EXPECT_EQ(standing(copy), "1 amended");
    ASSERT_OK(copy.commit());
    EXPECT_EQ(server_at("plan") + server_at("notes/a") + standing(copy), "secondamended0");

    copy.git("switch -q side"), copy.put("own", "o"), copy.git("add own");
    commit_by_git(copy, "side");
    copy.git("switch -q master");
    copy.git("-c user.name=A -c user.email=a merge -q --no-edit side");
    EXPECT_EQ(standing(copy).substr(0, 1), "2");
    other("notes/b", "b2");
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.at("own") + copy.at("plan") + copy.at("notes/b"), "osecondb2");
    EXPECT_EQ(copy.status(), "A  own");
    ASSERT_OK(copy.commit());

    copy.git("reset -q --hard origin/master");
    EXPECT_EQ(standing(copy), "0");
    other("plan", "third");
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.at("plan") + copy.status(), "third");
}

// A checkout of an older state makes a commit, which looks like an update's.
TEST_F(StandingTest, AStateOfOldIsKeptAndSent) {
    const std::string old = copy.git("rev-parse HEAD");
    copy.put("plan", "second");
    ASSERT_OK(copy.commit());
    {
        const RepositoryPtr repository = copy.open();
        ASSERT_OK(zRepositoryCheckout(repository.get(), copy.spec(old).get()));
    }
    EXPECT_EQ(copy.at("plan") + standing(copy).substr(0, 1), "first1");
    other("notes/a", "a2");
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.at("plan") + copy.at("notes/a") + copy.status(), "firsta2M  plan");
    ASSERT_OK(copy.commit());
    EXPECT_EQ(server_at("plan"), "first");
    // A reset lays its commit on top: what lies below is the user's all the same.
    copy.put("own", "o"), copy.git("add own");
    commit_by_git(copy, "own");
    ASSERT_OK(copy.reset(start, {u"notes/a"}));
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.at("own") + copy.at("notes/a") + standing(copy), "oa0");
    ASSERT_OK(copy.commit());
    EXPECT_EQ(server_at("own") + server_at("notes/a"), "oa");
}

// A copy that an older version made has no note: what an update made, and what has the tree of a
// commit of the server's, was sent.
TEST_F(StandingTest, ACopyWithoutANote) {
    copy.put("plan", "sent");
    ASSERT_OK(copy.commit());
    other("plan", "theirs");
    copy.updates(true); // tracked, and not taken
    const auto forget = [&] { fs::remove_all(copy.place / ".git/refs/zev"); };
    forget();
    EXPECT_EQ(standing(copy), "0");
    copy.put("own", "o"), copy.git("add own");
    commit_by_git(copy, "own");
    EXPECT_EQ(standing(copy), "1 own");
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.at("plan") + copy.status(), "theirsA  own");
    forget();
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.status() + standing(copy), "A  own0");
}

// In a project without a commit.
struct EmptyTest : Team {};
TEST_F(EmptyTest, TheFirstCommitIsByGit) {
    const Copy copy = get("ann");
    copy.put("plan", "p"), copy.git("add plan");
    StandingTest::commit_by_git(copy, "first");
    EXPECT_EQ(StandingTest::standing(copy), "1 first");
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.status(), "A  plan");
    ASSERT_OK(copy.commit());
    EXPECT_EQ(server_at("plan") + server("rev-list --count HEAD"), "p1\n");
    EXPECT_EQ(StandingTest::standing(copy) + copy.status(), "0");
}

// ---- A server that went back

struct BackTest : StandingTest {
    void SetUp() override {
        StandingTest::SetUp();
        copy.put("plan", "second");
        ASSERT_OK(copy.commit());
        backup = server("rev-parse HEAD").substr(0, 40);
        bob = get("bob");
        copy.put("plan", "third"), copy.put("new", "n"), copy.git("add new");
        copy.git("rm -q notes/b");
        ASSERT_OK(copy.commit());
        other("notes/a", "a2");
        ASSERT_OK(copy.update() && bob.update()); // bob over two at once
    }
    std::string files(const Copy &of) {
        return of.at("plan") + of.at("new") + of.at("notes/a") + of.at("notes/b");
    }
    std::string backup;
    Copy bob;
};

TEST_F(BackTest, WhatTheServerLostStaysAndIsBroughtBack) {
    go_back(backup);
    // Whether the list has asked before makes no difference.
    EXPECT_EQ(bob.updates(true), "");
    EXPECT_TRUE(told(bob, u"odb.sServerWentBack_s_s"));
    EXPECT_EQ(standing(bob), "0 back");
    EXPECT_EQ(bob.updates(false), "");
    for (const Copy *each : {&copy, &bob}) {
        ASSERT_OK(each->update());
        EXPECT_TRUE(told(*each, u"odb.sServerWentBack_s_s"));
        EXPECT_EQ(files(*each), "thirdna2(none)");
        EXPECT_EQ(each->status(), "A  new\nM  notes/a\nD  notes/b\nM  plan");
        EXPECT_EQ(standing(*each), "0");
        const std::string before = each->state();
        ASSERT_OK(each->update());
        EXPECT_EQ(each->state(), before);
    }
    ASSERT_OK(copy.commit({}, u"back again"));
    EXPECT_EQ(server_at("plan") + server_at("new") + server_at("notes/a"), "thirdna2");
    ASSERT_OK(bob.update());
    EXPECT_EQ(files(bob) + bob.status(), "thirdna2(none)");
    EXPECT_EQ(findings_in(copy.place, false) + findings_in(bob.place, false), "");
}

// Somebody has gone on from the backup: what he did comes, or is in conflict with what was lost.
TEST_F(BackTest, WorkSinceThenComesIn) {
    go_back(backup);
    other("later", "l"), other("plan", "other third");
    copy.put("own", "mine"), copy.git("add own");
    commit_by_git(copy, "own");
    ASSERT_OK(copy.update());
    EXPECT_EQ(files(copy) + copy.at("later") + copy.at("own"), "thirdna2(none)lmine");
    EXPECT_EQ(copy.status(), "A  new\nM  notes/a\nD  notes/b\nA  own\nUU plan");
    EXPECT_TRUE(told(copy, u"odb.sUnsentCommit"));
    // Forward again it is no news: what both have is even.
    const std::string lost = copy.git("log -g -3 --format=%H origin/master").substr(41, 40);
    go_back(lost);
    ASSERT_OK(bob.update());
    EXPECT_EQ(standing(bob) + bob.status(), "0");
}

// What the user may not read is in none of his trees, and so nothing that he deletes.
TEST_F(BackTest, WhatIsHiddenIsNotGivenBack) {
    rights.bits["bob"] = {{"/", 112}, {"plan", 0}, {"notes/b", 0}};
    ASSERT_OK(bob.update());
    go_back(backup);
    ASSERT_OK(bob.update());
    EXPECT_EQ(files(bob), "(none)na2(none)");
    EXPECT_EQ(bob.status(), "A  new\nM  notes/a");
    ASSERT_OK(bob.commit());
    EXPECT_EQ(server_at("plan") + server_at("notes/b") + server_at("new"), "secondbn");
}

// To a commit of old, and a part of it: that is no loss.
TEST_F(BackTest, WhoGoesBackHimselfLosesNothing) {
    ASSERT_OK(bob.update(backup, {u"plan"}));
    EXPECT_EQ(standing(bob) + bob.at("plan"), "0second");
    ASSERT_OK(bob.update(backup));
    EXPECT_EQ(files(bob) + standing(bob) + bob.status(), "second(none)ab0");
    ASSERT_OK(bob.update());
    EXPECT_EQ(files(bob) + bob.status(), "thirdna2(none)");
}

// ---- Breaks

// At each line that the host is told, in turn, between all of its steps.
TEST_F(StandingTest, WhoeverDiesInItLosesNothing) {
    copy.put("plan", "mine"), copy.put("own", "o"), copy.git("add .");
    commit_by_git(copy, "by git");
    const std::string tip = copy.git("rev-parse HEAD");
    other("plan", "theirs"), other("notes/a", "a2");
    for (int n = 0, alive = 1; alive; ++n) {
        Child child([&] {
            int left = n;
            copy.host.at_line = [&] {
                if (left-- == 0) _exit(7);
            };
            return copy.update() ? 0 : 1;
        });
        alive = child.wait() == 7;
        EXPECT_EQ(copy.at("plan") + copy.at("own"), "mineo") << n;
        EXPECT_EQ(copy.git("merge-base HEAD " + tip), tip) << n;
        ASSERT_LT(n, 100);
    }
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.status() + copy.locks(), "A  own\nUU plan");
    EXPECT_EQ(copy.at("plan") + copy.at("own") + copy.at("notes/a"), "mineoa2");
    EXPECT_EQ(standing(copy), "0");
}

// What fails behind the ground leads back before it.
TEST_F(StandingTest, AFailureLeavesTheBranch) {
    copy.put("own", "o"), copy.git("add own");
    commit_by_git(copy, "by git");
    other("notes/a", "a2");
    const std::string before = copy.git("rev-parse HEAD") + read(copy.place / ".git/index");
    relay.give(answer_of(500));
    EXPECT_FALSE(copy.commit());
    EXPECT_EQ(copy.git("rev-parse HEAD") + read(copy.place / ".git/index"), before);
    relay.play();
    // The commit alone is refused: the update before it stands, and the work is a change.
    rights.bits["ann"] = {{"/", 0x10}};
    EXPECT_FALSE(copy.commit());
    EXPECT_EQ(copy.at("own") + copy.at("notes/a") + copy.status(), "oa2A  own");
    rights.bits["ann"] = {{"/", 112}};
    ASSERT_OK(copy.commit());
    EXPECT_EQ(server_at("own") + standing(copy), "o0");
}

} // namespace
