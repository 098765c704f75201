// Projects: lists, the gate, making, renaming and removing them; their references.
#include "child.hpp"
#include "rights.hpp"
#include "service_fixture.hpp"

#include "common/guard.hpp"
#include "system/clock.hpp"
#include "system/os.hpp"

#include <utility>

using test::Answer, test::make_project, test::narrow, test::Service;
namespace os = zev::os;

namespace {

TEST(Names, FollowOneRule) {
    const std::u16string longest(255, u'n');
    const struct {
        std::u16string name;
        bool strict, loose;
    } cases[] = {{u"", false, false},   {u"Anl\u00e4ge 7.b", true, true},
                 {longest, true, true}, {longest + u"n", false, false},
                 {u"a\tb", true, true}, {u"..", true, true}};
    const auto expect = [](const std::u16string &name, bool strict, bool loose) {
        EXPECT_EQ(zSNValid(name.c_str(), true), strict) << narrow(name.c_str());
        EXPECT_EQ(zSNValid(name.c_str(), false), loose) << narrow(name.c_str());
    };
    for (const auto &[name, strict, loose] : cases) expect(name, strict, loose);
    for (const zwchar c : std::u16string(u"\\<>/\":;?*|,=`")) expect({u'a', c}, false, false);
    for (const zwchar c : std::u16string(u"@&#$^~%")) expect({u'a', c}, false, true);
}

const std::string kOne = R"({"query":{"owner":"ann","name":"plant"}})";

std::string project(const std::string &owner, const std::string &name,
                    const std::string &more = "") {
    return R"({"query":{"owner":")" + owner + R"(","name":")" + name + '"' + more + "}}";
}

TEST(Projects, AreMadeReadAndListed) {
    Service service;
    const Answer made = service.post("/repos", kOne);
    ASSERT_EQ(made.code, 200) << made.body;
    EXPECT_EQ(service.git("ann/plant", "config zev.id"), made.text("id") + "\n");
    EXPECT_EQ(service.get("/repos/ann/plant").text("data.id"), made.text("id"));
    EXPECT_EQ(service.get("/x/repos/ann/plant/else/where").text("data.url"), "/x/repos/ann/plant");

    // Sorted, and without what is no project, or no owner.
    ASSERT_EQ(service.post("/repos", project("Zoe", "b")).code, 200);
    ASSERT_EQ(service.post("/repos", project("ann", "Mill")).code, 200);
    test::write(service.repos() / "file", "");
    test::write(service.repos() / "ann" / "file", "");
    std::filesystem::create_directories(service.repos() / "ann" / "empty");
    make_project(service, "ann/.zev-removed/gone.0123abcd");
    make_project(service, ".zev-removed/gone.0123abcd");
    make_project(service, "ann/not,one");
    const Answer all = service.get("/repos");
    EXPECT_EQ(all.each("owner") + " " + all.each("name"), "Zoe,ann,ann b,Mill,plant");
    const Answer own = service.get("/repos/ann");
    EXPECT_EQ(own.each("name"), "Mill,plant");
    EXPECT_EQ(own.entry(1, "id"), made.text("id"));
    for (const char *none : {"nobody", "file", "a,b", ".zev-removed"})
        EXPECT_EQ(service.get("/repos/" + std::string(none)).code, 404) << none;
}

