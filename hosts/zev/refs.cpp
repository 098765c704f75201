// Git reads and writes the same files at any time: they change under its locks, by renaming.
#include "refs.hpp"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sstream>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

using OwnedReference = Owned<Reference, zReferenceFree>;

constexpr const char *kTempPrefix = "refs/zev/checkout-";

// Git's lock on a file: another file of its name with ".lock" behind, which is written and renamed.
class GitLock {
  public:
    explicit GitLock(const fs::path &target) : target_(target), path_(target.string() + ".lock") {
        file_ = open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (file_ < 0 && errno == EEXIST) throw Failed(kLocked, target.string() + ": locked");
        if (file_ < 0) throw fs::filesystem_error({}, path_, {errno, std::generic_category()});
    }
    ~GitLock() {
        if (file_ < 0) return;
        close(file_);
        if (unlink(path_.c_str())) unlink(path_.c_str()); // one that stays would lock for good
    }
    GitLock(const GitLock &) = delete;
    GitLock &operator=(const GitLock &) = delete;

    void replace(const std::string &text) {
        const auto written = ::write(file_, text.data(), text.size());
        if (written != static_cast<ssize_t>(text.size()) || fsync(file_) ||
            rename(path_.c_str(), target_.c_str()))
            throw fs::filesystem_error({}, target_, {errno, std::generic_category()});
        close(file_);
        file_ = -1;
    }

  private:
    fs::path target_, path_;
    int file_;
};

// packed-refs: lines "<hex> <name>", each perhaps followed by "^<hex>", of a tag.
std::string without(const std::string &packed, const std::string &name) {
    std::istringstream in(packed);
    std::string kept;
    bool skips = false;
    for (std::string line; std::getline(in, line);) {
        if (!line.starts_with('^')) skips = line.size() > 41 && line.substr(41) == name;
        if (!skips) kept += line + "\n";
    }
    return kept;
}

void unpack(const fs::path &root, const std::string &name) {
    const fs::path path = root / "packed-refs";
    if (!fs::exists(path)) return;
    GitLock lock(path);
    std::ifstream in(path, std::ios::binary);
    const std::string packed{std::istreambuf_iterator<char>(in), {}};
    if (const std::string kept = without(packed, name); kept != packed) lock.replace(kept);
}

} // namespace

fs::path own_directory(const WorkingCopy &copy) {
    const fs::path path(std::u16string(check(zRepositoryPath(copy.repository()))));
    return path.has_filename() ? path : path.parent_path();
}

fs::path shared_directory(const WorkingCopy &copy) {
    const fs::path own = own_directory(copy);
    std::ifstream in(own / "commondir");
    std::string line;
    return std::getline(in, line) ? (own / line).lexically_normal() : own;
}

std::string current_branch(const WorkingCopy &copy) {
    OwnedReference head(check(zReferenceLookup(copy.repository(), u"HEAD")));
    if (zReferenceType(head.get()) != 2) return {};
    return narrow(check(zReferenceSymbolic(head.get())));
}

bool is_branch(const WorkingCopy &copy, const std::string &name) {
    return zReferenceExists(copy.repository(), wide(full_branch(name)).c_str());
}

std::string remote_branch(const WorkingCopy &copy, const std::string &name) {
    try {
        if (copy.commit(name)) return {};
    } catch (const Failed &failed) {
        if (failed.error_class != kNotFound && failed.error_class != kInvalid) throw;
    }
    struct Search {
        std::string tail, found;
    } search{"/" + name, {}};
    const auto visit = [](Reference *reference, void *context) {
        constexpr std::string_view kRemotes = "refs/remotes/";
        auto *wanted = static_cast<Search *>(context);
        try {
            const std::string full = narrow(zReferenceName(reference));
            const size_t slash = full.find('/', kRemotes.size());
            if (full.starts_with(kRemotes) && slash != full.npos &&
                full.substr(slash) == wanted->tail)
                wanted->found = full.substr(kRemotes.size());
            return true;
        } catch (...) {
            return false;
        }
    };
    check(zReferenceForeach(copy.repository(), visit, &search), "references");
    return search.found;
}

void make_branch(const WorkingCopy &copy, const std::string &name, const Commit *commit) {
    if (name.empty() || name.starts_with('-') || name == "HEAD")
        throw Failed(kInvalid, "\"" + name + "\": no name for a branch");
    OwnedReference(check(
        zReferenceCreate(copy.repository(), wide(full_branch(name)).c_str(), zCommitId(commit)),
        name));
}

BranchTip::BranchTip(const WorkingCopy &copy)
    : repository_(copy.repository()), name_(current_branch(copy)) {
    if (name_.empty()) name_ = "HEAD";
    if (zReferenceExists(repository_, wide(name_).c_str()))
        reference_.reset(check(zReferenceLookup(repository_, wide(name_).c_str())));
}

void BranchTip::move(const Oid *id) const {
    if (reference_)
        check(zReferenceSetTarget(reference_.get(), id), name_);
    else
        OwnedReference(check(zReferenceCreate(repository_, wide(name_).c_str(), id), name_));
}

void delete_reference(const WorkingCopy &copy, const std::string &full_name) {
    const bool is_shared = full_name.starts_with("refs/"); // HEAD and its like are a worktree's own
    const fs::path root = is_shared ? shared_directory(copy) : own_directory(copy);
    const fs::path file = root / full_name;
    if (is_shared) unpack(root, full_name);
    std::error_code ignored;
    if (!fs::exists(fs::symlink_status(file, ignored))) return;
    const GitLock lock(file);
    fs::remove(file);
    fs::remove(root / "logs" / full_name, ignored);
}

TempBranch::TempBranch(const WorkingCopy &copy, const Oid *id) : copy_(copy) {
    Oid chance;
    const fs::path directory = shared_directory(copy) / "refs/zev";
    std::error_code ignored;
    for (const auto &left : fs::directory_iterator(directory, ignored))
        if (left.path().filename().string().starts_with("checkout-"))
            fs::remove(left.path(), ignored);
    check(zOidRand(&chance));
    name_ = kTempPrefix + hex(&chance).substr(0, 16);
    if (id) OwnedReference(check(zReferenceCreate(copy.repository(), wide(name_).c_str(), id)));
}

TempBranch::~TempBranch() {
    try {
        delete_reference(copy_, name_);
    } catch (...) { // the next one removes it
    }
}

} // namespace host
