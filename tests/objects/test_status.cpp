#include "copy_fixture.hpp"

#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>

using namespace test;

namespace fs = std::filesystem;

namespace {

using StatusTest = WorkingCopyTest;
using Kinds = std::map<std::string, int>;

void age(const fs::path &path, int seconds) {
    timespec times[2] = {{0, UTIME_OMIT}, {time(nullptr) - seconds, 12345}};
    utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

} // namespace

TEST_F(StatusTest, OneKindAFile) {
    for (auto name : {"same", "staged", "edited", "both", "dropped", "gone", "moved", "type"})
        put(name, std::string("some bytes of ") + name);
    put(".gitignore", "*.log\n");
    commit_all();
    put("staged", "1");
    put("both", "1");
    put("fresh", "1");
    put("lost", "1");
    git(place, "add staged both fresh lost");
    git(place, "rm -q --cached dropped");
    git(place, "mv moved found");
    put("edited", "1");
    put("both", "22");
    fs::remove(place / "gone");
    fs::remove(place / "lost");
    fs::remove(place / "type");
    fs::create_symlink("same", place / "type");
    put("new", "1");
    put("x.log", "1");
    const Kinds all = status();
    EXPECT_EQ(all, (Kinds{{".gitignore", Z_KIND_UNCHANGED},
                          {"both", Z_KIND_MODIFIED},
                          {"dropped", Z_KIND_DELETED},
                          {"edited", Z_KIND_MODIFIED},
                          {"found", Z_KIND_RENAMED},
                          {"fresh", Z_KIND_ADDED},
                          {"gone", Z_KIND_MISSING},
                          {"lost", Z_KIND_MISSING}, // new, and gone again
                          {"new", Z_KIND_UNTRACKED},
                          {"same", Z_KIND_UNCHANGED},
                          {"staged", Z_KIND_MODIFIED},
                          {"type", Z_KIND_TYPECHANGE}, // of the disk alone
                          {"x.log", Z_KIND_IGNORED}}));
    for (uint32_t kind = 0; kind < 12; ++kind) { // each bit leaves out its kind
        Kinds left = all;
        std::erase_if(left, [&](auto &pair) { return pair.second == static_cast<int>(kind); });
        if (kind == Z_KIND_RENAMED) left["found"] = Z_KIND_ADDED, left["moved"] = Z_KIND_DELETED;
        EXPECT_EQ(status(spec({}, Z_SPEC_NO_UNCHANGED << kind).get()), left) << kind;
    }
    EXPECT_EQ(status(spec({}, Z_SPEC_INDEX_ONLY | Z_SPEC_NO_UNCHANGED).get()),
              (Kinds{{"both", Z_KIND_MODIFIED},
                     {"dropped", Z_KIND_DELETED},
                     {"found", Z_KIND_RENAMED},
                     {"fresh", Z_KIND_ADDED},
                     {"lost", Z_KIND_ADDED},
                     {"staged", Z_KIND_MODIFIED}}));
    for (const auto &[path, kind] : all) {
        const int alone = kind == Z_KIND_RENAMED ? Z_KIND_ADDED : kind;
        EXPECT_EQ(zStatusFile(repository.get(), wide(path).c_str()), alone) << path;
    }
}

TEST_F(StatusTest, EntryTellsItsSides) {
    put("moved", "some bytes that are alike");
    put("edited", "1");
    put("both", "1");
    commit_all();
    git(place, "mv moved found");
    put("both", "22");
    git(place, "add both");
    put("both", "333");
    put("edited", "22");
    IndexPtr index(zIndexHead(repository.get(), false));
    StatusPtr list(zStatusListBuild(index.get(), nullptr));
    auto *found = zStatusListLookup(list.get(), u"found");
    ASSERT_OK(found);
    EXPECT_EQ(narrow(zStatusEntryFrom(found)), "moved");
    EXPECT_EQ(zStatusEntryIndexStatus(found), Z_KIND_RENAMED);
    EXPECT_EQ(zStatusEntryWorkdirStatus(found), Z_KIND_UNTRACKED); // as told of its word
    auto *edited = zStatusListLookup(list.get(), u"edited");
    ASSERT_OK(edited);
    EXPECT_EQ(narrow(zStatusEntryFrom(edited)), "edited");
    EXPECT_EQ(hex(zStatusEntryOldId(edited)), git(place, "rev-parse HEAD:edited"));
    EXPECT_EQ(hex(zStatusEntryNewId(edited)), git(place, "rev-parse :edited"));
    EXPECT_EQ(zStatusEntryWorkdirStatus(edited), Z_KIND_MODIFIED);
    auto *both = zStatusListLookup(list.get(), u"both");
    EXPECT_EQ(hex(zStatusEntryOldId(both)), git(place, "rev-parse HEAD:both"));
    EXPECT_EQ(hex(zStatusEntryNewId(both)), git(place, "rev-parse :both"));
    EXPECT_EQ(zStatusListLookup(list.get(), u"FOUND"), nullptr);
    EXPECT_EQ(zErrorClass(), 3);
    EXPECT_EQ(narrow(zStatusName(Z_KIND_MISSING)), text(u"status.sMissing"));
    EXPECT_EQ(narrow(zStatusName(12)), text(u"status.sUnkonwn"));
}

TEST_F(StatusTest, SpecsSelect) {
    for (auto name : {"Docs/a.dwx", "docs2/b.dwx", "#1.dwx", "!x", "end ", "größe.dwx"})
        put(name, "1");
    commit_all();
    for (auto name : {"Docs/a.dwx", "Docs/new", "docs2/b.dwx", "#1.dwx", "!x", "end ", "größe.dwx"})
        put(name, "22");
    auto changed = [&](std::vector<std::u16string> patterns, uint32_t options) {
        std::string names;
        for (auto &[path, kind] : status(spec(patterns, options | Z_SPEC_NO_UNCHANGED).get()))
            names += path + ";";
        return names;
    };
    EXPECT_EQ(changed({u"docs"}, 0), "Docs/a.dwx;Docs/new;");
    EXPECT_EQ(changed({u"DOCS/A.dwx"}, kLiteral), "Docs/a.dwx;"); // no such spelling
    EXPECT_EQ(changed({u"Docs/a.dwx"}, kLiteral), "Docs/a.dwx;");
    EXPECT_EQ(changed({u"Docs"}, kLiteral), "");
    EXPECT_EQ(changed({u"Docs/"}, kLiteral), "Docs/a.dwx;Docs/new;");
    EXPECT_EQ(changed({u"#1.dwx", u"!x", u"end "}, kLiteral), "!x;#1.dwx;end ;");
    EXPECT_EQ(changed({u"#1.dwx", u"!x", u"end "}, 0), "!x;#1.dwx;end ;");
    EXPECT_EQ(changed({u"GRÖßE*"}, 0), "größe.dwx;");
    EXPECT_EQ(changed({u"none"}, kLiteral), "");
    std::filesystem::remove_all(place / "docs2");
    put("docs2", "mine"); // a file where the directory was
    EXPECT_EQ(changed({u"docs2"}, kLiteral), "docs2;");
    EXPECT_EQ(changed({u"docs2/"}, kLiteral), "docs2/b.dwx;");
    // Unchanged ones are selected just the same, on both roads.
    put("end ", "1");
    EXPECT_EQ(status(spec({u"end "}, kLiteral).get()), (Kinds{{"end ", Z_KIND_UNCHANGED}}));
    EXPECT_EQ(status(spec({u"END "}, 0).get()), (Kinds{{"end ", Z_KIND_UNCHANGED}}));
    IndexPtr index(zIndexHead(repository.get(), false));
    EXPECT_EQ(zStatusListBuild(index.get(), spec({u"none"}, Z_SPEC_MUST_MATCH).get()), nullptr);
    EXPECT_EQ(zErrorClass(), 3);
}

TEST_F(StatusTest, WalkEndsWhereItsCallerWants) {
    for (auto name : {"a", "b", "c"}) put(name, "1");
    std::vector<std::string> seen;
    IndexPtr index(zIndexHead(repository.get(), false));
    auto until_b = [](const zwchar *path, int32_t kind, void *seen) -> int32_t {
        static_cast<std::vector<std::string> *>(seen)->push_back(narrow(path));
        return kind != Z_KIND_UNTRACKED || narrow(path) == "b";
    };
    ASSERT_OK(zStatusForeach(index.get(), nullptr, until_b, &seen));
    EXPECT_EQ(seen, (std::vector<std::string>{"a", "b"}));
}

// A callback may change the index that is walked.
TEST_F(StatusTest, WalkKeepsItsPaths) {
    for (auto name : {"first", "second", "third"}) put(name, "1");
    commit_all();
    struct Walked {
        IndexPtr index;
        std::string seen;
    } walked{lock(), ""};
    const auto clear = [](const zwchar *path, int32_t, void *context) -> int32_t {
        auto *self = static_cast<Walked *>(context);
        self->seen += narrow(path) + ";";
        zIndexClear(self->index.get());
        for (auto other : {u"OTHER", u"OTHERS"}) zIndexAddBypath(self->index.get(), other);
        return 0;
    };
    put("OTHER", "1"), put("OTHERS", "1");
    ASSERT_OK(
        zStatusForeach(walked.index.get(), spec({}, Z_SPEC_NO_UNTRACKED).get(), clear, &walked));
    EXPECT_EQ(walked.seen, "first;second;third;");
}

// More than libgit2 would compare with each other, and one that changed on the way.
TEST_F(StatusTest, RenamesOfALargeDirectory) {
    const std::string lines = "many\nlines\nthat\nstay\nas\nthey\nare\n";
    for (int i = 10000; i < 11200; ++i) put("old/" + std::to_string(i), std::to_string(i));
    put("old/edited", lines);
    commit_all();
    git(place, "mv old new");
    put("new/edited", lines + "more\n");
    git(place, "add new");
    IndexPtr index(zIndexHead(repository.get(), false));
    StatusPtr list(zStatusListBuild(index.get(), nullptr));
    ASSERT_EQ(zStatusListLength(list.get()), 1201u);
    for (uint64_t i = 0; i < 1201; ++i) {
        auto *entry = zStatusListEntry(list.get(), i);
        EXPECT_EQ(zStatusEntryStatus(entry), Z_KIND_RENAMED);
        EXPECT_EQ(narrow(zStatusEntryFrom(entry)).substr(4),
                  narrow(zStatusEntryPath(entry)).substr(4));
    }
    EXPECT_EQ(zStatusEntryIndexStatus(zStatusListLookup(list.get(), u"new/edited")),
              Z_KIND_RENAMED);
}

// A clone has an empty directory in place of each submodule, and of a sparse one only a part is
// checked out.
TEST_F(StatusTest, WhatTheWorkDirectoryNeedNotHold) {
    for (auto path : {"a", "sparse"}) put(path, "1");
    add({u"*"});
    git(place, "update-index --skip-worktree sparse");
    std::filesystem::remove(place / "sparse");
    git(place, "update-index --add --cacheinfo 160000," + std::string(40, 'a') + ",sub/mod");
    std::filesystem::create_directories(place / "sub/mod");
    commit_all();
    EXPECT_EQ(git(place, "ls-tree -r HEAD sub").substr(0, 6), "160000");
    const Kinds clean{
        {"a", Z_KIND_UNCHANGED}, {"sparse", Z_KIND_UNCHANGED}, {"sub/mod", Z_KIND_UNCHANGED}};
    EXPECT_EQ(status(), clean);
    EXPECT_EQ(zStatusFile(repository.get(), u"sparse"), Z_KIND_UNCHANGED);
    put("a", "22");
    IndexPtr index = lock();
    const SpecPtr all = spec({u"*"});
    ASSERT_OK(zIndexRefresh(index.get(), all.get()));
    ASSERT_OK(CommitPtr(zIndexCommit(index.get(), all.get(), u"HEAD", u"Ada", u"a")));
    index.reset();
    EXPECT_EQ(git(place, "ls-tree -r --name-only HEAD"), "a\nsparse\nsub/mod");
    EXPECT_EQ(git(place, "status --porcelain"), "");
    EXPECT_EQ(status(), clean);
}

// Files that were only touched are read once: a status under the lock keeps their new times.
TEST_F(StatusTest, LockedStatusKeepsNewTimes) {
    for (int i = 0; i < 20; ++i) put("f" + std::to_string(i), "bytes");
    put("edited", "bytes");
    commit_all();
    for (int i = 0; i < 20; ++i) age(place / ("f" + std::to_string(i)), 3600 + i);
    put("edited", "other");
    age(place / "edited", 3600);
    const timespec pause{0, 20'000'000}; // times behind the lock's own are not trusted
    nanosleep(&pause, nullptr);
    EXPECT_NE(git(place, "diff-files"), "");
    const std::string tree = git(place, "write-tree");
    {
        IndexPtr index = lock();
        StatusPtr list(zStatusListBuild(index.get(), spec({}, Z_SPEC_NO_UNCHANGED).get()));
        EXPECT_EQ(zStatusListLength(list.get()), 1u);
    }
    EXPECT_EQ(git(place, "diff-files --name-only"), "edited");
    EXPECT_EQ(git(place, "write-tree"), tree);
}

TEST_F(StatusTest, LockedStatusWritesNothingThatIsStaged) {
    put("a", "bytes");
    put("b", "bytes");
    commit_all();
    age(place / "a", 3600);
    put("b", "other");
    IndexPtr index = lock();
    ASSERT_OK(zIndexAddBypath(index.get(), u"b"));
    StatusPtr list(zStatusListBuild(index.get(), nullptr));
    ASSERT_OK(list);
    EXPECT_EQ(git(place, "diff --cached --name-only"), "");
}
