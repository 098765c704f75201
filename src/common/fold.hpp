// Simple case folding per 16-bit unit, from a generated table. Without U+017F and U+212A, which
// fold onto ASCII letters and would make two user names equal.
#pragma once

#include "zev/base.h"

namespace zev {

zwchar fold(zwchar unit);
zwchar lower(zwchar unit);
zwchar upper(zwchar unit);
bool same_folded(const zwchar *a, const zwchar *b);

} // namespace zev
