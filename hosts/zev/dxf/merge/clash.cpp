// What both added alike under one handle is one object, unless it belongs to one that is not: a
// vertex to its polyline by the order of the list, others by what they name.
#include "dxf/merge/clash.hpp"

#include "dxf/reader.hpp"

#include <algorithm>

namespace dxf::merging {

namespace {

class Clashes {
  public:
    explicit Clashes(Merging &merging) : merging_(merging), clashes_(merging.items.size()) {}

    // The items that clash, in the order of their list.
    std::vector<uint32_t> find() {
        for (uint32_t i = 0; i < clashes_.size(); ++i) {
            const Item &item = merging_.items[i];
            if (!item.is_added_by_both()) continue;
            added_.push_back(i);
            if (!merging_.is_same(item, kOurs, kTheirs)) add(i);
        }
        if (found_.empty()) return {};
        gather_members();
        gather_names();
        for (size_t next = 0; next < found_.size(); ++next) spread(found_[next]);
        const auto by_place = [this](uint32_t i) { return merging_.items[i].place[kTheirs]; };
        std::ranges::sort(found_, {}, by_place);
        return found_;
    }

  private:
    using Pair = std::pair<uint64_t, uint32_t>; // what it is looked up by, and the item

    void add(uint32_t item) {
        if (clashes_[item]) return;
        clashes_[item] = true;
        found_.push_back(item);
    }

    // Items of both sides, each with the first of its polyline, insert or block.
    void gather_members() {
        uint32_t block = kNowhere, head = kNowhere;
        heads_.assign(merging_.items.size(), kNowhere);
        is_spread_.assign(merging_.items.size(), false);
        for (const uint32_t i : merging_.item_at[kTheirs]) {
            const std::string_view type =
                i == kNowhere ? "" : record_type(merging_.row(merging_.items[i], kTheirs));
            // What is the same in all versions lies behind a block that is new, as its end does.
            if (i == kNowhere || !merging_.items[i].is_added_by_both()) {
                head = kNowhere;
                if (i == kNowhere || type == "ENDBLK") block = kNowhere;
                continue;
            }
            if (type == "BLOCK") block = i;
            if (type == "POLYLINE" || type == "INSERT") head = i;
            if (type != "POLYLINE" && type != "INSERT" && !is_member(type)) head = kNowhere;
            const uint32_t first = block != kNowhere ? block : head;
            if (first != kNowhere) heads_[i] = first, members_.push_back({first, i});
            if (type == "ENDBLK") block = kNowhere;
        }
        std::sort(members_.begin(), members_.end());
    }

    void gather_names() {
        for (const uint32_t i : added_)
            for (const Version side : {kOurs, kTheirs})
                visit_handles(merging_.row(merging_.items[i], side), [&](uint64_t handle) {
                    names_.push_back({handle, i});
                });
        std::sort(names_.begin(), names_.end());
    }

    void spread(uint32_t item) {
        const auto take = [this](const std::vector<Pair> &pairs, uint64_t what) {
            for (auto at = std::lower_bound(pairs.begin(), pairs.end(), Pair{what, 0});
                 at != pairs.end() && at->first == what; ++at)
                add(at->second);
        };
        if (const uint32_t head = heads_[item]; head != kNowhere && !is_spread_[head]) {
            is_spread_[head] = true;
            take(members_, head);
        }
        take(names_, merging_.items[item].id);
    }

    Merging &merging_;
    std::vector<bool> clashes_, is_spread_; // the latter by head
    std::vector<uint32_t> added_, found_, heads_;
    std::vector<Pair> members_, names_;
};

} // namespace

uint64_t separate_clashes(Merging &merging, uint64_t free_handle) {
    uint64_t count = 0;
    for (const uint32_t i : Clashes(merging).find()) {
        Item &theirs = merging.items[merging.split(i)];
        if (theirs.id >= kFirstNumber) continue; // a number that no record names
        if (free_handle >= kFirstNumber)
            throw host::Failed(host::kOther, host::say("%s: no handle is free", merging.name));
        theirs.number = free_handle++;
        merging.handles[theirs.id] = theirs.number;
        ++count;
    }
    return count;
}

} // namespace dxf::merging
