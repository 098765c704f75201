// Versions of a drawing without a table: DXF texts get their keys as an import gives them, and what
// a merge makes of three is put together again as a text.
#pragma once

#include "dxf/layout.hpp"
#include "dxf/merge/core.hpp"
#include "dxf/numbers.hpp"
#include "dxf/reader.hpp"
#include "dxf/summary.hpp"

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace merge_test {

class Store {
  public:
    // What is the same as in the former version keeps its key; records without a handle are known
    // by their content.
    dxf::Keys add(const std::string &text, const dxf::Keys *former) {
        document_ = dxf::split(text, "text");
        ++tag_;
        take_former(former);
        dxf::Keys keys = empty();
        DrawingDigest digest{};
        const auto block = [&](uint64_t number, std::string_view row) {
            zDrawingDigestAddRow(&digest, number, row.data(), row.size());
            return put(number, row);
        };
        std::string_view header;
        for (const dxf::Part &part : document_.parts) {
            if (part.kind == dxf::Kind::header) header = part.bytes;
            if (part.kind == dxf::Kind::symbol)
                keys.classes.push_back(block(dxf::class_number(keys.classes.size()), part.bytes));
        }
        keys.objects = objects(digest);
        keys.header = block(dxf::kHeaderNumber, header);
        keys.layout = block(dxf::kLayoutNumber, dxf::write_layout(document_.parts));
        const host::OwnedJson summary = dxf::summarize(document_);
        dxf::put_digest(summary.get(), digest);
        keys.summary = put(dxf::kSummaryNumber, dxf::summary_text(summary.get()));
        return keys;
    }

    dxf::Merge merge(const dxf::Keys &base, const dxf::Keys &ours, const dxf::Keys &theirs,
                     const std::map<uint64_t, dxf::Side> &decided = {},
                     std::optional<dxf::Side> others = {}) const {
        dxf::merging::Rows rows([this](const std::vector<DrawingKey> &keys, const auto &visit) {
            for (size_t i = 0; i < keys.size(); ++i)
                visit(i, rows_.at({keys[i].tag, keys[i].object}));
        });
        return dxf::merging::merge_versions({.versions = {&base, &ours, &theirs},
                                             .name = "merge",
                                             .decided = decided,
                                             .others = others,
                                             .header = others,
                                             .classes = others,
                                             .layout = others},
                                            rows);
    }

    // The keys of a merge without conflicts, its rows in the store.
    dxf::Keys keep(dxf::Merge merge) {
        ++tag_;
        for (const dxf::Merge::NewRow &row : merge.rows) rows_[{tag_, row.object}] = row.value;
        const auto stamp = [this](DrawingKey &key) {
            if (!key.tag) key.tag = tag_;
        };
        dxf::Keys keys = empty();
        keys.header = merge.header, keys.summary = merge.summary, keys.layout = merge.layout;
        keys.classes = std::move(merge.classes), keys.objects = std::move(merge.objects);
        for (DrawingKey &key : keys.classes) stamp(key);
        for (DrawingKey &key : keys.objects) stamp(key);
        for (DrawingKey *key : {&keys.header, &keys.summary, &keys.layout}) stamp(*key);
        return keys;
    }

    // False where the layout is damaged.
    bool text(const dxf::Keys &keys, std::string &out) const {
        size_t symbol = 0, object = 0;
        dxf::LayoutVisitor visitor;
        visitor.literal = [&](std::string_view bytes) { out += bytes; };
        visitor.header = [&] { out += row(keys.header); };
        visitor.symbols = [&](uint64_t count) {
            for (; count; --count) out += row(keys.classes[symbol++]);
        };
        visitor.objects = [&](uint64_t count) {
            for (; count; --count) out += row(keys.objects[object++]);
        };
        return dxf::read_layout(row(keys.layout), keys.classes.size(), keys.objects.size(),
                                visitor);
    }

    const std::string &row(const DrawingKey &key) const { return rows_.at({key.tag, key.object}); }

    void damage(const DrawingKey &key, const std::string &bytes) {
        rows_.at({key.tag, key.object}) = bytes;
    }

  private:
    using Key = std::pair<uint64_t, uint64_t>;

    static dxf::Keys empty() { return dxf::Keys(dxf::Manifest()); }

    void take_former(const dxf::Keys *former) {
        by_number_.clear(), by_content_.clear();
        next_ = dxf::kFirstNumber;
        if (!former) return;
        const auto take = [this](const DrawingKey &key) { by_number_[key.object] = key; };
        for (const DrawingKey &key : former->classes) take(key);
        for (const DrawingKey *key : {&former->header, &former->summary, &former->layout})
            take(*key);
        std::vector<DrawingKey> objects = former->objects;
        std::sort(objects.begin(), objects.end(), dxf::before);
        for (const DrawingKey &key : objects) {
            if (key.object < dxf::kFirstNumber) {
                take(key);
                continue;
            }
            by_content_[row(key)].push_back(key);
            next_ = std::max(next_, key.object + 1);
        }
        for (auto &[content, keys] : by_content_) std::reverse(keys.begin(), keys.end());
    }

    DrawingKey put(uint64_t number, std::string_view bytes) {
        const auto former = by_number_.find(number);
        if (former != by_number_.end() && row(former->second) == bytes) return former->second;
        rows_[{tag_, number}] = bytes;
        return {tag_, number};
    }

    // Of several records with one handle the first has it.
    std::vector<DrawingKey> objects(DrawingDigest &digest) {
        std::map<uint64_t, bool> seen;
        std::vector<DrawingKey> keys;
        for (const dxf::Part &part : document_.parts) {
            if (part.kind != dxf::Kind::object) continue;
            const bool has_handle = part.handle && !std::exchange(seen[part.handle], true);
            keys.push_back(has_handle ? put(part.handle, part.bytes) : nameless(part.bytes));
            zDrawingDigestAddRow(&digest, keys.back().object, part.bytes.data(), part.bytes.size());
        }
        return keys;
    }

    DrawingKey nameless(std::string_view bytes) {
        auto &same = by_content_[std::string(bytes)];
        if (same.empty()) return put(next_++, bytes);
        const DrawingKey key = same.back();
        same.pop_back();
        return key;
    }

    std::map<Key, std::string> rows_;
    uint64_t tag_ = 0, next_ = dxf::kFirstNumber;
    dxf::Document document_;
    std::map<uint64_t, DrawingKey> by_number_;
    std::map<std::string, std::vector<DrawingKey>> by_content_;
};

} // namespace merge_test
