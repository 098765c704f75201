#include "dxf/keep.hpp"

#include <algorithm>
#include <cstring>
#include <future>
#include <unordered_map>

namespace dxf {

std::string_view Arena::copy(std::string_view bytes) {
    constexpr size_t kBlock = 1 << 18;
    if (bytes.empty()) return {"", 0};
    if (bytes.size() > kBlock / 4) {
        blocks_.push_back(std::make_unique<char[]>(bytes.size()));
        memcpy(blocks_.back().get(), bytes.data(), bytes.size());
        return {blocks_.back().get(), bytes.size()};
    }
    if (bytes.size() > left_) {
        blocks_.push_back(std::make_unique<char[]>(kBlock));
        at_ = blocks_.back().get();
        left_ = kBlock;
    }
    memcpy(at_, bytes.data(), bytes.size());
    const std::string_view copied(at_, bytes.size());
    at_ += bytes.size();
    left_ -= bytes.size();
    return copied;
}

Keeper::Keeper(std::vector<Item> &objects, std::vector<Former *> olds, Arena &arena)
    : objects_(objects), olds_(std::move(olds)), arena_(arena) {}

namespace {

// The widths of a POLYLINE are those of each VERTEX that has none of its own.
bool has_width(std::string_view polyline) {
    for (RawGroup group; take_group(polyline, group);)
        if ((group.code == 40 || group.code == 41) && real_in(group.value).value_or(0) != 0)
            return true;
    return false;
}

bool says_same(const NormalRecord &before, const NormalRecord &after, const Item &item) {
    return before == after && (!item.is_under_width || before.widths() == after.widths());
}

} // namespace

Match Keeper::run(Match wanted, bool has_kept) {
    if (wanted == Match::handle || wanted == Match::exact) return wanted;
    const bool is_equal = wanted == Match::automatic && is_mostly_equal();
    find_widths();
    collect();
    if (is_equal && !has_kept) // the others are few
        return keep_by_handle() ? Match::normal : Match::handle;
    if (is_equal || wanted == Match::normal || (wanted == Match::automatic && is_in_place()))
        return keep_in_place(wanted);
    hash();
    const Likeness likeness = likeness_of(old_records_, new_records_);
    // Another drawing took the place of this one: what both have is chance, and the file counts.
    if (wanted == Match::automatic &&
        likeness.common * 2 < std::min(old_records_.size(), new_records_.size()))
        return Match::handle;
    const bool is_content =
        wanted == Match::content || (wanted == Match::automatic && likeness.is_renumbered());
    if (is_content && has_room()) {
        join_by_content();
        give_handles();
        keep_by_content();
        keep_nameless();
        return Match::content;
    }
    return keep_in_place(wanted);
}

Match Keeper::keep_in_place(Match wanted) {
    const bool kept_named = keep_by_handle();
    forget_nameless();
    const bool kept_nameless = keep_nameless();
    return kept_named || kept_nameless || wanted == Match::normal ? Match::normal : Match::handle;
}

void Keeper::find_widths() {
    bool is_wide = false;
    for (Item &item : objects_) {
        if (item.part->type == "VERTEX")
            item.is_under_width = is_wide;
        else
            is_wide = item.part->type == "POLYLINE" && has_width(item.part->bytes);
    }
}

// Whether all new handles that content may have to give stay below the numbers of our own.
bool Keeper::has_room() const {
    return highest_handle() < kFirstNumber - objects_.size() - 1 &&
           std::all_of(olds_.begin(), olds_.end(), [&](const Former *former) {
               return is_own(former->key.object) ||
                      former->key.object < kFirstNumber - objects_.size() - 1;
           });
}

bool Keeper::is_mostly_equal() const {
    const auto kept = std::count_if(objects_.begin(), objects_.end(),
                                    [](const Item &item) { return item.kept(); });
    return static_cast<size_t>(kept) * 2 >= std::min(objects_.size(), olds_.size());
}

void Keeper::collect() {
    named_.reserve(objects_.size());
    former_named_.reserve(olds_.size());
    for (Item &item : objects_) {
        if (!item.key.object || is_own(item.key.object)) continue;
        named_.push_back(&item);
    }
    for (Former *former : olds_) {
        if (is_own(former->key.object) || !former->is_held) continue;
        former_named_.push_back(former);
    }
}

void Keeper::hash() {
    new_records_.reserve(named_.size());
    old_records_.reserve(former_named_.size());
    for (const Item *item : named_) new_records_.push_back({item->part->bytes, item->part->handle});
    for (const Former *former : former_named_)
        old_records_.push_back({former->value, former->key.object});
    hash_records(old_records_, new_records_);
}

// Of those that are not equal byte for byte.
bool Keeper::is_same_at(size_t place, NormalRecord &before, NormalRecord &after) const {
    const Former &former = *former_named_[place];
    if (!former.item || former.item->kept()) return false;
    before.read(former.value);
    after.read(former.item->part->bytes);
    return says_same(before, after, *former.item);
}

// A few tell whether it is worth while.
bool Keeper::is_in_place() {
    constexpr size_t kSample = 512;
    const size_t step = former_named_.size() / kSample + 1;
    NormalRecord before, after;
    size_t asked = 0, same = 0;
    for (size_t i = 0; i < former_named_.size(); i += step, ++asked) {
        const Item *item = former_named_[i]->item;
        same += (item && item->kept()) || is_same_at(i, before, after);
    }
    if (same * 2 < asked) return false;
    compare_by_handle();
    const auto kept = std::ranges::count_if(
        former_named_, [](const Former *former) { return former->item && former->item->kept(); });
    const auto all = std::ranges::count(is_same_, true) + kept;
    return static_cast<size_t>(all) * 2 >= std::min(former_named_.size(), named_.size());
}

void Keeper::compare_by_handle() {
    is_same_.assign(former_named_.size(), false);
    const auto compare = [this](size_t begin, size_t end) {
        NormalRecord before, after;
        for (size_t i = begin; i < end; ++i) is_same_[i] = is_same_at(i, before, after);
    };
    const size_t middle = is_same_.size() / 2;
    auto first = std::async(std::launch::async, compare, 0, middle);
    compare(middle, is_same_.size());
    first.get();
}

// True if its bytes were others.
bool Keeper::keep(Item &item, const Former &former) {
    item.key = former.key;
    item.known = true;
    const bool differs = former.value != item.part->bytes;
    item.value = differs ? former.value : item.part->bytes; // not a translated one
    return differs;
}

bool Keeper::keep_by_handle() {
    if (is_same_.empty()) compare_by_handle();
    bool any = false;
    for (size_t i = 0; i < former_named_.size(); ++i)
        if (is_same_[i]) any |= keep(*former_named_[i]->item, *former_named_[i]);
    return any;
}

// Of several that say the same each then gets the bytes that stood in its place.
void Keeper::forget_nameless() {
    for (Item &item : objects_)
        if (is_own(item.key.object)) item.known = false, item.key = {};
    for (Former *former : olds_)
        if (is_own(former->key.object)) former->item = nullptr;
}

void Keeper::join_by_content() {
    forget_nameless();
    for (Item &item : objects_) item.known = false, item.key.tag = 0;
    for (Former *former : olds_) former->item = nullptr;
    const std::vector<size_t> partners = pair_by_content(old_records_, new_records_);
    for (size_t i = 0; i < partners.size(); ++i) {
        if (partners[i] == kNoPartner) continue;
        Former *former = former_named_[partners[i]];
        former->item = named_[i];
        named_[i]->known = true;
        named_[i]->key.object = former->key.object;
    }
    old_records_ = {};
    new_records_ = {};
}

// New ones keep theirs unless the former version has it, whoever had it there.
void Keeper::give_handles() {
    std::vector<uint64_t> taken, of_file;
    taken.reserve(olds_.size());
    of_file.reserve(named_.size());
    uint64_t highest = 0;
    for (const Former *former : olds_)
        if (!is_own(former->key.object)) taken.push_back(former->key.object);
    for (const Item *item : named_) of_file.push_back(item->part->handle);
    for (std::vector<uint64_t> *list : {&taken, &of_file}) {
        std::sort(list->begin(), list->end());
        if (!list->empty()) highest = std::max(highest, list->back());
    }
    const auto is_in = [](const std::vector<uint64_t> &list, uint64_t handle) {
        return std::binary_search(list.begin(), list.end(), handle);
    };
    for (Item *item : named_) {
        if (!item->known && is_in(taken, item->key.object)) item->key.object = ++highest;
        handles_.put(item->part->handle, item->key.object);
    }
    // What names nothing in the file must not come to name who has that handle here.
    for (const Item *item : named_)
        if (!is_in(of_file, item->key.object)) handles_.put(item->key.object, 0);
    handles_.sort();
    maps_ = true;
}

void Keeper::keep_by_content() {
    NormalRecord before, after;
    for (Former *former : former_named_) {
        Item *item = former->item;
        if (!item) continue;
        bool is_same = is_same_translated(former->value, item->part->bytes, handles_, true);
        if (!is_same) {
            before.read(former->value);
            after.read(item->part->bytes, &handles_);
            is_same = says_same(before, after, *item);
        }
        if (is_same) keep(*item, *former);
    }
    for (Item &item : objects_) {
        if (item.kept()) continue;
        const std::string record = translated(item.part->bytes, handles_, item.part->handle != 0);
        if (record != item.part->bytes) item.value = arena_.copy(record);
    }
}

// By what they say, in the order of the lists.
bool Keeper::keep_nameless() {
    NormalRecord before, after;
    std::unordered_map<uint64_t, std::vector<Former *>> left; // the first one last
    for (auto at = olds_.rbegin(); at != olds_.rend(); ++at) {
        if (!is_own((*at)->key.object) || (*at)->item || !(*at)->is_held) continue;
        before.read((*at)->value, nullptr, false);
        left[before.content_hash()].push_back(*at);
    }
    bool any = false;
    for (Item &item : objects_) {
        if (item.kept() || item.key.object) continue;
        after.read(item.part->bytes, maps_ ? &handles_ : nullptr, false);
        const auto found = left.find(after.content_hash());
        if (found == left.end() || found->second.empty()) continue;
        Former *former = found->second.back();
        before.read(former->value, nullptr, false);
        if (!says_same(before, after, item)) continue;
        found->second.pop_back();
        former->item = &item;
        any |= keep(item, *former);
    }
    return any;
}

uint64_t Keeper::highest_handle() const {
    uint64_t highest = 0;
    for (const Item &item : objects_)
        if (!is_own(item.key.object)) highest = std::max(highest, item.key.object);
    return highest;
}

std::string with_free_handle(std::string_view header, uint64_t highest) {
    std::string out;
    RawGroup group;
    std::string_view left = header;
    bool is_seed = false;
    while (take_group(left, group)) {
        const auto handle = is_seed && group.code == 5 ? handle_in(group.value) : std::nullopt;
        is_seed = group.code == 9 && trim_blanks(group.value) == "$HANDSEED";
        if (handle && *handle <= highest)
            out += with_value(group, handle_text(highest + 1));
        else
            out += group.bytes;
    }
    return out += left;
}

} // namespace dxf
