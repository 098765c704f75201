// What comes from the server: references, objects, packs, trees, revisions; and what does not.
#include "remote_fixture.hpp"

#include "common/json.hpp"
#include "objects/store/git.hpp"
#include "zev/revdb.h"
#include "zev/revision.h"

using namespace test;

namespace {

using Downloads = Session;

std::string ref(std::string_view name, std::string_view target, std::string_view kind = "oid") {
    return R"({"type":"ref","refname":")" + std::string(name) + R"(","reftype":")" +
           std::string(kind) + R"(","target":")" + std::string(target) + R"("})";
}
std::string entries(const std::string &list) { return R"({"data":{"entries":[)" + list + "]}}"; }

const std::string a(40, 'a'), b(40, 'b');

// ---- References

// Of each list: whether it is taken, and which references there are afterwards.
TEST_F(Downloads, LeaveOwnBranchesAlone) {
    const std::string master = "refs/remotes/origin/master ", good = ref("refs/heads/master", a);
    const std::string deep(460, 'd'), far = "refs/heads/" + deep + "/" + std::string(60, 'e');
    const struct {
        const char *what;
        std::string list;
        bool taken;
        std::string refs;
        const char *error = "";
    } cases[] = {
        {"nothing", "", true, ""},
        {"HEAD", ref("HEAD", a) + "," + ref("head", a), true, ""},
        {"a branch of ours", ref("refs/remotes/origin/master", a), true, ""},
        {"a file of ours", ref("AUTHZ", a) + "," + ref("FETCH_HEAD", a), true, ""},
        {"the place of all branches",
         ref("refs/heads", a) + "," + ref("refs/Heads", a) + "," + ref("refs/remotes", a) + "," +
             ref("refs/tags", a) + "," + ref("refs/stash", a),
         true, ""},
        {"a note of ours",
         ref("refs/zev/agreed/master", a) + "," + ref("refs/Zev/server/master", a) + "," +
             ref("refs/tags/x", "refs/zev/agreed/x", "symbolic"),
         true, ""},
        {"ours by another name", ref("refs/heads/x", "refs/heads/master", "symbolic"), true, ""},
        {"HEAD by another name", ref("refs/heads/x", "HEAD", "symbolic"), true, ""},
        {"symbolic", ref("refs/tags/x", "refs/tags/y", "symbolic") + "," + good, true,
         master + a + "\nrefs/tags/x refs/tags/y"},
        {"symbolic to no name", ref("refs/tags/x", "..", "symbolic") + "," + good, true,
         master + a},
        {"no such id", good + "," + ref("refs/heads/x", "x"), false, master + a, "wrong data"},
        {"no reference", good + R"(,{"type":"tag"})", false, master + a, "wrong data"},
        {"no name", ref("refs/heads/a..b", a) + "," + good, false, "", "could not be moved"},
        {"outside", ref("refs/heads/../../x", a), false, "", "could not be moved"},
        {"not tracked", ref("refs/remotes/other/x", a), false, "", "'refs/remotes/other/x'"},
        {"too long", ref(far, a), false, "", "The branch 'refs/heads/ddd"},
    };
    for (const auto &each : cases) {
        for (const char *place : {"/.git/refs/remotes", "/.git/refs/tags"})
            std::filesystem::remove_all(at() + place);
        relay.give(answer(200, entries(each.list)));
        told.errors.clear();
        EXPECT_EQ(zRemoteDownloadRefs(remote.get(), &told), each.taken) << each.what;
        std::string now = refs();
        if (!now.empty()) now.pop_back();
        EXPECT_EQ(now, each.refs) << each.what;
        EXPECT_NE(told.each().find(each.error), std::string::npos) << each.what << told.each();
        EXPECT_EQ(told.errors.size(), each.taken ? 0u : 1u) << each.what;
        EXPECT_EQ(git("symbolic-ref HEAD"), "refs/heads/master\n") << each.what;
        EXPECT_FALSE(std::filesystem::exists(at() + "/.git/AUTHZ"));
        EXPECT_FALSE(std::filesystem::exists(at() + "/.git/refs/Heads"));
        EXPECT_TRUE(std::filesystem::is_directory(at() + "/.git/refs/heads")) << each.what;
    }
    EXPECT_FALSE(std::filesystem::exists(at() + "/x"));
}

