// Fields: the groups of one DXF record, and how those of two versions of it differ.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace dxf {

struct Field {
    int code = 0;
    std::string_view value; // without its line end, lent from the record
    bool operator==(const Field &) const = default;
};

// As many groups as the bytes have; what is no group ends them.
std::vector<Field> split_fields(std::string_view record);

// Value of group 8, as the reader of files takes it; empty without one.
std::string_view record_layer(std::string_view record);

// What the group of a code is called in a record of that kind; empty for uncommon ones.
std::string_view field_name(std::string_view kind, int code);

struct FieldChange {
    int code;
    std::optional<std::string_view> from, to; // a side without it has none
};

// The groups of which the value differs, in the order of the record. Groups of one code are taken
// for the same one so that as few as possible differ.
std::vector<FieldChange> compare_fields(std::string_view from, std::string_view to);

} // namespace dxf
