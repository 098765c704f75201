#include "copy_fixture.hpp"

#include "objects/trash/trash.hpp"
#include "system/os.hpp"
#include "zev/dir.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>

using namespace test;

namespace fs = std::filesystem;
namespace os = zev::os;

namespace {

using TrashPtr = Held<TrashEntry, zTrashEntryFree>;
using FindPtr = Held<TrashFind, zTrashFindFree>;
using Names = std::vector<std::string>;

// A host that answers questions and keeps what it was told.
struct Host : Report {
    int32_t answer;
    std::string asked;

    explicit Host(int32_t button = -1) : answer(button) {
        error = [](auto *n, auto *text) { of(n).lines.push_back("error " + narrow(text)); };
        dialog = [](auto *n, auto *d) {
            of(n).asked = narrow(zTaskDialogInstruction(d)) + narrow(zTaskDialogContent(d));
            return of(n).answer;
        };
    }

  private:
    static Host &of(const Notify *n) { return const_cast<Host &>(*static_cast<const Host *>(n)); }
};

std::string with(const zwchar *key, const zwchar *argument) {
    return narrow(zI18nTextFormat(zI18nCurrentLang(), key, argument));
}

std::string orig_and_name(const TrashEntry *entry) {
    return narrow(zTrashEntryOrig(entry)) + "/" + narrow(zTrashEntryName(entry));
}

std::string info(const std::string &name, const std::string &orig, int64_t time) {
    return R"({"name":")" + name + R"(","orig":")" + orig + R"(","time":)" + std::to_string(time) +
           "}";
}

class TrashTest : public WorkingCopyTest {
  protected:
    const fs::path trash = place / ".git/trash";
    const os::Calls kept = os::calls;

    void TearDown() override {
        os::calls = kept;
        unsetenv("XDG_DATA_HOME");
    }

    // What a search finds, in the order of "orig/name".
    std::vector<TrashPtr> search(const zwchar *pattern, bool recursive, const TrashEntry *below) {
        std::vector<TrashPtr> results;
        FindPtr find(zTrashFindNew(repository.get(), below, pattern, recursive));
        for (bool on = zTrashFindFirst(find.get()); on; on = zTrashFindNext(find.get()))
            results.emplace_back(zTrashEntryDup(zTrashFindEntry(find.get())));
        std::ranges::sort(results, {}, [](auto &entry) { return orig_and_name(entry.get()); });
        return results;
    }
    Names found(const zwchar *pattern = nullptr, bool recursive = true,
                const TrashEntry *below = nullptr) {
        Names names;
        for (auto &entry : search(pattern, recursive, below))
            names.push_back(orig_and_name(entry.get()));
        return names;
    }
    TrashPtr entry(const std::string &name) {
        for (auto &entry : search(nullptr, true, nullptr))
            if (narrow(zTrashEntryName(entry.get())) == name) return std::move(entry);
        ADD_FAILURE() << name << " is not in the trash";
        return nullptr;
    }
    TrashPtr discover(const std::string &path) {
        return TrashPtr(zTrashEntryDiscover(repository.get(), wide(path).c_str()));
    }
    bool back(const TrashPtr &entry, const Notify *host = nullptr) {
        return zTrashMoveBack(repository.get(), entry.get(), host);
    }

    // A path, after a file was put there.
    void take(const std::string &path, const std::string &file = {}) {
        if (!file.empty()) put(file, "drawing");
        ASSERT_OK(zTrashMoveInto(repository.get(), wide(path).c_str())) << path;
    }

    int slots() {
        return atoi(
            run("find '" + trash.string() + "' -name 'info.$$$' 2>/dev/null | wc -l").c_str());
    }

    // A description and an item put there by hand; gives the slot's path.
    std::string slot(int number, const std::string &info, const std::string &item = "x") {
        char digits[42];
        snprintf(digits, sizeof digits, "%02x/%038x", number % 256, number);
        write(trash / digits / "info.$$$", info);
        write(trash / digits / item, "bytes");
        return digits;
    }
};

} // namespace

