// Strikes at every operation that changes a working copy, in each of the ways that preload.c knows,
// and judges what is left.
//   torture BUILD POINTS [OPERATION [MODE [CALL]]]
//   torture BUILD four SECONDS
//   torture BUILD served POINTS [OPERATION [MODE [CALL]]]
//   torture BUILD server POINTS [OPERATION [MODE [CALL]]]
// BUILD holds bin/zev and lib/libtorture.so, $ZEV_TEST_DATA the drawings. POINTS are spread over
// the calls of each operation and mode; "all" is every call, and the mode "hollow" too, which else
// has to be named: what was never synced may be hollow, and much isn't before the next commit.
// OPERATION is how names in the table begin; those of git, which show the difference, run only when
// they are named. A single point is left where it was played. "four" lets four work at once, see
// four.cpp; "served" is of copies that follow a server, see served.cpp; "server" strikes at that
// server while such a copy is at work, of itself by kill and loss of power alone. Exits with 1 if
// anything was found.

#include "four.hpp"
#include "judge.hpp"
#include "served.hpp"

#include <git2.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <stdexcept>
#include <thread>

#include <unistd.h>

namespace torture {

namespace {

constexpr const char *kModes[] = {"fail", "dead", "full", "short", "kill", "forget", "hollow"};

// ---- The operations

const std::string kFirst = R"(
"$ZEV" init .
sed 's/^100\.0$/101.5/' "$DATA/plan.dxf" >../second.dxf
sed 's/^100\.0$/102.5/' "$DATA/plan.dxf" >../third.dxf
cp "$DATA/plan.dxf" "$DATA/site.dxf" ..
mkdir -p docs/old many plans
"$ZEV" import ../plan.dxf plan.dwx
"$ZEV" import ../site.dxf plans/site.dwx
echo first >docs/note.txt
echo old >docs/old/a.txt
for i in 1 2 3 4 5 6; do echo "many $i" >many/$i.txt; done
"$ZEV" add .
"$ZEV" commit -m first
)";

const std::string kEdited = R"(
echo second >docs/note.txt
echo new >docs/new.txt
rm docs/old/a.txt
"$ZEV" import ../second.dxf plan.dwx
)";
const std::string kStaged = kEdited + R"(
"$ZEV" add .
"$ZEV" rm docs/old/a.txt
)";
const std::string kByGit = kEdited + R"(
git add -A
git commit -qm mine
)";
const std::string kTwoCommits = kEdited + R"("$ZEV" commit -m second .)";

const std::string kBranched = R"(
git checkout -qb side
echo theirs >docs/note.txt
echo theirs >docs/theirs.txt
"$ZEV" import ../second.dxf plan.dwx
rm many/1.txt
echo theirs >many/2.txt
git add -A
git commit -qm theirs
git checkout -q -
)";
const std::string kBranchedAndEdited = kBranched + R"(
echo mine >docs/note.txt
echo new >docs/new.txt
echo mine >many/3.txt
)";
const std::string kDiverged = kBranched + R"(
echo ours >many/4.txt
git commit -qam ours
)";
const std::string kContrary = kBranched + R"(
echo ours >docs/note.txt
"$ZEV" import ../site.dxf plan.dwx
echo ours >many/1.txt
rm many/2.txt
git add -A
git commit -qm ours
)";
const std::string kConflict = kContrary + "git merge -q side || true";

// Other objects of one drawing.
const std::string kDrawnApart = R"(
sed 's/^12\.5$/13.5/' ../plan.dxf >../fourth.dxf
sed 's/^100\.0$/101.5/' ../fourth.dxf >../both.dxf
git checkout -qb side
"$ZEV" import ../second.dxf plan.dwx
echo theirs >docs/theirs.txt
git add -A
git commit -qm theirs
git checkout -q -
"$ZEV" import ../fourth.dxf plan.dwx
echo ours >many/4.txt
git commit -qam ours
)";
const std::string kDrawnConflict = kDrawnApart + "git merge -q side || true";

const std::string kLooking = kTwoCommits + R"(
"$ZEV" switch HEAD~1
)";

const std::string kTaken = R"(
echo second >docs/note.txt
"$ZEV" rm docs/note.txt many
)";
const std::string kTakenAndReplaced = R"(
echo second >docs/note.txt
"$ZEV" rm docs/note.txt
echo third >docs/note.txt
)";

