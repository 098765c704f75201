// A name is a star, a letter or two, and a number; of a layout that isn't the active one, its word
// and a number. Names that are in use stand in the table of
// blocks; a file of the old kind, which has none, tells them where the blocks are.
#include "dxf/merge/anonymous.hpp"

#include "dxf/reader.hpp"

#include <algorithm>
#include <charconv>
#include <set>

namespace dxf::merging {

namespace {

constexpr std::string_view kLayout = "*PAPER_SPACE";

// Compared by number, so that the new ones come in the order of the former.
struct Anonymous {
    std::string prefix;
    uint64_t number;
    auto operator<=>(const Anonymous &) const = default;
    std::string text() const { return prefix + std::to_string(number); }
    // As programs write it.
    std::string spelled() const {
        return prefix == kLayout ? "*Paper_Space" + std::to_string(number) : text();
    }
};

std::optional<Anonymous> anonymous_name(std::string_view record) {
    const Name name = name_of(record);
    if (name.table != Table::block || !name.text.starts_with('*')) return {};
    const size_t digits = name.text.find_first_of("0123456789");
    if (digits == name.text.npos) return {};
    const bool is_layout = std::string_view(name.text).substr(0, digits) == kLayout;
    if (!is_layout && (digits < 2 || digits > 3)) return {};
    Anonymous found{name.text.substr(0, digits), 0};
    const char *last = name.text.data() + name.text.size();
    const auto [end, error] = std::from_chars(name.text.data() + digits, last, found.number);
    // One that is written otherwise, or has no successor, stays a name like any other.
    if (error != std::errc() || end != last || found.text() != name.text ||
        found.number >= kFirstNumber)
        return {};
    return found;
}

class Renaming {
  public:
    Renaming(Merging &merging, const std::array<Skeleton, 3> &skeletons)
        : merging_(merging), skeletons_(skeletons) {}

    void run() {
        const std::set<Anonymous> both = names_of_both();
        if (both.empty()) return;
        if (!list_names("TABLES")) list_names("BLOCKS");
        for (const Anonymous &name : both) {
            const Anonymous renamed{name.prefix, ++highest_[name.prefix]};
            merging_.names[name.text()] = renamed.spelled();
        }
        for (Item &item : merging_.items)
            if (is_of(item, Side::theirs) && anonymous_name(merging_.row(item, kTheirs)))
                item.row = with_names(merging_.row(item, kTheirs), merging_.names);
    }

  private:
    static bool is_of(const Item &item, Side side) {
        return item.is_kept() && item.side == side && !item.is_in(kBase) &&
               !item.is_in(other(side));
    }

    std::set<Anonymous> names_of_both() {
        std::set<Anonymous> names[2], both;
        for (const Item &item : merging_.items)
            for (const Side side : {Side::ours, Side::theirs})
                if (const auto name = is_of(item, side) ? anonymous_name(merging_.row(item, side))
                                                        : std::nullopt) {
                    names[static_cast<size_t>(side)].insert(*name);
                    note(*name);
                }
        std::ranges::set_intersection(names[0], names[1], std::inserter(both, both.end()));
        return both;
    }

    void note(const Anonymous &name) {
        uint64_t &highest = highest_[name.prefix];
        highest = std::max(highest, name.number);
    }

    // The names in a section of either side; whether there are any.
    bool list_names(std::string_view section) {
        std::vector<DrawingKey> keys;
        for (const Version version : {kOurs, kTheirs})
            for (const Run &run : skeletons_[version].runs)
                for (uint32_t i = 0; run.name == section && i < run.count; ++i)
                    keys.push_back(merging_.lists[version][run.begin + i].key);
        bool has_names = false;
        merging_.rows.pass(std::move(keys), [&](const DrawingKey &, std::string_view row) {
            has_names |= name_of(row).table == Table::block;
            if (const auto name = anonymous_name(row)) note(*name);
        });
        return has_names;
    }

    Merging &merging_;
    const std::array<Skeleton, 3> &skeletons_;
    std::map<std::string, uint64_t> highest_; // number by prefix
};

} // namespace

void rename_anonymous(Merging &merging, const std::array<Skeleton, 3> &skeletons) {
    Renaming(merging, skeletons).run();
}

} // namespace dxf::merging
