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
    // What failed was tracked for a while, and put back.
    relay.give_to("POST /commits", answer_of(500));
    EXPECT_FALSE(copy.commit());
    relay.play(), forget();
    commit_by_git(copy, "own by git");
    EXPECT_EQ(standing(copy), "1 own by git");
}

// Another branch, a tag that has a text, and a commit of the user's own: of the branch that is
// followed that tells nothing, and what it has is nobody's change but his own.
TEST_F(StandingTest, AStateBesideTheLine) {
    const std::string side = other("side", "s");
    server("-c user.name=A -c user.email=a tag -a -m text v1");
    const std::string tag = server("rev-parse v1").substr(0, 40);
    go_back(start);
    for (const std::string &target : {side, tag}) {
        ASSERT_OK(copy.update(target));
        EXPECT_EQ(copy.at("side") + copy.git("rev-parse origin/master"), "s" + side);
        EXPECT_EQ(standing(copy) + copy.status(), "0");
        ASSERT_OK(copy.update());
        EXPECT_FALSE(told(copy, u"odb.sServerWentBack_s_s"));
        EXPECT_EQ(copy.at("side") + standing(copy) + copy.status(), "(none)0");
    }
    copy.put("own", "o"), copy.git("add own");
    commit_by_git(copy, "own");
    ASSERT_OK(copy.update(copy.git("rev-parse HEAD")));
    EXPECT_EQ(copy.at("own"), "o");
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.at("own") + copy.status(), "oA  own");
    ASSERT_OK(copy.commit());
    EXPECT_EQ(server("ls-tree -r --name-only HEAD"), "notes/a\nnotes/b\nown\nplan\n");
}

// Of a branch that is new to the server all is the user's, whoever made its commits.
TEST_F(StandingTest, ABranchThatTheServerHasNot) {
    const auto begin = [&](const std::string &name) {
        copy.git("config branch." + name + ".remote origin");
        copy.git("config branch." + name + ".merge refs/heads/" + name);
        copy.git("switch -q -c " + name);
    };
    begin("feature");
    EXPECT_EQ(standing(copy).substr(0, 1), "1");
    copy.put("plan", "mine");
    ASSERT_OK(copy.commit({u"plan"}));
    EXPECT_EQ(server("ls-tree -r --name-only feature"), "plan\n");
    for (int n = 0; n < 2; ++n) {
        ASSERT_OK(copy.update());
        EXPECT_EQ(copy.at("plan") + copy.at("notes/a") + copy.at("notes/b"), "mineab");
        EXPECT_EQ(copy.status() + standing(copy), "A  notes/a\nA  notes/b0");
    }
    ASSERT_OK(copy.commit());
    EXPECT_EQ(server("ls-tree -r --name-only feature"), "notes/a\nnotes/b\nplan\n");
    // With a name that is too long for the file of a note.
    std::string name = "long";
    for (int n = 0; n < 60; ++n) name += "/part";
    begin(name);
    ASSERT_OK(copy.update());
    EXPECT_TRUE(told(copy, u"odb.sUnsentCommits_d"));
    ASSERT_OK(copy.update());
    EXPECT_EQ(standing(copy), "0") << "it was noted";
}

// A note that was never the branch's tells nothing of what the server has. That of one which git
// began anew does.
TEST_F(StandingTest, AStrayNote) {
    copy.put("own", "o"), copy.git("add own");
    commit_by_git(copy, "root", "-a --amend");
    EXPECT_EQ(standing(copy), "1 root");
    other("notes/a", "a2");
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.at("notes/a") + copy.status(), "a2A  own");

    const std::string stray =
        copy.git("-c user.name=A -c user.email=a commit-tree -m stray HEAD^{tree}");
    copy.git("update-ref refs/zev/agreed/master " + stray);
    other("plan", "theirs");
    const std::string before = copy.state();
    EXPECT_FALSE(copy.update());
    EXPECT_EQ(copy.host.ends() + copy.at("plan"), "afirst");
    EXPECT_EQ(copy.state(), before);
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

