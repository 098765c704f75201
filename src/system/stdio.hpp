// What File and Share have in common over a FILE. A failure is raised by its errno, not logged.
#pragma once

#include "zev/base.h"

#include <cstdarg>
#include <cstdio>

namespace zev {

uint64_t read_file(FILE *file, void *buffer, uint64_t count); // bytes moved, also after an error
uint64_t write_file(FILE *file, const void *buffer, uint64_t count);

// Formats and writes the finished text; -1 when it can't be formatted, with nothing written.
int32_t print_narrow(FILE *file, const char *format, va_list arguments);
int32_t print_wide(FILE *file, const zwchar *format, va_list arguments); // as UTF-8

} // namespace zev
