#include "command_fixture.hpp"

#include "commands/connection.hpp"

#include <atomic>
#include <thread>

using namespace test;
namespace fs = std::filesystem;

namespace {

struct CommandTest : Connected<WorkingCopyTest> {
    bool commit(std::vector<const zwchar *> paths) {
        return zCommandCommit(copy.c_str(), u"Ada", u"words", paths.size(), paths.data(), nullptr);
    }
};

TEST_F(CommandTest, WithoutAConnectionNothingIsRaised) {
    const zwchar *where = copy.c_str(), *path = u"a.dwx";
    const CommandLog log{[](auto...) { return true; }, [](auto *) { return false; }};
    Listed told;
    zRaiseOutOfRange(nullptr);
    EXPECT_FALSE(zCommandList(where, u"", Listed::take, &told) || zCommandLog(where, path, &log));
    zCommandLogDiff(where, zOidIdentity(), Listed::take, &told);
    EXPECT_FALSE(zCommandMkdir(where, u"d") || zCommandAdd(where, path));
    EXPECT_FALSE(zCommandMove(where, path, u"b.dwx") || zCommandRm(where, 1, &path, nullptr));
    EXPECT_FALSE(zCommandChangelist(where, 1, &path, Listed::take, &told));
    EXPECT_FALSE(zCommandRevert(where, 1, &path, nullptr));
    EXPECT_FALSE(zCommandCommit(where, u"Ada", u"words", 1, &path, nullptr));
    zCommandRefresh(where, 1, &path, nullptr, Listed::take, &told);
    EXPECT_EQ(zCommandCheckout(where, nullptr, path, u"b.dwx", nullptr), 1);
    EXPECT_EQ(zCommandReset(where, nullptr, nullptr, nullptr), 1);
    EXPECT_FALSE(zCommandFetch(where, nullptr, nullptr) ||
                 zCommandList(nullptr, u"", Listed::take, &told));
    EXPECT_FALSE(zCommandConflictAnalyze(where, path) || zCommandConflictResolve(where, nullptr));
    EXPECT_EQ(zErrorClass(), 5);
    EXPECT_EQ(told.lines, Lines{});
}

// ---- Looking

// Takes so many entries; asks for a stop once it has `stop_after`.
struct Logged : CommandLog {
    size_t most, stop_after;
    Lines lines{};
    Oid last{};

