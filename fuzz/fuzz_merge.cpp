// Three DXF texts, with a line of three hyphens between them, are versions of one drawing: any
// merge of them ends, its laws hold, and what comes of it is a DXF file again.
#include "../tests/zev/merge_versions.hpp"

#include <cstdlib>

namespace {

using dxf::Side;
using merge_test::Store;

bool same_key(const DrawingKey &a, const DrawingKey &b) {
    return a.tag == b.tag && a.object == b.object;
}

bool is_version(const dxf::Merge &merge, const dxf::Keys &keys) {
    return merge.conflicts.empty() && merge.rows.empty() && same_key(merge.header, keys.header) &&
           same_key(merge.summary, keys.summary) && same_key(merge.layout, keys.layout) &&
           std::ranges::equal(merge.classes, keys.classes, same_key) &&
           std::ranges::equal(merge.objects, keys.objects, same_key);
}

std::vector<std::string> cut(std::string_view bytes) {
    constexpr std::string_view mark = "\n---\n";
    std::vector<std::string> texts;
    for (size_t end; texts.size() < 2 && (end = bytes.find(mark)) != bytes.npos;) {
        texts.emplace_back(bytes.substr(0, end + 1));
        bytes.remove_prefix(end + mark.size());
    }
    texts.emplace_back(bytes);
    texts.resize(3, texts.back());
    return texts;
}

void check_result(Store &store, dxf::Merge merge) {
    if (!merge.conflicts.empty()) return;
    const dxf::Keys keys = store.keep(std::move(merge));
    std::string text, again;
    if (!store.text(keys, text)) abort();
    const dxf::Keys imported = store.add(text, &keys);
    if (!store.text(imported, again) || again != text) abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    const std::vector<std::string> texts = cut({reinterpret_cast<const char *>(data), size});
    try {
        Store store;
        const dxf::Keys base = store.add(texts[0], nullptr), ours = store.add(texts[1], &base),
                        theirs = store.add(texts[2], &base);
        if (!is_version(store.merge(base, ours, base), ours)) abort();
        if (!is_version(store.merge(base, base, ours), ours)) abort();
        if (!is_version(store.merge(base, theirs, theirs), theirs)) abort();
        const dxf::Merge merge = store.merge(base, ours, theirs);
        std::map<uint64_t, Side> decided;
        for (const auto &conflict : merge.conflicts)
            decided[conflict.number] = conflict.number % 2 ? Side::ours : Side::theirs;
        check_result(store, merge);
        check_result(store, store.merge(base, ours, theirs, decided));
        for (const Side side : {Side::ours, Side::theirs})
            check_result(store, store.merge(base, ours, theirs, {}, side));
    } catch (const host::Failed &) {
    }
    return 0;
}