// ---- In

TEST_F(TrashTest, TakesWithNameAndOrigin) {
    const int64_t before = time(nullptr);
    const std::array<std::string, 3> kRows[] = {
        {"top.dwx", "top.dwx", "/top.dwx"},
        {"a\\b/st*r [1].dwx", "a/b/st*r [1].dwx", "a/b/st*r [1].dwx"},
        {"Größe/平面.dwx", "Größe/平面.dwx", "Größe/平面.dwx"},
        {"docs\\sub/", "docs/sub/a", "docs/sub"}}; // a tree, named after its last part
    for (const auto &[path, file, name] : kRows) {
        take(path, file);
        EXPECT_FALSE(fs::exists(place / file));
        EXPECT_EQ(found(nullptr, false), Names{name});
        EXPECT_GE(zTrashEntryDTime(entry(fs::path(name).filename()).get())->seconds, before);
        ASSERT_OK(zTrashCleanup(repository.get()));
    }
    EXPECT_OK(zTrashMoveInto(repository.get(), u"not/there"));
    put("docs/info.$$$", "mine"); // the name of a description
    const RepositoryPtr bare(zRepositoryInit((dir / u"bare").c_str(), true));
    for (auto [owner, path] : {std::pair{repository.get(), u"docs/info.$$$"},
                               {repository.get(), u"/"},
                               {bare.get(), u"a"}}) {
        zRaiseOutOfRange(nullptr);
        EXPECT_FALSE(zTrashMoveInto(owner, path));
        EXPECT_EQ(zErrorClass(), 2);
    }
    EXPECT_EQ(read(place / "docs/info.$$$"), "mine");
    EXPECT_FALSE(zTrashFindNew(bare.get(), nullptr, nullptr, true));
}

// Before the file moves there is a whole description; what failed leaves nothing behind.
TEST_F(TrashTest, AFailingMoveLeavesTheFileWhereItWas) {
    static bool described;
    void (*const kFaults[])() = {
        [] { os::calls.mkdir = [](auto *, mode_t) { return errno = EIO, -1; }; },
        [] { os::calls.write = [](int, auto *, size_t) { return errno = ENOSPC, ssize_t{-1}; }; },
        [] { os::calls.fdatasync = [](int) { return errno = EIO, -1; }; },
        [] {
            os::calls.rename = [](auto *, auto *to, unsigned) {
                described = fs::file_size(fs::path(to).parent_path() / "info.$$$") > 0;
                return errno = EIO, -1;
            };
        }};
    const fs::path file = place / "docs/plan.dwx";
    write(file, "drawing");
    for (auto arm : kFaults) {
        arm();
        EXPECT_FALSE(zTrashMoveInto(repository.get(), u"docs/plan.dwx"));
        EXPECT_EQ(zErrorClass(), 9);
        os::calls = kept;
        EXPECT_EQ(read(file), "drawing");
        EXPECT_EQ(slots(), 0);
    }
    EXPECT_TRUE(described);

    // Across devices the copy is whole and has its name, but its source can't be removed.
    os::calls.rename = [](auto *from, auto *to, unsigned flags) {
        const bool across = std::string_view(from).find("trash") == std::string_view::npos;
        return across ? (errno = EXDEV, -1) : ::renameat2(AT_FDCWD, from, AT_FDCWD, to, flags);
    };
    os::calls.fsync = [](int) { return errno = EIO, -1; };
    EXPECT_FALSE(zTrashMoveInto(repository.get(), u"docs/plan.dwx"));
    EXPECT_EQ(read(file), "drawing");
    EXPECT_EQ(found(), Names{"docs/plan.dwx"});
    os::calls.fsync = kept.fsync;
    take("docs/plan.dwx");
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(found().size(), 2u);
}

