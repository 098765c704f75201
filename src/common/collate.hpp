// Sorting many names at once: comparing them one by one takes ICU too long.
#pragma once

#include "zev/base.h"

#include <span>
#include <vector>

namespace zev {

// The place of each text in the order of zStricollW, from 0; texts that compare equal share one.
// None may be empty. May throw.
std::vector<uint32_t> collation_ranks(std::span<const zwchar *const> texts);

} // namespace zev
