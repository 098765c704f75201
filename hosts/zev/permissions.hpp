// Permissions: what the user may do with the files of a copy, and by which rule, as the last update
// brought the rules.
#pragma once

#include "copy.hpp"

namespace host {

struct Permission {
    int32_t bits = 0;
    std::string rule; // its path; empty for what holds where no rule does
};

class Permissions {
  public:
    explicit Permissions(const WorkingCopy &copy); // throws for rules that can't be read
    // False in a copy without rules: everything is allowed.
    bool has_rules() const { return has_rules_; }
    Permission of(const std::string &path) const; // "" for the work directory itself
    bool is_writable(const std::string &path) const { return of(path).bits & Z_PRIVILEGE_WRITE; }

    const std::vector<std::pair<std::string, int32_t>> &rules() const { return rules_; }
    int32_t fallback() const { return fallback_; }

  private:
    Owned<Authdb, zAuthdbFree> db_;
    bool has_rules_ = false;
    std::vector<std::pair<std::string, int32_t>> rules_;
    int32_t fallback_ = 0;
};

// "rwe", with "-" for none.
std::string rights_letters(int32_t bits);

} // namespace host