// Each refusal, with the part of its text that names what is wrong.
TEST(Projects, AreRefusedWithTheirReasons) {
    Service service;
    make_project(service, "ann/plant");
    make_project(service, "ann/mill");
    std::filesystem::create_directories(service.repos() / "ann" / "broken");
    test::write(service.repos() / "ann" / "full" / "file", "");
    const std::string far(250, 'f'), farther(256, 'f');
    const struct {
        uint32_t method;
        std::string target, body;
        int code;
        std::string part;
    } cases[] = {
        {Z_HTTP_GET, "/repos/a,b/plant", "", 400, "':owner' is invalid"},
        {Z_HTTP_GET, "/repos/" + farther + "/plant", "", 400, "':owner' is invalid"},
        {Z_HTTP_GET, "/repos/ann/pl@nt", "", 400, "':name' is invalid"},
        {Z_HTTP_GET, "/repos/ann/..", "", 404, "nothing at this address"},
        {Z_HTTP_GET, "/repos/ann/.zev-removed", "", 400, "':name' is invalid"},
        {Z_HTTP_GET, "/repos/ann/nothing", "", 404, "'nothing'"},
        {Z_HTTP_GET, "/repos/ann/broken", "", 500, "'broken'"},
        {Z_HTTP_GET, "/repos/" + far + "/" + far, "", 414, "too long"},
        {Z_HTTP_DELETE, "/repos/ann/nothing", "", 404, "'nothing'"},
        {Z_HTTP_DELETE, "/repos/" + far + "/" + far, "", 500, "went wrong"},
        {Z_HTTP_POST, "/repos", R"({"query":{"owner":"ann"}})", 400, "'name' is required"},
        {Z_HTTP_POST, "/repos", project("ann", ".."), 400, "'name' is invalid"},
        {Z_HTTP_POST, "/repos", project("ann", ".zev-removed"), 400, "'name' is invalid"},
        {Z_HTTP_POST, "/repos", project(far, far), 500, "went wrong"},
        {Z_HTTP_POST, "/repos", project("ann", "plant"), 409, "'plant' already exists"},
        {Z_HTTP_POST, "/repos", project("ann", "Plant"), 409, "'Plant' already exists"},
        {Z_HTTP_POST, "/repos", project("ANN", "new"), 409, "'new' already exists"},
        {Z_HTTP_POST, "/repos", project("ann", "full"), 500, "went wrong"},
        {Z_HTTP_POST, "/repos/ann/plant", "", 400, "'newname' is required"},
        {Z_HTTP_POST, "/repos/ann/plant", R"({"query":{"newname":"."}})", 400, "'newname' is inv"},
        {Z_HTTP_POST, "/repos/ann/plant", R"({"query":{"newname":"Mill"}})", 500, "went wrong"},
    };
    for (const auto &[method, target, body, code, part] : cases) {
        const Answer answer =
            service.ask(method, target, body, body.empty() ? nullptr : u"application/json");
        EXPECT_EQ(answer.code, code) << target << body << answer.body;
        EXPECT_NE(answer.message().find(part), std::string::npos) << target << answer.message();
    }
    EXPECT_EQ(service.get("/repos").each("name"), "mill,plant");
    EXPECT_EQ(test::run("cd " + service.repos().string() + "; ls -A . ann | tr '\\n' ' '"),
              ".: ann  ann: broken full mill plant ");
}

TEST(Projects, TakeTheirNameInAnotherCaseAndGo) {
    Service service;
    ASSERT_EQ(service.post("/repos", kOne).code, 200);
    const Answer moved = service.post("/repos/ann/plant", R"({"query":{"newname":"Plant"}})");
    EXPECT_EQ(moved.text("url"), "/repos/ann/Plant") << moved.body;
    EXPECT_EQ(service.get("/repos/ann").each("name"), "Plant");
    ASSERT_EQ(service.drop("/repos/ann/Plant").code, 204);
    EXPECT_EQ(test::run("ls -A " + service.at("ann")), "");
}

// A name may be as long as a file's; one that no file can have names nothing.
TEST(Projects, HaveNamesOfAnyLength) {
    Service service;
    const std::string longest(255, 'n'), renamed(255, 'm');
    std::string wider;
    while (wider.size() <= 255) wider += "\u56F3";
    const std::pair<std::string, std::string> cases[] = {{"ann", longest}, {longest, "plant"}};
    for (const auto &[owner, name] : cases) {
        const std::string target = "/repos/" + owner + "/";
        ASSERT_EQ(service.post("/repos", project(owner, name)).code, 200);
        EXPECT_EQ(service.post(target + name, R"({"query":{"newname":")" + renamed + R"("}})").code,
                  owner == longest ? 500 : 200); // with both the path has no room
        const std::string now = owner == longest ? name : renamed;
        EXPECT_EQ(service.get(target + now).text("data.name"), now);
        EXPECT_EQ(service.drop(target + now).code, 204);
        EXPECT_EQ(test::run("ls -A " + service.at(owner)), "");
    }
    EXPECT_EQ(service.get("/repos/ann/" + wider).code, 404);
    EXPECT_EQ(service.get("/repos/" + wider).code, 404);
    EXPECT_EQ(service.drop("/repos/ann/" + wider).code, 404);
    EXPECT_EQ(service.post("/repos", project("ann", wider)).code, 500);
    EXPECT_EQ(test::run("ls -A " + service.at("ann")), "");
}

