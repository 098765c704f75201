// One walk over theirs' list finds the neighbour of each object that comes from there, one over
// ours' puts all in a row. An object of ours that theirs moved stands where theirs has it.
#include "dxf/merge/order.hpp"

#include "dxf/reader.hpp"

#include <algorithm>
#include <unordered_set>

namespace dxf::merging {

namespace {

class Order {
  public:
    Order(Merging &merging, const std::array<Skeleton, 3> &skeletons, Version chosen)
        : merging_(merging), skeletons_(skeletons), chosen_(chosen) {
        for (const Version version : {kOurs, kTheirs}) {
            run_at_[version] = skeletons[version].run_at();
            const auto &runs = skeletons[version].runs;
            for (uint32_t i = 0; i < runs.size(); ++i) run_named_[version][runs[i].name] = i;
        }
        for (const Run &run : skeletons[kTheirs].runs) {
            const auto twin = run_named_[kOurs].find(run.name);
            twins_.push_back(twin == run_named_[kOurs].end() ? kNowhere : twin->second);
        }
    }

    Ordered run() {
        find_moved();
        find_neighbours();
        for (const Run &run : skeletons_[chosen_].runs) emit(run.name);
        uint64_t emitted = 0;
        for (const auto &[name, count] : out_.counts) emitted += count;
        out_.is_homeless = emitted != kept_in_ours() + inserts_count_;
        return std::move(out_);
    }

  private:
    // Objects of theirs that come behind a place in ours, or, at the place of a section's first,
    // before that.
    struct Insert {
        uint32_t before; // place in ours
        uint32_t place;  // in theirs
    };

    const Item *item(Version version, uint32_t place) const {
        const uint32_t i = merging_.item_at[version][place];
        return i == kNowhere ? nullptr : &merging_.items[i];
    }
    // Whether the section of a place in theirs is that of a place in ours.
    bool are_together(uint32_t theirs, uint32_t ours) const {
        return twins_[run_at_[kTheirs][theirs]] == run_at_[kOurs][ours];
    }

    // ---- Moved

    void find_moved() {
        for (uint32_t place = 0; place < merging_.in_ours.size(); ++place) {
            const uint32_t ours = merging_.in_ours[place];
            if (ours != kNowhere && is_moved(place, ours)) is_moved_.insert(ours);
            if (ours != kNowhere && is_moved_.contains(ours)) moved_.insert(place);
        }
    }

    bool is_moved(uint32_t place, uint32_t ours) {
        const Item *changed = item(kTheirs, place);
        if (!are_together(place, ours)) return !moved_by_ours(place, ours);
        if (!changed || changed->side != Side::theirs || changed->is_same || !changed->is_kept() ||
            !changed->is_in(kBase))
            return false;
        const auto now = owner_of(merging_.row(*changed, kTheirs));
        return now && now != owner_of(merging_.row(*changed, kOurs));
    }

    // Looked up once for each of the few objects that stand in another section.
    bool moved_by_ours(uint32_t place, uint32_t ours) {
        if (base_runs_.empty()) {
            const std::vector<uint32_t> at = skeletons_[kBase].run_at();
            for (uint32_t i = 0; i < at.size(); ++i)
                base_runs_[merging_.lists[kBase][i].id] = skeletons_[kBase].runs[at[i]].name;
        }
        const auto at = base_runs_.find(merging_.lists[kTheirs][place].id);
        const std::string &name = skeletons_[kOurs].runs[run_at_[kOurs][ours]].name;
        return at == base_runs_.end() || at->second != name;
    }

    // ---- Neighbours

    void find_neighbours() {
        uint32_t run = kNowhere, neighbour = kNowhere;
        for (uint32_t place = 0; place < merging_.in_ours.size(); ++place) {
            if (run_at_[kTheirs][place] != run) {
                run = run_at_[kTheirs][place];
                neighbour = kNowhere;
            }
            const std::string &name = skeletons_[kTheirs].runs[run].name;
            if (comes_from_theirs(place)) {
                const uint32_t before = neighbour == kNowhere ? start(name) : neighbour + 1;
                inserts_[name].push_back({past_members(before, place), place});
                ++inserts_count_;
            } else if (is_anchor(place)) {
                neighbour = merging_.in_ours[place];
            }
        }
        for (auto &[name, inserts] : inserts_)
            std::ranges::stable_sort(inserts, {}, &Insert::before);
    }

