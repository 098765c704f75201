// CheckSpec, for its own file and the operations that carry it out.
#pragma once

#include "objects/store/pathspec.hpp"
#include "objects/store/repository.hpp"
#include "zev/checkspec.h"

#include <optional>
#include <string>

namespace zev {
using CheckSpecPtr = Owned<CheckSpec, zCheckSpecFree>;
} // namespace zev

struct CheckSpec {
    std::optional<std::u16string> branch{}; // none means HEAD
    std::optional<Oid> target{};            // none means the branch's own commit
    zev::PathSpecPtr paths{};
    uint32_t options = 0;
    std::u16string text{}; // of zCheckSpecStringfy
};
