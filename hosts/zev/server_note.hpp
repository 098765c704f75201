// Server note: what was known of the server when it was asked last, for whoever asks it nothing.
#pragma once

#include "output.hpp"
#include "remote_copy.hpp"

#include <vector>

namespace host {

struct ServerNote {
    std::optional<Oid> at; // the server's commit that the whole copy came to last
    int64_t seconds = 0;   // when the server answered last; 0: it never did
};
ServerNote read_note(const WorkingCopy &copy);
// Now; with a commit, that it stands there. What can't be written is only not known then.
void note_answer(const WorkingCopy &copy, const Oid *at);

// How many files an update would bring that the user may read, by what is here; nothing where that
// can't be told.
std::optional<uint64_t> known_updates(const WorkingCopy &copy);

// What is not on the server: commits of the branch, and what the server's branch had before it went
// back, `from` one commit `to` another; by what is here.
struct ServerStanding {
    uint64_t unsent = 0;
    std::optional<Oid> from{}, to{};
};
ServerStanding known_standing(const WorkingCopy &copy);
std::vector<std::string> standing_lines(const ServerStanding &standing); // none where all is
void set_standing(Record &record, const ServerStanding &standing);

} // namespace host
