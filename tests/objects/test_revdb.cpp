#include "repo_fixture.hpp"

#include "objects/revision.hpp"
#include "objects/tree_changes.hpp"
#include "zev/revdb.h"
#include "zev/revision.h"

#include <fcntl.h>
#include <sys/wait.h>

using namespace test;

namespace {

using DiffPtr = Held<DiffList, zDiffListFree>;
using RevdbHeld = Held<Revdb, zRevdbFree>;
using RevisionHeld = Held<Revision, zRevisionFree>;

std::string told(const DiffList *list) {
    if (!list) return "(null)";
    std::string text;
    for (uint64_t i = 0; i < zDiffListLength(list); ++i) {
        const DiffEntry *entry = zDiffListEntry(list, i);
        text += std::to_string(zDiffEntryStatus(entry)) + " " + narrow(zDiffEntryOldPath(entry)) +
                ">" + narrow(zDiffEntryNewPath(entry)) + ";";
    }
    return text;
}

// Every field, so that two lists compare as a whole.
std::string in_full(const DiffList *list) {
    if (!list) return "(null)";
    std::string text;
    for (uint64_t i = 0; i < zDiffListLength(list); ++i) {
        const DiffEntry *e = zDiffListEntry(list, i);
        text += std::to_string(e->status) + "," + std::to_string(e->flags) + "," +
                std::to_string(e->similarity) + "," + std::to_string(e->files);
        for (const DiffFile *file : {e->old_file.get(), e->new_file.get()}) {
            text += " (";
            if (file)
                text += narrow(file->path.get()) + " " + hex(&file->id) + " " +
                        std::to_string(file->size) + " " + std::to_string(file->flags) + " " +
                        std::to_string(file->mode) + " " + std::to_string(file->id_abbrev);
            text += ")";
        }
        text += "\n";
    }
    return text;
}

class RevdbTest : public RepositoryTest {
  protected:
    RevdbHeld db{zRevdbOpen(repository.get())};
    const std::string kOid = std::string(40, '1');
    const std::string kFile =
        R"({"flags":12,"id":")" + kOid + R"(","idabbr":40,"mode":33188,"path":"a.dwx","size":5})";

    std::filesystem::path file(const Oid &id) const {
        const std::string digits = hex(&id);
        return place / ".git/revisions" / digits.substr(0, 2) / digits.substr(2);
    }
    Oid id(char digit) const {
        Oid made;
        zOidFromStr(&made, wide(std::string(40, digit)).c_str());
        return made;
    }
    std::string record(const std::string &changes) const {
        return R"({"author":"Ada","changes":)" + changes +
               R"(,"message":"m","nanosecs":7,"oid":")" + kOid + R"(","seconds":-5})";
    }
    // What a look-up makes of a text in a record's place.
    RevisionHeld from(const std::string &text) {
        write(file(id('2')), text);
        const Oid asked = id('2');
        return RevisionHeld(zRevdbLookup(db.get(), &asked));
    }
};

} // namespace

