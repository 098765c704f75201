// Groups are lent from their records. Two lists are paired, between their equal beginnings and
// ends, by a table of what each pairing is worth; where that would be too large, by their places.
#include "dxf/fields.hpp"

#include "dxf/groups.hpp"

#include <algorithm>
#include <cstdint>

namespace dxf {

namespace {

// Cells of the table that pairs two lists of groups best; beyond that they are paired by place.
constexpr size_t kMaxCells = 1 << 20;

constexpr int kLayer = 8, kControl = 102, kExtended = 1000;

struct Name {
    int code;
    std::string_view name;
};

constexpr Name kNames[] = {
    {0, "kind"},
    {1, "text"},
    {2, "name"},
    {3, "more text"},
    {5, "handle"},
    {6, "linetype"},
    {7, "style"},
    {8, "layer"},
    {10, "x"},
    {20, "y"},
    {30, "z"},
    {11, "x 2"},
    {21, "y 2"},
    {31, "z 2"},
    {12, "x 3"},
    {22, "y 3"},
    {32, "z 3"},
    {13, "x 4"},
    {23, "y 4"},
    {33, "z 4"},
    {38, "elevation"},
    {39, "thickness"},
    {48, "line scale"},
    {60, "hidden"},
    {62, "colour"},
    {67, "paper space"},
    {70, "flags"},
    {100, "class"},
    {102, "list"},
    {105, "handle"},
    {210, "extrusion x"},
    {220, "extrusion y"},
    {230, "extrusion z"},
    {330, "owner"},
    {360, "owned"},
    {370, "line width"},
    {410, "layout"},
    {420, "true colour"},
    {430, "colour name"},
    {440, "transparency"},
    {999, "comment"},
    {1001, "application"},
};

constexpr struct {
    std::string_view kind;
    Name name;
} kOwnNames[] = {
    {"CIRCLE", {40, "radius"}},        {"ARC", {40, "radius"}},
    {"ARC", {50, "start angle"}},      {"ARC", {51, "end angle"}},
    {"ELLIPSE", {40, "ratio"}},        {"ELLIPSE", {41, "start"}},
    {"ELLIPSE", {42, "end"}},          {"TEXT", {40, "height"}},
    {"TEXT", {50, "rotation"}},        {"MTEXT", {40, "height"}},
    {"MTEXT", {41, "width"}},          {"MTEXT", {50, "rotation"}},
    {"ATTRIB", {40, "height"}},        {"ATTRIB", {2, "tag"}},
    {"ATTDEF", {40, "height"}},        {"ATTDEF", {2, "tag"}},
    {"INSERT", {2, "block"}},          {"INSERT", {41, "scale x"}},
    {"INSERT", {42, "scale y"}},       {"INSERT", {43, "scale z"}},
    {"INSERT", {50, "rotation"}},      {"LWPOLYLINE", {40, "start width"}},
    {"LWPOLYLINE", {41, "end width"}}, {"LWPOLYLINE", {42, "bulge"}},
    {"LWPOLYLINE", {43, "width"}},     {"LWPOLYLINE", {90, "vertices"}},
    {"VERTEX", {42, "bulge"}},         {"HATCH", {2, "pattern"}},
    {"HATCH", {41, "scale"}},          {"HATCH", {52, "angle"}},
    {"LAYER", {6, "linetype"}},        {"STYLE", {3, "font"}},
};

using Fields = std::vector<Field>;

// Compares what is between the equal beginning and the equal end of two lists.
class Alignment {
  public:
    Alignment(const Fields &from, const Fields &to) : from_(from), to_(to) {
        old_end_ = from.size(), new_end_ = to.size();
        while (begin_ < old_end_ && begin_ < new_end_ && from[begin_] == to[begin_]) ++begin_;
        while (old_end_ > begin_ && new_end_ > begin_ && from[old_end_ - 1] == to[new_end_ - 1])
            --old_end_, --new_end_;
    }