const std::string kStagedAgain = kTwoCommits + R"(
echo third >docs/note.txt
"$ZEV" add docs
)";
const std::string kSheets = R"(
mkdir -p ../sheets/upper
cp ../second.dxf ../sheets/a.dxf
cp ../third.dxf ../sheets/upper/b.dxf
)";

const std::string kUnnamed = kEdited + R"(
"$ZEV" revert plan.dwx
"$ZEV" trash purge --all --yes
"$ZEV" gc --days 0
"$ZEV" commit -m second docs
)";

const std::string kColored = R"("$ZEV" config zev.author blue)";

struct Operation {
    const char *name;
    std::string ready; // makes a copy ready, after kFirst
    Words words;
    Terms terms{};
    std::string others{}; // what somebody else does meanwhile, in another copy of the project
    bool rests = false;   // it is an update before it is itself
    std::string then{};   // makes the copy ready, after the others
};

const Operation kOperations[] = {
    {"import new", "", {"zev", "import", "../second.dxf", "plans/new.dwx"}, false, 0, true},
    {"import changed", "", {"zev", "import", "../second.dxf", "plan.dwx"}, false, 0, true},
    {"import over",
     kEdited,
     {"zev", "import", "../third.dxf", "plan.dwx"},
     {.litters = true, .stays = true}},
    {"export over",
     "cp ../third.dxf plan.dxf",
     {"zev", "export", "--force", "plan.dwx", "plan.dxf"},
     {.litters = true, .stays = true}},
    {"import directory", kSheets, {"zev", "import", "../sheets", "plans"}, false, 0, true},
    {"add", kEdited, {"zev", "add", "."}},
    {"add undo", kStaged, {"zev", "add", "--undo", "."}},
    {"mkdir", "", {"zev", "mkdir", "plans/a/b"}},
    {"commit", kStaged, {"zev", "commit", "-m", "second"}, true},
    {"commit part", kStaged, {"zev", "commit", "-m", "second", "docs"}, true},
    {"commit drawing", kEdited, {"zev", "commit", "-m", "second", "plan.dwx"}, true},
    {"commit all", kEdited, {"zev", "commit", "--all", "-m", "second"}, true},
    {"commit amend", kStagedAgain, {"zev", "commit", "--amend", "-m", "third"}, true},
    {"rm file", kEdited, {"zev", "rm", "docs/note.txt"}},
    {"rm directory", kEdited, {"zev", "rm", "docs"}},
    {"rm many", kEdited, {"zev", "rm", "many/*.txt", "plan.dwx", "docs/note.txt"}},
    {"mv file", kEdited, {"zev", "mv", "plan.dwx", "plans/ground.dwx"}},
    {"mv directory", kEdited, {"zev", "mv", "docs", "papers"}},
    {"mv moved", "mv docs papers", {"zev", "mv", "docs", "papers"}},
    {"revert modified", kEdited, {"zev", "revert", "docs/note.txt", "plan.dwx"}},
    {"revert missing", "rm -r many plan.dwx", {"zev", "revert", "many", "plan.dwx"}},
    {"revert added", kStaged, {"zev", "revert", "docs/new.txt"}},
    {"revert all", kStaged, {"zev", "revert", "--all"}},
    {"revert conflict", kConflict, {"zev", "revert", "docs/note.txt", "plan.dwx"}},
    {"resolve mine", kConflict, {"zev", "resolve", "--mine", "--all"}},
    {"resolve theirs", kConflict, {"zev", "resolve", "--theirs", "--all"}},
    {"resolve both", kConflict, {"zev", "resolve", "--both", "--all"}, false, 0, true},
    {"resolve merge",
     kDrawnConflict,
     {"zev", "resolve", "--merge", "--all"},
     {.litters = true, .stays = true}},
    {"restore", kTaken, {"zev", "trash", "restore", "docs/note.txt", "many"}},
    {"undo", kTaken, {"zev", "undo"}},
    {"switch", kBranched, {"zev", "switch", "side"}},
    {"switch create", kEdited, {"zev", "switch", "-c", "other"}},
    {"switch changed", kBranchedAndEdited, {"zev", "switch", "side"}, false, kConflicts},
    {"switch force", kBranchedAndEdited, {"zev", "--yes", "switch", "--force", "side"}},
    {"switch commit", kTwoCommits, {"zev", "switch", "HEAD~1"}},
    {"switch back", kLooking, {"zev", "switch", "master"}},
    {"merge forward", kBranched, {"zev", "merge", "side"}, true},
    {"merge", kDiverged, {"zev", "merge", "side"}, true},
    {"merge drawing",
     kDrawnApart,
     {"zev", "merge", "side"},
     {.durable = true, .litters = true, .meets = true, .stays = true}},
    {"merge conflict", kContrary, {"zev", "merge", "side"}, false, kConflicts},
    {"merge abort", kConflict, {"zev", "merge", "--abort"}},
    {"cleanup", kStaged, {"zev", "cleanup", "--untracked", "--yes"}},
    {"gc", kUnnamed, {"zev", "gc", "--days", "0"}},
    {"config", "", {"zev", "config", "zev.author", "blue"}, true},
    {"config unset", kColored, {"zev", "config", "--unset", "zev.author"}, true},
    {"branch", "", {"zev", "branch", "other"}, true},
    {"branch delete", R"("$ZEV" branch other)", {"zev", "branch", "--delete", "other"}, true},
    {"tag", "", {"zev", "tag", "sent"}, true},
    {"tag delete", R"("$ZEV" tag sent)", {"zev", "tag", "--delete", "sent"}, true},
    {"restore replace",
     kTakenAndReplaced,
     {"zev", "--answer", "replace", "trash", "restore", "docs/note.txt", "--to", "docs"}},

    {"git commit", kStaged, {"git", "commit", "-qm", "second"}, true},
    {"git commit all", kEdited, {"git", "commit", "-qam", "second"}, true},
    {"git merge forward", kBranched, {"git", "merge", "-q", "side"}, true},
    {"git merge", kDiverged, {"git", "merge", "-q", "--no-edit", "side"}, true},
    {"git checkout", kBranched, {"git", "checkout", "-q", "side"}},
};