TEST_F(RevdbTest, TextOfARecord) {
    CommitPtr first = commit({{u"a", "1"}, {u"old \"name\".dwx", "moved"}}, u"first");
    CommitPtr second =
        commit({{u"a", "2"}, {u"d/größe.dwx", "moved"}}, u"line \"one\"\n\ttab \x1B \\ end");
    const Oid id = *zCommitId(second.get());
    auto made = zev::revision_of(second.get());
    ASSERT_OK(made);
    EXPECT_FALSE(zRevdbExists(db.get(), &id));
    ASSERT_OK(zRevdbInsert(db.get(), &id, made.get()));
    ASSERT_OK(zRevdbExists(db.get(), &id));
    const std::string a = git(place, "rev-parse HEAD~:a"), b = git(place, "rev-parse HEAD:a");
    const std::string moved = git(place, "rev-parse HEAD:d/größe.dwx");
    const auto side = [](const std::string &oid, const std::string &path) {
        return R"({"flags":12,"id":")" + oid + R"(","idabbr":40,"mode":33188,"path":")" + path +
               R"(","size":0})";
    };
    EXPECT_EQ(
        read(file(id)),
        R"({"author":"Ada","changes":[{"flags":0,"new_file":)" + side(b, "a") + R"(,"old_file":)" +
            side(a, "a") + R"(,"similarity":0,"status":3},{"flags":0,"new_file":)" +
            side(moved, "d/größe.dwx") + R"(,"old_file":)" + side(moved, R"(old \"name\".dwx)") +
            R"(,"similarity":100,"status":4}],"message":"line \"one\"\n\ttab   \\ end",)"
            R"("nanosecs":0,"oid":")" +
            hex(&id) + R"(","seconds":)" + git(place, "log -1 --format=%ct") + "}");

    RevisionHeld found(zRevdbLookup(db.get(), &id));
    ASSERT_OK(found);
    EXPECT_EQ(hex(zRevisionId(found.get())), hex(&id));
    EXPECT_EQ(narrow(zRevisionMessage(found.get())), "line \"one\"\n\ttab   \\ end");
    EXPECT_EQ(zRevisionTime(found.get())->seconds, made->time.seconds);
    EXPECT_EQ(in_full(zRevisionChanges(found.get())), in_full(made->changes.get()));
    RevisionHeld copy(zRevisionDup(found.get()));
    found.reset();
    EXPECT_EQ(in_full(copy->changes.get()), in_full(made->changes.get()));
    EXPECT_EQ(narrow(zRevisionAuthor(copy.get())), "Ada");
}

TEST_F(RevdbTest, OnlyWholeRecordsAreRead) {
    const std::string change =
        R"({"flags":0,"new_file":)" + kFile + R"(,"similarity":0,"status":1})";
    const struct {
        std::string what, text;
        bool good;
    } rows[] = {
        {"whole", record("[" + change + "]"), true},
        {"no changes are valid", record("[]"), true},
        {"members unknown here", record(R"([{"flags":0,"similarity":0,"status":1,"x":[]}])"), true},
        {"cut", record("[]").substr(0, 60), false},
        {"emptied by a crash", std::string(80, '\0'), false},
        {"nothing", "", false},
        {"array", "[]", false},
        {"changes missing",
         R"({"author":"","message":"","nanosecs":0,"oid":")" + kOid + R"(","seconds":1})", false},
        {"seconds as text",
         R"({"author":"","changes":[],"message":"","nanosecs":0,"oid":")" + kOid +
             R"(","seconds":"1"})",
         false},
        {"real seconds",
         R"({"author":"","changes":[],"message":"","nanosecs":0,"oid":")" + kOid +
             R"(","seconds":1.0})",
         false},
        {"short oid",
         R"({"author":"","changes":[],"message":"","nanosecs":0,"oid":"12","seconds":1})", false},
        {"changes as object", record("{}"), false},
        {"a change that is none", record("[" + change + ",1]"), false},
        {"kind 11", record(R"([{"flags":0,"similarity":0,"status":11}])"), false},
        {"similarity", record(R"([{"flags":0,"similarity":101,"status":4}])"), false},
        {"negative flags", record(R"([{"flags":-1,"similarity":0,"status":1}])"), false},
        {"side as text", record(R"([{"flags":0,"new_file":"a","similarity":0,"status":1}])"),
         false},
        {"mode too large",
         record(R"([{"flags":0,"similarity":0,"status":1,"new_file":{"flags":0,)"
                R"("id":")" +
                kOid +
                R"(","idabbr":0,"mode":65536,"path":"a",)"
                R"("size":0}}])"),
         false},
    };
    for (const auto &row : rows) {
        RevisionHeld found = from(row.text);
        EXPECT_EQ(found != nullptr, row.good) << row.what;
        EXPECT_TRUE(found || zErrorClass() == 2) << row.what;
    }
    RevisionHeld found = from(rows[0].text);
    EXPECT_EQ(hex(zRevisionId(found.get())), kOid); // the one in the file, not the one asked for
    EXPECT_EQ(zRevisionTime(found.get())->seconds, -5);
    EXPECT_EQ(zRevisionTime(found.get())->nanoseconds, 7);
    EXPECT_EQ(told(zRevisionChanges(found.get())), "1 a.dwx>a.dwx;");
    // A change without sides has no path, and takes no reader with it.
    RevisionHeld bare = from(rows[2].text);
    EXPECT_EQ(told(zRevisionChanges(bare.get())), "1 >;");
    DiffPtr all(zRevisionMatch(bare.get(), nullptr));
    EXPECT_EQ(zDiffEntryNewSize(zDiffListEntry(all.get(), 0)), 0u);
    EXPECT_EQ(zDiffListLookup(all.get(), u"a"), nullptr);
}

