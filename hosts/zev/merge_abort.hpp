// Merge abort: a merge that ended in conflicts, taken back.
#pragma once

#include "verb.hpp"

namespace host {

// What it brought in or staged leaves index and disk; work of the user's own in these files goes to
// the trash, all other files stay as they are. Throws where no merge is under way.
int abort_merge(Host &host, const WorkingCopy &copy);

} // namespace host
