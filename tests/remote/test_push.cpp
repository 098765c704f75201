// The push of a commit against a real server: what goes up, in which order, and what
// is left when it breaks off anywhere.
#include "drawn.hpp"

#include "remote/push.hpp"
#include "zev/zip.h"

using namespace test;

namespace {

using BranchPtr = zev::Owned<Branch, zBranchFree>;
using zev::Push;

constexpr const zwchar *kTracking = u"refs/remotes/origin/master";

struct Pushes : Session {
    void SetUp() override {
        Session::SetUp();
        const BranchPtr head(zBranchHead(copy.get()));
        upstream.reset(zBranchUpstream(head.get()));
        ASSERT_OK(upstream);
    }

    // A commit on the tracking branch, as the replay of a local one is; no bytes for what goes.
    using Files = std::vector<std::pair<std::string, std::optional<std::string>>>;
    std::string replay(const Files &files) {
        const auto base = guard(zTreeByref(copy.get(), kTracking), zTreeFree);
        const auto builder = guard(zTreeBuilderNew(copy.get(), base.get()), zTreeBuilderFree);
        for (const auto &[path, bytes] : files) {
            if (!bytes) {
                EXPECT_OK(zTreeBuilderRemove(builder.get(), wide(path).c_str()));
                continue;
            }
            const auto odb = guard(zOdbOpen(copy.get()), zOdbFree);
            Oid id;
            EXPECT_OK(
                zOdbWrite(&id, odb.get(), Z_OBJECT_BLOB, bytes->size(), stream_of(*bytes).get()));
            EXPECT_OK(zTreeBuilderInsert(builder.get(), wide(path).c_str(), &id));
        }
        const auto tree = guard(zTreeBuilderWrite(builder.get(), copy.get()), zTreeFree);
        const auto made =
            guard(zCommitCreate(kTracking, u"Ann", u"said here", tree.get()), zCommitFree);
        EXPECT_OK(made);
        return made ? text_of(zCommitId(made.get())) : "";
    }
    bool send(const Files &files) {
        local = replay(files);
        relay.play();
        return send();
    }
    bool send() {
        told.errors.clear();
        told.actions.clear();
        push = Push{remote.get(), upstream.get(), u"Ann", u"said so", &told};
        return zev::push_commit(push);
    }
    std::string tracking() const {
        return git("rev-parse -q --verify refs/remotes/origin/master").substr(0, 40);
    }
    std::string head() { return server("rev-parse -q --verify HEAD").substr(0, 40); }
    // The copy knows what the server has, as after an update.
    void catch_up() {
        git("update-ref -d refs/remotes/origin/master");
        relay.play();
        EXPECT_OK(zRemoteDownloadRefs(remote.get(), nullptr));
        if (tracking().empty()) return;
        const Oid id = oid(tracking());
        EXPECT_OK(zRemoteDownloadMatches(remote.get(), &id, Z_OBJECT_ANY, nullptr));
    }
    // The lines without ids.
    std::string steps() const {
        std::string all;
        for (const Asked &each : relay.asked())
            all += (each.line.starts_with("POST") ? each.line
                                                  : each.line.substr(0, each.line.rfind('/') + 1)) +
                   "\n";
        return all;
    }
    void expect_same() {
        EXPECT_EQ(tracking(), head());
        EXPECT_EQ(git("rev-parse origin/master^{tree}"), git("rev-parse " + local + "^{tree}"));
        EXPECT_EQ(server("log -1 --format=%an:%B").substr(0, 11), "Ann:said so");
        int status = 1;
        const std::string found = service.git("ann/plant", "fsck --strict --full 2>&1", &status);
        EXPECT_EQ(status, 0) << found;
    }

