#include "conflict_fixture.hpp"

using namespace test;

namespace {

using ConflictRecord = ConflictFixture;

struct Seen {
    std::vector<std::string> paths;
    size_t stop_after = SIZE_MAX;
    int32_t stop_with = 1;
};

int32_t see(Index *, const Conflict *conflict, void *context) {
    auto *seen = static_cast<Seen *>(context);
    seen->paths.push_back(narrow(zConflictOurPath(conflict)));
    return seen->paths.size() == seen->stop_after ? seen->stop_with : 0;
}

int32_t resolve(Index *index, const Conflict *conflict, void *context) {
    EXPECT_OK(zConflictRemove(index, zConflictTheirPath(conflict)));
    return see(index, conflict, context);
}

} // namespace

// One merge with every kind that git makes, a rename on both sides among them: its old name is
// deleted twice.
TEST_F(ConflictRecord, OfARealMerge) {
    for (auto *path : {"both", "gone-here", "gone-there", "moved"}) put(path, path);
    commit("base");
    merge(
        [&] {
            put("both", "theirs"), put("gone-here", "theirs"), put("new", "theirs");
            take("gone-there");
            std::filesystem::rename(place / "moved", place / "to-there");
        },
        [&] {
            put("both", "ours"), put("gone-there", "ours"), put("new", "ours");
            take("gone-here");
            std::filesystem::rename(place / "moved", place / "to-here");
        });
    IndexPtr index(zIndexHead(repository.get(), false));
    ConflictsPtr list(zConflictMatch(index.get(), nullptr));
    ASSERT_OK(list);
    std::string text;
    for (uint64_t i = 0; i < zConflictListLength(list.get()); ++i) {
        Conflict *conflict = zConflictListEntry(list.get(), i);
        EXPECT_STREQ(narrow(zConflictOurPath(conflict)).c_str(),
                     narrow(zConflictTheirPath(conflict)).c_str());
        text += narrow(zConflictOurPath(conflict)) + " " +
                std::to_string(zConflictOurStatus(conflict)) + "/" +
                std::to_string(zConflictTheirStatus(conflict)) + ";";
    }
    EXPECT_EQ(text, "both 3/3;gone-here 2/3;gone-there 3/2;moved 2/2;new 1/1;to-here 1/11;"
                    "to-there 7/1;");
    EXPECT_EQ(zConflictListEntry(list.get(), 7), nullptr);
    EXPECT_EQ(zErrorClass(), 2);

    ConflictPtr moved(zConflictGet(index.get(), u"moved")), copy(zConflictDup(moved.get()));
    ASSERT_OK(copy);
    EXPECT_EQ(zConflictOurEntry(copy.get()), nullptr);
    EXPECT_EQ(hex(zIndexEntryID(zConflictAncestorEntry(copy.get()))),
              hex(zIndexEntryID(zConflictAncestorEntry(moved.get()))));
    EXPECT_EQ(zConflictGet(index.get(), u"none"), nullptr);
    EXPECT_EQ(zErrorCode(), -3);

    ConflictsPtr some(zConflictMatch(index.get(), spec({u"GONE-*"}).get()));
    EXPECT_EQ(zConflictListLength(some.get()), 2u);
    EXPECT_EQ(zConflictMatch(index.get(), spec({u"none"}, Z_SPEC_MUST_MATCH).get()), nullptr);
    EXPECT_EQ(zErrorClass(), 3);
}

TEST_F(ConflictRecord, WalkedWhileTheyAreResolved) {
    IndexPtr index = lock();
    ConflictsPtr none(zConflictMatch(index.get(), spec({u"*"}).get()));
    ASSERT_OK(none);
    EXPECT_EQ(zConflictListLength(none.get()), 0u);
    for (auto *path : {"a", "b", "c", "d"})
        ASSERT_OK(zConflictAdd(index.get(), entry(path, "1").get(), entry(path, "2").get(),
                               entry(path, "3").get()));
    for (auto [stop_with, expected] : {std::pair{1, true}, {-1, false}}) {
        Seen seen{{}, 2, stop_with};
        EXPECT_EQ(zConflictWalk(index.get(), see, &seen), expected);
        EXPECT_EQ(seen.paths, (std::vector<std::string>{"a", "b"}));
    }
    Seen all;
    EXPECT_OK(zConflictWalk(index.get(), resolve, &all));
    EXPECT_EQ(all.paths, (std::vector<std::string>{"a", "b", "c", "d"}));
    ASSERT_OK(zIndexWrite(index.get()));
    EXPECT_EQ(unmerged(), "");
    EXPECT_FALSE(zConflictRemove(index.get(), u"a")); // it is gone already
    EXPECT_EQ(zErrorClass(), 3);
}

