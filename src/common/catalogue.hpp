// Check of a message catalogue. Its texts become printf formats, and the key says by its tail
// which arguments they are given: `_s` a wide string, `_d` a 32-bit integer, `_4d` four of them.
#pragma once

#include "zev/base.h"

#include <string_view>

namespace zev {

// Whether the conversions of a text are those of the key's last name, one by one.
bool catalogue_fits(std::u16string_view name, std::u16string_view text);

// Drops the texts that don't fit their key, so that they count as missing.
void catalogue_clean(Json *catalogue);

} // namespace zev
