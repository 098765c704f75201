// Verb: what the command line is made of. Each file of verbs/ has one, with the options that it
// takes and what it does; main.cpp has the table of all.
#pragma once

#include "copy.hpp"
#include "host_notify.hpp"
#include "width.hpp"

#include "command.hpp"

#include <functional>
#include <memory>
#include <optional>

namespace host {

// Exit codes; they are part of the interface.
enum Exit : int {
    kDone = 0,
    kFailed = 1,
    kUsage = 2,
    kMissing = 3,
    kConflicts = 4,
    kRights = 5,
    kBroken = 6,
    kHeld = 7,
    kNetworkDown = 8,
    kServerRefused = 9
};

// What every verb gets.
struct Host {
    Output &out;
    const HostNotify *notify;
    std::optional<size_t> behind_mark; // so many words, all of them paths, stand behind a "--"
};

// Throws Failed, or gives the exit code.
using Work = std::function<int(Host &)>;

enum class Group { work, history, drawings, rescue, server, upkeep }; // under which the help has it

enum class Nature {
    plain,
    paged,     // it only shows something, and much of it
    changes,   // the working copy
    displaces, // changes it, and may put files into the trash, which is noted for "undo"
};

struct Verb {
    const char *name; // "trash list" is below "trash"
    Group group;
    Nature nature;
    Work (*declare)(Command &); // its help and its options; gives what it does with them
};

// The options live as long as the work.
template <class Options, void declare(Command &, Options &), int run(Host &, const Options &)>
Work bind(Command &app) {
    const auto options = std::make_shared<Options>();
    declare(app, *options);
    return [options](Host &host) { return run(host, *options); };
}

} // namespace host
