#include "dxf/incoming.hpp"

#include "host.hpp"

#include <algorithm>

namespace dxf {

void Incoming::read(const std::u16string &source, const std::string &name) {
    host::OwnedFile file(host::check(zFileOpen(source.c_str(), u"rb"), name));
    uint64_t size = zFileSize(file.get());
    buffer_.reset(new char[size + 1]);
    size = zFileRead(file.get(), buffer_.get(), size);
    if (zFileError(file.get())) host::fail_raised(name);
    document = split({buffer_.get(), size}, name);
    objects.reserve(document.parts.size());
    for (const Part &part : document.parts) {
        if (part.kind == Kind::header) header = {part.bytes, &part};
        if (part.kind == Kind::symbol) symbols.push_back({part.bytes, &part});
        if (part.kind == Kind::object) objects.push_back({part.bytes, &part});
    }
    name_objects();
}

// All records without a handle of their own are chained by content, in file order.
void Incoming::name_objects() {
    std::vector<Item *> nameless;
    named_.reserve(objects.size());
    for (Item &item : objects) {
        item.key.object = item.part->handle;
        if (item.part->handle)
            named_.push_back(&item);
        else
            nameless.push_back(&item);
    }
    auto by_handle = [](Item *a, Item *b) { return a->key.object < b->key.object; };
    std::stable_sort(named_.begin(), named_.end(), by_handle);
    auto same = [](Item *a, Item *b) { return a->key.object == b->key.object; };
    for (size_t i = 1; i < named_.size(); ++i)
        if (same(named_[i - 1], named_[i])) nameless.push_back(named_[i]);
    named_.erase(std::unique(named_.begin(), named_.end(), same), named_.end());
    std::sort(nameless.begin(), nameless.end());
    chain(nameless);
}

void Incoming::chain(const std::vector<Item *> &nameless) {
    for (auto at = nameless.rbegin(); at != nameless.rend(); ++at) {
        (*at)->key.object = 0;
        Item *&first = by_content_[(*at)->value];
        (*at)->same = first;
        first = *at;
    }
}

Item *Incoming::by_handle(uint64_t handle) {
    auto below = [](Item *item, uint64_t number) { return item->key.object < number; };
    auto at = std::lower_bound(named_.begin(), named_.end(), handle, below);
    return at != named_.end() && (*at)->key.object == handle ? *at : nullptr;
}

Item *Incoming::take_same(std::string_view value) {
    auto at = by_content_.find(value);
    if (at == by_content_.end() || !at->second) return nullptr;
    Item *item = at->second;
    at->second = item->same;
    item->known = true;
    return item;
}

} // namespace dxf
