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

// Until the clock of the file system has gone on since `path` changed.
void outlast(const fs::path &path) {
    struct stat last {
    }, now{};
    ASSERT_EQ(stat(path.c_str(), &last), 0);
    const auto is_later = [&] {
        return now.st_ctim.tv_sec != last.st_ctim.tv_sec ||
               now.st_ctim.tv_nsec != last.st_ctim.tv_nsec;
    };
    do {
        ASSERT_EQ(utimensat(AT_FDCWD, path.parent_path().c_str(), nullptr, 0), 0);
        ASSERT_EQ(stat(path.parent_path().c_str(), &now), 0);
    } while (!is_later());
}

} // namespace

// Unchanged ones are selected just the same, on both roads, and a file where a directory was.
TEST_F(StatusTest, SpecsSelect) {
    put_all({"docs2/b.dwx", "end "});
    commit_all();
    EXPECT_EQ(status(spec({u"end "}, kLiteral).get()), (Kinds{{"end ", Z_KIND_UNCHANGED}}));
    EXPECT_EQ(status(spec({u"END "}, 0).get()), (Kinds{{"end ", Z_KIND_UNCHANGED}}));
    fs::remove_all(place / "docs2");
    put("docs2", "mine");
    EXPECT_EQ(status(spec({u"docs2"}, kLiteral).get()), (Kinds{{"docs2", Z_KIND_UNTRACKED}}));
    EXPECT_EQ(status(spec({u"docs2/"}, kLiteral).get()), (Kinds{{"docs2/b.dwx", Z_KIND_MISSING}}));
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
    const StatusEntry *edited = zStatusListLookup(list.get(), u"new/edited");
    EXPECT_EQ(zStatusEntryIndexStatus(edited), Z_KIND_RENAMED);
    EXPECT_EQ(zStatusEntryWorkdirStatus(edited), Z_KIND_UNTRACKED); // as told of its word
    EXPECT_EQ(hex(zStatusEntryOldId(edited)), git(place, "rev-parse HEAD:old/edited"));
    EXPECT_EQ(hex(zStatusEntryNewId(edited)), git(place, "rev-parse :new/edited"));
    EXPECT_EQ(zStatusListLookup(list.get(), u"NEW/edited"), nullptr);
}

// A clone has an empty directory in place of each submodule, and of a sparse one only a part is
// checked out.
TEST_F(StatusTest, WhatTheWorkDirectoryNeedNotHold) {
    put_all({"a", "sparse"});
    add({u"*"});
    git(place, "update-index --skip-worktree sparse");
    std::filesystem::remove(place / "sparse");
    git(place, "update-index --add --cacheinfo 160000," + std::string(40, 'a') + ",sub/mod");
    std::filesystem::create_directories(place / "sub/mod");
    commit_all();
    EXPECT_EQ(git(place, "ls-tree -r HEAD sub").substr(0, 6), "160000");
    const Kinds clean{
        {"a", Z_KIND_UNCHANGED}, {"sparse", Z_KIND_UNCHANGED}, {"sub/mod", Z_KIND_UNCHANGED}};
    EXPECT_EQ(zStatusFile(repository.get(), u"sparse"), Z_KIND_UNCHANGED);
    put("a", "22");
    IndexPtr index = lock();
    const SpecPtr all = spec({u"*"});
    ASSERT_OK(zIndexRefresh(index.get(), all.get()));
    ASSERT_OK(CommitPtr(zIndexCommit(index.get(), all.get(), u"HEAD", u"Ada", u"a")));
    index.reset();
    EXPECT_EQ(git(place, "ls-tree -r --name-only HEAD"), "a\nsparse\nsub/mod");
    EXPECT_EQ(brief_status(), "");
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
    outlast(place / "edited"); // times as new as the lock's own are not trusted
    EXPECT_NE(git(place, "diff-files"), "");
    const std::string tree = git(place, "write-tree");
    {
        IndexPtr index = lock();
        StatusPtr list(zStatusListBuild(index.get(), spec({}, Z_SPEC_NO_UNCHANGED).get()));
        EXPECT_EQ(zStatusListLength(list.get()), 1u);
    }
    EXPECT_EQ(git(place, "diff-files --name-only"), "edited");
    EXPECT_EQ(git(place, "write-tree"), tree);
    IndexPtr index = lock(); // and nothing of what is staged
    ASSERT_OK(zIndexAddBypath(index.get(), u"edited"));
    age(place / "f0", 7200);
    ASSERT_OK(StatusPtr(zStatusListBuild(index.get(), nullptr)));
    EXPECT_EQ(git(place, "diff --cached --name-only"), "");
}

