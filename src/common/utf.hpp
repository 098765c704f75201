// Conversion between wide text and UTF-8. Malformed UTF-8 and lone surrogates become U+FFFD,
// never an error.
#pragma once

#include "zev/str.h"

#include <string>
#include <string_view>

namespace zev {

// Length in units or bytes of the converted text; a null `out` only measures. No terminator.
uint64_t utf8_from_wide(const zwchar *text, uint64_t count, char *out);
uint64_t wide_from_utf8(const char *text, uint64_t bytes, zwchar *out);

// The count less a last character that is cut: a surrogate without its second half, bytes of
// UTF-8 that end too early.
uint64_t whole(const zwchar *text, uint64_t count);
uint64_t whole(const char *text, uint64_t bytes);

// Terminated copies on the C heap, owned by the caller; null when memory ran out.
char *utf8_dup(const zwchar *text, uint64_t count);
zwchar *wide_dup(const char *text, uint64_t bytes);

std::string to_utf8(std::u16string_view text);
std::u16string to_wide(std::string_view text);

// A copy as wide text in the thread's ring, lent until that comes round. Null stays null, and
// stands for memory that ran out, which is raised.
const zwchar *park(const char *text);
const zwchar *park(const zwchar *text);

// UTF-8 of a path of at most 511 units, on the stack; longer text is cut at a whole character.
class Utf8Path {
  public:
    explicit Utf8Path(const zwchar *path);
    operator const char *() const { return text_; }
    const char *c_str() const { return text_; }

  private:
    char text_[3 * Z_PATH_MAX];
};

} // namespace zev
