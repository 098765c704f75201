// Object names as digits.
#pragma once

#include "zev/oid.h"

#include <string>

namespace zev {

// From 40 hexadecimal digits, of either case; false, with nothing raised, for any other text and
// for null.
bool parse_id(Oid *id, const zwchar *text);
std::u16string id_text(const Oid &id); // 40 digits

} // namespace zev
