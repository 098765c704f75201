// The "C" locale, for numbers whose text no host may change by setlocale.
#pragma once

#include <locale.h>

namespace zev {

locale_t c_locale(); // made at first use, lives for the process

} // namespace zev
