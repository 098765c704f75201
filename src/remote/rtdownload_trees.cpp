// The listing of a tree, and the objects in it that are missing here. An entry:
//   {"id": ID, "type": "blob", "tree" or "commit", "mode": N, "size": BYTES,
//    "path": the directory with its last slash, empty at the top, "name": NAME, ...}
// In the mode of a file bit 0x100 says that the user may read it, bit 0x80 that he may write it.
// The mode of a symbolic link has no such bits, whoever asks: its rights are those that the rules
// of the copy's user give to its path.
#include "common/pathname.hpp"
#include "objects/store/object.hpp"
#include "objects/store/odb.hpp"
#include "objects/store/tree_extent.hpp"
#include "objects/work/file_mode.hpp"
#include "remote/rtdownload.hpp"
#include "zev/object.h"
#include "zev/odb.h"
#include "zev/str.h"
#include "zev/tree.h"

#include <unordered_set>

#include <sys/stat.h>

namespace zev {

namespace {

using ObjectPtr = Owned<Object, zObjectFree>;

constexpr int64_t kReadBit = 0x100, kWriteBit = 0x80;
constexpr uint64_t kBatch = 0x1000000; // bytes of a pack, as they are listed

int64_t number_in(const Json *object, const zwchar *name) {
    const Json *node = zJsonObjectAt(object, name);
    return node ? zJsonGetInt(node) : 0;
}

struct Listing {
    std::vector<ListedEntry> missing{};
    JsonGuard denied{}, readonly{}; // null until there is one
};

void keep_copy(JsonGuard &array, const Json *entry) {
    if (!array) array.reset(zJsonNew(Z_JSON_ARRAY));
    if (!array) throw std::bad_alloc();
    push(array.get(), zJsonDup(entry));
}

std::u16string query_of(bool recursive, int32_t type) {
    std::u16string query;
    if (!recursive) query = u"recursive=0";
    if (type != Z_OBJECT_ANY) {
        if (!query.empty()) query += u'&';
        query.append(u"otype=").append(zOTypeName(type));
    }
    return query.empty() ? query : u"?" + query;
}

// What the user may do with links. The rules are opened for the first of them: most trees have
// none.
class LinkRules {
  public:
    explicit LinkRules(Repository *repository) : repository_(repository) {}

    bool judge(ListedEntry &link) {
        if (!rules_) rules_.reset(zAuthdbOpen(repository_));
        if (!rules_) return false;
        link.readable = zAuthdbEntryReadable(rules_.get(), link.path.c_str());
        link.writable = zAuthdbEntryWritable(rules_.get(), link.path.c_str());
        return true;
    }

