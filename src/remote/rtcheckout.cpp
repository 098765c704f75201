// A new working copy from a server: an empty repository that follows the server's, bound to one of
// its branches, and then filled by an update. No history comes along.
#include "remote/update_context.hpp"

#include "objects/notify/dialogs.hpp"
#include "zev/dir.h"
#include "zev/file.h"
#include "zev/path.h"
#include "zev/reference.h"

#include <string>

using namespace zev;

namespace {

constexpr const zwchar *kFirstBranch = u"refs/heads/master"; // whatever the user's settings say

// Of the two names for "whatever there is" the empty one is no branch to anybody else.
std::u16string branch_in_use(const CheckSpec *spec) {
    const zwchar *branch = spec ? zCheckSpecBranch(spec) : nullptr;
    if (!branch || !*branch || zStrcasesameW(branch, u"HEAD")) return kFirstBranch;
    return branch;
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
    bool bind(const std::u16string &branch);
    Failure tell(const zwchar *key, const zwchar *argument = nullptr) {
        return notify_error(notify_, key, argument);
    }

    const zwchar *url_, *path_;
    const Notify *notify_;
    CheckSpecPtr spec_;
    Owned<Repository, zRepositoryFree> repository_;
    RemotePtr remote_;
    bool keeps_directory_ = true; // it was there before, or is done
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
    const bool is_there = zPathDirExists(path_);
    const bool is_taken = zPathFileExists(path_) || (is_there && !zPathDirEmpty(path_));
    if (is_taken && !ask()) return false;
    keeps_directory_ = is_there;
    return true;
}

// ---- The copy

bool NewCopy::set_up(const CheckSpec *given, const std::u16string &branch) {
    spec_.reset(given ? zCheckSpecDup(given) : zCheckSpecNew());
    const zwchar *named = spec_ ? zCheckSpecBranch(spec_.get()) : nullptr;
    if (!spec_ || (named && !*named && !zCheckSpecSetBranch(spec_.get(), branch.c_str())))
        return tell(u"odb.eUnableToResolvePathspec");
    if (!free_place()) return false;
    repository_.reset(zRepositoryInit(path_, false));
    if (!repository_) return tell(u"odb.eFailedToCreateWorkingCopy");
    remote_.reset(zRemoteSetup(repository_.get(), url_));
    if (!remote_) return tell(u"odb.eFailedToCreateWorkingCopy");
    return bind(branch);
}

// A name without a short form is none that a server gives out.
bool NewCopy::bind(const std::u16string &branch) {
    const zwchar *name = zBranchShorthand(branch.c_str());
    if (name == branch.c_str())
        return raise_not_found(branch), tell(u"odb.eNoSuchRevision_s", branch.c_str());
    if (!zBranchInit(repository_.get(), name, zRemoteName(remote_.get()), branch.c_str()) ||
        !zReferenceSetHead(repository_.get(), branch.c_str()))
        return tell(u"odb.eFailedToCreateWorkingCopy");
    return keeps_directory_ = true;
}

// What was made goes; what stands there and isn't ours never was looked at.
void NewCopy::clear_up() {
    const KeptFailure kept;
    remote_.reset();
    repository_.reset();
    if (!keeps_directory_) zDirRemove(path_, true, true);
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
