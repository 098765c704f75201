// The rules of a working copy's user, as they stand in AUTHZ.
#pragma once

#include "common/json.hpp"
#include "rms/rule_map.hpp"
#include "zev/auth.h"

#include <string_view>

namespace zev {

class PathRules {
  public:
    // Takes what a tree says, which may be null; false for one that is none of these files.
    bool read(Json *tree);

    int32_t at(std::u16string_view path);
    // Everything can be read, and no rule says otherwise.
    bool is_open() const;

  private:
    RuleMap rules_{Z_PRIVILEGE_READ | Z_PRIVILEGE_WRITE | Z_PRIVILEGE_EXPORT, true};
};

} // namespace zev
