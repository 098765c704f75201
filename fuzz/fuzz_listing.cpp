// A server's listing of a tree: what is read of an entry has an id, and a path, if any, that stays
// in the work directory.
#include "answer_entries.hpp"
#include "remote/rtdownload.hpp"

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
    each_entry(data, size, [](const Json *entry) {
        ListedEntry listed;
        if (read_listed(entry, listed)) judge(listed);
    });
    return 0;
}
