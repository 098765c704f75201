// Trees: listings with rights in their modes, and new trees of a base and a list of changes.
#include "rights.hpp"
#include "service_fixture.hpp"

using test::Answer, test::make_project, test::Service, test::store_tree;

namespace {

const std::string kTrees = "/repos/ann/plant/trees";
const std::string kBlob(40, 'b');

struct Trees : testing::Test {
    test::Rights rights;
    Service service{u"none", rights.table()};
    Trees() {
        rights.codes = {{"admin", "0"}, {"bob", "2"}};
        make_project(service, "ann/plant");
        service.log_in("admin", "0");
    }

    std::string base() {
        return store_tree(
            service, "ann/plant",
            {{"b", "bb"}, {"in/.gitkeep", ""}, {"in/a.dwx", "a"}, {"in/deep/n", "nnn"}});
    }
    Answer make(const std::string &base, const std::string &entries) {
        const std::string begin = base.empty() ? "" : R"("base":")" + base + "\",";
        return service.post(kTrees, R"({"query":{)" + begin + R"("entries":)" + entries + "}}");
    }
};

std::string change(const std::string &oper, const std::string &path, const std::string &id = kBlob,
                   const std::string &kind = "") {
    return R"({"oper":")" + oper + R"(","path":")" + path + R"(","id":")" + id +
           R"(","mode":33261)" + (kind.empty() ? "" : R"(,"kind":")" + kind + '"') + "}";
}

TEST_F(Trees, AreListedWithTheirRights) {
    const std::string tree = base(), all = "b,in,.gitkeep,a.dwx,deep,n";
    rights.bits["bob"] = {{"/", 0x30}, {"in", 0x10}, {"in/deep", 0}};
    const struct {
        const char *user;
        std::string query, names, modes;
    } cases[] = {
        {"admin", "", all, "33188,16384,33188,33188,16384,33188"},
        {"bob", "", all, "33188,16384,33188,33060,16384,32804"},
        {"", "?recursive=x", all, "32804,16384,33188,32804,16384,32804"},
        {"admin", "?recursive=False&otype=blob", "b", "33188"},
        {"admin", "?otype=blob", "b,.gitkeep,a.dwx,n", "33188,33188,33188,33188"},
        {"admin", "?otype=tree", "in,deep", "16384,16384"},
    };
    for (const auto &[user, query, names, modes] : cases) {
        service.log_in(user, *user == 'b' ? "2" : "0");
        const Answer answer = service.get(kTrees + "/" + tree + query);
        ASSERT_EQ(answer.code, 200) << answer.body;
        EXPECT_EQ(answer.each("name"), names) << user << query;
        EXPECT_EQ(answer.each("mode"), modes) << user << query;
    }
    const Answer answer = service.get(kTrees + "/" + tree);
    EXPECT_EQ(answer.each("path"), ",,in/,in/,in/,in/deep/");
    EXPECT_EQ(answer.entry(0, "size") + answer.entry(5, "size"), "23");
    const std::string commit = commit_tree(service, "ann/plant", tree);
    EXPECT_EQ(service.get(kTrees + "/" + commit).text("data.id"), tree);
    for (const std::string &none : {std::string("12"), kBlob, answer.entry(0, "id")})
        EXPECT_EQ(service.get(kTrees + "/" + none).code, 404) << none;
}

