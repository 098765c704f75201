// Only what one side took away can be missing, so that nothing is looked through when neither did.
// A violation is told, or where the user has decided, the missing object comes back, or the one
// that misses it goes. Each object is turned over once at most, which bounds the rounds; a chain
// that is longer than those stays in conflict.
#include "dxf/merge/decide.hpp"
#include "dxf/merge/disputed.hpp"

#include "dxf/reader.hpp"

#include <algorithm>
#include <unordered_set>

namespace dxf::merging {

namespace {

constexpr int kMaxRounds = 64;

using Holders = std::unordered_multimap<Name, uint32_t, NameHash>;

bool is_head(std::string_view type) { return type == "POLYLINE" || type == "INSERT"; }

// What a side has of the items.
struct Inventory {
    std::unordered_map<uint64_t, uint32_t> objects; // by its own handles
    Holders names;
};

class Needs {
  public:
    Needs(Merging &merging, const Choices &choices,
          const std::array<std::vector<uint32_t>, 3> &runs)
        : merging_(merging), choices_(choices), runs_(runs),
          disputed_(merging, !choices.decided.empty() || choices.others) {
        for (uint32_t i = 0; i < merging.items.size(); ++i)
            for (const Side side : {Side::ours, Side::theirs}) list(i, side);
        for (const auto &[name, i] : names_of(Side::theirs)) replace_dropped(name, i);
    }

    void run() {
        disputed_.compose_all();
        for (uint32_t i = 0; i < merging_.items.size(); ++i) bring_members(i);
        for (int round = 0; round < kMaxRounds; ++round) {
            if (round) disputed_.compose_all();
            is_turned_ = false;
            violations_.clear();
            look_at_dictionaries();
            look();
            for (const auto &[item, why] : violations_) settle(item, why);
            if (!is_turned_) break;
        }
        for (const auto &[item, why] : violations_)
            if (merging_.items[item].reason.empty() && merging_.items[item].is_kept()) {
                merging_.items[item].reason = why.reason;
                merging_.items[item].rival = why.rival;
            }
    }

  private:
    struct Why {
        std::string reason;
        std::vector<uint32_t> missing{};
        uint32_t rival = kNowhere; // of ours, that has the name of theirs
    };

    void list(uint32_t i, Side side) {
        const Item &item = merging_.items[i];
        if (!item.is_in(side)) return;
        Inventory &inventory = has_[static_cast<size_t>(side)];
        inventory.objects.emplace(item.id, i);
        Name name = name_of(merging_.row(item, side));
        if (name.table != Table::none) inventory.names.emplace(std::move(name), i);
    }

    const Holders &names_of(Side side) const { return has_[static_cast<size_t>(side)].names; }

    // By a decision against an entry of theirs ours' of the same name takes its place.
    void replace_dropped(const Name &name, uint32_t i) {
        const Item &item = merging_.items[i];
        if (item.is_kept() || item.is_in(kBase) || merging_.aliases.contains(item.id)) return;
        const auto [begin, end] = names_of(Side::ours).equal_range(name);
        for (auto at = begin; at != end; ++at)
            if (merging_.items[at->second].is_kept() &&
                record_type(merging_.row(item, kTheirs)) ==
                    record_type(merging_.row(merging_.items[at->second], kOurs)))
                return name_instead(i, at->second);
    }

    // ---- Looking

    void look() {
        list_result();
        look_for_rivals();
        bool is_missing = std::ranges::any_of(merging_.items, [](const Item &item) {
            return is_gone(item) && (item.is_in(kOurs) || item.is_in(kTheirs));
        });
        if (is_missing || is_name_gone()) look_at_rows();
        if (!is_missing) return;
        for (const Side side : {Side::ours, Side::theirs}) look_at_places(side);
    }

    // What is in conflict by itself counts as there, one way or the other.
    static bool is_gone(const Item &item) { return !item.is_kept() && item.reason.empty(); }

    bool is_name_gone() const {
        for (const Inventory &inventory : has_)
            for (const auto &[name, i] : inventory.names)
                if (!names_.contains(name)) return true;
        return false;
    }

    void look_at_rows() {
        for (uint32_t i = 0; i < merging_.items.size(); ++i) {
            const Item &item = merging_.items[i];
            if (item.is_kept() && !item.is_same) look_at(i, item);
        }
    }

