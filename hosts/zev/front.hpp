// Front: the working copy connected to the library's command front, for verbs that change it; and
// what of it the user's paths select.
#pragma once

#include "verb.hpp"

#include <set>
#include <string>
#include <vector>

namespace host {

// The paths and patterns of one command. A path that names something, on disk or in the index,
// stands for just that and all below it, as it is spelled; only then come patterns.
class Selection {
  public:
    // Throws for a path that names nothing.
    Selection(const WorkingCopy &copy, const Paths &paths);

    bool all() const { return all_; } // no paths, or the work directory itself
    const std::set<std::string> &names() const { return names_; }
    PathSpec *patterns() const { return patterns_.get(); } // null without any

    bool has_name(const std::string &path) const; // itself, or a directory above it
    bool has(const std::string &path) const;

  private:
    bool all_ = false;
    std::set<std::string> names_;
    OwnedSpec patterns_;
};

// Connected as long as this lives. Connecting brings back what is tracked and gone from the disk:
// each such file is told, but for those that `named` selects.
class Front {
  public:
    Front(Host &host, const WorkingCopy &copy, const Selection *named = nullptr);
    ~Front() { zCommandDisconnect(path_.c_str()); }
    Front(const Front &) = delete;
    Front &operator=(const Front &) = delete;

    const zwchar *path() const { return path_.c_str(); }

  private:
    std::u16string path_;
};

// An array of wide strings as the front takes it. It lends what is put into it.
class WideList {
  public:
    void add(const std::string &path) { texts_.push_back(wide(path)); }
    const zwchar *const *data();
    uint64_t size() const { return texts_.size(); }

  private:
    std::vector<std::u16string> texts_;
    std::vector<const zwchar *> pointers_;
};

// Tracked files: whether there is one of that name, or one below it.
bool is_tracked(Index *index, const std::string &path);

// One file that this host handled, as the library tells of its own.
void tell(Host &host, const char *action, const char *word, Colour colour, const std::string &path);

// Throws if not all that an operation told was done.
void require_done(const Host &host, const std::string &what);

} // namespace host