// A new name is no longer kept out by one that the server has lost; by any other it is.
TEST_F(Downloads, MakeRoomForNewNames) {
    const std::string first = commit("a.txt", "one");
    write(at() + "/.git/refs/heads/side/own", first + "\n");
    server("branch side/east"), server("branch side/west"), server("tag v");
    ASSERT_OK(zRemoteDownloadRefs(remote.get(), &told));
    const auto tracked = [&] { return git("for-each-ref --format='%(refname)' refs/remotes"); };
    const std::string own = "refs/remotes/origin/master\n";
    for (const bool packed : {false, true}) {
        if (packed) git("pack-refs --all");
        server("branch -D side/east side/west"), server("branch side");
        ASSERT_OK(zRemoteDownloadRefs(remote.get(), &told));
        EXPECT_EQ(tracked(), own + "refs/remotes/origin/side\n");
        if (packed) git("pack-refs --all");
        server("branch -D side"), server("branch side/east/1"), server("branch side/west");
        ASSERT_OK(zRemoteDownloadRefs(remote.get(), &told));
        EXPECT_EQ(tracked(),
                  own + "refs/remotes/origin/side/east/1\nrefs/remotes/origin/side/west\n");
        server("branch -D side/east/1"), server("branch side/east");
    }
    // What this copy follows stays, and what it keeps out is left out.
    server("branch -m master master/new");
    ASSERT_OK(zRemoteDownloadRefs(remote.get(), &told));
    EXPECT_EQ(tracked().find(own), 0u) << tracked();
    EXPECT_EQ(told.each() + read(at() + "/.git/refs/heads/side/own"), first + "\n");
    // So does a tag that may be the user's own, as it leads where nothing else does; others go.
    test::run("cd " + at() + " && git tag mine $(git -c user.name=a -c user.email=a commit-tree " +
              "-m own $(git mktree < /dev/null)) 2>&1");
    relay.give(
        answer(200, entries(ref("refs/tags/v/1", first) + "," + ref("refs/tags/mine/1", first))));
    ASSERT_OK(zRemoteDownloadRefs(remote.get(), &told));
    EXPECT_EQ(git("tag"), "mine\nv/1\n");
    // No more is what it lists beside.
    relay.give(answer(200, entries(ref("refs/heads/side/west", first) + "," +
                                   ref("refs/heads/side/west/low", first))));
    told.errors.clear();
    EXPECT_FALSE(zRemoteDownloadRefs(remote.get(), &told));
    EXPECT_NE(told.only().find("could not be moved"), std::string::npos) << told.each();
    EXPECT_NE(refs().find("refs/remotes/origin/side/west " + first), std::string::npos) << refs();
}

// ---- Objects

std::string framed(std::string_view type, std::string_view bytes, uint64_t size) {
    return be32(type.size()) + std::string(type) + be32(size) + std::string(bytes);
}

