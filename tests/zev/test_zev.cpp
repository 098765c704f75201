// The program as a user and as a script meet it.
#include "support.hpp"
#include "zev_program.hpp"

namespace {

namespace fs = std::filesystem;

struct Zev : CopyTest {
    std::string plan = test_data("plan.dxf");
    std::string changed = plan_with("13.5");

    void SetUp() override {
        CopyTest::SetUp();
        test::write(home + "/plan.dxf", plan);
    }
    void commit_two_versions() {
        draw(plan);
        play("add plan.dwx; commit -m First");
        draw(changed);
    }
};

TEST_F(Zev, PathsAreTakenFromTheCurrentDirectory) {
    play("mkdir plans/ground; -C plans/ground import ../../../plan.dxf; -C plans add ground");
    EXPECT_EQ(zev(home, "-C copy/plans status ground/plan.dwx").out,
              "+ added       ground/plan.dwx\n");
    const auto shown = [&](const std::string &arguments) {
        return zev(root + "/plans/ground", arguments).out;
    };
    for (const char *look : {"--full status", "status --json"})
        EXPECT_NE(shown(look).find("plans/ground/plan.dwx"), std::string::npos) << look;
    ok("commit -m all");
    write("top.dwx", "top");
    EXPECT_EQ(shown("status"), "  untracked   ../../top.dwx\n");
    EXPECT_EQ(shown("cat HEAD:./plan.dwx"), out("cat HEAD:plans/ground/plan.dwx"));
    EXPECT_EQ(shown("add ../../top.dwx"), "Added      ../../top.dwx\n");
    ok("rm top.dwx");
    EXPECT_EQ(git("ls-files"), "plans/.gitkeep\nplans/ground/.gitkeep\nplans/ground/plan.dwx\n");
    EXPECT_EQ(zev(root + "/plans", "add ../../plan.dxf 2>/dev/null").code, 2); // outside
    // By way of a link to the copy it is the same place.
    fs::create_directory_symlink(root, home + "/link");
    EXPECT_EQ(zev(home + "/link/plans", "status").out, "nothing has changed\n");
}

TEST_F(Zev, NamesThatNoCommitCanHold) {
    for (const char *path : {"''", ".git/x", "sub/.GIT/x", "'a\\b'", "$(printf 'x\\377')"})
        EXPECT_EQ(zev(root, "mkdir " + std::string(path) + " 2>/dev/null").code, 2) << path;
    // On the disk they stop neither the others nor the terminal.
    fs::create_directory(root + "/gr\xf6\xdf");
    test::write(root + "/\033[2Jx", "x");
    test::write(root + "/new", "x");
    EXPECT_NE(ok("add .").find("new"), std::string::npos);
    EXPECT_EQ(ok("status --color always").find("\033[2J"), std::string::npos);
}

// What a drive from elsewhere brings: shown on one line, and got rid of.
TEST_F(Zev, NamesThatNobodyCanType) {
    constexpr struct {
        const char *name, *shown;
        bool can_enter;
    } kNames[] = {{"line\nfeed", "line\\nfeed", false},
                  {"a\ttab", "a\\ttab", false},
                  {"\033[31mred", "\\x1b[31mred", false},
                  {"gr\xf6\xdf", "gr\\xf6\\xdf", false},
                  {"back\xe2\x80\xaewards", "back\\u202ewards", true},
                  {"\xc2\x85next", "\\u0085next", true}};
    for (const auto &[name, shown, can_enter] : kNames) {
        SCOPED_TRACE(shown);
        const std::string word = std::string("'") + name + "'";
        write(name, shown);
        if (can_enter) ok("add " + word);
        EXPECT_NE(ok("mv " + word + " plain").find(std::string(shown) + " -> plain"),
                  std::string::npos);
        EXPECT_EQ(content("plain"), shown);
        if (can_enter) ok("mv plain " + word);
        if (!can_enter) fs::rename(root + "/plain", root + "/" + name);
        EXPECT_NE(ok("rm " + word).find(shown), std::string::npos);
        EXPECT_FALSE(there(name) || there("plain"));
        ok("undo");
        EXPECT_EQ(std::distance(fs::directory_iterator(root), fs::directory_iterator()), 2);
        ok("rm *"); // by the name that it has come back with
    }
    const std::string found = out("trash list --json");
    EXPECT_NE(found.find("line%0Afeed"), std::string::npos) << found;
    EXPECT_EQ(code("mv 'nothing\\there' plain"), 2);
}

TEST_F(Zev, ADrawingOfAnotherProjectBringsItsRows) {
    zev(home, "init other");
    zev(home + "/other", "import ../plan.dxf a.dwx");
    fs::copy_file(home + "/other/a.dwx", root + "/b.dwx");
    EXPECT_NE(ok("add .").find("its rows come from " + home + "/other"), std::string::npos);
    ok("commit -m taken");
    EXPECT_EQ(zev(root, "export b.dwx -").out, plan);
    EXPECT_EQ(zev(home + "/other", "export a.dwx -").out, plan);
    fs::remove_all(root + "/.git/tables");
    fs::remove_all(home + "/other");
    write("note", "x");
    for (const char *command : {"add c.dwx note", "commit -m c c.dwx note"}) {
        fs::copy_file(root + "/b.dwx", root + "/c.dwx");
        EXPECT_NE(ok(command).find("warning: c.dwx: comes from"), std::string::npos) << command;
        fs::remove(root + "/c.dwx");
        git("reset -q");
    }
}

TEST_F(Zev, SaysOnlyWhatTheNextCommitHolds) {
    write(".gitignore", "out\n");
    const Outcome made = both("mkdir out/in docs");
    const std::string said = made.out;
    EXPECT_EQ(made.code, 1);
    EXPECT_NE(said.find("warning: out/in: was made, but is ignored"), std::string::npos) << said;
    EXPECT_EQ(said.find("Added      out"), std::string::npos);
    write("out/x", "x");
    write("y", "y");
    const Outcome added = both("add out/x y"); // the others are
    EXPECT_EQ(added.code, 1);
    EXPECT_NE(added.out.find("out/x: was not added: it is ignored"), std::string::npos)
        << added.out;
    EXPECT_EQ(code("add 'out/z*'"), 3);
    git("rm -q --cached y");
    EXPECT_EQ(git("ls-files"), "docs/.gitkeep\n");
    git("rm -rq --cached docs");
    git("add -N .gitignore"); // planned only
    EXPECT_EQ(code("commit -m empty"), 3);
    EXPECT_NE(git("log").find("does not have any commits"), std::string::npos);
}

// Git holds the index when zev would write it, and is done soon.
TEST_F(Zev, WaitsForGit) {
    for (const std::string command : {"mkdir docs", "add a", "mv a docs", "commit -m x docs"}) {
        write("a", "1");
        write(".git/index.lock", "");
        sh("(for i in $(seq 99999); do [ -e .git/.index.zlck ] && break; done;"
           " git version; git version; rm .git/index.lock) >/dev/null 2>&1 & true");
        ok(command);
    }
    EXPECT_EQ(git("ls-tree -r --name-only HEAD"), "docs/.gitkeep\ndocs/a\n");
}

TEST_F(Zev, ScriptsGetCodesAndOneObjectALine) {
    commit_two_versions();
    const struct {
        const char *arguments;
        int code;
    } cases[] = {
        {"", 2},
        {"--json frobnicate", 2},
        {"commit --json", 2}, // -m is missing
        {"--json cat HEAD", 2},
        {"--json show HEAD~9", 3},
        {"--json mv nothing docs", 3},
        {"--json import ../none.dxf", 3},
        {"--json import ../copy/.git/HEAD head.dwx", 1},
        {"--json status nowhere.dwx", 3},
        {"--json commit -m ' ' plan.dwx", 2},
        {"--json export plan.dwx -", 2},
        {"--json export plan.dwx .git/index", 2},
    };
    for (const auto &test : cases) {
        Outcome outcome = zev(root, std::string(test.arguments) + " 2>/dev/null");
        EXPECT_EQ(outcome.code, test.code) << test.arguments;
        if (std::string(test.arguments).find("--json") == std::string::npos) continue;
        EXPECT_EQ(field(outcome.out, u"type"), "error") << test.arguments << ": " << outcome.out;
        EXPECT_EQ(field(outcome.out, u"exit"), std::to_string(test.code)) << test.arguments;
    }
    EXPECT_NE(ok("--color always log").find("\033["), std::string::npos);
    EXPECT_EQ(ok("log").find("\033["), std::string::npos); // no terminal
}

TEST_F(Zev, RevisionsByNameAndPrefix) {
    commit_two_versions();
    ok("commit -m 'Second\nwith a second line' plan.dwx");
    std::string head = field(ok("log -n 1 --json"), u"id");
    std::string first = field(lines(ok("log --json"))[1], u"id");
    EXPECT_EQ(head.size(), 40u);
    for (const std::string &name : {head, head.substr(0, 7), std::string("HEAD"),
                                    std::string("master"), std::string("heads/master")})
        EXPECT_EQ(field(lines(ok("show --json " + name))[0], u"id"), head) << name;
    for (const char *name : {"HEAD~1", "HEAD^", "HEAD~", "master~1", "HEAD~0^"})
        EXPECT_EQ(field(lines(ok("show --json " + std::string(name)))[0], u"id"), first) << name;
    EXPECT_EQ(zev(root, "show " + head.substr(0, 3) + " 2>/dev/null").code, 3);
}

TEST_F(Zev, WhatIsReplacedGoesToTheTrash) {
    ok("import ../plan.dxf");
    write("plan.dxf", "precious");
    test::write(home + "/out.dxf", "theirs");
    for (const char *arguments : {"export plan.dwx", "export plan.dwx ../out.dxf"})
        EXPECT_EQ(code(arguments), 6) << arguments;
    EXPECT_EQ(code("export plan.dwx other.dwx"), 3);
    EXPECT_EQ(code("export plan.dwx plan.dwx --force"), 2);
    EXPECT_EQ(content("plan.dxf"), "precious");
    play("--yes export plan.dwx; export plan.dwx ../out.dxf --force");
    EXPECT_EQ(content("plan.dxf"), plan);
    EXPECT_EQ(test::read(home + "/desktop/Trash/files/out.dxf"), "theirs");
    // A drawing that is in no commit, too; two for one name are none.
    test::write(home + "/plan.dxf", changed);
    ok("import ../plan.dxf");
    EXPECT_EQ(lines(ok("trash list")).size(), 2u);
    ok("--yes undo");
    EXPECT_EQ(zev(root, "export plan.dwx -").out, plan);
    test::write(home + "/more/PLAN.dxf", plan);
    EXPECT_EQ(code("import ../plan.dxf ../more/PLAN.dxf ."), 2);
    for (const auto &entry : fs::directory_iterator(root))
        EXPECT_EQ(entry.path().filename().string().find(".tmp"), std::string::npos) << entry;
}

} // namespace
