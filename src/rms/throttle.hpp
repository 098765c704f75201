// Failed log-ins of the last minute, by login and by address. Who failed too often is shut out
// before his password is looked at, which costs a hash. The minute is that of a clock which nobody
// sets: setting the machine's own shuts nobody out for longer, and lets nobody in.
#pragma once

#include "common/limits.hpp"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace zev {

// A login and the address that it came from, as they are counted: the login in one case and cut
// where no valid one goes on, of an IPv6 address the network, which one subscriber has whole.
struct Attempt {
    Attempt(std::u16string_view login, std::u16string_view address);
    std::u16string login, address; // empty for one that is not known
};

// Belongs to one thread. What it holds is bounded: where there is no room, the key whose last
// failure is the oldest goes.
class Throttle {
  public:
    bool is_shut_out(const Attempt &attempt) const;
    void count_failure(const Attempt &attempt);
    bool is_empty() const { return failures_.empty(); }

  private:
    struct Failures {
        std::array<int64_t, limits::login_failures> times{}; // a ring, of os::calls.steady
        uint64_t count = 0;
        int64_t last() const { return times[(count - 1) % times.size()]; }
    };
    bool is_shut(const std::u16string &key, int64_t now) const;
    void count(const std::u16string &key, int64_t now);
    void make_room(int64_t now);

    std::unordered_map<std::u16string, Failures> failures_;
};

} // namespace zev
