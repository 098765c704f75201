// The description of an item in the trash and an entry path, a zero byte between them: whatever is
// read as a name stays one name, and no path leads out of its slot.
#include "common/utf.hpp"
#include "objects/trash/trash.hpp"
#include "zev/error.h"

#include <cstdlib>

namespace {

void check_name(std::u16string_view name) {
    const bool single = !name.empty() && name.find_first_of(u"/\\") == name.npos;
    if (!single || name == u"." || name == u"..") abort();
}

void check_path(const zev::TrashPath &path) {
    if (path.slot.size() != zev::kTrashSlot || path.slot[2] != u'/') abort();
    if (path.inner.empty()) return;
    for (size_t at = 0;;) {
        const size_t slash = path.inner.find(u'/', at);
        check_name(std::u16string_view(path.inner).substr(at, slash - at));
        if (slash == path.inner.npos) return;
        at = slash + 1;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    const std::string_view all(reinterpret_cast<const char *>(data), size);
    const size_t zero = std::min(all.find('\0'), size);
    zev::TrashInfo info;
    if (zev::parse_trash_info(&info, all.substr(0, zero))) {
        check_name(info.name);
        // What we write we read.
        zev::TrashInfo again;
        const std::string text = zev::format_trash_info(info);
        if (!zev::parse_trash_info(&again, text) || again.name != info.name ||
            again.orig != info.orig || again.time != info.time)
            abort();
    }
    zev::TrashPath path;
    const std::string_view rest = all.substr(std::min(zero + 1, size));
    if (zev::parse_trash_path(&path, zev::to_wide(rest))) check_path(path);
    return 0;
}
