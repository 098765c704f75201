#include "copy_fixture.hpp"

#include <filesystem>
#include <git2.h>

using namespace test;

namespace fs = std::filesystem;

namespace {

using IndexTest = WorkingCopyTest;

std::string entry_line(const std::string &text, const std::string &path) {
    const size_t at = text.find("\t" + path);
    return text.substr(0, at).substr(text.rfind('\n', at) + 1);
}

struct IndexLooks : WorkingCopyTest {
    void SetUp() override {
        WorkingCopyTest::SetUp();
        put("a", "1");
        git_commit("first");
        put_all({"x", "y"});
    }
    std::string staged() { return git(place, "diff --cached --name-only"); }
};

} // namespace

// Entries are sorted: `plans.txt` stands between the file and what lay below it.
TEST_F(IndexTest, AFileTakesThePlaceOfADirectory) {
    put_all({"a.txt", "plans.txt", "plans/a.txt", "plans/deep/b"});
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
        EXPECT_FAILS_WITH(zIndexWrite(index.get()), GIT_EMODIFIED);
        ASSERT_OK(zIndexRead(index.get(), true));
        ASSERT_OK(zIndexAddBypath(index.get(), u"b"));
        EXPECT_OK(zIndexWrite(index.get()));
        EXPECT_OK(zIndexWrite(index.get()));
        put(".git/index.lock", "");
        EXPECT_REFUSED(zIndexWrite(index.get()), 7);
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
    put_all({"a", "inner/f", "inner/deep/g"});
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
    EXPECT_REFUSED(zIndexAddBypath(index.get(), u"inner/deep/g"), 2);
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
    EXPECT_REFUSED(zIndexAddBypath(index.get(), u"missing.dwx"), 3);
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
    EXPECT_REFUSED(zIndexAddBypath(index.get(), u"up/outside.dwx"), 2);
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
    expect_sound();
}

// That a file is gone doesn't tell which side was meant.
TEST_F(IndexTest, RefreshLeavesAConflictWhoseFileIsGone) {
    put_all({"gone", "kept"});
    make_conflict("plan");
    for (auto path : {"plan", "gone"}) take(path);
    put("kept", "22");
    IndexPtr index = lock();
    ASSERT_OK(zIndexRefresh(index.get(), spec({u"*"}).get()));
    ASSERT_OK(zIndexWrite(index.get()));
    EXPECT_TRUE(zIndexPathIsConflict(index.get(), u"plan"));
    EXPECT_EQ(brief_status(), "D  gone\nM  kept\nUU plan");
}

// ---- Looks while another one holds the lock: libgit2 has one index in memory for both

// What the holder had staged went with the old file: he is told, in place of a commit without it.
TEST_F(IndexLooks, AreToldToAHolderWhoseChangesTheyReplaced) {
    const std::function<void()> looks[] = {
        [&] { zStatusFile(repository.get(), u"a"); },
        [&] { IndexPtr(zIndexHead(repository.get(), false)); },
        [&] { DiffPtr(zDiffTreeToIndex(repository.get(), nullptr, nullptr, nullptr, nullptr)); },
        [&] {
            IndexPtr other(zIndexHead(repository.get(), false));
            zIndexRead(other.get(), true);
        },
    };
    for (size_t n = 0; n < std::size(looks); ++n) {
        IndexPtr holder(zIndexHead(repository.get(), true));
        ASSERT_OK(zIndexAddBypath(holder.get(), u"x"));
        looks[n]();
        EXPECT_EQ(zIndexWrite(holder.get()), n < 3) << n; // nothing was written meanwhile
        git(place, "reset -q");
        if (n == 3) continue;
        holder.reset();
        holder.reset(zIndexHead(repository.get(), true));
        ASSERT_OK(zIndexAddBypath(holder.get(), u"x"));
        git(place, "add y");
        looks[n]();
        EXPECT_FALSE(zIndexWrite(holder.get())) << n;
        EXPECT_FALSE(zIndexCommit(holder.get(), nullptr, u"a", u"m", nullptr)) << n;
        EXPECT_EQ(staged(), "y");
        holder.reset();
        holder.reset(zIndexHead(repository.get(), true));
        ASSERT_OK(zIndexAddBypath(holder.get(), u"x"));
        EXPECT_OK(zIndexWrite(holder.get())) << n;
        EXPECT_EQ(staged(), "x\ny");
        git(place, "reset -q");
    }
}

TEST_F(IndexLooks, LeaveNothingOfWhatTheyGaveUp) {
    IndexPtr given_up(zIndexHead(repository.get(), false));
    ASSERT_OK(zIndexAddBypath(given_up.get(), u"x"));
    given_up.reset();
    IndexPtr next(zIndexHead(repository.get(), false));
    EXPECT_FALSE(zIndexEntryBypath(next.get(), u"x"));
}
