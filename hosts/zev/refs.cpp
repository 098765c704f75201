// Git reads and writes the same files at any time: they change under its locks, by renaming.
#include "refs.hpp"

#include "walks.hpp"

#include <algorithm>
#include <fstream>
#include <functional>

namespace host {

namespace fs = std::filesystem;

namespace {

using OwnedReference = Owned<Reference, zReferenceFree>;

constexpr const char *kTempPlace = "refs/zev/";
constexpr const char *kTempName = "checkout-";

// Begins the names of one worktree's. Its own may hold anything; the main one has none.
std::string temp_prefix(const std::string &worktree) {
    const size_t number = std::hash<std::string>{}(worktree);
    return kTempName + (worktree.empty() ? "main" : std::to_string(number)) + "-";
}

std::string worktree_of(const fs::path &own, const fs::path &shared) {
    return own == shared ? std::string() : own.filename().string();
}

// References are shared by all worktrees, the index lock is each one's own: what another one has
// may be in use. Gone are those of killed processes here, and of worktrees that there are no more.
void sweep_temporary(const fs::path &shared, const std::string &worktree) {
    std::error_code ignored;
    Paths others;
    if (!worktree.empty()) others.push_back(temp_prefix(""));
    for (const auto &entry : fs::directory_iterator(shared / "worktrees", ignored))
        if (const std::string other = entry.path().filename().string(); other != worktree)
            others.push_back(temp_prefix(other));
    for (const auto &entry : fs::directory_iterator(shared / kTempPlace, ignored)) {
        const std::string name = entry.path().filename().string();
        const bool is_anothers =
            std::any_of(others.begin(), others.end(),
                        [&](const std::string &prefix) { return name.starts_with(prefix); });
        if (name.starts_with(kTempName) && !is_anothers) fs::remove(entry.path(), ignored);
    }
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

std::map<std::string, Oid> all_references(const WorkingCopy &copy) {
    std::map<std::string, Oid> found;
    const auto visit = [&](Reference *reference) {
        if (const Oid *id = zReferenceResolve(reference))
            found.emplace(narrow(zReferenceName(reference)), *id);
        return true;
    };
    check(each_reference(copy.repository(), visit), say("references"));
    return found;
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
    const std::string tail = "/" + name;
    std::string found;
    const auto visit = [&](Reference *reference) {
        constexpr std::string_view kRemotes = "refs/remotes/";
        const std::string full = narrow(zReferenceName(reference));
        const size_t slash = full.find('/', kRemotes.size());
        if (full.starts_with(kRemotes) && slash != full.npos && full.substr(slash) == tail)
            found = full.substr(kRemotes.size());
        return true;
    };
    check(each_reference(copy.repository(), visit), say("references"));
    return found;
}

void make_branch(const WorkingCopy &copy, const std::string &name, const Commit *commit) {
    if (name.empty() || name.starts_with('-') || name == "HEAD")
        throw Failed(kInvalid, say("\"%s\": no name for a branch", name));
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
    const std::u16string name = wide(full_name);
    if (!zReferenceExists(copy.repository(), name.c_str())) return;
    const OwnedReference reference(check(zReferenceLookup(copy.repository(), name.c_str())));
    check(zReferenceDelete(reference.get()), full_name);
}

TempBranch::TempBranch(const WorkingCopy &copy, const Oid *id) : copy_(copy) {
    Oid chance;
    const fs::path shared = shared_directory(copy);
    const std::string worktree = worktree_of(own_directory(copy), shared);
    sweep_temporary(shared, worktree);
    check(zOidRand(&chance));
    name_ = kTempPlace + temp_prefix(worktree) + hex(&chance).substr(0, 16);
    if (id) OwnedReference(check(zReferenceCreate(copy.repository(), wide(name_).c_str(), id)));
}

TempBranch::~TempBranch() {
    try {
        delete_reference(copy_, name_);
    } catch (...) { // the next one removes it
    }
}

} // namespace host
