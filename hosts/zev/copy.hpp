// WorkingCopy: the repository around the current directory, the user's paths and revisions in it.
#pragma once

#include "host.hpp"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace host {

using Paths = std::vector<std::string>;

// A file of our own in the temporary directory, removed with this.
class TempFile {
  public:
    TempFile();
    ~TempFile();
    TempFile(const TempFile &) = delete;
    TempFile &operator=(const TempFile &) = delete;
    const std::u16string &path() const { return path_; }

  private:
    std::u16string path_;
};

// A commit that the user named, and the path behind a colon.
struct RevisionPath {
    std::string revision;
    std::string path;
};

// What the system says of a path, in the form of the library's own messages.
Failed failed_at(const std::filesystem::filesystem_error &error);

class WorkingCopy {
  public:
    WorkingCopy(); // searches upward from the current directory

    Repository *repository() const { return repository_.get(); }
    const std::filesystem::path &root() const { return root_; }

    // The user's path, taken from the current directory: relative to the work directory, with
    // forward slashes, "" for the work directory itself. Throws for what lies outside of it or
    // in the repository, and for names that no commit can hold.
    std::string relative(const std::string &path) const;
    // The same for any path; nothing for one that `relative` throws for.
    std::optional<std::string> below(const std::string &path) const;
    // Behind the colon of "REV:PATH": a path from the top, or from here if it begins with "./" or
    // "../".
    std::string in_commit(const std::string &path) const;
    std::filesystem::path absolute(const std::string &relative_path) const;
    bool is_on_disk(const std::string &relative_path) const; // whatever it is, also a link
    // Does the path lie in the repository itself, where no file of the user's belongs?
    bool in_repository(const std::string &path) const;

    // The user's paths and patterns; `*` and `?` are wild in a path that names nothing. No paths
    // give a spec without patterns; the work directory itself becomes "*".
    OwnedSpec spec(const Paths &paths, uint32_t options, const Notify *notify) const;

    OwnedIndex lock_index() const;
    bool born() const { return !zRepositoryHeadUnborn(repository_.get()); }

    // A revision is 40 digits, HEAD, the name of a branch or tag, or the first 4 or more digits
    // of one commit; ~N behind it is the N-th ancestor along first parents, ^ the first.
    OwnedCommit commit(const std::string &revision) const;
    OwnedCommit head() const { return commit("HEAD"); }

    // The file at a path of a commit; null and not found when it isn't there.
    OwnedTreeEntry entry(const Commit *commit, const std::string &path) const;
    OwnedTreeEntry file(const Commit *commit, const std::string &path) const;

    // The drawing at a path of a commit, by way of `file`.
    void save(const TreeEntry *entry, const std::u16string &file) const;

  private:
    bool is_name(const std::string &relative_path) const;
    OwnedCommit named_commit(const std::string &name) const;

    OwnedRepository repository_;
    std::filesystem::path root_;
};

// Splits "REV:PATH".
RevisionPath parse_revision_path(const std::string &text);

bool same_or_below(const std::string &path, const std::string &directory);
std::string directory_of(const std::string &path); // with its slash; empty for the top
bool is_text(const std::string &bytes);            // UTF-8 without a zero byte
bool is_wild(const std::string &path);             // a pattern, unless something has that name
std::string escaped(const std::string &path);      // as a pattern that stands for nothing else
std::u16string wide_path(const std::string &path); // throws when it is no UTF-8
bool is_drawing_name(const std::string &path);
std::string hex(const Oid *id);

} // namespace host
