#include "copy_fixture.hpp"

#include <filesystem>
#include <git2.h>
#include <sys/stat.h>

using namespace test;

namespace fs = std::filesystem;

namespace {

using IndexTest = WorkingCopyTest;

std::string entry_line(const std::string &text, const std::string &path) {
    const size_t at = text.find("\t" + path);
    return text.substr(0, at).substr(text.rfind('\n', at) + 1);
}

} // namespace

// Entries are sorted: `plans.txt` stands between the file and what lay below it.
TEST_F(IndexTest, AFileTakesThePlaceOfADirectory) {
    for (auto path : {"a.txt", "plans.txt", "plans/a.txt", "plans/deep/b"}) put(path, "1");
    commit_all();
    fs::remove_all(place / "plans");
    put("plans", "x");
    commit_all();
    EXPECT_EQ(tracked(), (std::vector<std::string>{"a.txt", "plans", "plans.txt"}));
    fs::remove(place / "plans");
    put("plans/a.txt", "1");
    add({u"plans/a.txt"}, kLiteral);
    EXPECT_EQ(tracked(), (std::vector<std::string>{"a.txt", "plans.txt", "plans/a.txt"}));
    expect_sound();

    git_index *broken = nullptr; // as an earlier version may have left it
    ASSERT_EQ(git_index_new(&broken), 0);
    for (const char *path : {"a.txt", "plans/a.txt", "plans"}) {
        git_index_entry entry{};
        entry.mode = GIT_FILEMODE_BLOB, entry.path = path;
        git_index_add(broken, &entry);
    }
    IndexPtr index(zIndexAlloc(broken, repository.get()));
    EXPECT_FALSE(TreePtr(zIndexWriteTree(index.get())));
    EXPECT_EQ(narrow(zErrorMsg()), "plans/a.txt");
}

// Git knows no lock of ours. What it has staged since the index was read stays, and is there for
// who reads it anew; a status that would only save times goes without.
TEST_F(IndexTest, WhatGitHasStagedSinceStays) {
    put_all({"a", "b", "c"});
    add({u"a"});
    {
        IndexPtr index = lock();
        ASSERT_OK(zIndexAddBypath(index.get(), u"b"));
        git(place, "add c");
        EXPECT_FALSE(zIndexWrite(index.get()));
        EXPECT_EQ(zErrorCode(), GIT_EMODIFIED);
        ASSERT_OK(zIndexRead(index.get(), true));
        ASSERT_OK(zIndexAddBypath(index.get(), u"b"));
        EXPECT_OK(zIndexWrite(index.get()));
        EXPECT_OK(zIndexWrite(index.get()));
        put(".git/index.lock", "");
        EXPECT_FALSE(zIndexWrite(index.get()));
        EXPECT_EQ(zErrorClass(), 7);
        take(".git/index.lock");
    }
    EXPECT_EQ(tracked(), (std::vector<std::string>{"a", "b", "c"}));
    put("a", "1"); // touched
    IndexPtr index = lock();
    git(place, "rm -q --cached c");
    zRaiseNoMemory(nullptr);
    EXPECT_OK(StatusPtr(zStatusListBuild(index.get(), spec({u"a"}).get())));
    EXPECT_EQ(zErrorClass(), 1);
    EXPECT_EQ(tracked(), (std::vector<std::string>{"a", "b"}));
}

