// Where the user is and what he names: paths from the current directory, revisions, patterns. What
// lies outside of the work directory, or in the repository, gets no further than here.
#include "copy.hpp"

#include "output.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <unistd.h>

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

// Does a step of the path lead into a repository? The library disregards case there.
bool enters_repository(const std::string &path) {
    fs::path steps(path);
    return std::any_of(steps.begin(), steps.end(), [](const fs::path &step) {
        return zStrcasesameA(step.string().c_str(), ".git");
    });
}

// The directory of a path is taken as it really is, the last name as it stands: links inside the
// work directory are files of it.
fs::path resolve(const std::string &path) {
    if (path.empty()) throw Failed(kInvalid, "an empty name is no path");
    fs::path full = fs::absolute(path).lexically_normal();
    if (!full.has_filename()) full = full.parent_path(); // "docs/"
    if (!full.has_filename()) return full;
    return fs::weakly_canonical(full.parent_path()) / full.filename();
}

// Why there is no working copy.
Failed nowhere() {
    constexpr int kNotOwner = -36; // libgit2's
    std::error_code error;
    fs::path top = fs::current_path(error);
    if (error) return Failed(kNotFound, "the directory that you are in is gone");
    if (zErrorClass() == kNotFound)
        return Failed(kNotFound, "there is no working copy here or above; \"zev init\" makes one");
    if (zErrorClass() != kGit || zErrorCode() != kNotOwner) return raised();
    while (!fs::exists(top / ".git", error) && top.has_relative_path()) top = top.parent_path();
    return Failed(kGit, kNotOwner,
                  say("%1$s: belongs to another user; if you trust what is in it, \"git config "
                      "--global --add safe.directory %1$s\" lets you work there",
                      top.string()));
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

Failed failed_at(const fs::filesystem_error &error) {
    const bool missing = error.code() == std::errc::no_such_file_or_directory;
    const std::string path = error.path1().string();
    return Failed(missing ? kNotFound : kSystem, error.code().value(),
                  (path.empty() ? "" : path + ": ") + error.code().message());
}

WorkingCopy::WorkingCopy() {
    repository_.reset(zRepositoryDiscover(u".", nullptr));
    if (!repository_) throw nowhere();
    if (zRepositoryIsBare(repository_.get()))
        throw Failed(kOther,
                     say("%s: a repository without a work directory; clone it to work in it",
                         narrow(zRepositoryPath(repository_.get()))));
    root_ = fs::weakly_canonical(
        fs::path(std::u16string(check(zRepositoryWorkdir(repository_.get())))));
    if (!root_.has_filename()) root_ = root_.parent_path();
    stand_in(below(".").value_or(""));
}

std::string WorkingCopy::in_commit(const std::string &path) const {
    const bool from_here = path == "." || path.starts_with("./") || path.starts_with("../");
    return from_here ? relative(path) : path;
}

std::string WorkingCopy::relative(const std::string &path) const {
    fs::path full = resolve(path);
    std::string below = full == root_ ? "." : full.lexically_relative(root_).generic_string();
    if (below.empty() || below == ".." || below.starts_with("../"))
        throw Failed(kInvalid,
                     say("%s: lies outside of the working copy %s", path, root_.string()));
    if (!is_text(below) || below.find('\\') != below.npos)
        throw Failed(kInvalid, say("%s: a name must be UTF-8 without a backslash", path));
    if (enters_repository(below))
        throw Failed(kInvalid, say("%s: belongs to the repository, not to your files", path));
    return below == "." ? "" : below;
}

std::optional<std::string> WorkingCopy::below(const std::string &path) const try {
    return relative(path);
} catch (const Failed &) {
    return {};
}

bool WorkingCopy::in_repository(const std::string &path) const {
    const zwchar *own = check(zRepositoryPath(repository_.get()));
    fs::path top = fs::weakly_canonical(fs::path(std::u16string(own)) / ".");
    if (!top.has_filename()) top = top.parent_path();
    return same_or_below(resolve(path).string(), top.string());
}

fs::path WorkingCopy::absolute(const std::string &relative_path) const {
    return relative_path.empty() ? root_ : root_ / relative_path;
}

bool WorkingCopy::is_on_disk(const std::string &relative_path) const {
    return fs::exists(fs::symlink_status(absolute(relative_path)));
}

OwnedSpec WorkingCopy::spec(const Paths &paths, uint32_t options, const Notify *notify) const {
    OwnedSpec spec(check(zPathSpecNew(nullptr, options)));
    check(zPathSpecSetNotify(spec.get(), notify));
    Paths patterns;
    for (const std::string &path : paths) patterns.push_back(relative(path));
    bool files_only =
        !paths.empty() && std::all_of(patterns.begin(), patterns.end(), [&](auto &pattern) {
            return !pattern.empty() && fs::is_regular_file(absolute(pattern));
        });
    if (files_only) check(zPathSpecSetOn(spec.get(), Z_SPEC_LITERAL));
    for (std::string &pattern : patterns) {
        if (pattern.empty())
            pattern = "*";
        else if (!files_only && is_wild(pattern) && is_name(pattern))
            pattern = escaped(pattern);
        check(zPathSpecAdd(spec.get(), wide(pattern).c_str()));
    }
    return spec;
}

// Something has this very name, on disk or, if it is gone from there, in the index.
bool WorkingCopy::is_name(const std::string &relative_path) const {
    if (is_on_disk(relative_path)) return true;
    OwnedIndex index(check(zIndexHead(repository_.get(), false)));
    return zIndexEntryBypath(index.get(), wide(relative_path).c_str());
}

OwnedIndex WorkingCopy::lock_index() const {
    OwnedIndex index(zIndexHead(repository_.get(), true));
    if (index) return index;
    // A lock that can't be made is told like one that is held.
    if (zErrorClass() == kLocked &&
        access(fs::path(zRepositoryPath(repository_.get())).c_str(), W_OK)) {
        const int number = errno;
        throw Failed(kSystem, number,
                     say("%s: can't be written: %s", root_.string(), strerror(number)));
    }
    if (zErrorClass() == kLocked) throw Failed(kLocked, say("%s: locked", root_.string()));
    fail_raised();
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
            commit.reset(check(zCommitParent(commit.get()), say("%s: no such ancestor", revision)));
        suffix = static_cast<size_t>(next - revision.data());
    }
    if (suffix < revision.size()) throw Failed(kInvalid, say("%s: bad revision", revision));
    return commit;
}