    BranchPtr upstream;
    Push push{};
    std::string local; // the commit that was replayed
};

// ---- Files

TEST_F(Pushes, TellTheServerWhatChanged) {
    ASSERT_OK(send({{"a.txt", "one"}, {"docs/b.txt", "two"}, {"docs/a.DWX", "no drawing"}}));
    EXPECT_EQ(steps(),
              "POST /objects/diff\nPOST /packs\nPOST /trees\nPOST /commits\nGET /objects/\n");
    EXPECT_FALSE(relay.asked()[2].body.empty());
    expect_same();
    EXPECT_EQ(server("rev-list --count HEAD"), "1\n");

    ASSERT_OK(send({{"a.txt", "more"}, {"docs/b.txt", {}}}));
    expect_same();
    EXPECT_EQ(server("rev-list --count HEAD"), "2\n");
    EXPECT_EQ(server("ls-tree -r --name-only HEAD"), "a.txt\ndocs/a.DWX\n");

    ASSERT_OK(send({{"a.txt", {}}}));
    EXPECT_EQ(steps(), "POST /objects/diff\nPOST /trees\nPOST /commits\nGET /objects/\n");
    expect_same();

    ASSERT_OK(send({{"again.txt", "one"}}));
    EXPECT_EQ(steps(), "POST /objects/diff\nPOST /trees\nPOST /commits\nGET /objects/\n")
        << "the server has it";
    expect_same();

    ASSERT_OK(
        send({{"large", std::string(2'097'153, 'l')}, {"limit", std::string(2'097'152, 'm')}}));
    EXPECT_EQ(steps(), "POST /objects/diff\nPUT /objects/\nPOST /packs\nPOST /trees\nPOST "
                       "/commits\nGET /objects/\n");
    expect_same();
    EXPECT_EQ(told.each(), "");
}

TEST_F(Pushes, ObeyTheServersAnswers) {
    local = replay({{"a", "a"}, {"b", "b"}, {"c", "c"}});
    const auto blob = [&](const char *path) {
        return git("rev-parse " + local + ":" + path).substr(0, 40);
    };
    const auto lacks = [&](const std::string &list) {
        relay.give_to("POST /objects/diff", answer(200, R"({"data":{"entries":)" + list + "}}"));
    };
    lacks("[\"" + std::string(40, 'a') + "\"]");
    EXPECT_FALSE(send()) << "never offered";
    EXPECT_EQ(told.only(), "Your changes could not be sent to the server");
    EXPECT_EQ(tracking(), local);
    lacks("[\"" + blob("c") + "\",\"" + blob("a") + "\",\"" + blob("c") + "\",\"" + blob("b") +
          "\"]");
    ASSERT_OK(send());
    expect_same();
}

TEST_F(Pushes, TellEachPathThatIsRefused) {
    local = replay({{"docs/a", "a"}});
    for (const char *type : {"application/json", "Application/JSON; charset=utf-8", "text/plain"}) {
        relay.give_to("POST /trees",
                      answer(401, R"({"error":[{"path":"docs"},{"path":"100%s"},7]})", type));
        EXPECT_FALSE(send());
        EXPECT_EQ(told.each(), "") << type;
        EXPECT_EQ(told.actions,
                  (std::vector<std::string>{"No permission: docs", "No permission: 100%s",
                                            "No permission: "}));
        EXPECT_EQ(tracking(), local);
    }
}

// More changes than one request may have go by several, those that delete first: here a file takes
// the name of a directory that goes, although the list has it the other way round.
TEST_F(Pushes, GoByPartsWhereTheyAreMany) {
    ASSERT_OK(send({{"d/f", "x"}}));
    local = run("cd '" + at() +
                "' && x=$(git rev-parse origin/master:d/f)"
                " && many=$(seq 1000 | sed \"s/.*/100644 blob $x\\t&/\" | git mktree)"
                " && new=$(printf new | git hash-object -w --stdin) && tree=$( { printf "
                "'100644 blob %s\\td\\n' $new; seq 101 | sed \"s/.*/040000 tree $many\\td-&/\"; }"
                " | git mktree) && made=$(git -c user.name=a -c user.email=a commit-tree -m m "
                "-p origin/master $tree) && git update-ref refs/remotes/origin/master $made"
                " && printf %s $made");
    ASSERT_EQ(local.size(), 40u) << local;
    relay.play();
    ASSERT_OK(send());
    EXPECT_EQ(steps(), "POST /objects/diff\nPOST /packs\nPOST /trees\nPOST /trees\nPOST "
                       "/commits\nGET /objects/\n");
    expect_same();
}

// What the server makes is held against what was sent: its tree before there is a commit of it, and
// the commit before anything here names it.
TEST_F(Pushes, TakeNoOtherTreeOrCommit) {
    ASSERT_OK(send({{"a", "a"}}));
    const std::string base = head(), old = server("rev-parse HEAD^{tree}").substr(0, 40);
    local = replay({{"a", "more"}});
    const auto expect_refused = [&](const std::string &line, auto made) {
        relay.play([line, made](const Asked &asked, size_t) -> std::optional<std::string> {
            if (asked.line != line) return {};
            return answer(201, R"({"data":{"id":")" + made() + "\"}}");
        });
        EXPECT_FALSE(send()) << line;
        EXPECT_NE(told.only().find("The server sent wrong data"), std::string::npos) << told.each();
        EXPECT_EQ(tracking(), local);
    };
    expect_refused("POST /trees", [&] { return old; });
    EXPECT_EQ(relay.lines().find("POST /commits"), std::string::npos);
    const std::string ours = git("rev-parse " + local + "^{tree}").substr(0, 40);
    for (const std::string &other : {old + " -p " + base, ours}) // and without its parent
        expect_refused("POST /commits", [this, other] {
            return server("-c user.name=a -c user.email=a commit-tree -m m " + other).substr(0, 40);
        });
    EXPECT_EQ(head(), base);
    relay.play();
    ASSERT_OK(send());
    expect_same();
}

