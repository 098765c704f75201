#include "copy_fixture.hpp"

#include "objects/trash/trash.hpp"
#include "system/os.hpp"

#include <algorithm>
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

    // Into the trash, after a file was put there.
    void drop(const std::string &path, const std::string &file = {}) {
        if (!file.empty()) put(file, "drawing");
        ASSERT_OK(zTrashMoveInto(repository.get(), wide(path).c_str())) << path;
    }

    int slots() {
        return stoi(run("find '" + trash.string() + "' -name 'info.$$$' 2>/dev/null | wc -l"));
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

TEST_F(TrashTest, TakesNothingThatWouldPassForItsOwn) {
    EXPECT_OK(zTrashMoveInto(repository.get(), u"not/there"));
    put("docs/info.$$$", "mine"); // the name of a description
    for (auto path : {u"docs/info.$$$", u"/"}) EXPECT_FALSE(zTrashMoveInto(repository.get(), path));
    EXPECT_EQ(read(place / "docs/info.$$$"), "mine");
}

TEST_F(TrashTest, AFailingMoveLeavesTheFileWhereItWas) {
    put("plan", "drawing");
    // Across devices the copy is whole and has its name, but its source can't be removed.
    os::calls.rename = [](auto *from, auto *to, unsigned flags) {
        const bool across = std::string_view(from).find("trash") == std::string_view::npos;
        return across ? (errno = EXDEV, -1) : ::renameat2(AT_FDCWD, from, AT_FDCWD, to, flags);
    };
    os::calls.fsync = [](int) { return errno = EIO, -1; };
    EXPECT_FALSE(zTrashMoveInto(repository.get(), u"plan"));
    EXPECT_EQ(read(place / "plan") + trashed(), "drawingplan=drawing;");
    os::calls.fsync = kept.fsync;
    drop("plan");
    EXPECT_FALSE(exists("plan"));
    EXPECT_EQ(found().size(), 2u);
}

// At its place and in the trash, until somebody replaces it; in copy where no file has two names.
TEST_F(TrashTest, KeepsWhatIsAboutToBeReplaced) {
    put("d/plan.dwx", "old");
    ASSERT_OK(zTrashKeep(repository.get(), u"d/plan.dwx"));
    os::calls.link = [](const char *, const char *) { return errno = EPERM, -1; };
    ASSERT_OK(zTrashKeep(repository.get(), u"d/plan.dwx"));
    put("new", "new");
    fs::rename(place / "new", place / "d/plan.dwx");
    EXPECT_EQ(trashed(), "plan.dwx=old;plan.dwx=old;");
    EXPECT_EQ(found(), (Names{"d/plan.dwx", "d/plan.dwx"}));
    EXPECT_EQ(read(place / "d/plan.dwx"), "new");
    os::calls.syncfs = [](int) { return errno = EIO, -1; };
    EXPECT_FALSE(zTrashKeep(repository.get(), u"d/plan.dwx"));
    EXPECT_EQ(slots(), 2);
    EXPECT_REFUSED(zTrashKeep(repository.get(), u"d"), 2);
    EXPECT_OK(zTrashKeep(repository.get(), u"nothing"));
}

// ---- Entries and search

TEST_F(TrashTest, EntryPaths) {
    const std::string id = slot(7, info("plan.v2", "docs", 1234), "plan.v2/sub/a.DWX");
    const auto told = [this](const std::string &path) -> std::string {
        const TrashPtr entry = discover(path);
        return entry ? orig_and_name(entry.get()) : "";
    };
    EXPECT_EQ(told("\\" + id.substr(0, 2) + "\\" + id.substr(3) + "\\plan.v2"), "docs/plan.v2");
    EXPECT_EQ(told(id + "/plan.v2/sub/a.DWX"), "docs/plan.v2/sub/a.DWX");

    // Names on disk are exact; another or a longer one than the item's is none; nor are these.
    fs::create_directory_symlink(place, trash / id / "plan.v2/out");
    for (const std::string &path :
         {id + "/PLAN.v2", id + "/plan.v22", id + "/info.$$$", id + "/plan.v2/../../x",
          id + "/plan.v2//sub", id + "/plan.v2/out/.git", "0A" + id.substr(2), id.substr(0, 40)})
        EXPECT_EQ(told(path), "") << path;
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
    EXPECT_FAILS_WITH(discover("00/" + std::string(38, '0')), 104);
}

TEST_F(TrashTest, ASearchStopsAtOnceAndStartsAnew) {
    FindPtr find(zTrashFindNew(repository.get(), nullptr, nullptr, false));
    EXPECT_FALSE(zTrashFindFirst(find.get())); // no trash yet
    constexpr int kSlots = 150;
    for (int i = 0; i < kSlots; ++i) slot(i, info("x", std::to_string(i), 5));
    int count = 1;
    ASSERT_TRUE(zTrashFindFirst(find.get()));
    while (zTrashFindNext(find.get())) ++count;
    EXPECT_EQ(count, kSlots);
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
    os::calls = kept;
    ASSERT_TRUE(zTrashFindFirst(find.get())); // freed while it runs
}

// ---- Out

// Wherever a file comes to lie, its write bits say what its user may do there.
TEST_F(TrashTest, ModesAreThoseOfThePlace) {
    put_all({"read/a", "read/b", "own/c"}, "drawing");
    commit_all();
    put(".git/AUTHZ", R"({"settings":{"default":112,"entries":[
        {"setting":{"path":"read","privilege":16}}]}})");
    drop("read/a");
    ASSERT_OK(back(entry("a")));
    EXPECT_TRUE(is_readonly("read/a") && !is_readonly("read/b"));
    const auto move = [&](const zwchar *from, const zwchar *to) {
        const IndexPtr index = lock();
        EXPECT_OK(zIndexRename(index.get(), from, to));
        EXPECT_OK(zIndexWrite(index.get()));
    };
    move(u"read/a", u"own/a"), move(u"own/c", u"read/c");
    EXPECT_TRUE(is_readonly("read/c") && !is_readonly("own/a"));
    move(u"own", u"read/own");
    EXPECT_TRUE(is_readonly("read/own/a"));
    EXPECT_EQ(git(place, "diff-files --name-only"), ""); // the entries know their files
}

