// Groups: the pairs of lines of which a record is made, with their bytes, and what their codes say
// of their values.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace dxf {

struct RawGroup {
    int code = 0;
    std::string_view value; // without its line end
    std::string_view bytes; // both lines, with what ends them
};

// The group at the beginning of `left`, which is shortened by it. False, and `left` as it was, at
// the end and at bytes that are no group.
bool take_group(std::string_view &left, RawGroup &group);

std::string_view trim_blanks(std::string_view text); // blanks, tabs and CR at both ends

// The bytes of a group with another value; blanks around it stay.
std::string with_value(const RawGroup &group, std::string_view value);

enum class ValueType : uint8_t { text, word, real, integer, handle };

// What the values of a code are. A word is a text that the format itself reads: names of records
// and subclasses, heads of lists.
ValueType value_type(int code);

std::optional<double> real_in(std::string_view value);
std::optional<int64_t> integer_in(std::string_view value);
std::optional<uint64_t> handle_in(std::string_view value);
std::string handle_text(uint64_t handle);

// Handles of one file as those of another one. What it doesn't hold stays as it is. Files choose
// their handles, so that nothing is hashed.
class HandleMap {
  public:
    void put(uint64_t from, uint64_t to) { map_.emplace_back(from, to); }
    void sort() { std::sort(map_.begin(), map_.end()); } // when all are in
    uint64_t operator()(uint64_t handle) const {
        const auto at = std::lower_bound(map_.begin(), map_.end(), std::pair(handle, uint64_t{0}));
        return at == map_.end() || at->first != handle ? handle : at->second;
    }

  private:
    std::vector<std::pair<uint64_t, uint64_t>> map_;
};

// The handles by which a table of draw orders sorts stand under the code of a record's own.
inline bool is_sort_handle(std::string_view kind, int code) {
    return code == 5 && kind == "SORTENTSTABLE";
}

// Says of each group of a record in turn whether it is the record's own handle: the first one of
// the code that its kind has it under, outside of lists and in front of data of applications.
class OwnHandle {
  public:
    bool is_at(const RawGroup &group);

  private:
    int code_ = 5;
    bool is_found_ = false, is_first_ = true, is_in_list_ = false;
};

// The record with all its handles mapped; `has_own` says whether it has one of its own. Only the
// digits change, the rest of each line stays.
std::string translated(std::string_view record, const HandleMap &map, bool has_own);

// Whether `a` and the translation of `b` have the same groups, but for line ends and the form of
// codes and handles.
bool is_same_translated(std::string_view a, std::string_view b, const HandleMap &map, bool has_own);

} // namespace dxf
