// init: the directories of a service, its settings, and the administrator's password.
#include "service.hpp"
#include "verb.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

// Paths are taken from where the file is, so that the directory can be moved.
constexpr const char *kSettings = R"({
  "schema": "http",
  "path": {
    "repos": "repos",
    "data": "."
  },
  "http": {
    "host": "localhost",
    "port": 3001,
    "timeout": 60,
    "auth": "required",
    "log": {
      "access": "logs/requests.log",
      "audit": "logs/audit.log"
    }
  }
}
)";

struct Options {
    std::string directory;
    bool from_stdin = false;
};

void declare(Command &verb, Options &options) {
    verb.description("Make the directories and the settings of a new service");
    verb.footer(
        "The user \"admin\" gets the password that is asked for, or the first line of stdin\n"
        "with --password-stdin.\n"
        "Examples:\n  zevd init /srv/zev\n"
        "  zevd init /srv/zev --password-stdin < secret");
    verb.add_option("directory", options.directory, "Where all of it goes")
        ->type_name("DIR")
        ->required();
    verb.add_flag("--password-stdin", options.from_stdin, "Read the password from stdin");
}

// Runs a step on an open file, which is closed whatever comes of it.
void with_file(const std::string &path, int flags, bool (*step)(int fd)) {
    const int fd = open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, 0600);
    const bool done = fd >= 0 && step(fd);
    const int code = errno;
    if (fd >= 0) close(fd);
    if (!done) throw Failed(kSystem, code, path + ": " + strerror(code));
}

bool write_settings(int fd) {
    const size_t size = strlen(kSettings);
    return write(fd, kSettings, size) == static_cast<ssize_t>(size) && fsync(fd) == 0;
}

// The whole file or none, whenever this is killed, and never in the place of another. When it
// returns all of the service is on the disk.
void name_settings(const fs::path &directory, const std::string &file) {
    const std::string aside = file + ".new";
    unlink(aside.c_str()); // of one that was killed
    with_file(aside, O_WRONLY | O_CREAT | O_EXCL, write_settings);
    check(zMove(wide(aside).c_str(), wide(file).c_str(), false), file);
    with_file(directory.string(), O_RDONLY | O_DIRECTORY, [](int fd) { return syncfs(fd) == 0; });
}

// The settings come last: without them a second try begins anew.
int run(const std::string &, const Options &options) {
    const fs::path directory = fs::absolute(options.directory).lexically_normal();
    const std::string file = (directory / "server.conf").string();
    if (fs::exists(file)) throw Failed(kExists, file + ": is there already");
    const std::string password = read_password("admin", options.from_stdin);
    make_data(directory.string());
    check(zPathSetAppData(wide(directory.string()).c_str(), nullptr), directory.string());
    {
        const ServiceLock lock((directory / "repos").string(), false);
        const Module module = open_module();
        set_password(*module, "admin", password);
        unlock(*module, "admin"); // as one without a password is
    }
    name_settings(directory, file);
    printf("a new service in %s; serve it: zevd --config %s\n", directory.c_str(), file.c_str());
    return kDone;
}

} // namespace

extern const Verb kInitVerb{"init", bind<Options, declare, run>};

} // namespace host