    // Two entries of a table with one name, of which each side has but one.
    void look_for_rivals() {
        std::map<std::pair<std::string_view, std::string>, uint32_t> first;
        for (uint32_t i = 0; i < merging_.items.size(); ++i) {
            const Item &item = merging_.items[i];
            if (!item.is_kept()) continue;
            const std::string_view row = merging_.result_row(item);
            const Name name = name_of(row);
            if (name.table == Table::none) continue;
            const auto [at, is_first] = first.try_emplace({record_type(row), name.text}, i);
            const Item &rival = merging_.items[at->second];
            if (is_first || are_of_one_side(item, rival, name)) continue;
            const bool is_theirs = item.side == Side::theirs;
            violate(is_theirs ? i : at->second, kNowhere,
                    host::say("both have a %s of the name %s", std::string(at->first.first),
                              at->first.second));
            violations_[is_theirs ? i : at->second].rival = is_theirs ? at->second : i;
        }
    }

    // Each side for itself may have two of one name.
    bool are_of_one_side(const Item &a, const Item &b, const Name &name) const {
        const auto has = [&](const Item &item, Side side) {
            return item.is_in(side) && name_of(merging_.row(item, side)) == name;
        };
        return a.side == b.side || (has(a, Side::ours) && has(b, Side::ours)) ||
               (has(a, Side::theirs) && has(b, Side::theirs));
    }

    void list_result() {
        names_.clear();
        for (const Side side : {Side::ours, Side::theirs})
            for (const auto &[name, i] : has_[static_cast<size_t>(side)].names)
                if (merging_.items[i].is_kept() && merging_.items[i].side == side)
                    names_.insert(name);
    }

    void look_at(uint32_t i, const Item &item) {
        visit_needs(merging_.result_row(item), [&](const Reference &reference) {
            if (reference.need != Need::name) return look_for_object(i, item, reference);
            look_for_name(i, item.side, reference.name);
            if (item.is_composed) look_for_name(i, other(item.side), reference.name);
        });
    }

    void look_for_object(uint32_t i, const Item &item, const Reference &reference) {
        const uint32_t at = item.is_composed ? disputed_.find(reference.handle)
                                             : find_object(item.side, reference.handle);
        if (at == kNowhere || !is_gone(merging_.items[at])) return;
        const std::string handle = handle_text(reference.handle);
        violate(i, at,
                reference.need == Need::owner ? host::say("its owner %s is gone", handle)
                                              : host::say("%s, which it names, is gone", handle));
    }

    // By the handle that a row of a side has for it.
    uint32_t find_object(Side side, uint64_t handle) const {
        const auto alias = merging_.aliases.find(handle);
        const bool is_alias = side == Side::theirs && alias != merging_.aliases.end();
        const Inventory &inventory = has_[static_cast<size_t>(is_alias ? Side::ours : side)];
        const auto at = inventory.objects.find(is_alias ? alias->second : handle);
        return at == inventory.objects.end() ? kNowhere : at->second;
    }

    void look_for_name(uint32_t i, Side side, const Name &name) {
        const auto [begin, end] = has_[static_cast<size_t>(side)].names.equal_range(name);
        if (begin == end || names_.contains(name)) return;
        for (auto at = begin; at != end; ++at) violate(i, at->second, reason(name));
    }

    static std::string reason(const Name &name) {
        switch (name.table) {
        case Table::layer:
            return host::say("its layer %s is gone", name.text);
        case Table::linetype:
            return host::say("its linetype %s is gone", name.text);
        case Table::block:
            return host::say("its block %s is gone", name.text);
        case Table::application:
            return host::say("the application %s, whose data it has, is gone", name.text);
        default:
            return host::say("its style %s is gone", name.text);
        }
    }

    void violate(uint32_t item, uint32_t missing, std::string reason) {
        auto [at, is_new] = violations_.try_emplace(item);
        if (is_new) at->second.reason = std::move(reason);
        if (missing != kNowhere) at->second.missing.push_back(missing);
    }

    // What the other side put into a dictionary that a decision keeps as one side has it, goes, or
    // is told where it was decided to stay.
    void look_at_dictionaries() {
        for (uint32_t i = 0; i < merging_.items.size(); ++i) {
            const Item &item = merging_.items[i];
            const bool is_decided =
                item.is_fixed || item.is_forced || (item.is_disputed && choices_.others);
            if (!is_decided || item.is_composed || !item.is_in(kOurs) || !item.is_in(kTheirs))
                continue;
            const std::string_view row = merging_.row(item, other(item.side));
            if (is_dictionary(row))
                visit_entries(row, [&](uint64_t handle) { leave_out(i, item, handle); });
        }
    }