// With the link to where an administrator keeps one, whoever its files belong to; what is no
// project stays.
TEST(Projects, GoWithTheirNames) {
    Service service;
    const std::string elsewhere = (service.root() / "elsewhere").string();
    make_project(service, "../elsewhere/plant");
    std::filesystem::create_directories(service.at("ann"));
    std::filesystem::create_symlink(elsewhere + "/plant", service.at("ann/linked"));
    make_project(service, "ann/others");
    test::run("chown -R 65534 " + service.at("ann/others") + " 2>&1"); // where the test may
    make_project(service, "ann/.zev-removed/plain.0123abcd");
    test::write(service.at("ann/plain") + "/file", "");
    EXPECT_EQ(service.drop("/repos/ann/plain").code, 500);
    EXPECT_EQ(service.get("/repos/ann").each("name"), "linked,others");
    EXPECT_EQ(service.drop("/repos/ann/linked").code, 204);
    EXPECT_EQ(test::run("ls -A " + elsewhere), "");
    EXPECT_EQ(service.drop("/repos/ann/others").code, 204);
    EXPECT_EQ(test::run("ls -A " + service.at("ann")), "plain\n");
}

// What only another user could remove is left behind, and the project is gone.
TEST(Projects, GoWithoutWhatIsOthers) {
    if (geteuid() != 0) GTEST_SKIP() << "other users' files take root";
    const test::TempDir note;
    test::Child server([&] {
        const zev::OwnSettingsOnly settings; // as a service has it: root's can't be read then
        Service service;
        make_project(service, "ann/plant");
        test::write(note.path() / "root", service.root().string());
        test::run("chown -R 65534 " + service.root().string() + "; mkdir " +
                  service.at("ann/plant/kept") + "; touch " + service.at("ann/plant/kept/file"));
        if (!test::unprivileged()) return 1;
        if (service.drop("/repos/ann/plant").code != 204) return 2;
        if (service.get("/repos/ann/plant").code != 404) return 3;
        const std::string left = test::run("find " + service.root().string() + " -name file");
        return left.find("/.zev-removed/plant.") != left.npos ? 0 : 4;
    });
    EXPECT_EQ(server.wait(), 0);
    std::filesystem::remove_all(test::read(note.path() / "root"));
}

// A project that is open from the request before is what another process made of it meanwhile.
TEST(Projects, AreAsOthersLeftThem) {
    static const auto real = os::calls.now;
    os::calls.now = [] { return real() + 10 * zev::kSecond; }; // no change is recent
    const zev::Finally reset([] { os::calls.now = real; });
    Service service;
    const auto id = [&] { return service.get("/repos/ann/plant").text("data.id"); };
    make_project(service, "ann/plant");
    const std::string first = id();
    EXPECT_EQ(first.size(), 40u);
    EXPECT_EQ(id(), first);
    const std::string other(40, '7');
    const auto changed = test::guard(
        zRepositoryOpenBare(test::wide(service.at("ann/plant")).c_str()), zRepositoryFree);
    Oid set;
    zOidFromStr(&set, test::wide(other).c_str());
    EXPECT_TRUE(zRepositorySetId(changed.get(), &set));
    EXPECT_EQ(id(), other);
    EXPECT_EQ(id(), other);
    std::filesystem::remove_all(service.at("ann/plant"));
    EXPECT_EQ(service.get("/repos/ann/plant").code, 404);
    make_project(service, "ann/plant");
    EXPECT_NE(id(), other);
}

TEST(Projects, LeaveNothingWhenTheyCanNotBeMade) {
    Service service;
    std::filesystem::create_directories(service.repos() / "bob" / "mill"); // empty: it is taken
    static const auto rename = os::calls.rename;
    service.have_done([] {
        os::calls.rename = [](const char *from, const char *to, unsigned flags) {
            if (std::string_view(to).find("/.zev-removed/") != std::string_view::npos)
                return rename(from, to, flags);
            return errno = EIO, -1;
        };
    });
    EXPECT_EQ(service.post("/repos", kOne).code, 500);
    EXPECT_EQ(service.post("/repos", project("bob", "new")).code, 500);
    service.have_done([] { os::calls.rename = rename; });
    EXPECT_EQ(test::run("cd " + service.repos().string() + " && find . -mindepth 1 | sort"),
              "./bob\n./bob/mill\n");
    EXPECT_EQ(service.post("/repos", project("bob", "mill")).code, 200);
}

// What was killed while it made or removed a project goes with the next one made beside it; what
// somebody holds stays.
TEST(Projects, AreMadeBesideNoLeftOvers) {
    Service service;
    const std::string aside = service.at("ann/.zev-removed");
    make_project(service, "ann/.zev-removed/gone.0123abcd");
    make_project(service, "ann/.zev-removed/held.0123abcd");
    test::write(aside + "/.begun.0123abcd.zlck", "");
    const auto held =
        test::guard(zFlockOpen(test::wide(aside + "/held.0123abcd").c_str(), false), zFlockClose);
    ASSERT_EQ(service.post("/repos", kOne).code, 200);
    EXPECT_EQ(test::run("ls -A " + aside), ".held.0123abcd.zlck\nheld.0123abcd\n");
}

