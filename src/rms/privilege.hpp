// The rights of one caller in one project: his password is looked at and his rules are asked for
// once, then any number of paths can be looked up.
#pragma once

#include "rms/rule_map.hpp"
#include "zev/auth.h"

#include <cstdint>
#include <string_view>

namespace zev {

class Privileges {
  public:
    // Who the request says he is, by its account. Null arguments give no right. May throw.
    Privileges(const AuthTable *auth, HttpRequest *request, Repository *repository);
    // Of a caller who has proven who he is: his password isn't looked at again.
    Privileges(const AuthTable *auth, const zwchar *user, Repository *repository);

    // The bits on a path; the path's own rule, else that of the nearest directory, else the
    // project's default. The paths of one directory share their look-up.
    int32_t at(std::u16string_view path);
    // Whether some path of the project grants all of these bits.
    bool anywhere(int32_t bits) const;
    // Whether every path of a tree does.
    bool everywhere(int32_t bits) const;
    bool is_known() const { return known_; } // he proved who he is
    // Who he is, or his rules, couldn't be had: that he has no right says nothing about what he was
    // granted.
    bool has_failed() const { return failed_; }

  private:
    void load(const AuthTable &auth, const zwchar *user, Repository *repository);

    RuleMap rules_{0};
    bool known_ = false;
    bool failed_ = false;
    bool all_ = false; // "admin" has every right
};

} // namespace zev
