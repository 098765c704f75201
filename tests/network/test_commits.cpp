// Commits: what git makes of those that the service wrote, the list, and who may write where.
#include "rights.hpp"
#include "service_fixture.hpp"

#include "system/os.hpp"

#include <git2.h>

using test::Answer, test::make_project, test::Service, test::store_tree;
namespace os = zev::os;

namespace {

const std::string kCommits = "/repos/ann/plant/commits";
const std::string kNone(40, '1');

std::string body(const std::string &author, const std::string &message, const std::string &tree,
                 const std::string &update = "", const std::string &parent = "") {
    std::string text = R"({"query":{"author":")" + author + R"(","message":")" + message +
                       R"(","tree":")" + tree + '"';
    if (!update.empty()) text += R"(,"update":")" + update + '"';
    if (!parent.empty()) text += R"(,"parent":")" + parent + '"';
    return text + "}}";
}

struct Commits : testing::Test {
    Service service;
    Commits() { make_project(service, "ann/plant"); }

    std::string tree(const std::string &content) {
        return store_tree(service, "ann/plant", {{"in/a.dwx", content}, {"b", "b"}});
    }
    std::string tip() {
        return service.git("ann/plant", "rev-parse refs/heads/master").substr(0, 40);
    }
    // A line of commits on master, one a day, each with its number as message.
    std::vector<std::string> make_line(int count) {
        std::vector<std::string> ids;
        for (int n = 0; n < count; ++n) {
            const std::string made =
                test::run("cd " + service.at("ann/plant") + " && GIT_COMMITTER_DATE=2026-01-0" +
                          std::to_string(n + 1) + "T12:00:00Z git -c user.name=a -c user.email=a " +
                          "commit-tree " + (n ? "-p " + ids.back() : "") + " -m " +
                          std::to_string(n) + " " + tree("x"));
            ids.push_back(made.substr(0, 40));
        }
        service.git("ann/plant", "update-ref refs/heads/master " + ids.back());
        return ids;
    }
};

TEST_F(Commits, AreRefusedWithTheirReasons) {
    const std::string branch = "refs/heads/master", made = tree("1");
    const std::string id = service.post(kCommits, body("a", "m", made, branch)).text("data.id");
    const auto tree_of = [&](const std::string &entry) { // of what is no file, or isn't here
        git_oid file;
        git_oid_fromstr(&file, entry.c_str());
        return test::store(
            service, "ann/plant", Z_OBJECT_TREE,
            std::string("100644 x") + '\0' +
                std::string(reinterpret_cast<const char *>(file.id), sizeof file.id));
    };
    const struct {
        std::string json;
        int code;
        std::string part;
    } cases[] = {
        {"", 400, "'application/json'"},
        {"{", 400, "could not be read"},
        {body("J\\u00f6", "m", made), 400, "could not be read"}, // would be another name
        {body("a", "m", tree_of(kNone), branch, id), 400, "'x' is invalid"},
        {body("a", "m", tree_of(made)), 400, "'x' is invalid"},
        {R"({"query":{"author":"a","message":"m"}})", 400, "'query.tree' is required"},
        {R"({"query":{"author":"a","message":"m","tree":")" + made + R"(","update":5}})", 400,
         "'query.update' is invalid"},
        {body("a", "m", made, branch, "12"), 400, "'query.parent' is invalid"},
        {body("a", "m", made, branch), 400, "'query.parent' is required"},
        {body("a", "m", made, branch, kNone), 409, "newer changes"},
        {body("a", "m", made, "refs/heads/new", id), 400, "'query.parent' is not accepted"},
        {body("a", "m", "12", branch, id), 400, "'tree' is invalid"},
        {body("a", "m", kNone, branch, id), 400, "There is no tree '" + kNone + "'"},
        {body("a<b", "m", made, branch, id), 500, "could not be created"},
        {body("a", "m", made, "master", id), 500, "could not be created"},
        {body("a", "m", made, "hooks/update"), 500, "could not be created"},
        {body("a", "m", made, "refs/heads/../../x"), 500, "could not be created"},
        {body("a", "m", made, "FETCH_HEAD"), 500, "could not be created"},
        {body("a", "m", made, "refs/ZEV/agreed/master"), 500, "could not be created"},
    };
    for (const auto &[json, code, part] : cases) {
        const Answer answer =
            json.empty() ? service.ask(Z_HTTP_POST, kCommits) : service.post(kCommits, json);
        EXPECT_EQ(answer.code, code) << json << answer.body;
        EXPECT_NE(answer.message().find(part), std::string::npos) << json << answer.message();
    }
    EXPECT_EQ(tip(), id);
    EXPECT_FALSE(std::filesystem::exists(service.at("ann/plant") + "/hooks/update"));
    EXPECT_FALSE(std::filesystem::exists(service.at("ann/plant") + "/FETCH_HEAD"));
}

