// The verbs of the working copy, as a user, a script and a program meet them: names that other
// programs take for patterns, questions, and what git says of the same files.
#include "support.hpp"
#include "zev_program.hpp"

#include "width.cpp" // the program's own, which no library has

#include <algorithm>
#include <map>

namespace {

namespace fs = std::filesystem;

struct Front : CopyTest {
    void commit_all(const std::vector<std::string> &names) { keep(names, "first"); }
    static std::vector<std::string> sorted_lines(const std::string &text) {
        std::vector<std::string> out = lines(text);
        std::sort(out.begin(), out.end());
        return out;
    }
};

TEST_F(Front, EachVerbTouchesTheNamedFileAlone) {
    commit_all(kOddNames);
    commit_all(kNeighbours);
    const auto everywhere = [&](auto each) {
        for (const auto *names : {&kOddNames, &kNeighbours})
            for (const std::string &name : *names) each(name);
    };
    fs::create_directory(root + "/d");
    everywhere([&](auto &name) { write(name, "changed"); });
    ok("add d 'st*r' 'wh?t'"); // with a directory among them these are no patterns either
    EXPECT_EQ(git("diff --cached --name-only"), "d/.gitkeep\nst*r\nwh?t\n");
    git("reset -q");
    for (const std::string &name : kOddNames) {
        const std::string path = "'" + name + "'";
        EXPECT_NE(ok("ls").find("modified    " + name + "\n"), std::string::npos);
        EXPECT_EQ(ok("status --short " + path), " M " + name + "\n");
        EXPECT_EQ(ok("status " + path), "  modified    " + name + "\n");
        EXPECT_EQ(ok("changes " + path), "modified    " + name + "\n");
        EXPECT_EQ(ok("revert " + path), "Reverted   " + name + "\n");
        everywhere([&](auto &other) {
            EXPECT_EQ(content(other), other == name ? "first " + name : "changed") << name;
        });
        EXPECT_EQ(ok("rm " + path), "Deleted    " + name + "\n");
        EXPECT_EQ(git("diff --cached --name-status -z"), std::string("D\0", 2) + name + '\0');
        EXPECT_EQ(ok("changes " + path), "deleted     " + name + "\n");
        EXPECT_EQ(ok("revert " + path), "Restored   " + name + "\n");
        fs::remove(root + "/" + name);
        ok("commit -m gone " + path);
        EXPECT_EQ(git("show -z --name-status --format= HEAD"), std::string("D\0", 2) + name + '\0');
        write(name, "changed");
    }
}

TEST_F(Front, TwinsInCaseAreTwoFiles) {
    write("plan.dwx", "lower");
    write("PLAN.dwx", "upper");
    git("add plan.dwx PLAN.dwx");
    git("commit -m twins");
    write("PLAN.dwx", "changed");
    write("plan.dwx", "changed, too");
    ok("revert plan.dwx");
    EXPECT_EQ(git("status --porcelain"), " M PLAN.dwx\n");
    EXPECT_EQ(content("plan.dwx"), "lower");
    ok("rm plan.dwx");
    EXPECT_EQ(git("status --porcelain"), " M PLAN.dwx\nD  plan.dwx\n");
    // What is out may not come back beside the other one; it says so, and HEAD has it.
    EXPECT_EQ(both("revert plan.dwx").code, 1);
    EXPECT_EQ(content("PLAN.dwx"), "changed");
}

TEST_F(Front, RemoveTakesFilesDirectoriesAndPatterns) {
    commit_all({"a.dwx", "b.txt", "d/a.dwx", "d/b.dwx", "d/e/c.dwx", "other/a.dwx"});
    write("new.dwx", "untracked");
    write("d/new.dwx", "untracked below");
    EXPECT_EQ(both("rm a.dwx nowhere.dwx").code, 3);
    EXPECT_EQ(both("rm 'none*'").code, 3);
    EXPECT_EQ(both("rm .").code, 2);
    EXPECT_EQ(both("rm ../copy/.git/config").code, 2);
    EXPECT_EQ(git("status --porcelain -uall"), "?? d/new.dwx\n?? new.dwx\n"); // nothing was done
    ok("rm d d/a.dwx new.dwx '*.dwx'");
    EXPECT_FALSE(there("d") || there("a.dwx") || there("new.dwx") || there("other/a.dwx"));
    EXPECT_TRUE(there("b.txt"));
    EXPECT_TRUE(there("other/.gitkeep")); // a pattern leaves the directory
    EXPECT_EQ(git("ls-files"), "b.txt\nother/.gitkeep\n");
    // Everything is in the trash, or in the last commit.
    EXPECT_EQ(sh("grep -rl 'untracked' .git/trash | grep -c ."), "2\n");
}

TEST_F(Front, RevertTakesARenamedFileBack) {
    commit_all({"a.dwx", "d/b.dwx", "d/c.dwx"});
    ok("mv a.dwx z.dwx");
    write("new.dwx", "untracked");
    fs::remove(root + "/d/c.dwx");
    const std::string out = ok("revert z.dwx");
    EXPECT_NE(out.find("Restored   d/c.dwx\n"), std::string::npos) << out; // since it came back
    EXPECT_EQ(git("status --porcelain -uall"), "?? new.dwx\n");
    EXPECT_EQ(content("a.dwx"), "first a.dwx");
    EXPECT_EQ(ok("revert"), "nothing to revert\n");
    for (const char *verb : {"revert nowhere", "ls nowhere", "changes nowhere"})
        EXPECT_EQ(both(verb).code, 3) << verb;
    EXPECT_EQ(both("ls a.dwx").code, 2);
}

// Nobody is there: no question may end in a change.
TEST_F(Front, QuestionsAreAnsweredByOptionsOnly) {
    commit_all({"a.dwx"});
    constexpr struct {
        const char *options;
        int code;
    } kCases[] = {
        {"", 6},
        {"--json", 6},
        {"--no", 6},
        {"--answer 2", 6},
        {"--answer 'keep MY changes'", 6},
        {"--yes --no", 2},
        {"--all a.dwx", 2},
        {"--yes", 0},
        {"--answer nothing --answer 1", 0},
        {"--answer 'Revert everything'", 0},
    };
    for (const auto &test : kCases) {
        write("a.dwx", "changed");
        const Outcome outcome = both(std::string("revert ") + test.options);
        EXPECT_EQ(outcome.code, test.code) << test.options << "\n" << outcome.out;
        EXPECT_EQ(content("a.dwx"), test.code ? "changed" : "first a.dwx") << test.options;
    }
    write("a.dwx", "changed");
    EXPECT_NE(both("revert").out.find("1 file differs"), std::string::npos);
    const std::string asked = out("revert --json");
    for (const char *part : {"\"id\":\"revert-all\"", "\"Keep my changes\"", "\"answer\":-1"})
        EXPECT_NE(asked.find(part), std::string::npos) << asked;
}

TEST_F(Front, LongOutputGoesToThePager) {
    commit_all({"a.dwx"});
    const auto paged = [&](const std::string &pager, const std::string &arguments) {
        setenv("ZEV_PAGER", pager.c_str(), 1);
        const Outcome outcome = zev_on_terminal(root, arguments, "");
        unsetenv("ZEV_PAGER");
        return outcome;
    };
    EXPECT_NE(paged("tr a-z A-Z", "log").out.find("FIRST"), std::string::npos);
    EXPECT_NE(paged("tr a-z A-Z", "--no-pager log").out.find("first"), std::string::npos);
    EXPECT_NE(paged("tr a-z A-Z", "ls").out.find("a.dwx"), std::string::npos); // is not long
    EXPECT_NE(paged("tr a-z A-Z", "status --json").out.find("changes"), std::string::npos);
    EXPECT_NE(paged("no-such-pager-here", "log").out.find("first"), std::string::npos);
    const Outcome failed = paged("tr a-z A-Z", "log nowhere");
    EXPECT_EQ(failed.code, 3);
    EXPECT_NE(failed.out.find("NAMES NO COMMIT"), std::string::npos) << failed.out;
    // Left early, with more to come than a pipe holds.
    for (int i = 0; i < 2000; ++i) write(std::string(60, 'n') + std::to_string(i), "");
    EXPECT_EQ(paged("head -n 1", "status").code, 0);
    EXPECT_EQ(ok("status --short").find("\033"), std::string::npos); // no terminal, no pager
}

// A trash that can't be filled: each answer ends, and the file stays.
TEST_F(Front, WhatCantBeRemovedStays) {
    commit_all({"a.dwx", "b.dwx"});
    fs::remove_all(root + "/.git/trash");
    write(".git/trash", "in the way");
    for (const char *options : {"", "--yes", "--no", "--answer Skip", "--answer Cancel"}) {
        const Outcome outcome = both(std::string("rm a.dwx b.dwx ") + options);
        const bool left = std::string(options) != "--answer Cancel";
        EXPECT_EQ(outcome.code, left ? 1 : 6) << options << "\n" << outcome.out;
        EXPECT_EQ(outcome.out.find("Skipped    b.dwx") != std::string::npos, left) << outcome.out;
    }
    EXPECT_EQ(git("status --porcelain"), "");
}

// By a file manager: told once, not for each of its files, and followed by one command.
TEST_F(Front, DirectoriesRenamedElsewhereAreKnownAgain) {
    for (const char *path : {"d/a.txt", "d/sub/b.txt", "d/sub/c.txt", "half/d.txt", "half/e.txt"})
        write(path, path);
    write("d/same.txt", "d/a.txt"); // the bytes of another one
    write("d/empty.txt", "");
    play("add .; commit -m all");
    fs::rename(root + "/d", root + "/walls");
    fs::create_directory(root + "/other");
    fs::rename(root + "/half/d.txt", root + "/other/d.txt");
    const std::string said = ok("status");
    EXPECT_NE(said.find("\nd/ is walls/ now; \"zev mv\""), said.npos) << said;
    EXPECT_NE(said.find("\nhalf/d.txt is other/d.txt now; \"zev mv\""), said.npos) << said;
    EXPECT_EQ(said.find("walls/a.txt now"), said.npos) << said;
    play("mv d/ walls/");
    EXPECT_EQ(ok("changes d walls"), "renamed     d/ -> walls/\n"
                                     "renamed     d/a.txt -> walls/a.txt\n"
                                     "renamed     d/empty.txt -> walls/empty.txt\n"
                                     "renamed     d/same.txt -> walls/same.txt\n"
                                     "renamed     d/sub/ -> walls/sub/\n"
                                     "renamed     d/sub/b.txt -> walls/sub/b.txt\n"
                                     "renamed     d/sub/c.txt -> walls/sub/c.txt\n");
}

// Not even for a moment: the times of directories would tell. What a look at the history remembers
// is there before.
TEST_F(Front, LooksChangeNothing) {
    commit_all({"a.txt", "d/b.txt", "gone.txt"});
    write("z.txt", "new");
    play("add z.txt; mkdir kept; mv d moved; log -- a.txt");
    for (const char *name : {"gone.txt", "z.txt"}) fs::remove(root + "/" + name);
    fs::rename(root + "/a.txt", root + "/renamed.txt"); // in a file manager
    sh("touch moved/b.txt");                            // and looked into
    const auto all = [&] { return sh("find . -printf '%P %m %s %T@ %i\\n' | sort"); };
    const auto looks =
        lines("status\nstatus --short --ignored\nstatus --json\nls\nls moved\nchanges\n"
              "changes moved gone.txt\ndiff\nlog\nlog -- a.txt\nshow HEAD\n"
              "conflicts\nbranch\ninfo");
    std::map<std::string, std::string> said;
    for (std::string before = all(); const std::string &look : looks) {
        said[look] = ok(look);
        EXPECT_EQ(all(), before) << look;
    }
    EXPECT_EQ(said["ls"], "modified    kept/\nrenamed     d/ -> moved/\nmissing     a.txt\n"
                          "missing     gone.txt\nmissing     z.txt\n");
    EXPECT_EQ(said["ls moved"], "renamed     d/b.txt -> moved/b.txt\n");
    EXPECT_EQ(said["changes"],
              "missing     a.txt\nmissing     gone.txt\nadded       kept/\n"
              "renamed     d/ -> moved/\nrenamed     d/b.txt -> moved/b.txt\nmissing     z.txt\n"
              "a.txt is renamed.txt now; \"zev mv\" with both names says so\n");
    EXPECT_EQ(said["changes moved gone.txt"], "missing     gone.txt\nrenamed     d/ -> moved/\n"
                                              "renamed     d/b.txt -> moved/b.txt\n");
    { // While another process has the lock.
        const auto repository =
            test::guard(zRepositoryOpen((dir / u"copy").c_str()), zRepositoryFree);
        const auto index = test::guard(zIndexHead(repository.get(), true), zIndexFree);
        const std::string before = all();
        for (const std::string &look : looks) EXPECT_EQ(ok(look), said[look]);
        EXPECT_EQ(code("add renamed.txt"), 7);
        EXPECT_EQ(all(), before);
    }
    sh("chmod -R a-w .");
    const std::string before = all();
    for (const std::string &look : looks) EXPECT_EQ(ok(look), said[look]);
    EXPECT_EQ(all(), before);
    sh("chmod -R u+w .");
    // What changes the copy brings back by itself what is gone, and says so.
    EXPECT_EQ(ok("rm gone.txt"), "Restored   a.txt\nDeleted    z.txt\nDeleted    gone.txt\n");
}

// Behind a link that leads out nothing is read, written or removed.
TEST_F(Front, LinksThatLeadOut) {
    commit_all({"a.dwx", "d/b.dwx"});
    test::write(home + "/outside/b.dwx", "precious");
    fs::create_directory_symlink(home + "/outside", root + "/link");
    fs::remove_all(root + "/d");
    fs::create_directory_symlink(home + "/outside", root + "/d");
    for (const char *verb : {"rm link/b.dwx", "revert link/b.dwx", "rm d/b.dwx", "revert d/b.dwx",
                             "changes link/b.dwx", "ls link", "status d/b.dwx"})
        EXPECT_NE(both(verb).code, 0) << verb;
    for (const char *verb : {"ls", "changes", "status", "revert --all", "rm link"}) both(verb);
    EXPECT_FALSE(there("link"));
    EXPECT_EQ(test::read(home + "/outside/b.dwx"), "precious");
    EXPECT_EQ(std::distance(fs::directory_iterator(home + "/outside"), fs::directory_iterator()),
              1);
}

// ---- Letters

// Each state that two sides can be in, made by git itself.
// What no walk of chance steps comes by.
TEST_F(Front, LettersAgreeWithGit) {
    for (const char *name : {"same", "ren", "rem", "red"})
        write(name, std::string(100, 'x') + name);
    git("add .");
    git("commit -m first");
    for (const char *name : {"ren", "rem", "red"}) git(std::string("mv ") + name + " new-" + name);
    write("new-rem", "changed");
    fs::remove(root + "/new-red");
    // The seven conflicts: which stages there are.
    std::string entries;
    const std::string blob = git("hash-object -w same").substr(0, 40);
    for (int stages = 1; stages < 8; ++stages)
        for (int stage = 1; stage <= 3; ++stage)
            if (stages >> (stage - 1) & 1)
                entries += "100644 " + blob + " " + std::to_string(stage) + "\tc" +
                           std::to_string(stages) + "\n";
    test::write(home + "/entries", entries);
    git("update-index --index-info < " + home + "/entries");

    const auto theirs = sorted_lines(git("status --porcelain=v1"));
    EXPECT_EQ(sorted_lines(ok("status --short")), theirs);
    EXPECT_EQ(theirs.size(), 10u); // else git saw something else than was meant
    const std::string shown = ok("status");
    EXPECT_NE(shown.find("conflicted  c7  (both modified)"), std::string::npos) << shown;
    EXPECT_NE(shown.find("renamed     ren -> new-ren"), std::string::npos) << shown;
    EXPECT_NE(shown.find("zev resolve"), std::string::npos);
}

TEST_F(Front, ColumnsOfText) {
    constexpr struct {
        const char *text;
        size_t columns;
    } kTexts[] = {
        {"", 0},
        {"Gr\xc3\xb6\xc3\x9f", 4},
        {"Gro\xcc\x88\xc3\x9f", 4},                              // a combining mark
        {"\xe5\x9b\xb3\xe9\x9d\xa2", 4},                         // Han
        {"\xef\xbc\x91\xef\xbd\xb1", 3},                         // a wide digit, a narrow Kana
        {"\xed\x95\x9c\xe1\x84\x92\xe1\x85\xa1\xe1\x86\xab", 4}, // one Hangul, whole and in parts
        {"\xf0\xa0\x80\x8b\xf0\x9f\x98\x80", 4},                 // beyond 16 bits
        {"a\xff\xe5z", 4},                                       // no UTF-8: a column a byte
    };
    for (const auto &test : kTexts) {
        EXPECT_EQ(host::columns(test.text), test.columns) << test.text;
        EXPECT_EQ(host::columns(host::padded(test.text, 12)), 12u) << test.text;
    }
    EXPECT_EQ(host::padded("longer than that", 4), "longer than that ");
}

} // namespace