    void leave_out(uint32_t dictionary, const Item &item, uint64_t handle) {
        const Side side = item.side;
        const uint32_t at = find_object(other(side), handle);
        if (at == kNowhere) return;
        const Item &object = merging_.items[at];
        if (!object.is_kept() || !object.reason.empty() || object.is_in(side) ||
            owner_of(merging_.row(object, other(side))) != item.id)
            return;
        if (object.is_fixed || object.is_forced)
            violate(at, dictionary,
                    host::say("its dictionary %s doesn't name it", handle_text(item.id)));
        else
            take_with_owned(at, side);
    }

    // And all that was added as a part of it.
    void take_with_owned(uint32_t first, Side side) {
        if (owned_.empty()) list_owned();
        std::vector<uint32_t> found{first};
        for (size_t next = 0; next < found.size(); ++next) {
            if (!turn(merging_.items[found[next]], side)) continue;
            const std::pair owner(merging_.items[found[next]].id, uint32_t{0});
            for (auto at = std::ranges::lower_bound(owned_, owner);
                 at != owned_.end() && at->first == owner.first; ++at)
                if (!merging_.items[at->second].is_in(side)) found.push_back(at->second);
        }
    }

    void list_owned() {
        for (uint32_t i = 0; i < merging_.items.size(); ++i) {
            const Item &item = merging_.items[i];
            if (item.is_in(kBase) || item.is_in(kOurs) == item.is_in(kTheirs)) continue;
            const std::string_view row = merging_.any_row(item);
            if (const auto owner = owner_of(row)) owned_.push_back({*owner, i});
            if (record_type(row) == "BLOCK_RECORD") // a layout's is a part of it
                visit_needs(row, [&](const Reference &reference) {
                    if (reference.need == Need::object) owned_.push_back({reference.handle, i});
                });
        }
        std::ranges::sort(owned_);
    }

    // What stands within a block, or behind a polyline or an insert, which is gone.
    void look_at_places(Side side) {
        const Version version = version_of(side);
        uint32_t block = kNowhere, head = kNowhere;
        auto run = runs_[version].begin();
        for (uint32_t place = 0; place < merging_.item_at[version].size(); ++place) {
            for (; run != runs_[version].end() && *run <= place; ++run) block = head = kNowhere;
            const uint32_t i = merging_.item_at[version][place];
            if (i == kNowhere) {
                head = kNowhere;
                continue;
            }
            const Item &item = merging_.items[i];
            const std::string_view type = record_type(merging_.row(item, side));
            if (type == "BLOCK") block = is_gone(item) ? i : kNowhere;
            const bool is_theirs = item.is_kept() && item.side == side && !item.is_same;
            const uint32_t missing = is_member(type) && head != kNowhere ? head : block;
            if (is_theirs && missing != kNowhere)
                violate(i, missing,
                        host::say(
                            "the %s that it is part of is gone",
                            std::string(record_type(merging_.row(merging_.items[missing], side)))));
            if (type == "ENDBLK") block = kNowhere;
            if (!is_member(type))
                head = is_head(type) && (is_gone(item) || is_end_gone(item, side)) ? i : kNowhere;
        }
    }

    // Whether a side's members have no end, since the result has the head as the other side has
    // it, without any.
    bool is_end_gone(const Item &head, Side side) const {
        const uint32_t end = end_of(head, version_of(side));
        return end != kNowhere && is_gone(merging_.items[end]) && head.is_in(other(side)) &&
               end_of(head, version_of(other(side))) == kNowhere;
    }

    // The SEQEND of a polyline or an insert, unless it is the same in all versions.
    uint32_t end_of(const Item &head, Version version) const {
        const std::vector<uint32_t> &list = merging_.item_at[version];
        for (uint32_t place = head.place[version] + 1; place < list.size(); ++place) {
            if (list[place] == kNowhere) break;
            const std::string_view type =
                record_type(merging_.row(merging_.items[list[place]], version));
            if (type == "SEQEND") return list[place];
            if (!is_member(type)) break;
        }
        return kNowhere;
    }

    // ---- Settling

    void settle(uint32_t i, const Why &why) {
        Item &item = merging_.items[i];
        if (why.rival != kNowhere) return settle_rivals(i, why.rival);
        // What is apart from ours under one number was not decided by that before.
        const auto side = item.is_apart ? decided(item) : choices_.others;
        if (item.is_composed && side) {
            bool is_settled = false;
            for (const uint32_t missing : why.missing) is_settled |= take(missing, *side);
            if (!is_settled) take(i, *side);
        } else if (item.is_fixed || item.is_forced || side == item.side) {
            for (const uint32_t missing : why.missing) take(missing, item.side);
        } else if (side) {
            take(i, *side);
        }
    }

