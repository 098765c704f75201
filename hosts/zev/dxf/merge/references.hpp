// References: what a record names, by handle or by name, and what others name it by.
#pragma once

#include "dxf/merge/groups.hpp"

#include <functional>
#include <unordered_map>

namespace dxf::merging {

// Where a name is looked up. Names of blocks are those of their BLOCK records and of the entries of
// the block table alike.
enum class Table : uint8_t {
    none,
    layer,
    linetype,
    style,
    dimension_style,
    application,
    block,
    coordinates,
    view
};

struct Name {
    Table table = Table::none;
    std::string text; // in upper case: they are told apart without
    bool operator==(const Name &) const = default;
};
struct NameHash {
    size_t operator()(const Name &name) const {
        return std::hash<std::string>()(name.text) * 31 + static_cast<size_t>(name.table);
    }
};

// The name that others know a record by; of no table if it has none.
Name name_of(std::string_view record);
// A name as it is compared.
std::string upper(std::string_view name);

// What must be there for a record to make sense.
enum class Need : uint8_t { owner, object, name };
struct Reference {
    Need need;
    uint64_t handle; // of an owner, or an object
    Name name;
};
void visit_needs(std::string_view record, const std::function<void(const Reference &)> &visit);

std::optional<uint64_t> owner_of(std::string_view record);

// Whether records of a type belong to the polyline or insert that they follow.
bool is_member(std::string_view type);

// All handles that a record names, its own left out.
void visit_handles(std::string_view record, const std::function<void(uint64_t)> &visit);

using Handles = std::unordered_map<uint64_t, uint64_t>; // from those that they had

// The record with other handles in place of those that it names, and, unless that is 0, with
// another one of its own. Nothing if that changes no byte.
std::optional<std::string> with_handles(std::string_view record, const Handles &handles,
                                        uint64_t own);

using Names = std::unordered_map<std::string, std::string>; // of blocks, in upper case

// The record with other names in place of those of blocks that it has, or names. Nothing if that
// changes no byte.
std::optional<std::string> with_names(std::string_view record, const Names &names);

// Whether two records are the same but for their own handles and those of what they belong to, or
// what belongs to them; what they point to has to be the same.
bool same_but_handles(std::string_view a, std::string_view b);

} // namespace dxf::merging