const std::string kTheirs = R"(
echo theirs >docs/theirs.txt
rm many/1.txt
echo theirs >many/2.txt
"$ZEV" commit -m theirs .
)";
const std::string kTheirsToo = R"(
echo theirs >docs/note.txt
echo theirs >docs/old/a.txt
"$ZEV" import ../third.dxf plan.dwx
)" + kTheirs;
const std::string kDrawnToo = R"(
sed 's/^12\.5$/13.5/' ../plan.dxf >../fourth.dxf
"$ZEV" import ../fourth.dxf plan.dwx
"$ZEV" commit -m theirs .
)";
const std::string kBoth = R"(
sed 's/^12\.5$/13.5/' ../second.dxf >../both.dxf
)";
const std::string kMet = R"("$ZEV" update || [ $? = 4 ])";
const std::string kSettled = kMet + R"(
"$ZEV" resolve --both --all
)";

const Operation kServed[] = {
    {"get", "find . -mindepth 1 -delete", {"zev", "get", "URL", "."}},
    {"update", kEdited, {"zev", "update"}, {true}, kTheirs},
    {"update conflict", kEdited, {"zev", "update"}, {true, kConflicts}, kTheirsToo},
    {"update drawing",
     kEdited + kBoth,
     {"zev", "update"},
     {.durable = true, .litters = true, .meets = true},
     kDrawnToo},
    {"update unsent", kByGit, {"zev", "update"}, {true, 0, false, true}, kTheirs, true},
    {"update unsent conflict",
     kByGit,
     {"zev", "update"},
     {true, kConflicts, false, true},
     kTheirsToo,
     true},
    {"commit", kEdited, {"zev", "commit", "-m", "second", "."}, {true}},
    {"commit staged", kStaged, {"zev", "commit", "-m", "second"}, {true}},
    {"commit over", kEdited, {"zev", "commit", "-m", "second", "."}, {true}, kTheirs, true},
    {"commit conflict",
     kEdited,
     {"zev", "commit", "-m", "second", "."},
     {true, kConflicts},
     kTheirsToo,
     true},
    {"commit settled",
     kEdited,
     {"zev", "commit", "-m", "second", "."},
     {true},
     kTheirsToo,
     false,
     kSettled},
    {"resolve theirs",
     kEdited,
     {"zev", "resolve", "--theirs", "--all"},
     {},
     kTheirsToo,
     false,
     kMet},
    {"resolve both",
     kEdited,
     {"zev", "resolve", "--both", "--all"},
     {false, 0, true},
     kTheirsToo,
     false,
     kMet},
    {"reset", "", {"zev", "reset", "HEAD~1"}, {true}, kTheirs, true},
};

// ---- An operation made ready

struct Ready {
    const Operation *operation;
    Play play;
    Expected expected;
    long calls = 0, writes = 0;
};

