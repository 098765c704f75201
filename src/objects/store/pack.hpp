// Of packs what the neighbours need.
#pragma once

#include "zev/pack.h"

namespace zev {

// zPackWriterCommit for what a peer has sent: also false, with nothing left, where an object has
// more than `most` bytes or not the form of its type.
bool commit_formed(PackWriter *writer, uint64_t most);

} // namespace zev
