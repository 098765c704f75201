// Small work on texts that come from users.
#pragma once

#include "zev/base.h"

#include <string>

namespace zev {

// A blank for each control character that JSON text could not carry back: all below 32 but
// backspace, tab, line feed, form feed and carriage return. For messages, authors and names.
void blank_controls(zwchar *text);
std::u16string without_controls(const zwchar *text); // a copy; null gives an empty one

} // namespace zev