    Logged(size_t entries, size_t stops)
        : CommandLog{take, stops_now}, most(entries), stop_after(stops) {}
    static bool take(const CommandLog *log, const Oid *id, const zwchar *author, const Time *time,
                     const zwchar *message) {
        auto *self = const_cast<Logged *>(static_cast<const Logged *>(log));
        EXPECT_GT(time->seconds, 1'000'000'000);
        self->lines.push_back(narrow(author) + ": " + narrow(message));
        self->last = *id;
        return self->lines.size() < self->most;
    }
    static bool stops_now(const CommandLog *log) {
        auto *self = static_cast<const Logged *>(log);
        return self->lines.size() >= self->stop_after;
    }
};

TEST_F(CommandTest, LogIsOfTheBranchOrOfExactlyOneFile) {
    for (const char *path : {"st*r.dwx", "star.dwx", "d/gone.dwx"}) put(path, path);
    commit_all(u"base");
    put("st*r.dwx", "edited");
    commit_all(u"st*r");
    git(place, "mv star.dwx moved.dwx");
    git(place, "rm -q d/gone.dwx");
    put("e/.gitkeep", "");
    commit_all(u"star");
    connect();
    const struct {
        const zwchar *file;
        size_t most, stop_after;
        Lines lines;
    } kLogs[] = {{nullptr, 9, 9, {"Ada: star", "Ada: st*r", "Ada: base"}},
                 {u"", 9, 0, {}},
                 {u"moved.dwx", 9, 9, {"Ada: star"}}, // not what it was before
                 {u"st*r.dwx", 9, 9, {"Ada: st*r", "Ada: base"}},
                 {u"", 1, 9, {"Ada: star"}}};
    Oid newest{};
    for (const auto &[file, most, stop_after, lines] : kLogs) {
        Logged logged(most, stop_after);
        EXPECT_OK(zCommandLog(copy.c_str(), file, &logged));
        EXPECT_EQ(logged.lines, lines);
        newest = logged.last;
    }
    // The changes come from the record, or from the commit where that was taken away.
    const Lines changes{"2 d/gone.dwx>d/gone.dwx", "1 e/>e/", "4 star.dwx>moved.dwx"};
    for (size_t most : {3, 1}) {
        Listed told{.most = most};
        zCommandLogDiff(copy.c_str(), &newest, Listed::take, &told);
        EXPECT_EQ(told.lines, Lines(changes.begin(), changes.begin() + int(most)));
        ASSERT_OK(zRevdbDestroy(repository.get()));
    }
}

// ---- Changing

TEST_F(CommandTest, MkdirMakesATrackedDirectory) {
    for (const char *path : {"there/old.dwx", "file", "linked/.gitkeep"}) put(path, path);
    commit_all();
    const fs::path outside = dir.path() / "outside";
    write(outside / "precious", "precious");
    fs::create_directory_symlink(outside, place / "link");
    fs::remove(place / "linked/.gitkeep");
    fs::create_symlink(outside / "precious", place / "linked/.gitkeep");
    put("there/untracked", "1"), put("there/below/untracked", "1"), put("there/x.bak", "1");
    put(".gitignore", "*.bak\n");
    connect();
    for (const zwchar *good : {u"new", u"new/below/", u"there", u"#1"}) {
        EXPECT_OK(zCommandMkdir(copy.c_str(), good)) << narrow(good);
        EXPECT_EQ(read(place / good / ".gitkeep"),
                  "# Ignore everything in this directory\n*\n# Except this file !.gitkeep");
    }
    // Nothing else below it comes in, ignored or not.
    const Lines made{"#1/.gitkeep", "new/.gitkeep", "new/below/.gitkeep", "there/.gitkeep"};
    EXPECT_EQ(staged(), made);
    const std::u16string long_one(490, u'x');
    const std::pair<const zwchar *, int> kBad[] = {{u"no/parent", 3}, {u"file", 10},
                                                   {u"linked", 10},   {long_one.c_str(), 10},
                                                   {u"link", 2},      {u"", 2}};
    for (const auto &[directory, failure] : kBad) {
        EXPECT_FALSE(zCommandMkdir(copy.c_str(), directory)) << narrow(directory);
        EXPECT_EQ(zErrorClass(), failure) << narrow(zErrorDetail());
    }
    EXPECT_EQ(staged(), made);
    EXPECT_EQ(read(outside / "precious"), "precious");
    EXPECT_FALSE(fs::exists(outside / ".gitkeep"));
}

TEST_F(CommandTest, AddAndRmTakeExactlyWhatIsNamed) {
    for (const char *path : {"base", "b.dwx", "d/.gitkeep"}) put(path, path);
    commit_all();
    for (const char *path : {"#1.dwx", "st*r.dwx", "star.dwx", "!x.dwx", "a[1]/x.dwx", "a1/x.dwx"})
        put(path, path);
    connect();
    for (const zwchar *path : {u"#1.dwx", u"st*r.dwx", u"!x.dwx", u"a[1]"})
        EXPECT_OK(zCommandAdd(copy.c_str(), path)) << narrow(path);
    EXPECT_EQ(staged(), (Lines{"!x.dwx", "#1.dwx", "a[1]/x.dwx", "st*r.dwx"}));
    EXPECT_FALSE(zCommandAdd(copy.c_str(), u"../x"));
    EXPECT_EQ(zErrorClass(), 2);
    EXPECT_EQ(list().size(), 3u); // of the last reload
    reload();
    EXPECT_EQ(list().size(), 7u);

    ASSERT_OK(zCommandMove(copy.c_str(), u"base", u"moved"));
    Report host;
    const zwchar *paths[] = {u"", nullptr, u"moved", u"d/", u"st*r.dwx"};
    ASSERT_OK(zCommandRm(copy.c_str(), 5, paths, &host));
    EXPECT_EQ(tracked(), (Lines{"!x.dwx", "#1.dwx", "a[1]/x.dwx", "b.dwx"}));
    EXPECT_TRUE(fs::exists(place / "star.dwx"));
    EXPECT_TRUE(host.told(text(u"action.sDeleted") + " moved"));
}

TEST_F(CommandTest, RevertAndCommitTakeADirectoryForItsKeepFile) {
    const auto kPaths = {"a/b/.gitkeep", "a/b/f.dwx", "g.dwx"};
    const auto edit = [&] {
        for (const char *path : kPaths) put(path, "edited");
    };
    for (const char *path : kPaths) put(path, path);
    commit_all();
    connect();
    Report host;
    const zwchar *directory[] = {u"a/b/", u""};
    for (const Notify *notify : {static_cast<const Notify *>(&host), {}}) {
        edit();
        ASSERT_OK(zCommandRevert(copy.c_str(), 2, directory, notify));
        EXPECT_EQ(git_lines("status --porcelain"), (Lines{" M a/b/f.dwx", " M g.dwx"}));
    }
    EXPECT_TRUE(host.told(text(u"action.sReverted") + " a/b/"));
    edit();
    ASSERT_OK(commit({u"a/b/"}));
    EXPECT_EQ(git_lines("show --format=%an:%s --name-only HEAD"),
              (Lines{"Ada:words", "", "a/b/.gitkeep"}));

    const std::u16string longest = std::u16string(503, u'x') + u"/";
    for (const zwchar *bad : {longest.c_str(), static_cast<const zwchar *>(nullptr)}) {
        EXPECT_FALSE(commit({u"g.dwx", bad}));
        EXPECT_EQ(zErrorClass(), 2);
        EXPECT_FALSE(zCommandRevert(copy.c_str(), 1, &bad, nullptr));
    }
    EXPECT_EQ(git_lines("status --porcelain"), (Lines{" M a/b/f.dwx", " M g.dwx"}));
    ASSERT_OK(commit({u""})); // everything
    EXPECT_EQ(git(place, "status --porcelain"), "");
}

// ---- Older states, and the server

struct CheckoutTest : CommandTest {
    const Oid *const previous = reinterpret_cast<const Oid *>(uintptr_t{1});
    std::vector<Oid> ids;