// What each drawing of a copy comes out as: one of the files that were read in.
void note_drawings(Ready &ready, const Play &play, const State &state) {
    for (const auto &[path, content] : state.work) {
        if (!path.ends_with(".dwx") || ready.expected.drawings.contains(content)) continue;
        const Outcome out = exported(play, path);
        const bool known = std::ranges::any_of(
            Words{"plan.dxf", "second.dxf", "third.dxf", "fourth.dxf", "both.dxf", "site.dxf"},
            [&](auto &name) { return read(play.root / name) == out.text; });
        if (!known) throw std::runtime_error(path + " is no file that was read in: " + out.text);
        ready.expected.drawings[content] = out.text;
    }
}

void read_counts(Ready &ready, const fs::path &count) {
    if (sscanf(read(count).c_str(), "%ld %ld %ld", &ready.calls, &ready.writes,
               &ready.expected.last_sync) != 3)
        throw std::runtime_error(std::string(ready.operation->name) + ": calls aren't counted");
}

void make_others(const Ready &ready, const Play &first, const fs::path &root) {
    if (ready.operation->others.empty()) return;
    const Play other = duplicate(first, root.string() + ".other", ready.play);
    must("the others", other.shell(ready.operation->others));
    fs::remove_all(other.root);
}

// Where it comes to rest if it gets no further than its update.
State look_between(const Ready &ready, const fs::path &root) {
    const Play way = duplicate(ready.play, root.string() + ".way");
    must("the way", way.run({"zev", "update"}), ready.expected.terms.code);
    const State between = look(way);
    drop(way);
    return between;
}

Ready make_ready(const Operation &operation, const Play &first, const fs::path &root) {
    Ready ready{&operation, duplicate(first, root), {}};
    ready.expected.git = operation.words[0] == "git";
    ready.expected.terms = operation.terms;
    must(operation.name, ready.play.shell(operation.ready));
    make_others(ready, first, root);
    must(operation.name, ready.play.shell(operation.then));
    ready.expected.before = look(ready.play);
    if (operation.rests) ready.expected.between = look_between(ready, root);

    const Play done = duplicate(ready.play, root.string() + ".done");
    const fs::path count = done.root / "count";
    must(operation.name,
         done.run(operation.words,
                  {{"LD_PRELOAD", first.programs->preload}, {"ZEV_TORTURE_COUNT", count}}),
         operation.terms.code);
    read_counts(ready, count);
    ready.expected.after = look(done);
    if (!first.url.empty()) {
        ready.expected.served_before = served(ready.play);
        ready.expected.served_after = served(done);
    }
    note_drawings(ready, ready.play, ready.expected.before);
    // What was only just brought here has its rows at the server.
    if (operation.words[1] != "get") note_drawings(ready, done, ready.expected.after);
    return ready;
}

// The calls that count are the server's, from the beginning of the operation to its answer.
void count_at_server(Ready &ready, const Server &server, const fs::path &root) {
    Apart apart(server, ready.play, root);
    const fs::path armed = root / "armed", count = root / "count";
    apart.start({{"LD_PRELOAD", ready.play.programs->preload},
                 {"ZEV_TORTURE_FROM", armed},
                 {"ZEV_TORTURE_COUNT", count}});
    write(armed, "");
    must(ready.operation->name, apart.play.run(ready.operation->words),
         ready.operation->terms.code);
    fs::remove(armed);
    apart.service.end(SIGTERM);
    read_counts(ready, count);
    fs::remove_all(root);
}

// ---- Points

struct Point {
    const Ready *ready;
    std::string mode;
    long at; // 0: behind the last call
    std::string finding;
};

std::string judge_point(const Point &point, const Play &play, const Outcome &outcome,
                        bool at_server) {
    const Strike strike{point.mode, point.at, outcome.code, outcome.text, at_server};
    const Words &words = point.ready->operation->words;
    return words[1] == "get" ? judge_get(play, point.ready->expected, strike, words)
                             : judge(play, point.ready->expected, strike, words);
}

std::string at_of(const Point &point) { return point.at ? std::to_string(point.at) : "end"; }

std::string play_point(const Point &point, const fs::path &root, bool keeps) {
    const Play play = duplicate(point.ready->play, root);
    const Outcome outcome =
        play.run(point.ready->operation->words, {{"LD_PRELOAD", play.programs->preload},
                                                 {"ZEV_TORTURE_MODE", point.mode},
                                                 {"ZEV_TORTURE_AT", at_of(point)}});
    const std::string finding = judge_point(point, play, outcome, false);
    if (!play.url.empty() && !keeps) drop(play);
    return finding;
}

