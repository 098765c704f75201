// The failure idiom: raise, log, return, as one expression at its place, `return fail_args();`.
// A result turns into false or null; where a function fails with a number, say it:
// `return fail_args(), -1;`. Above this folder nothing raises in another way.
#pragma once

#include "common/log_level.hpp"
#include "zev/error.h"

#include <concepts>
#include <string>

namespace zev {

// Where a failure happened. As a default argument it names the caller's line.
struct Here {
    const char *file = __builtin_FILE();
    int line = __builtin_LINE();
};

struct Failure {
    operator bool() const { return false; }
    template <class T> operator T *() const { return nullptr; }
    template <std::integral T>
    requires(!std::same_as<T, bool>) operator T() const = delete;
};

// What a failure is about, as its message: wide text or UTF-8, lent until the call returns.
struct About {
    About() = default;
    About(const zwchar *text) : wide(text) {}
    About(const std::u16string &text) : wide(text.c_str()) {}
    About(const char *text) : narrow(text) {}
    About(const std::string &text) : narrow(text.c_str()) {}

    const zwchar *wide = nullptr;
    const char *narrow = nullptr;
};

// raise_...: into the error record alone, the caller above may have an answer to it.
Failure raise_not_found(About what = {});          // class 3
Failure raise_exists(About what = {});             // class 4
Failure raise_range(About what = {});              // class 5
Failure raise_canceled();                          // class 6
Failure raise_locked(About what);                  // class 7
Failure raise_args(About what = {});               // class 2 about one of the arguments
Failure raise_kvdb(About what = {});               // class 13, of a drawing's table
Failure raise_net(int code, const zwchar *reason); // class 15, of a peer
Failure raise_uv(int code, About what = {});       // libuv's code
Failure raise_module(int host_errno, const zwchar *path, const zwchar *reason); // class 9
Failure raise_socket(int code, About what = {});       // errno, or a resolver's EAI_ code
Failure raise_other(const zwchar *reason, About what); // class -1, of another library

// fail_...: these are logged, but for the system's and libgit2's own.
Failure fail_args(Here at = {});                  // bad argument: class 2, logged at level 3
Failure fail_memory(Here at = {});                // out of memory: class 1, logged at level 2
Failure fail_git(int code);                       // libgit2's code and text
Failure fail_os(int host_errno, About what = {}); // class by errno
Failure fail_raised(Here at = {});                // logs at level 3 what the record holds
Failure fail_thrown(Here at = {}); // in a handler: bad_alloc is memory, others class -1
// One log line of zErrorDetail.
void log_raised(LogLevel level, Here at = {}, LogFacility facility = kFacilityZev);

// What the record holds outlives a clean-up that may raise on its own: put back at the end.
class KeptFailure {
  public:
    KeptFailure();
    ~KeptFailure();
    KeptFailure(const KeptFailure &) = delete;
    KeptFailure &operator=(const KeptFailure &) = delete;

  private:
    int32_t class_, code_;
    std::u16string message_, reason_;
};

// `return logged(raise_not_found(path));`
inline Failure logged(Failure, Here at = {}) { return fail_raised(at); }

} // namespace zev
