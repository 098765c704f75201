// The directories of owners and projects below the one of all repositories, as servers and other
// processes share them.
//
// A name is given and taken away by one rename. Two names that differ in case only would be one
// where cases aren't told apart, which no rename sees: whoever gives a name looks for its twins
// first, and holds the lock on names from there to the rename. Owners' directories are made and
// removed under it, too, so that none goes from under a project that is about to come in.
#pragma once

#include "common/guard.hpp"
#include "zev/flock.h"

#include <string>
#include <string_view>
#include <vector>

#include <sys/stat.h>

namespace zev::rest {

using NamesLock = Owned<Flock, zFlockClose>;

// The names of owners in the directory of all repositories, or of projects in an owner's: those
// that follow the rules and stand for a directory, sorted. None where it is gone by now; false,
// with errno, where it can't be read.
bool names_in(const std::u16string &directory, std::vector<std::u16string> *names);

// What a path leads to: a directory; none; or it can't be told, with the reason raised.
enum class Lies { there, nowhere, unknown };
Lies look_at(const zwchar *path, struct stat *directory = nullptr);

std::u16string directory_of(std::u16string_view path);
// Whether there is another owner or project of that name, case aside; `known` is none.
bool has_twin(const std::u16string &place, const std::u16string &known = {});

// The lock on names, of the directory of all repositories. Null, with the reason raised, when it
// can't be had within half a second: it is held for some renames at most.
NamesLock lock_names(const std::u16string &repos);

// Removes a project, with its link where an administrator keeps it elsewhere. False, with the
// reason raised, leaves it whole. Otherwise its name is gone, and is so on the disk; of its files
// the log tells what couldn't be removed, as others' may not be.
bool remove_project(const std::u16string &place);

// Gives what lies at `from` its place as a project, whose owner's directory is there, and may be
// new. Under the lock; what has the name is left alone. True when the name is on the disk; one that
// isn't sure to last is taken back.
bool give_name(const std::u16string &from, const std::u16string &place, bool new_owner);

} // namespace zev::rest
