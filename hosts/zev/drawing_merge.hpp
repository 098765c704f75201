// Drawing merge: a drawing that both sides of a merge changed, brought together object by object.
// It is written as a whole or not at all.
#pragma once

#include "conflict_nodes.hpp"
#include "drawing_version.hpp"
#include "dxf/merge.hpp"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace host {

// The versions of a drawing, as blobs. Ours is what the merge met; where the work file is another
// one by now, that is ours.
struct ThreeWays {
    std::string path;
    Oid base, ours, theirs;
};

// Of a conflict. Nothing where a side has no drawing at its path; then `why` says it.
std::optional<ThreeWays> three_ways(const ConflictNode *node, std::string &why);

// Whose what is in conflict is to be.
struct Decisions {
    std::map<uint64_t, dxf::Side> objects; // by number
    std::optional<dxf::Side> header, classes, layout;
    std::optional<dxf::Side> rest; // what is named by none of these
    bool names_any() const { return !objects.empty() || header || classes || layout; }
};

class DrawingMerge {
  public:
    // Throws, with the reason, where the versions can't be brought together, and class 3 for
    // decisions on what is in no conflict.
    DrawingMerge(const Host &host, const WorkingCopy &copy, const ThreeWays &ways,
                 const Decisions &decisions = {});

    const dxf::Merge &result() const { return result_; }
    bool is_whole() const { return result_.conflicts.empty(); }

    // The result becomes the work file; what it displaces goes to the trash. False where there was
    // nothing to write. Throws, and the work file stays as it was.
    bool write();

  private:
    void find_ours();
    void require_place() const;
    dxf::MergeRequest request_for(const DrawingVersion &ours) const;
    dxf::Merge bring(const DrawingVersion &ours);
    bool take_up(const std::vector<dxf::MergeConflict> &conflicts);
    void require_met() const;
    void keep_former() const;

    const Host &host_;
    const WorkingCopy &copy_;
    const ThreeWays ways_;
    const Decisions decisions_;
    const DrawingVersion base_, theirs_;
    std::unique_ptr<DrawingVersion> ours_;
    std::optional<Oid> on_disk_; // of the work file, if there is one
    bool is_done_ = false;       // the work file is the result already
    Decisions met_;              // as far as there was something to decide
    dxf::Merge result_;
};

// Settles the conflicts of these paths by what the work directory has, and writes the index, which
// is locked. Gives those that are settled.
std::set<std::string> settle(Index *index, const std::set<std::string> &paths);

// Of the drawings in conflict that the paths select (null for all) brings those together in which
// nothing is, and tells of all. Those that it leaves stay in conflict. The index is locked, and
// written.
void merge_by_itself(Host &host, const WorkingCopy &copy, Index *index, PathSpec *paths = nullptr);

} // namespace host