  private:
    Repository *repository_;
    AuthdbPtr rules_;
};

bool take_entries(const RemoteCall &call, Json *entries, Listing &listing) {
    const OdbPtr odb(zOdbOpen(call.remote->owner));
    if (!odb) return notify_error(call.notify, u"odb.eFailedToOpenOdb");
    git_odb_refresh(odb->handle.get());
    LinkRules rules(call.remote->owner);
    const uint64_t count = zJsonArraySize(entries);
    for (uint64_t n = 0; n < count; ++n) {
        const Json *entry = zJsonArrayAt(entries, n);
        ListedEntry listed;
        if (!read_listed(entry, listed)) return wrong_data(call);
        if (listed.link && !rules.judge(listed)) return notify_error(call.notify, call.summary);
        if (!listed.readable)
            keep_copy(listing.denied, entry);
        else if (!listed.writable)
            keep_copy(listing.readonly, entry);
        if (!listed.foreign && !is_stored(odb->handle.get(), git::oid(&listed.id)))
            listing.missing.push_back(std::move(listed));
    }
    return true;
}

// The tree of the answer is gone when this returns: it may be larger than what is kept of it.
bool list_tree(const RemoteCall &call, const Oid &id, bool recursive, int32_t type,
               Listing &listing) {
    const std::u16string tail = u"/trees/" + id_text(id) + query_of(recursive, type);
    const JsonGuard body = json_of(call, send(call, make_request(call, Z_HTTP_GET, tail)));
    Json *entries = entries_of(call, body);
    return entries && take_entries(call, entries, listing);
}

// What was fetched will be walked through, directory by directory.
bool is_bounded(const RemoteCall &call, const Oid &id) {
    return has_bounded_extent(call.remote->owner->handle.get(), git::oid(&id)) || wrong_data(call);
}

// What `path` and `name` make; empty where neither is a text.
std::u16string path_of(const Json *entry) {
    const zwchar *directory = text_in(entry, u"path"), *name = text_in(entry, u"name");
    std::u16string path = directory ? directory : u"";
    if (!path.empty() && path.back() != u'/') path += u'/';
    return name ? path + name : path;
}

bool is_wanted(const ListedEntry &entry, PathSpec *spec) {
    return entry.readable && (!entry.blob || !spec || zPathSpecMatched(spec, entry.path.c_str()));
}

// A file beyond the limit would be refused when it is here. What was put into the project past the
// service may be one: nothing is asked for then, and the user learns which it is.
bool are_storable(const std::vector<ListedEntry> &missing, PathSpec *spec, const Notify *notify) {
    for (const ListedEntry &entry : missing)
        if (entry.size > limits::object && is_wanted(entry, spec)) {
            raise_range();
            return notify_error(notify, u"odb.eFileTooLarge_s", entry.path.c_str());
        }
    return true;
}

} // namespace

bool read_listed(const Json *entry, ListedEntry &listed) {
    if (!id_in(&listed.id, entry, u"id")) return false;
    const int64_t size = number_in(entry, u"size"), mode = number_in(entry, u"mode");
    if (size < 0) return false;
    listed.size = static_cast<uint64_t>(size);
    listed.path = path_of(entry);
    if (!listed.path.empty() && !path_can_enter(to_utf8(listed.path))) return false;
    const zwchar *type = text_in(entry, u"type");
    listed.foreign = type && zStrcasesameW(type, zOTypeName(Z_OBJECT_COMMIT));
    listed.blob = type && zStrcasesameW(type, zOTypeName(Z_OBJECT_BLOB));
    listed.link = listed.blob && (mode & S_IFMT) == S_IFLNK;
    listed.readable = !listed.blob || listed.link || mode & kReadBit;
    listed.writable = !listed.blob || listed.link || mode & kWriteBit;
    return true;
}

// One content may stand at many paths.
bool fetch_missing(Remote *remote, const std::vector<ListedEntry> &missing, PathSpec *spec,
                   const Notify *notify) {
    if (!are_storable(missing, spec, notify)) return false;
    Ids asked;
    PackQuery batch;
    uint64_t sum = 0;
    for (const ListedEntry &entry : missing) {
        if (is_wanted(entry, spec) && asked.insert(entry.id).second) {
            if (entry.size <= kAlone) {
                batch.add(entry.id);
                sum += entry.size;
            } else if (!zRemoteDownloadObject(remote, &entry.id, notify)) {
                return false;
            }
        }
        if (&entry != &missing.back() && sum < kBatch && batch.size() < kQueried) continue;
        sum = 0;
        if (!batch.is_empty() && !batch.fetch(remote, notify)) return false;
    }
    return true;
}

} // namespace zev

using namespace zev;

bool zRemoteDownloadTree(Remote *remote, const Oid *id, bool recursive, int32_t type, Json **denied,
                         Json **readonly, const Notify *notify) try {
    if (!remote || !id) return fail_args();
    const RemoteCall call{remote, notify, u"net.eFailedToFetchTrees"};
    Listing listing;
    if (!zRemoteDownloadObject(remote, id, notify) ||
        !list_tree(call, *id, recursive, type, listing))
        return false;
    zNotifyAction(notify, word(u"action.sFetchingContent"), u"%s", word(u"action.sPleaseWait"));
    if (!fetch_missing(remote, listing.missing, nullptr, notify) || !is_bounded(call, *id))
        return false;
    if (denied && listing.denied) *denied = listing.denied.release();
    if (readonly && listing.readonly) *readonly = listing.readonly.release();
    return true;
} catch (...) {
    return fail_thrown();
}

bool zRemoteDownloadMatches(Remote *remote, const Oid *id, int32_t type, PathSpec *spec) try {
    if (!remote || !id) return fail_args();
    const Notify *notify = spec ? zPathSpecNotify(spec) : nullptr;
    if (!zRemoteDownloadNested(remote, id, Z_OBJECT_TREE, notify)) return false;
    const ObjectPtr object(zObjectByid(remote->owner, id, Z_OBJECT_ANY));
    const TreePtr tree(object ? zTreePeel(object.get()) : nullptr);
    if (!tree) return notify_raised(notify);
    const RemoteCall call{remote, notify, u"net.eFailedToFetchTrees"};
    const Oid root = *zTreeId(tree.get());
    Listing listing;
    return list_tree(call, root, true, type, listing) &&
           fetch_missing(remote, listing.missing, spec, notify) && is_bounded(call, root);
} catch (...) {
    return fail_thrown();
}
