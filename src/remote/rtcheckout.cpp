// A new working copy from a server: an empty repository that follows the server's, bound to one of
// its branches, and then filled by an update. No history comes along.
//
// The repository is made in a directory of its own, ".zev-XXXXXXXX" in the new copy, and moves to
// its place when it is bound. So nobody meets half of one, of two who begin at a time one has it,
// and what a failure takes away is what was made here and nothing else. What one who was killed
// leaves of such a directory doesn't make the place taken, and goes when the next copy stands.
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
#include <vector>

using namespace zev;

namespace {

constexpr const zwchar *kFirstBranch = u"refs/heads/master"; // whatever the user's settings say
constexpr std::u16string_view kStage = u".zev-";             // and digits
constexpr size_t kDigits = 8;

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

bool is_stage(const os::Name &name) {
    const std::u16string_view text(name.text);
    return name.directory && text.size() == kStage.size() + kDigits && text.starts_with(kStage) &&
           text.find_first_not_of(u"0123456789abcdef", kStage.size()) == text.npos;
}

struct Content {
    std::vector<std::u16string> stages;
    bool has_others = false;
};

Content content_of(const zwchar *directory) {
    Content content;
    std::vector<os::Name> names;
    content.has_others = !os::read_dir(directory, &names);
    for (const os::Name &name : names) {
        if (name.text == u"." || name.text == u"..") continue;
        if (is_stage(name))
            content.stages.push_back(directory + (u'/' + name.text));
        else
            content.has_others = true;
    }
    return content;
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
        zPathFileExists(path_) || (zPathDirExists(path_) && content_of(path_).has_others);
    return !is_taken || ask();
}

bool NewCopy::make_place() {
    Oid id;
    if (!zOidRand(&id)) return false;
    made_directory_ = os::make_dir(path_);
    if (!made_directory_ && errno == ENOENT) {
        os::make_dirs(std::u16string(path_, parent_length(path_)).c_str());
        made_directory_ = os::make_dir(path_);
    }
    if (!made_directory_ && errno != EEXIST) return fail_os(errno, path_);
    stage_ = path_ + (u'/' + std::u16string(kStage) + id_text(id).substr(0, kDigits));
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
    for (const std::u16string &stage : content_of(path_).stages)
        os::remove_tree(stage.c_str(), false); // whoever still works in one came too late
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