// Only the bytes that the id names are stored, under whatever name they come.
TEST_F(Downloads, StoreNothingElse) {
    const std::string id = "2e65efe2a145dda7ee51d1741299f848e5bf752e"; // of the file "a"
    const Oid wanted = oid(id);
    const struct {
        const char *what, *error;
        std::string body;
    } cases[] = {
        {"other bytes", "could not be written", framed("blob", "b", 1)},
        {"another type", "could not be written", framed("tag", "a", 1)},
        {"two types", "could not be written", framed(std::string("blob\0x", 6), "a", 1)},
        {"a size beyond", "could not be written", framed("blob", "a", 2)},
        {"a size without end", "could not be written", framed("blob", "a", UINT32_MAX)},
        {"a type without end", "could not be written", be32(UINT32_MAX)},
        {"nothing", "sent wrong data", ""},
    };
    for (const auto &each : cases) {
        relay.give(octets(each.body));
        told.errors.clear();
        EXPECT_FALSE(zRemoteDownloadObject(remote.get(), &wanted, &told)) << each.what;
        EXPECT_NE(told.only().find(each.error), std::string::npos) << each.what << told.each();
        EXPECT_EQ(objects(), "") << each.what;
    }
    // A tree that no index may hold has its right name, and is no tree.
    const std::string evil = "100644 .git" + std::string(1, '\0') + std::string(20, 'x');
    git_oid made;
    git_odb_hash(&made, evil.data(), evil.size(), GIT_OBJECT_TREE);
    relay.give(octets(framed("tree", evil, evil.size())));
    EXPECT_FALSE(zRemoteDownloadObject(remote.get(), zev::git::oid(&made), nullptr));
    relay.give(octets(framed("blob", "a", 1)));
    EXPECT_OK(zRemoteDownloadObject(remote.get(), &wanted, &told));
    EXPECT_EQ(objects(), id + "\n");
}

// ---- Packs

std::string query_for(const std::vector<std::string> &ids) {
    std::string list;
    for (const std::string &id : ids)
        list += (list.empty() ? "" : ",") + (R"({"id":")" + id) + "\"}";
    return R"({"query":{"entries":[)" + list + "]}}";
}

zev::JsonGuard json(const std::string &text) {
    return zev::JsonGuard(zJsonReadTextual(wide(text).c_str()));
}

TEST_F(Downloads, TakePacksWholeOrNotAtAll) {
    std::vector<std::string> ids;
    for (const char *bytes : {"one", "two", "three"})
        ids.push_back(store(service, "ann/plant", Z_OBJECT_BLOB, bytes));
    std::string pack = service.post("/repos/ann/plant/packs/diff", query_for(ids)).body;
    std::string changed = pack, mark = "PACK";
    changed[pack.size() - 30] = static_cast<char>(~changed[pack.size() - 30]);
    const struct {
        const char *what;
        std::string body;
        size_t asked;
        const char *error = "objects could not be downloaded";
    } cases[] = {
        {"one more than asked", pack, 2},
        {"changed", changed, 3},
        {"cut in a piece", pack.substr(0, pack.size() - 1), 3},
        {"a piece without end", be32(UINT32_MAX) + pack, 3},
        {"cut behind a piece", be32(12) + pack.substr(4, 12), 3},
        {"no body", "", 3, "sent wrong data"},
    };
    for (const auto &each : cases) {
        const auto query = json(query_for({ids.begin(), ids.begin() + each.asked}));
        relay.give(octets(each.body));
        told.errors.clear();
        EXPECT_FALSE(zRemoteDownloadPack(remote.get(), query.get(), &told)) << each.what;
        EXPECT_NE(told.only().find(each.error), std::string::npos) << each.what << told.each();
        EXPECT_EQ(objects(), "") << each.what;
    }
    relay.play();
    ASSERT_OK(zRemoteDownloadPack(remote.get(), json(query_for(ids)).get(), &told));
    for (const std::string &id : ids) EXPECT_TRUE(has(id));
    const auto files = [&] {
        return std::distance(std::filesystem::directory_iterator(at() + "/.git/objects/pack"), {});
    };
    const auto before = files();
    EXPECT_OK(zRemoteDownloadPack(remote.get(), json(query_for({})).get(), &told));
    EXPECT_EQ(files(), before) << "a pack of nothing is no file";
}

// ---- Trees

// An entry of a listing that tells a size of its own.
std::string listed(const std::string &id, uint64_t size, const std::string &name,
                   unsigned mode = 0100644, const std::string &path = "",
                   const char *type = "blob") {
    return R"({"id":")" + id + R"(","size":)" + std::to_string(size) + R"(,"type":")" + type +
           R"(","mode":)" + std::to_string(mode) + R"(,"path":")" + path + R"(","name":")" + name +
           "\"}";
}

