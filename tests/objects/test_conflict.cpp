#include "conflict_fixture.hpp"

using namespace test;

namespace {

using ConflictRecord = ConflictFixture;

} // namespace

// Of a file that both sides renamed the old name is deleted twice.
TEST_F(ConflictRecord, OfARenameOnBothSides) {
    put("moved", "moved");
    git_commit("base");
    merge([&] { std::filesystem::rename(place / "moved", place / "to-there"); },
          [&] { std::filesystem::rename(place / "moved", place / "to-here"); });
    IndexPtr index(zIndexHead(repository.get(), false));
    ConflictsPtr list(zConflictMatch(index.get(), nullptr));
    std::string text;
    for (uint64_t i = 0; list && i < zConflictListLength(list.get()); ++i) {
        Conflict *conflict = zConflictListEntry(list.get(), i);
        text += narrow(zConflictOurPath(conflict)) + " " +
                std::to_string(zConflictOurStatus(conflict)) + "/" +
                std::to_string(zConflictTheirStatus(conflict)) + ";";
    }
    EXPECT_EQ(text, "moved 2/2;to-here 1/11;to-there 7/1;");
}

TEST_F(ConflictRecord, WalkedWhileTheyAreResolved) {
    IndexPtr index = lock();
    for (auto *path : {"a", "b", "c"})
        ASSERT_OK(
            zConflictAdd(index.get(), nullptr, entry(path, "2").get(), entry(path, "3").get()));
    std::string all;
    const auto resolve = [](Index *in, const Conflict *conflict, void *context) -> int32_t {
        EXPECT_OK(zConflictRemove(in, zConflictTheirPath(conflict)));
        *static_cast<std::string *>(context) += narrow(zConflictOurPath(conflict));
        return 0;
    };
    EXPECT_OK(zConflictWalk(index.get(), resolve, &all));
    EXPECT_EQ(all, "abc");
    EXPECT_REFUSED(zConflictRemove(index.get(), u"a"), 3); // it is gone already
}

TEST_F(ConflictRecord, InAndOutOfAnIndex) {
    IndexPtr index = lock();
    put("a", "1");
    ASSERT_OK(zIndexAddBypath(index.get(), u"a"));
    EXPECT_REFUSED(zConflictAdd(index.get(), nullptr, nullptr, entry("../a", "1").get()), 2);
    ASSERT_OK(zConflictAdd(index.get(), nullptr, entry("a", "1").get(), entry("a", "2").get()));
    ASSERT_OK(zConflictAdd(index.get(), entry("b", "1").get(), nullptr, nullptr));
    const EntryPtr absent = entry("p", "of a store that has a part");
    lose(hex(zIndexEntryID(absent.get())));
    ASSERT_OK(zConflictAdd(index.get(), nullptr, nullptr, absent.get()));
    ASSERT_OK(zIndexWrite(index.get()));
    EXPECT_EQ(unmerged(), "2 a;3 a;1 b;3 p;");
    // Names that differ in case only are kept out while the other is there.
    EXPECT_REFUSED(zIndexEntryAdd(index.get(), entry("B", "1").get()), 4);
    ASSERT_OK(zConflictRemove(index.get(), u"b"));
    EXPECT_OK(zIndexEntryAdd(index.get(), entry("B", "1").get()));
    ASSERT_OK(zConflictRemoveAll(index.get()));
    ASSERT_OK(zIndexWrite(index.get()));
    EXPECT_EQ(tracked(), std::vector<std::string>{"B"});
}

// A walk of the directory finds the file again, with the ancestor that HEAD has.
TEST_F(ConflictRecord, TheAncestorOfTheMergeStays) {
    const IndexPtr index(zIndexHead(repository.get(), false));
    put("a", "1");
    const EntryPtr base = entry("a", "0"), ours = entry("a", "1");
    const ConflictPtr merged(zConflictNew(base.get(), ours.get(), nullptr));
    const NodePtr node(zConflictNodeNew(u"a"));
    ASSERT_OK(zConflictNodeAddPair(node.get(), index.get(), merged.get()));
    ASSERT_OK(zConflictNodeAddOurs(node.get(), index.get(), ours.get(), ours.get()));
    EXPECT_EQ(told(node.get()), "a: ours a=3, theirs a=2;");
}