TEST_F(TrashTest, ABatchSyncsOnceForManyAndPrunes) {
    std::vector<std::u16string> paths;
    for (int i = 0; i < 300; ++i) {
        const std::string name = "d/" + std::to_string(i % 3) + "/" + std::to_string(i);
        put(name, "1");
        paths.push_back(wide(name));
    }
    put("other", "1");
    static int syncs, single;
    syncs = single = 0;
    os::calls.syncfs = [](int) { return ++syncs, 0; };
    os::calls.fdatasync = [](int) { return ++single, 0; };
    {
        zev::TrashBatch batch(repository.get(), paths);
        for (size_t i = 0; i + 1 < paths.size(); ++i) ASSERT_OK(batch.drop(paths[i].c_str()));
        ASSERT_OK(batch.drop(u"other")); // not announced
    }
    EXPECT_EQ(std::pair(syncs, single), std::pair(2, 1));
    EXPECT_EQ(slots(), 300); // that of the path that was left out is gone
    EXPECT_TRUE(fs::exists(place / "d/2/299"));
    EXPECT_FALSE(fs::exists(place / "d/1"));
}

// ---- Entries and search

TEST_F(TrashTest, EntryPaths) {
    const std::string id = slot(7, info("plan.v2", "docs", 1234), "plan.v2/sub/a.DWX");
    const std::string hex2 = id.substr(0, 2), hex38 = id.substr(3), deep = "/plan.v2/sub/a.DWX";
    run("find '" + trash.string() + "' -exec touch -d @777 {} +");
    const auto told = [this](const TrashPtr &entry) -> std::string {
        const TrashEntry *e = entry.get();
        if (!e) return "";
        EXPECT_EQ(zTrashEntryOwner(e), repository.get());
        EXPECT_EQ(zTrashEntryDTime(e)->seconds, 1234);
        EXPECT_EQ(zTrashEntryMTime(e)->seconds, 777);
        EXPECT_NE(zTrashEntryIsDir(e), zTrashEntryIsFile(e));
        return narrow(zTrashEntryPath(e)) + "|" + orig_and_name(e) + "|" +
               narrow(zTrashEntryType(e)) +
               (zTrashEntryIsFile(e) ? std::to_string(zTrashEntrySize(e)) : "");
    };
    const std::string drawing = id + deep + "|docs/plan.v2/sub/a.DWX|DWX5";
    for (const auto &path : {id, "/" + id + "/", "\\" + hex2 + "\\" + hex38 + "\\plan.v2"})
        EXPECT_EQ(told(discover(path)), id + "/plan.v2|docs/plan.v2|") << path;
    EXPECT_EQ(told(discover(id + deep)), drawing);
    // The same from its directory.
    const TrashPtr parent = discover(id + "/plan.v2/sub");
    const auto listing =
        guard(zDirOpen((trash / id / "plan.v2.v2/sub").u16string().c_str()), zDirClose);
    while (const Dirent *item = zDirRead(listing.get()))
        EXPECT_EQ(told(TrashPtr(zTrashEntryParse(parent.get(), item))),
                  zDirentIsDotOrDotDot(item) ? "" : drawing);

    // Names on disk are exact; another or a longer one than the item's is none; nor are these.
    fs::create_directory_symlink(place, trash / id / "plan.v2/out");
    const std::pair<int, Names> kBad[] = {
        {3, {id + "/PLAN.v2", id + "/plan.v2/none"}},
        {10, {id + "/other", id + "/plan.v22", id + "/info.$$$"}},
        {2, {id + "/plan.v2/../../x", id + "/plan.v2//sub", id + "/plan.v2/out/.git"}},
        {2, {"0A" + id.substr(2), id.substr(0, 40), "//" + id, ""}}};
    for (const auto &[error_class, paths] : kBad)
        for (const std::string &path : paths) {
            EXPECT_FALSE(discover(path)) << path;
            EXPECT_EQ(zErrorClass(), error_class) << path;
        }
    // As items these would move or remove the whole trash, a slot, a description.
    TrashPtr wrong(zTrashEntryNew());
    for (const std::string &path : {std::string(), id, id + "/info.$$$"}) {
        wrong->path = wide(path);
        EXPECT_FALSE(zTrashRemove(repository.get(), wrong.get())) << path;
        EXPECT_FALSE(zTrashMoveTo(repository.get(), wrong.get(), u"", nullptr)) << path;
    }
    EXPECT_TRUE(fs::exists(trash / id / "info.$$$"));
}

