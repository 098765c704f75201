// Headers, for the files of HTTP: the head of a message as text.
#pragma once

#include "common/failure.hpp"
#include "zev/http_header.h"

#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

namespace zev {

// Appends "name: value\r\n" of every field in order, in UTF-8, but for those that `skips` names.
// May throw.
void append_fields(std::string &head, const HttpHeader &header, bool (*skips)(const zwchar *name));
// One line of a head.
void append_field(std::string &head, std::string_view name, std::string_view value);

} // namespace zev
