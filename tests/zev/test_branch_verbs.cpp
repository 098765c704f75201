// Branches, merges, recovery and undo by the program, beside the system's git.
#include "support.hpp"
#include "zev_program.hpp"

#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;

struct BranchVerbs : CopyTest {
    void SetUp() override {
        CopyTest::SetUp();
        write("a", "a1");
        write("b", "b1");
        write("d/c", "c1");
        play("add .; commit -m first");
    }
    void commit(const std::string &name, const std::string &text) {
        write(name, text);
        ok("add " + name);
        ok("commit -m '" + name + " " + text + "' " + name);
    }
    // What a killed command leaves: the copy of a file from before it began.
    void leave_copy(const std::string &path, mode_t mode = 0600) {
        const fs::path file = root + "/.git/" + path;
        const fs::path copy = file.parent_path() / ("." + file.filename().string() + ".zlck");
        fs::remove(copy);
        fs::copy_file(file, copy);
        chmod(copy.c_str(), mode);
        // HEAD came before, also where the clock of files has not moved on.
        const auto before = fs::file_time_type::clock::now() - std::chrono::hours(1);
        for (const char *head : {"/.git/HEAD", "/.git/refs/heads/master", "/.git/refs/heads/w",
                                 "/.git/worktrees/w/HEAD"})
            if (fs::exists(root + head)) fs::last_write_time(root + head, before);
    }
};

TEST_F(BranchVerbs, SwitchTakesLocalWorkAlong) {
    ok("switch -c side");
    commit("a", "a2");
    commit("n", "n1");
    ok("switch master");
    EXPECT_EQ(content("a") + content("n"), "a1(none)");
    write("b", "mine"); // not staged
    write("s", "staged");
    play("add s; switch side");
    EXPECT_EQ(content("a") + content("n") + content("b"), "a2n1mine");
    EXPECT_EQ(git("status --short"), " M b\nA  s\n");
    // Changed on both sides: nothing is lost, HEAD moves, and it is to be decided.
    write("a", "mine too");
    EXPECT_EQ(code("switch master"), 4);
    EXPECT_EQ(git("symbolic-ref HEAD"), "refs/heads/master\n");
    EXPECT_EQ(content("a"), "mine too");
    EXPECT_EQ(code("switch side"), 4); // not with conflicts
    EXPECT_EQ(code("switch --force side"), 6);
    EXPECT_EQ(content("a"), "mine too");
    ok("--yes switch --force side");
    EXPECT_EQ(content("a") + content("b") + content("s"), "a2b1(none)");
    EXPECT_EQ(git("status --short"), "");
    EXPECT_EQ(zev(root, "--yes undo 2>/dev/null").code, 0);
    EXPECT_EQ(content("a") + content("b") + content("s"), "mine toominestaged");
    EXPECT_EQ(code("undo"), 3);
    EXPECT_EQ(git("for-each-ref refs/zev"), "");
}