// A name in another case that somebody gives between the look and the rename.
TEST(Projects, LoseTheirNameToWhoComesFirst) {
    static std::string other;
    static const auto real = os::calls.syncfs;
    Service service;
    for (const char *name : {"ann/PLANT", "Ann/mill"}) {
        other = "mkdir -p " + service.at(name);
        service.have_done([] { os::calls.syncfs = [](int) { return test::run(other), 0; }; });
        EXPECT_EQ(service.post("/repos", kOne).code, 409) << name;
        service.have_done([] { os::calls.syncfs = real; });
        EXPECT_EQ(test::run("cd " + service.repos().string() + " && find . -mindepth 2"),
                  "./" + std::string(name) + "\n");
        std::filesystem::remove_all(service.at(name));
        std::filesystem::remove(service.repos() / "ann");
    }
}

// What a killed service left behind, as it finds it when it starts again.
TEST(Projects, AreClearedUpAfterAKill) {
    Service service;
    const std::string repos = service.repos().string();
    make_project(service, "ann/plant");
    make_project(service, "ann/.zev-removed/gone.0123abcd");
    make_project(service, "bob/.zev-removed/begun.0123abcd");
    std::filesystem::create_directories(service.at("eve"));
    const std::string lock = service.at("ann/plant") + "/refs/heads/master.lock";
    test::write(lock, "");
    test::write(repos + "/.zev-names.zlck", "");
    const std::string rights_lock = service.at("ann/plant") + "/.AUTHZ.zlck";
    test::write(rights_lock, "");
    test::write(service.repos() / "file", "");
    const auto clear = [&](int64_t since) {
        const Time time{since, 0};
        EXPECT_OK(zServerRecover(test::wide(repos).c_str(), &time));
        return test::run("cd " + repos + " && find . -maxdepth 2 -mindepth 1 | sort");
    };
    EXPECT_EQ(clear(int64_t{1} << 40), "./ann\n./ann/plant\n./file\n");
    EXPECT_TRUE(std::filesystem::exists(lock)); // it was there before that service began
    EXPECT_FALSE(std::filesystem::exists(rights_lock));
    clear(0);
    EXPECT_FALSE(std::filesystem::exists(lock));
    // An owner into whose directory a project is about to come.
    std::filesystem::create_directories(service.at("eve"));
    const auto held =
        test::guard(zFlockOpen((test::wide(repos) + u"/zev-names").c_str(), false), zFlockClose);
    clear(0);
    EXPECT_TRUE(std::filesystem::exists(service.at("eve")));
}

TEST(Projects, BeginWithTheirTemplate) {
    test::Rights rights;
    rights.codes["ann"] = "1";
    Service service(u"none", rights.table());
    make_project(service, "std/house");
    const std::string tree =
        store_tree(service, "std/house", {{"in/.gitkeep", ""}, {"in/a.dwx", "a"}, {"b", "b"}});
    service.git("std/house", "update-ref HEAD " + commit_tree(service, "std/house", tree));
    test::write(service.at("std/house") + "/AUTHZ", "rights");
    const std::string with = R"(,"tmpl_owner":"std","tmpl_name":"house")";
    ASSERT_EQ(service.post("/repos", project("ann", "plain", with)).code, 200);
    EXPECT_EQ(service.git("ann/plain", "ls-tree -r --name-only HEAD"), "in/.gitkeep\n");
    EXPECT_EQ(test::read(service.at("ann/plain") + "/AUTHZ"), "rights");
    EXPECT_TRUE(rights.calls.empty());

    rights.has_role = true;
    service.log_in("ann", "1");
    ASSERT_EQ(service.post("/repos", project("ann", "own", with)).code, 200);
    const std::vector<std::string> calls{"create administrator", "remove administrator 7",
                                         "remove administrator old", "add administrator ann",
                                         "set / administrator 112"};
    EXPECT_EQ(rights.calls, calls);
    for (const char *none : {R"(,"tmpl_owner":"std","tmpl_name":"none")",
                             R"(,"tmpl_owner":"std","tmpl_name":"../std/house")"}) {
        service.drop("/repos/ann/own");
        ASSERT_EQ(service.post("/repos", project("ann", "own", none)).code, 200) << none;
        EXPECT_NE(service.git("ann/own", "rev-parse --verify -q HEAD | wc -l"), "1\n") << none;
    }
    // It needs no rights of its own; half of one is none.
    std::filesystem::remove(service.at("std/house") + "/AUTHZ");
    ASSERT_EQ(service.post("/repos", project("ann", "free", with)).code, 200);
    EXPECT_EQ(service.git("ann/free", "ls-tree -r --name-only HEAD"), "in/.gitkeep\n");
    std::filesystem::remove(service.at("std/house") + "/objects/" + tree.substr(0, 2) + "/" +
                            tree.substr(2));
    EXPECT_EQ(service.post("/repos", project("ann", "half", with)).code, 500);
    EXPECT_EQ(test::run("ls -A " + service.at("ann")), "free\nown\nplain\n");
}

