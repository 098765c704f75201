#include "repo_fixture.hpp"

#include "objects/history/revision.hpp"
#include "objects/store/tree_changes.hpp"
#include "zev/revdb.h"
#include "zev/revision.h"

using namespace test;
using namespace std::string_literals;

namespace {

using RevisionHeld = Held<Revision, zRevisionFree>;

// Every field, so that two lists compare as a whole.
std::string in_full(const DiffList *list) {
    if (!list) return "(null)";
    auto text = guard(zJsonWriteTextual(zev::diff_list_to_json(list).get()), zStrfreeW);
    std::string files;
    for (uint64_t i = 0; i < zDiffListLength(list); ++i)
        files += std::to_string(zDiffListEntry(list, i)->files);
    return narrow(text.get()) + files;
}

class RevdbTest : public RepositoryTest {
  protected:
    Held<Revdb, zRevdbFree> db{zRevdbOpen(repository.get())};

    std::filesystem::path file(const Oid &id) const {
        const std::string digits = hex(&id);
        return place / ".git/revisions" / digits.substr(0, 2) / digits.substr(2);
    }
    RevisionHeld look_up(const Oid &id) { return RevisionHeld(zRevdbLookup(db.get(), &id)); }
};

} // namespace

TEST_F(RevdbTest, OnlyWholeRecordsAreRead) {
    const Oid id = parsed(std::string(40, '2'));
    const std::string oid(40, '1');
    const std::string side =
        R"({"flags":12,"id":")" + oid + R"(","idabbr":40,"mode":33188,"path":"a.dwx","size":5})";
    const std::string change =
        R"({"flags":0,"new_file":)" + side + R"(,"similarity":0,"status":1})";
    const std::string whole = R"({"author":"Ada","changes":[)" + change +
                              R"(],"message":"m","nanosecs":7,"oid":")" + oid +
                              R"(","seconds":-5})";
    const struct {
        std::string piece, other; // what is put in place of what
        const char *changes;      // null: no record
    } rows[] = {
        {"", "", "1 a.dwx>a.dwx;"},
        {"-5", " -5 ", "1 a.dwx>a.dwx;"}, // by another writer
        {"{\"author", "\xEF\xBB\xBF{\"author", "1 a.dwx>a.dwx;"},
        {change, "", ""},
        // A change without sides has no path, and takes no reader with it.
        {change, R"({"flags":0,"similarity":0,"status":1,"unknown":[]})", "1 >;"},
        {whole, "", nullptr},
        {whole, std::string(80, '\0'), nullptr}, // emptied by a crash
        {whole, "[]", nullptr},
        {"[" + change + "]", "{}", nullptr},
        {change, change + ",1", nullptr},
        {"-5", "\"1\"", nullptr},
        {oid + "\",\"sec", "12\",\"sec", nullptr},
        {"status\":1", "status\":11", nullptr},
        {"flags\":0", "flags\":-1", nullptr},
        {"33188", "65536", nullptr},
    };
    for (const auto &row : rows) {
        std::string text = whole;
        write(file(id), text.replace(text.find(row.piece), row.piece.size(), row.other));
        RevisionHeld found = look_up(id);
        ASSERT_EQ(found != nullptr, row.changes != nullptr) << text;
        if (!found) {
            EXPECT_EQ(zErrorClass(), 2) << text;
            continue;
        }
        EXPECT_EQ(hex(zRevisionId(found.get())), oid); // the one in the file, not the one asked for
        const Time *time = zRevisionTime(found.get());
        EXPECT_TRUE(time->seconds == -5 && time->nanoseconds == 7);
        EXPECT_EQ(told(DiffPtr(zRevisionMatch(found.get(), nullptr))), row.changes);
    }
}

TEST_F(RevdbTest, WhatIsInARecordsPlace) {
    CommitPtr made = commit({{u"a", "1"}});
    const Oid id = *zCommitId(made.get());
    const auto revision = zev::revision_of(made.get());
    const auto held = [&](uint32_t share) {
        return guard(zShareOpen(file(id).u16string().c_str(), u"rb", share), zShareClose);
    };
    EXPECT_OK(zRevdbRemove(db.get(), &id)); // nothing to remove
    std::filesystem::create_directories(file(id));
    EXPECT_FALSE(zRevdbExists(db.get(), &id) || look_up(id) || zErrorClass() != 3);
    EXPECT_OK(zRevdbInsert(db.get(), &id, revision.get())); // can't, and is no failure
    EXPECT_FALSE(zRevdbRemove(db.get(), &id));
    std::filesystem::remove(file(id));
    EXPECT_TRUE(std::filesystem::is_empty(file(id).parent_path()));

    ASSERT_OK(zRevdbInsert(db.get(), &id, revision.get()));
    const std::string text = read(file(id));
    revision->author.reset(zStrdupW(u"Eve"));
    ASSERT_OK(zRevdbInsert(db.get(), &id, revision.get()));
    EXPECT_EQ(read(file(id)), text);
    {
        const auto alone = held(Z_SHARE_NONE);
        EXPECT_TRUE(!look_up(id) && zErrorClass() == 7);
    }
    EXPECT_TRUE(held(3) && look_up(id)); // beside another reader
    write(file(id), "{");
    EXPECT_EQ(DiffPtr(zRevdbChanges(db.get(), &id)), nullptr);
    EXPECT_OK(zRevdbExists(db.get(), &id)); // a look-up leaves it
    EXPECT_OK(zRevdbRemove(db.get(), &id));
    EXPECT_FALSE(zRevdbExists(db.get(), &id));
    for (int twice = 0; twice < 2; ++twice) EXPECT_OK(zRevdbDestroy(repository.get()));
    EXPECT_FALSE(std::filesystem::exists(place / ".git/revisions"));
}

