// Saved: whether a file was only saved again, by a program that marks each saving.
#pragma once

#include "dxf/content.hpp"
#include "dxf/reader.hpp"

#include <string_view>

namespace dxf {

// Whether two records differ at most in such marks.
bool differs_by_mark(std::string_view a, std::string_view b);

// Whether a file differs from the one of the last import at most in such marks, in its header, its
// records and its comments. False where the last one can't be told any more.
bool differs_by_marks(const Content &before, const Document &now);

} // namespace dxf
