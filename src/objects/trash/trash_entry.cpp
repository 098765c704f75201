// What lies in the trash, one slot an item:
//
//   <Git directory>/trash/<2 hex>/<38 hex>/     the slot, its digits lower-case and random
//     info.$$$   JSON object, UTF-8: "name" string, the item's name; "orig" string, the directory
//                that held it, relative to the work directory with forward slashes, "" for that
//                itself; "time" integer, seconds of Unix time when it was taken, not 0
//     <name>     the item, a file or a tree
//
// The description is written first and the item moved in last, so that an item always has one. A
// description without its item was left by a killed writer: its item never left the work
// directory. Slots without a whole description are no entries, and stay.
#include "objects/trash/trash.hpp"

#include "common/errno.hpp"
#include "common/fold.hpp"
#include "common/limits.hpp"
#include "common/utf.hpp"
#include "objects/store/pathspec.hpp"
#include "system/os.hpp"
#include "zev/dir.h"
#include "zev/json.h"
#include "zev/path.h"
#include "zev/repository.h"
#include "zev/stream.h"

#include <cerrno>
#include <new>

namespace zev {

namespace {

using JsonPtr = Owned<Json, zJsonFree>;

bool is_slash(zwchar unit) { return unit == u'/' || unit == u'\\'; }
bool is_digit(zwchar unit) {
    return (unit >= u'0' && unit <= u'9') || (unit >= u'a' && unit <= u'f');
}

bool is_single_name(std::u16string_view name) {
    return !name.empty() && name != u"." && name != u".." &&
           name.find_first_of(u"/\\") == name.npos;
}

bool is_slot(std::u16string_view text) {
    for (size_t i = 0; i < text.size(); ++i)
        if (i == 2 ? !is_slash(text[i]) : !is_digit(text[i])) return false;
    return text.size() == kTrashSlot;
}

// The bytes of a description; what is too long for one is none.
bool read_info_file(std::string *out, const std::u16string &path) {
    Owned<FILE, fclose> file(os::open(path.c_str(), u"rb"));
    if (!file) return fail_errno(path.c_str());
    out->resize(limits::trash_info + 1);
    out->resize(fread(out->data(), 1, out->size(), file.get()));
    if (out->size() <= limits::trash_info && !ferror(file.get())) return true;
    errno = EBADMSG;
    return fail_errno(path.c_str());
}

bool read_info(TrashInfo *out, const std::u16string &slot) {
    const std::u16string path = path_below(slot, kTrashInfo);
    std::string bytes;
    if (!read_info_file(&bytes, path)) return false;
    if (parse_trash_info(out, bytes)) return true;
    errno = EBADMSG;
    return fail_errno(path.c_str());
}

// The fields that follow from what stands on disk.
bool fill_status(TrashEntry &entry, const std::u16string &root) {
    const std::u16string full = path_below(root, entry.path);
    if (!os::lstat(full.c_str(), &entry.status)) return fail_errno(full.c_str());
    entry.mtime = {entry.status.st_mtim.tv_sec, 0};
    const zwchar *dot = S_ISDIR(entry.status.st_mode) ? nullptr : zPathFindExt(entry.name.c_str());
    if (dot) entry.type = dot + 1;
    return true;
}

} // namespace

// ---- Descriptions

bool parse_trash_info(TrashInfo *out, std::string_view bytes) {
    Owned<Stream, zStreamFree> stream(zMemStream(0, bytes.size()));
    if (!stream || zStreamWrite(stream.get(), bytes.data(), bytes.size()) != bytes.size())
        return false;
    zStreamRewind(stream.get());
    const JsonPtr json(zJsonReadStream(stream.get()));
    if (!json || !zJsonIsObject(json.get())) return false;
    const Json *name = zJsonObjectAt(json.get(), u"name");
    const Json *orig = zJsonObjectAt(json.get(), u"orig");
    const Json *time = zJsonObjectAt(json.get(), u"time");
    if (!name || !zJsonIsString(name) || !orig || !zJsonIsString(orig)) return false;
    if (!time || !zJsonIsInt(time) || !zJsonGetInt(time)) return false;
    *out = {zJsonGetString(name), zJsonGetString(orig), zJsonGetInt(time)};
    return is_single_name(out->name) && out->name != kTrashInfo;
}

std::string format_trash_info(const TrashInfo &info) {
    const JsonPtr json(zJsonNew(Z_JSON_OBJECT));
    if (!json || !zJsonPathSetString(json.get(), u"name", info.name.c_str()) ||
        !zJsonPathSetString(json.get(), u"orig", info.orig.c_str()) ||
        !zJsonPathSetLarge(json.get(), u"time", info.time))
        return {};
    const Wide text(zJsonWriteTextual(json.get()));
    return text ? to_utf8(text.get()) : std::string();
}

// ---- Paths

bool parse_trash_path(TrashPath *out, std::u16string_view path) {
    if (!path.empty() && is_slash(path.front())) path.remove_prefix(1);
    if (!is_slot(path.substr(0, kTrashSlot))) return false;
    out->slot = path.substr(0, kTrashSlot);
    out->slot[2] = u'/';
    path.remove_prefix(kTrashSlot);
    if (!path.empty() && is_slash(path.front())) path.remove_prefix(1);
    while (!path.empty() && is_slash(path.back())) path.remove_suffix(1);
    out->inner = path;
    for (zwchar &unit : out->inner)
        if (unit == u'\\') unit = u'/';
    std::u16string_view rest = out->inner;
    while (!rest.empty()) {
        const size_t slash = std::min(rest.find(u'/'), rest.size());
        if (!is_single_name(rest.substr(0, slash))) return false;
        rest.remove_prefix(std::min(slash + 1, rest.size()));
    }
    return true;
}

bool trash_root(std::u16string *out, Repository *repository) {
    const zwchar *root = zRepositoryTrash(repository);
    if (!root) return false;
    *out = root;
    return true;
}

bool check_trash_entry(const std::u16string &root, const TrashEntry &entry) {
    TrashPath path;
    if (!parse_trash_path(&path, entry.path) || path.inner.empty() || path.inner == kTrashInfo)
        return fail_args();
    return check_links(root, entry.path);
}

// ---- Entries from the disk

TrashEntryPtr trash_discover(Repository *owner, const std::u16string &root,
                             std::u16string_view text) {
    TrashPath path;
    TrashInfo info;
    TrashEntryPtr entry(zTrashEntryNew());
    if (!entry) return nullptr;
    if (!parse_trash_path(&path, text)) return TrashEntryPtr(fail_args());
    if (!check_links(root, path_below(path.slot, kTrashInfo)) ||
        !read_info(&info, path_below(root, path.slot)))
        return nullptr;
    if (path.inner.empty()) path.inner = info.name;
    const std::u16string first = path.inner.substr(0, path.inner.find(u'/'));
    if (!same_folded(first.c_str(), info.name.c_str())) return TrashEntryPtr(fail_os(EBADF));
    entry->owner = owner;
    entry->path = path_below(path.slot, path.inner);
    entry->name = path_name(path.inner);
    entry->orig = path_above(path_below(info.orig, path.inner));
    entry->dtime = {info.time, 0};
    if (!check_links(root, entry->path) || !fill_status(*entry, root)) return nullptr;
    return entry;
}

TrashEntryPtr trash_child(const TrashEntry &parent, const std::u16string &root,
                          std::u16string_view name) {
    TrashEntryPtr entry(zTrashEntryNew());
    if (!entry) return nullptr;
    entry->owner = parent.owner;
    entry->path = path_below(parent.path, name);
    entry->name = name;
    entry->orig = path_below(parent.orig, parent.name);
    entry->dtime = parent.dtime;
    return fill_status(*entry, root) ? std::move(entry) : nullptr;
}

} // namespace zev

