// A server's listing of a tree: what is read of an entry has an id, and a path, if any, that stays
// in the work directory.
#include "remote/rtdownload.hpp"

#include "zev/error.h"

#include <cstdlib>
#include <string>

using namespace zev;

namespace {

void judge(const ListedEntry &listed) {
    const std::u16string path = u"/" + listed.path + u"/";
    if (listed.path.starts_with(u"/") || path.find(u"/../") != path.npos) abort();
    if (zStrcasesameW(path.substr(0, 6).c_str(), u"/.git/")) abort();
    if (!listed.blob && !(listed.readable && listed.writable)) abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    const StreamPtr stream(zMemStream(0, size));
    zStreamWrite(stream.get(), data, size);
    zStreamRewind(stream.get());
    JsonBounds bounds{limits::answer_bytes, limits::answer_nodes};
    const JsonGuard body(json_read_bounded(stream.get(), bounds));
    Json *entries = body ? json_find(body.get(), u"data.entries") : nullptr;
    const uint64_t count = entries && zJsonIsArray(entries) ? zJsonArraySize(entries) : 0;
    for (uint64_t n = 0; n < count; ++n) {
        ListedEntry listed;
        if (read_listed(zJsonArrayAt(entries, n), listed)) judge(listed);
    }
    return 0;
}
