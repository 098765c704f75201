// What two versions of one drawing differ in, by their keys alone. Lists in file order are
// mostly in order of object numbers as well, so both comparisons run over sorted arrays, sort
// only what is not, and never take anything out of the middle.
#include "objects/drawing/drawing.hpp"

#include "zev/oid.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <tuple>
#include <vector>

namespace zev {
namespace {

using VectorPtr = Owned<Vector, zVectorFree>;
using Keys = std::span<const DrawingKey>;

bool same_table(const Drawing *a, const Drawing *b) { return zOidIsEqual(&a->table, &b->table); }

// ---- Which keys a list holds

class KeySet {
  public:
    explicit KeySet(Keys keys) : sorted_(keys) {
        if (!std::ranges::is_sorted(keys, below)) {
            copy_.assign(keys.begin(), keys.end());
            std::ranges::sort(copy_, below);
            sorted_ = copy_;
        }
        at_ = sorted_.begin();
    }

    // Questions in ascending order are answered by going on from the last place.
    bool holds(const DrawingKey &key) {
        if (at_ != sorted_.begin() && !below(at_[-1], key)) at_ = sorted_.begin();
        for (int steps = 0; steps < kSteps; ++steps, ++at_)
            if (at_ == sorted_.end() || !below(*at_, key)) return found(key);
        at_ = std::lower_bound(at_, sorted_.end(), key, below);
        return found(key);
    }

  private:
    static constexpr int kSteps = 8;
    static bool below(const DrawingKey &a, const DrawingKey &b) {
        return std::tie(a.object, a.tag) < std::tie(b.object, b.tag);
    }
    bool found(const DrawingKey &key) const { return at_ != sorted_.end() && same_key(*at_, key); }

    std::vector<DrawingKey> copy_;
    Keys sorted_;
    Keys::iterator at_;
};

bool push_wire(Vector *keys, const DrawingKey &key) {
    const KeyBytes bytes = key_bytes(key);
    return zVectorPush(keys, bytes.data());
}

bool push_new(Vector *keys, const Vector *from, const Vector *to) {
    KeySet held(keys_of(from));
    for (const DrawingKey &key : keys_of(to))
        if (!held.holds(key) && !push_wire(keys, key)) return false;
    return true;
}

bool push_if_changed(Vector *keys, const DrawingKey &from, const DrawingKey &to) {
    return same_key(from, to) || push_wire(keys, to);
}

bool push_increments(Vector *keys, const Drawing &from, const Drawing &to) {
    return push_new(keys, from.classes.get(), to.classes.get()) &&
           push_if_changed(keys, from.header, to.header) &&
           push_if_changed(keys, from.summary, to.summary) &&
           push_if_changed(keys, from.ds, to.ds) &&
           (!zDrawingHasVba(&to) || push_if_changed(keys, from.vba, to.vba)) &&
           push_new(keys, from.objects.get(), to.objects.get());
}

// ---- Which objects were added, modified, removed

struct Ranked {
    uint64_t object;
    uint32_t place; // in the list
};

// Stable, byte by byte from the lowest on, leaving out those in which no two numbers differ:
// handles have few, and a list in file order is then ordered faster than it was read.
void sort_by_object(std::vector<Ranked> &items) {
    uint64_t varying = 0;
    for (const Ranked &item : items) varying |= item.object ^ items.front().object;
    std::vector<Ranked> sorted(items.size());
    for (int shift = 0; shift < 64; shift += 8) {
        if (!(varying >> shift & 0xFF)) continue;
        std::array<uint32_t, 257> start{};
        for (const Ranked &item : items) ++start[(item.object >> shift & 0xFF) + 1];
        std::partial_sum(start.begin(), start.end(), start.begin());
        for (const Ranked &item : items) sorted[start[item.object >> shift & 0xFF]++] = item;
        items.swap(sorted);
    }
}

// A list in ascending order of object numbers; equal ones stay in their order.
class ByObject {
  public:
    explicit ByObject(Keys keys) : keys_(keys) {
        if (std::ranges::is_sorted(keys, {}, &DrawingKey::object)) return;
        order_.reserve(keys.size());
        for (const DrawingKey &key : keys)
            order_.push_back({key.object, static_cast<uint32_t>(order_.size())});
        sort_by_object(order_);
    }
    size_t size() const { return keys_.size(); }
    size_t place(size_t rank) const { return order_.empty() ? rank : order_[rank].place; }
    uint64_t object(size_t rank) const {
        return order_.empty() ? keys_[rank].object : order_[rank].object;
    }
    uint64_t tag(size_t rank) const { return keys_[place(rank)].tag; }

