// The tag rule: rows are only ever added, under a tag above that of every row which the table
// holds and of every key which the drawing's manifests name, at work and at HEAD. So no row that
// any commit on any branch names, or the work file that is to be replaced, is written over, and
// a change that fails half-way leaves nothing but rows that nobody names. The step above is drawn
// by chance: two copies of one copy that go on apart would else give one key to different rows. In
// a copy of a server's project the server gives the tag, where it can be asked.
#include "dxf/tag.hpp"

#include "dxf/rows.hpp"

#include <algorithm>
#include <cstring>

namespace dxf {

namespace {

constexpr uint64_t kHighestTag = UINT64_MAX - 1; // the one above is of the table's own tag
// Tags last for 2^25 imports, and two copies with a thousand each meet once in 2^29 cases.
constexpr uint64_t kLargestStep = uint64_t{1} << 40;

uint64_t highest_named(Drawing *drawing) {
    uint64_t tag = std::max(
        {zDrawingHeader(drawing)->tag, zDrawingSummary(drawing)->tag, zDrawingDS(drawing)->tag});
    if (zDrawingHasVba(drawing)) tag = std::max(tag, zDrawingVbaProject(drawing)->tag);
    for (uint64_t i = 0, n = zDrawingClassCount(drawing); i < n; ++i)
        tag = std::max(tag, zDrawingClassGetAt(drawing, i)->tag);
    for (uint64_t i = 0, n = zDrawingObjectCount(drawing); i < n; ++i)
        tag = std::max(tag, zDrawingObjectGetAt(drawing, i)->tag);
    return tag;
}

uint64_t step_by_chance() {
    Oid chance;
    uint64_t step;
    host::check(zOidRand(&chance));
    memcpy(&step, chance.id, sizeof step);
    return step;
}

} // namespace

uint64_t highest_named(const Manifest &manifest) {
    uint64_t tag = std::max({turned(manifest.header.tag), turned(manifest.summary.tag),
                             turned(manifest.layout.tag), turned(manifest.vba.tag)});
    for (const KeyList *list : {&manifest.classes, &manifest.objects})
        for (size_t i = 0; i < list->size(); ++i) tag = std::max(tag, turned((*list)[i].tag));
    return tag;
}

uint64_t raise_tag(Table *table, const std::vector<Drawing *> &drawings,
                   const std::function<bool(Table *)> &ask, uint64_t named) {
    const bool is_asked = ask && ask(table);
    const uint64_t tag = zTableTagGet(table);
    named = std::max(named, highest_tag(table));
    for (Drawing *drawing : drawings)
        if (drawing && zOidIsEqual(zDrawingTableId(drawing), zTableId(table)))
            named = std::max(named, highest_named(drawing));
    if (is_asked && tag > named) return tag; // nobody else has it
    const uint64_t used = std::max(tag, named);
    if (used >= kHighestTag) throw host::Failed(host::kOther, "the drawing's tags are used up");
    const uint64_t raised =
        used + 1 + step_by_chance() % std::min(kLargestStep, kHighestTag - used);
    host::check(zTableTagSet(table, raised));
    return raised;
}

} // namespace dxf
