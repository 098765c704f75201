// A device, or a user's share of one, that is full.
#pragma once

namespace zev {

// Whether that is what the thread's error record is of, whoever found it so. May throw.
bool raised_no_space();

} // namespace zev
