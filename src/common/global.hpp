// Start and stop, for layers above that keep something for the process.
#pragma once

namespace zev {

// Called once by zGlobalCleanup, before anything else stops. There is one such layer, the last to
// have asked.
void at_stop(void (*release)());

} // namespace zev
