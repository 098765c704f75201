#include "copy_fixture.hpp"

#include "objects/trash.hpp"
#include "system/os.hpp"
#include "zev/trash.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>

using namespace test;

namespace fs = std::filesystem;
namespace os = zev::os;

namespace {

using TrashPtr = Held<TrashEntry, zTrashEntryFree>;
using FindPtr = Held<TrashFind, zTrashFindFree>;

// A host that answers questions and keeps what it was told.
struct Host : Report {
    int32_t answer = -1;
    std::string asked;
    std::vector<std::string> errors;

    Host() {
        error = [](auto *n, auto *text) { of(n).errors.push_back(narrow(text)); };
        dialog = [](auto *n, auto *d) {
            std::string &asked = of(n).asked;
            asked = narrow(zTaskDialogId(d)) + " " + narrow(zTaskDialogInstruction(d)) + " " +
                    narrow(zTaskDialogContent(d));
            for (uint64_t i = 0; i < zTaskDialogButtonCount(d); ++i)
                asked += " | " + narrow(zTaskButtonText(zTaskDialogButtonAt(d, i)));
            return of(n).answer;
        };
    }
    explicit Host(int32_t button) : Host() { answer = button; }

  private:
    static Host &of(const Notify *n) { return const_cast<Host &>(*static_cast<const Host *>(n)); }
};

class TrashTest : public WorkingCopyTest {
  protected:
    const fs::path trash = place / ".git/trash";
    const os::Calls kept = os::calls;

    void TearDown() override {
        os::calls = kept;
        unsetenv("XDG_DATA_HOME");
    }

    using Names = std::vector<std::string>;
    using Results = std::multimap<std::string, TrashPtr>;

    // What a search finds, by "orig/name".
    Results search(const zwchar *pattern, bool recursive, const TrashEntry *below) {
        Results results;
        FindPtr find(zTrashFindNew(repository.get(), below, pattern, recursive));
        for (bool on = zTrashFindFirst(find.get()); on; on = zTrashFindNext(find.get())) {
            TrashPtr entry(zTrashEntryDup(zTrashFindEntry(find.get())));
            const std::string orig = narrow(zTrashEntryOrig(entry.get()));
            results.emplace(orig + "/" + narrow(zTrashEntryName(entry.get())), std::move(entry));
        }
        return results;
    }
    Names found(const zwchar *pattern = nullptr, bool recursive = true,
                const TrashEntry *below = nullptr) {
        Names names;
        for (auto &[name, entry] : search(pattern, recursive, below)) names.push_back(name);
        return names;
    }
    TrashPtr entry(const std::string &name) {
        for (auto &[path, entry] : search(nullptr, true, nullptr))
            if (path.ends_with("/" + name)) return std::move(entry);
        ADD_FAILURE() << name << " is not in the trash";
        return nullptr;
    }
    bool back(const TrashPtr &entry, const Notify *host = nullptr) {
        return zTrashMoveBack(repository.get(), entry.get(), host);
    }

    void take(const std::string &path) {
        ASSERT_OK(zTrashMoveInto(repository.get(), wide(path).c_str())) << path;
    }
    void take(const std::string &path, std::string_view bytes) {
        put(path, bytes);
        take(path);
    }