    bool comes_from_theirs(uint32_t place) const {
        if (moved_.contains(place)) return item_is_kept(kTheirs, place);
        return merging_.in_ours[place] == kNowhere && item_is_kept(kTheirs, place);
    }

    bool is_anchor(uint32_t place) const {
        const uint32_t ours = merging_.in_ours[place];
        return ours != kNowhere && item_is_kept(kOurs, ours) && are_together(place, ours);
    }

    bool item_is_kept(Version version, uint32_t place) const {
        const Item *found = item(version, place);
        return !found || found->is_kept();
    }

    uint32_t start(const std::string &name) const {
        const auto at = run_named_[kOurs].find(name);
        return at == run_named_[kOurs].end() ? 0 : skeletons_[kOurs].runs[at->second].begin;
    }

    // What isn't part of the polyline or insert before it goes behind that one's members.
    uint32_t past_members(uint32_t before, uint32_t place) {
        const Item *added = item(kTheirs, place);
        if (!added || is_member(record_type(merging_.row(*added, kTheirs)))) return before;
        // Many come to one place, one behind the other.
        const std::pair from(before, run_at_[kTheirs][place]);
        if (passed_.first == from) return passed_.second;
        const size_t end = merging_.item_at[kOurs].size();
        for (; before < end && are_together(place, before); ++before) {
            const Item *next = item(kOurs, before);
            if (!next || next->is_in(kTheirs)) break;
            if (!is_member(record_type(merging_.row(*next, kOurs)))) break;
        }
        passed_ = {from, before};
        return before;
    }

    // ---- The result

    void emit(const std::string &name) {
        uint64_t &count = out_.counts[name];
        const auto put = [&](Version version, uint32_t place) {
            out_.objects.push_back({version, place});
            ++count;
        };
        const auto mine = run_named_[kOurs].find(name);
        const Run none;
        const Run &run =
            mine == run_named_[kOurs].end() ? none : skeletons_[kOurs].runs[mine->second];
        const std::vector<Insert> &inserts = inserts_[name];
        auto next = inserts.begin();
        for (uint32_t place = run.begin;; ++place) {
            for (; next != inserts.end() && next->before <= place; ++next)
                put(kTheirs, next->place);
            if (place >= run.begin + run.count) break;
            if (item_is_kept(kOurs, place) && !is_moved_.contains(place)) put(kOurs, place);
        }
    }

    uint64_t kept_in_ours() const {
        uint64_t count = 0;
        for (uint32_t place = 0; place < merging_.item_at[kOurs].size(); ++place)
            count += item_is_kept(kOurs, place) && !is_moved_.contains(place);
        return count;
    }

    Merging &merging_;
    const std::array<Skeleton, 3> &skeletons_;
    Version chosen_;
    std::array<std::vector<uint32_t>, 3> run_at_;
    std::array<std::map<std::string, uint32_t>, 3> run_named_;
    std::vector<uint32_t> twins_; // by run of theirs: that of ours with its name
    std::unordered_map<uint64_t, std::string> base_runs_; // by id
    std::unordered_set<uint32_t> is_moved_, moved_;       // places in ours, and in theirs
    std::map<std::string, std::vector<Insert>> inserts_;  // by the name of their run
    std::pair<std::pair<uint32_t, uint32_t>, uint32_t> passed_{{kNowhere, kNowhere}, 0};
    uint64_t inserts_count_ = 0;
    Ordered out_;
};

} // namespace

Ordered order_objects(Merging &merging, const std::array<Skeleton, 3> &skeletons, Version chosen) {
    return Order(merging, skeletons, chosen).run();
}

} // namespace dxf::merging
