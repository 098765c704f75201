// History of a copy that has whole trees of few commits: what comes from the server, and what is
// told without it.
#include "team_fixture.hpp"

#include "zev/object.h"
#include "zev/revdb.h"
#include "zev/revision.h"
#include "zev/revlist.h"

using namespace test;

namespace {

struct HistoryTest : Team {
    void SetUp() override {
        Team::SetUp();
        for (const char *bytes : {"0", "1", "2"})
            other("plans/a", bytes), other("b", std::string("b") + bytes);
        bob = get("bob");
        other("plans/a", "3");
        repository = bob.open();
        zRevSpecSetNotify(spec.get(), &bob.host);
        relay.play();
    }
    // The ids of a list, a line each, or "(null)".
    std::string list(uint32_t options = 0) {
        zRevSpecSetOptions(spec.get(), options);
        const Held<RevList, zRevListFree> built(zRevListBuild(repository.get(), spec.get()));
        if (!built) return "(null)";
        std::string ids;
        changes.clear();
        for (uint64_t n = 0; n < zRevListLength(built.get()); ++n) {
            Revision *revision = zRevListEntry(built.get(), n);
            ids += hex(zRevisionId(revision)) + "\n";
            const DiffList *list = zRevisionChanges(revision);
            changes += list ? narrow(zDiffEntryNewPath(zDiffListEntry(list, 0))) + " " : "- ";
        }
        return ids;
    }
    std::string entry(const std::string &revision, const zwchar *path) {
        const Oid id = parsed(revision);
        const Held<Revdb, zRevdbFree> db(zRevdbOpen(repository.get()));
        const Held<Revision, zRevisionFree> found(zRevdbLookup(db.get(), &id));
        const Held<Object, zObjectFree> object(zRevisionEntry(found.get(), path));
        return object ? bob.git("cat-file -p " + hex(zObjectId(object.get()))) : "(null)";
    }
    std::string tracked(const char *spec) { return server("rev-list " + std::string(spec)); }

    Copy bob;
    RepositoryPtr repository;
    Held<RevSpec, zRevSpecFree> spec{zRevSpecNew()};
    std::string changes;
};

} // namespace

TEST_F(HistoryTest, ComesFromTheServerOnce) {
    EXPECT_EQ(list(), tracked("HEAD"));
    EXPECT_EQ(changes, "plans/a b plans/a b plans/a b plans/a ");
    EXPECT_EQ(relay.asked().size(), 5u) << relay.lines(); // references, commits, a pack, records
    relay.play();
    const std::string oldest = tracked("--max-parents=0 HEAD").substr(0, 40);
    write(bob.place / ".git/revisions" / oldest.substr(0, 2) / oldest.substr(2), "{");
    EXPECT_EQ(list(), tracked("HEAD")); // a damaged record is asked for anew
    EXPECT_EQ(relay.asked().size(), 3u) << relay.lines();
    relay.play();
    zRevSpecAddPath(spec.get(), u"b");
    EXPECT_EQ(list(), tracked("HEAD -- b"));
    EXPECT_EQ(relay.lines(), "GET /refs\n");

    relay.play();
    EXPECT_EQ(entry(oldest, u"plans\\a"), "0");
    EXPECT_EQ(entry(oldest, u"plans/none"), "(null)");
    EXPECT_EQ(zErrorClass(), 3);
    EXPECT_EQ(relay.asked().size(), 3u) << relay.lines(); // two trees and a file
    rights.bits["bob"]["b"] = 0;
    EXPECT_EQ(entry(tracked("HEAD~3").substr(0, 40), u"b"), "(null)");
    EXPECT_EQ(zErrorClass(), 15);
}

// What is not here, and can't be asked for, is no damage of a copy.
TEST_F(HistoryTest, EndsWithoutAServerWhereTheCopyDoes) {
    const std::string newest = tracked("-1 HEAD~");
    relay.play({}, {.dead_from = 0});
    EXPECT_EQ(list(), "(null)");
    EXPECT_EQ(zErrorClass(), 15);
    EXPECT_EQ(list(Z_REV_LOCAL), newest) << narrow(zErrorDetail());
    EXPECT_EQ(changes, "- "); // its parent's tree is with the server
    zRevSpecAddPath(spec.get(), u"b");
    EXPECT_EQ(list(Z_REV_LOCAL), "");
    EXPECT_EQ(entry(newest.substr(0, 40), u"b"), "(null)"); // no record, no revision
}

TEST_F(HistoryTest, StopsAtABreakAndTellsWhatTheServerRefuses) {
    for (int asks = 0; asks < 3; ++asks) {
        bob.host.asks_left = asks;
        EXPECT_EQ(list(), "(null)");
        EXPECT_EQ(zErrorClass(), 6) << asks;
    }
    bob.host.asks_left = -1;
    for (const char *refused :
         {"GET /refs", "GET /commits", "POST /packs", "GET /revisions", "PATCH /revisions"}) {
        relay.give_to(refused, answer_of(403));
        EXPECT_EQ(list(), "(null)") << refused;
        EXPECT_EQ(zErrorCode(), 403) << refused;
    }
    relay.play();
    EXPECT_EQ(list(), tracked("HEAD"));
    Oid none{};
    none.id[3] = 1;
    zRevBaseSetByid(zRevSpecBase(spec.get()), &none);
    EXPECT_EQ(list(), "(null)");
    EXPECT_EQ(relay.asked().back().line.substr(0, 12), "GET /commits");
}

TEST_F(HistoryTest, BeginsWithAnEmptyProject) {
    make_project(service, "ann/empty");
    const Copy ann{dir.path() / "empty", "ann"};
    zLoginInfoSet(u"ann", nullptr, u"code");
    ASSERT_OK(zShellCheckout(wide(relay.url("ann/empty")).c_str(), ann.place.u16string().c_str(),
                             ann.spec().get()));
    repository = ann.open();
    EXPECT_EQ(list(), "");
    const std::string bytes = "first";
    const std::string id = commit_file(service, "ann/empty", "a", &bytes, 1);
    EXPECT_EQ(list(), id + "\n");
    EXPECT_EQ(changes, "a ");
}