    std::vector<FieldChange> run() {
        const size_t rows = old_end_ - begin_ + 1, columns = new_end_ - begin_ + 1;
        if (rows > kMaxCells / columns)
            by_place();
        else
            best(rows, columns);
        return std::move(changes_);
    }

  private:
    // What it is worth to take two groups for the same one: never if their codes differ, and
    // equal values count more than any number of pairs that aren't.
    uint32_t worth(const Field &a, const Field &b) const {
        if (a.code != b.code) return 0;
        return a.value == b.value ? kEqual : 1;
    }

    // Cell (i, j) of the table: the worth of the best pairing of what begins there.
    void best(size_t rows, size_t columns) {
        std::vector<uint32_t> table(rows * columns);
        auto cell = [&](size_t i, size_t j) -> uint32_t & { return table[i * columns + j]; };
        for (size_t i = rows - 1; i-- > 0;)
            for (size_t j = columns - 1; j-- > 0;) {
                const uint32_t pair = worth(from_[begin_ + i], to_[begin_ + j]);
                cell(i, j) = std::max(
                    {cell(i + 1, j), cell(i, j + 1), pair ? pair + cell(i + 1, j + 1) : 0});
            }
        for (size_t i = 0, j = 0; i + 1 < rows || j + 1 < columns;) {
            const bool both = i + 1 < rows && j + 1 < columns;
            const uint32_t pair = both ? worth(from_[begin_ + i], to_[begin_ + j]) : 0;
            if (pair && cell(i, j) == pair + cell(i + 1, j + 1))
                put(begin_ + i++, begin_ + j++);
            else if (i + 1 < rows && (j + 1 == columns || cell(i, j) == cell(i + 1, j)))
                removed(begin_ + i++);
            else
                added(begin_ + j++);
        }
    }

    void by_place() {
        for (size_t i = begin_; i < std::max(old_end_, new_end_); ++i) {
            if (i < old_end_ && i < new_end_ && from_[i].code == to_[i].code) {
                put(i, i);
                continue;
            }
            if (i < old_end_) removed(i);
            if (i < new_end_) added(i);
        }
    }

    void put(size_t i, size_t j) {
        if (from_[i].value != to_[j].value)
            changes_.push_back({from_[i].code, from_[i].value, to_[j].value});
    }
    void removed(size_t i) { changes_.push_back({from_[i].code, from_[i].value, {}}); }
    void added(size_t j) { changes_.push_back({to_[j].code, {}, to_[j].value}); }

    static constexpr uint32_t kEqual = 1 << 11; // above the side of any table's shorter list
    const Fields &from_, &to_;
    size_t begin_ = 0, old_end_, new_end_;
    std::vector<FieldChange> changes_;
};

} // namespace

std::vector<Field> split_fields(std::string_view record) {
    std::vector<Field> fields;
    for (RawGroup group; take_group(record, group);) fields.push_back({group.code, group.value});
    return fields;
}

std::string_view record_layer(std::string_view record) {
    bool in_list = false;
    for (RawGroup group; take_group(record, group);) {
        if (group.code >= kExtended) break;
        if (group.code == kControl) in_list = trim_blanks(group.value).starts_with('{');
        if (group.code == kLayer && !in_list) return trim_blanks(group.value);
    }
    return {};
}

std::string_view field_name(std::string_view kind, int code) {
    for (const auto &own : kOwnNames)
        if (own.name.code == code && own.kind == kind) return own.name.name;
    const auto *at = std::ranges::find(kNames, code, &Name::code);
    return at == std::end(kNames) ? std::string_view() : at->name;
}

std::vector<FieldChange> compare_fields(std::string_view from, std::string_view to) {
    const Fields old_fields = split_fields(from), new_fields = split_fields(to);
    return Alignment(old_fields, new_fields).run();
}

} // namespace dxf
