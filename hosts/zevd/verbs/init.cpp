// init: the directories of a service, its settings, and the administrator's password.
#include "service.hpp"
#include "verb.hpp"

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

void declare(CLI::App &verb, Options &options) {
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

// A file that nobody overwrites, on the disk when this returns.
void write_new(const std::string &path, const char *text) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) throw Failed(kExists, path + ": " + strerror(errno));
    const size_t size = strlen(text);
    const bool written = write(fd, text, size) == static_cast<ssize_t>(size) && fsync(fd) == 0;
    close(fd);
    if (!written) throw Failed(kOther, path + ": can't be written");
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
    write_new(file, kSettings);
    printf("a new service in %s; serve it: zevd --config %s\n", directory.c_str(), file.c_str());
    return kDone;
}

} // namespace

extern const Verb kInitVerb{"init", bind<Options, declare, run>};

} // namespace host
