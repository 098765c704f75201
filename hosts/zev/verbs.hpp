// Verbs: one function each, which throws Failed or gives the exit code.
#pragma once

#include "copy.hpp"
#include "notify.hpp"

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
    const Notify *notify;
};

struct CommitOptions {
    std::string message;
    std::string author; // empty: ZEV_AUTHOR, else the login name
    Paths paths;        // none: what was added
};
struct LogOptions {
    std::string revision = "HEAD";
    uint64_t count = UINT64_MAX;
};
struct ImportOptions {
    std::string source;
    std::string drawing; // empty: the source's name with .dwx
};
struct ExportOptions {
    std::string drawing;
    std::string target;   // empty: the drawing's name with .dxf; "-": stdout
    std::string revision; // empty: as it stands in the work directory
    bool force = false;   // a target that was not named may be replaced
};
struct DiffOptions {
    std::string drawing;
    std::string from, to; // revisions; empty: HEAD, the work directory
};

int init(Host &host, const std::string &directory);
int add(Host &host, const Paths &paths);
int make_directories(Host &host, const Paths &paths);
int move(Host &host, const std::string &from, const std::string &to);
int commit(Host &host, const CommitOptions &options);
int status(Host &host, const Paths &paths);
int log(Host &host, const LogOptions &options);
int show(Host &host, const std::string &revision);
int cat(Host &host, const std::string &revision_path);
int import_drawing(Host &host, const ImportOptions &options);
int export_drawing(Host &host, const ExportOptions &options);
int diff(Host &host, const DiffOptions &options);
int verify(Host &host);

// Names of entry kinds for programs, and their colours.
const char *kind_name(int32_t kind);
Colour kind_colour(int32_t kind);
std::string padded(const std::string &text, size_t width);

} // namespace host
