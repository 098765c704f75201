// Objects and packs over the wire, with the system's git as judge of what was stored.
#include "../objects/drawing_fixture.hpp"
#include "service_fixture.hpp"

#include "system/os.hpp"

using test::Answer, test::be32, test::id_of, test::Service;

namespace {

std::string object_stream(std::string_view type, std::string_view bytes) {
    return be32(type.size()) + std::string(type) + be32(bytes.size()) + std::string(bytes);
}

std::string tree_entry(std::string_view mode, std::string_view name, uint8_t id = 0x11) {
    return std::string(mode) + " " + std::string(name) + '\0' +
           std::string(20, static_cast<char>(id));
}

std::string in_pieces(std::string_view pack, size_t piece) {
    std::string framed;
    for (size_t at = 0; at < pack.size(); at += piece) {
        const std::string_view part = pack.substr(at, piece);
        framed += be32(part.size()) + std::string(part);
    }
    return framed;
}

std::string tree_id_of(std::string_view bytes) { return id_of(bytes, GIT_OBJECT_TREE); }

struct Objects : testing::Test {
    void SetUp() override { test::make_project(service, "ann/plant"); }

    std::string git(const std::string &command) { return service.git("ann/plant", command); }
    // Stores an object without the service, and gives its id.
    std::string make(std::string_view type, std::string_view bytes) {
        test::write(service.root() / "bytes", bytes);
        return git("hash-object -w --literally -t " + std::string(type) + " ../../../bytes")
            .substr(0, 40);
    }
    bool has(const std::string &id) const { return service.has("ann/plant", id); }
    auto files() const { // directories, too
        return std::distance(std::filesystem::recursive_directory_iterator(service.repos()), {});
    }
    std::string pack_of(const std::string &ids) {
        test::write(service.root() / "ids", ids);
        const std::string at = service.root().string();
        git("pack-objects -q --stdout < " + at + "/ids > " + at + "/pack; true");
        return test::read(service.root() / "pack");
    }

