// A batch is one string and the sorted keys of its rows; a merge has two or three of them.
#include "dxf/merge/rows.hpp"

#include <algorithm>
#include <stdexcept>

namespace dxf::merging {

namespace {

void into_table_order(std::vector<DrawingKey> &keys) {
    std::sort(keys.begin(), keys.end(), before);
    const auto same = [](const DrawingKey &a, const DrawingKey &b) { return !before(a, b); };
    keys.erase(std::unique(keys.begin(), keys.end(), same), keys.end());
    if (!keys.empty() && !keys.front().tag && !keys.front().object) keys.erase(keys.begin());
}

} // namespace

const Rows::Batch *Rows::find(const DrawingKey &key, size_t &place) const {
    for (const Batch &batch : batches_) {
        const auto at = std::lower_bound(batch.keys.begin(), batch.keys.end(), key, before);
        if (at == batch.keys.end() || before(key, *at)) continue;
        place = static_cast<size_t>(at - batch.keys.begin());
        return &batch;
    }
    return nullptr;
}

void Rows::load(std::vector<DrawingKey> keys) {
    std::erase_if(keys, [this](const DrawingKey &key) {
        size_t place = 0;
        return find(key, place) != nullptr;
    });
    into_table_order(keys);
    if (keys.empty()) return;
    Batch batch;
    batch.places.resize(keys.size());
    read_(keys, [&batch](size_t place, std::string_view row) {
        batch.places[place] = {batch.bytes.size(), row.size()};
        batch.bytes += row;
    });
    batch.keys = std::move(keys);
    batches_.push_back(std::move(batch));
}

std::string_view Rows::operator[](const DrawingKey &key) const {
    if (!key.tag && !key.object) return {};
    size_t place = 0;
    const Batch *batch = find(key, place);
    if (!batch) throw std::out_of_range("Rows"); // was not loaded
    const auto [offset, size] = batch->places[place];
    return std::string_view(batch->bytes).substr(offset, size);
}

void Rows::pass(std::vector<DrawingKey> keys,
                const std::function<void(const DrawingKey &, std::string_view row)> &visit) const {
    into_table_order(keys);
    if (keys.empty()) return;
    read_(keys, [&](size_t place, std::string_view row) { visit(keys[place], row); });
}

} // namespace dxf::merging
