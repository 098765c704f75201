// Compose: an object that both sides changed without a conflict, put together of what each did.
// What programs write into it for things that stand elsewhere is brought together three ways: the
// lists of those that name it back, and the entries of a dictionary.
#pragma once

#include "dxf/merge.hpp"
#include "dxf/merge/references.hpp"

namespace dxf::merging {

// What became of an object that an entry or a list names, by its handle in the result.
enum class Fate : uint8_t {
    as_merged,
    gone, // though the side that names it has it
    back, // though the side that doesn't name it hasn't got it
};
using FateOf = std::function<Fate(uint64_t handle)>;

struct Composed {
    std::string row;
    Side side;                 // who has all the rest as it is there
    bool is_overruled = false; // something came, or went, with what it names
};

// Rows of one object, theirs with the handles that the result has. In the order of ours, with
// theirs' additions behind. Nothing where both changed the rest, or one name has two values, was
// removed and changed, or stands there twice, or one object would have two names.
std::optional<Composed> compose(std::string_view base, std::string_view ours,
                                std::string_view theirs, const FateOf &fate_of);

bool is_dictionary(std::string_view record);
// Whether it has entries, or such a list.
bool has_parts_to_compose(std::string_view record);
// The handles that a dictionary's entries have.
void visit_entries(std::string_view dictionary, const std::function<void(uint64_t)> &visit);

} // namespace dxf::merging