TEST_F(TrashTest, DamagedSlotsAreLeftOut) {
    int number = 0;
    for (auto *text : {"", "[]", R"({"name":"x","orig":""})", R"({"orig":"","time":5})",
                       R"({"name":"x","orig":"","time":"5"})"})
        slot(number++, text);
    for (auto *name : {"..", "", "../../x", "info.$$$", "gone"}) slot(number++, info(name, "", 5));
    slot(number++, info("x", "", 0));
    slot(number++, info("x", "", 5) + std::string(20000, ' '));
    slot(number++, info("x", "here", 5));
    fs::create_directories(trash / "aa/bb");
    write(trash / "stray", "1");
    EXPECT_EQ(found(), Names{"here/x"});
    EXPECT_FALSE(discover("00/" + std::string(38, '0')));
    EXPECT_EQ(zErrorCode(), 104);
}

TEST_F(TrashTest, SearchesByTextAndPattern) {
    const std::string all = "Projekt/Grundriss", one = all + "/EG.dwx", two = all + "/sub/OG.dwx";
    put(one, "1");
    put(two, "1");
    take(all);
    take("notes.txt", "notes.txt");
    const TrashPtr below = entry("Grundriss"), file = entry("OG.dwx");
    const struct {
        const zwchar *pattern;
        bool recursive;
        Names found;
        const TrashEntry *below = nullptr;
    } kRows[] = {
        {nullptr, false, {"/notes.txt", all}},
        {u"", true, {"/notes.txt", all, one, all + "/sub", two}},
        {u"gRUND", false, {all}}, // anywhere in the path
        {u"*.dwx", true, {one, two}},
        {u"og", true, {two}},
        {u"OG.DW?", true, {}},
        {nullptr, false, {one, all + "/sub"}, below.get()},
        {nullptr, true, {}, file.get()},
    };
    for (const auto &row : kRows)
        EXPECT_EQ(found(row.pattern, row.recursive, row.below), row.found) << narrow(row.pattern);
}

TEST_F(TrashTest, ASearchStopsAtOnceAndStartsAnew) {
    FindPtr find(zTrashFindNew(repository.get(), nullptr, nullptr, false));
    EXPECT_FALSE(zTrashFindFirst(find.get())); // no trash yet
    EXPECT_TRUE(zTrashFindDone(find.get()));
    EXPECT_EQ(zTrashFindEntry(find.get()), nullptr);
    constexpr int kSlots = 150;
    for (int i = 0; i < kSlots; ++i) slot(i, info("x", std::to_string(i), 5));
    for (int stop_at : {70, kSlots}) { // and anew
        int count = 1;
        ASSERT_TRUE(zTrashFindFirst(find.get()));
        const TrashEntry *first = zTrashFindEntry(find.get());
        while (count < stop_at && zTrashFindNext(find.get())) ++count;
        EXPECT_EQ(count, stop_at);
        EXPECT_EQ(narrow(zTrashEntryName(first)), "x"); // results stay where they are
        EXPECT_FALSE(zTrashFindDone(find.get()));
    }
    EXPECT_FALSE(zTrashFindNext(find.get()));
    EXPECT_TRUE(zTrashFindDone(find.get()));
    // Amid a walk, which here waits for it.
    static TrashFind *walking;
    static int opened;
    walking = find.get(), opened = 0;
    os::calls.open = [](const char *path, int flags, mode_t mode) {
        for (++opened; opened == 3;) {
            const std::lock_guard guard(walking->mutex);
            if (walking->stop) break;
        }
        return ::open(path, flags, mode);
    };
    ASSERT_TRUE(zTrashFindFirst(walking));
    ASSERT_TRUE(zTrashFindStop(walking));
    EXPECT_LE(opened, 4);
    EXPECT_EQ(zTrashFindEntry(walking), nullptr);
    os::calls = kept;
    ASSERT_TRUE(zTrashFindFirst(find.get())); // freed while it runs
}

