// A node is a path with what either side did there; its sides may have other paths.
#include "conflict_nodes.hpp"

namespace host {

bool is_there(const WorkingCopy &copy, const std::string &path) {
    return path.empty() || zWorkdirPathExists(copy.repository(), wide(path).c_str());
}

bool is_known(const WorkingCopy &copy, const std::string &path) {
    if (is_there(copy, path)) return true;
    OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    return zIndexEntryBypath(index.get(), wide(path).c_str());
}

// What something has as its name is no pattern. False when there is no conflict of that name.
bool Nodes::pick(const WorkingCopy &copy, const std::string &path) {
    return pick_named(path) || (!is_known(copy, path) && pick_matching(path));
}

// The nodes with that very path, or with one below it.
bool Nodes::pick_named(const std::string &path) {
    if (path.empty()) return pick_all(), !nodes_.empty();
    auto [at, end] = by_path_.equal_range(path);
    bool found = at != end;
    for (; at != end; ++at) picked_.insert(at->second);
    for (at = by_path_.lower_bound(path + "/");
         at != by_path_.end() && at->first.starts_with(path + "/"); ++at) {
        picked_.insert(at->second);
        found = true;
    }
    return found;
}

bool Nodes::pick_matching(const std::string &pattern) {
    OwnedSpec spec(check(zPathSpecNew(wide(pattern).c_str(), 0)));
    bool found = false;
    for (const auto &[path, node] : by_path_) {
        if (!zPathSpecMatched(spec.get(), wide(path).c_str())) continue;
        picked_.insert(node);
        found = true;
    }
    return found;
}

Nodes analyse(const WorkingCopy &copy) {
    OwnedSpec everything(check(zPathSpecNew(nullptr, 0)));
    return Nodes(OwnedAnalysis(check(zShellConflict(copy.repository(), everything.get()))));
}

Nodes look(Index *index) {
    OwnedSpec everything(check(zPathSpecNew(nullptr, 0)));
    return Nodes(OwnedAnalysis(check(zConflictAnalyze(index, everything.get()))));
}

Nodes look(const WorkingCopy &copy) {
    OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    return look(index.get());
}

void take_ours(Host &host, const WorkingCopy &copy,
               const std::function<bool(const std::string &)> &is_selected) {
    Nodes nodes = analyse(copy);
    for (ConflictNode *node : nodes.all()) {
        bool selected = is_selected(narrow(zConflictNodePath(node)));
        for (const Side *side : {&kOurs, &kTheirs})
            for (uint64_t i = 0; i < side->count(node); ++i)
                selected = selected || is_selected(side->path(node, i));
        check(zConflictNodeSetSolution(node, selected ? uint32_t{Z_CONFLICT_USE_OURS}
                                                      : uint32_t{Z_CONFLICT_UNDECIDED}));
    }
    check(zConflictAnalysisSetNotify(nodes.analysis(), host.notify));
    check(zShellResolve(copy.repository(), nodes.analysis()));
}

} // namespace host