TEST_F(ConflictRecord, InAndOutOfAnIndex) {
    IndexPtr index = lock();
    put("a", "1");
    ASSERT_OK(zIndexAddBypath(index.get(), u"a"));
    EXPECT_FALSE(zConflictAdd(index.get(), nullptr, nullptr, nullptr));
    EXPECT_FALSE(zConflictAdd(index.get(), nullptr, nullptr, entry("../a", "1").get()));
    EXPECT_EQ(zErrorClass(), 2);
    ASSERT_OK(zConflictAdd(index.get(), nullptr, entry("a", "1").get(), entry("a", "2").get()));
    ASSERT_OK(zConflictAdd(index.get(), entry("b", "1").get(), nullptr, nullptr));
    const EntryPtr absent = entry("p", "of a store that has a part");
    const std::string id = hex(zIndexEntryID(absent.get()));
    std::filesystem::remove(place / ".git/objects" / id.substr(0, 2) / id.substr(2));
    ASSERT_OK(zConflictAdd(index.get(), nullptr, entry("p", "1").get(), absent.get()));
    ASSERT_OK(zIndexWrite(index.get()));
    EXPECT_EQ(unmerged(), "2 a;3 a;1 b;2 p;3 p;");
    EXPECT_TRUE(zIndexPathIsConflict(index.get(), u"a"));
    // Names that differ in case only are kept out while the other is there.
    EXPECT_FALSE(zIndexEntryAdd(index.get(), entry("B", "1").get()));
    EXPECT_EQ(zErrorClass(), 4);
    ASSERT_OK(zConflictRemove(index.get(), u"b"));
    EXPECT_OK(zIndexEntryAdd(index.get(), entry("B", "1").get()));
    ASSERT_OK(zConflictAdd(index.get(), nullptr, entry("c", "1").get(), entry("c", "2").get()));
    EXPECT_FALSE(zIndexEntryAdd(index.get(), entry("C", "1").get()));
    ASSERT_OK(zConflictRemoveAll(index.get()));
    ASSERT_OK(zIndexWrite(index.get()));
    EXPECT_EQ(tracked(), std::vector<std::string>{"B"});
    EXPECT_EQ(zConflictNew(entry("a", "1").get(), nullptr, nullptr), nullptr);
    EXPECT_EQ(zErrorClass(), 2);
}

TEST_F(ConflictRecord, NodeTellsItsKind) {
    auto kind = [](const char16_t *ours, const char16_t *theirs) {
        return text(ours) + "/" + text(theirs);
    };
    IndexPtr index(zIndexHead(repository.get(), false));
    put("a", "ours");
    NodePtr node(zConflictNodeNew(u"a"));
    EXPECT_EQ(narrow(zConflictNodeType(node.get())), kind(u"status.sUnkonwn", u"status.sUnkonwn"));
    EXPECT_EQ(narrow(zConflictNodeOurPath(node.get(), 0)), "a");
    EXPECT_EQ(zConflictNodeOurStatus(node.get(), 0), -1);

    ConflictPtr added(zConflictNew(nullptr, entry("a", "ours").get(), entry("a", "2").get()));
    ASSERT_OK(zConflictNodeAddPair(node.get(), index.get(), added.get()));
    EXPECT_EQ(narrow(zConflictNodeType(node.get())), kind(u"status.sAdded", u"status.sAdded"));
    take("a"); // by hand, and what is known of a path is known once
    ASSERT_OK(zConflictNodeAddPair(node.get(), index.get(), added.get()));
    EXPECT_EQ(told(node.get()), "a: ours a=11, theirs a=1;");
    EXPECT_EQ(narrow(zConflictNodeType(node.get())), kind(u"status.sMissing", u"status.sAdded"));

    ASSERT_OK(zConflictNodeAddOurs(node.get(), index.get(), nullptr, entry("a/b", "1").get()));
    EXPECT_EQ(narrow(zConflictNodeType(node.get())), text(u"conflict.sFileObstructed"));
    ASSERT_OK(zConflictNodeAddTheirs(node.get(), entry("c", "1").get(), entry("c", "1").get()));
    EXPECT_EQ(narrow(zConflictNodeType(node.get())), text(u"conflict.sDirectoryObstructed"));
    EXPECT_EQ(told(node.get()), "a: ours a=11 a/b=2, theirs a=1 c=0;");
    EXPECT_FALSE(zConflictNodeAddTheirs(node.get(), nullptr, nullptr));
}
