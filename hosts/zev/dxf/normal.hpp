// Normal form: what a record says, whoever wrote it.
#pragma once

#include "dxf/defaults.hpp"
#include "dxf/groups.hpp"

#include <string_view>
#include <vector>

namespace dxf {

struct NormalGroup {
    int code;
    ValueType type; // `text` for a value that is not of its code's type
    bool is_exact;  // data of an application, which prints its reals to the last digit
    union {
        double real;
        int64_t integer;
        uint64_t handle;
    };
    std::string_view text; // of texts and words
};

// One record. Reading the next one into it uses its memory again; it lends from the bytes.
class NormalRecord {
  public:
    NormalRecord() = default;
    explicit NormalRecord(std::string_view record) { read(record); }

    // Handles as `map` has them, which may be null; `has_own` says whether the record has one.
    void read(std::string_view record, const HandleMap *map = nullptr, bool has_own = true);

    std::string_view kind() const { return kind_; }
    Family family() const { return family_; }

    // The same for records that differ in their handles only. Records that are equal in normal form
    // have the same one, but for numbers that lie on both sides of a bound of rounding.
    uint64_t content_hash() const;

    // Whether both say the same.
    bool operator==(const NormalRecord &other) const;
    // Of a VERTEX: which of its two widths it has; those of its POLYLINE count for the others.
    unsigned widths() const { return widths_; }
    // How many groups both have, of those in the same order: the more, the more alike.
    size_t shared_groups(const NormalRecord &other) const;

  private:
    struct List {
        std::string_view name;
        size_t begin, end; // in list_groups_
    };

    void take_list(const RawGroup &head, std::string_view &left, const HandleMap *map,
                   OwnHandle &own);
    void take(const RawGroup &group, bool is_own, const HandleMap *map);
    bool is_owner(const RawGroup &group) const;
    void sort_chunks();
    void sort_chunk(size_t begin, size_t end);

    std::string_view kind_, rest_;
    Family family_ = Family::other;
    std::vector<NormalGroup> common_, groups_, list_groups_;
    std::vector<List> lists_;
    std::optional<uint64_t> owner_; // whose place in the file says it as well
    unsigned widths_ = 0;
    bool has_axis_ = false, has_owner_ = false;
    bool is_in_subclass_ = false, is_raw_ = false;
};

// The same, of two records.
bool is_same_in_normal_form(std::string_view a, std::string_view b);

// The same, of what stands between the records.
bool is_same_literal(std::string_view a, std::string_view b);

// Of the variables of two headers, in any order; but for the moments and the marks of saving, and
// for the next free handle where the first one's is above `highest`.
bool is_same_header(std::string_view a, std::string_view b, uint64_t highest);

// Is a record drawn, as opposed to what tables, dictionaries and blocks' bounds hold?
bool is_drawn(std::string_view record);

} // namespace dxf