TEST_F(RevdbTest, WhatIsInARecordsPlace) {
    CommitPtr made = commit({{u"a", "1"}});
    const Oid id = *zCommitId(made.get());
    EXPECT_EQ(zRevdbLookup(db.get(), &id), nullptr);
    EXPECT_EQ(zErrorClass(), 3);
    EXPECT_OK(zRevdbRemove(db.get(), &id)); // nothing to remove
    auto revision = zev::revision_of(made.get());
    std::filesystem::create_directories(file(id));
    EXPECT_FALSE(zRevdbExists(db.get(), &id));
    EXPECT_EQ(zRevdbLookup(db.get(), &id), nullptr);
    EXPECT_EQ(zErrorClass(), 3);
    EXPECT_OK(zRevdbInsert(db.get(), &id, revision.get())); // can't, and is no failure
    EXPECT_FALSE(zRevdbRemove(db.get(), &id));
    std::filesystem::remove(file(id));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(file(id).parent_path()), {}), 0);

    ASSERT_OK(zRevdbInsert(db.get(), &id, revision.get()));
    const std::string text = read(file(id));
    revision->author.reset(zStrdupW(u"Eve"));
    ASSERT_OK(zRevdbInsert(db.get(), &id, revision.get()));
    EXPECT_EQ(read(file(id)), text);
    {
        auto held =
            guard(zShareOpen(file(id).u16string().c_str(), u"rb", Z_SHARE_NONE), zShareClose);
        EXPECT_EQ(zRevdbLookup(db.get(), &id), nullptr);
        EXPECT_EQ(zErrorClass(), 7);
    }
    {
        auto beside = guard(zShareOpen(file(id).u16string().c_str(), u"rb", 3), zShareClose);
        EXPECT_OK(RevisionHeld(zRevdbLookup(db.get(), &id)));
    }
    write(file(id), "{");
    EXPECT_EQ(DiffPtr(zRevdbChanges(db.get(), &id)), nullptr);
    EXPECT_OK(zRevdbExists(db.get(), &id)); // a look-up leaves it
    EXPECT_OK(zRevdbRemove(db.get(), &id));
    EXPECT_FALSE(zRevdbExists(db.get(), &id));
    ASSERT_OK(zRevdbInsert(db.get(), &id, revision.get()));
    EXPECT_OK(zRevdbDestroy(repository.get()));
    EXPECT_FALSE(std::filesystem::exists(place / ".git/revisions"));
    EXPECT_OK(zRevdbDestroy(repository.get()));
}

TEST_F(RevdbTest, ChangesComeFromTheRecordElseFromTheCommit) {
    CommitPtr made = commit({{u"a", "1"}, {u"docs/b", "2"}});
    const Oid id = *zCommitId(made.get());
    auto revision = zev::revision_of(made.get());
    RevisionHeld plain(zRevisionDup(revision.get()));
    plain->changes.reset();
    EXPECT_EQ(told(zRevisionChanges(plain.get())), "1 a>a;1 docs/b>docs/b;");
    EXPECT_OK(zRevdbExists(db.get(), &id)); // was written on the way
    write(file(id), record("[]"));
    plain->changes.reset();
    EXPECT_EQ(told(zRevisionChanges(plain.get())), "");

    Held<PathSpec, zPathSpecFree> spec(zPathSpecNew(u"DOCS", Z_SPEC_MUST_MATCH));
    EXPECT_EQ(told(DiffPtr(zRevisionMatch(revision.get(), spec.get())).get()), "1 docs/b>docs/b;");
    zPathSpecSetOn(spec.get(), Z_SPEC_NO_ADDED);
    EXPECT_EQ(zRevisionMatch(revision.get(), spec.get()), nullptr);
    EXPECT_EQ(zErrorClass(), 3);
    plain->changes.reset();
    plain->id = this->id('9'); // neither record nor commit
    EXPECT_EQ(zRevisionMatch(plain.get(), nullptr), nullptr);
}

