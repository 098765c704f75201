// Refs: references of this host's own, and their removal, for which the library has no call.
#pragma once

#include "copy.hpp"

#include <map>

namespace host {

inline constexpr std::string_view kHeads = "refs/heads/";
inline constexpr std::string_view kTags = "refs/tags/";
inline std::string full_branch(const std::string &name) { return std::string(kHeads) + name; }

// The full name of the branch that HEAD leads to, born or not; empty where HEAD is none.
std::string current_branch(const WorkingCopy &copy);

// The Git directory, and the one that has the references, which may be that of another worktree.
std::filesystem::path own_directory(const WorkingCopy &copy);
std::filesystem::path shared_directory(const WorkingCopy &copy);

// By full name, with what each leads to.
std::map<std::string, Oid> all_references(const WorkingCopy &copy);

bool is_branch(const WorkingCopy &copy, const std::string &name);

// "origin/NAME", a branch that a remote had when it was asked last; empty if NAME is a revision
// here, or no remote has it.
std::string remote_branch(const WorkingCopy &copy, const std::string &name);

// A new branch; replaces one of that name.
void make_branch(const WorkingCopy &copy, const std::string &name, const Commit *commit);

// The reference that HEAD leads to, born or not; HEAD itself where it is detached. It moves only if
// it still is where it was when this was made.
class BranchTip {
  public:
    explicit BranchTip(const WorkingCopy &copy);
    void move(const Oid *id) const;

  private:
    Repository *repository_;
    std::string name_;
    Owned<Reference, zReferenceFree> reference_; // null: not born
};

// With its log, and to be made under the index lock: what a kill leaves of Git's own locks goes
// with the next one. A reference that isn't there is no failure.
void delete_reference(const WorkingCopy &copy, const std::string &full_name);

// A reference for the length of one checkout, which makes its commit there. To be made under the
// index lock: what a killed process left in this worktree is removed on the way.
class TempBranch {
  public:
    TempBranch(const WorkingCopy &copy, const Oid *id); // null: not born
    ~TempBranch();
    TempBranch(const TempBranch &) = delete;
    TempBranch &operator=(const TempBranch &) = delete;
    const std::string &name() const { return name_; }

  private:
    const WorkingCopy &copy_;
    std::string name_;
};

} // namespace host