  private:
    Keys keys_;
    std::vector<Ranked> order_; // empty where the list is in order
};

enum class Verdict : uint8_t { same, modified, added };

struct Difference {
    VectorPtr added{zVectorNewPrim(Z_TYPE_UINT64, 0)};
    VectorPtr modified{zVectorNewPrim(Z_TYPE_UINT64, 0)};
    VectorPtr removed{zVectorNewPrim(Z_TYPE_UINT64, 0)};

    bool compare(Keys from, Keys to) {
        if (!added || !modified || !removed) return false;
        // Versions mostly agree in order up to the first insertion: no order is needed there.
        size_t paired = 0;
        const size_t most = std::min(from.size(), to.size());
        for (; paired < most && from[paired].object == to[paired].object; ++paired)
            if (from[paired].tag != to[paired].tag && !push(modified, to[paired].object))
                return false;
        from = from.subspan(paired);
        to = to.subspan(paired);
        std::vector<Verdict> verdicts(to.size(), Verdict::same);
        return merge(ByObject(from), ByObject(to), verdicts) && report(to, verdicts);
    }

  private:
    static bool push(const VectorPtr &list, uint64_t object) {
        return zVectorPush(list.get(), object);
    }

    // An object that stands several times is paired one by one, the first with the first.
    bool merge(const ByObject &from, const ByObject &to, std::vector<Verdict> &verdicts) {
        size_t i = 0;
        for (size_t j = 0; j < to.size(); ++j) {
            for (; i < from.size() && from.object(i) < to.object(j); ++i)
                if (!push(removed, from.object(i))) return false;
            if (i == from.size() || from.object(i) != to.object(j))
                verdicts[to.place(j)] = Verdict::added;
            else if (from.tag(i++) != to.tag(j))
                verdicts[to.place(j)] = Verdict::modified;
        }
        for (; i < from.size(); ++i)
            if (!push(removed, from.object(i))) return false;
        return true;
    }

    bool report(Keys to, const std::vector<Verdict> &verdicts) {
        for (size_t j = 0; j < to.size(); ++j)
            if (verdicts[j] != Verdict::same &&
                !push(verdicts[j] == Verdict::added ? added : modified, to[j].object))
                return false;
        return true;
    }
};

} // namespace
} // namespace zev

using namespace zev;

bool zDrawingIncrements(Stream *from, Stream *to, Vector **keys) try {
    if (!from || !to || !keys) return fail_args();
    const DrawingPtr before = read_drawing(from);
    const DrawingPtr after = before ? read_drawing(to) : nullptr;
    if (!after || !same_table(before.get(), after.get())) return false;
    VectorPtr list = new_keys(1000);
    if (!list || !push_increments(list.get(), *before, *after)) return false;
    *keys = list.release();
    return true;
} catch (...) {
    return fail_thrown();
}

bool zDrawingGetDifference(const zwchar *from, const zwchar *to, Vector **added, Vector **modified,
                           Vector **removed) try {
    if (!from || !to || !added || !modified || !removed) return fail_args();
    if (*added || *modified || *removed) return fail_args();
    const DrawingPtr before{zDrawingRead(from)};
    const DrawingPtr after{before ? zDrawingRead(to) : nullptr};
    if (!after || !same_table(before.get(), after.get())) return false;
    Difference difference;
    if (!difference.compare(keys_of(before->objects.get()), keys_of(after->objects.get())))
        return false;
    *added = difference.added.release();
    *modified = difference.modified.release();
    *removed = difference.removed.release();
    return true;
} catch (...) {
    return fail_thrown();
}