// The newest by its name is where an update goes, too.
TEST_F(BackTest, WhoNamesTheNewestLosesNothing) {
    go_back(backup);
    ASSERT_OK(bob.update(backup));
    EXPECT_TRUE(told(bob, u"odb.sServerWentBack_s_s"));
    EXPECT_EQ(files(bob) + standing(bob), "thirdna2(none)0");
    EXPECT_EQ(bob.status(), "A  new\nM  notes/a\nD  notes/b\nM  plan");
}

// The whole branch is gone: a commit begins it anew.
TEST_F(BackTest, ABranchIsLost) {
    server("update-ref -d refs/heads/master");
    EXPECT_EQ(bob.updates(true), "");
    for (const Copy *each : {&copy, &bob}) {
        ASSERT_OK(each->update());
        EXPECT_TRUE(told(*each, u"odb.sServerLostBranch_s"));
        EXPECT_EQ(files(*each) + standing(*each), "thirdna2(none)0");
        EXPECT_EQ(each->status(), "A  new\nA  notes/a\nA  plan");
        ASSERT_OK(each->update());
        EXPECT_FALSE(told(*each, u"odb.sServerLostBranch_s"));
    }
    ASSERT_OK(copy.commit());
    EXPECT_EQ(server("ls-tree -r --name-only HEAD") + server("rev-list --count HEAD"),
              "new\nnotes/a\nplan\n1\n");
    ASSERT_OK(bob.update());
    EXPECT_EQ(files(bob) + bob.status() + standing(bob), "thirdna2(none)0");
}

// What a host brought of the references alone is tracked, and not here.
TEST_F(BackTest, AResetFetchesWhatItLooksAt) {
    go_back(backup);
    other("later", "l");
    {
        const RepositoryPtr repository = bob.open();
        const Held<Remote, zRemoteFree> remote(zRemoteOpen(repository.get()));
        ASSERT_OK(zRemoteDownloadRefs(remote.get(), nullptr));
    }
    ASSERT_OK(bob.reset({}, {u"new"}));
    EXPECT_TRUE(told(bob, u"odb.sServerWentBack_s_s"));
    EXPECT_EQ(files(bob) + standing(bob), "thirdna2(none)0") << "it is his, and stays";
    ASSERT_OK(bob.update());
    EXPECT_FALSE(told(bob, u"odb.sServerWentBack_s_s")) << "it is told once";
    EXPECT_EQ(files(bob) + bob.at("later"), "thirdna2(none)l");
}

// The ground is a commit like any other: its files can be had, be they selected or not.
TEST_F(StandingTest, WhatTheGroundHoldsIsHere) {
    const Copy second = get("bob"), third = get("ann", "third");
    other("plan", "second");
    const std::string kept = other("notes/a", "a2");
    for (const Copy *each : {&second, &third}) ASSERT_OK(each->update({}, {u"notes"}));
    other("plan", "third");
    for (const Copy *each : {&second, &third}) ASSERT_OK(each->update());
    go_back(kept);
    ASSERT_OK(second.update({}, {u"notes"}));
    ASSERT_OK(third.reset({}, {u"notes"}));
    for (const Copy *each : {&second, &third})
        EXPECT_EQ(each->git("show HEAD:plan") + each->at("plan"), "secondthird");
}

