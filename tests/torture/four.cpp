// Four at work on one working copy, each in a directory of its own and all on the same index, while
// once a second one of them is killed. Whoever finds the copy locked comes again; what was told to
// be committed must be in the history.
#include "four.hpp"

#include "judge.hpp"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <thread>

namespace torture {

namespace {

constexpr int kWorkers = 4;
constexpr int kLocked = 7, kKilled = 128 + 9;

struct Crew {
    const Play &play;
    std::atomic<bool> over = false;
    std::array<Target, kWorkers> targets{};
    std::array<int, kWorkers> runs{}, locked{}, killed{};
    std::array<Words, kWorkers> committed{}, findings{}; // messages; what went wrong
};

// One step of a worker; true when it was done. Only waiting and dying are no findings.
bool step(Crew &crew, int worker, Words words) {
    const Outcome outcome = crew.play.run(words,
                                          {{"LD_PRELOAD", crew.play.programs->preload},
                                           {"ZEV_TORTURE_WITNESS", crew.play.root / "witness"}},
                                          &crew.targets[worker]);
    ++crew.runs[worker];
    if (outcome.code == 0) return true;
    if (outcome.code == kLocked)
        ++crew.locked[worker];
    else if (outcome.code == kKilled)
        ++crew.killed[worker];
    else
        crew.findings[worker].push_back(words[1] + " gives " + std::to_string(outcome.code) + ": " +
                                        outcome.text);
    return false;
}

// The same again for as long as others are in the way.
bool persist(Crew &crew, int worker, const Words &words) {
    const int before = crew.killed[worker];
    while (!crew.over) {
        if (step(crew, worker, words)) return true;
        if (crew.killed[worker] != before || !crew.findings[worker].empty()) return false;
    }
    return false;
}

void work(Crew &crew, int worker) {
    const std::string place = "w" + std::to_string(worker);
    fs::create_directory(crew.play.copy() / place);
    for (int round = 0; !crew.over && crew.findings[worker].empty(); ++round) {
        const std::string name = place + "/" + std::to_string(round % 5) + ".txt";
        const std::string message = place + "-" + std::to_string(round);
        write(crew.play.copy() / name, message + "\n");
        if (!persist(crew, worker, {"zev", "add", name})) continue;
        if (persist(crew, worker, {"zev", "commit", "-m", message, name}))
            crew.committed[worker].push_back(message);
        const std::string moved = place + "/moved" + std::to_string(round) + ".txt";
        if (round % 3 == 1) persist(crew, worker, {"zev", "mv", name, moved});
        if (round % 3 == 2) persist(crew, worker, {"zev", "rm", name});
    }
}

void kill_some(Crew &crew, int seconds) {
    using namespace std::chrono;
    std::mt19937 chance(1);
    const auto end = steady_clock::now() + std::chrono::seconds(seconds);
    for (auto next = steady_clock::now(); next < end;) {
        next += milliseconds(900 + chance() % 200);
        std::this_thread::sleep_until(next);
        const size_t first = chance() % kWorkers;
        for (size_t i = 0; i < kWorkers && !crew.targets[(first + i) % kWorkers].kill(); ++i)
            ;
    }
    crew.over = true;
}

void must(std::string &fault, const char *what, const Outcome &outcome) {
    if (fault.empty() && outcome.code != 0) fault = std::string(what) + ": " + outcome.text;
}

std::string judge_crew(const Crew &crew) {
    const Play &play = crew.play;
    for (const Words &findings : crew.findings)
        if (!findings.empty()) return findings[0];
    if (!read(play.root / "witness").empty()) return "two were in the lock";
    std::string fault;
    must(fault, "fsck", play.run({"git", "fsck", "--strict"}));
    must(fault, "verify", play.run({"zev", "verify"}));
    const Outcome log = play.run({"git", "log", "--format=%s"});
    must(fault, "log", log);
    for (const Words &messages : crew.committed)
        for (const std::string &message : messages)
            if (fault.empty() && ("\n" + log.text).find("\n" + message + "\n") == log.text.npos)
                fault = message + " was committed and is gone";
    write(play.copy() / "next.txt", "the next day\n");
    must(fault, "add", play.run({"zev", "add", "."}));
    must(fault, "commit", play.run({"zev", "commit", "-m", "next", "."}));
    const Outcome status = play.run({"git", "status", "--porcelain", "-uall"});
    must(fault, "status", status);
    return fault.empty() && !status.text.empty() ? "not clean: " + status.text : fault;
}

int sum(const std::array<int, kWorkers> &numbers) {
    int all = 0;
    for (int number : numbers) all += number;
    return all;
}

} // namespace

bool four_at_work(const Play &play, int seconds) {
    Crew crew{play};
    std::vector<std::thread> threads;
    for (int worker = 0; worker < kWorkers; ++worker)
        threads.emplace_back([&crew, worker] {
            try {
                work(crew, worker);
            } catch (const std::exception &error) {
                crew.findings[worker].push_back(error.what());
            }
        });
    kill_some(crew, seconds);
    for (std::thread &thread : threads) thread.join();
    size_t commits = 0;
    for (const Words &messages : crew.committed) commits += messages.size();
    const std::string fault = judge_crew(crew);
    printf("four at work for %d s: %d runs, %d found it locked, %d killed, %zu commits: %s\n",
           seconds, sum(crew.runs), sum(crew.locked), sum(crew.killed), commits,
           fault.empty() ? "all well" : fault.c_str());
    return fault.empty();
}

} // namespace torture