// A directory of a tree that can't be read is the server's fault, one that isn't there the
// client's; so is a name that no file system holds, unless it was there before.
TEST_F(Commits, TellADamagedStoreFromABadTree) {
    const std::string branch = "refs/heads/master", made = tree("1"), long_name(256, 'n');
    const std::string in = service.git("ann/plant", "rev-parse " + made + ":in").substr(0, 40);
    const std::filesystem::path file =
        service.at("ann/plant") + "/objects/" + in.substr(0, 2) + "/" + in.substr(2);
    const std::string sound = test::read(file);
    std::filesystem::remove(file);
    test::write(file, "no object");
    EXPECT_EQ(service.post(kCommits, body("a", "m", made, branch)).code, 500);
    std::filesystem::remove(file);
    EXPECT_EQ(service.post(kCommits, body("a", "m", made, branch)).code, 400);
    test::write(file, sound);
    EXPECT_EQ(service.post(kCommits, body("a", "m", made, branch)).code, 200);
    for (const std::string &name : {long_name, "a/" + long_name, long_name + "/a"}) {
        const std::string tree = store_tree(service, "ann/plant", {{name, "1"}});
        const Answer answer = service.post(kCommits, body("a", "m", tree, branch, tip()));
        EXPECT_EQ(answer.code, 400) << answer.body;
        EXPECT_NE(answer.message().find("'" + name + "'"), std::string::npos) << answer.message();
        const std::string old = commit_tree(service, "ann/plant", tree);
        service.git("ann/plant", "update-ref refs/heads/old " + old);
        const std::string next = store_tree(service, "ann/plant", {{name, "2"}});
        EXPECT_EQ(service.post(kCommits, body("a", "m", next, "refs/heads/old", old)).code, 200);
    }
}

// A path that no operation takes enters no project, but one that is there can go on.
TEST_F(Commits, TakeNoPathsThatAreTooLong) {
    const std::string directories = std::string(200, 'a') + "/" + std::string(200, 'b') + "/";
    std::string umlauts;
    for (int n = 0; n < 109; ++n) umlauts += "\u00f6"; // more bytes, as many units
    for (const auto &[name, code] :
         {std::pair(std::string(109, 'c'), 200), {umlauts, 200}, {std::string(110, 'c'), 400}}) {
        const std::string path = directories + name;
        const std::string made = store_tree(service, "ann/plant", {{path, "1"}});
        EXPECT_EQ(service.post(kCommits, body("a", "m", made)).code, code) << path.size();
    }
}