    void SetUp() override {
        CommandTest::SetUp();
        for (const char *bytes : {"one", "two", "three"}) {
            put("a.dwx", bytes);
            put("d/x.dwx", bytes);
            commit_all();
            ids.push_back(*zCommitId(CommitPtr(zCommitHead(repository.get())).get()));
        }
        connect();
    }
    int32_t checkout(const Oid *revision, const zwchar *path, const std::u16string &target) {
        return zCommandCheckout(copy.c_str(), revision, path, target.c_str(), nullptr);
    }
    // As a clone would have left it, whose server is one commit behind.
    void follow() {
        git(place, "remote add origin http://127.0.0.1:1/repos/a/b");
        git(place, "update-ref refs/remotes/origin/master HEAD~1");
        git(place, "config branch.master.remote origin");
        git(place, "config branch.master.merge refs/heads/master");
    }
};

TEST_F(CheckoutTest, AFileOfAnOlderStateGoesWhereItIsTold) {
    EXPECT_EQ(checkout(nullptr, u"a.dwx", u"head.dwx"), 0) << narrow(zErrorDetail());
    EXPECT_EQ(read(place / "head.dwx"), "three");
    EXPECT_EQ(checkout(previous, u"a.dwx", u"./d//previous.dwx"), 0) << narrow(zErrorDetail());
    EXPECT_EQ(read(place / "d/previous.dwx"), "two");
    EXPECT_EQ(checkout(&ids[0], u"a.dwx", u"first.dwx"), 1); // no upstream to look along
    follow();
    put("a.dwx", "edited");
    EXPECT_EQ(checkout(&ids[0], u"d/x.dwx", u"a.dwx"), 0) << narrow(zErrorDetail());
    EXPECT_EQ(read(place / "a.dwx"), "one");
    EXPECT_EQ(checkout(&ids[2], u"a.dwx", u"first.dwx"), 1); // not there yet
    EXPECT_EQ(staged(), Lines{});
    git(place, "update-ref HEAD HEAD~2");
    EXPECT_EQ(checkout(previous, u"a.dwx", u"first.dwx"), 1); // nothing before it
    EXPECT_FALSE(fs::exists(place / "first.dwx"));
}

TEST_F(CheckoutTest, AFailureLeavesWhatStandsThere) {
    const fs::path outside = dir.path() / "outside";
    write(outside / "precious", "precious");
    fs::create_directory_symlink(outside, place / "link");
    const std::u16string long_one(500, u'x');
    const std::tuple<const zwchar *, const zwchar *, int> kBad[] = {
        {u"nowhere", u"a.dwx", 3},       {u"d", u"a.dwx", 3},
        {nullptr, u"a.dwx", 2},          {u"a.dwx", u"/", 2},
        {u"a.dwx", u"link/precious", 2}, {u"a.dwx", long_one.c_str(), 10}};
    for (const auto &[path, target, failure] : kBad) {
        EXPECT_EQ(checkout(previous, path, target), 1) << narrow(target);
        EXPECT_EQ(zErrorClass(), failure) << narrow(zErrorDetail());
    }
    EXPECT_EQ(read(place / "a.dwx"), "three");
    EXPECT_EQ(read(outside / "precious"), "precious");
}

// A partial client holds commits whose blobs and trees it never fetched.
TEST_F(CheckoutTest, WhatTheStoreLacksIsToldApart) {
    git(place, "repack -qad");
    run("cd '" + place.string() +
        "/.git' && mv objects/pack/*.pack . && rm -rf objects/pack/* && "
        "cat *.pack | git unpack-objects -q");
    for (const auto &[object, result] : {std::pair{"HEAD:a.dwx", 1}, {"HEAD^{tree}", -1}}) {
        const std::string id = git(place, std::string("rev-parse '") + object + "'");
        ASSERT_TRUE(fs::remove(place / ".git/objects" / id.substr(0, 2) / id.substr(2))) << id;
        zCommandDisconnect(copy.c_str());
        connect();
        EXPECT_EQ(checkout(nullptr, u"a.dwx", u"t.dwx"), result) << object;
    }
}

TEST_F(CheckoutTest, WhatNeedsTheServerFailsWithItsReason) {
    const zwchar *where = copy.c_str(), *path = u"a.dwx";
    const std::function<bool()> kCalls[] = {
        [&] { return zCommandCheckout(where, nullptr, path, u"", nullptr) != 1; },
        [&] { return zCommandReset(where, &ids[0], path, nullptr) != 1; },
        [&] { return zCommandFetch(where, path, nullptr); },
        [&] { return zCommandRefresh(where, 1, &path, nullptr, Listed::take, nullptr), false; }};
    for (int failure : {3, 15}) { // no remote "origin"; nobody there
        for (const auto &call : kCalls) {
            zRaiseOutOfRange(nullptr);
            EXPECT_FALSE(call());
            EXPECT_EQ(zErrorClass(), failure) << narrow(zErrorDetail());
        }
        follow();
    }
    EXPECT_REFUSED(zCommandBuild((dir / u"fresh").c_str(), u"", nullptr), 2);
    EXPECT_REFUSED(zCommandBuild((dir / u"fresh").c_str(), u"http://127.0.0.1:1/a/b", nullptr), 15);
    EXPECT_EQ(zCommandReset(where, previous, path, nullptr), 1); // that means nothing there
    EXPECT_EQ(zErrorClass(), 2);
}

// ---- Calls from within callbacks

// Each tries to take the connection away from under the call; its tree and repository stay.
struct Reentry : Report {
    std::u16string copy;
    int refused = 0;