TEST_F(BranchVerbs, AnOldStateIsLookedAt) {
    commit("a", "a2");
    commit("n", "n1");
    const std::string names = git("for-each-ref"), first = git("rev-parse HEAD~2");
    write("b", "mine");
    write("s", "staged");
    ok("add s");
    EXPECT_NE(ok("switch HEAD~2").find("\"zev switch master\" goes back"), std::string::npos);
    EXPECT_EQ(content("a") + content("n") + content("b"), "a1(none)mine"); // mine comes along
    EXPECT_EQ(git("rev-parse HEAD") + git("symbolic-ref -q HEAD"), first);
    EXPECT_EQ(out("status --short") + git("status --short"), " M b\nA  s\n M b\nA  s\n");
    for (const char *look : {"status", "status --short", "branch"})
        EXPECT_NE(ok(look).find("and on no branch: \"zev switch master\""), std::string::npos);
    // Nothing is made there that nobody would find again.
    for (const char *verb : {"commit -m lost", "commit -m lost b", "commit --amend -m lost",
                             "commit --all -m lost", "merge master"})
        EXPECT_EQ(code(verb), 1) << verb;
    EXPECT_EQ(git("rev-parse HEAD") + git("for-each-ref"), first + names);
    ok("switch master");
    EXPECT_EQ(content("a") + content("n") + content("b"), "a2n1mine");
    EXPECT_EQ(git("symbolic-ref HEAD") + git("for-each-ref"), "refs/heads/master\n" + names);
    EXPECT_EQ(git("status --short") + git("rev-list --count --all"), " M b\nA  s\n3\n");
    // What would be lost is asked about, there and back; untracked files, too.
    write("a", "mine too");
    for (const char *answer : {"", " --no", " --json", " --answer 2"}) {
        EXPECT_EQ(code(std::string("switch HEAD~2") + answer), 6) << answer;
        EXPECT_EQ(content("a") + git("symbolic-ref HEAD"), "mine too"
                                                           "refs/heads/master\n");
    }
    ok("--yes switch HEAD~2");
    EXPECT_EQ(content("a") + content("b"), "a1mine");
    write("n", "in the way");
    EXPECT_EQ(code("switch master"), 6);
    EXPECT_EQ(content("n") + git("rev-parse HEAD"), "in the way" + first);
    ok("--yes switch master");
    EXPECT_EQ(content("a") + content("n"), "a2n1");
    play("--yes undo; --yes undo");
    EXPECT_EQ(content("a") + content("n"), "mine tooin the way");
    git("reset -q --hard");
    ok("rm a");
    EXPECT_EQ(code("switch HEAD~2"), 6);
    EXPECT_EQ(out("status --short"), "D  a\n");
    ok("--yes switch HEAD~2");
    EXPECT_EQ(content("a") + git("status --short"), "a1");
}

TEST_F(BranchVerbs, WhatIsDoneOnNoBranchIsKept) {
    commit("a", "a2");
    ok("switch HEAD~1");
    write("b", "b2");
    EXPECT_NE(both("commit -m lost b").out.find("zev switch --create NAME"), std::string::npos);
    play("switch -c old; commit -m kept b; switch master");
    EXPECT_EQ(git("log --format=%s old") + content("b"), "kept\nfirst\nb1");
    // One that git made is not left without a word.
    git("checkout -q --detach");
    write("b", "b3");
    git("commit -qam alone");
    const std::string alone = git("rev-parse HEAD");
    for (const char *target : {"master", "master~1", "old"})
        EXPECT_EQ(code(std::string("switch ") + target), 6) << target;
    EXPECT_EQ(git("rev-parse HEAD"), alone);
    play("tag alone; switch master");
    EXPECT_NE(ok("switch HEAD").find("nothing to do"), std::string::npos);
    ok("switch alone");
    for (const char *here : {"alone", "HEAD"})
        EXPECT_NE(ok(std::string("switch ") + here).find("nothing to do"), std::string::npos);
    EXPECT_EQ(git("rev-parse HEAD") + content("b"), alone + "b3");
    ok("verify");
    EXPECT_EQ(git("fsck --strict --no-dangling") + git("for-each-ref refs/zev"), "");
}

TEST_F(BranchVerbs, APendingMergeIsTold) {
    ok("switch -c side");
    commit("a", "theirs");
    commit("b", "theirs");
    ok("switch master");
    commit("a", "ours");
    EXPECT_EQ(code("merge side"), 4);
    const std::string id = git("rev-parse side").substr(0, 8);
    const std::string told = "the merge of " + id + " is not committed yet: ";
    const auto tells = [](const std::string &text, const std::string &part) {
        return text.find(part) != text.npos;
    };
    EXPECT_TRUE(tells(ok("status"), told + "\"zev resolve\" settles"));
    EXPECT_TRUE(tells(ok("status d"), told)); // whatever else is asked for
    EXPECT_TRUE(tells(out("status --json"), "\"type\":\"merging\""));
    EXPECT_FALSE(tells(out("status --short"), told)); // which is for programs
    EXPECT_TRUE(tells(ok("status --short"), told));
    EXPECT_FALSE(tells(both("commit -m early").out, "ends the merge"));
    ok("resolve --mine a");
    EXPECT_TRUE(tells(ok("status"), told + "\"zev commit\" ends it"));
    write("d/c", "c2");
    const std::string part = ok("commit -m part d/c");
    EXPECT_TRUE(tells(part, told) && !tells(part, "ends the merge")) << part;
    EXPECT_EQ(ok("commit -m settled").find("this commit ends the merge of " + id + "\n"), 0u);
    EXPECT_EQ(ok("status"), "nothing has changed\n");
}

