// What may be read where rights are required: by the paths that ever named it.
#include "../objects/drawing_fixture.hpp"
#include "commit_fixture.hpp"
#include "rights.hpp"

using test::be32, test::id_of, test::Service;

namespace {

struct Paths : testing::Test {
    // "bob" reads docs alone, "mal" writes there, too; "eve" what is not there, "ann" all.
    void SetUp() override {
        constexpr int kRead = Z_PRIVILEGE_READ, kBoth = kRead | Z_PRIVILEGE_WRITE;
        for (const char *user : {"ann", "bob", "mal", "eve"}) rights.codes[user] = "code";
        rights.bits = {{"ann", {{"/", kRead}}},
                       {"bob", {{"docs", kRead}}},
                       {"mal", {{"docs", kBoth}}},
                       {"eve", {{"attic", kRead}}}};
        test::make_project(service, project);
        put("docs/open.txt", "open");
        put("secret/hidden.txt", "hidden");
    }
    std::string put(const std::string &path, const std::string &bytes) {
        return test::commit_file(service, project, path, &bytes);
    }
    void remove(const std::string &path) { test::commit_file(service, project, path, nullptr); }
    int32_t read(const char *user, const std::string &id) {
        service.log_in(user, "code");
        return service.get("/repos/ann/plant/objects/" + id).code;
    }
    int32_t pack(const char *user, const std::string &id, bool recursive) {
        service.log_in(user, "code");
        return service
            .post("/repos/ann/plant/packs/diff", R"({"query":{"entries":[{"id":")" + id +
                                                     R"(","recursive":)" +
                                                     (recursive ? "true" : "false") + "}]}}")
            .code;
    }
    int32_t rows(const char *user, const std::string &table) {
        return of_table(Z_HTTP_PATCH, user, table, be32(1) + std::string(16, '\xFF'));
    }
    int32_t store(const char *user, const std::string &table) {
        return of_table(Z_HTTP_PUT, user, table, be32(0));
    }
    int32_t of_table(uint32_t method, const char *user, const std::string &table,
                     const std::string &body) {
        service.log_in(user, "code");
        return service.ask(method, "/repos/ann/plant/tables/" + table, body, u"x/y").code;
    }

    std::string drawing(const std::string &of_table, const std::string &thumbnail = "") {
        auto made = test::guard(zDrawingNew(nullptr, nullptr), zDrawingFree);
        Oid id;
        zOidFromStr(&id, test::wide(of_table).c_str());
        zDrawingTableIdSet(made.get(), &id);
        zDrawingSetThumbnail(made.get(), uint32_t(thumbnail.size()), thumbnail.data());
        const auto file = service.root() / "drawing.dwx";
        EXPECT_OK(zDrawingWrite(made.get(), file.u16string().c_str()));
        return test::read(file);
    }
    // A commit through the service by which a stored object becomes a file.
    int32_t name(const char *user, const std::string &path, const std::string &id) {
        service.log_in(user, "code");
        const std::string head = service.git(project, "rev-parse HEAD HEAD^{tree}");
        const std::string tree =
            service
                .post("/repos/ann/plant/trees", R"({"query":{"base":")" + head.substr(41, 40) +
                                                    R"(","entries":[{"oper":"add","mode":33188,)" +
                                                    R"("path":")" + path + R"(","id":")" + id +
                                                    R"("}]}})")
                .text("data.id");
        return service
            .post("/repos/ann/plant/commits",
                  R"({"query":{"author":"m","message":"m","update":"refs/heads/master","tree":")" +
                      tree + R"(","parent":")" + head.substr(0, 40) + R"("}})")
            .code;
    }

    test::Rights rights;
    Service service{u"required", rights.table()};
    const std::string project = "ann/plant";
};

TEST_F(Paths, DecideOnFiles) {
    const std::string open = id_of("open"), hidden = id_of("hidden"), both = id_of("both");
    EXPECT_EQ(read("bob", open), 200);
    EXPECT_EQ(read("bob", hidden), 403);
    EXPECT_EQ(read("ann", hidden), 200);
    EXPECT_EQ(read("eve", open), 403);
    EXPECT_EQ(pack("bob", open, false), 200);
    EXPECT_EQ(pack("bob", hidden, false), 403);
    const std::string head = service.git(project, "rev-parse HEAD").substr(0, 40);
    EXPECT_EQ(read("bob", head), 200); // listings stay for all
    EXPECT_EQ(pack("bob", head, false), 200);
    EXPECT_EQ(pack("bob", head, true), 403);
    EXPECT_EQ(pack("ann", head, true), 200);

    // What no commit names goes to whoever knows its id; then a commit names it.
    test::write(service.root() / "file", "both");
    service.git(project, "hash-object -w ../../../file");
    EXPECT_EQ(read("eve", both), 200);
    put("secret/both.txt", "both");
    EXPECT_EQ(read("bob", both), 403);
    put("docs/both.txt", "both");
    EXPECT_EQ(read("bob", both), 200);
    remove("docs/both.txt"); // it was named once
    EXPECT_EQ(read("bob", both), 200);
    EXPECT_EQ(read("eve", both), 403);
}