TEST_F(Trees, AreMadeOfABaseAndChanges) {
    const std::string tree = base(), id = test::store(service, "ann/plant", Z_OBJECT_BLOB, "new");
    const struct {
        std::string base, entries, paths;
    } cases[] = {
        {"", "[]", ""},
        {"", "[" + change("add", "x/y/z", id) + "," + change("add", "a", id) + "]", "a x/y/z "},
        {tree,
         "[" + change("add", "in", id) + "," + change("delete", "in/a.dwx") + "," +
             change("delete", "in/.gitkeep") + "," + change("delete", "in/deep/n") + "," +
             change("delete", "none/at/all") + "]",
         "b in "},
        {tree, "[" + change("add", "b/c", id) + "," + change("delete", "b") + "]",
         "b/c in/.gitkeep in/a.dwx in/deep/n "},
    };
    for (const auto &[from, entries, paths] : cases) {
        const Answer answer = make(from, entries);
        ASSERT_EQ(answer.code, 200) << entries << answer.body;
        const std::string made = answer.text("data.id");
        EXPECT_EQ(service.git("ann/plant", "ls-tree -r --name-only " + made + " | tr '\\n' ' '"),
                  paths)
            << entries;
    }
    const std::string made = make(tree, "[" + change("modify", "b", id) + "]").text("data.id");
    EXPECT_EQ(service.git("ann/plant", "ls-tree " + made + " b"), "100644 blob " + id + "\tb\n");
    // The kind counts, and no mode.
    std::string all;
    for (const std::string kind : {"a", "link", "program"})
        all += (all.empty() ? "[" : ",") + change("add", kind, id, kind);
    EXPECT_EQ(service.git("ann/plant", "ls-tree " + make("", all + "]").text("data.id") +
                                           " | cut -c-6 | tr '\\n' ' '"),
              "100644 120000 100755 ");
}

TEST_F(Trees, AreRefusedWhole) {
    const std::string tree = base();
    const auto entries = [](const std::string &list) {
        return R"({"query":{"entries":[)" + list + "]}}";
    };
    std::vector<std::pair<std::string, std::string>> cases = {
        {R"({"query":{"base":"12","entries":[]}})", "'base' is invalid"},
        {R"({"query":{"base":")" + kBlob + R"(","entries":[]}})", "There is no tree '" + kBlob},
        {entries("1"), "'entries[0]' is invalid"},
        {entries(R"({"path":"a"})"), "'entries[0]' is invalid"},
        {entries(change("add", "a") + R"(,{"oper":"delete","path":"b"})"),
         "'entries[1]' is invalid"},
        {entries(R"({"oper":"add","path":"a","id":")" + kBlob + R"(","mode":0})"),
         "'entries[0]' is invalid"},
        {entries(change("add", "a", "xyz")), "'xyz' is invalid"},
        {entries(change("add", "a") + "," + change("add", "a/b")), "'entries[1]' is invalid"},
        {entries(change("add", "a/b/c") + "," + change("add", "a")), "'entries[1]' is invalid"},
        {R"({"query":{"base":")" + tree + R"(","entries":[)" + change("add", "in") + "]}}",
         "'entries[0]' is invalid"},
        {R"({"query":{"base":")" + tree + R"(","entries":[)" + change("add", "in/a.dwx/x") + "]}}",
         "'entries[0]' is invalid"},
        {entries(change("add", "a/" + std::string(256, 'n') + "/b")), "'entries[0]' is invalid"},
    };
    for (const char *path :
         {"", "/a", "a//b", "a/", R"(a\\b)", "..", "a/../b", ".git", "a/.GIT/b", "c:/a", "."})
        for (const char *oper : {"add", "delete"})
            cases.emplace_back(entries(change(oper, path)), "'entries[0]' is invalid");
    for (const auto &[json, part] : cases) {
        const Answer answer = service.post(kTrees, json);
        EXPECT_EQ(answer.code, 400) << json << answer.body;
        EXPECT_NE(answer.message().find(part), std::string::npos) << json << answer.message();
    }
}

// Refused are directories, each once, before anything else is looked at; where rights are required
// the paths themselves, too.
TEST_F(Trees, AreMadeByWhoMayWrite) {
    rights.bits["bob"] = {{"in", 0x30}, {"in/no", 0x10}, {"top", 0x30}, {"/", 0x10}};
    const struct {
        std::string entries, error;
    } cases[] = {
        {change("add", "in/a"), ""},
        {change("add", "top"), ""},
        {change("add", "out/a"), "out"},
        {change("add", "OUT/a") + "," + change("add", "out/b") + "," + change("add", "b"), "OUT,b"},
        {R"({"path":"x\\y\\z"},{"path":5},1)", "x/y"},
        {change("add", "in/no"), "in/no"},
    };
    for (const bool guarded : {false, true}) {
        Service other(guarded ? u"required" : u"none", rights.table());
        make_project(other, "ann/plant");
        other.log_in("bob", "2");
        for (const auto &[entries, error] : cases) {
            const Answer answer = other.post(kTrees, R"({"query":{"entries":[)" + entries + "]}}");
            std::string denied;
            Json *list = answer.at("error");
            for (uint64_t i = 0; list && i < zJsonArraySize(list); ++i)
                denied += (i ? "," : "") +
                          test::narrow(zJsonPathGetString(zJsonArrayAt(list, i), u"path"));
            const bool passes = error.empty() || (!guarded && error == "in/no");
            EXPECT_EQ(answer.code, passes ? 200 : 401) << guarded << entries << answer.body;
            EXPECT_EQ(denied, passes ? "" : error) << guarded << entries;
        }
    }
}

