// Graph: which commits are contained in which, by all their parents.
#pragma once

#include "copy.hpp"
#include "ids.hpp"

#include <optional>
#include <vector>

namespace host {

class Graph {
  public:
    Graph(const WorkingCopy &copy, const Notify *notify) : copy_(copy), notify_(notify) {}

    // The commit itself and all that it contains, as far as this store has them.
    Ids ancestors(const Oid &tip);
    bool contains(const Oid &tip, const Oid &wanted);

    // The newest commit that both contain. Of several, such as after merges in both directions,
    // one of our own history.
    std::optional<Oid> common(const Oid &ours, const Oid &theirs);

  private:
    using Parents = std::vector<Oid>;
    const Parents &parents(const Oid &id);
    Parents read(const Oid &id) const;

    const WorkingCopy &copy_;
    const Notify *notify_;
    IdMap<Parents> known_;
};

// Whether a commit is found again: a reference leads to it or beyond, other than one by its full
// name.
bool is_kept(const WorkingCopy &copy, const Notify *notify, const Oid &commit,
             const std::string &other_than = {});

} // namespace host
