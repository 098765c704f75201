// Tag: the number under which a table takes new rows.
#pragma once

#include "dxf/manifest.hpp"

#include <functional>
#include <vector>

namespace dxf {

// Sets the table's tag above all that it holds and that `drawings`, of which some may be null or of
// another table, name; gives it. `ask`, which may be empty, has a server give one first: false
// where it has none. `named` is the highest tag that is named elsewhere. Throws when there is no
// higher tag.
uint64_t raise_tag(Table *table, const std::vector<Drawing *> &drawings,
                   const std::function<bool(Table *)> &ask, uint64_t named = 0);

// The highest tag in a manifest.
uint64_t highest_named(const Manifest &manifest);

} // namespace dxf