TEST_F(BranchVerbs, MergeBringsTheirsAndKeepsOurs) {
    ok("switch -c side");
    commit("a", "a2");
    commit("n", "n1");
    ok("switch master");
    commit("b", "b2");
    write("d/c", "mine"); // of no concern to the merge
    ok("merge side");
    EXPECT_EQ(content("a") + content("b") + content("n"), "a2b2n1");
    EXPECT_EQ(git("status --short"), " M d/c\n");
    EXPECT_EQ(git("show -s --format=%an:%s HEAD"), "Ada:Merge side\n");
    EXPECT_EQ(git("rev-parse HEAD^2"), git("rev-parse side"));
    EXPECT_NE(ok("merge side").find("nothing to do"), std::string::npos);
    // What was merged counts as common from then on, in both directions.
    play("revert d/c; switch side");
    commit("a", "a3");
    play("switch master; merge side");
    EXPECT_EQ(content("a"), "a3");
    play("switch side; merge master");
    EXPECT_EQ(content("b") + git("diff master side"), "b2");
    EXPECT_EQ(git("rev-parse side"), git("rev-parse master")); // it had nothing of its own
    EXPECT_EQ(git("fsck --strict --no-dangling"), "");
}

// A file that another program has open stays as it is, and one whose content isn't here.
TEST_F(BranchVerbs, WhatComesInPartlyIsNotTakenForWhole) {
    const auto hold = [&](const char16_t *name) {
        return test::guard(zShareOpen((dir / name).c_str(), u"r+b", Z_SHARE_NONE), zShareClose);
    };
    ok("switch -c side");
    for (const char *name : {"a", "b", "d/c"}) write(name, std::string("theirs ") + name);
    play("commit -m theirs a b d/c; switch master");
    const std::string head = git("rev-parse HEAD");
    const std::string id = git("rev-parse side:b"), away = home + "/away";
    const std::string object = root + "/.git/objects/" + id.substr(0, 2) + "/" + id.substr(2, 38);
    write("a", "mine");
    for (const std::string verb : {"switch side", "merge side", "switch side ", "merge side "}) {
        auto held = hold(u"copy/b");
        if (verb.ends_with(' ')) held.reset(), fs::rename(object, away);
        EXPECT_EQ(code(verb), 1) << verb;
        EXPECT_EQ(content("a") + content("b") + content("d/c"), "mineb1c1");
        EXPECT_EQ(git("status --short"), " M a\n");
        EXPECT_EQ(git("symbolic-ref HEAD") + git("rev-parse HEAD"), "refs/heads/master\n" + head);
        if (!held) fs::rename(away, object);
    }
    ok("commit -m ours a");
    fs::rename(object, away);
    EXPECT_NE(zev(root, "merge side --json").out.find("\"left\":1"), std::string::npos);
    fs::rename(away, object);
    play("resolve --mine a; commit -m settled");
    EXPECT_EQ(content("a") + content("b") + content("d/c"), "mineb1theirs d/c");
    EXPECT_EQ(git("show -s --format=%P").size(), 41u); // one parent
    EXPECT_EQ(code("merge side"), 4);                  // a once more, and b
    play("resolve --mine a; commit -m whole");
    EXPECT_EQ(content("a") + content("b"), "minetheirs b");
    EXPECT_EQ(git("rev-parse HEAD^2"), git("rev-parse side"));
}

TEST_F(BranchVerbs, MergeRefusesWhatItWouldCommitAlong) {
    ok("switch -c side");
    commit("a", "a2");
    commit("n", "n1");
    ok("switch master");
    commit("b", "b2");
    const std::string head = git("rev-parse HEAD");
    const auto refused = [&](const char *name, const char *text, bool add) {
        write(name, text);
        if (add) ok(std::string("add ") + name);
        EXPECT_EQ(code("merge side"), 1) << name;
        EXPECT_EQ(content(name), text);
        EXPECT_EQ(git("rev-parse HEAD"), head);
    };
    refused("d/c", "staged", true);
    ok("revert d/c");
    refused("a", "mine", false);
    ok("revert a");
    refused("n", "in the way", false);
    // What a merge that was killed left is no obstacle.
    write("n", "n1");
    write("a", "a2");
    play("add a; merge side");
    EXPECT_EQ(git("status --short"), "");
}

