// The printf engine behind every formatted text, narrow and wide, with the rules of
// _vsnprintf: an exact fit has no terminator, longer text gives -1 with the buffer full, a null
// buffer measures.
#pragma once

#include "zev/base.h"

#include <cstdarg>

namespace zev {

int32_t format_wide(zwchar *buffer, uint64_t size, const zwchar *format, va_list arguments);
int32_t format_narrow(char *buffer, uint64_t size, const char *format, va_list arguments);

// The whole text on the C heap, owned by the caller; null when formatting or memory failed.
zwchar *format_wide_dup(const zwchar *format, va_list arguments);
char *format_narrow_dup(const char *format, va_list arguments);

} // namespace zev
