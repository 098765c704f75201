// The commands of both rms routes: what reaches the module, and what comes back; the directories of
// a project.
#include "commit_fixture.hpp"
#include "fake_module.hpp"

#include <algorithm>
#include <iterator>
#include <sstream>

namespace fake = test::fake;
using test::Answer, test::narrow, test::Service;

namespace {

const std::string kProject = "/repos/ann/house/rms";

std::string command(std::string_view target, std::string_view name, std::string_view args) {
    return R"({"query":{"target":")" + std::string(target) + R"(","name":")" + std::string(name) +
           R"(","args":{)" + std::string(args) + "}}}";
}

struct Rms : testing::Test {
    Service service{u"none", &fake::table};

    void SetUp() override {
        make_project(service, "ann/house");
        fake::asked.clear(), fake::status = 100;
    }
    Answer run(std::string_view target, std::string_view name, std::string_view args) {
        const bool on_server = target == "user" || target == "group";
        return service.post(on_server ? "/rms" : kProject, command(target, name, args));
    }
    // The status of a command on the project's directories.
    std::string directories(std::string_view name, std::string_view args) {
        return run("directories", name, args).text("data.status");
    }
    std::string files() { return service.git("ann/house", "ls-tree -r --name-only master"); }
    // Commits of files with something in them, by git alone.
    void put_files(const std::string &paths) {
        std::istringstream words(paths);
        for (std::string path; words >> path;) test::commit_file(service, "ann/house", path, &path);
    }
    // A commit on master of lines that git's index takes.
    void put_entries(const std::string &lines) {
        test::run("cd " + service.at("ann/house") + " && export GIT_INDEX_FILE=$PWD/../index && " +
                  "git read-tree --empty && printf '" + lines +
                  "' | git update-index --index-info" +
                  " && git update-ref refs/heads/master $(git -c user.name=a -c user.email=b " +
                  "commit-tree -m t $(git write-tree --missing-ok))");
    }
    // The server opens the project anew, without what it had read.
    void lose(const std::string &what) {
        test::write(service.at("ann/house") + "/changed", "");
        std::filesystem::remove(service.at("ann/house") + "/changed");
        const std::string id = service.git("ann/house", "rev-parse " + what).substr(0, 40);
        EXPECT_TRUE(std::filesystem::remove(service.at("ann/house") + "/objects/" +
                                            id.substr(0, 2) + "/" + id.substr(2)))
            << what;
    }
};

std::string form(const char *status, std::string_view result) {
    return R"({"data":{)" + (result.empty() ? "" : R"("result":)" + std::string(result) + ",") +
           R"("status":)" + status + R"(,"type":"auth"}})";
}

// What lacks an argument that it needs, or an id, reaches no module; nor does a module get nothing
// where a command needs more than its table says.
TEST_F(Rms, CommandsNeedTheirArguments) {
    for (const auto &table : {zev::rest::kServerCommands, zev::rest::kProjectCommands})
        for (const auto &command : table) {
            const std::string target = narrow(command.target), name = narrow(command.name);
            std::istringstream words(narrow(command.needs));
            const std::vector<std::string> needed{std::istream_iterator<std::string>(words), {}};
            for (const std::string &missing : needed) {
                std::string args;
                for (const std::string &each : needed) {
                    if (each == missing && each != "id") continue;
                    const char *value = each == missing ? "-1" : each == "id" ? "3" : "\"x\"";
                    args += (args.empty() ? "\"" : ",\"") + each + "\":" + value;
                }
                EXPECT_EQ(run(target, name, args).code, 400) << target << name << missing;
                EXPECT_EQ(fake::asked, "") << target << name << missing;
            }
            run(target, name, "");
            EXPECT_EQ(fake::asked.find("(null)"), std::string::npos) << fake::asked;
            fake::asked.clear();
        }
    EXPECT_EQ(run("role", "add-group", R"("name":"r","id":4294967299)").code, 200);
    EXPECT_EQ(fake::asked, "RoleAddGroup(house,r,2147483647)"); // the nearest that there is
}