TEST_F(RevdbTest, EntryOfAPath) {
    CommitPtr made = commit({{u"a", "1"}, {u"docs/sub/b", "2"}});
    auto revision = zev::revision_of(made.get());
    const struct {
        const zwchar *path;
        const char *named; // for git; empty: there is none
        int32_t type;
    } rows[] = {
        {u"", "HEAD^{tree}", Z_OBJECT_TREE},
        {u"a", "HEAD:a", Z_OBJECT_BLOB},
        {u"docs/sub", "HEAD:docs/sub", Z_OBJECT_TREE},
        {u"\\docs\\sub//b/", "HEAD:docs/sub/b", Z_OBJECT_BLOB},
        {u"a/b", "", 0},
        {u"docs/none", "", 0},
        {u"docs/../a", "", 0},
    };
    for (const auto &row : rows) {
        auto object = guard(zRevisionEntry(revision.get(), row.path), zObjectFree);
        EXPECT_EQ(object != nullptr, *row.named != 0) << narrow(row.path);
        EXPECT_TRUE(object || zErrorClass() == 3) << narrow(row.path);
        if (!object) continue;
        EXPECT_EQ(hex(zObjectId(object.get())), git(place, std::string("rev-parse ") + row.named));
        EXPECT_EQ(zObjectType(object.get()), row.type);
    }
    zOidZero(&revision->id);
    EXPECT_EQ(zRevisionEntry(revision.get(), u"a"), nullptr);
}

// ---- The pruned comparison beside libgit2's

namespace {

class TreeChangesTest : public RepositoryTest {
  protected:
    // Lines `mode path content`, of which git makes a tree.
    TreePtr tree_of(const std::string &lines) {
        write(place / "in", "");
        std::string index, line;
        std::istringstream text(lines);
        for (std::string mode, path, content; text >> mode >> path >> content;) {
            const Oid blob = this->blob(content);
            index += mode + " " + (mode == "160000" ? std::string(40, '3') : hex(&blob)) + "\t" +
                     path + "\n";
        }
        write(place / "in", index);
        git(place, "read-tree --empty");
        Oid id;
        const std::string made =
            git(place, "update-index --add --index-info <'" + (place / "in").string() + "'");
        EXPECT_EQ(made, "");
        EXPECT_OK(zOidFromStr(&id, wide(git(place, "write-tree")).c_str()));
        return TreePtr(zTreeByid(repository.get(), &id));
    }
    void expect_same(Tree *from, Tree *to, PathSpec *spec, const std::string &what) {
        const DiffPtr pruned(zev::diff_trees(from, to, spec, nullptr));
        const DiffPtr plain(zDiffTreeToTree(from, to, spec, nullptr));
        EXPECT_EQ(in_full(pruned.get()), in_full(plain.get())) << what;
    }
};

} // namespace