TEST_F(TrashTest, TheSlotGoesWithItsLastFile) {
    for (auto path : {"d/a", "d/sub/b", "d/info.$$$"}) put(path, path);
    fs::create_directories(place / "d/empty/deep");
    drop("d");
    ASSERT_OK(back(entry("b")));
    EXPECT_EQ(found(), (Names{"/d", "d/a", "d/empty", "d/empty/deep", "d/info.$$$"}));
    ASSERT_OK(zTrashRemove(repository.get(), entry("a").get()));
    write(trash / narrow(entry("d")->path.substr(0, 41).c_str()) / "stray", "beside it");
    // A file of the user's that is called like a description.
    ASSERT_OK(back(entry("info.$$$")));
    EXPECT_EQ(read(place / "d/info.$$$"), "d/info.$$$");
    EXPECT_EQ(slots(), 1); // that of a file that nobody put there stays
}

TEST_F(TrashTest, NewNames) {
    const std::string longest(200, 'n');
    const auto give_back = [&](const std::string &name) {
        Host host(3);
        drop(name, name);
        put(name, "there");
        EXPECT_OK(back(entry(name), &host));
        EXPECT_EQ(read(place / name), "there");
        return host.lines.at(0).substr(text(u"action.sReverted").size() + 1);
    };
    for (const auto &[name, made] : {std::pair<std::string, std::string>{"plan", "plan (1)"},
                                     {"plan", "plan (2)"},
                                     {"100%s%n.dwx", "100%s%n (1).dwx"},
                                     {longest + ".dwx", longest.substr(0, 55) + " (1).dwx"}}) {
        EXPECT_EQ(give_back(name), made);
        EXPECT_EQ(read(place / made), "drawing");
    }
    // After 99 numbers comes chance.
    for (int i = 3; i <= 99; ++i) put("plan (" + std::to_string(i) + ")", "x");
    EXPECT_EQ(give_back("plan").size(), strlen("plan (12345678)"));
}

