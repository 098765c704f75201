// What one side did is taken, and what both did alike. The number of entries at the head of a table
// is advice that every editor writes anew: the larger one is taken. Of pictures of the drawing the
// newer side's.
#include "dxf/merge/decide.hpp"

#include "dxf/reader.hpp"

#include <charconv>

namespace dxf::merging {

namespace {

constexpr int kCount = 70;

std::optional<int64_t> count_in(std::string_view record, Group &found) {
    for (Group group; take_group(record, group) && group.code < 1000;) {
        if (group.code != kCount) continue;
        const std::string_view digits = trim_blanks(group.value);
        int64_t count = 0;
        const auto [end, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), count);
        if (error != std::errc() || end != digits.data() + digits.size()) return {};
        found = group;
        return count;
    }
    return {};
}

// The head of a table with the value of another one's count.
std::string with_count(std::string_view head, const Group &own, const Group &other) {
    const auto begin = static_cast<size_t>(own.bytes.data() - head.data());
    return std::string(head.substr(0, begin)) + with_value(own, trim_blanks(other.value)) +
           std::string(head.substr(begin + own.bytes.size()));
}

// Of the head of a table that both changed: whose it is but for the count, if they agree in all
// else, or one side alone changed that.
std::optional<std::pair<Side, std::string>>
merged_head(std::string_view base, std::string_view ours, std::string_view theirs) {
    Group of_base, of_ours, of_theirs;
    const auto first = count_in(base, of_base), mine = count_in(ours, of_ours),
               others = count_in(theirs, of_theirs);
    if (!first || !mine || !others) return {};
    const Group &larger = *others > *mine ? of_theirs : of_ours;
    const std::string a = with_count(base, of_base, larger), b = with_count(ours, of_ours, larger),
                      c = with_count(theirs, of_theirs, larger);
    if (b == c || a == c) return std::pair(Side::ours, b);
    if (a == b) return std::pair(Side::theirs, c);
    return {};
}

class ByChange {
  public:
    ByChange(Merging &merging, const Choices &choices) : merging_(merging), choices_(choices) {}

    void run() {
        for (Item &item : merging_.items) decide(item);
    }

  private:
    void decide(Item &item) {
        if (!item.is_in(kBase) && item.is_in(kOurs) != item.is_in(kTheirs)) {
            item.side = item.is_in(kOurs) ? Side::ours : Side::theirs;
            take_decision(item);
            return;
        }
        item.is_same = merging_.is_same(item, kOurs, kTheirs);
        if (item.is_same) return agree(item);
        if (take_decision(item) || settle(item)) return;
        dispute(item);
    }

    void dispute(Item &item) const {
        item.is_disputed = item.is_in(kBase) && item.is_in(kOurs) && item.is_in(kTheirs);
        if (choices_.others)
            item.side = *choices_.others;
        else
            item.reason = why(item);
    }

    // Both have the same bytes. If these name a handle that is another one now, they mean two
    // objects by it.
    void agree(Item &item) {
        if (!item.is_in(kOurs) || merging_.handles.empty()) return;
        bool means_another = false;
        visit_handles(merging_.row(item, kOurs),
                      [&](uint64_t handle) { means_another |= merging_.handles.contains(handle); });
        if (!means_another || merging_.is_same(item, kBase, kOurs)) return;
        item.is_same = false;
        if (!take_decision(item)) dispute(item);
    }

    bool take_decision(Item &item) const {
        const auto at = choices_.decided.find(item.id);
        if (at == choices_.decided.end() || item.is_apart) return false;
        item.side = at->second;
        return item.is_fixed = true;
    }

    bool settle(Item &item) const {
        if (merging_.is_same(item, kBase, kOurs)) {
            item.side = Side::theirs;
            return true;
        }
        if (merging_.is_same(item, kBase, kTheirs)) return true;
        if (!item.is_in(kBase) || !item.is_in(kOurs) || !item.is_in(kTheirs)) return false;
        const std::string_view ours = merging_.row(item, kOurs);
        if (record_type(ours) == "THUMBNAILIMAGE") {
            item.side = choices_.newer;
            return true;
        }
        if (record_type(ours) != "TABLE") return false;
        auto head = merged_head(merging_.row(item, kBase), ours, merging_.row(item, kTheirs));
        if (!head) return false;
        std::tie(item.side, item.row) = std::move(*head);
        return true;
    }

    static std::string why(const Item &item) {
        if (!item.is_in(kOurs)) return host::say("deleted by us, changed by them");
        if (!item.is_in(kTheirs)) return host::say("changed by us, deleted by them");
        return host::say("changed by both");
    }

    Merging &merging_;
    const Choices &choices_;
};

} // namespace

void decide_by_change(Merging &merging, const Choices &choices) {
    ByChange(merging, choices).run();
}

} // namespace dxf::merging
