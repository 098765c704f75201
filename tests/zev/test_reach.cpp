// What people of other systems reach for first, at odd moments.
#include "support.hpp"
#include "zev_program.hpp"

namespace {

namespace fs = std::filesystem;

struct Reach : CopyTest {
    void SetUp() override {
        CopyTest::SetUp();
        keep({"a", "b", "d/c"}, "first");
    }
};

TEST_F(Reach, AddIsUndone) {
    EXPECT_EQ(code("add --undo"), 3); // nothing is
    EXPECT_EQ(code("add"), 2);
    write("a", "a2");
    write("new/x", "x");
    ok("add .");
    write("a", "a3"); // changed once more: this stays, too
    play("mv b moved; rm d");
    EXPECT_EQ(code("add --undo nowhere"), 3);
    EXPECT_EQ(ok("add --undo new a"), "Unstaged   new/\nUnstaged   new/x\nUnstaged   a\n");
    EXPECT_EQ(content("a") + content("new/x"), "a3x");
    EXPECT_EQ(git("status --short"), " M a\nD  d/.gitkeep\nD  d/c\nR  b -> moved\n?? new/\n");
    ok("add --undo b"); // one side of a rename
    EXPECT_EQ(git("status --short"), " M a\n D b\nD  d/.gitkeep\nD  d/c\nA  moved\n?? new/\n");
    ok("add --undo");
    EXPECT_EQ(git("diff --cached --name-only"), "");
    EXPECT_EQ(content("moved"), "first b");
    EXPECT_EQ(code("commit -m nothing"), 3);
}

TEST_F(Reach, AddIsUndoneBeforeTheFirstCommitAndInAMerge) {
    ASSERT_EQ(zev(home, "init fresh").code, 0);
    test::write(home + "/fresh/x", "x");
    EXPECT_EQ(zev(home + "/fresh", "add x").code, 0);
    EXPECT_EQ(zev(home + "/fresh", "add --undo x").code, 0);
    EXPECT_EQ(zev(home + "/fresh", "status --short").out, "?? x\n");
    ok("switch -c side");
    keep({"a", "theirs"}, "side");
    ok("switch master");
    keep({"a"}, "ours");
    EXPECT_EQ(code("merge side"), 4);
    const std::string said = both("add --undo").out; // the conflict is no mark
    EXPECT_NE(said.find("Unstaged   theirs"), said.npos) << said;
    EXPECT_NE(said.find("a: is in conflict"), said.npos) << said;
    EXPECT_NE(said.find("a merge is not committed yet"), said.npos) << said;
    EXPECT_EQ(git("status --short"), "UU a\n?? theirs\n");
}

TEST_F(Reach, CommitTakesAllThatIsTracked) {
    EXPECT_EQ(code("commit --all -m none"), 3);
    EXPECT_EQ(code("commit --all -m both a"), 2);
    write("a", "a2");
    fs::remove(root + "/b");
    write("added", "added");
    write("loose", "loose");
    ok("add added");
    ok("-C d commit --all -m second"); // wherever one stands
    EXPECT_EQ(git("show --name-status --format= HEAD"), "M\ta\nA\tadded\nD\tb\n");
    EXPECT_EQ(git("status --short"), "?? loose\n");
}

TEST_F(Reach, CommitOfAllEndsAMerge) {
    ok("switch -c side");
    keep({"a", "theirs"}, "side");
    ok("switch master");
    keep({"a"}, "ours");
    EXPECT_EQ(code("merge side"), 4);
    EXPECT_EQ(code("commit --all -m early"), 4); // what is not decided is not taken
    ok("resolve --mine a");
    write("b", "by the way");
    ok("commit --all -m together");
    EXPECT_EQ(git("show HEAD:b"), "by the way");
    EXPECT_EQ(lines(git("rev-list --parents -1 HEAD"))[0].size(), 3 * 41 - 1);
    EXPECT_EQ(git("rev-parse -q --verify MERGE_HEAD"), "");
}

// An environment without a name, and a home of its own, while it lives.
struct Nobody {
    explicit Nobody(const std::string &home) : before(getenv("HOME") ? getenv("HOME") : "") {
        setenv("HOME", home.c_str(), 1);
        setenv("ZEV_TEST_AUTHOR", "", 1);
        setenv("LOGNAME", "somebody", 1);
    }
    ~Nobody() {
        setenv("HOME", before.c_str(), 1);
        unsetenv("ZEV_TEST_AUTHOR");
    }
    std::string before;
};

TEST_F(Reach, WhoeverCommitsIsAskedOnce) {
    const Nobody nobody(home);
    int n = 0;
    std::string said;
    const auto author_of = [&](const std::string &commit) {
        write("a", std::to_string(++n));
        said = ok(commit + " a");
        return git("log -1 --format=%an");
    };
    EXPECT_EQ(author_of("commit -m script"), "somebody\n"); // nobody to ask
    EXPECT_NE(said.find("by \"somebody\", as you are logged in"), said.npos) << said;
    write("a", "asked");
    said = zev_on_terminal(root, "commit -m asked a", " Ann Lee <ann@x>\n").out;
    EXPECT_NE(said.find("Who are you?"), said.npos) << said;
    EXPECT_EQ(git("log -1 --format=%an:%s"), "Ann Lee:asked\n");
    EXPECT_EQ(author_of("commit -m kept"), "Ann Lee\n");
    EXPECT_EQ(said.find("warning"), said.npos);
    // Of git, in a file that is a link.
    fs::remove(home + "/.gitconfig");
    test::write(home + "/dotfile", "[user]\n\tname = Git Name\n");
    fs::create_symlink(home + "/dotfile", home + "/.gitconfig");
    EXPECT_EQ(author_of("commit -m git"), "Git Name\n");
    setenv("ZEV_TEST_AUTHOR", "Env", 1);
    EXPECT_EQ(author_of("commit -m env"), "Env\n");
    ok("config zev.author Settings");
    EXPECT_EQ(author_of("commit -m settings"), "Settings\n");
    EXPECT_EQ(author_of("commit --author Given -m given"), "Given\n");
}

TEST_F(Reach, SettingsThatNobodyReadsAreRefused) {
    const std::string said = both("config zev.autor Ada").out;
    EXPECT_NE(said.find("is it zev.author?"), said.npos) << said;
    EXPECT_EQ(code("config core.editor vi"), 2);
    EXPECT_EQ(code("config nonsense"), 2);
    git("config core.editor vi"); // looked at and taken away
    EXPECT_EQ(ok("config core.editor"), "vi\n");
    ok("config --unset core.editor");
    EXPECT_EQ(code("config --unset"), 2);
    ok("config Branch.master.REMOTE elsewhere");
    const std::string list = ok("config");
    EXPECT_NE(list.find("branch.master.remote    elsewhere"), list.npos) << list;
    EXPECT_NE(list.find("zev.author              (not set)"), list.npos) << list;
}

TEST_F(Reach, UndoGoesBackStepByStep) {
    for (int i = 0; i < 22; ++i) {
        write("a", std::to_string(i));
        ok("revert a");
    }
    EXPECT_EQ(lines(ok("undo --list")).size(), 20u);
    ok("undo --yes");
    EXPECT_EQ(content("a"), "21");
    for (const char *answer : {"", " --no", " --answer Skip", " --json"})
        EXPECT_EQ(code(std::string("undo") + answer), 6) << answer; // who says that 21 may go?
    EXPECT_EQ(content("a"), "21");
    ok("undo --yes"); // the same one, with an answer
    EXPECT_EQ(content("a"), "20");
    play("rm b; trash purge --all --yes");
    EXPECT_EQ(code("undo"), 1);
    const std::string list = ok("undo --list");
    EXPECT_NE(lines(list)[0].find("rm        1 item, undone"), list.npos) << list;
    // Of the form before, of no use, and of somebody else's making.
    const std::string journal = root + "/.git/zev-journal";
    write("a", "mine");
    ok("rm a");
    std::string text = test::read(journal);
    const size_t last = text.rfind("{");
    test::write(journal, text.substr(last, text.rfind("}]") + 1 - last));
    ok("undo");
    EXPECT_EQ(content("a"), "mine");
    for (const char *odd : {"", "[]", "{\"commands\":5}", "{\"commands\":[1,{\"slots\":7}]}"}) {
        test::write(journal, odd);
        EXPECT_EQ(code("undo"), 3) << odd;
        EXPECT_EQ(code("undo --list"), 0) << odd;
    }
    play("rm d; undo");
    EXPECT_EQ(content("d/c"), "first d/c");
}

TEST_F(Reach, DrawingsAreExportedIntoADirectory) {
    const std::string plan = test_data("plan.dxf"), changed = plan_with("13.5");
    ok("mkdir halls");
    draw(plan);
    draw(plan, "halls/north.dwx");
    play("add .; commit -m drawings");
    draw(changed, "halls/north.dwx");
    draw(changed, "loose.dwx");
    const auto sent = [&](const std::string &name) {
        return fs::exists(home + "/" + name) ? test::read(home + "/" + name) : "(none)";
    };
    ok("export plan.dwx halls/north.dwx ../two");
    EXPECT_EQ(sent("two/plan.dxf") + sent("two/north.dxf"), plan + changed);
    ok("export . ../all"); // also what nobody added
    EXPECT_EQ(sent("all/plan.dxf") + sent("all/halls/north.dxf") + sent("all/loose.dxf"),
              plan + changed + changed);
    EXPECT_EQ(sent("all/a"), "(none)");
    ok("-C halls export .. ../../old --rev HEAD --files");
    EXPECT_EQ(sent("old/halls/north.dxf") + sent("old/loose.dxf"), plan + "(none)");
    EXPECT_EQ(sent("old/d/c") + sent("old/d/.gitkeep"), "first d/c(none)");
    ok("export 'ha*.dwx' ../some");
    EXPECT_EQ(sent("some/north.dxf"), changed);
    ok("-C halls export ../halls"); // beside it
    EXPECT_EQ(content("halls/north.dxf"), changed);
    // One that fails holds up no other, what is named wrongly all of them.
    write("broken.dwx", "no drawing");
    EXPECT_EQ(code("export . ../rest"), 1);
    EXPECT_EQ(sent("rest/plan.dxf") + sent("rest/broken.dxf"), plan + "(none)");
    EXPECT_EQ(code("export . ../rest --no"), 1); // each is there, but the broken one
    fs::remove(root + "/broken.dwx");
    EXPECT_EQ(code("export . ../rest --no"), 6);
    for (const char *answer : {"", " --no", " --answer Keep", " --json"})
        EXPECT_EQ(code(std::string("export plan.dwx ../rest/plan.dxf") + answer), 6) << answer;
    EXPECT_EQ(sent("rest/plan.dxf"), plan);
    for (const char *wrong : {"plan.dwx nowhere.dwx ../none", "plan.dwx a ../none",
                              "plan.dwx loose.dwx -", "d ../none", "plan.dwx plan.dwx ../none",
                              "loose.dwx ../none --rev HEAD", "plan.dwx loose.dwx ../in.dxf"})
        EXPECT_GE(code("export " + std::string(wrong)), 2) << wrong;
    EXPECT_FALSE(fs::exists(home + "/none"));
}

TEST_F(Reach, TextsAreComparedAsGitDoes) {
    // Against git's own, over texts that share much and little.
    unsigned state = 7;
    const auto chance = [&](unsigned below) {
        return (state = state * 1103515245 + 12345) / 65536 % below;
    };
    for (int round = 0; round < 40; ++round) {
        std::vector<std::string> text{"begin"}; // an empty file is one that git makes or removes
        for (unsigned i = chance(60); i; --i) text.push_back("line " + std::to_string(chance(9)));
        const auto joined = [&] {
            std::string all;
            for (const std::string &line : text) all += line + "\n";
            return all;
        };
        write("t", joined());
        git("add t");
        git("commit -qm t");
        for (unsigned i = chance(12); i; --i) {
            const auto at = text.begin() + 1 +
                            static_cast<std::ptrdiff_t>(chance(static_cast<unsigned>(text.size())));
            if (chance(2) || at == text.end())
                text.insert(at, "new " + std::to_string(chance(5)));
            else
                text.erase(at);
        }
        const std::string now = joined();
        write("t", now);
        const std::vector<std::string> said = lines(ok("diff t"));
        std::string patch = "--- a/t\n+++ b/t\n";
        for (size_t i = 0; i + 1 < said.size(); ++i) patch += said[i] + "\n";
        const std::string numbers = git("diff --numstat --minimal t");
        const std::string added = numbers.substr(0, numbers.find('\t'));
        EXPECT_EQ(said.back().substr(0, said.back().find(' ')), added.empty() ? "0" : added);
        git("checkout -q t");
        if (said.size() > 1) {
            test::write(home + "/patch", patch);
            EXPECT_EQ(git("apply ../patch"), "") << patch;
        }
        EXPECT_EQ(content("t"), now);
    }
}

TEST_F(Reach, TextsOfAllSorts) {
    write("a", "one\r\ntwo\r\n");
    ok("commit --all -m returns");
    write("a", "one\ntwo");
    EXPECT_EQ(ok("diff a"), "@@ -1,2 +1,2 @@\n-one^M\n-two^M\n+one\n+two\n"
                            "\\ No newline at end of file\n2 lines added, 2 removed\n");
    EXPECT_EQ(ok("diff a HEAD~1 HEAD"),
              "@@ -1 +1,2 @@\n-first a\n\\ No newline at end of file\n+one^M\n+two^M\n"
              "2 lines added, 1 removed\n");
    write("b", std::string("zero\0", 5));
    write("new", "new\n");
    EXPECT_EQ(ok("diff new --stat"), "1 line added, 0 removed\n");
    const std::string all = ok("diff");
    EXPECT_NE(all.find("b\nno text: 7 Bytes -> 5 Bytes"), all.npos) << all;
    EXPECT_EQ(ok("diff b HEAD HEAD"), "0 lines added, 0 removed\n");
    fs::remove(root + "/b");
    EXPECT_EQ(ok("diff b"), "@@ -1 +0,0 @@\n-first b\n\\ No newline at end of file\n"
                            "0 lines added, 1 removed\n");
    EXPECT_EQ(code("diff nowhere"), 3);
    EXPECT_EQ(code("diff d"), 2);
    std::string much, other; // nothing in common but their ends
    for (int i = 0; i < 30000; ++i)
        much += std::to_string(i) + "\n", other += "x" + std::to_string(i) + "\n";
    write("c", "begin\n" + much + "end\n");
    play("add c; commit -m much");
    write("c", "begin\n" + other + "end\n");
    EXPECT_EQ(ok("diff c --brief"), "30000 lines added, 30000 removed\n");
}

TEST_F(Reach, TagsNameCommitsForGood) {
    EXPECT_EQ(ok("tag"), "there are no tags; \"zev tag NAME\" makes one\n");
    ok("tag sent");
    keep({"a"}, "second");
    EXPECT_EQ(code("tag sent"), 1); // it stays where it is
    git("tag -a -m words noted HEAD");
    git("branch noted-too");
    git("tag sent/not HEAD^{tree}"); // no commit
    for (const char *wrong : {"HEAD", "x~1", "a..b", "-x", "master", "'a b'", "x.lock"})
        EXPECT_NE(code("tag -- " + std::string(wrong)), 0) << wrong;
    EXPECT_EQ(code("tag later nowhere"), 3);
    EXPECT_EQ(out("cat sent:a"), "first a");
    EXPECT_EQ(out("cat noted:a"), "second a");
    EXPECT_EQ(out("cat noted~1:a"), "first a");
    EXPECT_EQ(git("rev-parse sent"), git("rev-parse HEAD~1"));
    const std::vector<std::string> list = lines(ok("tag"));
    ASSERT_EQ(list.size(), 2u); // a name can't be a directory of names
    EXPECT_EQ(list[0].substr(0, 7) + list[1].substr(list[1].size() - 5), "noted  first");
    git("pack-refs --all");
    ok("tag --delete sent");
    EXPECT_EQ(git("tag"), "noted\n");
    EXPECT_EQ(code("tag --delete sent"), 3);
    EXPECT_EQ(git("fsck --strict --no-dangling"), "");
}

TEST_F(Reach, AMergeIsTakenBack) {
    EXPECT_EQ(code("merge --abort"), 3);
    EXPECT_EQ(code("merge"), 2);
    ok("switch -c side");
    keep({"a", "b", "e/new"}, "side");
    play("rm d; commit -m gone; switch master");
    keep({"a"}, "ours");
    write("loose", "loose");
    EXPECT_EQ(code("merge side -m unused"), 4);
    write("e/new", "work on theirs");
    write("a", "half decided");
    ok("merge --abort");
    EXPECT_EQ(git("status --short"), "?? loose\n");
    EXPECT_EQ(content("a") + content("b") + content("d/c"), "ours afirst bfirst d/c");
    EXPECT_EQ(code("merge --abort"), 3);
    const std::string trash = ok("trash list"); // what was done meanwhile is there
    EXPECT_NE(trash.find("  e/new"), trash.npos) << trash;
    // Settled and not committed; and begun by git. What it was to say goes with it.
    EXPECT_EQ(code("merge side -m words"), 4);
    ok("resolve --theirs a");
    EXPECT_EQ(code("merge side"), 1);
    ok("merge --abort");
    EXPECT_EQ(content("a"), "ours a");
    git("merge side");
    ok("merge --abort");
    EXPECT_EQ(git("status --short"), "?? loose\n");
    EXPECT_EQ(git("rev-parse -q --verify MERGE_HEAD"), "");
    EXPECT_EQ(content("a") + content("e/new"), "ours a(none)");
    EXPECT_EQ(code("merge side"), 4);
    ok("resolve --mine a");
    ok("commit");
    EXPECT_EQ(git("log -1 --format=%s"), "Merge side\n");
    EXPECT_EQ(code("commit"), 2);
}

TEST_F(Reach, TheLastCommitIsMadeAnew) {
    const auto log = [&] { return git("log --format=%an:%s"); };
    EXPECT_EQ(code("commit"), 2); // what was done?
    EXPECT_EQ(code("commit --amend"), 3);
    ok("commit --amend -m begin"); // one without a parent
    EXPECT_EQ(log(), "Ada:begin\n");
    keep({"a", "b"}, "second");
    write("a", "a2");
    write("new", "new");
    write("c", "staged");
    ok("add c");
    ok("commit --amend --author Ben a new"); // not c
    EXPECT_EQ(log(), "Ben:second\nAda:begin\n");
    EXPECT_EQ(git("status --short"), "A  c\n");
    EXPECT_EQ(git("show --name-only --format= HEAD"), "a\nb\nnew\n");
    EXPECT_EQ(code("commit --amend -m x b"), 3); // which is as it was
    ok("commit --amend");
    EXPECT_EQ(git("status --short"), "");
    ok("commit --amend --all -m words");
    EXPECT_EQ(log(), "Ben:words\nAda:begin\n");
    // Of a merge, whose parents stay; and not on no branch.
    ok("switch -c side");
    keep({"d/c"}, "side");
    ok("switch master");
    keep({"a"}, "ours");
    ok("merge side -m 'Stairs and all'");
    EXPECT_EQ(git("log -1 --format=%s"), "Stairs and all\n");
    const std::string parents = git("log -1 --format=%P");
    write("a", "after");
    ok("commit --amend --all -m 'merge of side'");
    EXPECT_EQ(git("log -1 --format=%P:%s"),
              parents.substr(0, parents.size() - 1) + ":merge of side\n");
    git("checkout -q --detach");
    EXPECT_EQ(code("commit --amend -m detached"), 1); // nobody would find it again
    EXPECT_EQ(git("log -1 --format=%s"), "merge of side\n");
    EXPECT_EQ(git("for-each-ref refs/zev") + git("fsck --strict --no-dangling"), "");
    // Not in the middle of a merge.
    ok("switch master");
    keep({"b"}, "more");
    ok("switch side");
    keep({"b"}, "other");
    EXPECT_EQ(code("merge master"), 4);
    EXPECT_EQ(code("commit --amend -m x"), 1);
}

TEST_F(Reach, AFolderIsImportedAsItStands) {
    const std::string plan = test_data("plan.dxf");
    for (const char *name : {"one.dxf", "up/Two.DXF", "up/deep/three.dxf", "up/note.txt",
                             "up/.git/hidden.dxf", "elsewhere/four.dxf"})
        test::write(home + "/project/" + name, plan);
    fs::create_directory_symlink(home + "/project", home + "/project/up/circle");
    const std::string said = ok("import ../project plans");
    EXPECT_NE(said.find("../project: 2 files are no DXF and left out"), said.npos) << said;
    const std::string tree = "plans/elsewhere/four.dwx\nplans/one.dwx\nplans/up/Two.dwx\n"
                             "plans/up/deep/three.dwx\n";
    EXPECT_EQ(sh("find plans -name '*.dwx' | LC_ALL=C sort"), tree);
    EXPECT_EQ(out("export plans/up/Two.dwx -"), plan);
    ok("-C plans import ../../project/up"); // here
    EXPECT_TRUE(there("plans/Two.dwx") && there("plans/deep/three.dwx"));
    write("mine/five.dxf", plan);
    ok("import mine"); // beside the files
    EXPECT_TRUE(there("mine/five.dwx"));
    test::write(home + "/project/bad.dxf", "no DXF");
    EXPECT_EQ(code("import ../project rest"), 1);
    EXPECT_TRUE(there("rest/up/Two.dwx")); // the others came
    for (const char *wrong : {"import d", "import ../project plan.dwx", "import ../project ../out",
                              "import ../project .git/x", "import ../nowhere x"})
        EXPECT_NE(code(wrong), 0) << wrong;
    EXPECT_FALSE(fs::exists(home + "/out"));
}

TEST_F(Reach, AnImportTellsWhichPartOfWhatItChanged) {
    const auto lines_at = [](const std::string &handles) {
        std::string records;
        for (const char handle : handles)
            records += std::string("0\nLINE\n5\nA") + handle + "\n10\n1\n";
        return "0\nSECTION\n2\nENTITIES\n" + records + "0\nENDSEC\n0\nEOF\n";
    };
    const auto told = [&](const std::string &handles) {
        test::write(home + "/in.dxf", lines_at(handles));
        return ok("import ../in.dxf few.dwx");
    };
    EXPECT_EQ(told("1234").find("few.dwx: 4 objects added; "), 0u);
    EXPECT_EQ(told("12").find("few.dwx: 2 of 4 objects removed; "), 0u);
    EXPECT_EQ(told("156").find("few.dwx: 2 of 3 objects added, 1 removed; "), 0u);
}

TEST_F(Reach, ACopyIsMadeAroundFiles) {
    test::write(home + "/full/a", "mine");
    test::write(home + "/full/sub/plan.dxf", test_data("plan.dxf"));
    const std::string full = home + "/full";
    const std::string said = zev(home, "init full").out;
    EXPECT_NE(said.find("is as it was"), said.npos) << said;
    EXPECT_EQ(zev(full, "status --short").out, "?? a\n?? sub/plan.dxf\n");
    EXPECT_EQ(zev(full, "import .").code, 0);
    EXPECT_EQ(zev(full, "add .").code + zev(full, "commit -m all").code, 0);
    EXPECT_EQ(zev(full, "verify").code, 0);
    EXPECT_EQ(zev(home, "init full 2>/dev/null").code, 2);
    EXPECT_EQ(zev(home, "init full/a 2>/dev/null").code, 2);
    // What is in the way of the repository stays, and nothing of ours.
    test::write(home + "/odd/.git", "a file");
    EXPECT_EQ(zev(home, "init odd 2>/dev/null").code, 2);
    EXPECT_EQ(test::read(home + "/odd/.git"), "a file");
    EXPECT_EQ(sh("LC_ALL=C ls -A ../odd ../full"), "../full:\n.git\na\nsub\n\n../odd:\n.git\n");
}

TEST_F(Reach, ACopyIsCloned) {
    const std::string plan = test_data("plan.dxf"), changed = plan_with("13.5");
    draw(plan);
    play("add .; commit -m plan; tag first");
    draw(changed);
    play("commit -m changed plan.dwx; switch -c side");
    keep({"b"}, "side");
    ok("switch master");
    write("a", "not committed");
    fs::create_directory(home + "/new");
    ok("-C d clone .. ../../new"); // from within, and into an empty directory
    const std::string place = home + "/new";
    EXPECT_EQ(test::read(place + "/a"), "first a");
    EXPECT_EQ(zev(place, "status --short").out, "");
    EXPECT_EQ(zev(place, "export plan.dwx -").out, changed);
    EXPECT_EQ(zev(place, "export plan.dwx - --rev first").out, plan);
    EXPECT_EQ(zev(place, "verify").code, 0);
    EXPECT_EQ(zev(place, "switch side").code, 0);
    EXPECT_EQ(git("-C ../new fsck --strict --no-dangling") + git("-C ../new rev-parse side"),
              git("rev-parse side"));
    // Both go on without the other, on the same drawing.
    EXPECT_EQ(zev(place, "import ../in.dxf plan.dwx").code, 0);
    EXPECT_EQ(zev(place, "mv plan.dwx moved.dwx").code, 0);
    EXPECT_EQ(out("export plan.dwx -"), changed);
    // Nothing is left of what fails, and nothing is touched that is there.
    EXPECT_EQ(code("clone . ../new"), 1);
    EXPECT_EQ(code("clone . d"), 1);
    EXPECT_EQ(code("clone ../nowhere ../x"), 3);
    EXPECT_EQ(code("clone http://host/repos/a/b ../x"), 2);
    for (const auto &upper : fs::directory_iterator(root + "/.git/tables"))
        for (const auto &table : fs::directory_iterator(upper.path()))
            for (const auto &file : fs::directory_iterator(table.path()))
                if (file.path().filename() == "CURRENT") test::write(file.path(), "nothing\n");
    EXPECT_NE(code("clone . ../x"), 0);
    EXPECT_EQ(sh("ls -d ../.zev* ../x 2>/dev/null || true"), "");
}

TEST_F(Reach, ACopyWithoutACommitIsCloned) {
    ASSERT_EQ(zev(home, "init fresh").code, 0);
    EXPECT_EQ(zev(home, "clone fresh again").code, 0);
    test::write(home + "/again/x", "x");
    EXPECT_EQ(zev(home + "/again", "add x").code + zev(home + "/again", "commit -m x").code, 0);
}

struct MovedOutside : Reach {
    void SetUp() override {
        Reach::SetUp();
        ok("mkdir halls");
        draw(test_data("plan.dxf"));
        draw(test_data("plan.dxf"), "halls/north.dwx");
        play("add .; commit -m drawings");
    }
    size_t tables() const {
        size_t count = 0;
        for (const auto &upper : fs::directory_iterator(root + "/.git/tables"))
            for (const auto &table : fs::directory_iterator(upper.path()))
                count += !table.path().empty();
        return count;
    }
    // Its past goes on, and what is imported into it is a change of the same objects.
    void expect_past(const std::string &drawing) {
        ok("commit -m moved");
        draw(plan_with("13.5"), drawing);
        EXPECT_NE(ok("diff " + drawing).find("0 added, 1 modified, 0 removed"), std::string::npos);
        ok("commit --all -m changed");
        EXPECT_EQ(lines(ok("log --object 32 " + drawing)).size(), 2u);
        EXPECT_EQ(tables(), 2u);
        EXPECT_EQ(zev(root, "verify").code, 0);
    }
};

TEST_F(MovedOutside, MvTakesWhatHasHappened) {
    sh("mv plan.dwx ground.dwx; mv a d/moved; echo more >>d/moved; mv b elsewhere");
    const std::string said = ok("status");
    EXPECT_NE(said.find("plan.dwx is ground.dwx now"), said.npos) << said;
    EXPECT_NE(said.find("b is elsewhere now"), said.npos) << said;
    EXPECT_EQ(said.find("a is"), said.npos) << said; // other bytes, anybody's
    EXPECT_EQ(code("mv plan.dwx nowhere.dwx"), 3);
    EXPECT_EQ(code("mv plan.dwx halls/north.dwx"), 3); // tracked itself
    ok("mv plan.dwx ground.dwx");
    ok("mv a d/moved"); // whatever it holds
    EXPECT_EQ(content("d/moved"), "first amore\n");
    ok("mv b elsewhere");
    EXPECT_EQ(git("status --short --no-renames"),
              "D  a\nD  b\nA  d/moved\nA  elsewhere\nA  ground.dwx\nD  plan.dwx\n");
    expect_past("ground.dwx");
}

TEST_F(MovedOutside, DirectoriesTooAndIntoOthers) {
    sh("mv halls rooms");
    ok("mv halls rooms");
    EXPECT_EQ(git("status --short --no-renames"), "D  halls/.gitkeep\nD  halls/north.dwx\n"
                                                  "A  rooms/.gitkeep\nA  rooms/north.dwx\n");
    sh("mv rooms d/");
    ok("mv rooms d");
    EXPECT_TRUE(there("d/rooms/north.dwx"));
    expect_past("d/rooms/north.dwx");
}

TEST_F(MovedOutside, AddAndRmKeepTheTable) {
    sh("mv plan.dwx ground.dwx; cp ground.dwx copy.dwx");
    play("add ground.dwx; rm plan.dwx");
    EXPECT_EQ(git("status --short"), "R  plan.dwx -> ground.dwx\n?? copy.dwx\n");
    expect_past("ground.dwx");
    ok("add copy.dwx"); // this is one
    EXPECT_EQ(tables(), 3u);
}

TEST_F(MovedOutside, NamesThatDifferInCaseOnly) {
    ok("mv plan.dwx Plan.dwx");
    EXPECT_EQ(git("status --short"), "R  plan.dwx -> Plan.dwx\n");
    EXPECT_NE(ok("status").find("plan.dwx -> Plan.dwx"), std::string::npos);
    sh("mv Plan.dwx PLAN.dwx");
    ok("mv Plan.dwx PLAN.dwx");
    sh("mv a A; mv PLAN.dwx pLAN.dwx");
    ok("add A"); // not what nobody named
    EXPECT_EQ(git("status --short a A"), "R  a -> A\n");
    ok("add .");
    EXPECT_EQ(git("status --short"), "R  a -> A\nR  plan.dwx -> pLAN.dwx\n");
    ok("mv halls Halls");
    EXPECT_TRUE(there("Halls/north.dwx") && !there("halls"));
    for (const auto &entry : fs::directory_iterator(root))
        EXPECT_FALSE(entry.path().filename().string().starts_with(".zev")) << entry;
    expect_past("pLAN.dwx");
}

// What is imported in a linked worktree lies where all of them have it, and outlives it.
TEST_F(Reach, RowsOfALinkedWorktreeStayWithTheProject) {
    const std::string beside = home + "/w", versions[] = {plan_with("1.5"), plan_with("2.5")};
    draw(plan_with("12.5"));
    ok("commit -m plan plan.dwx");
    git("worktree add -q ../w");
    const auto said = [&](const std::string &arguments) {
        const Outcome outcome = zev(beside, arguments + " 2>&1");
        EXPECT_EQ(outcome.code, 0) << arguments << "\n" << outcome.out;
        return outcome.out;
    };
    for (const std::string &version : versions) {
        test::write(home + "/in.dxf", version);
        EXPECT_NE(said("import ../in.dxf plan.dwx").find(" 1 of "), std::string::npos);
        EXPECT_NE(said("diff plan.dwx").find("CIRCLE"), std::string::npos);
        EXPECT_EQ(said("commit -m more plan.dwx").find("rows come from"), std::string::npos);
        EXPECT_EQ(zev(beside, "export plan.dwx -").out, version);
    }
    EXPECT_NE(said("blame plan.dwx").find("CIRCLE"), std::string::npos);
    EXPECT_FALSE(fs::exists(root + "/.git/worktrees/w/tables"));
    EXPECT_EQ(git("worktree remove ../w"), "");
    EXPECT_EQ(out("export plan.dwx - --rev w~1"), versions[0]);
    EXPECT_EQ(out("export plan.dwx - --rev w"), versions[1]);
    ok("verify");
}

// Worktrees share their references, each under a lock of its own: what one has in use stays, what
// was killed goes with the next one there, or anywhere when its worktree is gone.
TEST_F(Reach, ACheckoutTakesNoOtherWorktreesReferenceAway) {
    ok("switch -c side");
    keep({"a"}, "side");
    git("worktree add -q -b w ../w");
    const std::string other = std::to_string(std::hash<std::string>{}("w")) + "-1";
    const auto leave = [&](const std::string &name) {
        git("update-ref refs/zev/checkout-" + name + " HEAD");
    };
    const auto left = [&] { return git("for-each-ref --format='%(refname)' refs/zev"); };
    for (const std::string &name : {std::string("main-1"), std::string("1-1"), other}) leave(name);
    EXPECT_EQ(zev(home + "/w", "switch master 2>&1").code, 0);
    EXPECT_EQ(left(), "refs/zev/checkout-main-1\n");
    leave(other);
    ok("switch -c more");
    keep({"a"}, "more");
    ok("switch side");
    EXPECT_EQ(left(), "refs/zev/checkout-" + other + "\n");
}

TEST_F(Reach, ImportGoesThroughNoLinkAndIntoNoOtherRepository) {
    test::write(home + "/in.dxf", plan_with("1.5"));
    git("init -q inner");
    sh("ln -s nowhere.dwx link.dwx; mkdir inner/d sub");
    git("update-index --add --cacheinfo 160000,$(git -C '" + root + "' rev-parse HEAD),sub");
    for (const char *target : {"link.dwx", "inner/plan.dwx", "inner/d/plan.dwx", "sub/plan.dwx"})
        EXPECT_EQ(code(std::string("import ../in.dxf ") + target), 2) << target;
    EXPECT_FALSE(there(".git/tables"));
    EXPECT_EQ(sh("find . -name 'plan.*' -o -name 'nowhere.*'"), "");
}

} // namespace