// Whatever an attribute says of all files, a drawing is stored, compared and written as it is.
TEST_F(StatusTest, NeverConvertsDrawings) {
    const std::string bytes = "VANE ZEV\nand\r\nmore\n";
    put(".gitattributes", "* text eol=crlf\n"), put("plan.dwx", bytes), put("text", "a\n");
    commit_all();
    EXPECT_EQ(git(place, "cat-file -s HEAD:plan.dwx"), std::to_string(bytes.size()));
    for (const char *file : {"plan.dwx", "text"}) age(place / file, 3600);
    const auto look = spec({}, Z_SPEC_NO_UNCHANGED);
    EXPECT_EQ(status(look.get()), Kinds());
    put("plan.dwx", bytes + "x");
    EXPECT_EQ(status(look.get()), (Kinds{{"plan.dwx", Z_KIND_MODIFIED}}));
    const Oid id = parsed(git(place, "rev-parse HEAD:plan.dwx"));
    const Held<Blob, zBlobFree> committed(zBlobByid(repository.get(), &id));
    ASSERT_OK(zBlobCheckout(committed.get(), u"theirs.dwx"));
    EXPECT_EQ(read(place / "theirs.dwx"), bytes);
}

// libgit2 goes no deeper than 100 directories, and fails at the next.
TEST_F(StatusTest, WhatNestsTooDeepIsLeftOutByName) {
    struct Warned : Report {
        Warned() {
            warning = [](auto *n, auto *text) {
                const_cast<Warned *>(static_cast<const Warned *>(n))->said += narrow(text) + "\n";
            };
        }
        std::string said;
    } host;
    put("plan", "1");
    commit_all();
    std::string deep = "a [b] *", other = "b";
    for (int level = 1; level < 120; ++level) deep += "/d", other += "/" + std::to_string(level);
    put("plan", "22"), put(deep + "/file", "1"), put(other.substr(0, other.rfind("/100")), "1");
    const auto look = spec({}, Z_SPEC_NO_UNCHANGED);
    zPathSpecSetNotify(look.get(), &host);
    const std::string bound = other.substr(0, other.rfind("/100"));
    EXPECT_EQ(status(look.get()), (Kinds{{"plan", Z_KIND_MODIFIED}, {bound, Z_KIND_UNTRACKED}}));
    const size_t cut = deep.find('/') + 2 * 99;
    EXPECT_EQ(host.said, text(u"odb.eNestsTooDeep") + ": " + deep.substr(0, cut) + "\n");
    // The other files can be added.
    Index *index = zIndexHead(repository.get(), true);
    const auto all = spec({u"*"}, 0);
    EXPECT_OK(zIndexAdd(index, all.get()) && zIndexWrite(index));
    zIndexFree(index);
    EXPECT_EQ(git(place, "diff --cached --name-only"), bound + "\nplan");
    // A tracked file there can't be left out: the failure has its name.
    git(place, "add -f '" + deep + "/file'");
    Index *late = zIndexHead(repository.get(), false);
    StatusList *none = zStatusListBuild(late, look.get());
    EXPECT_FALSE(none);
    EXPECT_EQ(narrow(zErrorDetail()), deep.substr(0, cut) + ": " + text(u"odb.eNestsTooDeep"));
    // Nor can one whose name is two lines, be it tracked or not.
    put("x\ny" + deep.substr(deep.find('/')) + "/file", "1");
    none = zStatusListBuild(late, look.get());
    EXPECT_FALSE(none);
    EXPECT_NE(narrow(zErrorDetail()).find("y/d/d"), std::string::npos) << narrow(zErrorDetail());
    zIndexFree(late);
}
