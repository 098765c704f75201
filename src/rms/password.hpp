// The form in which passwords travel and are kept: 40 lower-case hexadecimal digits.
#pragma once

#include "zev/base.h"

#include <string>

namespace zev {

// The SHA-1 of a text's UTF-16 units, little-endian, without a terminator. Throws where it can't be
// hashed.
std::u16string wire_form(const zwchar *password);

} // namespace zev