// What was raised last is not that something is missing: it is there and can't be read.
static bool is_damage() { return zErrorClass() == kGit && zErrorCode() == -1; }

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
    if (!commit && is_damage()) fail_raised(name);
    if (!commit && name.size() >= kMinPrefix && name.size() < 40 && is_hex(name)) {
        Oid prefix = padded(name);
        commit.reset(zCommitByprefix(repository, &prefix, name.size()));
        if (!commit && zErrorClass() != kNotFound) fail_raised(name);
    }
    if (!commit) throw Failed(kNotFound, say("\"%s\" names no commit", name));
    return commit;
}

OwnedTreeEntry WorkingCopy::entry(const Commit *commit, const std::string &path) const {
    OwnedTree tree(check(zCommitTree(commit)));
    return OwnedTreeEntry(zTreeEntryBypath(tree.get(), wide(path).c_str()));
}

OwnedTreeEntry WorkingCopy::file(const Commit *commit, const std::string &path) const {
    OwnedTreeEntry found = entry(commit, path);
    const std::string id = hex(zCommitId(commit)).substr(0, 8);
    if (!found) throw Failed(kNotFound, say("there is no %s in commit %s", path, id));
    if (zTreeEntryType(found.get()) != Z_OBJECT_BLOB)
        throw Failed(kInvalid, say("%s in commit %s is no file", path, id));
    return found;
}

void WorkingCopy::save(const TreeEntry *entry, const std::u16string &file) const {
    OwnedBlob blob(check(zBlobByid(repository_.get(), zTreeEntryId(entry))));
    check(zBlobExport(blob.get(), file.c_str(), u"wb"));
}

RevisionPath parse_revision_path(const std::string &text) {
    size_t colon = text.find(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size())
        throw Failed(kInvalid, say("\"%s\" is not of the form REV:PATH", text));
    return {text.substr(0, colon), text.substr(colon + 1)};
}

bool same_or_below(const std::string &path, const std::string &directory) {
    return directory.empty() || path == directory || path.starts_with(directory + "/");
}

std::string directory_of(const std::string &path) { return path.substr(0, path.rfind('/') + 1); }

bool is_text(const std::string &bytes) { return narrow(wide(bytes).c_str()) == bytes; }

bool is_wild(const std::string &path) { return path.find_first_of("*?") != std::string::npos; }

std::string escaped(const std::string &path) {
    std::string out;
    for (char c : path) {
        if (c == '*' || c == '?') out += '\\';
        out += c;
    }
    return out;
}

std::u16string wide_path(const std::string &path) {
    if (!is_text(path)) throw Failed(kInvalid, say("%s: a name must be UTF-8", path));
    return wide(path);
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
