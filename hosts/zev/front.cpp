// Connecting brings files back by itself; what it did is found by looking before and after, so that
// no file comes or goes unsaid.
#include "front.hpp"

#include "walks.hpp"

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

// Tracked files that the disk hasn't.
class Missing {
  public:
    explicit Missing(const WorkingCopy &copy)
        : index_(check(zIndexHead(copy.repository(), false))),
          root_(open(copy.root().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
    ~Missing() {
        if (root_ >= 0) close(root_);
    }

    std::vector<std::string> find() {
        std::vector<std::string> paths;
        each_entry_of(index_.get(), [&](const IndexEntry *entry) {
            if (zIndexEntryStage(entry)) return; // a conflict stays as it is
            std::string path = narrow(zIndexEntryPath(entry));
            if (gone(path)) paths.push_back(std::move(path));
        });
        return paths;
    }
    bool gone(const std::string &path) const {
        struct stat status;
        return fstatat(root_, path.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0;
    }

  private:
    OwnedIndex index_;
    int root_;
};

using Disconnect = Owned<const zwchar, zCommandDisconnect>;

bool lists_nothing(const zwchar *workdir) {
    bool any = false;
    const auto found = [](int32_t, const zwchar *, const zwchar *, void *any) {
        *static_cast<bool *>(any) = true;
        return false;
    };
    return zCommandList(workdir, nullptr, found, &any) && !any;
}

} // namespace

Front::Front(Host &host, const WorkingCopy &copy, const Selection *named)
    : path_(copy.root().u16string()) {
    Missing missing(copy);
    const std::vector<std::string> paths = missing.find();
    zRaiseError(0, 0, nullptr, nullptr); // a tree that can't be loaded is an empty one
    check(zCommandConnect(path_.c_str()));
    Disconnect half(path_.c_str());
    if (zErrorClass() && lists_nothing(path_.c_str())) fail_raised();
    OwnedIndex index;
    for (const std::string &path : paths) {
        if (named && named->has(path)) continue;
        if (!index) index.reset(check(zIndexHead(copy.repository(), false)));
        if (!missing.gone(path))
            tell(host, "restored", "Restored", Colour::green, path);
        else if (!is_tracked(index.get(), path))
            tell(host, "deleted", "Deleted", Colour::red, path);
    }
    half.release();
}

Selection::Selection(const WorkingCopy &copy, const Paths &paths) : all_(paths.empty()) {
    if (all_) return;
    OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    OwnedTree head;
    if (copy.born()) head.reset(check(zCommitTree(copy.head().get())));
    for (const std::string &given : paths) {
        const std::string path = copy.relative(given);
        if (path.empty()) {
            all_ = true;
        } else if (copy.is_on_disk(path) || is_tracked(index.get(), path) ||
                   (head && OwnedTreeEntry(zTreeEntryBypath(head.get(), wide(path).c_str())))) {
            names_.insert(path);
        } else if (is_wild(given)) {
            if (!patterns_) patterns_.reset(check(zPathSpecNew(nullptr, 0)));
            check(zPathSpecAdd(patterns_.get(), wide(path).c_str()));
        } else {
            throw Failed(kNotFound, say("%s: no such file or directory", given));
        }
    }
}

bool Selection::has_name(const std::string &path) const {
    for (size_t end = path.size(); end != path.npos && end; end = path.rfind('/', end - 1))
        if (names_.contains(path.substr(0, end))) return true;
    return false;
}

bool Selection::has(const std::string &path) const {
    if (all_ || has_name(path)) return true;
    return patterns_ && zPathSpecMatched(patterns_.get(), wide(path).c_str());
}

const zwchar *const *WideList::data() {
    pointers_.clear();
    for (const std::u16string &text : texts_) pointers_.push_back(text.c_str());
    return pointers_.data();
}

bool is_tracked(Index *index, const std::string &path) {
    uint64_t position = 0;
    return zIndexEntryBypath(index, wide(path).c_str()) ||
           zIndexPathIsConflict(index, wide(path).c_str()) ||
           zIndexFindPrefix(&position, index, wide(path + "/").c_str());
}

void tell(Host &host, const char *action, const char *word, Colour colour,
          const std::string &path) {
    host.out.line(host.out.paint(colour, action_column(say(word))) + typed_path(path));
    host.out.record(
        Record("action").set(u"action", action).set(u"path", shown_path(wide(path).c_str())));
}

void require_done(const Host &host, const std::string &what) {
    const Outcome &outcome = host.notify->outcome();
    if (broken()) throw Failed(kCanceled, "cancelled");
    const uint64_t missed = outcome.failed + outcome.skipped;
    if (!missed && !outcome.aborted) return;
    if (outcome.aborted && outcome.declined)
        throw Failed(kCanceled, say("%s was not completed", said(what)));
    throw Failed(kOther, outcome.aborted
                             ? say("%s was not completed", said(what))
                             : say("%s left out %s", said(what), plural(missed, "path")));
}

} // namespace host