// Another repository's files are its own, whether it is tracked as a submodule or not at all.
TEST_F(IndexTest, RepositoriesWithinAreLeftAlone) {
    put("a", "1");
    put("inner/f", "1");
    put("inner/deep/g", "1");
    git(place, "init -q inner");
    git(place / "inner", "add .");
    git(place / "inner", "-c user.name=x -c user.email=x commit -qm inner");
    Report report;
    IndexPtr index = lock();
    ASSERT_OK(zIndexAdd(index.get(), spec({u"*"}, 0, &report).get()));
    EXPECT_TRUE(report.told(text(u"action.sSkipped") + " inner"));
    EXPECT_EQ(report.lines.size(), 4u);
    ASSERT_OK(zIndexAdd(index.get(), spec({u"inner/deep/g"}, kLiteral, &report).get()));
    EXPECT_TRUE(report.told(text(u"action.sSkipped") + " inner/deep/g"));
    EXPECT_FALSE(zIndexAddBypath(index.get(), u"inner/deep/g"));
    EXPECT_EQ(zErrorClass(), 2);
    ASSERT_OK(zIndexFixupGitkeep(index.get(), u"inner/deep"));
    EXPECT_FALSE(fs::exists(place / "inner/deep/.gitkeep") || fs::exists(place / "inner/.gitkeep"));
    EXPECT_EQ(zIndexEntryCount(index.get()), 1u);
    ASSERT_OK(zIndexAddBypath(index.get(), u"inner")); // said so, its commit enters
    ASSERT_OK(zIndexWrite(index.get()));
    EXPECT_EQ(git(place, "ls-files -s inner").substr(0, 48),
              "160000 " + git(place / "inner", "rev-parse HEAD") + " ");
    for (auto [from, to] : {std::pair{u"inner", u"b"}, {u"a", u"inner/a"}})
        EXPECT_TRUE(!zIndexRename(index.get(), from, to) && zErrorClass() == 2) << narrow(from);
    EXPECT_TRUE(fs::exists(place / "inner/f") && fs::exists(place / "a"));
    fs::remove_all(place / "inner");
    put("inner/mine", "1");
    EXPECT_FALSE(zIndexAddBypath(index.get(), u"inner/mine")); // a submodule that is not here
    EXPECT_EQ(zIndexEntryCount(index.get()), 2u);
}

TEST_F(IndexTest, PathsThatNoIndexMayHold) {
    IndexPtr index = lock();
    for (const zwchar *path :
         {u"", u".", u"..", u"../out.dwx", u"/etc/passwd", u"C:/a.dwx", u"a//b", u"a/", u"a\\b",
          u"a/../b", u".git", u".GIT/config", u"a/.Git/x", u".git./config", u".git /config",
          u"git~1/config", u".git::$INDEX_ALLOCATION/x", u".g\u200cit/config", u"a\nb"}) {
        EXPECT_TRUE(!zIndexAddBypath(index.get(), path) && zErrorClass() == 2) << narrow(path);
    }
    for (const char *path : {".gitty", "x.git"}) {
        put(path, "1");
        ASSERT_OK(zIndexAddBypath(index.get(), wide(path).c_str()));
    }
    EXPECT_FALSE(zIndexAddBypath(index.get(), u"missing.dwx"));
    EXPECT_EQ(zErrorClass(), 3);
}

TEST_F(IndexTest, NamesThatDifferInCaseOnly) {
    put("Größe.dwx", "1");
    add({u"*"});
    put("GRÖßE.dwx", "2");
    put("A.dwx", "1");
    put("a.dwx", "1");
    write(place / "bad\xFF.dwx", "no UTF-8");
    Report report;
    IndexPtr index = lock();
    ASSERT_OK(zIndexAdd(index.get(), spec({u"*"}, 0, &report).get()));
    const std::string skipped = text(u"action.sSkipped");
    for (auto name : {" GRÖßE.dwx", " a.dwx", " bad\uFFFD.dwx"})
        EXPECT_TRUE(report.told(skipped + name)) << name;
    EXPECT_TRUE(report.told(text(u"action.sAdded") + " A.dwx"));
    EXPECT_FALSE(zIndexAddBypath(index.get(), u"GRÖßE.dwx"));
    EXPECT_EQ(zErrorClass(), 4);
    ASSERT_OK(zIndexRemoveEntry(index.get(), u"Größe.dwx"));
    EXPECT_OK(zIndexAddBypath(index.get(), u"GRÖßE.dwx")); // the other one is gone
}

