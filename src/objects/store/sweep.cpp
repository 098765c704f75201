// Which left-overs may go.
//
// libgit2 and git lock a file X by creating X.lock, and write objects under temporary names. A
// killed writer leaves those behind: its objects only cost space, but its locks stop every later
// writer, and nothing in them tells a dead owner from a live one. Age tells nothing either: git
// holds index.lock for as long as somebody writes a commit message.
//
// Our own lock tells more. All writers of this library hold the Flock on the file that they
// change first (.index.zlck for a change of the working copy, .config.zlck for one of the
// configuration) and take it away when they are done. So a lock file there that nobody holds was
// left by a killed writer, and it was written when his work began. Hence the rule:
//
//   1. no left-over lock file of ours, or one that is held: nobody crashed, touch nothing;
//   2. else, holding the left-over itself, so that no other writer of ours can begin: remove the
//      locks and temporary files whose time is not before its own and that no process has open.
//
// A lock that was there before the killed writer began is not his and stays: he would have failed
// on it. What remains is a git that began after the crash, closed its lock file, and waits; its
// commit then fails for want of its lock, with nothing lost.
//
// The directory tmp_pack_ of a killed receiver of packs goes by the same rule only, with the next
// left lock: a receiver holds no lock of ours, and what it has open tells of it only while it
// writes. It costs space and stands in nobody's way.
//
// A server takes none of our locks for its objects and references. It knows itself whether it was
// killed, and since when it had run: that time stands for the left-over then.
//
// The same goes for what a killed writer had beside the files of the user while it made them anew
// (tmp_zev_ and 16 digits): else the next commit of everything would take it in.
#include "objects/store/sweep.hpp"

#include "objects/store/loose_object.hpp"
#include "objects/store/reference.hpp"

#include "common/errno.hpp"
#include "common/utf.hpp"
#include "system/flock.hpp"
#include "system/os.hpp"
#include "system/share.hpp"
#include "zev/repository.h"

#include <cerrno>
#include <cstdio>
#include <string>
#include <string_view>

using namespace zev;

namespace {

using std::u16string;
using std::u16string_view;
using Name = bool (*)(u16string_view);

bool is_lock(u16string_view name) { return name.ends_with(u".lock"); }
bool is_temporary(u16string_view name) {
    return name.starts_with(u"tmp_") || name.starts_with(u"pack_git2_");
}

bool is_aside(u16string_view name) {
    constexpr u16string_view kLead = u"tmp_zev_";
    return name.starts_with(kLead) && name.size() == kLead.size() + 16 &&
           name.find_first_not_of(u"0123456789abcdef", kLead.size()) == name.npos;
}

bool before(const timespec &a, const timespec &b) {
    return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_nsec < b.tv_nsec;
}

struct Sweep {
    u16string root;   // Git directory, with its last slash
    timespec since{}; // when the killed writer began
    bool clean = true;

    // Is it a left-over by the rule above?
    bool left(const u16string &path) const {
        struct stat status;
        if (!os::lstat(path.c_str(), &status) || !S_ISREG(status.st_mode)) return false;
        if (before(status.st_mtim, since)) return false;
        Owned<FILE, fclose> file(os::open(path.c_str(), u"rb"));
        return file && os::open_elsewhere(fileno(file.get())) != 1;
    }

    void remove(const u16string &path) {
        if (left(path) && !os::unlink(path.c_str()) && errno != ENOENT)
            clean = fail_errno(path.c_str());
    }

    // The directory that a pack grew in; it stays while somebody still writes there.
    void left_pack(const u16string &path) {
        directory(path + u"/", [](u16string_view) { return true; });
        os::remove_dir(path.c_str());
    }

    // The files in a directory whose names say that they may be left-overs.
    void directory(const u16string &path, Name may_go, bool below = false) {
        std::vector<os::Name> names;
        if (!os::read_dir(path.c_str(), &names)) return;
        for (const os::Name &name : names) {
            if (name.text == u"." || name.text == u"..") continue;
            if (!name.directory && may_go(name.text)) remove(path + name.text);
            if (name.directory && below) directory(path + name.text + u"/", may_go, true);
            if (name.directory && name.text.starts_with(u"tmp_pack_")) left_pack(path + name.text);
        }
    }

