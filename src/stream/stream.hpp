// What the stream kinds offer to the library only.
#pragma once

#include "zev/stream.h"

namespace zev {

// A temporary file without a name, "w+b": nothing stays behind, even after a crash. For what the
// library itself puts aside; null with a standard error when there is no place for it.
Stream *temp_stream();

} // namespace zev
