// Graph: which commits are contained in which, by all their parents and by what merges noted.
//
// A merge of this library has one parent. What came in is named by the last line of its message,
// "MERGE: <8 digits>", and counts as a second one. A checkout writes the same line even where it
// left out files: its note counts only if the commit has the very tree of what it names.
#pragma once

#include "bytes.hpp"
#include "copy.hpp"
#include "ids.hpp"

#include <optional>
#include <string>
#include <vector>

namespace host {

// Of the message of a merge that took all, and of one that could not.
std::string merge_note(const Oid *merged);
std::string part_note(const Oid *merged);

class Graph {
  public:
    Graph(const WorkingCopy &copy, const Notify *notify);

    // The commit itself and all that it contains, as far as this store has them.
    Ids ancestors(const Oid &tip);
    bool contains(const Oid &tip, const Oid &wanted);

    // The newest commit that both contain. Of several, such as after merges in both directions,
    // one of our own history.
    std::optional<Oid> common(const Oid &ours, const Oid &theirs);

  private:
    using Parents = std::vector<Oid>;
    const Parents &parents(const Oid &id);
    Parents read(const Oid &id);
    std::optional<Oid> noted(std::string_view message, bool of_checkout, std::string_view tree);

    const WorkingCopy &copy_;
    const Notify *notify_;
    OwnedOdb odb_;
    Bytes bytes_;
    IdMap<Parents> known_;
};

} // namespace host
