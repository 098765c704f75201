// Reading by path, where rights are required: what a commit once named by a path is given out only
// to whoever may read one of the paths that ever named it. What no commit names goes to whoever
// knows its id.
#pragma once

#include "network/rest/rest.hpp"

namespace zev::rest {

// In the open project. Both may throw; where the index can't be had the answer is no.
bool may_read_blob(Call &call, const Oid &id);
bool may_read_table(Call &call, const Oid &id);
// The entries of a pack to be built, some of which may be anything: each file asked for by itself,
// and all that was ever named where one is asked for with what lies below it.
bool may_read_entries(Call &call, Json *entries);

} // namespace zev::rest
