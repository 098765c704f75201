// Start and stop, for layers above that keep something for the process.
#pragma once

namespace zev {

// To be called once by zGlobalCleanup, before the library itself stops: the last to have asked is
// the first to be called. Throws std::bad_alloc.
void at_stop(void (*release)());

// Makes the key of the error records, and the calling thread's record; false when there is no
// memory or no key left.
bool prepare_error_record();

} // namespace zev