struct Listings : Session {
    void SetUp() override {
        Session::SetUp();
        commit("a.txt", "one");
        tree = oid(server("rev-parse HEAD^{tree}"));
        for (int n = 0; n < 9; ++n)
            ids.push_back(store(service, "ann/plant", Z_OBJECT_BLOB, std::to_string(n)));
    }
    void play(const std::string &list) { relay.give_to("GET /trees/", answer(200, entries(list))); }
    bool fetch() {
        told.errors.clear();
        return zRemoteDownloadTree(remote.get(), &tree, true, Z_OBJECT_ANY, nullptr, nullptr,
                                   &told);
    }
    Oid tree;
    std::vector<std::string> ids;
};

constexpr uint64_t kMiB = 1u << 20;

TEST_F(Listings, SendSmallObjectsInPacksAndLargeOnesAlone) {
    const struct {
        const char *what;
        std::vector<uint64_t> sizes;
        std::string requests; // p for a pack, a digit for an object alone
    } cases[] = {
        {"one pack", {1, 2, 3}, "p"},
        {"at the limit", {2 * kMiB, 2 * kMiB + 1}, "1p"},
        {"three large ones", {10 * kMiB, 10 * kMiB, 10 * kMiB}, "012"},
        {"a last large one", {1, 1, 3 * kMiB}, "2p"},
        {"a full pack",
         {2 * kMiB, 2 * kMiB, 2 * kMiB, 2 * kMiB, 2 * kMiB, 2 * kMiB, 2 * kMiB, 2 * kMiB, 1},
         "pp"},
        {"none", {}, ""},
    };
    for (const auto &each : cases) {
        std::filesystem::remove_all(at() + "/.git/objects");
        std::filesystem::create_directories(at() + "/.git/objects/pack");
        reopen();
        std::string list;
        for (size_t n = 0; n < each.sizes.size(); ++n)
            list += (n ? "," : "") + listed(ids[n], each.sizes[n], std::to_string(n));
        play(list);
        ASSERT_OK(fetch()) << each.what;
        std::string requests;
        for (const Asked &asked : relay.asked()) {
            if (asked.line == "POST /packs/diff") requests += 'p';
            for (size_t n = 0; n < ids.size(); ++n)
                if (asked.line == "GET /objects/" + ids[n]) requests += std::to_string(n);
        }
        EXPECT_EQ(requests, each.requests) << each.what;
        for (size_t n = 0; n < each.sizes.size(); ++n) EXPECT_TRUE(has(ids[n])) << each.what;
        play(list);
        ASSERT_OK(fetch());
        EXPECT_EQ(relay.asked().size(), 1u) << each.what << ": all is here";
        EXPECT_EQ(told.actions.back(), "Fetching content: Please wait");
    }
}

// The end of the list is one, be its last entry wanted or not.
TEST_F(Listings, SendWhatIsGatheredBeforeASkippedEntry) {
    play(listed(ids[0], 1, "a") + "," + listed(ids[1], 1, "z"));
    const zev::Owned<PathSpec, zPathSpecFree> spec(zPathSpecNew(u"a", 0));
    ASSERT_OK(zRemoteDownloadMatches(remote.get(), &tree, Z_OBJECT_ANY, spec.get()));
    EXPECT_TRUE(has(ids[0]));
    EXPECT_FALSE(has(ids[1]));
}

