// Removing a repository, be it a project, a working copy or what was about to become one.
//
// Its files are first moved to <place>/../.zev-removed/<name>.<8 hex>, by one rename: no half of a
// repository is left under its name, and no whole one where a list of repositories looks. What a
// process that was killed left there goes with the next that is removed, or made, beside it.
#pragma once

#include <string>

namespace zev {

// Where a repository lies while it is made, or removed: a new name in the directory .zev-removed
// beside its own, which is made. A long name is cut, as what is put to it there needs room, too.
// Whoever works there holds a lock on that name. Empty, raised, on failure. May throw.
std::u16string place_aside(const std::u16string &place);

// Removes what killed processes left in that directory: what nobody holds. True if something of
// this name was there, and is gone. May throw.
bool sweep_aside(const std::u16string &place);

// Removes what lies at a place, or where a link there leads, with the link. Left whole, raised,
// when it gives none; else the name is gone, and is so on the disk. Partly, raised, where files
// couldn't be removed, as others' may not be: they stay aside. May throw.
enum class Removal { none, partly, whole };
Removal remove_repository(const std::u16string &place);

} // namespace zev
