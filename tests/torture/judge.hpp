// What a working copy is after something struck, and whether that can be stood by.
#pragma once

#include "play.hpp"

#include <set>

namespace torture {

using Files = std::map<std::string, std::string>; // path and content

// The parts of a working copy that are judged. Contents go by the hexadecimal id that they have
// as blobs.
struct State {
    std::string branch, head, tree;
    std::set<std::string> parents; // of the head
    Files committed, index;
    Files names;                 // references and settings, with what they say
    Files staged;                // where the index differs from the head
    std::set<std::string> store; // files of the store and of the drawings' tables
    Files work;                  // each file
    std::set<std::string> kept;  // contents in the trash and in that of the desktop
    bool conflicts = false;
    std::string fault; // why it can't be read, else empty
};

State look(const Play &play);

constexpr int kConflicts = 4; // the program's exit code

struct Terms {
    bool durable = false; // done is done, whatever happens to the power
    int code = 0;         // the program's exit code when it is done
    // Drawings are made without the lock, so nobody can tell what a killed one had beside its
    // drawing from what another one still writes.
    bool litters = false;
    bool unsent = false; // the branch has commits that the server never got
    bool meets = false;  // conflicts, which it settles by itself
    bool stays = false;  // what it replaces is there all the while: the old file or the new one
};

// What is known of an operation before it is struck.
struct Expected {
    State before, after;
    State between; // where it may come to rest on its way, if it has a head
    std::string served_before, served_after; // of a copy that follows a server
    bool git;                                // the program is the system's git
    Terms terms;
    long last_sync = 0; // the call behind which all that had to reach the disk has
    std::map<std::string, std::string> drawings; // content of a drawing, the file it came from
};

struct Strike {
    std::string mode;
    long at;  // 0: behind the last call
    int code; // the program's exit code
    std::string text;
    bool at_server = false; // it was another program that was struck

    // Whether the program itself is dead, and the power is lost.
    bool kills() const { return !at_server && (mode == "kill" || cuts_power()); }
    bool cuts_power() const { return !at_server && (mode == "forget" || mode == "hollow"); }
};

// The first thing that is wrong, as "rule: what", or an empty text. Goes on to work in the copy.
// Where it was the server that was struck, and the program didn't come to its end, the next try of
// the same `words` has to.
std::string judge(const Play &play, const Expected &expected, const Strike &strike,
                  const Words &words);

} // namespace torture
