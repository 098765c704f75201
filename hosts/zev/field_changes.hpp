// Field changes: what differs between two versions of an object, as it is shown.
#pragma once

#include "dxf/fields.hpp"
#include "output.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace host {

// Code, name of the group and the values, of which a side that hasn't got the object is left out.
std::string field_line(const Output &out, std::string_view kind, const dxf::FieldChange &field,
                       bool had, bool has);
std::vector<Record> field_records(std::string_view kind,
                                  const std::vector<dxf::FieldChange> &fields);

// A value as people see it, cut where it is long.
std::string shown_value(std::string_view value);

} // namespace host