// ---- Out

TEST_F(TrashTest, GivesBackAndStages) {
    for (auto path : {"docs/sub/plan.dwx", "top.dwx"}) put(path, "drawing");
    commit_all();
    take("docs");
    take("top.dwx");
    Host host;
    ASSERT_OK(back(entry("top.dwx"), &host));
    EXPECT_EQ(host.lines, Names{text(u"action.sReverted") + " top.dwx"});
    EXPECT_EQ(git(place, "ls-files -d"), "docs/sub/plan.dwx");
    // One file out of a taken directory, elsewhere.
    put("new/mine", "1");
    ASSERT_OK(zTrashMoveTo(repository.get(), entry("plan.dwx").get(), u"new\\place/", &host));
    EXPECT_EQ(read(place / "new/place/plan.dwx"), "drawing");
    EXPECT_EQ(slots(), 0); // nothing was left in it
    EXPECT_EQ(git(place, "diff --cached --name-status --no-renames"),
              "A\tnew/.gitkeep\nA\tnew/place/.gitkeep\nA\tnew/place/plan.dwx");
    expect_sound();
    // A tree, with all that is in it and nothing beside it.
    take("new");
    put("new2", "beside");
    ASSERT_OK(back(entry("new"), &host));
    EXPECT_EQ(git(place, "ls-files new new2"),
              "new/.gitkeep\nnew/mine\nnew/place/.gitkeep\nnew/place/plan.dwx");
}

TEST_F(TrashTest, TheSlotGoesWithItsLastFile) {
    for (auto path : {"d/a", "d/sub/b", "d/info.$$$"}) put(path, path);
    fs::create_directories(place / "d/empty/deep");
    take("d");
    ASSERT_OK(back(entry("b")));
    EXPECT_EQ(found(), (Names{"/d", "d/a", "d/empty", "d/empty/deep", "d/info.$$$"}));
    ASSERT_OK(zTrashRemove(repository.get(), entry("a").get()));
    write(trash / narrow(entry("d")->path.substr(0, 41).c_str()) / "stray", "beside it");
    // A file of the user's that is called like a description.
    ASSERT_OK(back(entry("info.$$$")));
    EXPECT_EQ(read(place / "d/info.$$$"), "d/info.$$$");
    EXPECT_EQ(slots(), 1); // that of a file that nobody put there stays
    // For good goes what is named: what it leaves empty, not what was empty beside it.
    put("e/a", "1");
    fs::create_directories(place / "e/empty");
    take("e");
    ASSERT_OK(zTrashRemove(repository.get(), entry("a").get()));
    EXPECT_EQ(found(), (Names{"/e", "e/empty"}));
    ASSERT_OK(zTrashRemove(repository.get(), entry("empty").get()));
    EXPECT_EQ(slots(), 1);
}

