// What the system had to say, found in the thread's error record: of libgit2's failures and
// LevelDB's only the text tells it.
#pragma once

#include <string_view>

namespace zev {

// Whether a reason (UTF-8) has the words for one of the host's error numbers.
bool tells_errno(std::string_view reason, int number);

// Whether the record is of a device, or a user's share of one, that is full. May throw.
bool raised_no_space();

} // namespace zev