// A directory without a file, of another program's commit: the server leaves it out of what it
// makes, and whoever sent from a tree with it is as well off as all others.
TEST_F(Pushes, GoOutFromATreeWithAHollowDirectory) {
    const std::string commit = "git -c user.name=a -c user.email=a commit-tree -m m ";
    run("cd '" + service.at("ann/plant") +
        "' && e=$(git mktree </dev/null) && f=$(printf x | git hash-object -w --stdin)"
        " && t=$(printf \"100644 blob $f\\tf\\n040000 tree $e\\tnothing\\n\" | git mktree)"
        " && git update-ref HEAD $(" +
        commit + "$t)");
    catch_up();
    ASSERT_EQ(git("ls-tree --name-only origin/master"), "f\nnothing\n");
    local = run("cd '" + at() +
                "' && a=$(printf a | git hash-object -w --stdin) && t=$( { git ls-tree "
                "origin/master; printf \"100644 blob $a\\ta\\n\"; } | git mktree) && c=$(" +
                commit +
                "-p origin/master $t) && git update-ref refs/remotes/origin/master $c"
                " && printf %s $c");
    relay.play();
    ASSERT_OK(send());
    EXPECT_EQ(tracking(), head());
    EXPECT_EQ(git("ls-tree --name-only origin/master"), "a\nf\n") << "it is here";
    ASSERT_OK(send({{"b", "b"}}));
    expect_same();
}

// A large file whose object is damaged: it is the file that is told, nobody's arguments.
TEST_F(Pushes, TellWhatCannotBeRead) {
    local = replay({{"large", noise(3u << 20, 1)}});
    const std::string id = git("rev-parse " + local + ":large").substr(0, 40);
    run("cd '" + at() + "/.git/objects/" + id.substr(0, 2) + "' && chmod u+w " + id.substr(2) +
        " && truncate -s -100 " + id.substr(2));
    relay.play();
    EXPECT_FALSE(send());
    EXPECT_EQ(told.only(), "The objects could not be packed");
    EXPECT_EQ(told.actions, std::vector<std::string>{"Failed: large"});
    EXPECT_EQ(steps(), "POST /objects/diff\n");
    EXPECT_EQ(zErrorClass(), 11);
}

