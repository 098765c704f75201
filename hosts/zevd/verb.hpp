// Verb: what zevd can be told to do. Each file of verbs/ has one, with its options; main.cpp has
// the table of all.
#pragma once

#include "config.hpp"
#include "host.hpp"

#include "command.hpp"

#include <functional>
#include <memory>
#include <string>

namespace host {

// Exit codes; they are part of the interface.
enum Exit : int {
    kDone = 0,
    kFailed = 1,
    kUsage = 2, // of the command line, and of server.conf
    kMissing = 3,
    kRights = 5,
    kHeld = 7
};

// Throws Failed, or gives the exit code. `config` is the path of server.conf.
using Work = std::function<int(const std::string &config)>;

struct Verb {
    const char *name;
    Work (*declare)(Command &); // its help and its options; gives what it does with them
};

// The options live as long as the work.
template <class Options, void declare(Command &, Options &),
          int run(const std::string &config, const Options &)>
Work bind(Command &app) {
    const auto options = std::make_shared<Options>();
    declare(app, *options);
    return [options](const std::string &config) { return run(config, *options); };
}

} // namespace host
