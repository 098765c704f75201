// A record is cut into its rest and three holes: {ACAD_REACTORS in front of the first subclass,
// {BLKREFS of an entry of the table of blocks, and the entries of a dictionary, which are a name,
// 3, with a handle behind it, 350 or 360. All views are of the rows.
#include "dxf/merge/compose.hpp"

#include "dxf/reader.hpp"

#include <algorithm>
#include <array>

namespace dxf::merging {

namespace {

constexpr int kEntry = 3, kList = 102, kSubclass = 100, kExtended = 1000;
constexpr int kSoftEntry = 350, kHardEntry = 360, kFirstHandle = 320, kLastHandle = 369;
constexpr std::string_view kReactors = "{ACAD_REACTORS", kInserts = "{BLKREFS";

using Key = std::pair<std::string, uint64_t>; // an entry's name in upper case, or a list's handle

struct Element {
    Key key;
    uint64_t handle;
    std::string_view bytes, value; // the latter tells an entry from another one of its name
};

struct Hole {
    enum Kind : uint8_t { reactors, inserts, entries, kinds };
    bool is_there = false;
    size_t at = 0; // the groups of the rest in front of it
    std::string_view open, close;
    std::vector<Element> elements;
    std::vector<const Element *> by_key; // into `elements`

    void sort() {
        by_key.reserve(elements.size());
        for (const Element &element : elements) by_key.push_back(&element);
        std::ranges::stable_sort(by_key, {}, &Element::key);
    }
    const Element *find(const Key &key) const {
        const auto at_key = std::ranges::lower_bound(by_key, key, {}, &Element::key);
        return at_key == by_key.end() || (*at_key)->key != key ? nullptr : *at_key;
    }
    bool has_key_twice() const {
        return std::ranges::adjacent_find(by_key, {}, &Element::key) != by_key.end();
    }
};

struct Parts {
    std::vector<std::string_view> rest; // groups
    std::string_view tail;              // what is none
    std::array<Hole, Hole::kinds> holes;

    bool has_rest_of(const Parts &other) const { return rest == other.rest && tail == other.tail; }
};

class Cut {
  public:
    explicit Cut(std::string_view record)
        : left_(record), is_dictionary_(is_dictionary(record)),
          is_block_(record_type(record) == "BLOCK_RECORD") {}

    // Nothing for a record that is made otherwise.
    std::optional<Parts> run() {
        for (Group group; take_group(left_, group);)
            if (!take(group)) return {};
        if (list_ || name_) return {};
        parts_.tail = left_;
        for (Hole &hole : parts_.holes) hole.sort();
        if (parts_.holes[Hole::entries].has_key_twice()) return {};
        return std::move(parts_);
    }

  private:
    bool take(const Group &group) {
        if (list_) return take_in_list(group);
        if (name_) return take_value(group);
        other_list_.take(group);
        is_in_subclass_ |= group.code == kSubclass;
        is_extended_ |= group.code >= kExtended;
        if (group.code == kList && !is_extended_) {
            const std::string_view name = trim_blanks(group.value);
            if (name == kReactors && !is_in_subclass_) return open(Hole::reactors, group);
            if (name == kInserts && is_block_) return open(Hole::inserts, group);
        }
        const bool may_be_entry = is_dictionary_ && !is_extended_ && !other_list_.is_in_list();
        if (may_be_entry && group.code == kEntry) return take_name(group);
        parts_.rest.push_back(group.bytes);
        return true;
    }

    bool open(Hole::Kind kind, const Group &group) {
        list_ = &parts_.holes[kind];
        if (std::exchange(list_->is_there, true)) return false;
        list_->at = parts_.rest.size();
        list_->open = group.bytes;
        return true;
    }

    bool take_in_list(const Group &group) {
        if (group.code == kList) {
            other_list_.take(group);
            std::exchange(list_, nullptr)->close = group.bytes;
            return trim_blanks(group.value) == "}";
        }
        const auto handle = handle_in(group.value);
        if (group.code < kFirstHandle || group.code > kLastHandle || !handle) return false;
        list_->elements.push_back({{"", *handle}, *handle, group.bytes, {}});
        return true;
    }

