// A block is what stands from its BLOCK to its ENDBLK, and its entry in the table of blocks, where
// the file has one.
#include "dxf/merge/names.hpp"

#include "dxf/reader.hpp"

#include <algorithm>
#include <unordered_set>

namespace dxf::merging {

namespace {

using Key = std::pair<std::string_view, std::string>; // type and name

class Unite {
  public:
    explicit Unite(Merging &merging) : merging_(merging) {}

    void run() {
        std::map<Key, std::pair<uint32_t, uint32_t>> pairs; // of ours and theirs
        for (uint32_t i = 0; i < merging_.items.size(); ++i) {
            const Item &item = merging_.items[i];
            if (item.is_in(kBase) || item.is_in(kOurs) == item.is_in(kTheirs)) continue;
            const std::string_view row = merging_.any_row(item);
            Name name = name_of(row);
            if (name.table == Table::none) continue;
            auto &pair =
                pairs.try_emplace({record_type(row), std::move(name.text)}, kNowhere, kNowhere)
                    .first->second;
            (item.is_in(kOurs) ? pair.first : pair.second) = i;
        }
        std::erase_if(pairs, [](const auto &entry) {
            return entry.second.first == kNowhere || entry.second.second == kNowhere;
        });
        for (const auto &[key, pair] : pairs)
            if (key.first == "BLOCK") unite_blocks(key.second, pair.first, pair.second);
        // Styles first, which linetypes name, then these and blocks, which dimension styles do.
        for (const std::string_view type : {"STYLE", "LTYPE", "BLOCK_RECORD", ""})
            for (const auto &[key, pair] : pairs)
                if (type.empty() ? !is_first(key.first) : key.first == type)
                    if (type != "BLOCK_RECORD" || united_.contains(key.second))
                        unite(pair.first, pair.second);
    }

  private:
    static bool is_first(std::string_view type) {
        return type == "BLOCK" || type == "STYLE" || type == "LTYPE" || type == "BLOCK_RECORD";
    }

    // What they point to is compared as the result has it. What theirs alone owns, such as a
    // dictionary, would be nobody's.
    bool is_alike(uint32_t ours, uint32_t theirs) const {
        const std::string_view mine = merging_.row(merging_.items[ours], kOurs),
                               others = merging_.row(merging_.items[theirs], kTheirs);
        const auto renamed = with_handles(others, merging_.handles, 0);
        return same_but_handles(mine, renamed ? std::string_view(*renamed) : others) &&
               (owns_any(mine) || !owns_any(others));
    }

    static bool owns_any(std::string_view row) {
        for (Group group; take_group(row, group);)
            if (group.code == 360) return true;
        return false;
    }

    void unite(uint32_t ours, uint32_t theirs) {
        if (is_alike(ours, theirs)) drop(ours, theirs);
    }

    void drop(uint32_t ours, uint32_t theirs) {
        Item &gone = merging_.items[theirs];
        gone.is_forced = true;
        gone.side = Side::ours;
        gone.number = 0;
        merging_.handles[gone.id] = merging_.aliases[gone.id] = merging_.items[ours].id;
    }

    // The items of a block that one side added as a whole; none for another one.
    std::vector<uint32_t> block(uint32_t first, Version version) const {
        std::vector<uint32_t> members;
        const std::vector<uint32_t> &list = merging_.item_at[version];
        for (uint32_t at = merging_.items[first].place[version]; at < list.size(); ++at) {
            if (list[at] == kNowhere) return {};
            members.push_back(list[at]);
            if (record_type(merging_.row(merging_.items[list[at]], version)) == "ENDBLK")
                return members;
        }
        return {};
    }

    void unite_blocks(const std::string &name, uint32_t ours, uint32_t theirs) {
        const std::vector<uint32_t> a = block(ours, kOurs), b = block(theirs, kTheirs);
        if (a.empty() || a.size() != b.size()) return;
        for (size_t i = 0; i < a.size(); ++i) {
            const Item &mine = merging_.items[a[i]], &others = merging_.items[b[i]];
            if (mine.is_in(kTheirs) || others.is_in(kOurs) || !is_alike(a[i], b[i])) return;
        }
        for (size_t i = 0; i < a.size(); ++i) drop(a[i], b[i]);
        united_.insert(name);
    }

    Merging &merging_;
    std::unordered_set<std::string> united_;
};

} // namespace

void unite_names(Merging &merging) { Unite(merging).run(); }

} // namespace dxf::merging