    std::optional<Side> decided(const Item &item) const {
        const auto at = choices_.decided.find(item.id);
        return at != choices_.decided.end() ? std::optional(at->second) : choices_.others;
    }

    void settle_rivals(uint32_t theirs, uint32_t ours) {
        const auto side = decided(merging_.items[theirs]);
        if (!side) return;
        take(*side == Side::ours ? theirs : ours, *side);
        // It may have gone back to its former name.
        if (*side == Side::ours && !merging_.items[theirs].is_kept()) name_instead(theirs, ours);
    }

    // What names the object of theirs, that goes, names the one of ours.
    void name_instead(uint32_t theirs, uint32_t ours) {
        const uint64_t handle = merging_.items[theirs].id;
        merging_.handles[handle] = merging_.aliases[handle] = merging_.items[ours].id;
    }

    // False where that is settled.
    bool turn(Item &item, Side side) {
        if (item.is_fixed || item.is_forced) return false;
        item.is_forced = is_turned_ = true;
        item.side = side;
        item.is_composed = false;
        item.row.reset();
        item.reason.clear();
        return true;
    }

    // The state of a side, to be there or not. False where that is settled.
    bool take(uint32_t i, Side side) {
        Item &item = merging_.items[i];
        if (!turn(item, side)) return false;
        if (are_members_of_sides(item)) turn_members(item, side);
        return true;
    }

    // What a decision keeps has all that is within as that side has it.
    void bring_members(uint32_t i) {
        Item &item = merging_.items[i];
        if (!item.is_kept() || !item.reason.empty() || !are_members_of_sides(item)) return;
        if (has_two_ends(item)) return choose_members(item);
        const bool is_decided =
            item.is_fixed || (choices_.others && !item.is_composed && is_changed_by_both(item));
        if (is_decided && item.is_in(kBase)) turn_members(item, item.side);
    }

    bool is_changed_by_both(const Item &item) const {
        return !item.is_same && !merging_.is_same(item, kBase, kOurs) &&
               !merging_.is_same(item, kBase, kTheirs);
    }

    // Whether one side alone has a block, a polyline or an insert, or what ends its members.
    bool are_members_of_sides(const Item &item) const {
        const bool is_in_both = item.is_in(kOurs) && item.is_in(kTheirs);
        const std::string_view type = record_type(merging_.any_row(item));
        if (!is_in_both) return type == "BLOCK" || is_head(type);
        return is_head(type) && end_of(item, kOurs) != end_of(item, kTheirs);
    }

    bool has_two_ends(const Item &head) const {
        if (!head.is_in(kOurs) || !head.is_in(kTheirs)) return false;
        const uint32_t ours = end_of(head, kOurs), theirs = end_of(head, kTheirs);
        const auto is_kept = [this](uint32_t end) {
            return end != kNowhere && merging_.items[end].is_kept();
        };
        return is_kept(ours) && is_kept(theirs);
    }

    // Both gave one insert its first attributes.
    void choose_members(Item &head) {
        if (const auto side = decided(head))
            turn_members(head, *side);
        else
            head.reason = host::say("changed by both");
    }

    // All within, as far as a side has it or not.
    void turn_members(const Item &item, Side side) {
        const bool is_block = record_type(merging_.any_row(item)) == "BLOCK";
        for (const Side holder : {Side::ours, Side::theirs}) {
            if (!item.is_in(holder)) continue;
            const std::vector<uint32_t> &list = merging_.item_at[version_of(holder)];
            for (uint32_t place = item.place[version_of(holder)] + 1; place < list.size();
                 ++place) {
                if (list[place] == kNowhere) break;
                Item &next = merging_.items[list[place]];
                const std::string_view member = record_type(merging_.row(next, holder));
                if (!is_block && !is_member(member)) break;
                if (next.is_kept() != next.is_in(side)) turn(next, side);
                if (member == (is_block ? "ENDBLK" : "SEQEND")) break;
            }
        }
    }

    Merging &merging_;
    const Choices &choices_;
    const std::array<std::vector<uint32_t>, 3> &runs_;
    std::array<Inventory, 2> has_;
    std::unordered_set<Name, NameHash> names_; // of the result
    std::map<uint32_t, Why> violations_;
    Disputed disputed_;
    std::vector<std::pair<uint64_t, uint32_t>> owned_; // additions, by their owners
    bool is_turned_ = false;
};

} // namespace

void decide_by_needs(Merging &merging, const Choices &choices,
                     const std::array<std::vector<uint32_t>, 3> &runs) {
    Needs(merging, choices, runs).run();
}

} // namespace dxf::merging