TEST_F(Rms, RefusesWhatIsNoCommand) {
    const struct {
        std::string target, body;
        int32_t code;
        const char *message;
    } rows[] = {
        {"/rms", R"({"query":{"name":"list"}})", 400, "The server did not understand"},
        {"/rms", R"({"query":{"target":"USER","name":"List"}})", 200, "(null)"},
        {"/rms", command("user", "delete", R"("login":null)"), 400, "The server did not"},
        {"/rms", command("user", "none", ""), 500, "Something went wrong on the server"},
        {kProject, command("user", "list", ""), 500, "Something went wrong on the server"},
        {"/repos/ann/none/rms", "", 404, "There is no project 'none'"},
        {"/rms/more", command("user", "list", ""), 400, "The server did not understand"},
    };
    for (const auto &row : rows) {
        const Answer answer = service.post(row.target, row.body);
        EXPECT_EQ(answer.code, row.code) << row.target << row.body;
        EXPECT_EQ(answer.message().find(row.message), 0u) << row.body << ": " << answer.message();
    }
    service.server().head.auth = nullptr;
    const Answer answer = service.post("/repos/ann/none/rms", "");
    EXPECT_EQ(answer.code, 500); // the module comes first
    EXPECT_EQ(answer.message(),
              "You do not have permission to do this: Something went wrong on the server");
}

TEST_F(Rms, LocalDbSendsSomethingWhereThereIsNothing) {
    zwchar former[Z_PATH_MAX] = {};
    ASSERT_TRUE(zPathGetAppData(former));
    service.have_done([&] { zPathSetAppData(service.root().u16string().c_str(), nullptr); });
    const Answer answer = run("settings", "local-db", R"("user":"ann","sid1":"","sid2":"")");
    EXPECT_EQ(answer.text("data.result.settings.changed"), "true");
    service.have_done([&] { zPathSetAppData(former, nullptr); });
}

// ---- Directories

TEST_F(Rms, DirectoriesAreCommits) {
    EXPECT_EQ(run("directories", "list", R"("ref":"master")").body, form("100", "")); // unborn
    EXPECT_EQ(directories("rename", R"("ref":"HEAD","path":"docs","newname":"x")"), "(null)");
    EXPECT_EQ(directories("delete", R"("ref":"HEAD","path":"docs")"), "(null)");
    service.log_in("Eva\tNovak");
    EXPECT_EQ(directories("create", R"("ref":"HEAD","path":"docs/plans")"), "100");
    service.log_in("");
    EXPECT_EQ(directories("create", R"("ref":"master","path":"docs")"), "100");
    EXPECT_EQ(service.git("ann/house", "log --format='%an <%ae> %s'"),
              "admin <admin> Create a folder\nEva Novak <Eva Novak> Create a folder\n");
    EXPECT_EQ(run("directories", "list", R"("ref":"refs/heads/master")").body,
              form("100", R"(["docs","docs/plans"])"));
    EXPECT_EQ(run("directories", "list", R"("ref":"none")").body, form("107", ""));

    put_files("docs/plans/a docs/plans/b/c docs/plans2/d top");
    EXPECT_EQ(directories("rename", R"("ref":"HEAD","path":"docs/plans","newname":"x*")"), "100");
    EXPECT_EQ(files(), "docs/.gitkeep\ndocs/plans2/d\ndocs/x*/.gitkeep\ndocs/x*/a\ndocs/x*/b/c\n"
                       "top\n");
    EXPECT_EQ(directories("rename", R"("ref":"HEAD","path":"docs","newname":"Docs")"), "100");
    EXPECT_EQ(directories("delete", R"("ref":"HEAD","path":"Docs/x*")"), "100");
    EXPECT_EQ(files(), "Docs/.gitkeep\nDocs/plans2/d\ntop\n");
    EXPECT_EQ(service.git("ann/house", "fsck --strict"), "");
}

TEST_F(Rms, DirectoriesPushNothingOut) {
    // A first commit makes no other reference than a branch's, least of all the file of rights.
    EXPECT_EQ(directories("create", R"("ref":"AUTHZ","path":"a")"), "(null)");
    EXPECT_EQ(directories("create", R"("ref":"refs/tags/a","path":"a")"), "(null)");
    put_files("docs/a docs/sub/b file other/.gitkeep");
    service.git("ann/house", "tag v1 master");
    const std::string before = service.git("ann/house", "for-each-ref") + files();
    const std::string long_name(256, 'n');
    const struct {
        const char *name;
        std::string args;
    } rows[] = {
        {"create", R"("ref":"HEAD","path":"other")"},    // is there
        {"create", R"("ref":"HEAD","path":"OTHER")"},    // a twin
        {"create", R"("ref":"HEAD","path":"Docs/new")"}, // would make a twin
        {"create", R"("ref":"HEAD","path":"file/new")"}, // a file stands there
        {"create", R"("ref":"HEAD","path":"")"},         // the project itself
        {"create", R"("ref":"HEAD","path":"../out")"},   // outside
        {"create", R"("ref":"HEAD","path":"a/.git")"},   // Git's own
        {"create", R"("ref":"none","path":"new")"},      // no such branch
        {"create", R"("ref":"v1","path":"new")"},        // no branch
        {"delete", R"("ref":"HEAD","path":"")"},         // everything
        {"delete", R"("ref":"HEAD","path":"docs/none")"},
        {"delete", R"("ref":"HEAD","path":"docs/a")"}, // a file
        {"rename", R"("ref":"HEAD","path":"none","newname":"x")"},
        {"rename", R"("ref":"HEAD","path":"docs","newname":"other")"},
        {"rename", R"("ref":"HEAD","path":"docs","newname":"FILE")"},
        {"rename", R"("ref":"HEAD","path":"docs/sub","newname":"../x")"},
        {"rename", R"("ref":"HEAD","path":"d*","newname":"x")"},
        {"rename", R"("ref":"HEAD","path":"DOCS","newname":"x")"},
        {"rename", R"("ref":"HEAD","path":"docs","newname":"x/y")"}, // under other rules
        {"rename", R"("ref":"HEAD","path":"docs","newname":")" + long_name + '"'},
        {"create", R"("ref":"HEAD","path":"a/)" + long_name + '"'},
    };
    for (const auto &row : rows) {
        const Answer answer = run("directories", row.name, row.args);
        EXPECT_EQ(answer.code, 400) << row.args;
        EXPECT_EQ(answer.message().find("The server did not understand"), 0u) << row.args;
    }
    EXPECT_EQ(service.git("ann/house", "for-each-ref") + files(), before);
}