// Trees that nest deeper than any path would take the stack of who walks them, those that unfold to
// more files than any project has his time; no commit names them, whatever comes after what.
TEST_F(Trees, AreNoLargerThanAProject) {
    const auto tree_of = [&](const std::string &below, int count) {
        Oid raw;
        zOidFromStr(&raw, test::wide(below).c_str());
        std::string bytes;
        for (int n = 0; n < count; ++n) {
            bytes.append("40000 ").append(1, static_cast<char>('a' + n)).append(1, '\0');
            bytes.append(reinterpret_cast<const char *>(&raw), sizeof raw);
        }
        return test::store(service, "ann/plant", Z_OBJECT_TREE, bytes);
    };
    const std::string files = store_tree(service, "ann/plant", {{"a", "a"}});
    std::string deep = files, wide = files;
    for (int level = 0; level < 255; ++level) deep = tree_of(deep, 1);
    for (int level = 0; level < 9; ++level) wide = tree_of(wide, 20);
    const auto commit = [&](const std::string &tree, const std::string &more) {
        return service.post("/repos/ann/plant/commits",
                            R"({"query":{"author":"a","message":"m","tree":")" + tree + '"' + more +
                                "}}");
    };
    const std::string base = tree_of(deep, 0), update = R"(,"update":"refs/heads/master")";
    const std::string first = commit(base, update).text("data.id");
    const std::string later = update + R"(,"parent":")" + first + '"';
    const struct {
        std::string tree;
        int listed, made, committed;
    } cases[] = {{tree_of(deep, 1), 500, 500, 400},
                 {wide, 500, 500, 400},
                 {tree_of(kBlob, 1), 500, 500, 400},
                 {deep, 200, 200, 200}};
    for (const auto &[tree, listed, made, committed] : cases) {
        const auto n = &tree - &cases[0].tree;
        EXPECT_EQ(service.get(kTrees + "/" + tree).code, listed) << n;
        EXPECT_EQ(service.get(kTrees + "/" + tree + "?recursive=0").code, 200) << n;
        EXPECT_EQ(make(tree, "[]").code, made) << n;
        EXPECT_EQ(commit(tree, "").code, committed) << n;
        EXPECT_EQ(commit(tree, later).code, committed) << n;
        const std::string loose = test::store(service, "ann/plant", Z_OBJECT_COMMIT,
                                              "tree " + tree +
                                                  "\nauthor a <a> 1 +0000\ncommitter "
                                                  "a <a> 1 +0000\n\nm");
        EXPECT_EQ(service.get("/repos/ann/plant/revisions/" + loose).code,
                  committed == 200 ? 200 : 500)
            << n;
    }
    // What a commit had already counts with what comes above it.
    const std::string tip = service.git("ann/plant", "rev-parse refs/heads/master").substr(0, 40);
    EXPECT_EQ(commit(tree_of(deep, 1), update + R"(,"parent":")" + tip + '"').code, 400);
    std::string path = "a";
    for (int level = 0; level < 255; ++level) path += "/a";
    const std::string id = test::store(service, "ann/plant", Z_OBJECT_BLOB, "x");
    EXPECT_EQ(make("", "[" + change("add", path, id) + "]").code, 200);
    EXPECT_EQ(make("", "[" + change("add", "a/" + path, id) + "]").code, 400);
    const std::string name(200, 'n'), most = name + "/" + name + "/" + std::string(109, 'n');
    EXPECT_EQ(make("", "[" + change("add", most, id) + "]").code, 200);
    EXPECT_EQ(make("", "[" + change("add", most + "n", id) + "]").code, 400);
}

} // namespace