TEST_F(IndexTest, LinksAreEnteredAndNotFollowed) {
    write(dir.path() / "outside.dwx", "secret");
    fs::create_symlink(dir.path() / "outside.dwx", place / "link.dwx");
    fs::create_directory_symlink(dir.path(), place / "up");
    put("run.sh", "x");
    fs::permissions(place / "run.sh", fs::perms::owner_all);
    add({u"*"});
    const std::string lines = git(place, "ls-files -s");
    EXPECT_TRUE(entry_line(lines, "link.dwx").starts_with("120000"));
    EXPECT_TRUE(entry_line(lines, "run.sh").starts_with("100644")); // bits are not recorded
    EXPECT_TRUE(entry_line(lines, "up").starts_with("120000"));
    EXPECT_EQ(git(place, "cat-file blob :link.dwx"), (dir.path() / "outside.dwx").string());

    // What lies behind a link belongs to somebody else.
    IndexPtr index = lock();
    EXPECT_FALSE(zIndexAddBypath(index.get(), u"up/outside.dwx"));
    EXPECT_EQ(zErrorClass(), 2);
    EXPECT_FALSE(zIndexFixupGitkeep(index.get(), u"up/outside.dwx"));
    EXPECT_FALSE(fs::exists(dir.path() / ".gitkeep"));
    fs::create_directories(place / "a");
    fs::create_symlink(dir.path() / "outside.dwx", place / "a/.gitkeep");
    ASSERT_OK(zIndexFixupGitkeep(index.get(), u"a")); // goes in as the link that it is
    EXPECT_NE(zIndexEntryBypath(index.get(), u"a/.gitkeep"), nullptr);
    EXPECT_EQ(read(dir.path() / "outside.dwx"), "secret");
    EXPECT_FALSE(zIndexRename(index.get(), u"up/outside.dwx", u"mine.dwx"));
    EXPECT_FALSE(zIndexRename(index.get(), u"run.sh", u"up/run.sh"));
    EXPECT_TRUE(fs::exists(dir.path() / "outside.dwx") && fs::exists(place / "run.sh"));
    EXPECT_NE(zIndexEntryBypath(index.get(), u"up"), nullptr);
}

// Else two drawings would write their changes into one table.
TEST_F(IndexTest, CopiedDrawingGetsItsOwnTable) {
    const fs::path first = place / "a.dwx", second = place / "copy.dwx";
    {
        auto table = guard(zTableRand(repository.get()), zTableFree);
        auto drawing = guard(zDrawingNew(nullptr, nullptr), zDrawingFree);
        ASSERT_OK(table && drawing);
        ASSERT_OK(zDrawingTableIdSet(drawing.get(), zTableId(table.get())));
        ASSERT_OK(zDrawingTableBackwardRefSet(table.get(), zTablePath(table.get()),
                                              first.u16string().c_str()));
        ASSERT_OK(zDrawingWrite(drawing.get(), first.u16string().c_str()));
    }
    add({u"*"});
    fs::copy_file(first, second);
    add({u"*"});
    Oid of_first, of_second;
    ASSERT_OK(zDrawingDetect(&of_first, first.u16string().c_str()));
    ASSERT_OK(zDrawingDetect(&of_second, second.u16string().c_str()));
    EXPECT_NE(hex(&of_first), hex(&of_second));
    EXPECT_EQ(git(place, "diff --name-only"), "");
}

