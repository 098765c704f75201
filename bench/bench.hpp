// What the benchmark programs share: sizes from the environment, times, and the line of a figure.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace bench {

inline uint64_t size(const char *name, uint64_t otherwise) {
    const char *text = getenv(name);
    return text ? strtoull(text, nullptr, 10) : otherwise;
}

// Milliseconds of one run of `work`.
template <class F> double once(F work) {
    auto start = std::chrono::steady_clock::now();
    work();
    std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
    return took.count();
}

// The median of several runs, `reset` before each, not timed.
template <class F, class R> double median(F work, R reset, int runs = 5) {
    std::vector<double> times;
    for (int n = 0; n < runs; ++n) {
        reset();
        times.push_back(once(work));
    }
    std::ranges::nth_element(times, times.begin() + runs / 2);
    return times[static_cast<size_t>(runs / 2)];
}
template <class F> double median(F work, int runs = 5) {
    return median(
        work, [] {}, runs);
}

inline void line(const char *scenario, const char *peer, const char *metric, double value) {
    printf("%s %s %s %.3f\n", scenario, peer, metric, value);
}

// Ours and the peer's figure, and the ratio that the goal is about: ours through the peer's.
inline void compare(const char *scenario, const char *peer, const char *metric, double ours,
                    double theirs) {
    line(scenario, "zev", metric, ours);
    line(scenario, peer, metric, theirs);
    line(scenario, peer, "ratio", ours / theirs);
}

// Both by turns, so that they meet the same machine: the medians of their times, and of the ratios.
// Each gives the milliseconds that it took.
template <class F, class G>
void by_turns(const char *scenario, const char *peer, F ours, G theirs, int runs = 5) {
    std::vector<double> mine, others, ratios;
    for (int n = 0; n < runs; ++n) {
        mine.push_back(ours());
        others.push_back(theirs());
        ratios.push_back(mine.back() / others.back());
    }
    const auto middle = [&](std::vector<double> &values) {
        std::ranges::nth_element(values, values.begin() + runs / 2);
        return values[static_cast<size_t>(runs / 2)];
    };
    line(scenario, "zev", "ms", middle(mine));
    line(scenario, peer, "ms", middle(others));
    line(scenario, peer, "ratio", middle(ratios));
}

// A directory of the run's own, removed at its end.
class Scratch {
  public:
    Scratch() {
        std::string name = (std::filesystem::temp_directory_path() / "zev-bench-XXXXXX").string();
        if (!mkdtemp(name.data())) exit(1);
        path_ = name;
        setenv("XDG_DATA_HOME", (name + "/desktop").c_str(), 1); // what is displaced goes there
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;
    const std::filesystem::path &path() const { return path_; }
    std::u16string operator/(const char16_t *name) const { return path_.u16string() + u"/" + name; }

  private:
    std::filesystem::path path_;
};

using File = std::unique_ptr<FILE, int (*)(FILE *)>;

// Random numbers that are the same in every run.
class Random {
  public:
    explicit Random(uint64_t seed) : state_(seed) {}
    uint64_t next() {
        state_ += 0x9E3779B97F4A7C15;
        uint64_t z = state_;
        z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9;
        z = (z ^ z >> 27) * 0x94D049BB133111EB;
        return z ^ z >> 31;
    }
    uint64_t below(uint64_t limit) { return next() % limit; }

  private:
    uint64_t state_;
};

} // namespace bench
