// The rules of a directory that gets another name. They are set for the new one before anything has
// it, so that nobody finds the files there unguarded.
//
// Those of the old name stay: by it the files stand in the commits before, which can be read by
// whoever may read there, and on branches where nothing was renamed.
#pragma once

#include "zev/auth.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zev::rest {

class CarriedRules {
  public:
    CarriedRules(const AuthTable &auth, Repository *repository)
        : auth_(auth), repository_(repository) {}

    // Sets at `to` and below what each role was given at `from` and below. A rule that was left
    // there by an earlier name opens nothing: it keeps what both grant, and where the old name has
    // none it grants no more than held there. Rules hold as they are spelled: one of another
    // spelling takes away by the new name, and gives nothing. False, raised, with nothing set; so
    // where one of another spelling would be written over, and for a name that differs in case
    // alone, as a role has one rule for all spellings of a path, and what stands by the old one
    // would be open. May throw.
    bool carry(const std::u16string &from, const std::u16string &to);
    // What wasn't renamed after all.
    void take_back();
    // The module failed, or gave what can't be understood.
    bool has_failed() const { return failed_; }

  private:
    struct Rule {
        std::u16string path, role;
        int32_t bits;
    };
    struct Held {
        int32_t own;   // by the role's nearest rule
        int32_t least; // beside whatever other roles
    };

    bool list();
    bool list_role(const zwchar *role);
    bool read_default();
    template <class Visit> void each_at(std::u16string_view path, Visit visit) const;
    const Rule *find(std::u16string_view path, const std::u16string &role) const;
    Held held(const std::u16string &role, std::u16string_view place) const;
    bool carry_one(const Rule &rule, const std::u16string &place, const std::u16string &target);
    bool narrow(const Rule &left, const std::u16string &place);
    bool set(const std::u16string &path, const std::u16string &role, int32_t bits);
    bool drop(const Rule &rule);
    bool note(const std::u16string &path, const std::u16string &role, int32_t status);

    const AuthTable &auth_;
    Repository *repository_;
    std::vector<Rule> rules_;                               // as they were
    std::unordered_multimap<std::u16string, size_t> paths_; // of them, case aside
    int32_t fallback_ = 0;
    std::vector<Rule> changed_; // by us
    bool failed_ = false;
};

} // namespace zev::rest