// Somebody else was first; with a first commit the server says only that it names no parent.
TEST_F(Pushes, LoseAgainstAnotherCommit) {
    local = replay({{"a", "first"}});
    relay.give_to("POST /commits", answer(400, "{}"));
    EXPECT_FALSE(send()); // for another reason
    EXPECT_NE(told.only().find("did not understand"), std::string::npos) << told.each();
    relay.play();
    for (const bool first : {true, false}) {
        commit("other", first ? "x" : "y");
        const std::string before = head();
        EXPECT_FALSE(first ? send() : send({{"a", "mine"}}));
        EXPECT_NE(told.only().find("409: The server has newer changes"), std::string::npos)
            << told.each();
        EXPECT_EQ(head(), before);
        EXPECT_EQ(tracking(), local) << "the commit's transaction takes it back";
        catch_up();
    }
}

// The server has it by then; the next update brings it.
TEST_F(Pushes, TellWhichReferenceIsInUse) {
    local = replay({{"a", "a"}});
    const std::string lock = at() + "/.git/refs/remotes/origin/master.lock";
    relay.play([&](const Asked &asked, size_t) -> std::optional<std::string> {
        if (asked.line.starts_with("GET /objects/")) write(lock, "another's");
        return {};
    });
    EXPECT_FALSE(send());
    EXPECT_EQ(told.only(), "The branch 'refs/remotes/origin/master' could not be moved forward");
    EXPECT_EQ(tracking(), local);
}

// ---- Drawings

struct Drawings : Pushes {
    void SetUp() override {
        Pushes::SetUp();
        table.reset(zTableRand(copy.get()));
        id = *zTableId(table.get());
        file = at() + "/plan/d.dwx";
    }
    Sheet sheet(const std::vector<std::pair<uint64_t, std::string>> &objects) {
        if (!table) table.reset(zTableByid(copy.get(), &id));
        const Sheet made = draw(table.get(), file, objects);
        table.reset();
        return made;
    }
    // The next step of the table, as after a commit.
    void raise() {
        const TablePtr open(zTableByid(copy.get(), &id));
        zTableTagIncrement(open.get());
    }
    TablePtr table;
    Oid id;
    std::string file;
};

TEST_F(Drawings, SendWhatTheServerLacks) {
    const Sheet first = sheet({{10, "ten"}, {20, "twenty"}});
    write(file, "not what was committed");
    ASSERT_OK(send({{"plan/d.dwx", first.bytes}, {"a", "a"}}));
    EXPECT_EQ(steps(), "POST /objects/diff\nPOST /packs\nPUT /tables/\nPUT /objects/\nPOST /trees\n"
                       "POST /commits\nGET /objects/\n");
    expect_same();
    EXPECT_EQ(count_rows(served(service, id).get()), 5u) << "two objects, header, path, tag";
    EXPECT_GE(zTableTagGet(TablePtr(zTableByid(copy.get(), &id)).get()), 2u) << "the server's";

    // One object changed: its key is new, the other one is not sent again.
    DrawingPtr drawing(zDrawingNew(nullptr, nullptr));
    write(file, first.bytes);
    drawing.reset(zDrawingRead(wide(file).c_str()));
    table.reset(zTableByid(copy.get(), &id));
    const uint64_t tag = zTableTagGet(table.get());
    zDrawingObjectModify(drawing.get(), 1, table.get(), 20);
    put(table.get(), {tag, 20}, "twenty-one");
    put(table.get(), {tag, 99}, "nobody's");
    table.reset();
    ASSERT_OK(zDrawingWrite(drawing.get(), wide(file).c_str()));
    ASSERT_OK(send({{"plan/d.dwx", read(file)}}));
    expect_same();
    {
        const TablePtr there = served(service, id);
        EXPECT_EQ(count_rows(there.get()), 6u);
        EXPECT_EQ(get(there.get(), {tag, 20}), "twenty-one");
        EXPECT_EQ(get(there.get(), {tag, 99}), "(none)");
    }

    // Bound to another table: all of that goes. And what is gone takes no rows away.
    id = *zTableId(TablePtr(zTableRand(copy.get())).get());
    const Sheet other = sheet({{30, "thirty"}});
    ASSERT_OK(send({{"plan/d.dwx", other.bytes}}));
    EXPECT_EQ(count_rows(served(service, id).get()), 4u);
    ASSERT_OK(send({{"plan/d.dwx", {}}}));
    EXPECT_EQ(steps(), "POST /objects/diff\nPOST /trees\nPOST /commits\nGET /objects/\n");
    EXPECT_EQ(count_rows(served(service, id).get()), 4u);
    EXPECT_EQ(told.each(), "");
}