// Where rights are required a list has what the caller has any right in.
TEST(Projects, AreListedByRights) {
    test::Rights rights;
    rights.codes = {{"ann", "1"}, {"bob", "2"}, {"root", "3"}, {"eve", "4"}};
    rights.power = "root";
    rights.bits["ann"] = {{"/x", 0}, {"in/a.dwx", Z_PRIVILEGE_READ}};
    rights.bits["bob"] = {{"/", Z_PRIVILEGE_WRITE}};
    rights.bits["eve"] = {{"/", 0}, {"in", 1}};
    rights.project = "plant";
    Service service(u"required", rights.table());
    make_project(service, "ann/plant");
    make_project(service, "bob/mill");
    const struct {
        const char *user, *code, *names;
    } cases[] = {{"ann", "1", "plant"},
                 {"bob", "2", "plant"},
                 {"eve", "4", ""},
                 {"root", "3", "plant,mill"}};
    for (const auto &[user, code, names] : cases) {
        service.log_in(user, code);
        EXPECT_EQ(service.get("/repos").each("name"), names) << user;
    }
    EXPECT_EQ(service.drop("/repos/bob/mill/more").code, 400);
    EXPECT_EQ(service.drop("/repos/bob/mill").code, 204);
}

TEST(References, AreShown) {
    Service service;
    make_project(service, "ann/plant");
    const std::string tree = store_tree(service, "ann/plant", {{"a", "a"}});
    const std::string id = commit_tree(service, "ann/plant", tree);
    service.git("ann/plant", "update-ref refs/heads/master " + id);
    service.git("ann/plant", "symbolic-ref refs/heads/other refs/heads/master");
    const Answer all = service.get("/repos/ann/plant/refs");
    EXPECT_EQ(all.each("refname"), "refs/heads/master,refs/heads/other");
    EXPECT_EQ(all.each("target"), id + ",refs/heads/master");
    for (const std::string name : {"master", "refs/heads/master", "heads/master"})
        EXPECT_EQ(service.get("/repos/ann/plant/refs/" + name).text("data.url"),
                  "/repos/ann/plant/refs/heads/master")
            << name;
}

// A walk passes over it: told as no reference, a client would take the project for an empty one.
TEST(References, ThatAreDamagedAreNamed) {
    Service service;
    make_project(service, "ann/plant");
    const std::string tree = store_tree(service, "ann/plant", {{"a", "a"}});
    const std::string refs = "/repos/ann/plant/refs";
    service.git("ann/plant",
                "update-ref refs/heads/master " + commit_tree(service, "ann/plant", tree));
    for (const char *name : {"refs/heads/master", "refs/tags/plan/1"}) {
        const std::filesystem::path file = service.at("ann/plant") + "/" + name;
        std::filesystem::create_directories(file.parent_path());
        const std::string sound = std::filesystem::exists(file) ? test::read(file) : "";
        for (const char *bytes : {"", "rubbish\n", "ref: \n"}) {
            test::write(file, bytes);
            for (const std::string &target : {refs, refs + "/" + name}) {
                const Answer answer = service.get(target);
                EXPECT_EQ(answer.code, 500) << name << bytes << answer.body;
                EXPECT_NE(answer.message().find(name), std::string::npos) << answer.message();
            }
        }
        std::filesystem::remove(file);
        if (!sound.empty()) test::write(file, sound);
    }
    test::write(service.at("ann/plant") + "/refs/heads/.master.zlck", ""); // of somebody at work
    test::write(service.at("ann/plant") + "/refs/heads/master.lock", "");
    EXPECT_EQ(service.get(refs).each("refname"), "refs/heads/master");
}

} // namespace