TEST_F(TrashTest, ATakenPlaceIsAskedAbout) {
    setenv("XDG_DATA_HOME", (dir.path() / "home").c_str(), 1); // the desktop's trash
    take("docs/plan.dwx", "docs/plan.dwx");
    put("docs/plan.dwx", "new");
    add({u"docs"});
    const TrashPtr item = entry("plan.dwx");
    const std::string question = with(u"dialog.skipOrReplace.instruction_s", u"plan.dwx") +
                                 with(u"dialog.skipOrReplace.content_s", u"docs");
    for (int32_t answer : {-1, 0, 4, 2}) { // with 0 nobody is there
        Host host(answer);
        EXPECT_FALSE(back(item, answer ? &host : nullptr));
        EXPECT_EQ(zErrorClass(), 4);
        EXPECT_EQ(host.asked, answer ? question : "");
        const Names skipped{text(u"action.sSkipped") + " docs/plan.dwx"};
        EXPECT_EQ(host.lines, answer == 2 ? skipped : Names{});
        EXPECT_EQ(read(place / "docs/plan.dwx"), "new");
        EXPECT_EQ(found(), Names{"docs/plan.dwx"});
    }
    Host replace(1);
    ASSERT_OK(back(item, &replace));
    EXPECT_EQ(read(place / "docs/plan.dwx"), "drawing");
    EXPECT_EQ(git(place, "show :docs/plan.dwx"), "drawing");
    EXPECT_EQ(read(dir.path() / "home/Trash/files/plan.dwx"), "new");
}

TEST_F(TrashTest, NewNames) {
    const std::string longest(200, 'n');
    const auto give_back = [&](const std::string &name) {
        Host host(3);
        take("d/" + name, "d/" + name);
        put("d/" + name, "there");
        EXPECT_OK(back(entry(name), &host));
        EXPECT_EQ(read(place / "d" / name), "there");
        return host.lines.at(0).substr(text(u"action.sReverted").size() + 1);
    };
    const std::array<std::string, 3> kRows[] = {{"plan", ".dwx"}, // base, extension, new base
                                                {"plan", ""},
                                                {"report.tar", ".gz"},
                                                {"100%s%n", ".dwx"},
                                                {longest, ".dwx", longest.substr(0, 55)}};
    for (const auto &[base, extension, cut] : kRows)
        for (const char *number : {"1", "2"}) {
            const std::string path =
                "d/" + (cut.empty() ? base : cut) + " (" + number + ")" + extension;
            EXPECT_EQ(give_back(base + extension), path);
            EXPECT_EQ(read(place / path), "drawing");
        }
    // After 99 numbers comes chance.
    for (int i = 3; i <= 99; ++i) put("d/plan (" + std::to_string(i) + ").dwx", "x");
    EXPECT_EQ(give_back("plan.dwx").size(), strlen("d/plan (12345678).dwx"));
}

TEST_F(TrashTest, AFileInPlaceOfADirectory) {
    take("a/b/c/plan.dwx", "a/b/c/plan.dwx");
    fs::remove_all(place / "a");
    put("a", "a file now");
    add({u"a"});
    const TrashPtr item = entry("plan.dwx");
    Host no(2), yes(1);
    EXPECT_FALSE(back(item, &no));
    EXPECT_EQ(no.asked, with(u"dialog.skipOrDelete.instruction_s", u"a") +
                            with(u"dialog.skipOrDelete.content_s", u"a/b/c"));
    EXPECT_EQ(read(place / "a"), "a file now");
    EXPECT_EQ(tracked(), Names{"a"});
    ASSERT_OK(back(item, &yes));
    EXPECT_EQ(read(place / "a/b/c/plan.dwx"), "drawing");
    EXPECT_EQ(found(), Names{"/a"}); // the file is in the trash
    EXPECT_EQ(tracked(), (Names{"a/.gitkeep", "a/b/.gitkeep", "a/b/c/.gitkeep", "a/b/c/plan.dwx"}));

    // One that only the index knows; what is on disk is the user's and stays.
    put("e", "x");
    add({u"e"});
    fs::remove(place / "e");
    put("e/mine", "mine");
    take("e/other", "e/other");
    yes.asked.clear();
    ASSERT_OK(back(entry("other"), &yes));
    EXPECT_NE(yes.asked, "");
    EXPECT_EQ(read(place / "e/mine"), "mine");
    EXPECT_EQ(git(place, "ls-files e"), "e/.gitkeep\ne/other");
}