TEST_F(IndexTest, LargeFilesGoInBlocks) {
    std::string bytes(5 << 20, '\0');
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * i >> 7);
    put("large.dwx", bytes);
    add({u"*"});
    EXPECT_EQ(git(place, "hash-object large.dwx"), git(place, "rev-parse :large.dwx"));
    fs::last_write_time(place / "large.dwx",
                        fs::file_time_type::clock::now() - std::chrono::hours(1));
    IndexPtr index = lock();
    ASSERT_OK(zIndexAddBypath(index.get(), u"large.dwx")); // touched: same blob, new times
    ASSERT_OK(zIndexWrite(index.get()));
    EXPECT_EQ(git(place, "diff-files"), "");
    index.reset();
    write(place / ".gitattributes", "*.txt text eol=crlf\n");
    put("a.txt", "one\r\ntwo\r\n"); // filters are honoured
    add({u"a.txt"});
    EXPECT_EQ(git(place, "cat-file -s :a.txt"), "8");
    {
        IndexPtr held = lock();
        EXPECT_TRUE(!zIndexHead(repository.get(), true) && zErrorClass() == 7);
        ASSERT_OK(zIndexAddBypath(held.get(), u".gitattributes"));
    } // not written
    EXPECT_EQ(zIndexEntryCount(lock().get()), 2u);
    expect_sound();
}

TEST_F(IndexTest, RenameMovesWhatIsTracked) {
    put("docs/a.dwx", "1");
    put("docs/deep/b.dwx", "1");
    put("docs2/c.dwx", "1");
    commit_all();
    put("docs/deep/b.dwx", "changed");
    put("docs/new.dwx", "1");
    IndexPtr index = lock();
    ASSERT_OK(zIndexRename(index.get(), u"docs", u"plans/2026"));
    ASSERT_OK(zIndexRename(index.get(), u"docs2/c.dwx", u"c.dwx"));
    ASSERT_OK(zIndexWrite(index.get()));
    EXPECT_EQ(tracked(),
              (std::vector<std::string>{"c.dwx", "plans/2026/a.dwx", "plans/2026/deep/b.dwx"}));
    EXPECT_TRUE(fs::exists(place / "plans/2026/new.dwx"));
    EXPECT_EQ(git(place, "cat-file blob :plans/2026/deep/b.dwx"), "changed");

    for (auto [from, to, code] : {std::tuple{u"c.dwx", u"plans/2026/A.dwx", -1}, // a twin
                                  {u"c.dwx", u"plans/2026/new.dwx", 17},         // in the way
                                  {u"c.dwx", u"c.dwx", -1},
                                  {u"none.dwx", u"d.dwx", -1}})
        EXPECT_TRUE(!zIndexRename(index.get(), from, to) && (code < 0 || zErrorCode() == code))
            << narrow(to);
    EXPECT_TRUE(fs::exists(place / "c.dwx"));
}

TEST_F(IndexTest, KeepFilesForADirectoryAndThoseAbove) {
    fs::create_directories(place / "a/b/c/d");
    for (auto left_out : {"a/b/c/build/x", "a/b/c/venv/bin", "a/b/c/inner/.git"})
        fs::create_directories(place / left_out);
    put("a/b/file.dwx", "1");
    put(".gitignore", "build/\n!.gitkeep\n");
    put("a/b/c/venv/.gitignore", "*\n");
    put("root.dwx", "1");
    IndexPtr index = lock();
    ASSERT_OK(zIndexFixupGitkeep(index.get(), u"root.dwx"));
    EXPECT_EQ(zIndexEntryCount(index.get()), 0u);
    ASSERT_OK(zIndexFixupGitkeep(index.get(), u"a/b/c"));
    ASSERT_OK(zIndexWrite(index.get()));
    EXPECT_EQ(tracked(), (std::vector<std::string>{"a/.gitkeep", "a/b/.gitkeep", "a/b/c/.gitkeep",
                                                   "a/b/c/d/.gitkeep"}));
    fs::create_directories(place / "a/b/C"); // a twin, which one Windows machine can't hold
    ASSERT_OK(zIndexFixupGitkeep(index.get(), u"a/b/C"));
    EXPECT_FALSE(fs::exists(place / "a/b/C/.gitkeep"));
    ASSERT_OK(zIndexRemoveDirectory(index.get(), u"a/b/c/"));
    EXPECT_EQ(zIndexEntryCount(index.get()), 2u);
    EXPECT_FALSE(fs::exists(place / ".gitkeep"));
}