// The client sees a server that goes wrong or is gone; by the next command it is well again.
std::string play_at_server(const Point &point, const Server &server, const fs::path &root) try {
    Apart apart(server, point.ready->play, root);
    const fs::path armed = root / "armed";
    apart.start({{"LD_PRELOAD", point.ready->play.programs->preload},
                 {"ZEV_TORTURE_FROM", armed},
                 {"ZEV_TORTURE_MODE", point.mode},
                 {"ZEV_TORTURE_AT", at_of(point)}});
    write(armed, "");
    const Outcome outcome = apart.play.run(point.ready->operation->words);
    const bool lasts = point.mode == "kill" || point.mode == "forget" || point.mode == "hollow";
    if (!lasts) fs::remove(armed);
    apart.service.end(SIGTERM); // whose calls count, too
    apart.start();
    std::string finding = judge_point(point, apart.play, outcome, true);
    if (!finding.empty()) return finding;
    if (apart.service.end(SIGTERM) != 0) return "server: doesn't end well";
    apart.service.must_be_sound();
    const bool may_leave = point.mode == "fail" || point.mode == "dead"; // what can't be removed
    if (!may_leave) finding = left_about(apart.play);
    return finding.empty() ? "" : "left: " + finding;
} catch (const std::exception &error) {
    return std::string("server: ") + error.what();
}

// Evenly spread; without power also the moment after the program's end.
void spread(std::vector<Point> &points, const Ready &ready, const std::string &mode, long count) {
    const long calls = mode == "short" ? ready.writes : ready.calls;
    const long taken = count ? std::min(count, calls) : calls;
    for (long i = 0; i < taken; ++i)
        points.push_back({&ready, mode, 1 + (i * calls + calls / 2) / taken % calls, ""});
    if (mode == "forget" || mode == "hollow") points.push_back({&ready, mode, 0, ""});
}

// Calls a function for each number below a count, on all cores.
void in_parallel(size_t count, const std::function<void(size_t number, unsigned worker)> &work) {
    std::atomic<size_t> next = 0;
    std::mutex mutex;
    std::string failure;
    std::vector<std::thread> threads;
    for (unsigned worker = 0; worker < std::max(2u, std::thread::hardware_concurrency()); ++worker)
        threads.emplace_back([&, worker] {
            try {
                for (size_t i; (i = next++) < count;) work(i, worker);
            } catch (const std::exception &error) {
                std::lock_guard lock(mutex);
                failure = error.what();
            }
        });
    for (std::thread &thread : threads) thread.join();
    if (!failure.empty()) throw std::runtime_error(failure);
}

// ---- The whole

struct Options {
    Programs programs;
    long points = 0; // 0: all
    std::string operation, mode;
    long at = -1;
    bool served = false;    // copies follow a server
    bool at_server = false; // and that is struck
};

// What the first commit of a copy is made of, behind its beginning.
const std::string kFollowed = R"("$ZEV" get "$URL" .)" + kFirst.substr(kFirst.find("\nsed"));

Play make_served(const Server &server, const fs::path &root) {
    const Play first = server.begin(root / "first");
    must("the first commit", first.shell(kFollowed));
    must("before anything struck", first.run({"zev", "verify"}));
    return first;
}

Play make_first(const Options &options, const fs::path &root) {
    const Play first = fresh(options.programs, root / "first");
    must("the first commit", first.shell(kFirst));
    must("before anything struck", first.run({"zev", "verify"}));
    return first;
}

std::vector<Ready> make_all_ready(const Options &options, const Server *server, const Play &first,
                                  const fs::path &root) {
    std::vector<const Operation *> chosen;
    const std::span<const Operation> all_of =
        options.served ? std::span<const Operation>(kServed) : kOperations;
    for (const Operation &operation : all_of) {
        const std::string &named = options.operation;
        if (named.empty() ? operation.words[0] == "zev"
                          : std::string(operation.name).starts_with(named))
            chosen.push_back(&operation);
    }
    std::vector<Ready> all(chosen.size());
    in_parallel(chosen.size(), [&](size_t i, unsigned) {
        const fs::path place = root / ("ready" + std::to_string(i));
        all[i] = make_ready(*chosen[i], first, place);
        if (options.at_server) count_at_server(all[i], *server, place.string() + ".apart");
    });
    return all;
}

