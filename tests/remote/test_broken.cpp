// Every request of every operation in turn goes wrong, in each of the ways in which a server, or
// the line to it, can. Afterwards index and branches are as they were or wholly moved, nothing is
// locked, what is the user's is untouched, and the next try works without a hand.
//   ZEV_BROKEN=all   every request in every way, else each way at one of them
#include "team_drawings.hpp"

#include "zev/remote.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <regex>
#include <set>

using namespace test;

namespace {

// ---- What goes wrong

constexpr size_t kBig = 3u << 20; // travels alone

size_t body_at(const std::string &answer) { return answer.find("\r\n\r\n") + 4; }

// The same head for another body.
std::string with_body(const std::string &answer, const std::string &body) {
    const size_t type = answer.find("Content-Type: "), end = answer.find("\r\n", type);
    return test::answer(200, body, type < end ? answer.substr(type + 14, end - type - 14) : "");
}
std::string replaced(std::string text, const std::string &from, const std::string &to) {
    const size_t at = text.find(from);
    return at == text.npos ? text : text.replace(at, from.size(), to);
}

std::string nothing(const std::string &) { return {}; }
std::string silence(const std::string &) { return Relay::kSilence; }
std::string itself(const std::string &answer) { return answer; }
template <int Status> std::string refusal(const std::string &) {
    return answer(Status, R"({"error":{"code":1,"message":"no"}})");
}
std::string noise(const std::string &) { return "\x16\x03\x01 no HTTP\r\n\r\n"; }
std::string garbage(const std::string &answer) { return with_body(answer, "\xff garbage {"); }
std::string no_body(const std::string &answer) { return with_body(answer, ""); }
std::string other_json(const std::string &) {
    return answer(200, R"({"data":{"id":"x","tag":-1,"entries":[7,{"id":7}],"result":7}})");
}
std::string page(const std::string &) { return answer(200, "<html>Log in</html>", "text/html"); }
std::string other_type(const std::string &answer) {
    const size_t type = answer.find("Content-Type: ");
    const std::string old = answer.substr(type, answer.find("\r\n", type) - type);
    return type == answer.npos ? answer : replaced(answer, old, "Content-Type: text/html");
}
std::string half_head(const std::string &answer) { return answer.substr(0, body_at(answer) / 2); }
std::string half_body(const std::string &answer) {
    const size_t body = body_at(answer);
    return answer.substr(0, std::min(body + (answer.size() - body) / 2, answer.size() - 1));
}
std::string half_and_silence(const std::string &answer) {
    return half_body(answer) + Relay::kSilence;
}
// The length is that of what is left, so that only the content is wrong.
std::string shortened(const std::string &answer) {
    const std::string half = half_body(answer);
    const auto length = [&](const std::string &text) {
        return "Content-Length: " + std::to_string(text.size() - body_at(answer));
    };
    return half.size() < body_at(answer) ? answer : replaced(half, length(answer), length(half));
}

enum Place { kPort, kHead, kInstead, kAnswer }; // kInstead: the service never hears of it
enum Outcome { kFails, kMayWork, kWorks };

constexpr uint64_t kPatience = 30'000, kHurry = 150; // milliseconds

const struct Fault {
    const char *name;
    Place place;
    bool lasts; // for all requests that follow, too
    std::string (*made)(const std::string &answer);
    Outcome outcome = kFails;
    uint64_t timeout = kPatience;
    size_t pieces = 1;
} kFaults[] = {
    {"refused", kPort, true, nothing},
    {"cut in the request", kHead, true, nothing},
    {"cut", kInstead, true, nothing},
    {"cut once", kInstead, false, nothing, kWorks},
    {"500", kInstead, false, refusal<500>},
    {"401", kInstead, false, refusal<401>},
    {"409", kInstead, false, refusal<409>},
    {"a page for all", kInstead, true, page},
    {"silent", kInstead, false, silence, kFails, kHurry},
    {"lost", kAnswer, true, nothing},
    {"lost once", kAnswer, false, nothing, kMayWork},
    {"noise", kAnswer, true, noise},
    {"garbage", kAnswer, false, garbage, kMayWork},
    {"no body", kAnswer, false, no_body, kMayWork},
    {"other JSON", kAnswer, false, other_json, kMayWork},
    {"shortened", kAnswer, false, shortened, kMayWork},
    {"another type", kAnswer, false, other_type, kMayWork},
    {"cut in the head", kAnswer, true, half_head},
    {"cut in the body", kAnswer, true, half_body},
    {"cut in the body once", kAnswer, false, half_body, kMayWork},
    {"silent in the body", kAnswer, false, half_and_silence, kFails, kHurry},
    {"slow", kAnswer, true, itself, kWorks, kPatience, 97},
};

// ---- What is there

struct Seen {
    std::string index, refs;                  // bytes; names and ids
    std::string entries, trees;               // of the index; names of branches and their trees
    std::map<std::string, std::string> files; // modes and bytes
    std::string left;                         // locks and what else is temporary