// A file moves as what it is, and a twin in another case, as projects from elsewhere have them,
// stays where it is.
TEST_F(Rms, RenamedDirectoriesKeepWhatTheyHold) {
    const std::string id = test::store(service, "ann/house", Z_OBJECT_BLOB, "x");
    const std::string elsewhere(40, 'e');
    put_entries("100644 " + id + "\\tDocs/a\\n100644 " + id + "\\tdocs/a\\n120000 " + id +
                "\\tdocs/deep/link\\n100755 " + id + "\\tdocs/program\\n160000 " + elsewhere +
                "\\tdocs/sub\\n");
    EXPECT_EQ(directories("rename", R"("ref":"HEAD","path":"docs","newname":"x")"), "100");
    EXPECT_EQ(directories("rename", R"("ref":"HEAD","path":"x","newname":"X")"), "100");
    EXPECT_EQ(service.git("ann/house", "ls-tree -r --format='%(objectmode) %(path)' master"),
              "100644 Docs/a\n100644 X/a\n120000 X/deep/link\n100755 X/program\n160000 X/sub\n");
}

// Nobody's request is wrong because of it. What the module can't do is told by its own status.
TEST_F(Rms, DirectoriesTellAFailingStore) {
    put_files("docs/a");
    fake::status = 110;
    const Answer rights =
        run("directories", "rename", R"("ref":"HEAD","path":"docs","newname":"x")");
    EXPECT_EQ(rights.body, form("110", ""));
    fake::status = 103; // no role, no rule
    EXPECT_EQ(directories("rename", R"("ref":"HEAD","path":"docs","newname":"x")"), "100");
    for (const char *what : {"master:x", "master"}) {
        lose(what);
        for (const char *name : {"create", "rename", "delete"}) {
            const Answer answer =
                run("directories", name, R"("ref":"HEAD","path":"x","newname":"y")");
            EXPECT_EQ(answer.code, 500) << what << name;
            EXPECT_EQ(answer.message().find("Something went wrong on the server"), 0u)
                << what << name << answer.body;
        }
    }
}

// What changes something is a line of the audit, with what it was about and no password.
TEST_F(Rms, WritesDownWhatChangesRights) {
    const auto path = service.root() / "audit.log";
    service.server().logs.audit.set_path(path.u16string());
    run("user", "create", R"("login":"ann","password":"c0de","power":true)");
    run("group", "set-parent", R"("id":3,"parent":2)");
    run("user", "list", "");
    run("user", "login", R"("login":"ann","password":"c0de")");
    run("role", "add-user", R"("name":"editors","user":"ann")");
    fake::status = 104;
    run("settings", "add-setting", R"("path":"a\"b","role":"editors","setting":48)");
    const std::string lines = test::read(path);
    for (const char *part :
         {R"("target":"user","act":"create","name":"ann power","owner":"","project":"",)",
          R"("act":"set-parent","name":"3 2",)",
          R"("act":"add-user","name":"editors ann","owner":"ann","project":"house",)",
          R"("act":"add-setting","name":"a\"b editors 48","owner":"ann","project":"house",)"})
        EXPECT_NE(lines.find(part), std::string::npos) << part << "\n" << lines;
    EXPECT_EQ(std::ranges::count(lines, '\n'), 4);
    EXPECT_EQ(lines.find("c0de"), std::string::npos);
}

} // namespace
