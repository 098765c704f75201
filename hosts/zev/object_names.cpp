// Numbers from dxf::kFirstNumber on are those of objects without a handle.
#include "object_names.hpp"

#include "dxf/reader.hpp"
#include "host.hpp"

#include <charconv>

namespace host {

uint64_t parse_object(const std::string &text) {
    const bool unnamed = text.starts_with('#');
    const char *begin = text.data() + unnamed, *end = text.data() + text.size();
    uint64_t number = 0;
    const auto [stop, error] = std::from_chars(begin, end, number, unnamed ? 10 : 16);
    // What was added without a handle is numbered from far above on while it is merged.
    const uint64_t limit = unnamed ? UINT64_MAX - dxf::kFirstNumber : dxf::kFirstNumber;
    if (error != std::errc() || stop != end || number >= limit)
        throw Failed(kInvalid, say("\"%s\" is no handle; write it as \"zev diff\" shows it", text));
    return unnamed ? number + dxf::kFirstNumber : number;
}

std::string object_name(uint64_t number) {
    char name[24];
    const bool named = number < dxf::kFirstNumber;
    snprintf(name, sizeof name, named ? "%llX" : "#%llu",
             static_cast<unsigned long long>(named ? number : number - dxf::kFirstNumber));
    return name;
}

} // namespace host