    Service service;
    const std::string objects = "/repos/ann/plant/objects/", packs = "/repos/ann/plant/packs";
};

TEST_F(Objects, TravelBothWays) {
    for (const std::string &bytes :
         {std::string(), std::string("line\n"), test::noise(3 << 20, 1)}) {
        const std::string id = id_of(bytes);
        EXPECT_EQ(service.put(objects + id, object_stream("blob", bytes)).text("data.id"), id);
        EXPECT_TRUE(service.get(objects + id).body == object_stream("blob", bytes));
        EXPECT_EQ(git("cat-file -s " + id), std::to_string(bytes.size()) + "\n");
    }
}

TEST_F(Objects, AreRefusedInTheirOrder) {
    const std::string id(40, 'a'), other = "/repos/ann/none/objects/";
    const struct {
        uint32_t method;
        std::string target, body;
        int32_t code;
        const char *message; // begins with it
    } cases[] = {
        {Z_HTTP_GET, objects + id.substr(1), "", 400, "The field 'id' is required"},
        {Z_HTTP_GET, other + "x", "", 400, "The field 'id' is required"}, // before the gate
        {Z_HTTP_GET, other + id, "", 404, "There is no project 'none'"},
        {Z_HTTP_GET, objects + id, "", 500, "The data stream could not be written"},
        {Z_HTTP_PUT, objects + id, "", 400, "The request needs content"},
        {Z_HTTP_PUT, objects + id, object_stream("any", "x"), 500, "An object could not"},
        {Z_HTTP_PUT, objects + id, object_stream({"blob\0\0", 6}, "x"), 500, "An object could"},
        {Z_HTTP_PUT, objects + id, object_stream("blob", "x") + "y", 500, "An object could not"},
        {Z_HTTP_PUT, objects + id, be32(4) + "blob" + be32(5) + "four", 500, "An object could"},
        {Z_HTTP_PUT, objects + id, be32(0xFFFFFFFF) + "blob", 500, "An object could not"},
        {Z_HTTP_PUT, objects + id, object_stream("commit", "tree x"), 400, "The content of"},
        {Z_HTTP_POST, "/repos/ann/plant/objects", "{}", 400, "The server did not"},
    };
    const auto before = files();
    for (const auto &each : cases) {
        const Answer answer = each.body.empty()
                                  ? service.ask(each.method, each.target)
                                  : service.ask(each.method, each.target, each.body, u"x/y");
        EXPECT_EQ(answer.code, each.code) << each.target << each.body;
        EXPECT_EQ(answer.message().substr(0, strlen(each.message)), each.message)
            << each.target << each.body;
    }
    EXPECT_EQ(files(), before);
}

const struct {
    const char *what;
    std::string tree;
    bool sound;
} kTrees[] = {
    {"a file and a directory", tree_entry("100755", "a.b") + tree_entry("40000", "a"), true},
    {"nothing", "", true},
    {"a name twice", tree_entry("100644", "a") + tree_entry("100644", "a"), false},
    {"a file and a directory of one name",
     tree_entry("100644", "a") + tree_entry("100644", "a.b") + tree_entry("40000", "a"), false},
    {"no order", tree_entry("100644", "b") + tree_entry("100644", "a"), false},
    {"a directory that is no name", tree_entry("40000", ".."), false},
    {"git's own directory", tree_entry("40000", ".GIT"), false},
    {"a path", tree_entry("100644", "a/b"), false},
    {"no name", tree_entry("100644", ""), false},
    {"a mode of old", tree_entry("040000", "a"), false},
    {"a mode that is none", tree_entry("100600", "a"), false},
    {"no id", tree_entry("100644", "a", 0), false},
    {"a cut id", tree_entry("100644", "a").substr(0, 20), false},
};

TEST_F(Objects, HaveTheFormOfTheirType) {
    for (const auto &[what, tree, sound] : kTrees) {
        const std::string id = tree_id_of(tree);
        EXPECT_EQ(service.put(objects + id, object_stream("tree", tree)).code, sound ? 200 : 400)
            << what;
        EXPECT_EQ(has(id), sound || tree.empty()) << what; // git knows the empty one by heart
    }
    const std::string wrong(40, 'b'); // the bytes decide on the name
    EXPECT_EQ(service.put(objects + wrong, object_stream("blob", "mine")).code, 400);
    EXPECT_TRUE(has(id_of("mine")) && !has(wrong));
}

// A damaged file is not given out for what it was.
TEST_F(Objects, AreComparedWithTheirNames) {
    const std::string id = make("blob", "first"), other = make("blob", "second");
    const auto file = [&](const std::string &of) {
        return service.repos() / "ann/plant/objects" / of.substr(0, 2) / of.substr(2);
    };
    std::filesystem::permissions(file(id), std::filesystem::perms::owner_all);
    std::filesystem::copy_file(file(other), file(id),
                               std::filesystem::copy_options::overwrite_existing);
    EXPECT_EQ(service.get(objects + id).code, 500);
    EXPECT_EQ(service.get(objects + other).code, 200);
}

TEST_F(Objects, AreMissedByName) {
    const std::string here = make("blob", "here"), a(40, 'a'), b(40, 'b');
    const auto ask = [&](const std::string &entries) {
        return service.post(objects + "DIFF", R"({"query":{"entries":)" + entries + "}}");
    };
    EXPECT_EQ(ask("[\"" + b + "\",\"" + here + "\",\"" + a + "\"]").body,
              R"({"data":{"entries":[")" + b + R"(",")" + a + R"("]}})");
    EXPECT_EQ(ask("[\"" + here + "\"]").body, R"({"data":{"entries":[]}})");
    for (const std::string &none : {std::string("[7]"), "[\"" + a + "\",\"x\"]", std::string("7")})
        EXPECT_EQ(ask(none).code, 400) << none;
}

// ---- Packs

// Directories in each other take stack from whoever goes through them.
TEST_F(Objects, AreNotPackedToAnyDepth) {
    std::string id = make("tree", "");
    for (int depth = 2; depth <= 257; ++depth) {
        std::string tree = tree_entry("40000", "d");
        git_oid below;
        git_oid_fromstr(&below, id.c_str());
        std::copy(below.id, below.id + 20, tree.end() - 20);
        id = tree_id_of(tree);
        ASSERT_EQ(service.put(objects + id, object_stream("tree", tree)).code, 200);
        if (depth < 256) continue;
        const std::string body =
            R"({"query":{"entries":[{"id":")" + id + R"(","recursive":true}]}})";
        EXPECT_EQ(service.post(packs + "/diff", body).code, depth > 256 ? 400 : 200) << depth;
    }
}

// What may not be on the disk is not told to be.
TEST_F(Objects, AreOnTheDiskBeforeTheAnswer) {
    static const auto real = zev::os::calls.syncfs;
    const std::string blob = id_of("b"), tree = tree_id_of("");
    const std::string pack = in_pieces(pack_of(make("blob", "packed")), 100);
    service.have_done([] { zev::os::calls.syncfs = [](int) { return errno = EIO, -1; }; });
    EXPECT_EQ(service.put(objects + blob, object_stream("blob", "b")).code, 500);
    EXPECT_EQ(service.put(objects + tree, object_stream("tree", "")).code, 500);
    EXPECT_EQ(service.ask(Z_HTTP_POST, packs, pack, u"x/y").code, 500);
    service.have_done([] { zev::os::calls.syncfs = real; });
}

// What is cut, changed, framed wrongly or not what it says leaves nothing behind.
TEST_F(Objects, RefuseBadPacksWhole) {
    const std::string bytes = test::noise(400'000, 1), pack = pack_of(make("blob", bytes));
    std::string changed = pack, many = pack;
    changed[pack.size() / 2] = static_cast<char>(~changed[pack.size() / 2]);
    many[9] = 0x7F;
    std::string trees[2];
    for (int i = 0; i < 2; ++i) trees[i] = pack_of(make("tree", kTrees[i ? 5 : 0].tree));
    std::string few = trees[0];
    few[9] = 0x7F;
    test::make_project(service, "ann/second");
    const struct {
        const char *what;
        std::string framed;
        int32_t code;
    } cases[] = {
        {"nothing", "", 400},
        {"cut at a piece", in_pieces(pack.substr(0, pack.size() - 9), 100), 500},
        {"cut in a piece", in_pieces(pack, 100).substr(0, 60), 400},
        {"cut in a large piece", be32(pack.size() + 1) + pack, 400},
        {"cut in a length", in_pieces(pack, 100) + std::string(2, '\0'), 400},
        {"longer than the body", be32(0xFFFFFFFF) + trees[0], 400},
        {"changed", in_pieces(changed, 100), 500},
        {"no pack", in_pieces("no pack at all", 3), 500},
        {"too many objects", be32(many.size()) + many, 413},
        {"too many of small ones", in_pieces(few, 5), 413},
        {"a tree that is none", in_pieces(trees[1], 1000), 500},
        {"a small one, cut", in_pieces(trees[0].substr(0, trees[0].size() - 9), 1000), 500},
    };
    const auto before = files();
    for (const auto &[what, framed, code] : cases) {
        const Answer answer = service.ask(Z_HTTP_POST, "/repos/ann/second/packs", framed,
                                          framed.empty() ? nullptr : u"x/y");
        EXPECT_EQ(answer.code, code) << what << ": " << answer.message();
    }
    EXPECT_EQ(files(), before);
    for (const std::string &sound : {in_pieces(trees[0], 1000), in_pieces(pack, 70'001)})
        EXPECT_EQ(service.ask(Z_HTTP_POST, "/repos/ann/second/packs", sound, u"x/y").code, 201);
    EXPECT_TRUE(service.has("ann/second", id_of(bytes)));
}

} // namespace