TEST_F(TreeChangesTest, SameListAsLibgit2) {
    const std::string base = "100644 a 1 100644 B/x 2 100644 B/y 3 100755 b-c 4 100644 d/e/f 5 "
                             "100644 d/e/g 6 100644 größe/ü 7 100644 z 1 ";
    const std::pair<const char *, std::string> rows[] = {
        {"nothing", base},
        {"modified, added, deleted, mode",
         "100755 a 1 100644 B/x 22 100644 B.new 3 100644 d/e/f 5 100644 größe/ü 8"},
        {"renames, two of one content",
         "100644 n/a 1 100644 n/b 1 100644 B/x 2 100644 b-c 4 100644 d2/e/f 5 100644 d2/e/g 6"},
        {"a file becomes a directory", base.substr(11) + "100644 a/in 9"},
        {"a directory becomes a file", "100644 a 1 100644 B 2"},
        {"names in another case", "100644 A 1 100644 b/x 2 100644 b/y 33 100644 GRÖSSE/ü 7"},
        {"links and submodules", base + "120000 link a 160000 sub x"},
        {"type change", "120000 a 1 100644 B/x 2"},
        {"order beside slashes", "100644 b 1 100644 b-c/x 1 100644 b.c 2 100644 B/zz 3"},
    };
    const TreePtr from = tree_of(base);
    for (const auto &[what, lines] : rows) {
        const TreePtr to = tree_of(lines);
        ASSERT_OK(to);
        for (const uint32_t options :
             {0u, uint32_t{Z_SPEC_MUST_MATCH}, uint32_t{Z_SPEC_NO_UNCHANGED | Z_SPEC_MUST_MATCH},
              uint32_t{Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_RENAMED},
              uint32_t{Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_TYPECHANGE}}) {
            const Held<PathSpec, zPathSpecFree> all(zPathSpecNew(nullptr, options));
            const Held<PathSpec, zPathSpecFree> some(zPathSpecNew(u"b*", options));
            expect_same(from.get(), to.get(), all.get(), what);
            expect_same(to.get(), from.get(), some.get(), what);
        }
        expect_same(nullptr, to.get(), nullptr, what);
        expect_same(to.get(), nullptr, nullptr, what);
    }
    EXPECT_EQ(zev::diff_trees(nullptr, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(zErrorClass(), 2);
}

TEST_F(TreeChangesTest, RandomTrees) {
    uint32_t state = 12345;
    const auto random = [&state](uint32_t limit) {
        state = state * 1664525 + 1013904223;
        return (state >> 8) % limit;
    };
    const char *const names[] = {"a", "A", "b", "b.c", "b-c", "B0", "c~", "_d"};
    // No twins: a name of a tree has one spelling, and is a file or a directory.
    const auto draw = [&] {
        std::map<std::string, std::string> spelled;
        std::string lines;
        for (uint32_t n = random(8); n > 0; --n) {
            std::string path = names[random(8)];
            while (random(2)) path += std::string("/") + names[random(8)];
            bool fits = true;
            for (size_t at = 0; at != path.npos;) {
                at = path.find('/', at + 1);
                std::string part = path.substr(0, at), key = part;
                for (char &c : key) c = static_cast<char>(tolower(c));
                if (at != path.npos) part += '/';
                fits = fits && spelled.try_emplace(key, part).first->second == part &&
                       (at != path.npos || lines.find(" " + part + " ") == lines.npos);
            }
            if (fits) lines += "100644 " + path + " " + std::to_string(random(3)) + " ";
        }
        return lines;
    };
    for (int round = 0; round < 40; ++round) {
        const std::string before = draw(), after = draw();
        const TreePtr from = tree_of(before), to = tree_of(after);
        if (!from || !to) continue;
        expect_same(from.get(), to.get(), nullptr, before + " -> " + after);
    }
}

// Only what differs is opened: the equal half of the project need not be here.
TEST_F(TreeChangesTest, EqualDirectoriesAreNotOpened) {
    const TreePtr from = tree_of("100644 far/x 1 100644 near/y 1");
    const TreePtr to = tree_of("100644 far/x 1 100644 near/y 2");
    Oid far;
    const std::string digits =
        git(place, "ls-tree -d --format='%(objectname)' " + hex(zTreeId(to.get())) + " far");
    ASSERT_OK(zOidFromStr(&far, wide(digits).c_str()));
    std::filesystem::remove(place / ".git/objects" / digits.substr(0, 2) / digits.substr(2));
    RepositoryPtr fresh(zRepositoryOpen(place.u16string().c_str()));
    const TreePtr a(zTreeByid(fresh.get(), zTreeId(from.get())));
    const TreePtr b(zTreeByid(fresh.get(), zTreeId(to.get())));
    EXPECT_EQ(told(DiffPtr(zev::diff_trees(a.get(), b.get(), nullptr, nullptr)).get()),
              "3 near/y>near/y;");
}