    int slots() {
        int count = 0;
        for (auto &at : fs::recursive_directory_iterator(place / ".git"))
            count += at.path().filename() == "info.$$$";
        return count;
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

std::string with(const zwchar *key, const zwchar *argument) {
    return narrow(zI18nTextFormat(zI18nCurrentLang(), key, argument));
}

std::string info(const std::string &name, const std::string &orig, int64_t time) {
    return R"({"name":")" + name + R"(","orig":")" + orig + R"(","time":)" + std::to_string(time) +
           "}";
}

// Lets the n-th call that changes something fail, after `look`: what another process would find
// there if this one were killed.
struct Nth {
    static inline int left;
    static inline std::function<void()> look;

    static bool hit() { return --left == 0 && (look(), errno = EIO, true); }
    static void arm(int n, std::function<void()> at) {
        static const os::Calls real = os::calls;
        left = n;
        look = std::move(at);
        os::calls.open = [](auto *path, int flags, mode_t mode) {
            return (flags & O_ACCMODE) != O_RDONLY && hit() ? -1 : real.open(path, flags, mode);
        };
        os::calls.write = [](int fd, auto *bytes, size_t size) {
            return hit() ? ssize_t{-1} : real.write(fd, bytes, size);
        };
        os::calls.rename = [](auto *from, auto *to, unsigned flags) {
            return hit() ? -1 : real.rename(from, to, flags);
        };
        os::calls.unlink = [](auto *path) { return hit() ? -1 : real.unlink(path); };
        os::calls.mkdir = [](auto *path, mode_t mode) {
            return hit() ? -1 : real.mkdir(path, mode);
        };
        os::calls.fdatasync = [](int fd) { return hit() ? -1 : real.fdatasync(fd); };
    }
    // Whether there was no n-th call.
    static bool disarm(const os::Calls &kept) { return os::calls = kept, left > 0; }
};

} // namespace

// ---- In

TEST_F(TrashTest, TakesWithNameAndOrigin) {
    const struct {
        std::string path, made, found;
    } kRows[] = {{"top.dwx", "top.dwx", "/top.dwx"},
                 {"a\\b/st*r [1].dwx", "a/b/st*r [1].dwx", "a/b/st*r [1].dwx"},
                 {"Größe/平面.dwx", "Größe/平面.dwx", "Größe/平面.dwx"},
                 {std::string(200, 'n'), std::string(200, 'n'), "/" + std::string(200, 'n')},
                 {"docs\\sub/", "docs/sub/a", "docs/sub"}}; // a tree, named after its last part
    const int64_t before = time(nullptr);
    for (const auto &row : kRows) {
        put(row.made, "bytes");
        take(row.path);
        EXPECT_FALSE(fs::exists(place / row.made));
        EXPECT_EQ(found(nullptr, false), Names{row.found});
        EXPECT_GE(zTrashEntryDTime(entry(fs::path(row.found).filename()).get())->seconds, before);
        ASSERT_OK(zTrashCleanup(repository.get()));
    }
    EXPECT_OK(zTrashMoveInto(repository.get(), u"not/there"));
    put("docs/info.$$$", "mine"); // the name of a description
    EXPECT_FALSE(zTrashMoveInto(repository.get(), u"docs/info.$$$"));
    EXPECT_EQ(zErrorClass(), 2);
    EXPECT_EQ(read(place / "docs/info.$$$"), "mine");
    // A bare repository has none.
    const RepositoryPtr bare(zRepositoryInit((dir / u"bare").c_str(), true));
    EXPECT_FALSE(zTrashMoveInto(bare.get(), u"a"));
    EXPECT_EQ(zErrorClass(), 2);
    EXPECT_FALSE(zTrashFindNew(bare.get(), nullptr, nullptr, true));
    EXPECT_EQ(zErrorClass(), 2);
}

// At each call that changes the disk the process may be killed, or the call fail: the file is in
// its place or in the trash, and only a whole description counts.
TEST_F(TrashTest, AFailingMoveLeavesTheFileInOnePlace) {
    int calls = 0;
    for (bool done = false; !done; ++calls) {
        SCOPED_TRACE(calls);
        put("docs/plan.dwx", "drawing");
        const auto look = [&] {
            const bool in_place = fs::exists(place / "docs/plan.dwx");
            EXPECT_EQ(found(), in_place ? Names{} : Names{"docs/plan.dwx"});
        };
        Nth::arm(calls + 1, look);
        const bool moved = zTrashMoveInto(repository.get(), u"docs/plan.dwx");
        done = Nth::disarm(kept);
        EXPECT_EQ(moved, done);
        EXPECT_EQ(fs::exists(place / "docs/plan.dwx"), !moved);
        look();
    }
    EXPECT_GE(calls, 6);
    EXPECT_EQ(slots(), 1); // what failed left nothing behind
}

// The copy is whole and has its name, but its source can't be removed: both stay.
TEST_F(TrashTest, AcrossDevicesTheCopyOutlivesAFailure) {
    put("docs/plan.dwx", "drawing");
    os::calls.rename = [](auto *from, auto *to, unsigned flags) {
        const bool across = std::string_view(from).find("trash") == std::string_view::npos;
        return across ? (errno = EXDEV, -1) : ::renameat2(AT_FDCWD, from, AT_FDCWD, to, flags);
    };
    os::calls.fsync = [](int) { return errno = EIO, -1; };
    EXPECT_FALSE(zTrashMoveInto(repository.get(), u"docs/plan.dwx"));
    EXPECT_EQ(zErrorClass(), 9);
    EXPECT_EQ(read(place / "docs/plan.dwx"), "drawing");
    EXPECT_EQ(found(), Names{"docs/plan.dwx"});

    os::calls.fsync = kept.fsync;
    ASSERT_OK(zTrashMoveInto(repository.get(), u"docs/plan.dwx"));
    EXPECT_FALSE(fs::exists(place / "docs/plan.dwx"));
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
    EXPECT_EQ(syncs, 2);
    EXPECT_EQ(single, 1);
    EXPECT_EQ(slots(), 300); // that of the path that was left out is gone
    EXPECT_TRUE(fs::exists(place / "d/2/299"));
    EXPECT_FALSE(fs::exists(place / "d/1"));
}

// ---- Entries and search

TEST_F(TrashTest, EntryPaths) {
    const std::string id = slot(7, info("plan", "docs", 1234), "plan/sub/a.DWX");
    const std::string hex2 = id.substr(0, 2), hex38 = id.substr(3), deep = "/plan/sub/a.DWX";
    const struct {
        std::string path, found;
    } kGood[] = {
        {id, id + "/plan|docs|"},
        {"/" + id + "/", id + "/plan|docs|"},
        {"\\" + hex2 + "\\" + hex38 + "\\plan", id + "/plan|docs|"},
        {id + deep, id + deep + "|docs/plan/sub|DWX"},
    };
    for (const auto &row : kGood) {
        TrashPtr found(zTrashEntryDiscover(repository.get(), wide(row.path).c_str()));
        ASSERT_OK(found) << row.path;
        EXPECT_EQ(narrow(zTrashEntryPath(found.get())) + "|" +
                      narrow(zTrashEntryOrig(found.get())) + "|" +
                      narrow(zTrashEntryType(found.get())),
                  row.found);
        EXPECT_EQ(zTrashEntryDTime(found.get())->seconds, 1234);
    }
    fs::create_directory_symlink(place, trash / id / "plan/out");
    const struct {
        std::string path;
        int error;              // class
    } kBad[] = {{"/PLAN", 3},   // names on disk are exact
                {"/other", 10}, // another name than the item's
                {"/plan2", 10}, // and so is a longer one
                {"/info.$$$", 10}, {"/plan/none", 3},    {"/plan/../../x", 2},
                {"/plan//sub", 2}, {"/plan/out/.git", 2}};
    for (const auto &row : kBad) {
        EXPECT_FALSE(zTrashEntryDiscover(repository.get(), wide(id + row.path).c_str()));
        EXPECT_EQ(zErrorClass(), row.error) << row.path;
    }
    for (const std::string &path :
         {"0A" + id.substr(2), id.substr(0, 40), "//" + id, std::string()}) {
        EXPECT_FALSE(zTrashEntryDiscover(repository.get(), wide(path).c_str())) << path;
        EXPECT_EQ(zErrorClass(), 2) << path;
    }
    // The root as an item would move or remove the whole trash.
    TrashPtr empty(zTrashEntryNew());
    EXPECT_FALSE(zTrashRemove(repository.get(), empty.get()));
    EXPECT_FALSE(zTrashMoveTo(repository.get(), empty.get(), u"", nullptr));
    EXPECT_TRUE(fs::exists(trash / id));
}

TEST_F(TrashTest, DamagedSlotsAreLeftOut) {
    const std::string kBad[] = {"",
                                "[]",
                                R"({"name":"x","orig":""})",
                                R"({"orig":"","time":5})",
                                R"({"name":"x","orig":"","time":"5"})",
                                info("x", "", 0),
                                info("..", "", 5),
                                info("", "", 5),
                                info("../../x", "", 5),
                                info("info.$$$", "", 5),
                                info("gone", "", 5),
                                info("x", "", 5) + std::string(20000, ' ')};
    int number = 0;
    for (const auto &text : kBad) slot(number++, text);
    slot(number++, info("x", "here", 5));
    fs::create_directories(trash / "aa/bb");
    write(trash / "stray", "1");
    EXPECT_EQ(found(), Names{"here/x"});
    EXPECT_FALSE(zTrashEntryDiscover(repository.get(), wide("00/" + std::string(38, '0')).c_str()));
    EXPECT_EQ(zErrorCode(), 104);
}

TEST_F(TrashTest, SearchesByTextAndPattern) {
    const std::string all = "Projekt/Grundriss", one = all + "/EG.dwx", two = all + "/sub/OG.dwx";
    put(one, "1");
    put(two, "1");
    take(all);
    take("notes.txt", "1");
    const struct {
        const zwchar *pattern;
        bool recursive;
        Names found;
    } kRows[] = {
        {nullptr, false, {"/notes.txt", all}},
        {u"", true, {"/notes.txt", all, one, all + "/sub", two}},
        {u"gRUND", false, {all}}, // anywhere in the path
        {u"*.dwx", true, {one, two}},
        {u"og", true, {two}},
        {u"OG.DW?", true, {}},
    };
    for (const auto &row : kRows)
        EXPECT_EQ(found(row.pattern, row.recursive), row.found) << narrow(row.pattern);

    const TrashPtr below = entry("Grundriss"), file = entry("OG.dwx");
    EXPECT_EQ(found(nullptr, false, below.get()), (Names{one, all + "/sub"}));
    EXPECT_EQ(found(nullptr, true, file.get()), Names{});
    const TrashPtr again(zTrashEntryDiscover(repository.get(), zTrashEntryPath(file.get())));
    ASSERT_OK(again);
    EXPECT_EQ(narrow(zTrashEntryOrig(again.get())), all + "/sub");
}

TEST_F(TrashTest, ASearchStopsAtOnceAndStartsAnew) {
    FindPtr find(zTrashFindNew(repository.get(), nullptr, nullptr, false));
    EXPECT_FALSE(zTrashFindFirst(find.get())); // no trash yet
    EXPECT_TRUE(zTrashFindDone(find.get()));
    EXPECT_EQ(zTrashFindEntry(find.get()), nullptr);
    constexpr int kSlots = 150;
    for (int i = 0; i < kSlots; ++i) slot(i, info("x", std::to_string(i), 5));
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(zTrashFindFirst(find.get()));
        const TrashEntry *first = zTrashFindEntry(find.get());
        for (int i = 0; i < round; ++i) ASSERT_TRUE(zTrashFindNext(find.get()));
        EXPECT_EQ(narrow(zTrashEntryName(first)), "x"); // results stay where they are
        if (round % 2) zTrashFindStop(find.get());
        EXPECT_EQ(zTrashFindDone(find.get()), round % 2 == 1);
    }
    int count = 0;
    for (bool on = zTrashFindFirst(find.get()); on; on = zTrashFindNext(find.get())) ++count;
    EXPECT_EQ(count, kSlots);
    ASSERT_TRUE(zTrashFindFirst(find.get())); // freed while it runs
}

// ---- Out

TEST_F(TrashTest, GivesBackAndStages) {
    put("docs/sub/plan.dwx", "drawing");
    put("top.dwx", "top");
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
    // A file of the user's that is called like a description.
    ASSERT_OK(back(entry("info.$$$")));
    EXPECT_EQ(read(place / "d/info.$$$"), "d/info.$$$");
    EXPECT_TRUE(fs::is_empty(trash));
}

TEST_F(TrashTest, ATakenPlaceIsAskedAbout) {
    setenv("XDG_DATA_HOME", (dir.path() / "home").c_str(), 1); // the desktop's trash
    take("docs/plan.dwx", "old");
    put("docs/plan.dwx", "new");
    const TrashPtr item = entry("plan.dwx");
    // Without anybody to ask nothing changes.
    for (int32_t answer : {-1, 0, 4}) {
        Host host(answer);
        EXPECT_FALSE(back(item, answer ? &host : nullptr));
        EXPECT_EQ(zErrorClass(), 4);
        EXPECT_EQ(host.lines.size() + host.errors.size(), 0u);
        EXPECT_EQ(read(place / "docs/plan.dwx"), "new");
        EXPECT_EQ(found(), Names{"docs/plan.dwx"});
    }
    Host skip(2);
    EXPECT_FALSE(back(item, &skip));
    EXPECT_EQ(skip.lines, Names{text(u"action.sSkipped") + " docs/plan.dwx"});
    EXPECT_EQ(skip.asked, "{01287D15-2846-4174-9674-5C18F6C9A029} " +
                              with(u"dialog.skipOrReplace.instruction_s", u"plan.dwx") + " " +
                              with(u"dialog.skipOrReplace.content_s", u"docs") + " | " +
                              text(u"buttons.replace") + " | " + text(u"buttons.skip") + " | " +
                              text(u"dialog.skipOrReplace.buttons.rename"));

    add({u"docs"});
    Host replace(1);
    ASSERT_OK(back(item, &replace));
    EXPECT_EQ(read(place / "docs/plan.dwx"), "old");
    EXPECT_EQ(git(place, "show :docs/plan.dwx"), "old");
    EXPECT_EQ(read(dir.path() / "home/Trash/files/plan.dwx"), "new");
}

TEST_F(TrashTest, NewNames) {
    const std::string longest(200, 'n');
    const std::pair<std::string, std::string> kRows[] = {
        {"plan.dwx", "plan (%).dwx"},
        {"plan", "plan (%)"},
        {"report.tar.gz", "report.tar (%).gz"},
        {"100%s%n.dwx", "100%s%n (%).dwx"},
        {longest + ".dwx", longest.substr(0, 55) + " (%).dwx"},
    };
    const auto give_back = [&](const std::string &name) {
        Host host(3);
        take("d/" + name, "old");
        put("d/" + name, "there");
        EXPECT_OK(back(entry(name), &host));
        EXPECT_EQ(read(place / "d" / name), "there");
        return host.lines.at(0).substr(text(u"action.sReverted").size() + 1);
    };
    for (auto [name, made] : kRows) {
        for (const char *number : {"1", "2"}) {
            std::string path = "d/" + made;
            path.replace(path.rfind('%'), 1, number);
            put("d/" + name, "there");
            EXPECT_EQ(give_back(name), path);
            EXPECT_EQ(read(place / path), "old");
        }
    }
    // After 99 numbers comes chance.
    for (int i = 3; i <= 99; ++i) put("d/plan (" + std::to_string(i) + ").dwx", "x");
    EXPECT_EQ(give_back("plan.dwx").size(), strlen("d/plan (12345678).dwx"));
}

TEST_F(TrashTest, AFileInPlaceOfADirectory) {
    take("a/b/c/plan.dwx", "drawing");
    fs::remove_all(place / "a");
    put("a", "a file now");
    add({u"a"});
    const TrashPtr item = entry("plan.dwx");
    Host no(2), yes(1);
    EXPECT_FALSE(back(item, &no));
    EXPECT_EQ(no.asked, "{9DA7439E-FCC6-47B7-BB2C-0B2B8CCC68DD} " +
                            with(u"dialog.skipOrDelete.instruction_s", u"a") + " " +
                            with(u"dialog.skipOrDelete.content_s", u"a/b/c") + " | " +
                            text(u"dialog.skipOrDelete.buttons.delete") + " | " +
                            text(u"buttons.skip"));
    EXPECT_EQ(read(place / "a"), "a file now");
    EXPECT_EQ(tracked(), Names{"a"});
    ASSERT_OK(back(item, &yes));
    EXPECT_EQ(read(place / "a/b/c/plan.dwx"), "drawing");
    EXPECT_EQ(found(), Names{"/a"}); // the file is in the trash
    EXPECT_EQ(tracked(), (Names{"a/.gitkeep", "a/b/.gitkeep", "a/b/c/.gitkeep", "a/b/c/plan.dwx"}));

    // One that only the index knows; what is on disk is the user's and stays.
    fs::remove_all(place / "a");
    git(place, "rm -qr --cached .");
    put("a", "x");
    add({u"a"});
    fs::remove(place / "a");
    put("a/mine", "mine");
    take("a/other", "1");
    ASSERT_OK(back(entry("other"), &yes));
    EXPECT_EQ(read(place / "a/mine"), "mine");
    EXPECT_EQ(tracked(), (Names{"a/.gitkeep", "a/other"}));
}

TEST_F(TrashTest, NeverOutOfTheWorkDirectory) {
    const fs::path outside = dir.path() / "outside";
    fs::create_directories(outside);
    fs::create_directory_symlink(outside, place / "out");
    take("plan.dwx", "drawing");
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

// Whatever call fails, the item is in the trash or in the work directory, and trying again helps.
TEST_F(TrashTest, AFailingRestoreLosesNothing) {
    bool done = false;
    for (int n = 1; !done; ++n) {
        SCOPED_TRACE(n);
        take("a/b/plan.dwx", "drawing");
        const TrashPtr item = entry("plan.dwx");
        Nth::arm(n, [] {});
        back(item);
        done = Nth::disarm(kept);
        if (!fs::exists(place / "a/b/plan.dwx")) {
            EXPECT_EQ(found(), Names{"a/b/plan.dwx"});
            ASSERT_OK(back(item));
        }
        EXPECT_EQ(read(place / "a/b/plan.dwx"), "drawing");
        git(place, "rm -qr --cached --ignore-unmatch .");
        zTrashCleanup(repository.get());
        fs::remove_all(place / "a");
    }
}

TEST_F(TrashTest, FailuresAreTold) {
    take("plan.dwx", "drawing");
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
    EXPECT_EQ(host.errors, (Names{text(u"odb.eUnableToLockWorkingCopy"),
                                  with(u"sys.eFailedToAccess_s", u"plan.dwx"),
                                  with(u"sys.eCannotCreateDir_s", u"new")}));
    ASSERT_OK(back(item, &host));
    EXPECT_OK(back(item, &host)); // gone already
    EXPECT_OK(zTrashRemove(repository.get(), item.get()));
    EXPECT_EQ(read(place / "plan.dwx"), "drawing");
}

TEST_F(TrashTest, PurgesByAge) {
    static constexpr int64_t kNow = 2'000'000'000, kDay = 86400;
    const auto fill = [&] {
        zTrashCleanup(repository.get());
        slot(1, info("x", "new", kNow - 29 * kDay));
        slot(2, info("x", "just", kNow - 30 * kDay));
        slot(3, info("x", "young", kNow - 30 * kDay + 1));
        slot(4, info("x", "ancient", 1));
        slot(5, info("x", "future", kNow + 5));
        slot(6, "damaged");
    };
    os::calls.now = [] { return kNow * 1'000'000'000; };
    fill();
    ASSERT_OK(zTrashPurge(repository.get(), 30));
    EXPECT_EQ(found(), (Names{"future/x", "new/x", "young/x"}));
    ASSERT_OK(zTrashPurge(repository.get(), 0));
    EXPECT_EQ(found(), Names{"future/x"});
    fill();
    ASSERT_OK(zTrashPurge(repository.get(), INT32_MAX));
    EXPECT_EQ(found().size(), 5u);
    EXPECT_FALSE(zTrashPurge(repository.get(), -1));
    EXPECT_EQ(zErrorClass(), 2);
    ASSERT_OK(zTrashCleanup(repository.get()));
    EXPECT_OK(zTrashCleanup(repository.get()));
    EXPECT_FALSE(fs::exists(trash));
}