TEST_F(BranchVerbs, AConflictIsNotedAsMergedOnceItIsSettled) {
    ok("switch -c side");
    commit("a", "theirs");
    ok("switch master");
    commit("a", "ours");
    EXPECT_EQ(code("merge side"), 4);
    EXPECT_EQ(code("merge side"), 4);
    // Given up as a whole it isn't.
    ok("revert --all");
    EXPECT_EQ(content("a"), "ours");
    EXPECT_FALSE(fs::exists(root + "/.git/MERGE_HEAD"));
    EXPECT_EQ(code("merge side"), 4);
    ok("resolve --mine a"); // nothing changes, and yet it is to be committed
    EXPECT_EQ(code("switch side"), 1);
    ok("commit -m settled");
    EXPECT_FALSE(fs::exists(root + "/.git/MERGE_HEAD"));
    EXPECT_NE(ok("merge side").find("nothing to do"), std::string::npos);
    EXPECT_EQ(content("a"), "ours");
}

TEST_F(BranchVerbs, BranchesAreMadeAndDeleted) {
    ok("branch side");
    EXPECT_EQ(code("branch side"), 1);
    EXPECT_EQ(code("branch 'no name'"), 1);
    EXPECT_EQ(code("branch --delete master"), 2);
    EXPECT_EQ(code("branch --delete nosuch"), 3);
    git("pack-refs --all");
    ok("branch --delete side"); // master has its commits
    EXPECT_EQ(git("for-each-ref --format='%(refname)'"), "refs/heads/master\n");
    ok("switch -c lone");
    commit("a", "a2");
    ok("switch master");
    EXPECT_EQ(code("branch --delete lone"), 6);
    ok("--yes branch --delete lone");
}

TEST_F(BranchVerbs, CopiesThatGitMade) {
    commit("a", "a2");
    commit("a", "a3");
    git("branch far");
    git("clone -q --depth 2 'file://" + root + "' ../shallow");
    git("clone -q --bare . ../bare");
    git("clone -q . ../near");
    const auto code_in = [&](const char *where, const std::string &arguments) {
        return zev(home + "/" + where, arguments + " >/dev/null 2>&1").code;
    };
    for (const char *arguments : {"log --changes", "log -- a", "show HEAD~1", "merge HEAD~1"})
        EXPECT_EQ(code_in("shallow", arguments), 0) << arguments;
    EXPECT_EQ(code_in("shallow", "log HEAD~2"), 3);
    EXPECT_EQ(code_in("bare", "log"), 1);
    EXPECT_EQ(code_in("near", "switch far"), 6); // nobody says that it may be made
    EXPECT_EQ(code_in("near", "--yes switch far"), 0);
    EXPECT_EQ(code_in("near", "switch master"), 0);
    git("checkout -q --detach HEAD~1");
    ok("switch far~2");
    EXPECT_EQ(content("a"), "a1");
    ok("switch master");
    EXPECT_EQ(content("a"), "a3");
}

TEST_F(BranchVerbs, RecoveryGoesBackOnlyWhereNobodyHasGoneOn) {
    const std::string index = test::read(root + "/.git/index");
    write("x", "x");
    leave_copy("index");
    git("add x");
    leave_copy("HEAD", 0700);
    EXPECT_NE(ok("mkdir one").find("cut short"), std::string::npos);
    EXPECT_EQ(git("status --short"), "A  one/.gitkeep\n?? x\n");
    EXPECT_FALSE(fs::exists(root + "/.git/.index.zlck"));
    ok("commit -m one");
    // An incomplete copy tells nothing.
    leave_copy("index", 0700);
    git("add x");
    ok("mkdir two");
    EXPECT_EQ(git("status --short"), "A  two/.gitkeep\nA  x\n");
    // Git has committed since.
    leave_copy("index");
    git("commit -qm by-git");
    EXPECT_NE(ok("mkdir three").find("gone on"), std::string::npos);
    EXPECT_EQ(git("status --short"), "A  three/.gitkeep\n");
    // A killed checkout: index and branch go back together, unless git went on.
    const std::string before = git("rev-parse HEAD");
    for (const bool goes_on : {false, true}) {
        ok("revert --all");
        leave_copy("index");
        leave_copy("refs/heads/master");
        git("-c user.name=remote commit -q --allow-empty -m MERGE");
        if (goes_on) git("commit -q --allow-empty -m more");
        ok("mkdir four");
        EXPECT_EQ(git("rev-parse HEAD") == before, !goes_on);
        EXPECT_FALSE(fs::exists(root + "/.git/refs/heads/.master.zlck"));
    }
}

