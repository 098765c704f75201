// The list of updates that a copy keeps: what is taken from its file has a side, and paths that
// stay in the work directory; any of it can be selected.
#include "remote/changes.hpp"

#include "remote/remote.hpp"
#include "zev/error.h"
#include "zev/pathspec.h"

#include <cstdlib>
#include <string>

using namespace zev;

namespace {

void judge(const zwchar *name) {
    const std::u16string path = u"/" + std::u16string(name ? name : u"") + u"/";
    if (path.starts_with(u"//") || path.find(u"/../") != path.npos) abort();
    if (zStrcasesameW(path.substr(0, 6).c_str(), u"/.git/")) abort();
}

void judge(DiffList *list) {
    for (uint64_t i = 0; i < zDiffListLength(list); ++i) {
        const DiffEntry *entry = zDiffListEntry(list, i);
        if (!entry->old_file && !entry->new_file) abort();
        judge(zDiffEntryOldPath(entry));
        judge(zDiffEntryNewPath(entry));
    }
    const Owned<PathSpec, zPathSpecFree> spec(zPathSpecNew(u"a*", 0));
    const DiffListPtr some = diff_list_filtered(list, spec.get());
    if (zDiffListLength(some.get()) > zDiffListLength(list)) abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    const StreamPtr stream(zMemStream(0, size));
    zStreamWrite(stream.get(), data, size);
    zStreamRewind(stream.get());
    JsonBounds bounds{limits::answer_bytes, limits::answer_nodes};
    const JsonGuard file(json_read_bounded(stream.get(), bounds));
    const DiffListPtr list = file ? changes_from_json(json_find(file.get(), u"diff")) : nullptr;
    if (list) judge(list.get());
    return 0;
}