// What no copy takes is told by its name before anything is asked for, unless nobody wants it.
TEST_F(Listings, TellOfAFileBeyondTheLimit) {
    constexpr uint64_t kBeyond = (uint64_t{1} << 30) + 1;
    const std::string good = listed(ids[0], 1, "good") + ",";
    play(good + listed(ids[1], kBeyond, "huge.dwx", 0100644, "plans/"));
    EXPECT_FALSE(fetch());
    EXPECT_EQ(told.only(), "'plans/huge.dwx' is larger than 1 GiB, which is the limit of a file");
    EXPECT_EQ(zErrorClass(), 5);
    EXPECT_FALSE(has(ids[0]));
    EXPECT_EQ(relay.lines().find("/packs"), std::string::npos) << relay.lines();
    play(good + listed(ids[1], kBeyond, "hidden", 0100000));
    EXPECT_OK(fetch());
    EXPECT_TRUE(has(ids[0]));
}

TEST_F(Listings, AreReadWithCare) {
    const std::string good = listed(ids[0], 1, "good") + ",";
    const std::string bad[] = {
        R"({"size":1})",
        R"({"id":7,"size":1})",
        "7",
        listed("x", 1, "x"),
        R"({"id":")" + a + R"(","size":-1})",
        listed(a, 1, ".git"),
        listed(a, 1, "..", 0100644, "a/"),
        listed(a, 1, "x", 0100644, "/"),
        listed(a, 1, "a/../../x"),
        listed(a, 1, "a\\t"),
    };
    for (const std::string &entry : bad) {
        play(good + entry);
        EXPECT_FALSE(fetch()) << entry;
        EXPECT_FALSE(has(ids[0])) << entry;
        EXPECT_NE(told.only().find("folders could not be fetched"), std::string::npos)
            << told.each();
        EXPECT_EQ(zErrorCode(), -1) << entry;
    }
}

// Directories in each other without end take the stack of whoever walks through them.
TEST_F(Listings, ReachOnlySoDeep) {
    std::string id = store(service, "ann/plant", Z_OBJECT_TREE, ""), list;
    for (int depth = 0; depth < 300; ++depth) {
        const Oid below = oid(id);
        id = store(service, "ann/plant", Z_OBJECT_TREE,
                   std::string("40000 d") + '\0' +
                       std::string(reinterpret_cast<const char *>(below.id), 20));
        list += (depth ? "," : "") + listed(id, 40, "d", 040000, "", "tree");
    }
    tree = oid(id);
    play(list);
    EXPECT_FALSE(fetch());
    EXPECT_EQ(zErrorCode(), -1);
}

// ---- Revisions

// Of a list the sound ones go in, each only under an id that was asked for.
TEST_F(Downloads, LeaveBadRecordsOut) {
    const std::string id = commit("f", "x");
    const Oid head = oid(id);
    const std::string good = service.get("/repos/ann/plant/revisions/" + id).body;
    std::string foreign = good;
    foreign.replace(foreign.find(id), 40, b);
    const zev::Owned<Revdb, zRevdbFree> db(zRevdbOpen(copy.get()));
    relay.give(answer(200, foreign));
    EXPECT_FALSE(zRemoteDownloadRevision(remote.get(), &head, &told));
    relay.play([&](const Asked &each, size_t) {
        return answer(200, each.line.starts_with("GET") ? entries("\"" + id + "\"")
                                                        : entries("{}," + foreign + ",7," + good));
    });
    told.errors.clear();
    ASSERT_OK(zRemoteDownloadRevlist(remote.get(), &head, 0, &told));
    EXPECT_EQ(told.errors.size(), 3u);
    const Oid other = oid(b);
    EXPECT_TRUE(zRevdbExists(db.get(), &head));
    EXPECT_FALSE(zRevdbExists(db.get(), &other));
    relay.give(answer(200, entries("7")));
    EXPECT_FALSE(zRemoteDownloadRevlist(remote.get(), &head, 0, &told));
    relay.give(answer(200, good));
    EXPECT_OK(zRemoteDownloadRevision(remote.get(), &head, &told));
    const zev::Owned<Revision, zRevisionFree> record(zRevdbLookup(db.get(), &head));
    EXPECT_EQ(narrow(zRevisionMessage(record.get())).substr(0, 5), "put f");
}

} // namespace