// A drawing's bytes under another name beside it are no reason to keep its rows back.
TEST_F(Drawings, SendTheirRowsBesideACopyOfTheirs) {
    const Sheet made = sheet({{10, "ten"}});
    ASSERT_OK(send({{"plan/d.dwx", made.bytes}, {"plan/d.dwx.bak", made.bytes}}));
    EXPECT_NE(steps().find("PUT /tables/"), std::string::npos) << steps();
    EXPECT_EQ(count_rows(served(service, id).get()), 4u);
    expect_same();
}

// What stood at the path was too large for a drawing: it was none, and keeps none out.
TEST_F(Drawings, TakeThePlaceOfALargeFile) {
    ASSERT_OK(send({{"plan/d.dwx", std::string(zev::limits::object_form + 1, 'x')}}));
    ASSERT_OK(send({{"plan/d.dwx", sheet({{10, "ten"}}).bytes}}));
    EXPECT_EQ(count_rows(served(service, id).get()), 4u);
    expect_same();
}

// One that can't be looked at, for want of a place, would go as a file that names rows of nobody.
TEST_F(Drawings, StayWhereTheyCantBeLookedAt) {
    std::vector<std::pair<uint64_t, std::string>> objects;
    for (unsigned n = 0; n < 20'000; ++n) objects.emplace_back(n + 1, "o");
    local = replay({{"plan/d.dwx", sheet(objects).bytes}});
    relay.play();
    setenv("TMPDIR", (at() + "/none").c_str(), 1);
    EXPECT_FALSE(send());
    unsetenv("TMPDIR");
    EXPECT_EQ(told.only(), "The objects could not be packed");
    EXPECT_EQ(steps(), "POST /objects/diff\n");
    relay.play();
    ASSERT_OK(send());
    EXPECT_EQ(count_rows(served(service, id).get()), 20'003u);
}

// A row that can't be read is not one that isn't there.
TEST_F(Drawings, StayWhereARowIsDamaged) {
    ASSERT_OK(send({{"plan/d.dwx", sheet({{10, "ten"}}).bytes}}));
    raise();
    std::vector<std::pair<uint64_t, std::string>> objects;
    for (unsigned n = 0; n < 40; ++n) objects.emplace_back(n + 1, noise(1u << 16, n));
    local = replay({{"plan/d.dwx", sheet(objects).bytes}});
    const std::filesystem::path place = zTablePath(TablePtr(zTableByid(copy.get(), &id)).get());
    damage_table(place);
    relay.play();
    EXPECT_FALSE(send());
    EXPECT_EQ(told.only(), "The drawings could not be sent to the server");
    EXPECT_EQ(relay.lines().find("POST /trees"), std::string::npos) << steps();
    EXPECT_FALSE(push.canceled);
}

TEST_F(Drawings, SendRowsByParts) {
    std::vector<std::pair<uint64_t, std::string>> objects;
    for (unsigned n = 0; n < 5; ++n) objects.emplace_back(n + 1, noise(1u << 20, n));
    ASSERT_OK(send({{"plan/d.dwx", sheet(objects).bytes}}));
    size_t parts = 0, closed = 0;
    for (const Asked &each : relay.asked()) {
        if (!each.line.starts_with("PUT /tables/")) continue;
        const StreamPtr packed = stream_of(each.body), rows(zUnzipStream(packed.get(), u"gzip"));
        closed += rest_of(rows.get()).ends_with(std::string(4, '\0'));
        ++parts;
    }
    EXPECT_EQ(std::pair(parts, closed), std::pair(size_t{3}, size_t{3})) << "each has its end mark";
    const TablePtr there = served(service, id);
    EXPECT_EQ(count_rows(there.get()), 8u);
    EXPECT_EQ(zTableTagGet(there.get()), zTableTagGet(TablePtr(zTableByid(copy.get(), &id)).get()))
        << "the tag of the last answer";
    expect_same();
}

// A server that gives a lower tag, or none, doesn't take ours back.
TEST_F(Drawings, KeepTheHigherTag) {
    const Sheet made = sheet({{10, "ten"}});
    for (int n = 0; n < 8; ++n) raise();
    local = replay({{"plan/d.dwx", made.bytes}});
    for (const char *body :
         {R"({"data":{"tag":2}})", R"({"data":{"tag":-1}})", R"({"data":{}})", "no JSON", ""}) {
        relay.play([&](const Asked &each, size_t) -> std::optional<std::string> {
            if (each.line.starts_with("PUT /tables/")) return answer(201, body);
            return each.line == "POST /trees" ? std::optional<std::string>(answer(500, "{}"))
                                              : std::nullopt;
        });
        EXPECT_FALSE(send()) << body;
        EXPECT_EQ(zTableTagGet(TablePtr(zTableByid(copy.get(), &id)).get()), 9u) << body;
        std::filesystem::remove_all(service.at("ann/plant") + "/objects");
        std::filesystem::create_directories(service.at("ann/plant") + "/objects/pack");
    }
    relay.play();
    ASSERT_OK(send());
}

TEST_F(Drawings, ThatLackTheirTableStay) {
    const Sheet made = sheet({{10, "ten"}});
    std::filesystem::remove_all(at() + "/.git/tables");
    EXPECT_FALSE(send({{"plan/d.dwx", made.bytes}}));
    EXPECT_EQ(told.only(), "The drawings could not be sent to the server");
    EXPECT_EQ(steps(), "POST /objects/diff\n");
    EXPECT_FALSE(std::filesystem::exists(at() + "/.git/tables")) << "and none is made of nothing";
    EXPECT_FALSE(push.canceled);
}

// A break of the user's, at whichever moment he is asked, is told by nobody.
TEST_F(Drawings, AreBrokenOffInSilence) {
    ASSERT_OK(send({{"a", "a"}}));
    int round = 0, asks = 0;
    for (bool done = false; !done; asks += 1 + asks / 6) {
        const std::string change = std::to_string(++round);
        const Sheet made = sheet({{10, change}});
        local = replay({{"a", change},
                        {"l", std::string(2'097'160, 'l') + change},
                        {"d" + change + ".dwx", made.bytes}});
        told.asks_left = asks;
        done = send();
        EXPECT_EQ(told.each(), "") << asks;
        if (done) break;
        EXPECT_TRUE(push.canceled) << asks;
        EXPECT_EQ(zErrorClass(), 6) << asks;
        EXPECT_EQ(tracking(), local) << asks;
        told.asks_left = -1;
        catch_up();
        raise();
    }
    EXPECT_GT(round, 5);
    expect_same();
}

} // namespace