    // All stand one behind the other.
    bool take_name(const Group &group) {
        Hole &entries = parts_.holes[Hole::entries];
        if (!std::exchange(entries.is_there, true)) entries.at = parts_.rest.size();
        name_ = group;
        return entries.at == parts_.rest.size();
    }

    bool take_value(const Group &group) {
        const auto handle = handle_in(group.value);
        if ((group.code != kSoftEntry && group.code != kHardEntry) || !handle) return false;
        const std::string_view bytes(name_->bytes.data(), name_->bytes.size() + group.bytes.size());
        parts_.holes[Hole::entries].elements.push_back(
            {{upper(name_->value), 0}, *handle, bytes, bytes});
        name_.reset();
        return true;
    }

    std::string_view left_;
    bool is_dictionary_, is_block_, is_in_subclass_ = false, is_extended_ = false;
    ListState other_list_;
    Hole *list_ = nullptr;
    std::optional<Group> name_;
    Parts parts_;
};

// The elements of one hole in three versions.
class Union {
  public:
    Union(const Hole &base, const Hole &ours, const Hole &theirs, const FateOf &fate_of)
        : base_(base), ours_(ours), theirs_(theirs), fate_of_(fate_of) {}

    // False for a conflict. What a list names twice is in once.
    bool run() {
        for (const Element &mine : ours_.elements)
            if (ours_.find(mine.key) == &mine && !take(mine, theirs_.find(mine.key))) return false;
        for (const Element &other : theirs_.elements)
            if (theirs_.find(other.key) == &other && !ours_.find(other.key) &&
                !take(other, nullptr))
                return false;
        return !gives_second_name();
    }

    std::vector<const Element *> elements;
    bool is_overruled = false;

  private:
    static bool is_same(const Element &a, const Element &b) { return a.value == b.value; }

    // One side's element, and what the other side has in its place.
    bool take(const Element &element, const Element *other) {
        const Element *was = base_.find(element.key);
        if (other) {
            const bool is_as_before = was && is_same(element, *was);
            if (!is_as_before && !is_same(element, *other) && !(was && is_same(*other, *was)))
                return false;
            elements.push_back(is_as_before ? other : &element);
            return true;
        }
        if (was && !is_same(element, *was)) return false;
        const bool is_overruling = fate_of_(element.handle) == (was ? Fate::back : Fate::gone);
        if (is_overruling == static_cast<bool>(was)) elements.push_back(&element);
        is_overruled |= is_overruling;
        return true;
    }

    // Both gave a new name to one object.
    bool gives_second_name() const {
        const std::vector<uint64_t> mine = handles(ours_), others = handles(theirs_);
        std::vector<uint64_t> merged;
        for (const Element *element : elements)
            if (!element->value.empty()) merged.push_back(element->handle);
        std::ranges::sort(merged);
        for (auto at = merged.begin(); at != merged.end();) {
            const auto end = std::upper_bound(at, merged.end(), *at);
            const auto count = [handle = *at](const std::vector<uint64_t> &sorted) {
                const auto [first, last] = std::equal_range(sorted.begin(), sorted.end(), handle);
                return static_cast<size_t>(last - first);
            };
            const auto names = static_cast<size_t>(end - at);
            if (names > 1 && names > count(mine) && names > count(others)) return true;
            at = end;
        }
        return false;
    }

    static std::vector<uint64_t> handles(const Hole &hole) {
        std::vector<uint64_t> sorted;
        for (const Element &element : hole.elements) sorted.push_back(element.handle);
        std::ranges::sort(sorted);
        return sorted;
    }

