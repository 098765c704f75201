// Moved: files that were renamed outside of ZEV, by a file manager or another program. A drawing is
// known again by its table, any other file by its bytes.
#pragma once

#include "verb.hpp"

namespace host {

struct Move {
    std::string from, to;
};

// Of tracked files that are gone from the disk, and of files that nobody tracks, those that are the
// same; each once, in the order of the first.
std::vector<Move> find_moves(const WorkingCopy &copy, const Paths &gone, const Paths &untracked);

// Says which files of a status look lost and new, and are one, renamed outside.
void tell_moves(Host &host, const WorkingCopy &copy, const StatusList *list);

// Untracked drawings that were one of HEAD or of the index which is gone from the disk: its table
// serves them from here on, so that they don't count as copies and their past goes on.
void follow_moves(const WorkingCopy &copy, const Paths &untracked);

// Out of the index what files that nobody tracks were called before, where they were renamed in
// case only, as far as the disk tells the two apart: no index holds both names.
void drop_old_cases(const WorkingCopy &copy, Index *index, const Paths &untracked);

// A drawing's table serves the file at a path from now on, if it served one at another path before.
// A drawing whose table serves a third one is a copy and stays one.
void move_table(const WorkingCopy &copy, const std::string &from, const std::string &to);

} // namespace host
