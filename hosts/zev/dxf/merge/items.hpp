// Items: the objects in which three versions of a drawing are not the same, one for each, and
// which side's state of it the result takes.
#pragma once

#include "dxf/content.hpp"
#include "dxf/merge.hpp"
#include "dxf/merge/references.hpp"
#include "dxf/merge/rows.hpp"

#include <array>

namespace dxf::merging {

enum Version : uint8_t { kBase, kOurs, kTheirs };
constexpr Version version_of(Side side) { return side == Side::ours ? kOurs : kTheirs; }
constexpr Side other(Side side) { return side == Side::ours ? Side::theirs : Side::ours; }

constexpr uint32_t kNowhere = UINT32_MAX;

// An object of one version. Objects of several versions with one id are the same one: named ones
// by their handles, those without handle as they were paired (merge_align.hpp).
struct Entry {
    uint64_t id;
    DrawingKey key;
};

struct Item {
    uint64_t id;
    std::array<uint32_t, 3> place{kNowhere, kNowhere, kNowhere}; // in the list of each version
    Side side = Side::ours;           // whose state the result takes, also when that hasn't got it
    bool is_same = false;             // ours and theirs have the same bytes, or both lack it
    bool is_fixed = false;            // by the user
    bool is_forced = false;           // to come back, or to go, with what a decision was about
    bool is_disputed = false;         // all have it, and both changed it in their own way
    bool is_composed = false;         // `row` is of both sides, with the handles of the result
    bool is_apart = false;            // the other side added another one under the same id
    uint64_t number = 0;              // in place of the handle it has in theirs, 0: it keeps that
    std::optional<std::string> row{}; // in place of the side's
    std::string reason{};             // why it is in conflict; empty: it isn't
    uint32_t rival = kNowhere;        // the item of ours with its name, if that is why

    bool is_in(Version version) const { return place[version] != kNowhere; }
    bool is_in(Side from) const { return is_in(version_of(from)); }
    bool is_kept() const { return is_in(side); }
    bool is_added_by_both() const { return !is_in(kBase) && is_in(kOurs) && is_in(kTheirs); }
};

// The three versions of one merge, and what is found out about them.
struct Merging {
    Merging(const std::array<const Keys *, 3> &versions, std::string name, Rows &rows);

    std::array<const Keys *, 3> keys;
    std::string name; // for messages
    Rows &rows;
    std::array<std::vector<Entry>, 3> lists;
    std::vector<Item> items;
    std::array<std::vector<uint32_t>, 3> item_at; // by place; kNowhere: the same in all versions
    std::vector<uint32_t> in_ours;                // by place in theirs: the place in ours
    // Handles that rows of theirs name, and what the result has in place of them; aliases are those
    // of ours', for what both added alike under several handles.
    Handles handles, aliases;
    Names names; // likewise, of blocks

    const Entry &entry(const Item &item, Version version) const {
        return lists[version][item.place[version]];
    }
    // The row of a version that has the item.
    std::string_view row(const Item &item, Version version) const {
        return rows[entry(item, version).key];
    }
    std::string_view row(const Item &item, Side side) const { return row(item, version_of(side)); }
    // What the result has; the item must be kept.
    std::string_view result_row(const Item &item) const {
        return item.row ? std::string_view(*item.row) : row(item, item.side);
    }
    // Of a row in whichever version has the item.
    std::string_view any_row(const Item &item) const;
    bool is_same(const Item &item, Version a, Version b) const;

    // Finds the items once the lists have their ids. Throws when a version has one id twice.
    void find_items();
    // An item of both sides becomes one of ours and one of theirs, which comes back.
    size_t split(size_t item);
};

} // namespace dxf::merging
