// A new working copy from a server: an empty repository that follows the server's, bound to one of
// its branches, and then filled by an update. No history comes along.
//
// The repository is made in a directory of its own, ".zev-XXXXXXXX" in the new copy, and moves to
// its place when it is bound. So nobody meets half of one, of two who begin at a time one has it,
// and what a failure takes away is what was made here and nothing else.
#include "remote/update_context.hpp"

#include "common/errno.hpp"
#include "objects/notify/dialogs.hpp"
#include "system/os.hpp"
#include "zev/file.h"
#include "zev/path.h"
#include "zev/reference.h"
#include "zev/repository.h"

#include <cerrno>
#include <string>
#include <string_view>

using namespace zev;

namespace {

constexpr const zwchar *kFirstBranch = u"refs/heads/master"; // whatever the user's settings say

// Of the two names for "whatever there is" the empty one is no branch to anybody else.
std::u16string branch_in_use(const CheckSpec *spec) {
    const zwchar *branch = spec ? zCheckSpecBranch(spec) : nullptr;
    if (!branch || !*branch || zStrcasesameW(branch, u"HEAD")) return kFirstBranch;
    return branch;
}

// Units of a path up to its last component.
size_t parent_length(std::u16string_view path) {
    while (path.size() > 1 && path.back() == u'/') path.remove_suffix(1);
    const size_t slash = path.find_last_of(u"/\\");
    return slash == path.npos ? 0 : slash;
}

class NewCopy {
  public:
    NewCopy(const zwchar *url, const zwchar *path, const Notify *notify)
        : url_(url), path_(path), notify_(notify) {}

    bool set_up(const CheckSpec *given, const std::u16string &branch);
    bool fill() { return zRemoteUpdate(remote_.get(), spec_.get()); }
    void clear_up();
    bool is_canceled() const { return canceled_; }

  private:
    bool free_place();
    bool ask();
    bool make_place();
    bool bind(const std::u16string &branch);
    bool settle();
    Failure tell(const zwchar *key, const zwchar *argument = nullptr) {
        return notify_error(notify_, key, argument);
    }

    const zwchar *url_, *path_;
    const Notify *notify_;
    CheckSpecPtr spec_;
    Owned<Repository, zRepositoryFree> repository_;
    RemotePtr remote_;
    std::u16string stage_; // where the repository is made
    bool made_directory_ = false;
    bool canceled_ = false;
};

// ---- The place

// The dialog comes back as long as the user only says that he has made room.
bool NewCopy::ask() {
    if (!notify_ || !notify_->dialog) return canceled_ = true, raise_canceled();
    for (;;) {
        const int32_t answer = ask_force_checkout(notify_, path_);
        if (answer == kCheckoutRetry && zPathExists(path_)) continue;
        if (answer == kCheckoutRetry) return true;
        if (answer != kCheckoutForce) return canceled_ = true, raise_canceled();
        return zDrop(path_) || tell(u"sys.eFailedToDelete_s", path_);
    }
}

bool NewCopy::free_place() {
    const bool is_taken =
        zPathFileExists(path_) || (zPathDirExists(path_) && !zPathDirEmpty(path_));
    return !is_taken || ask();
}

bool NewCopy::make_place() {
    constexpr size_t kDigits = 8;
    Oid id;
    if (!zOidRand(&id)) return false;
    made_directory_ = os::make_dir(path_);
    if (!made_directory_ && errno == ENOENT) {
        os::make_dirs(std::u16string(path_, parent_length(path_)).c_str());
        made_directory_ = os::make_dir(path_);
    }
    if (!made_directory_ && errno != EEXIST) return fail_os(errno, path_);
    stage_ = path_ + (u"/.zev-" + id_text(id).substr(0, kDigits));
    return true;
}

// ---- The copy

bool NewCopy::set_up(const CheckSpec *given, const std::u16string &branch) {
    spec_.reset(given ? zCheckSpecDup(given) : zCheckSpecNew());
    const zwchar *named = spec_ ? zCheckSpecBranch(spec_.get()) : nullptr;
    if (!spec_ || (named && !*named && !zCheckSpecSetBranch(spec_.get(), branch.c_str())))
        return tell(u"odb.eUnableToResolvePathspec");
    if (!free_place()) return false;
    if (make_place()) repository_.reset(zRepositoryInit(stage_.c_str(), false));
    if (repository_) remote_.reset(zRemoteSetup(repository_.get(), url_));
    if (!remote_) return tell(u"odb.eFailedToCreateWorkingCopy");
    return bind(branch) && (settle() || tell(u"odb.eFailedToCreateWorkingCopy"));
}

// A name without a short form is none that a server gives out.
bool NewCopy::bind(const std::u16string &branch) {
    const zwchar *name = zBranchShorthand(branch.c_str());
    if (name == branch.c_str())
        return raise_not_found(branch), tell(u"odb.eNoSuchRevision_s", branch.c_str());
    if (!zBranchInit(repository_.get(), name, zRemoteName(remote_.get()), branch.c_str()) ||
        !zReferenceSetHead(repository_.get(), branch.c_str()))
        return tell(u"odb.eFailedToCreateWorkingCopy");
    return true;
}

// From here on it stays, unless it can't be opened there: the directory may be another user's.
bool NewCopy::settle() {
    remote_.reset();
    repository_.reset();
    const std::u16string made = stage_ + u"/.git", place = std::u16string(path_) + u"/.git";
    if (!os::move(made.c_str(), place.c_str(), false)) return fail_os(errno, place);
    repository_.reset(zRepositoryOpen(path_));
    remote_.reset(repository_ ? zRemoteOpen(repository_.get()) : nullptr);
    if (!remote_) return os::move(place.c_str(), made.c_str(), false), false;
    os::remove_dir(stage_.c_str());
    return true;
}

void NewCopy::clear_up() {
    const KeptFailure kept;
    remote_.reset();
    repository_.reset();
    if (!stage_.empty()) os::remove_tree(stage_.c_str(), false);
    if (made_directory_) os::remove_dir(path_); // where others have put something it stays
}

} // namespace

bool zRemoteCheckout(const zwchar *url, const zwchar *path, CheckSpec *spec) try {
    if (!url || !path) return fail_args();
    const Notify *notify = spec ? zCheckSpecNotify(spec) : nullptr;
    const std::u16string branch = branch_in_use(spec);
    zNotifyStart(notify, word(u"action.sCommand"), word(u"action.sCheckout_s_s_s"), url,
                 branch.c_str(), zCheckSpecStringfy(spec));
    NewCopy copy(url, path, notify);
    bool done = false;
    try {
        done = copy.set_up(spec, branch);
    } catch (...) {
        done = fail_thrown();
    }
    if (done) return copy.fill();
    copy.clear_up();
    tell_end(notify, false, copy.is_canceled());
    return false;
} catch (...) {
    return fail_thrown();
}
