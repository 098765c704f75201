// Each commit is read once. One that isn't here has no parents.
#include "graph.hpp"

#include "refs.hpp"

#include <algorithm>

namespace host {

const Graph::Parents &Graph::parents(const Oid &id) {
    auto [at, fresh] = known_.try_emplace(id);
    if (fresh) at->second = read(id); // nothing is added meanwhile
    return at->second;
}

Graph::Parents Graph::read(const Oid &id) const {
    stop_on_break(notify_);
    Parents found;
    const OwnedCommit commit(zCommitByid(copy_.repository(), &id));
    for (uint64_t n = 0; commit && n < zCommitParentCount(commit.get()); ++n)
        found.push_back(*zCommitParentIdAt(commit.get(), n));
    return found;
}

Ids Graph::ancestors(const Oid &tip) {
    Ids found{tip};
    for (std::vector<Oid> pending{tip}; !pending.empty();) {
        const Oid id = pending.back();
        pending.pop_back();
        for (const Oid &parent : parents(id))
            if (found.insert(parent).second) pending.push_back(parent);
    }
    return found;
}

bool Graph::contains(const Oid &tip, const Oid &wanted) { return ancestors(tip).contains(wanted); }

// With a common one all that it contains is common; the newest is contained in no other.
std::optional<Oid> Graph::common(const Oid &ours, const Oid &theirs) {
    const Ids mine = ancestors(ours);
    Ids both;
    for (const Oid &id : ancestors(theirs))
        if (mine.contains(id)) both.insert(id);
    Ids newest = both;
    for (const Oid &id : both)
        for (const Oid &parent : parents(id)) newest.erase(parent);
    if (newest.empty()) return {};
    for (Oid id = ours;;) {
        if (newest.contains(id)) return id;
        const Parents &above = parents(id);
        if (above.empty()) break;
        id = above.front();
    }
    return *std::ranges::min_element(newest, OidLess());
}

bool is_kept(const WorkingCopy &copy, const Notify *notify, const Oid &commit,
             const std::string &other_than) {
    Graph graph(copy, notify);
    for (const auto &[name, id] : all_references(copy))
        if (name != other_than && graph.contains(id, commit)) return true;
    return false;
}

} // namespace host
