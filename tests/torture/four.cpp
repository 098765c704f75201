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

struct Worker {
    Target target{};
    int runs = 0, locked = 0, killed = 0;
    Words committed{};     // messages
    std::string finding{}; // what went wrong first
};

struct Crew {
    const Play &play;
    std::atomic<bool> over = false;
    std::array<Worker, kWorkers> workers{};
};

// One step of a worker; true when it was done. Only waiting and dying are no findings.
bool step(const Crew &crew, Worker &worker, Words words) {
    const Outcome outcome = crew.play.run(words,
                                          {{"LD_PRELOAD", crew.play.programs->preload},
                                           {"ZEV_TORTURE_WITNESS", crew.play.root / "witness"}},
                                          &worker.target);
    ++worker.runs;
    worker.locked += outcome.code == kLocked;
    worker.killed += outcome.code == kKilled;
    if (outcome.code != 0 && outcome.code != kLocked && outcome.code != kKilled)
        worker.finding = words[1] + " gives " + std::to_string(outcome.code) + ": " + outcome.text;
    return outcome.code == 0;
}

// The same again for as long as others are in the way.
bool persist(const Crew &crew, Worker &worker, const Words &words) {
    const int before = worker.killed;
    while (!crew.over && worker.killed == before && worker.finding.empty())
        if (step(crew, worker, words)) return true;
    return false;
}

void work(const Crew &crew, Worker &worker, const std::string &place) {
    fs::create_directory(crew.play.copy() / place);
    for (int round = 0; !crew.over && worker.finding.empty(); ++round) {
        const std::string name = place + "/" + std::to_string(round % 5) + ".txt";
        const std::string message = place + "-" + std::to_string(round);
        write(crew.play.copy() / name, message + "\n");
        if (!persist(crew, worker, {"zev", "add", name})) continue;
        if (persist(crew, worker, {"zev", "commit", "-m", message, name}))
            worker.committed.push_back(message);
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
        for (size_t i = 0; i < kWorkers && !crew.workers[(first + i) % kWorkers].target.kill(); ++i)
            ;
    }
    crew.over = true;
}

std::string judge_crew(const Crew &crew) try {
    const Play &play = crew.play;
    for (const Worker &worker : crew.workers)
        if (!worker.finding.empty()) return worker.finding;
    if (!read(play.root / "witness").empty()) return "two were in the lock";
    must("fsck", play.run({"git", "fsck", "--strict"}));
    must("verify", play.run({"zev", "verify"}));
    const Outcome log = play.run({"git", "log", "--format=%s"});
    must("log", log);
    for (const Worker &worker : crew.workers)
        for (const std::string &message : worker.committed)
            if (("\n" + log.text).find("\n" + message + "\n") == log.text.npos)
                return message + " was committed and is gone";
    write(play.copy() / "next.txt", "the next day\n");
    must("add", play.run({"zev", "add", "."}));
    must("commit", play.run({"zev", "commit", "-m", "next", "."}));
    const Outcome status = play.run({"git", "status", "--porcelain", "-uall"});
    must("status", status);
    return status.text.empty() ? "" : "not clean: " + status.text;
} catch (const std::exception &error) {
    return error.what();
}

} // namespace

bool four_at_work(const Play &play, int seconds) {
    Crew crew{play};
    std::vector<std::thread> threads;
    for (Worker &worker : crew.workers)
        threads.emplace_back([&crew, &worker, place = "w" + std::to_string(threads.size())] {
            try {
                work(crew, worker, place);
            } catch (const std::exception &error) {
                worker.finding = error.what();
            }
        });
    kill_some(crew, seconds);
    for (std::thread &thread : threads) thread.join();
    int runs = 0, locked = 0, killed = 0;
    size_t commits = 0;
    for (const Worker &worker : crew.workers) {
        runs += worker.runs, locked += worker.locked, killed += worker.killed;
        commits += worker.committed.size();
    }
    const std::string fault = judge_crew(crew);
    printf("four at work for %d s: %d runs, %d found it locked, %d killed, %zu commits: %s\n",
           seconds, runs, locked, killed, commits, fault.empty() ? "all well" : fault.c_str());
    return fault.empty();
}

} // namespace torture
