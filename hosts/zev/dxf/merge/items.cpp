// The lists are walked in step by their ids, in an order of places that is made once for each.
#include "dxf/merge/items.hpp"

#include <algorithm>

namespace dxf::merging {

namespace {

struct Place {
    uint64_t id;
    uint32_t place;
};

std::vector<Place> by_id(const std::vector<Entry> &list, const std::string &name) {
    std::vector<Place> order;
    order.reserve(list.size());
    for (const Entry &entry : list)
        order.push_back({entry.id, static_cast<uint32_t>(order.size())});
    const auto below = [](const Place &a, const Place &b) { return a.id < b.id; };
    if (!std::is_sorted(order.begin(), order.end(), below))
        std::sort(order.begin(), order.end(), below);
    for (size_t i = 1; i < order.size(); ++i)
        if (order[i - 1].id == order[i].id)
            throw host::Failed(host::kOther,
                               host::say("%s: the drawing has two objects of one number", name));
    return order;
}

bool same_key(const DrawingKey &a, const DrawingKey &b) {
    return a.tag == b.tag && a.object == b.object;
}

// Takes from each list what has the lowest id of all.
class Walk {
  public:
    explicit Walk(const Merging &merging) {
        for (size_t v = 0; v < 3; ++v) orders_[v] = by_id(merging.lists[v], merging.name);
    }
    bool next(Item &item) {
        item = {};
        item.id = UINT64_MAX;
        bool more = false;
        for (size_t v = 0; v < 3; ++v)
            if (at_[v] < orders_[v].size())
                more = true, item.id = std::min(item.id, orders_[v][at_[v]].id);
        for (size_t v = 0; more && v < 3; ++v)
            if (at_[v] < orders_[v].size() && orders_[v][at_[v]].id == item.id)
                item.place[v] = orders_[v][at_[v]++].place;
        return more;
    }

  private:
    std::array<std::vector<Place>, 3> orders_;
    std::array<size_t, 3> at_{};
};

} // namespace

Merging::Merging(const std::array<const Keys *, 3> &versions, std::string name, Rows &rows)
    : keys(versions), name(std::move(name)), rows(rows) {
    for (size_t v = 0; v < 3; ++v) {
        const std::vector<DrawingKey> &objects = versions[v]->objects;
        if (objects.size() >= kNowhere)
            throw host::Failed(host::kOther, host::say("%s: too many objects", this->name));
        lists[v].reserve(objects.size());
        for (const DrawingKey &key : objects) lists[v].push_back({key.object, key});
    }
}

void Merging::find_items() {
    for (size_t v = 0; v < 3; ++v) item_at[v].assign(lists[v].size(), kNowhere);
    in_ours.assign(lists[kTheirs].size(), kNowhere);
    Item item;
    for (Walk walk(*this); walk.next(item);) {
        if (item.is_in(kTheirs)) in_ours[item.place[kTheirs]] = item.place[kOurs];
        const auto equals = [&](Version a, Version b) {
            return item.is_in(a) && item.is_in(b) &&
                   same_key(entry(item, a).key, entry(item, b).key);
        };
        if (equals(kBase, kOurs) && equals(kBase, kTheirs)) continue;
        for (size_t v = 0; v < 3; ++v)
            if (item.place[v] != kNowhere)
                item_at[v][item.place[v]] = static_cast<uint32_t>(items.size());
        items.push_back(item);
    }
}

std::string_view Merging::any_row(const Item &item) const {
    for (const Version version : {kOurs, kTheirs, kBase})
        if (item.is_in(version)) return row(item, version);
    return {};
}

bool Merging::is_same(const Item &item, Version a, Version b) const {
    if (!item.is_in(a) || !item.is_in(b)) return item.is_in(a) == item.is_in(b);
    return same_key(entry(item, a).key, entry(item, b).key) || row(item, a) == row(item, b);
}

size_t Merging::split(size_t index) {
    Item theirs;
    theirs.id = items[index].id;
    theirs.side = Side::theirs;
    std::swap(theirs.place[kTheirs], items[index].place[kTheirs]);
    theirs.is_apart = items[index].is_apart = true;
    in_ours[theirs.place[kTheirs]] = kNowhere;
    item_at[kTheirs][theirs.place[kTheirs]] = static_cast<uint32_t>(items.size());
    items.push_back(std::move(theirs));
    return items.size() - 1;
}

} // namespace dxf::merging
