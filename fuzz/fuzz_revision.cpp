// A revision record: the quick way to read one gives what the long way gives; what is read once is
// written, and reads back as the same text; the list of its changes takes every question.
#include "objects/history/revision.hpp"

#include "zev/stream.h"

#include <cstdlib>
#include <string_view>

using namespace zev;

namespace {

Wide text_of(Revision *revision) {
    const JsonGuard json = revision_to_json(revision);
    Wide text(json ? zJsonWriteTextual(json.get()) : nullptr);
    if (!text) abort();
    return text;
}

// Readers of a list that came from outside.
void ask(DiffList *list) {
    const Owned<PathSpec, zPathSpecFree> spec(zPathSpecNew(u"a*", Z_SPEC_NO_RENAMED));
    const DiffListPtr some = diff_list_filtered(list, spec.get());
    if (diff_list_any(list, spec.get()) != (zDiffListLength(some.get()) > 0)) abort();
    for (uint64_t i = 0; i < zDiffListLength(list); ++i) {
        const DiffEntry *entry = zDiffListEntry(list, i);
        if (!zDiffEntryOldPath(entry) || !zDiffEntryNewId(entry)) abort();
        if (!zDiffListLookup(list, zDiffEntryNewPath(entry))) abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    const RevisionPtr first = revision_from_text(nullptr, input);
    const Owned<Stream, zStreamFree> stream(zMemStream(0, size));
    zStreamWrite(stream.get(), data, size);
    zStreamRewind(stream.get());
    const JsonGuard tree(zJsonReadStream(stream.get()));
    const RevisionPtr slow = revision_from_json(nullptr, tree.get());
    if (!first != !slow) abort();
    if (!first) return 0;
    if (!zStrsameW(text_of(first.get()).get(), text_of(slow.get()).get())) abort();
    ask(first->changes.get());
    const Wide text = text_of(first.get());
    const JsonGuard json(zJsonReadTextual(text.get()));
    const RevisionPtr second = revision_from_json(nullptr, json.get());
    if (!second || !zStrsameW(text.get(), text_of(second.get()).get())) abort();
    return 0;
}
