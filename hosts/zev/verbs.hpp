// Verbs: one function each, which throws Failed or gives the exit code.
#pragma once

#include "copy.hpp"
#include "notify.hpp"
#include "width.hpp"

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
};

struct CommitOptions {
    std::string message;
    std::string author; // empty: ZEV_AUTHOR, else the login name
    Paths paths;        // none: what was added
};
struct RevertOptions {
    Paths paths;      // none: everything, after a question
    bool all = false; // without one
};
struct MergeOptions {
    std::string branch; // or any commit
    bool force = false; // local changes go to the trash, after a question
};
struct SwitchOptions {
    std::string target; // a branch, else a commit
    bool create = false;
    bool force = false;
};
struct VerifyOptions {
    bool quick = false; // that everything is there, without reading all of it
};
struct BranchOptions {
    std::string name; // empty: list them
    std::string revision;
    bool remove = false;
};
struct ConfigOptions {
    std::string key;
    std::optional<std::string> value;
    bool unset = false;
};
struct CleanupOptions {
    bool keep_untracked = false;
    bool purge = false; // deletes for good, after a question
};
struct StatusOptions {
    Paths paths; // none: everything
    bool brief = false;
    bool ignored = false;
};
struct LogOptions {
    Paths words;                       // a revision, paths
    std::optional<size_t> behind_mark; // so many of them, all paths, stand behind a "--"
    Paths authors, not_authors, texts;
    std::string since, until;
    std::string object; // handle of one in the drawing that is the only path
    uint64_t count = UINT64_MAX;
    bool changes = false;
};
struct ShowOptions {
    std::string revision = "HEAD";
    bool stat = false;
};
struct BlameOptions {
    std::string drawing;
    std::string revision = "HEAD";
};
struct ImportOptions {
    Paths words; // DXF files; a .dwx file or a directory may come last
};
struct ExportOptions {
    std::string drawing;
    std::string target;   // empty: the drawing's name with .dxf; "-": stdout
    std::string revision; // empty: as it stands in the work directory
    bool force = false;   // a target that was not named may be replaced
};
struct DiffOptions {
    std::string drawing;  // empty: all that were changed
    std::string from, to; // revisions; empty: HEAD, the work directory
    bool stat = false;    // totals in place of the objects
    bool brief = false;   // objects without their fields
    bool full = false;    // the fields of added and removed objects, too
};
struct ResolveOptions {
    bool mine = false, theirs = false, both = false; // one of them
    bool all = false;                                // in place of paths
    Paths paths;
};
struct RestoreOptions {
    Paths entries;       // the paths that they had, digits of ids, or patterns
    std::string target;  // a directory; empty: each to where it came from
    bool newest = false; // of several with one path
};
struct PurgeOptions {
    int32_t days = -1; // what is at least that old
    bool all = false;  // or everything
};

int init(Host &host, const std::string &directory);
int add(Host &host, const Paths &paths);
int make_directories(Host &host, const Paths &paths);
int move(Host &host, const std::string &from, const std::string &to);
int remove(Host &host, const Paths &paths);
int revert(Host &host, const RevertOptions &options);
int changes(Host &host, const Paths &paths);
int list(Host &host, const std::string &directory);
int commit(Host &host, const CommitOptions &options);
int status(Host &host, const StatusOptions &options);
int log(Host &host, const LogOptions &options);
int show(Host &host, const ShowOptions &options);
int cat(Host &host, const std::string &revision_path);
int import_drawing(Host &host, const ImportOptions &options);
int export_drawing(Host &host, const ExportOptions &options);
int diff(Host &host, const DiffOptions &options);
int blame(Host &host, const BlameOptions &options);
int verify(Host &host, const VerifyOptions &options);
int merge(Host &host, const MergeOptions &options);
int switch_to(Host &host, const SwitchOptions &options);
int branch(Host &host, const BranchOptions &options);
int config(Host &host, const ConfigOptions &options);
int cleanup(Host &host, const CleanupOptions &options);
int undo(Host &host);
int conflicts(Host &host, const Paths &paths);
int resolve(Host &host, const ResolveOptions &options);
int trash_list(Host &host, const std::string &pattern);
int trash_find(Host &host, const std::string &pattern);
int trash_restore(Host &host, const RestoreOptions &options);
int trash_purge(Host &host, const PurgeOptions &options);

// Who a commit is by: the name given, else ZEV_AUTHOR, else the login name.
std::string author_of(const std::string &given);

// A merge that ended in conflicts: the line that the commit which settles it is to end with, empty
// without one; and its end.
std::string unfinished_merge(const WorkingCopy &copy);
void finish_merge(const WorkingCopy &copy);
void require_no_merge(const WorkingCopy &copy); // throws while there is one
void forget_merge(const WorkingCopy &copy);     // if nothing is left of it

// A new branch; replaces one of that name.
void make_branch(const WorkingCopy &copy, const std::string &name, const Commit *commit);

// Names of entry kinds for programs, and their colours.
const char *kind_name(int32_t kind);
Colour kind_colour(int32_t kind);

} // namespace host
