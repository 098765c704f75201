// Log: one line to the console and to the log file of its level.
#ifndef ZEV_LOG_H
#define ZEV_LOG_H

#include "zev/base.h"

ZEV_BEGIN

// zLogReport writes one line, cut at 1024 characters, control characters escaped.
//
// Levels 0 emerg, 1 alert, 2 critical, 3 error and 4 warning go to stderr and error.log and name
// `path` and `line`; 5 notice and 6 info go to stdout and message.log, 8 access to stdout and
// access.log, 7 debug and all others to stdout only. Facilities: 0 sys, 1 std, 2 vcs, 3 net,
// 4 zev, 5 srv, 6 usr, others unknown. The files lie in logs below the application data; one
// above 32 MiB becomes <name>.old first. What can't be written there goes to zev/logs in the user's
// state directory. A null format logs "Unknown Error".
//
// False if neither can be written to, with the standard error raised where the console has the
// line. Otherwise errno, and with the console off what was raised before, is left as it was.
ZEV_API bool zLogReport(const char *path, int32_t line, int32_t level, int32_t facility,
                        const zwchar *format, ...);

// Whether lines go to the console, as at first; they go to their files in any case. For programs
// whose terminal, or whose output, is their own. Of the whole process; gives what it was.
ZEV_API bool zLogConsole(bool on);

ZEV_END
#endif