    explicit Reentry(std::u16string of) : copy(std::move(of)) {
        start = [](auto *n, auto *, auto *) { self(n).disturb(); };
        action = start;
        done = [](auto *n, auto *) { self(n).disturb(); };
    }
    void disturb() {
        const zwchar *where = copy.c_str();
        const std::function<bool()> kCalls[] = {
            [&] { return zCommandReload(where, nullptr, false), false; },
            [&] { return zCommandDisconnect(where), false; },
            [&] { return zCommandCheckout(where, nullptr, nullptr, nullptr, nullptr) == 0; },
            [&] { return zCommandReset(where, nullptr, nullptr, nullptr) == 0; },
            [&] { return zCommandBuild(where, u"http://127.0.0.1:1/a/b", nullptr); }};
        for (const auto &call : kCalls) {
            zRaiseOutOfRange(nullptr);
            EXPECT_FALSE(call());
            refused += zErrorClass() == 7;
        }
        Listed inside;
        EXPECT_OK(zCommandList(where, nullptr, Listed::take, &inside));
        EXPECT_EQ(inside.lines.size(), 3u);
    }
    static Reentry &self(const Notify *n) {
        return const_cast<Reentry &>(*static_cast<const Reentry *>(n));
    }
    static bool listed(int32_t, const zwchar *, const zwchar *, void *context) {
        return static_cast<Reentry *>(context)->disturb(), true;
    }
};

struct ReentryLog : CommandLog {
    Reentry *host;
};

TEST_F(CommandTest, NothingGoesUnderACallThatIsOnItsWay) {
    for (const char *path : {"a.dwx", "b.dwx", "d/c.dwx"}) put(path, path);
    commit_all();
    connect();
    Reentry host(copy);
    const zwchar *path = u"a.dwx";
    put("a.dwx", "edited");
    const auto disturbed = [&](int calls, bool done) {
        EXPECT_TRUE(done);
        EXPECT_EQ(std::exchange(host.refused, 0), 5 * calls);
    };
    disturbed(3, zCommandList(copy.c_str(), nullptr, Reentry::listed, &host));
    disturbed(3, zCommandRevert(copy.c_str(), 1, &path, &host));
    disturbed(3, zCommandRm(copy.c_str(), 1, &path, &host));
    reload();
    put("d/new.dwx", "1");
    commit_all();
    const ReentryLog log{
        {[](auto *l, auto...) { return static_cast<const ReentryLog *>(l)->host->disturb(), true; },
         [](auto *) { return false; }},
        &host};
    put("a.dwx", "again");
    commit_all(), reload();
    disturbed(3, zCommandLog(copy.c_str(), nullptr, &log));
    put("a.dwx", "added"), git(place, "add a.dwx"), reload();
    disturbed(1, zCommandChangelist(copy.c_str(), 1, &path, Reentry::listed, &host));
    zCommandLogDiff(copy.c_str(), zCommitId(CommitPtr(zCommitHead(repository.get())).get()),
                    Reentry::listed, &host);
    disturbed(1, true);
    zCommandDisconnect(copy.c_str());
    EXPECT_EQ(zev::find_connection(copy.c_str()), nullptr);
}

// Each thread its own working copy; the table is for all.
TEST_F(CommandTest, ThreadsConnectEachTheirOwn) {
    put("a.dwx", "a");
    commit_all();
    std::atomic<int> listed = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, own = copy + std::u16string(size_t(i), u'/')] {
            for (int n = 0; n < 20; ++n) {
                Listed told;
                listed += zCommandConnect(own.c_str()) &&
                          zCommandList(own.c_str(), nullptr, Listed::take, &told) &&
                          told.lines.size() == 1;
                zCommandDisconnect(own.c_str());
            }
        });
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(listed, 80);
}

