// The failure idiom: raise, log, return, as one expression at its place, `return fail_args();`.
// A result turns into false or null; where a function fails with a number, say it:
// `return fail_args(), -1;`.
#pragma once

#include "zev/error.h"

#include <concepts>

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

Failure fail_args(Here at = {});          // bad argument: class 2, logged at level 3
Failure fail_memory(Here at = {});        // out of memory: class 1, logged at level 2
Failure fail_git(int code);               // libgit2's code and text, not logged
Failure fail_raised(Here at = {});        // logs at level 3 what the record holds
Failure fail_std(int host_errno);         // class by errno, no message, not logged
Failure fail_thrown(Here at = {});        // in a handler: bad_alloc is memory, others class -1
void log_raised(int level, Here at = {}); // one log line of zErrorDetail, facility 4

} // namespace zev