    const Hole &base_, &ours_, &theirs_;
    const FateOf &fate_of_;
};

// Where a hole of one record stands in another one that hasn't got it: the groups around it must be
// the same, from the beginning on or up to the end.
std::optional<size_t> place_in(const Parts &parts, const Parts &from, size_t at) {
    const auto &here = parts.rest, &there = from.rest;
    if (here.size() >= at &&
        std::equal(there.begin(), there.begin() + static_cast<ptrdiff_t>(at), here.begin()))
        return at;
    const size_t behind = there.size() - at;
    if (here.size() >= behind &&
        std::equal(there.rbegin(), there.rbegin() + static_cast<ptrdiff_t>(behind), here.rbegin()))
        return here.size() - behind;
    return {};
}

class Composition {
  public:
    Composition(const Parts &base, const Parts &ours, const Parts &theirs)
        : base_(base), ours_(ours), theirs_(theirs) {}

    std::optional<Composed> run(const FateOf &fate_of) {
        const bool is_ours = ours_.has_rest_of(theirs_) || theirs_.has_rest_of(base_);
        if (!is_ours && !ours_.has_rest_of(base_)) return {};
        out_.side = is_ours ? Side::ours : Side::theirs;
        const Parts &rest = is_ours ? ours_ : theirs_;
        for (int kind = 0; kind < Hole::kinds; ++kind)
            if (!fill(static_cast<size_t>(kind), rest, fate_of)) return {};
        std::ranges::stable_sort(fillings_, {}, &Filling::first);
        auto next = fillings_.begin();
        for (size_t i = 0; i <= rest.rest.size(); ++i) {
            for (; next != fillings_.end() && next->first == i; ++next) out_.row += next->second;
            if (i < rest.rest.size()) out_.row += rest.rest[i];
        }
        out_.row += rest.tail;
        return std::move(out_);
    }

  private:
    using Filling = std::pair<size_t, std::string>; // where, and what

    bool fill(size_t kind, const Parts &rest, const FateOf &fate_of) {
        const auto at = [kind](const Parts &parts) -> const Hole & { return parts.holes[kind]; };
        Union merged(at(base_), at(ours_), at(theirs_), fate_of);
        if (!merged.run()) return false;
        out_.is_overruled |= merged.is_overruled;
        if (merged.elements.empty()) return true;
        for (const Parts *parts : {&rest, &ours_, &theirs_, &base_}) {
            const Hole &hole = at(*parts);
            if (!hole.is_there) continue;
            const auto place = place_in(rest, *parts, hole.at);
            if (!place) return false;
            std::string bytes(hole.open);
            for (const Element *element : merged.elements) bytes += element->bytes;
            fillings_.push_back({*place, bytes += hole.close});
            return true;
        }
        return false;
    }

    const Parts &base_, &ours_, &theirs_;
    std::vector<Filling> fillings_;
    Composed out_{};
};

} // namespace

std::optional<Composed> compose(std::string_view base, std::string_view ours,
                                std::string_view theirs, const FateOf &fate_of) {
    const auto of_base = Cut(base).run(), of_ours = Cut(ours).run(), of_theirs = Cut(theirs).run();
    if (!of_base || !of_ours || !of_theirs) return {};
    return Composition(*of_base, *of_ours, *of_theirs).run(fate_of);
}

bool is_dictionary(std::string_view record) {
    const std::string_view type = record_type(record);
    return type == "DICTIONARY" || type == "ACDBDICTIONARYWDFLT";
}

bool has_parts_to_compose(std::string_view record) {
    return is_dictionary(record) || record.find(kReactors) != record.npos ||
           record.find(kInserts) != record.npos;
}

void visit_entries(std::string_view dictionary, const std::function<void(uint64_t)> &visit) {
    ListState list;
    for (Group group; take_group(dictionary, group) && group.code < kExtended;) {
        list.take(group);
        if (list.is_in_list() || (group.code != kSoftEntry && group.code != kHardEntry)) continue;
        if (const auto handle = parse_handle(group.value)) visit(*handle);
    }
}

} // namespace dxf::merging