// In memory, and entry by entry.
TEST_F(IndexTest, WholesOfATreeAndTheirParts) {
    for (auto path : {"a", "d/b", "d/c"}) put(path, "22");
    fs::create_symlink("a", place / "link");
    commit_all();
    const TreePtr tree(zTreeHead(repository.get()));
    const IndexPtr same(zIndexBytree(tree.get())), copy(zIndexDup(same.get()));
    Index *index = copy.get();
    std::string paths;
    const auto note = [](const IndexEntry *entry, void *text) -> int32_t {
        static_cast<std::string *>(text)->append(narrow(zIndexEntryPath(entry)) + ";");
        return zIndexEntryMode(entry) == 0120000 ? -1 : 0; // ends it there
    };
    EXPECT_FALSE(zIndexWalk(index, note, &paths));
    EXPECT_EQ(paths, "a;d/b;d/c;link;");
    uint64_t at = 0;
    EXPECT_TRUE(zIndexFindPrefix(&at, index, u"d/") && at == 1);
    EXPECT_FALSE(zIndexByref(repository.get(), u"none"));
    EXPECT_FALSE(zIndexFindPrefix(&at, index, u"x/") || zErrorClass() != 3);
    EXPECT_EQ(narrow(zErrorReason()).find("none"), std::string::npos); // its own reason

    struct stat status;
    ASSERT_EQ(::lstat((place / "d/b").c_str(), &status), 0);
    const EntryPtr made(zIndexEntryStat(index, u"d/b"));
    ASSERT_OK(made);
    Time time{};
    EXPECT_EQ(zIndexEntryMTime(&time, made.get())->seconds, status.st_mtim.tv_sec);
    EXPECT_EQ(zIndexEntryCTime(&time, made.get())->nanoseconds, status.st_ctim.tv_nsec);
    EXPECT_EQ(zIndexEntryIno(made.get()), static_cast<uint32_t>(status.st_ino));
    for (auto [path, code] : {std::pair{u"none", 2}, {u"a/none", 2}, {u"d", 21}})
        EXPECT_TRUE(!zIndexEntryStat(index, path) && zErrorCode() == code) << narrow(path);

    EXPECT_FALSE(zIndexEntrySetStage(made.get(), 4));
    ASSERT_OK(zIndexEntrySetStage(made.get(), 2));
    ASSERT_OK(zIndexRemoveEntry(index, u"d/b") && zIndexEntryAdd(index, made.get()));
    const IndexEntry *ours = zIndexEntryBypath(index, u"d/b");
    EXPECT_TRUE(ours && zIndexEntryStage(ours) == 2 && zIndexEntryIsConflict(ours));
    const auto match = [&](const zwchar *pattern) { // conflicts are none
        Held<Vector, zPathListFree> list(
            zIndexMatch(index, spec({pattern}, Z_SPEC_MUST_MATCH).get()));
        return list ? narrow(zPathListEntry(list.get(), 0)) : std::to_string(zErrorClass());
    };
    EXPECT_EQ(match(u"D") + match(u"d/b"), "d/c3");
}

// That a file is gone doesn't tell which side was meant.
TEST_F(IndexTest, RefreshLeavesAConflictWhoseFileIsGone) {
    for (auto path : {"gone", "kept"}) put(path, "1");
    make_conflict("plan");
    for (auto path : {"plan", "gone"}) take(path);
    put("kept", "22");
    IndexPtr index = lock();
    ASSERT_OK(zIndexRefresh(index.get(), spec({u"*"}).get()));
    ASSERT_OK(zIndexWrite(index.get()));
    EXPECT_TRUE(zIndexPathIsConflict(index.get(), u"plan"));
    EXPECT_EQ(brief_status(), "D  gone\nM  kept\nUU plan");
}