bool is_chosen(const Options &options, const std::string &mode) {
    if (!options.mode.empty() || !options.points)
        return options.mode.empty() || options.mode == mode;
    return options.at_server ? mode == "kill" || mode == "forget" : mode != "hollow";
}

std::vector<Point> choose(const Options &options, const std::vector<Ready> &all) {
    std::vector<Point> points;
    for (const Ready &ready : all)
        for (const char *mode : kModes) {
            if (!is_chosen(options, mode)) continue;
            if (options.at < 0)
                spread(points, ready, mode, options.points);
            else
                points.push_back({&ready, mode, options.at, ""});
        }
    return points;
}

void tell_findings(const std::vector<Point> &points) {
    std::map<std::string, int> seen; // one of each kind
    for (const Point &point : points) {
        if (point.finding.empty()) continue;
        const std::string name = point.ready->operation->name;
        const std::string kind =
            name + point.mode + point.finding.substr(0, point.finding.find(':'));
        if (++seen[kind] > 1) continue;
        printf("%s, %s at %ld: %s\n", name.c_str(), point.mode.c_str(), point.at,
               point.finding.c_str());
    }
}

// Findings and points, a line an operation, a column a mode.
size_t tell_table(const std::vector<Ready> &all, const std::vector<Point> &points) {
    printf("%-18s %6s", "", "calls");
    for (const char *mode : kModes) printf(" %9s", mode);
    size_t found = 0;
    for (const Ready &ready : all) {
        printf("\n%-18s %6ld", ready.operation->name, ready.calls);
        for (const char *mode : kModes) {
            size_t bad = 0, played = 0;
            for (const Point &point : points) {
                if (point.ready != &ready || point.mode != mode) continue;
                ++played;
                bad += !point.finding.empty();
            }
            found += bad;
            printf(" %4zu/%-4zu", bad, played);
        }
    }
    printf("\n%zu points, %zu findings\n", points.size(), found);
    return found;
}

int leave(const fs::path &root, bool kept, bool found) {
    if (kept)
        printf("played in %s\n", root.c_str());
    else
        fs::remove_all(root);
    return found;
}

int run_four(const Options &options, const fs::path &root, int seconds) {
    const bool well = four_at_work(make_first(options, root), seconds);
    return leave(root, !well, !well);
}

int run(const Options &options, const fs::path &root) {
    std::unique_ptr<Server> server;
    if (options.served) server = std::make_unique<Server>(options.programs, root / "server");
    const Play first = server ? make_served(*server, root) : make_first(options, root);
    const std::vector<Ready> all = make_all_ready(options, server.get(), first, root);
    std::vector<Point> points = choose(options, all);
    in_parallel(points.size(), [&](size_t i, unsigned worker) {
        const fs::path place = root / ("play" + std::to_string(worker));
        points[i].finding = options.at_server ? play_at_server(points[i], *server, place)
                                              : play_point(points[i], place, options.at >= 0);
    });
    tell_findings(points);
    const bool found = tell_table(all, points) > 0;
    return leave(root, options.at >= 0, found);
}

} // namespace

} // namespace torture

int main(int argc, char **argv) try {
    using namespace torture;
    setenv("LC_ALL", "C.UTF-8", 1);
    const char *data = getenv("ZEV_TEST_DATA");
    if (argc < 3 || !data) {
        fputs("usage: ZEV_TEST_DATA=... torture BUILD POINTS [OPERATION [MODE [CALL]]]\n", stderr);
        return 2;
    }
    const fs::path build = fs::canonical(argv[1]);
    Options options;
    options.programs = {build / "bin" / "zev", build / "lib" / "libtorture.so",
                        fs::canonical(data)};
    options.at_server = std::string(argv[2]) == "server";
    options.served = options.at_server || std::string(argv[2]) == "served";
    if (options.served && argc > 3) ++argv, --argc;
    options.points = atol(argv[2]);
    if (argc > 3) options.operation = argv[3];
    if (argc > 4) options.mode = argv[4];
    if (argc > 5) options.at = atol(argv[5]);
    git_libgit2_init();
    const fs::path room = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : fs::temp_directory_path();
    const fs::path root = room / ("torture." + std::to_string(getpid()));
    if (std::string(argv[2]) == "four")
        return run_four(options, root, argc > 3 ? atoi(argv[3]) : 60);
    return run(options, root);
} catch (const std::exception &error) {
    fprintf(stderr, "torture: %s\n", error.what());
    return 2;
}
