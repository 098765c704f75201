// Conflict nodes: what a merge left to decide, and the parts of it that the user's paths name.
#pragma once

#include "verb.hpp"

#include <map>
#include <set>

namespace host {

using OwnedAnalysis = Owned<ConflictAnalysis, zConflictAnalysisFree>;

// The two sides of a node have the same getters under different names.
struct Side {
    const char *name;
    uint64_t (*count)(const ConflictNode *);
    const IndexEntry *(*entry)(const ConflictNode *, uint64_t);
    int32_t (*status)(const ConflictNode *, uint64_t);
    const zwchar *(*wide_path)(const ConflictNode *, uint64_t);

    std::string path(const ConflictNode *node, uint64_t i) const {
        return narrow(wide_path(node, i));
    }
    // Does the side keep anything, or did it only delete?
    bool keeps(const ConflictNode *node, uint64_t i) const {
        return status(node, i) != Z_KIND_DELETED;
    }
    bool keeps_any(const ConflictNode *node) const {
        for (uint64_t i = 0; i < count(node); ++i)
            if (keeps(node, i)) return true;
        return false;
    }
};

inline constexpr Side kOurs = {"ours", zConflictNodeOurCount, zConflictNodeOurEntry,
                               zConflictNodeOurStatus, zConflictNodeOurPath};
inline constexpr Side kTheirs = {"theirs", zConflictNodeTheirCount, zConflictNodeTheirEntry,
                                 zConflictNodeTheirStatus, zConflictNodeTheirPath};

// Never by way of a link in the work directory.
bool is_there(const WorkingCopy &copy, const std::string &path);
// Has anything that name, on disk or in the index?
bool is_known(const WorkingCopy &copy, const std::string &path);

class Nodes {
  public:
    explicit Nodes(OwnedAnalysis analysis) : analysis_(std::move(analysis)) {
        for (uint64_t i = 0; i < zConflictAnalysisLength(analysis_.get()); ++i) {
            ConflictNode *node = zConflictAnalysisEntry(analysis_.get(), i);
            nodes_.push_back(node);
            by_path_.emplace(narrow(zConflictNodePath(node)), node);
            for (const Side *side : {&kOurs, &kTheirs})
                for (uint64_t n = 0; n < side->count(node); ++n)
                    by_path_.emplace(side->path(node, n), node);
        }
    }

    ConflictAnalysis *analysis() const { return analysis_.get(); }
    const std::vector<ConflictNode *> &all() const { return nodes_; }
    bool is_picked(ConflictNode *node) const { return picked_.contains(node); }
    void pick_all() { picked_.insert(nodes_.begin(), nodes_.end()); }

    // What something has as its name is no pattern. False when there is no conflict of that name.
    bool pick(const WorkingCopy &copy, const std::string &path);

  private:
    bool pick_named(const std::string &path);
    bool pick_matching(const std::string &pattern);

    OwnedAnalysis analysis_;
    std::vector<ConflictNode *> nodes_; // in the order of the analysis
    std::multimap<std::string, ConflictNode *> by_path_;
    std::set<ConflictNode *> picked_;
};

// To decide, under the lock; and to look on, without it, or at an index that somebody has locked.
Nodes analyse(const WorkingCopy &copy);
Nodes look(const WorkingCopy &copy);
Nodes look(Index *index);

// Settles the conflicts whose path, or that of a side, is selected by what the branch has; the
// others stay.
void take_ours(Host &host, const WorkingCopy &copy,
               const std::function<bool(const std::string &)> &is_selected);

} // namespace host
