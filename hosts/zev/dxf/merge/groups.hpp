// What a merge asks of groups besides: handles that are no numbers of our own, and lists.
#pragma once

#include "dxf/groups.hpp"

namespace dxf::merging {

using Group = RawGroup;

// A handle; none for zero, for what is no number, and for what reaches into our own numbers.
std::optional<uint64_t> parse_handle(std::string_view value);

// Whether the groups at hand are within a list of other objects' handles.
class ListState {
  public:
    // Before anything else is done with a group.
    void take(const Group &group) {
        if (group.code == 102) in_list_ = trim_blanks(group.value).starts_with('{');
    }
    bool is_in_list() const { return in_list_; }

  private:
    bool in_list_ = false;
};

} // namespace dxf::merging
