// Groups: one record taken apart, for those who draw it. Application data, lists of handles and
// embedded objects are kept out of the way; the record has to outlive its groups.
#pragma once

#include "dxf/groups.hpp"
#include "picture/ocs.hpp"

#include <cstdint>
#include <string_view>
#include <vector>

namespace picture {

struct Group {
    int code = 0;
    std::string_view value; // without its line end
};

inline std::string_view trimmed(std::string_view text) { return dxf::trim_blanks(text); }

// A value as a number: not a number when it is none, is infinite or too large to be a coordinate.
double number_of(std::string_view value);
int integer_of(std::string_view value, int otherwise = 0);
uint64_t handle_of(std::string_view value); // 0 when it is none

// The first group of a code counts.
class Groups {
  public:
    void read(std::string_view record);
    std::string_view kind() const; // value of group 0
    bool has(int code) const { return find(code) != nullptr; }
    double number(int code, double otherwise = 0) const;
    int integer(int code, int otherwise = 0) const;
    std::string_view name(int code) const; // without blanks around it
    std::string_view text(int code) const; // as it stands
    Vec vec(int code) const;               // the code is that of x
    const std::vector<Group> &all() const { return groups_; }
    const std::vector<Group> &extended() const { return extended_; } // codes from 1000 on

  private:
    const Group *find(int code) const;
    std::vector<Group> groups_, extended_;
};

} // namespace picture