TEST_F(TrashTest, NeverOutOfTheWorkDirectory) {
    const fs::path outside = dir.path() / "outside";
    fs::create_directories(outside);
    fs::create_directory_symlink(outside, place / "out");
    take("plan.dwx", "plan.dwx");
    const TrashPtr item = entry("plan.dwx");
    for (const zwchar *to : {u"out", u"out/deep", u"../outside", u".git", u"a/../../x"}) {
        EXPECT_FALSE(zTrashMoveTo(repository.get(), item.get(), to, nullptr)) << narrow(to);
        EXPECT_EQ(zErrorClass(), 2) << narrow(to);
    }
    slot(7, info("x", "../outside", 5));
    EXPECT_FALSE(back(entry("x")));
    EXPECT_EQ(found(), (Names{"../outside/x", "/plan.dwx"}));
    EXPECT_TRUE(fs::is_empty(outside));
    take("out"); // the link alone
    EXPECT_TRUE(fs::exists(outside));
}

TEST_F(TrashTest, FailuresAreTold) {
    take("plan.dwx", "plan.dwx");
    const TrashPtr item = entry("plan.dwx");
    Host host;
    {
        IndexPtr held = lock();
        EXPECT_FALSE(back(item, &host));
        EXPECT_EQ(zErrorClass(), 7);
    }
    os::calls.rename = [](auto *from, auto *to, unsigned flags) {
        const bool item = std::string_view(to).ends_with("copy/plan.dwx");
        return item ? (errno = EIO, -1) : ::renameat2(AT_FDCWD, from, AT_FDCWD, to, flags);
    };
    EXPECT_FALSE(back(item, &host));
    os::calls = kept;
    os::calls.mkdir = [](auto *, mode_t) { return errno = EIO, -1; };
    EXPECT_FALSE(zTrashMoveTo(repository.get(), item.get(), u"new", &host));
    os::calls = kept;
    EXPECT_EQ(host.lines, (Names{"error " + text(u"odb.eUnableToLockWorkingCopy"),
                                 "error " + with(u"sys.eFailedToAccess_s", u"plan.dwx"),
                                 "error " + with(u"sys.eCannotCreateDir_s", u"new")}));
    static fs::path there, away;
    there = trash / narrow(zTrashEntryPath(item.get())), away = dir.path() / "away";
    os::calls.open = [](const char *path, int flags, mode_t mode) {
        if (fs::exists(there)) fs::rename(there, away); // by another one, before the lock is taken
        return ::open(path, flags, mode);
    };
    EXPECT_OK(back(item, &host));
    os::calls = kept;
    fs::rename(away, there);
    ASSERT_OK(back(item, &host));
    EXPECT_OK(back(item, &host)); // gone already
    EXPECT_OK(zTrashRemove(repository.get(), item.get()));
    EXPECT_EQ(read(place / "plan.dwx"), "drawing");
}

TEST_F(TrashTest, PurgesByAge) {
    static constexpr int64_t kNow = 2'000'000'000, kDay = 86400;
    os::calls.now = [] { return kNow * 1'000'000'000; };
    int number = 0;
    for (auto [name, time] : {std::pair{"new", kNow - 29 * kDay},
                              {"just", kNow - 30 * kDay},
                              {"young", kNow - 30 * kDay + 1},
                              {"ancient", int64_t{1}},
                              {"future", kNow + 5}})
        slot(number++, info("x", name, time));
    slot(number, "damaged");
    EXPECT_FALSE(zTrashPurge(repository.get(), -1));
    EXPECT_EQ(zErrorClass(), 2);
    ASSERT_OK(zTrashPurge(repository.get(), INT32_MAX));
    EXPECT_EQ(found().size(), 5u);
    ASSERT_OK(zTrashPurge(repository.get(), 30));
    EXPECT_EQ(found(), (Names{"future/x", "new/x", "young/x"}));
    ASSERT_OK(zTrashPurge(repository.get(), 0));
    EXPECT_EQ(found(), Names{"future/x"});
    ASSERT_OK(zTrashCleanup(repository.get()));
    EXPECT_OK(zTrashCleanup(repository.get()));
    EXPECT_FALSE(fs::exists(trash));
}
