// Defaults: groups that say nothing, since a record without them means the same.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace dxf {

// What a record is, as far as its groups depend on it.
enum class Family : uint8_t {
    entity, // drawn, in ENTITIES or in a block
    block,  // BLOCK and ENDBLK, around the entities of a block
    table,  // TABLE, the head of a symbol table
    symbol, // a record of a symbol table
    other   // of OBJECTS, and whatever is not known
};

// By the kind of the record and whether it has the subclass of all entities; records of older
// files have no subclasses at all.
Family family_of(std::string_view kind, bool has_subclasses, bool is_entity);

// Groups that programs write or leave out as they like: with the value that is meant without them,
// or with what they count and keep for themselves. `number` is the value where it is one.
bool says_nothing(Family family, std::string_view kind, int code, std::string_view value,
                  std::optional<double> number);

} // namespace dxf