    // The log of a reference is written before the reference: one that was only begun would tell of
    // a branch that was lost. `below` is a part of the reference's name.
    void begun_logs(git_repository *git, const std::string &below) {
        const u16string path = root + u"logs/" + to_wide(below);
        std::vector<os::Name> names;
        if (!os::read_dir(path.c_str(), &names)) return;
        for (const os::Name &name : names) {
            if (name.text == u"." || name.text == u"..") continue;
            const std::string next = below + to_utf8(name.text);
            if (name.directory)
                begun_logs(git, next + "/");
            else if (left(path + name.text))
                drop_begun_log(git, next.c_str());
        }
    }

    // Objects that a loss of power left empty. Their age doesn't matter: none is ever made so, and
    // libgit2 sets it back, to the whole second, when it comes upon an object that is there.
    void hollow_objects(const u16string &directory, const u16string &below = {}) {
        std::vector<os::Name> names;
        if (!os::read_dir((directory + below).c_str(), &names)) return;
        for (const os::Name &name : names) {
            if (below.empty() && name.directory && name.text.size() == 2 && name.text != u"..")
                hollow_objects(directory, name.text + u"/");
            else if (!below.empty() && name.text.size() == 38)
                clean = drop_hollow(directory, below + name.text) && clean;
        }
    }

    // The same among the files of the user, in directories that are no repositories.
    void work_tree(const u16string &path) {
        std::vector<os::Name> names;
        if (!os::read_dir(path.c_str(), &names)) return;
        for (const os::Name &name : names) {
            if (name.text == u"." || name.text == u".." || name.text == u".git") continue;
            if (name.directory)
                work_tree(path + name.text + u"/");
            else if (is_aside(name.text))
                remove(path + name.text);
        }
    }
};

// Calls `work` with the sweep of a Git directory whose `guard` a killed writer left locked.
template <class F> bool swept(u16string root, u16string_view guard, F work) {
    const u16string lock = lock_path(root + u16string(guard));
    struct stat status;
    if (!os::lstat(lock.c_str(), &status)) return true;
    const ShareGuard held(zShareOpen(lock.c_str(), u"rb", Z_SHARE_NONE));
    if (!held || !os::lstat(lock.c_str(), &status)) return true;
    Sweep sweep{std::move(root), status.st_mtim};
    work(sweep);
    return sweep.clean;
}

// What all that work with a repository share: references and objects.
void sweep_shared(Sweep &sweep, git_repository *git) {
    sweep.directory(sweep.root, [](u16string_view name) { return name == u"packed-refs.lock"; });
    sweep.directory(sweep.root + u"refs/", is_lock, true);
    sweep.begun_logs(git, "refs/");
    sweep.directory(sweep.root + u"objects/", is_temporary);
    sweep.directory(sweep.root + u"objects/pack/", is_temporary);
    sweep.hollow_objects(sweep.root + u"objects/");
}

bool clear_config(git_repository *handle) {
    const u16string root = to_wide(git_repository_commondir(handle));
    const bool clean = swept(root, u"config", [](Sweep &sweep) {
        sweep.directory(sweep.root,
                        [](u16string_view name) { return name.starts_with(u"config.lock"); });
    });
    return clean && zFlockPurge((root + u"config").c_str());
}

} // namespace

namespace zev {

bool sweep_stale(Repository *repository) try {
    const zwchar *root = zRepositoryPath(repository);
    if (!root || !clear_config(repository->handle.get())) return false;
    return swept(root, u"index", [repository](Sweep &sweep) {
        git_repository *git = repository->handle.get();
        sweep.directory(sweep.root, is_lock);
        sweep.root = to_wide(git_repository_commondir(git));
        sweep_shared(sweep, git);
        if (const zwchar *work = zRepositoryWorkdir(repository)) sweep.work_tree(work);
    });
} catch (...) {
    return fail_thrown();
}

bool sweep_since(Repository *repository, const timespec &since) try {
    git_repository *git = repository->handle.get();
    Sweep sweep{to_wide(git_repository_commondir(git)), since};
    sweep.directory(sweep.root, is_lock);
    sweep_shared(sweep, git);
    return sweep.clean;
} catch (...) {
    return fail_thrown();
}

Lock lock_config(git_repository *handle) try {
    const u16string config = to_wide(git_repository_commondir(handle)) + u"config";
    return Lock(clear_config(handle) ? zFlockOpen(config.c_str(), false) : nullptr);
} catch (...) {
    return Lock(fail_thrown());
}

} // namespace zev