// What is named and isn't there was lost: a history that ends at it isn't whole, and a branch that
// leads to it isn't gone.
TEST_F(Commits, AreNotGoneWhenTheyAreLost) {
    const std::vector<std::string> ids = make_line(3);
    service.git("ann/plant", "update-ref refs/heads/lost " + ids[0]);
    ASSERT_TRUE(std::filesystem::remove(service.at("ann/plant") + "/objects/" +
                                        ids[0].substr(0, 2) + "/" + ids[0].substr(2)));
    const std::string revisions = "/repos/ann/plant/revisions";
    const std::pair<std::string, int> cases[] = {
        {kCommits, 500},
        {kCommits + "?limit=2", 200},
        {kCommits + "?head=lost", 500},
        {kCommits + "?head=" + ids[0], 404}, // asked for by its name
        {revisions, 500},
        {revisions + "?until=1999-01-01T00:00:00Z", 500},
        {revisions + "?limit=2", 200},
        {revisions + "?head=lost", 500},
        {revisions + "?head=none", 404},
        {revisions + "/" + ids[1], 500}, // there it is, but not what it went out from
        {revisions + "/" + ids[0], 404},
    };
    for (const auto &[target, code] : cases) EXPECT_EQ(service.get(target).code, code) << target;
    for (const std::string &told : {std::string(), ids[0]})
        EXPECT_EQ(service.post(kCommits, body("a", "m", tree("y"), "refs/heads/lost", told)).code,
                  500)
            << told;
}

// Git takes what JSON can't carry.
TEST_F(Commits, AreListedWithBlanksForControlCharacters) {
    const std::string id =
        service
            .git("ann/plant", "commit-tree " + tree("x") + " <<'END'\na \x1b[31mred\n\tone\nEND\n")
            .substr(0, 40);
    service.git("ann/plant", "update-ref refs/heads/master " + id);
    EXPECT_EQ(service.get(kCommits).entry(0, "message"), "a  [31mred\n\tone\n");
    EXPECT_EQ(service.get(kCommits + "/" + id).text("data.message"), "a  [31mred\n\tone\n");
}

// Else every copy would have a path that it can't make.
TEST_F(Commits, TakeNoLinksThatLeadNowhere) {
    for (const auto &[length, code] : {std::pair(0, 400), {1, 200}, {4095, 200}, {4096, 400}}) {
        const std::string blob = test::store(service, "ann/plant", Z_OBJECT_BLOB,
                                             std::string(static_cast<size_t>(length), 'x'));
        const std::string made =
            service.git("ann/plant", "mktree <<'END'\n120000 blob " + blob + "\tlink\nEND\n")
                .substr(0, 40);
        const Answer answer = service.post(kCommits, body("a", "m", made));
        EXPECT_EQ(answer.code, code) << length << answer.body;
        EXPECT_EQ(answer.message().find("'link'") != std::string::npos, code == 400) << length;
    }
}

// Another server on the same directory commits between the look at the branch and its move.
TEST_F(Commits, NeverTakeAnothersBack) {
    const std::string branch = "refs/heads/master";
    const std::string id =
        service.post(kCommits, body("a", "m", tree("1"), branch)).text("data.id");
    static std::string move;
    static int syncs;
    move = "git -C " + service.at("ann/plant") + " update-ref refs/heads/master " +
           service.post(kCommits, body("a", "other", tree("2"))).text("data.id");
    const std::string late = tree("3");
    static const auto real = os::calls.syncfs;
    syncs = 0;
    service.have_done([] {
        os::calls.syncfs = [](int) {
            if (!syncs++) test::run(move);
            return 0;
        };
    });
    const Answer answer = service.post(kCommits, body("a", "late", late, branch, id));
    service.have_done([] { os::calls.syncfs = real; });
    EXPECT_EQ(answer.code, 409) << answer.body;
    EXPECT_EQ(service.git("ann/plant", "log -1 --format=%s master"), "other\n");
}

// git holds the lock of a branch for a moment when it packs references. It goes here when the
// commit syncs for the second time, or never.
TEST_F(Commits, WaitForALockOfGits) {
    const std::string branch = "refs/heads/master", made = tree("1");
    const std::string id = service.post(kCommits, body("a", "m", made, branch)).text("data.id");
    static const std::string lock = service.at("ann/plant/refs/heads/master.lock");
    static const auto syncfs = os::calls.syncfs;
    static int syncs = 0, last = 0;
    service.have_done([] {
        os::calls.syncfs = [](int fd) {
            if (++syncs == last) std::filesystem::remove(lock);
            return syncfs(fd);
        };
    });
    for (const int code : {200, 500}) {
        last = code == 200 ? 2 : 0, syncs = 0;
        test::write(lock, "");
        const Answer answer = service.post(kCommits, body("a", "n", made, branch, id));
        EXPECT_EQ(answer.code, code) << answer.message();
        if (code == 200) service.git("ann/plant", "update-ref refs/heads/master " + id);
    }
    std::filesystem::remove(lock);
    service.have_done([] { os::calls.syncfs = syncfs; });
}

