#include "dxf/merge/groups.hpp"

#include "dxf/reader.hpp"

namespace dxf::merging {

std::optional<uint64_t> parse_handle(std::string_view value) {
    const auto handle = handle_in(value);
    return handle && *handle && *handle < kFirstNumber ? handle : std::nullopt;
}

} // namespace dxf::merging
