#include "copy.hpp"

#include <algorithm>
#include <charconv>

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr size_t kMinPrefix = 4; // digits that may name a commit

bool is_hex(const std::string &text) {
    return text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

Oid padded(std::string digits) {
    digits.resize(40, '0');
    Oid id;
    check(zOidFromStr(&id, wide(digits).c_str()));
    return id;
}

// The directory of a path is taken as it really is, the last name as it stands: links inside the
// work directory are files of it.
fs::path resolve(const std::string &path) {
    fs::path full = fs::absolute(path).lexically_normal();
    if (!full.has_filename()) full = full.parent_path(); // "docs/"
    if (!full.has_filename()) return full;
    return fs::weakly_canonical(full.parent_path()) / full.filename();
}

} // namespace

TempFile::TempFile() {
    zwchar name[Z_PATH_MAX];
    check(zPathTmpnam(name, nullptr, u"zev"));
    path_ = name;
}

TempFile::~TempFile() {
    std::error_code ignored;
    fs::remove(fs::path(path_), ignored);
}

WorkingCopy::WorkingCopy() {
    repository_.reset(zRepositoryDiscover(u".", nullptr));
    if (!repository_ && zErrorClass() == kNotFound)
        throw Failed(kNotFound, "there is no working copy here or above; \"zev init\" makes one");
    check(!!repository_);
    root_ = fs::weakly_canonical(
        fs::path(std::u16string(check(zRepositoryWorkdir(repository_.get()), "bare repository"))));
    if (!root_.has_filename()) root_ = root_.parent_path();
}

std::string WorkingCopy::relative(const std::string &path) const {
    fs::path full = resolve(path);
    std::string below = full == root_ ? "." : full.lexically_relative(root_).generic_string();
    if (below.empty() || below == ".." || below.starts_with("../"))
        throw Failed(kInvalid, path + ": lies outside of the working copy " + root_.string());
    return below == "." ? "" : below;
}

fs::path WorkingCopy::absolute(const std::string &relative_path) const {
    return relative_path.empty() ? root_ : root_ / relative_path;
}

OwnedSpec WorkingCopy::spec(const Paths &paths, uint32_t options, const Notify *notify) const {
    OwnedSpec spec(check(zPathSpecNew(nullptr, options)));
    check(zPathSpecSetNotify(spec.get(), notify));
    bool files_only = !paths.empty();
    for (const std::string &path : paths) {
        std::string pattern = relative(path);
        files_only &= !pattern.empty() && fs::is_regular_file(absolute(pattern));
        check(zPathSpecAdd(spec.get(), pattern.empty() ? u"*" : wide(pattern).c_str()));
    }
    if (files_only) check(zPathSpecSetOn(spec.get(), Z_SPEC_LITERAL));
    return spec;
}

OwnedIndex WorkingCopy::lock_index() const {
    return OwnedIndex(check(zIndexHead(repository_.get(), true)));
}

OwnedCommit WorkingCopy::commit(const std::string &revision) const {
    size_t suffix = revision.find_first_of("~^");
    OwnedCommit commit = named_commit(revision.substr(0, suffix));
    while (suffix < revision.size()) {
        uint64_t steps = 1;
        const char *next = revision.data() + suffix + 1, *end = revision.data() + revision.size();
        if (revision[suffix] == '~' && next != end && *next != '~' && *next != '^') {
            auto [after, error] = std::from_chars(next, end, steps);
            if (error != std::errc()) break;
            next = after;
        } else if (revision[suffix] != '~' && revision[suffix] != '^') {
            break;
        }
        for (; steps; --steps)
            commit.reset(check(zCommitParent(commit.get()), revision + ": no such ancestor"));
        suffix = static_cast<size_t>(next - revision.data());
    }
    if (suffix < revision.size()) throw Failed(kInvalid, revision + ": bad revision");
    return commit;
}

OwnedCommit WorkingCopy::named_commit(const std::string &name) const {
    Repository *repository = repository_.get();
    OwnedCommit commit;
    if (name == "HEAD" && !born()) throw Failed(kNotFound, "there are no commits yet");
    if (name.size() == 40 && is_hex(name)) {
        Oid id = padded(name);
        commit.reset(zCommitByid(repository, &id));
    } else if (!name.empty()) {
        commit.reset(zCommitByref(repository, wide(name).c_str()));
    }
    if (!commit && name.size() >= kMinPrefix && name.size() < 40 && is_hex(name)) {
        Oid prefix = padded(name);
        commit.reset(zCommitByprefix(repository, &prefix, name.size()));
        if (!commit && zErrorClass() != kNotFound) fail_raised(name);
    }
    if (!commit) throw Failed(kNotFound, "\"" + name + "\" names no commit");
    return commit;
}

OwnedTreeEntry WorkingCopy::entry(const Commit *commit, const std::string &path) const {
    OwnedTree tree(check(zCommitTree(commit)));
    return OwnedTreeEntry(zTreeEntryBypath(tree.get(), wide(path).c_str()));
}

OwnedTreeEntry WorkingCopy::file(const Commit *commit, const std::string &path) const {
    OwnedTreeEntry found = entry(commit, path);
    std::string where = path + " in commit " + hex(zCommitId(commit)).substr(0, 8);
    if (!found) throw Failed(kNotFound, "there is no " + where);
    if (zTreeEntryType(found.get()) != Z_OBJECT_BLOB) throw Failed(kInvalid, where + " is no file");
    return found;
}

void WorkingCopy::save(const TreeEntry *entry, const std::u16string &file) const {
    OwnedBlob blob(check(zBlobByid(repository_.get(), zTreeEntryId(entry))));
    check(zBlobExport(blob.get(), file.c_str(), u"wb"));
}

RevisionPath parse_revision_path(const std::string &text) {
    size_t colon = text.find(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size())
        throw Failed(kInvalid, "\"" + text + "\" is not of the form REV:PATH");
    return {text.substr(0, colon), text.substr(colon + 1)};
}

bool same_or_below(const std::string &path, const std::string &directory) {
    return directory.empty() || path == directory || path.starts_with(directory + "/");
}

bool is_drawing_name(const std::string &path) {
    return path.size() > 4 && zStrcasesameA(path.c_str() + path.size() - 4, ".dwx");
}

std::string hex(const Oid *id) {
    zwchar digits[41];
    check(zOidFormat(digits, id));
    return narrow(digits);
}

} // namespace host