// Branches, merges and what lies behind tags count; the index can be lost or damaged at any time.
TEST_F(Paths, ComeFromAllHistory) {
    service.git(project, "update-ref refs/heads/side HEAD");
    const std::string side = put("secret/side.txt", "side");
    service.git(project, "update-ref HEAD refs/heads/side");
    put("docs/other.txt", "other");
    const std::string merge =
        service.git(project, "-c user.name=a -c user.email=a commit-tree HEAD^{tree} -p HEAD -p " +
                                 side + " -m merge");
    service.git(project, "update-ref HEAD " + merge.substr(0, 40));
    EXPECT_EQ(read("bob", id_of("side")), 403);
    put("secret/tagged.txt", "tagged");
    service.git(project, "-c user.name=a -c user.email=a tag -a -m t v1 HEAD");
    service.git(project, "update-ref HEAD HEAD~1");
    EXPECT_EQ(read("bob", id_of("tagged")), 403);
    EXPECT_EQ(read("bob", id_of("other")), 200);

    const auto index = service.repos() / "ann/plant/paths";
    ASSERT_TRUE(std::filesystem::exists(index / "0"));
    std::filesystem::remove_all(index);
    EXPECT_EQ(read("bob", id_of("hidden")), 403);
    std::filesystem::rename(index / "0", index / "old"); // held by us; what follows is unreadable
    test::write(index / "0" / "CURRENT", "damaged");
    EXPECT_EQ(read("bob", id_of("hidden")), 403);
    EXPECT_EQ(read("bob", id_of("open")), 200);
    std::filesystem::remove_all(index); // and can't be made again
    test::write(index, "");
    EXPECT_EQ(read("bob", id_of("open")), 500);
    EXPECT_EQ(read("ann", id_of("open")), 200);
}

TEST_F(Paths, DecideOnTables) {
    const std::string open(40, 'a'), hidden(40, 'b'), late(40, 'c'), free(40, 'd');
    put("docs/a.dwx", drawing(open));
    put("secret/b.DWX", drawing(hidden));
    EXPECT_EQ(rows("bob", open), 200);
    EXPECT_EQ(rows("bob", hidden), 403);
    EXPECT_FALSE(std::filesystem::exists(service.at(project) + "/tables/bb"));
    EXPECT_EQ(rows("ann", hidden), 200);
    EXPECT_EQ(rows("bob", free), 200);
    // They are changed by who may write there.
    EXPECT_EQ(store("mal", open), 201);
    EXPECT_EQ(store("mal", hidden), 403);
    EXPECT_EQ(store("mal", free), 201);

    // A drawing that comes after the commit that names it.
    const std::string bytes = drawing(late), id = id_of(bytes);
    put("secret/c.dwx", bytes);
    const auto object = service.repos() / "ann/plant/objects" / id.substr(0, 2) / id.substr(2);
    const std::string kept = test::read(object);
    std::filesystem::remove(object);
    EXPECT_EQ(rows("bob", late), 200);
    test::write(object, kept);
    EXPECT_EQ(rows("bob", late), 403);
}

// Who writes somewhere gives himself nothing of what he may not read by naming it there.
TEST_F(Paths, AreNotGivenToWhatIsHidden) {
    const std::string hidden(40, 'a'), own(40, 'b');
    put("secret/a.dwx", drawing(hidden));
    put("secret/empty", "");
    put("secret/.GitKeep", "keep");
    const auto stored = [&](const std::string &bytes) {
        return test::store(service, project, Z_OBJECT_BLOB, bytes);
    };
    const std::string late = drawing(hidden, "late");
    const struct {
        const char *path;
        std::string id;
        int32_t code;
    } cases[] = {
        {"docs/new", stored("new"), 200},
        {"docs/copy", id_of("open"), 200},
        {"docs/stolen", id_of("hidden"), 403},
        {"docs/empty", id_of(""), 200},
        {"docs/.gitkeep", id_of("keep"), 200}, // shown to all in listings
        {"docs/own.dwx", stored(drawing(own)), 200},
        {"docs/forged.dwx", stored(drawing(hidden, "forged")), 403},
        {"docs/late.dwx", id_of(late), 403}, // nobody could look at it
    };
    for (const auto &[path, id, code] : cases) EXPECT_EQ(name("mal", path, id), code) << path;
    EXPECT_EQ(rows("bob", hidden), 403);
    stored(late);
    std::filesystem::remove_all(service.at(project) + "/paths");
    EXPECT_EQ(rows("bob", hidden), 403);
    EXPECT_EQ(rows("bob", own), 200);
    EXPECT_EQ(read("bob", id_of("hidden")), 403);
    EXPECT_EQ(read("eve", id_of("keep")), 200);
}

// An index goes with its project, and not to another of the same name.
TEST_F(Paths, FollowAProject) {
    EXPECT_EQ(read("bob", id_of("hidden")), 403);
    std::filesystem::rename(service.at(project), service.at("ann/works"));
    service.log_in("bob", "code");
    EXPECT_EQ(service.get("/repos/ann/works/objects/" + id_of("hidden")).code, 403);
    test::make_project(service, project); // a new one under the old name
    test::write(service.root() / "file", "hidden");
    service.git(project, "hash-object -w ../../../file");
    EXPECT_EQ(read("bob", id_of("hidden")), 200);
}

} // namespace
