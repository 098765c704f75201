// Failures that a user can't act upon as the library tells them, in words that say what to do.
#pragma once

#include "output.hpp"

#include <filesystem>

namespace host {

// A device of this machine is full: that of a copy, or that of the files that a transfer needs for
// a while. Whether the failure is that, and what is told of it.
bool is_no_space(const Failed &failed);
Failed no_space_for(std::filesystem::path copy); // which may not be there yet

// The failure itself, or what is told in its place: a project that is another one by now, or that
// is gone, and a server whose device is full. What the library has told of it is dropped then.
Failed in_plain_words(const Failed &failed, Output &out);

} // namespace host