// A list of the server's has first parents only: whether a branch leads to a commit by another one
// is asked for.
TEST_F(StandingTest, TheServersBranchCameTogether) {
    const auto commit_of = [&](const std::string &tree, const std::string &parents) {
        return server("-c user.name=A -c user.email=a commit-tree -m x " + tree + " " + parents)
            .substr(0, 40);
    };
    const std::string tree = start + "^{tree}", newest = other("plan", "second");
    ASSERT_OK(copy.update());
    const std::string one = commit_of(tree, "-p " + start), two = commit_of(tree, "-p " + newest);
    const std::string both = commit_of(tree, "-p " + one + " -p " + two);
    go_back(both);
    relay.give_to("GET /commits?", answer_of(500)); // nobody knows
    EXPECT_EQ(copy.updates(true), "3 plan>plan;");
    EXPECT_EQ(standing(copy), "0");
    relay.play();
    ASSERT_OK(copy.update());
    EXPECT_FALSE(told(copy, u"odb.sServerWentBack_s_s"));
    EXPECT_EQ(copy.at("plan") + copy.status() + standing(copy), "first0");
}

// To a commit of old, and a part of it: that is no loss.
TEST_F(BackTest, WhoGoesBackHimselfLosesNothing) {
    ASSERT_OK(bob.update(backup, {u"plan"}));
    EXPECT_EQ(standing(bob) + bob.at("plan"), "0second");
    ASSERT_OK(bob.update(backup));
    EXPECT_EQ(files(bob) + standing(bob) + bob.status(), "second(none)ab0");
    ASSERT_OK(bob.update());
    EXPECT_EQ(files(bob) + bob.status(), "thirdna2(none)");
    EXPECT_FALSE(bob.update(std::string(40, '1'))); // nobody has it
    EXPECT_EQ(bob.host.ends() + files(bob) + bob.status(), "athirdna2(none)");
}

// ---- Breaks

// Git knows none of our locks. Who commits by it while an operation is at work keeps his commit,
// and what he put the branch back to later is as unsent as before.
TEST_F(StandingTest, WhoeverCommitsMeanwhileKeepsIt) {
    copy.put("own", "o"), copy.git("add own");
    commit_by_git(copy, "own");
    other("notes/a", "a2");
    const auto commit_late = [&](const std::string &path) {
        copy.put(path, "l"), copy.git("add " + path);
        commit_by_git(copy, path);
    };
    copy.host.at_line = [&] {
        if (!copy.host.lines.back().starts_with("info: ") || fs::exists(copy.place / "late"))
            return;
        commit_late("late");
    };
    EXPECT_FALSE(copy.update());
    copy.host.at_line = nullptr;
    EXPECT_EQ(copy.git("log -1 --format=%s") + copy.locks(), "late");
    const std::string late = copy.git("rev-parse HEAD");
    relay.play([&](const Asked &asked, size_t) -> std::optional<std::string> {
        if (asked.line.find("/refs") != std::string::npos && !fs::exists(copy.place / "early"))
            commit_late("early");
        return {};
    });
    EXPECT_FALSE(copy.update()); // what is to be put back knows nothing of it
    EXPECT_EQ(copy.git("log -2 --format=%s") + copy.locks(), "early\nlate");
    relay.play();
    copy.git("reset -q --hard " + late);
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.status() + copy.at("notes/a"), "A  late\nA  owna2");
    copy.git("reset -q --hard " + late);
    EXPECT_EQ(standing(copy).substr(2, 4), "late");
    ASSERT_OK(copy.update());
    EXPECT_EQ(copy.status() + copy.at("notes/a"), "A  late\nA  owna2");

    relay.play([&](const Asked &asked, size_t) -> std::optional<std::string> {
        if (!asked.line.starts_with("POST /trees")) return {};
        commit_late("later");
        return answer_of(500);
    });
    const std::string tracked = copy.git("rev-parse origin/master");
    EXPECT_FALSE(copy.commit());
    EXPECT_EQ(copy.git("log -2 --format=%s") + copy.locks(), "later\nmine");
    EXPECT_EQ(copy.git("rev-parse origin/master"), tracked);
    relay.play();
    ASSERT_OK(copy.commit());
    EXPECT_EQ(server_at("own") + server_at("late") + server_at("later"), "oll");
    EXPECT_EQ(copy.status() + standing(copy), "0");
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