TEST_F(BranchVerbs, RecoverySeesACommitOfGitWhereverItsBranchLies) {
    git("worktree add -q ../w");
    const struct {
        const char *where, *index, *then;
    } cases[] = {{"copy", "index", "pack-refs --all"}, {"w", "worktrees/w/index", "status"}};
    for (const auto &[where, index, then] : cases) {
        const std::string place = home + "/" + where, in = "-C " + place + " ";
        git(in + "commit -q --allow-empty -m before");
        leave_copy(index);
        git(in + "commit -q --allow-empty -m by-git");
        git(in + then);
        EXPECT_NE(zev(place, "mkdir new 2>&1").out.find("gone on"), std::string::npos) << where;
        EXPECT_EQ(git(in + "log -1 --format=%s"), "by-git\n");
    }
}

TEST_F(BranchVerbs, RecoveryComparesTimesToTheNanosecond) {
    using namespace std::chrono;
    const auto second = time_point_cast<seconds>(fs::file_time_type::clock::now());
    const fs::file_time_type began = second + milliseconds(500);
    for (const nanoseconds since :
         {-1'000'000'000ns + 1ns, -1ns, 0ns, 1ns, 1'000'000'000ns - 1ns}) {
        leave_copy("index");
        fs::last_write_time(root + "/.git/.index.zlck", began);
        fs::last_write_time(root + "/.git/refs/heads/master", began + since);
        const std::string told = ok("mkdir new" + std::to_string(since.count()));
        EXPECT_EQ(told.find("cut short; index") != told.npos, since < 0ns) << since.count();
    }
}

TEST_F(BranchVerbs, CleanupAndUndo) {
    write("u", "untracked");
    write("e/v", "also");
    write(".git/info/exclude", "*.bak\n");
    write("i.bak", "ignored");
    for (const char *repairs : {"cleanup", "cleanup --keep-untracked"}) {
        EXPECT_EQ(ok(repairs), "the working copy is in order\n");
        EXPECT_EQ(content("u"), "untracked");
    }
    EXPECT_EQ(code("cleanup --untracked"), 6); // nobody to ask
    EXPECT_EQ(code("--no cleanup --untracked"), 6);
    EXPECT_EQ(content("u"), "untracked");
    ok("cleanup --untracked --yes");
    EXPECT_EQ(content("u") + content("e/v") + content("i.bak"), "(none)(none)ignored");
    ok("rm a");
    ok("undo"); // of rm alone
    EXPECT_EQ(content("a") + content("u"), "a1(none)");
    EXPECT_EQ(lines(ok("undo --list")).at(0).substr(16), "  rm        1 item, undone");
    ok("undo"); // and of what was before it
    EXPECT_EQ(content("a") + content("u") + content("e/v"), "a1untrackedalso");
    EXPECT_EQ(code("undo"), 3);
    ok("add --undo"); // what comes back is to be committed
    fs::remove_all(root + "/e");
    write("u", "again");
    ok("rm a");
    EXPECT_EQ(code("cleanup --purge"), 6);
    EXPECT_EQ(code("--no cleanup --purge"), 6);
    ok("--yes cleanup --purge"); // of the trash alone
    EXPECT_EQ(content("u"), "again");
    EXPECT_EQ(code("--no cleanup --untracked --purge"), 6);
    ok("--yes cleanup --untracked --purge");
    EXPECT_EQ(content("u") + content("i.bak"), "(none)ignored");
    EXPECT_EQ(ok("trash list"), "the trash is empty\n");
}

} // namespace
