// The rules of a directory that gets another name. They are set for the new one before anything has
// it, so that nobody finds the files there unguarded.
//
// Those of the old name stay: by it the files stand in the commits before, which can be read by
// whoever may read there, and on branches where nothing was renamed.
#pragma once

#include "zev/auth.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zev::rest {

class CarriedRules {
  public:
    CarriedRules(const AuthTable &auth, Repository *repository)
        : auth_(auth), repository_(repository) {}

    // Sets at `to` and below what each role was given at `from` and below. A role that has a rule
    // there keeps what both grant: a rule that was left by an earlier name opens nothing. False,
    // raised, with nothing set; so for a name that differs in case alone, as a role has one rule
    // for all spellings of a path, and what stands by the old one would be open. May throw.
    bool carry(const std::u16string &from, const std::u16string &to);
    // What wasn't renamed after all.
    void take_back();

  private:
    struct Rule {
        std::u16string path, role;
        int32_t bits;
    };

    bool list();
    bool list_role(const zwchar *role);
    const Rule *find(const std::u16string &path, const std::u16string &role) const;
    bool set(Rule rule);

    const AuthTable &auth_;
    Repository *repository_;
    std::vector<Rule> rules_; // as they were
    std::vector<Rule> set_;   // by us
};

} // namespace zev::rest
