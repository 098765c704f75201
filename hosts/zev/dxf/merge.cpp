// A merge reads the table once, for the rows in which the versions differ; sooner it asks for those
// that are not here. Writing puts rows first, then the manifest that names them.
#include "dxf/merge.hpp"

#include "dxf/merge/core.hpp"
#include "dxf/tag.hpp"

#include <algorithm>

namespace dxf {

namespace {

void check_table(const MergeRequest &request) {
    const Oid &table = request.ours->table;
    if (!zOidIsEqual(&table, &request.base->table) || !zOidIsEqual(&table, &request.theirs->table))
        throw host::Failed(
            host::kOther, host::say("%s: the versions are kept in different tables", request.name));
}

void read(const MergeRequest &request, const std::vector<DrawingKey> &keys,
          const merging::Rows::Visit &visit) {
    if (request.fetch_rows) request.fetch_rows(request.ours->table, keys);
    const host::OwnedTable table =
        open_table(request.repository, &request.ours->table, request.name);
    const uint64_t found = read_rows(table.get(), keys, request.notify, visit);
    if (found < keys.size())
        throw host::Failed(host::kNotFound,
                           host::say("%s: %s of its rows are missing from the table", request.name,
                                     keys.size() - found));
}

uint64_t new_tag(const MergeRequest &request, const MergeTarget &target, Table *table) {
    uint64_t named = 0;
    for (const Manifest *manifest : {request.base, request.ours, request.theirs})
        named = std::max(named, highest_named(*manifest));
    return raise_tag(table, {}, target.ask_tag, named);
}

void store_rows(const MergeRequest &request, const Merge &merge, Table *table, uint64_t tag) {
    std::vector<Row> rows;
    rows.reserve(merge.rows.size());
    for (const Merge::NewRow &row : merge.rows) rows.push_back({{tag, row.object}, row.value});
    std::sort(rows.begin(), rows.end(),
              [](const Row &a, const Row &b) { return before(a.key, b.key); });
    write_rows(table, rows, request.notify);
}

void put_besides(const merging::Besides &besides, Table *table, Drawing *drawing) {
    zDrawingVbaProjectSet(drawing, table, nullptr, 0);
    if (besides.vba != RawKey{}) *host::check(zDrawingVbaProject(drawing)) = turned(besides.vba);
    const std::string_view data = besides.reference;
    Stream *reference = host::check(zDrawingReference(drawing, nullptr, nullptr));
    if (!data.empty() && zStreamWrite(reference, data.data(), data.size()) != data.size())
        host::fail_raised();
}

host::OwnedDrawing drawing_of(const Merge &merge, Table *table, uint64_t tag) {
    const auto stamped = [tag](DrawingKey key) {
        if (!key.tag && key.object) key.tag = tag;
        return key;
    };
    host::OwnedDrawing drawing(host::check(zDrawingNew(nullptr, nullptr)));
    host::check(zDrawingTableIdSet(drawing.get(), zTableId(table)));
    *host::check(zDrawingHeader(drawing.get())) = stamped(merge.header);
    *host::check(zDrawingSummary(drawing.get())) = stamped(merge.summary);
    *host::check(zDrawingDS(drawing.get())) = stamped(merge.layout);
    put_besides(merge.besides, table, drawing.get());
    for (const DrawingKey &key : merge.classes)
        *host::check(zDrawingClassAdd(drawing.get(), table)) = stamped(key);
    for (const DrawingKey &key : merge.objects)
        *host::check(zDrawingObjectAdd(drawing.get(), table, key.object)) = stamped(key);
    return drawing;
}

// Of a drawing that has its rows here, and isn't so large that reading all of them would take
// longer than the merge. Whatever is wrong with it, there is a result without one.
std::string small_picture(const MergeRequest &request, Drawing *drawing,
                          const MergeTarget &target) noexcept try {
    constexpr uint64_t kMostObjects = 50'000;
    if (!target.thumbnail || zDrawingObjectCount(drawing) > kMostObjects) return {};
    const Contents contents(request.repository, {Keys(drawing)}, target.path, request.notify);
    return target.thumbnail(contents[0]);
} catch (const std::exception &) {
    return {};
}

// The rows first; the table is closed behind them.
host::OwnedDrawing store(const MergeRequest &request, const Merge &merge,
                         const MergeTarget &target) {
    const host::OwnedTable table =
        open_table(request.repository, &request.ours->table, target.path);
    uint64_t tag = 0;
    if (!merge.rows.empty()) {
        tag = new_tag(request, target, table.get());
        store_rows(request, merge, table.get(), tag);
    }
    return drawing_of(merge, table.get(), tag);
}

} // namespace

Merge merge_drawings(const MergeRequest &request) {
    check_table(request);
    const Keys base(*request.base), ours(*request.ours), theirs(*request.theirs);
    merging::Rows rows(
        [&request](const std::vector<DrawingKey> &keys, const merging::Rows::Visit &visit) {
            read(request, keys, visit);
        });
    const merging::Besides besides =
        merging::merge_besides(*request.base, *request.ours, *request.theirs, rows);
    Merge merge = merging::merge_versions({.versions = {&base, &ours, &theirs},
                                           .name = request.name,
                                           .decided = request.decided,
                                           .others = request.others,
                                           .header = request.header,
                                           .classes = request.classes,
                                           .layout = request.layout},
                                          rows);
    merge.is_ours = merge.is_ours && besides == merging::Besides(*request.ours);
    merge.is_theirs = merge.is_theirs && besides == merging::Besides(*request.theirs);
    merge.besides = besides;
    return merge;
}

void write_merge(const MergeRequest &request, const Merge &merge, const MergeTarget &target) {
    if (!merge.conflicts.empty())
        throw host::Failed(host::kInvalid, host::say("%s: has conflicts", target.path));
    const host::OwnedDrawing drawing = store(request, merge, target);
    // The former one shows what is no more.
    const std::string png = small_picture(request, drawing.get(), target);
    host::check(zDrawingSetThumbnail(drawing.get(), static_cast<uint32_t>(png.size()), png.data()));
    if (target.keep_former) target.keep_former();
    host::check(zDrawingWrite(drawing.get(), target.drawing.c_str()), target.path);
}

} // namespace dxf