// ---- Conflicts

using CommandConflict = Connected<ConflictFixture>;

TEST_F(CommandConflict, AreAnalysedAndResolvedAsTheHostDecides) {
    auto edit = [this](const char *text) {
        return [this, text] { put("a*.dwx", text), put("ab.dwx", text); };
    };
    edit("base")();
    ConflictFixture::commit("base");
    merge(edit("theirs"), edit("ours"));
    connect();
    EXPECT_EQ(changelist({u"ab.dwx"}), Lines{"10 >ab.dwx"});
    const AnalysisPtr all(zCommandConflictAnalyze(copy.c_str(), nullptr));
    EXPECT_EQ(zConflictAnalysisLength(all.get()), 2u);
    const AnalysisPtr one(zCommandConflictAnalyze(copy.c_str(), u"a*.dwx"));
    ASSERT_EQ(told(one.get()), "a*.dwx: ours a*.dwx=3, theirs a*.dwx=3;");
    zConflictNodeSetSolution(zConflictAnalysisEntry(one.get(), 0), Z_CONFLICT_USE_THEIRS);
    ASSERT_OK(zCommandConflictResolve(copy.c_str(), one.get()));
    EXPECT_EQ(at("a*.dwx"), "theirs");
    EXPECT_EQ(unmerged(), "1 ab.dwx;2 ab.dwx;3 ab.dwx;");
}

} // namespace