TEST_F(TrashTest, AFileInPlaceOfADirectory) {
    drop("a/b/plan.dwx", "a/b/plan.dwx");
    take("a");
    put("a", "a file now");
    add({u"a"});
    const TrashPtr item = entry("plan.dwx");
    Host no(2), yes(1);
    EXPECT_FALSE(back(item, &no));
    EXPECT_EQ(no.asked, with(u"dialog.skipOrDelete.instruction_s", u"a") +
                            with(u"dialog.skipOrDelete.content_s", u"a/b"));
    EXPECT_EQ(tracked(), Names{"a"});
    ASSERT_OK(back(item, &yes));
    EXPECT_EQ(trashed(), "a=a file now;");
    EXPECT_EQ(tracked(), (Names{"a/.gitkeep", "a/b/.gitkeep", "a/b/plan.dwx"}));

    // One that only the index knows; what is on disk is the user's and stays.
    put("e", "x");
    add({u"e"});
    take("e");
    put("e/mine", "mine");
    drop("e/other", "e/other");
    ASSERT_OK(back(entry("other"), &yes));
    EXPECT_EQ(read(place / "e/mine"), "mine");
    EXPECT_EQ(git(place, "ls-files e"), "e/.gitkeep\ne/other");
}

TEST_F(TrashTest, NeverOutOfTheWorkDirectory) {
    const fs::path outside = dir.path() / "outside";
    fs::create_directories(outside);
    fs::create_directory_symlink(outside, place / "out");
    drop("plan.dwx", "plan.dwx");
    const TrashPtr item = entry("plan.dwx");
    for (const zwchar *to : {u"out/deep", u"../outside", u".git", u"a/../../x"}) {
        EXPECT_REFUSED(zTrashMoveTo(repository.get(), item.get(), to, nullptr), 2) << narrow(to);
    }
    slot(7, info("x", "../outside", 5));
    EXPECT_FALSE(back(entry("x")));
    EXPECT_EQ(found(), (Names{"../outside/x", "/plan.dwx"}));
    EXPECT_TRUE(fs::is_empty(outside));
    drop("out"); // the link alone
    EXPECT_TRUE(fs::exists(outside));
}

TEST_F(TrashTest, FailuresAreTold) {
    drop("plan.dwx", "plan.dwx");
    const TrashPtr item = entry("plan.dwx");
    Host host;
    {
        IndexPtr held = lock();
        EXPECT_REFUSED(back(item, &host), 7);
    }
    os::calls.rename = [](auto *, auto *, unsigned) { return errno = EIO, -1; };
    EXPECT_FALSE(back(item, &host));
    os::calls = kept;
    EXPECT_EQ(host.lines, (Names{"error " + text(u"odb.eUnableToLockWorkingCopy"),
                                 "error " + with(u"sys.eFailedToAccess_s", u"plan.dwx")}));
    static fs::path there, away;
    there = trash / narrow(zTrashEntryPath(item.get())), away = dir.path() / "away";
    os::calls.open = [](const char *path, int flags, mode_t mode) {
        if (fs::exists(there)) fs::rename(there, away); // by another one, before the lock is taken
        return ::open(path, flags, mode);
    };
    EXPECT_OK(back(item, &host));
    os::calls = kept;
    fs::rename(away, there);
    for (int times = 0; times < 2; ++times) EXPECT_OK(back(item, &host)); // then gone already
    EXPECT_EQ(read(place / "plan.dwx"), "drawing");
}