// ---- The pruned comparison beside libgit2's

namespace {

class TreeChangesTest : public RepositoryTest {
  protected:
    // Of "mode path content ..."; git makes the tree.
    TreePtr tree_of(const std::string &files) {
        std::string index;
        std::istringstream text(files);
        for (std::string mode, path, content; text >> mode >> path >> content;) {
            const Oid made = blob(content);
            index += mode + " " + hex(&made) + "\t" + path + "\n";
        }
        write(dir.path() / "in", index);
        git(place, "read-tree --empty");
        git(place, "update-index --add --index-info <'" + (dir.path() / "in").string() + "'");
        const Oid id = parsed(git(place, "write-tree"));
        return TreePtr(zTreeByid(repository.get(), &id));
    }
    void expect_same(Tree *from, Tree *to, const std::string &what) {
        for (const uint32_t options : {0u, 0x2u, 0x10002u, 0x110000u, 0x1010000u})
            for (const zwchar *pattern : {static_cast<const zwchar *>(nullptr), u"b*"}) {
                const Held<PathSpec, zPathSpecFree> spec(zPathSpecNew(pattern, options));
                const DiffPtr pruned(zev::diff_trees(from, to, spec.get(), nullptr));
                const DiffPtr plain(zDiffTreeToTree(from, to, spec.get(), nullptr));
                EXPECT_EQ(in_full(pruned.get()), in_full(plain.get())) << what << options;
            }
    }
};

} // namespace

TEST_F(TreeChangesTest, SameListAsLibgit2) {
    const std::string base = "100644 a 1 100644 B/x 2 100644 B/y 3 100755 b-c 4 100644 d/e/f 5 "
                             "100644 d/e/g 6 100644 größe/ü 7 100644 z 1 ";
    const TreePtr from = tree_of(base);
    for (const std::string &files : {
             base,
             "100755 a 1 100644 B/x 22 100644 B.new 3 100644 d/e/f 5 100644 größe/ü 8"s,
             "100644 n/a 1 100644 n/b 1 100644 B/x 2 100644 b-c 4 100644 d2/e/f 5"s,
             base.substr(11) + "100644 a/in 9",                          // a file, a directory
             "100644 a 1 100644 B 2"s,                                   // and the other way
             "100644 A 1 100644 b/x 2 100644 b/y 33 100644 GRÖSSE/ü 7"s, // in another case
             base + "120000 link a 160000 sub x",
             "120000 a 1 100644 B/x 2"s,
         }) {
        const TreePtr to = tree_of(files);
        for (Tree *old : {from.get(), static_cast<Tree *>(nullptr)})
            expect_same(old, to.get(), files);
        expect_same(to.get(), from.get(), files);
    }
    // Order beside slashes, few contents in many places.
    uint32_t state = 12345;
    TreePtr before;
    for (int round = 0; round < 25; ++round) {
        std::string files;
        for (const char *path : {"a/A/a", "a/A.b", "a/A-b/x", "a/c~", "a/_d", "b", "b.c/a", "b.c/B",
                                 "b-c", "B0", "C~/d/e", "C~/d/f", "_d/x", "_d/Y"})
            if (state = state * 1664525 + 1013904223; (state >> 16) % 5 < 3)
                (files += "100644 ").append(path) += " " + std::to_string((state >> 16) % 5) + " ";
        TreePtr to = tree_of(files);
        expect_same(before.get(), to.get(), files);
        before = std::move(to);
    }
}

// Only what differs is opened: the equal half of the project need not be here.
TEST_F(TreeChangesTest, EqualDirectoriesAreNotOpened) {
    const TreePtr from = tree_of("100644 far/x 1 100644 near/y 1");
    const TreePtr to = tree_of("100644 far/x 1 100644 near/y 2");
    lose(hex(zTreeId(to.get())) + ":far");
    const RepositoryPtr fresh = opened();
    const TreePtr a(zTreeByid(fresh.get(), zTreeId(from.get())));
    const TreePtr b(zTreeByid(fresh.get(), zTreeId(to.get())));
    EXPECT_EQ(told(DiffPtr(zev::diff_trees(a.get(), b.get(), nullptr, nullptr))),
              "3 near/y>near/y;");
}