TEST_F(Commits, AreListedAlongFirstParents) {
    EXPECT_EQ(service.get(kCommits).message().substr(0, 24), "There is no commit 'HEAD");
    const std::vector<std::string> ids = make_line(4);
    service.git("ann/plant", "update-ref refs/heads/" + ids[0] + " " + ids[3]);
    const struct {
        std::string query, messages;
    } cases[] = {
        {"", "3\n,2\n,1\n,0\n"},
        {"?limit=2", "3\n,2\n"},
        {"?limit=0", "3\n,2\n,1\n,0\n"},
        {"?since=2026-01-03T12:00:00Z", "3\n,2\n"},
        {"?since=2026-01-03", "3\n,2\n,1\n,0\n"},
        {"?until=2026-01-03T12:00:00Z", "1\n,0\n"},
        {"?until=2026-01-04T12:00:00Z&since=2026-01-02T12:00:00Z&limit=1", "2\n"},
        {"?head=" + ids[2], "2\n,1\n,0\n"},
        {"?head=" + ids[0], "0\n"},
    };
    for (const auto &[query, messages] : cases)
        EXPECT_EQ(service.get(kCommits + query).each("message"), messages) << query;
}

// Where rights are required each path in which the tree differs is asked for.
TEST(CommitRights, AreThoseOfEachPath) {
    test::Rights rights;
    rights.codes["bob"] = "2";
    rights.bits["bob"] = {{"in", 0x30}, {"in/deep/no", 0x10}, {"/", 0x10}};
    Service service(u"required", rights.table());
    make_project(service, "ann/plant");
    using Files = std::vector<std::pair<std::string, std::string>>;
    const Files base{{"b", "b"}, {"in/a", "a"}, {"in/deep/no", "n"}, {"out/x", "x"}};
    const std::string tree = store_tree(service, "ann/plant", base);
    const std::string id = commit_tree(service, "ann/plant", tree);
    const struct {
        Files files;
        bool allowed, rooted; // on the branch, and by itself
    } cases[] = {
        {base, true, false},
        {{{"b", "b"}, {"in/a", "2"}, {"in/deep/no", "n"}, {"out/x", "x"}}, true, false},
        {{{"b", "b"}, {"in/new/x", "2"}, {"in/deep/no", "n"}, {"out/x", "x"}}, true, false},
        {{{"b", "2"}, {"in/a", "a"}, {"in/deep/no", "n"}, {"out/x", "x"}}, false, false},
        {{{"b", "b"}, {"in/a", "a"}, {"out/x", "x"}}, false, false},
        {{{"b", "b"}, {"in/a", "a"}, {"in/deep/no", "n"}}, false, false},
        {{{"b", "b"}, {"in/a", "a"}, {"in/deep/no/x", "n"}, {"out/x", "x"}}, false, false},
        {{{"in/a", "a"}}, false, true},
    };
    service.log_in("bob", "2");
    for (const auto &[files, allowed, rooted] : cases) {
        service.git("ann/plant", "update-ref refs/heads/master " + id);
        const std::string made = store_tree(service, "ann/plant", files);
        const auto n = &files - &cases[0].files;
        EXPECT_EQ(service.post(kCommits, body("a", "m", made, "refs/heads/master", id)).code,
                  allowed ? 200 : 403)
            << n;
        EXPECT_EQ(service.post(kCommits, body("a", "m", made)).code, rooted ? 200 : 403) << n;
    }
}

} // namespace
