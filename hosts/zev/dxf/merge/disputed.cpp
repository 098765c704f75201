// An entry stands for its object: by a decision on that one it may have to come back, or to go.
#include "dxf/merge/disputed.hpp"

#include <algorithm>

namespace dxf::merging {

Disputed::Disputed(Merging &merging, bool has_decisions) : merging_(merging) {
    for (uint32_t i = 0; i < merging.items.size(); ++i) {
        const Item &item = merging.items[i];
        if (may_be_composed(item, has_decisions)) found_.push_back({i, item.side, item.reason});
    }
    if (found_.empty()) return;
    for (uint32_t i = 0; i < merging.items.size(); ++i) {
        const Item &item = merging.items[i];
        by_handle_.push_back({item.number ? item.number : item.id, i});
    }
    // Of theirs that was dropped for one of ours, which has its handle, the latter comes first.
    std::ranges::sort(by_handle_, [&merging](const auto &a, const auto &b) {
        const auto rank = [&merging](const auto &entry) {
            return std::tuple(entry.first, !merging.items[entry.second].is_in(kOurs), entry.second);
        };
        return rank(a) < rank(b);
    });
}

bool Disputed::may_be_composed(const Item &item, bool has_decisions) const {
    if (item.is_fixed || item.is_forced || item.is_same || item.row) return false;
    if (!item.is_disputed && !has_decisions) return false;
    for (const Version version : {kBase, kOurs, kTheirs})
        if (!item.is_in(version)) return false;
    return has_parts_to_compose(merging_.row(item, kOurs)) ||
           has_parts_to_compose(merging_.row(item, kTheirs));
}

void Disputed::compose_all() {
    for (const Plain &plain : found_) {
        Item &item = merging_.items[plain.item];
        // Another conflict may have been found in it since.
        if (item.is_fixed || item.is_forced || (item.is_composed && !item.reason.empty())) continue;
        auto made = composed(item);
        item.is_composed = made && (item.is_disputed || made->is_overruled);
        item.side = item.is_composed ? made->side : plain.side;
        item.reason = item.is_composed ? std::string() : plain.reason;
        item.row = item.is_composed ? std::optional(std::move(made->row)) : std::nullopt;
    }
}

std::optional<Composed> Disputed::composed(const Item &item) const {
    std::string theirs(merging_.row(item, kTheirs));
    if (auto named = with_names(theirs, merging_.names)) theirs = std::move(*named);
    if (!merging_.handles.empty())
        if (auto changed = with_handles(theirs, merging_.handles, 0)) theirs = std::move(*changed);
    return compose(merging_.row(item, kBase), merging_.row(item, kOurs), theirs,
                   [this](uint64_t handle) { return fate_of(handle); });
}

Fate Disputed::fate_of(uint64_t handle) const {
    const uint32_t at = find(handle);
    if (at == kNowhere) return Fate::as_merged;
    const Item &item = merging_.items[at];
    const bool is_in_all = item.is_in(kBase) && item.is_in(kOurs) && item.is_in(kTheirs);
    if (item.is_kept()) return is_in_all || !item.is_in(kBase) ? Fate::as_merged : Fate::back;
    // What one side deleted by itself is missed by the other side's new entry, and told.
    const bool is_decided = item.is_fixed || item.is_forced || !item.is_in(kBase);
    return is_decided ? Fate::gone : Fate::as_merged;
}

uint32_t Disputed::find(uint64_t handle) const {
    const auto at = std::ranges::lower_bound(
        by_handle_, std::pair(handle, uint32_t{0}), {},
        [](const auto &entry) { return std::pair(entry.first, uint32_t{0}); });
    return at == by_handle_.end() || at->first != handle ? kNowhere : at->second;
}

} // namespace dxf::merging
