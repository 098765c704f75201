// The members of an object, in key order and yet cheap to fill and to empty in any order.
#include "common/json.hpp"

#include "common/failure.hpp"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>

namespace zev {
namespace {

// Negative, zero or positive like the difference of the names.
int compare(WideView name, const zwchar *other) {
    for (zwchar unit : name) {
        if (unit != *other) return unit < *other ? -1 : 1;
        ++other;
    }
    return *other ? -1 : 0;
}

bool before(const Member &a, const Member &b) {
    const zwchar *x = a.name(), *y = b.name();
    while (*x && *x == *y) ++x, ++y;
    return *x < *y;
}

bool same(const Member &a, const Member &b) { return !before(a, b) && !before(b, a); }

// In a range in key order; null if it is not there.
Member *find_in(Member *begin, Member *end, WideView name) {
    Member *at = std::lower_bound(begin, end, name, [](const Member &member, WideView key) {
        return compare(key, member.name()) > 0;
    });
    return at != end && compare(name, at->name()) == 0 ? at : nullptr;
}

} // namespace

Members *Members::make() {
    auto *members = static_cast<Members *>(calloc(1, sizeof(Members)));
    return members ? members : fail_memory();
}

void Members::destroy() {
    for (uint64_t i = 0; i < size_; ++i) data_[i].free_name();
    std::free(data_);
    std::free(this);
}

Member *Members::locate(WideView name) const {
    if (Member *at = find_in(data_, data_ + sorted_, name)) return at;
    Member *run = data_ + sorted_;
    for (uint64_t left = size_ - sorted_; left;) {
        const uint64_t length = std::bit_floor(left);
        if (Member *at = find_in(run, run + length, name)) return at;
        run += length;
        left -= length;
    }
    return nullptr;
}

// The tail has just grown by one: as in counting, each run that ends with it doubles.
void Members::merge_runs() {
    const uint64_t tail = size_ - sorted_;
    Member *end = data_ + size_;
    for (uint64_t length = 1; !(tail & length); length *= 2)
        std::inplace_merge(end - 2 * length, end - length, end, before);
}

Member *Members::slot(WideView name) {
    Member *member = locate(name);
    return member && member->node ? member : nullptr;
}

Json *Members::find(WideView name) const {
    const Member *member = locate(name);
    return member ? member->node : nullptr;
}

// Looks outwards from the place of the last removal, so that freeing the members one after
// another, in either direction, finds each at once.
Member *Members::slot_of(const Json *node) {
    uint64_t up = std::min(near_, size_), down = up;
    while (up < size_ || down) {
        if (up < size_ && data_[up++].node == node) return &data_[up - 1];
        if (down && data_[--down].node == node) return &data_[down];
    }
    return nullptr;
}

Member *Members::append(uint64_t units) {
    if (size_ == capacity_) {
        const uint64_t capacity = capacity_ ? 2 * capacity_ : 8;
        void *data = realloc(data_, capacity * sizeof(Member));
        if (!data) return fail_memory();
        data_ = static_cast<Member *>(data);
        capacity_ = capacity;
    }
    zwchar *name = nullptr;
    if (units > Member::kLocal) {
        name = static_cast<zwchar *>(malloc((units + 1) * sizeof(zwchar)));
        if (!name) return fail_memory();
    }
    Member *member = &data_[size_++];
    member->node = nullptr;
    member->keep_name(name);
    ++holes_;
    return member;
}

bool Members::put(WideView name, Json *node) {
    const bool last = sorted_ == size_ && (!size_ || compare(name, data_[size_ - 1].name()) > 0);
    Member *hole = last || !holes_ ? nullptr : locate(name);
    if (hole) return fill(hole, node), true;
    Member *member = append(name.size());
    if (!member) return false;
    *std::copy(name.begin(), name.end(), member->name()) = 0;
    fill(member, node);
    if (last) {
        ++sorted_;
    } else {
        merge_runs();
        ++generation_;
        if (size_ - sorted_ > sorted_) settle();
    }
    return true;
}

void Members::remove(Member *member) {
    member->node = nullptr;
    near_ = static_cast<uint64_t>(member - data_);
    if (++holes_ > 32 && holes_ > size_ / 2) settle();
}

Json *Members::take_last() {
    while (size_) {
        Member &last = data_[--size_];
        last.free_name();
        if (last.node) return last.node;
        --holes_;
    }
    sorted_ = near_ = 0;
    return nullptr;
}

void Members::drop_holes() {
    uint64_t kept = 0, sorted = 0, near = 0;
    for (uint64_t i = 0; i < size_; ++i) {
        if (i == near_) near = kept;
        if (!data_[i].node) {
            data_[i].free_name();
            continue;
        }
        if (i < sorted_) sorted = kept + 1;
        data_[kept++] = data_[i];
    }
    size_ = kept;
    sorted_ = sorted;
    near_ = near;
    holes_ = 0;
    ++generation_;
}

// Of members with one name, which stand in the order in which they came, the last stays.
void Members::drop_twins() {
    for (uint64_t i = 0; i + 1 < size_; ++i) {
        if (!same(data_[i], data_[i + 1])) continue;
        json_drop(data_[i].node);
        data_[i].node = nullptr;
        ++holes_;
    }
    if (holes_) drop_holes();
}

void Members::settle() {
    if (holes_ > size_ / 2 || (holes_ && sorted_ != size_)) drop_holes();
    if (sorted_ == size_) return;
    Member *tail = data_ + sorted_, *end = data_ + size_;
    const auto greater_or_twin = [](const Member &a, const Member &b) { return !before(a, b); };
    if (std::adjacent_find(data_, end, greater_or_twin) != end) {
        std::stable_sort(tail, end, before);
        std::inplace_merge(data_, tail, end, before);
        drop_twins();
    }
    sorted_ = size_;
    ++generation_;
}

} // namespace zev
