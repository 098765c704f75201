// Git reads and writes the same files at any time: they change under its locks, by renaming.
#include "refs.hpp"

#include "walks.hpp"

#include <fstream>

namespace host {

namespace fs = std::filesystem;

namespace {

using OwnedReference = Owned<Reference, zReferenceFree>;

constexpr const char *kTempPrefix = "refs/zev/checkout-";

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
    check(each_reference(copy.repository(), visit), "references");
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