    bool is_same(const Seen &other) const {
        return index == other.index && refs == other.refs && files == other.files;
    }
    // Times and ids of commits differ from run to run. Who could not ask for history leaves the
    // note of the server's commit to the next.
    bool is_like(const Seen &other, bool is_blind) const {
        const auto same =
            is_blind ? without_note(trees) == without_note(other.trees) : trees == other.trees;
        return same && entries == other.entries && files == other.files;
    }

    static std::string without_note(const std::string &names) {
        return std::regex_replace(names, std::regex("refs/zev/server/.*\n?"), "");
    }
};

bool is_temporary(const std::string &name) {
    return name.ends_with(".lock") || name.ends_with(".zlck") || name.ends_with(".tmp") ||
           name.starts_with("tmp_") || name.ends_with(".new");
}

Seen look(const fs::path &place) {
    Seen seen;
    if (!fs::exists(place)) return seen;
    for (auto at = fs::recursive_directory_iterator(place); at != end(at); ++at) {
        const std::string path = at->path().lexically_relative(place);
        if (is_temporary(at->path().filename())) seen.left += path + "\n";
        if (!at->is_regular_file() || path.starts_with(".git/")) continue;
        seen.files[path] = std::to_string(int(at->status().permissions())) + read(at->path());
    }
    seen.index = read(place / ".git/index");
    const std::string refs = "for-each-ref --format='%(refname) ";
    seen.refs = git(place, refs + "%(objectname)'"), seen.trees = git(place, refs + "%(tree)'");
    seen.entries = git(place, "--no-optional-locks ls-files -s");
    EXPECT_EQ(read(place / ".git/HEAD"), "ref: refs/heads/master\n");
    return seen;
}

// ---- A point: one fault in a copy of its own of what was made ready, and in its own project

struct Point {
    Copy copy;
    std::string project;
    uint64_t timeout = kPatience;
    mutable std::string list{}; // of the updates
};

using Operate = bool (*)(const Point &, const Relay &);

template <class F> bool over_session(const Point &at, F work) {
    const RepositoryPtr repository = at.copy.open();
    const Held<Remote, zRemoteFree> remote(zRemoteOpen(repository.get()));
    return remote && zRemoteSetTimeout(remote.get(), at.timeout) && work(remote.get());
}

bool run_commit(const Point &at, const Relay &) {
    return over_session(at, [&](Remote *remote) {
        const SpecPtr all(Copy::select({}, &at.copy.host));
        return zRemoteCommit(remote, all.get(), u"ann", u"mine");
    });
}
bool run_update(const Point &at, const Relay &) {
    return over_session(
        at, [&](Remote *remote) { return zRemoteUpdate(remote, at.copy.spec().get()); });
}
bool run_list(const Point &at, const Relay &) {
    return over_session(at, [&](Remote *remote) {
        const SpecPtr all(Copy::select({}, &at.copy.host));
        const DiffPtr found(zRemoteListUpdates(remote, all.get(), true));
        at.list = told(found);
        return found != nullptr;
    });
}
// Of a place that is taken by a copy that was bound an update makes what it lacks.
bool run_checkout(const Point &at, const Relay &relay) {
    if (fs::exists(at.copy.place)) return run_update(at, relay);
    at.copy.host.lines.clear();
    return zRemoteCheckout(wide(relay.url(at.project)).c_str(), at.copy.place.u16string().c_str(),
                           at.copy.spec().get());
}

class BrokenTest : public Team {
  protected:
    void SetUp() override {
        Team::SetUp();
        other("plan", "first"), old_ = other("gone", "only then"), other("notes/a", "a");
        other("notes/b", "b"), other("notes/c", "c"), other_removes("gone");
        mine_ = get("ann", "mine");
        mine_.put("drawings/old.dwx", draw(mine_, old_table_, {{1, "one"}, {2, "two"}}));
        ASSERT_OK(mine_.commit());
        other("plan", "second"), other("notes/b", "b2"), other_removes("notes/c");
        other("more/big", std::string(kBig, 'y'));
        mine_.put("own", "mine alone"), mine_.put("notes/a", "mine, too");
    }
    // What a designer has at the end of a day.
    void work() {
        mine_.put("drawings/old.dwx", draw(mine_, old_table_, {{1, "one"}, {2, "another"}}));
        mine_.put("drawings/new.dwx", draw(mine_, new_table_, {{1, std::string(100'000, 'r')}}));
        mine_.put("big", std::string(kBig, 'z'));
    }

    Point make_point() {
        const std::string number = std::to_string(points_++);
        Point made{{dir.path() / ("copy" + number), "ann"}, "ann/p" + number};
        run("cp -a '" + service.at("ann/plant") + "' '" + service.at(made.project) + "'");
        if (mine_.place.empty()) return made;
        run("cp -a '" + mine_.place.string() + "' '" + made.copy.place.string() + "'");
        made.copy.git("config remote.origin.url " + relay.url(made.project));
        return made;
    }
    void drop(const Point &point) {
        fs::remove_all(point.copy.place), fs::remove_all(service.at(point.project));
    }
    // What the project's branch holds, and how many commits it has.
    std::string served(const Point &point) {
        return service.git(point.project, "rev-parse HEAD^{tree}") +
               service.git(point.project, "rev-list --count HEAD");
    }

    void play_all(Operate run);

    Copy mine_;
    std::string old_;
    bool commits_ = false; // it has an update in it, and something to send
    bool lists_ = false;   // what was fetched stays fetched

  private:
    struct Healthy {
        Seen before, updated, after;
        std::string server, server_after, list;
        size_t requests = 0, rights = 0; // that one asks for these
        std::set<size_t> history;        // and those for what it can do without
    };
    Healthy play_healthy(Operate run);
    void play(Operate run, const Healthy &healthy, const Fault &fault, size_t at);
    void judge(const Point &point, const Healthy &healthy, bool done, bool is_blind = false);
    void set_line(const Fault &fault, size_t at);
    void expect_told(const Host &host, bool done);

    Oid old_table_{}, new_table_{};
    int points_ = 0;
};

void BrokenTest::set_line(const Fault &fault, size_t at) {
    const auto hit = [&fault, at](size_t n) { return n == at || (fault.lasts && n > at); };
    Relay::Script script;
    BadLine line;
    line.pieces = fault.pieces;
    if (fault.place == kPort) line.dead_from = at;
    if (fault.place == kHead) line.deaf_from = at;
    if (fault.place == kInstead)
        script = [=, &fault](const Asked &, size_t n) -> std::optional<std::string> {
            if (!hit(n)) return {};
            return fault.made({});
        };
    if (fault.place == kAnswer)
        line.change = [=, &fault](const std::string &answer, size_t n) {
            return hit(n) ? fault.made(answer) : answer;
        };
    relay.play(std::move(script), std::move(line));
}

// Each start has one end, and the last of them is that of the whole.
void BrokenTest::expect_told(const Host &host, bool done) {
    const auto starts = std::ranges::count_if(
        host.lines, [](const std::string &line) { return line.starts_with("start: "); });
    const std::string ends = host.ends();
    const bool nested = host.lines[0].find("Check out") != std::string::npos; // ends as its update
    EXPECT_EQ(size_t(starts), ends.size() + nested) << host.lines[0] << ends;
    EXPECT_TRUE(ends.ends_with(done ? "d" : "a")) << ends;
    EXPECT_TRUE(done || !host.errors().empty());
}

BrokenTest::Healthy BrokenTest::play_healthy(Operate run) {
    Healthy healthy;
    const Point first = make_point(), second = make_point();
    healthy.before = look(first.copy.place), healthy.server = served(first);
    relay.play();
    EXPECT_OK(run(first, relay));
    const auto asked = relay.asked();
    healthy.requests = asked.size();
    // A commit that the server makes in the same second is ours by its id, and isn't fetched.
    const auto is_commit = [](const Asked &one) { return one.line.ends_with("/commits"); };
    if (commits_ && is_commit(asked.end()[-2])) --healthy.requests;
    const auto is_rights = [](const Asked &one) { return one.line.ends_with("/rms"); };
    healthy.rights = size_t(std::ranges::find_if(asked, is_rights) - asked.begin());
    for (size_t n = 0; n < asked.size(); ++n)
        if (asked[n].line.find("/commits?") != std::string::npos)
            healthy.history.insert({n, n + 1});
    healthy.after = look(first.copy.place), healthy.server_after = served(first);
    healthy.list = first.list;
    if (commits_) {
        EXPECT_OK(run_update(second, relay));
        healthy.updated = look(second.copy.place);
    }
    drop(first), drop(second);
    return healthy;
}

void BrokenTest::judge(const Point &point, const Healthy &healthy, bool done, bool is_blind) {
    const Seen now = look(point.copy.place);
    const std::string server = served(point);
    EXPECT_EQ(now.left, "");
    if (done) {
        EXPECT_TRUE(now.is_like(healthy.after, is_blind));
        EXPECT_EQ(server, healthy.server_after);
        EXPECT_EQ(point.list, healthy.list);
        return;
    }
    EXPECT_TRUE(server == healthy.server || server == healthy.server_after) << server;
    const bool moved = lists_ && now.refs == healthy.after.refs;
    const bool same = now.index == healthy.before.index && now.files == healthy.before.files;
    const bool updated = commits_ && point.copy.host.ends()[0] == 'd';
    EXPECT_TRUE(updated ? now.is_like(healthy.updated, is_blind)
                        : same && (moved || now.refs == healthy.before.refs))
        << now.refs << now.entries;
}

void BrokenTest::play(Operate run, const Healthy &healthy, const Fault &fault, size_t at) {
    Point point = make_point();
    point.timeout = fault.timeout;
    set_line(fault, at);
    const bool done = run(point, relay);
    SCOPED_TRACE(std::string(fault.name) + " at " + std::to_string(at) + " of\n" + relay.lines() +
                 point.copy.host.errors());
    // A list does without the rights of the day. What the history would tell nobody knows then.
    const bool forgiven = lists_ && at == healthy.rights && !fault.lasts;
    const bool may_work = healthy.history.contains(at) && fault.outcome == kFails;
    const Outcome outcome = forgiven ? kWorks : may_work ? kMayWork : fault.outcome;
    EXPECT_TRUE(outcome == kMayWork || done == (outcome == kWorks));
    expect_told(point.copy.host, done);
    judge(point, healthy, done, healthy.history.contains(at));

    relay.play();
    point.timeout = kPatience;
    const bool sent = commits_ && served(point) == healthy.server_after;
    const bool again = run(point, relay);
    SCOPED_TRACE("and the next: " + point.copy.host.errors());
    EXPECT_TRUE(again || (sent && zErrorClass() == 3)) << narrow(zErrorDetail());
    expect_told(point.copy.host, again);
    judge(point, healthy, true);
    EXPECT_EQ(findings_in(point.copy.place, false), "");
    EXPECT_EQ(findings_in(service.at(point.project), true), "");
    drop(point);
}

void BrokenTest::play_all(Operate run) {
    constexpr int kTold = 40; // failures are enough
    const char *wanted = getenv("ZEV_BROKEN");
    const bool all = wanted && std::string_view(wanted) == "all";
    const Healthy healthy = play_healthy(run);
    ASSERT_GT(healthy.requests, 3u);
    size_t played = 0;
    for (size_t kind = 0; kind < std::size(kFaults); ++kind)
        for (size_t at = 0; at < healthy.requests; ++at) {
            if (!all && (at + kind) % healthy.requests) continue;
            // Nothing shortens the wait of a copy that is only just made.
            if (mine_.place.empty() && kFaults[kind].timeout == kHurry) continue;
            play(run, healthy, kFaults[kind], at);
            ++played;
            const auto *test = testing::UnitTest::GetInstance()->current_test_info();
            ASSERT_LT(test->result()->total_part_count(), kTold);
        }
    printf("%zu requests, %zu points\n", healthy.requests, played);
}

TEST_F(BrokenTest, Commit) {
    commits_ = true;
    work();
    play_all(run_commit);
}

TEST_F(BrokenTest, Update) { play_all(run_update); }

TEST_F(BrokenTest, Checkout) {
    mine_.place.clear();
    play_all(run_checkout);
}

TEST_F(BrokenTest, Reset) {
    static Oid target;
    target = parsed(old_);
    play_all([](const Point &at, const Relay &) {
        at.copy.host.answers = {2}; // his changes stay
        return over_session(at, [&](Remote *remote) {
            const CheckPtr spec = at.copy.spec();
            return zCheckSpecSetTarget(spec.get(), &target) && zRemoteReset(remote, spec.get());
        });
    });
}

TEST_F(BrokenTest, ListOfUpdates) {
    lists_ = true;
    play_all(run_list);
}

} // namespace
