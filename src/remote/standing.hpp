// How the branch of a copy stands to the server's. Its commits are not the server's own: an update
// makes one of what came in, and of a commit that is sent the server makes another. So a note says
// how far both agree, in two references for each branch:
//
//   refs/zev/agreed/<name>   the commit of the branch of which the server has all
//   refs/zev/server/<name>   the server's commit that the branch came to
//
// <name> is the short one of the branch, with "%25" for a percent sign and "%2F" for a slash, so
// that no branch of former days stands in the way of another. What lies beyond the first was never
// sent: git made it, or a merge, or a checkout of an older state. Where the server's branch no
// longer leads to the second, it went back, as from an older backup. What either loses by an update
// is the user's: it becomes a change of his own, by going out from a tree without it.
#pragma once

#include "common/oid.hpp"
#include "objects/store/branch.hpp"
#include "objects/store/object.hpp"

#include <optional>
#include <vector>

namespace zev {

struct Standing {
    std::vector<Oid> unsent{}; // commits of the branch, newest first
    bool went_back = false;
    Oid from{}, to{};          // then: where the server's branch was, and where it is
    std::optional<Oid> fork{}; // then: the last commit that both have; none where nobody knows
    TreePtr ground{};          // the branch's tree without what is the user's; null: the empty one
    bool is_plain() const { return unsent.empty() && !went_back; }
};

// What the server's branch lost is the user's, unless he goes to a commit of old himself.
enum class Losses { count, are_meant };

// By what is here. False, raised, where a tree isn't that it takes. May throw, as all below.
bool look_at_standing(Repository *repository, const Branch *head, const Branch *upstream,
                      Losses losses, Standing &standing);
// Its ground for the caller, also the empty one as a tree. Null, raised, where that can't be
// written.
TreePtr take_ground(Repository *repository, Standing &standing);
// The same without the tree, for which less must be here, and of a state of the server's to which
// the tracking reference is yet to move.
Standing find_standing(Repository *repository, const Branch *head, const Branch *upstream,
                       const Oid &tip);

// Whether commits are missing here that would tell whether the server's branch went back, if it
// stands there.
bool lacks_history(Repository *repository, const Branch *head, const Branch *upstream,
                   const Oid &tip);

// The branch's commit of which the server has all, as noted; none where it isn't.
std::optional<Oid> agreed_commit(Repository *repository, const Branch *head);
// Null leaves the one or the other as it is. What can't be written is logged: the next look takes
// for the user's what is not, and an update finds both sides equal.
void note_agreed(Repository *repository, const Branch *head, const Oid *agreed, const Oid *server);

} // namespace zev
