// Object names: an object of a drawing by its handle, or by "#N" for one that has none.
#pragma once

#include <cstdint>
#include <string>

namespace host {

uint64_t parse_object(const std::string &text); // throws when it is no name
std::string object_name(uint64_t number);

} // namespace host
