// Service: what every verb stands on: the library with this service's own data, the lock that one
// server has on its projects, the authentication module.
#pragma once

#include "config.hpp"
#include "host.hpp"

#include <string>

namespace host {

// Files of this process are its user's alone, and what it holds in memory never reaches a disk.
void keep_private();

// What errno says about a thing, thrown.
[[noreturn]] void fail_system(const std::string &what);

// As many open files as the system lets, and how many those are: a login shell's 1,024 are fewer
// than the connections of a service with what its requests open.
uint64_t allow_files();

// The library for the length of the run.
struct Library {
    Library() { check(zGlobalInit(nullptr, nullptr), "zevd can't start"); }
    ~Library() { zGlobalCleanup(); }
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;
};

// From here on conf and logs of the library are those of the settings; the texts stay the
// installed ones.
void use_data(const Config &config);
// Makes conf and logs in a directory, and leads conf to the installed texts.
void make_data(const std::string &data);

// The projects are served, or changed by hand, by the holder of this lock. It goes with the
// process. Refused, it is Failed with kLocked.
//
// Its file has a mark in it while they are served, and keeps it when the server is killed. Of
// several that share the directory none can tell whether it is the last, so the mark stays then,
// too: what it costs is one look at all projects.
class ServiceLock {
  public:
    ServiceLock(const std::string &repos, bool shared);
    ~ServiceLock();
    ServiceLock(const ServiceLock &) = delete;
    ServiceLock &operator=(const ServiceLock &) = delete;

    // To be called before the projects are served: takes away what a killed server left there.
    void begin_service();

  private:
    bool clear_up();
    void mark();

    std::string repos_;
    int fd_ = -1;
    bool shared_;
    bool alone_ = false;  // the lock excludes all others
    bool marked_ = false; // the mark is ours to take away
};

// The authentication module without a server around it.
using Module = Owned<AuthTable, zAuthServerShutdown>;
Module open_module();
// Both are Failed where there is no such user, or the store refuses. Unlock tells whether he was
// locked.
void set_password(AuthTable &module, const std::string &user, const std::string &password);
bool unlock(AuthTable &module, const std::string &user);

// A password from the first line of stdin, or asked for twice on the terminal without an echo.
std::string read_password(const std::string &user, bool from_stdin);

} // namespace host
