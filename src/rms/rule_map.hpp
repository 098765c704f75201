// RuleMap: bits by path, as a server holds a caller's rules and a working copy its user's. The
// nearest rule counts: that of the path itself, else of the directories above it, upward.
#pragma once

#include "zev/json.h"

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace zev {

class RuleMap {
  public:
    using Rules = std::map<std::u16string, int32_t, std::less<>>;

    // What holds where no rule does; `any_case` disregards case, in rules and paths.
    explicit RuleMap(int32_t fallback, bool any_case = false)
        : fallback_(fallback), any_case_(any_case) {}

    // Of [{setting: {path, privilege}}]; other elements say nothing, and of twins the later one
    // counts.
    void load(const Json *list);
    void set_fallback(int32_t bits) { fallback_ = bits; }

    // The paths of one directory share their look-up.
    int32_t at(std::u16string_view path);

    const Rules &rules() const { return rules_; }
    int32_t fallback() const { return fallback_; }

  private:
    int32_t look_up(std::u16string_view path) const;
    void put(const zwchar *path, int32_t bits);

    Rules rules_;
    int32_t fallback_;
    bool any_case_;
    std::u16string directory_;
    int32_t directory_bits_ = 0;
    bool looked_up_ = false; // the two above hold something
};

} // namespace zev
