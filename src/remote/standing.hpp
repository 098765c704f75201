// How the branch of a copy stands to the server's. Its commits are not the server's own: an update
// makes one of what came in, and of a commit that is sent the server makes another. So a note says
// how far both agree, in two references for each branch:
//
//   refs/zev/agreed/<name>   the commit of the branch of which the server has all
//   refs/zev/server/<name>   the server's commit that the branch came to; none of a branch that the
//                            server hasn't got, or whose user went to a state beside it
//
// <name> is the short one of the branch, with "%25" for a percent sign and "%2F" for a slash, so
// that no branch of former days stands in the way of another; of a long one "%" and 40 digits of
// its digest. What lies beyond the first was never sent: git made it, or a merge, or a checkout of
// another state. Where the server's branch no longer leads to the second, it went back, as from an
// older backup. What either loses by an update is the user's: it becomes a change of his own, by
// going out from a tree without it. Of a branch that the server hasn't got nothing is the server's,
// whatever is noted.
//
// The first is only ever a commit that an operation of ours looked at or made, with its tree the
// server's as far as that was taken; the second one that the server listed. It is written last.
#pragma once

#include "common/oid.hpp"
#include "objects/store/branch.hpp"
#include "objects/store/object.hpp"

#include <optional>
#include <vector>

namespace zev {

struct Standing {
    std::optional<Oid> head{}; // the branch's commit that was looked at; none of an unborn one
    std::optional<Oid> base{}; // its newest that is all the server's
    std::vector<Oid> unsent{}; // commits of the branch, newest first
    bool went_back = false;
    Oid from{}, to{};          // then: where the server's branch was, and is; zero where it is gone
    std::optional<Oid> fork{}; // then: the last commit that both have; none where nobody knows
    TreePtr ground{};          // the branch's tree without what is the user's; null: the empty one
    bool is_plain() const { return unsent.empty() && !went_back; }
};

// What the server's branch lost is the user's, unless he goes to a commit of old himself.
enum class Losses { count, are_meant };

// Where the server has its branch: none where it hasn't got it.
using ServerTip = std::optional<Oid>;
// As the tracking reference says, which a user's wish moves, too. May throw, as all below.
ServerTip tracked_tip(Repository *repository, const Branch *upstream);

// By what is here. False, raised, where a tree isn't here that it takes, and where the note was
// never the branch's: nobody knows then what of it the server has.
bool look_at_standing(Repository *repository, const Branch *head, const Branch *upstream,
                      const ServerTip &tip, Losses losses, Standing &standing);
// Its ground for the caller, also the empty one as a tree. Null, raised, where that can't be
// written.
TreePtr take_ground(Repository *repository, Standing &standing);
// The same without the tree, for which less must be here.
Standing find_standing(Repository *repository, const Branch *head, const Branch *upstream,
                       const ServerTip &tip);

// A commit that is missing here and would tell whether the server's branch went back, if that
// stands at `tip`. None where it is known.
std::optional<Oid> missing_history(Repository *repository, const Branch *head,
                                   const Branch *upstream, const Oid &tip);
// Whether a commit leads to another, or is it, as far as they are here.
bool is_led_to(Repository *repository, const Oid &from, const Oid &to);
// The tree of a commit for the caller. Null, raised, where either isn't here.
TreePtr tree_of(Repository *repository, const Oid &id);

// The branch's commit of which the server has all, as noted; none where it isn't.
std::optional<Oid> agreed_commit(Repository *repository, const Branch *head);
// What can't be written is logged: the next look takes for the user's what is not, and an update
// finds both sides equal. Without a commit of the server's the note of one goes.
void note_agreed(Repository *repository, const Branch *head, const Oid &agreed);
void note_server(Repository *repository, const Branch *head, const std::optional<Oid> &server);

} // namespace zev