using namespace zev;

namespace {

template <class T>
const zwchar *text_of(const TrashEntry *entry, T TrashEntry::*field, Here at = {}) {
    if (!entry) return fail_args(at);
    return (entry->*field).c_str();
}

} // namespace

// ---- Making and freeing

TrashEntry *zTrashEntryNew(void) {
    auto *entry = new (std::nothrow) TrashEntry{};
    return entry ? entry : fail_memory();
}

TrashEntry *zTrashEntryDup(const TrashEntry *entry) try {
    if (!entry) return fail_args();
    return new TrashEntry(*entry);
} catch (...) {
    return fail_thrown();
}

bool zTrashEntryInit(TrashEntry *entry) {
    if (!entry) return fail_args();
    *entry = TrashEntry{};
    return true;
}

bool zTrashEntryDeinit(TrashEntry *entry) { return zTrashEntryInit(entry); }

void zTrashEntryFree(TrashEntry *entry) { delete entry; }

TrashEntry *zTrashEntryDiscover(Repository *repository, const zwchar *path) try {
    std::u16string root;
    if (!path) return fail_args();
    if (!trash_root(&root, repository)) return nullptr;
    return trash_discover(repository, root, path).release();
} catch (...) {
    return fail_thrown();
}

TrashEntry *zTrashEntryParse(const TrashEntry *parent, const Dirent *item) try {
    if (!parent || !item || zDirentIsDotOrDotDot(item)) return fail_args();
    std::u16string root;
    if (!trash_root(&root, parent->owner) || !check_trash_entry(root, *parent)) return nullptr;
    return trash_child(*parent, root, zDirentName(item)).release();
} catch (...) {
    return fail_thrown();
}

// ---- Fields

Repository *zTrashEntryOwner(const TrashEntry *entry) {
    if (!entry) return fail_args();
    return entry->owner;
}

const zwchar *zTrashEntryPath(const TrashEntry *entry) { return text_of(entry, &TrashEntry::path); }
const zwchar *zTrashEntryName(const TrashEntry *entry) { return text_of(entry, &TrashEntry::name); }
const zwchar *zTrashEntryOrig(const TrashEntry *entry) { return text_of(entry, &TrashEntry::orig); }
const zwchar *zTrashEntryType(const TrashEntry *entry) { return text_of(entry, &TrashEntry::type); }

const Time *zTrashEntryDTime(const TrashEntry *entry) {
    if (!entry) return fail_args();
    return &entry->dtime;
}

const Time *zTrashEntryMTime(const TrashEntry *entry) {
    if (!entry) return fail_args();
    return &entry->mtime;
}

uint64_t zTrashEntrySize(const TrashEntry *entry) {
    if (!entry) return fail_args(), 0;
    return static_cast<uint64_t>(entry->status.st_size);
}

bool zTrashEntryIsFile(const TrashEntry *entry) {
    if (!entry) return fail_args();
    return S_ISREG(entry->status.st_mode);
}

bool zTrashEntryIsDir(const TrashEntry *entry) {
    if (!entry) return fail_args();
    return S_ISDIR(entry->status.st_mode);
}

bool zTrashEntryIsMatch(const TrashEntry *entry, PathSpec *spec) try {
    if (!entry || !spec) return fail_args();
    const std::u16string text = path_below(entry->orig, entry->name);
    return zPathSpecStrstr(spec, text.c_str()) || spec_matches(spec, to_utf8(text));
} catch (...) {
    return fail_thrown();
}
