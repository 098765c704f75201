// Objects from the server, one by one or as packs. What holds: an object's bytes are held against
// its id before it is stored, those of a pack are named by what they are; a pack has no more
// objects than were asked for, and counts only after all were looked at.
#include "common/reader.hpp"
#include "network/rest/repos/object_stream.hpp"
#include "network/rest/repos/pack_stream.hpp"
#include "objects/store/object.hpp"
#include "objects/store/odb.hpp"
#include "objects/store/pack.hpp"
#include "remote/rtdownload.hpp"
#include "zev/object.h"
#include "zev/odb.h"
#include "zev/pack.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string_view>

namespace zev {

namespace {

using ObjectPtr = Owned<Object, zObjectFree>;
using WriterPtr = Owned<PackWriter, zPackWriterFree>;

// ---- One object

// Stores what a body has, if that is the object of the id.
bool store_object(Odb *odb, const Oid &id, Stream *body) {
    rest::ObjectHead head;
    if (rest::read_object_head(body, &head) != rest::HeadFate::sound) return raise_args();
    const bool is_file = head.type == GIT_OBJECT_BLOB;
    if (head.size > (is_file ? limits::object : limits::object_form)) return raise_range();
    const int64_t begin = zStreamTell(body);
    Oid found;
    if (!rest::name_object(body, head, &found) || !zOidIsEqual(&found, &id)) return raise_args();
    if (!zStreamSeek(body, begin, SEEK_SET)) return false;
    if (is_file) return zOdbWrite(nullptr, odb, head.type, head.size, body);
    std::string bytes;
    if (!rest::read_formed(body, head, bytes)) return raise_args();
    const int code =
        git_odb_write(git::oid(&found), odb->handle.get(), bytes.data(), bytes.size(), head.type);
    return code >= 0 || fail_git(code);
}

// What an object leads to: a tag's target, a commit's tree; null where it leads nowhere.
const git_oid *next_of(const Object *object) {
    const git_object *handle = object->handle.get();
    switch (git_object_type(handle)) {
    case GIT_OBJECT_COMMIT:
        return git_commit_tree_id(git::as<const git_commit>(handle));
    case GIT_OBJECT_TAG:
        return git_tag_target_id(git::as<const git_tag>(handle));
    default:
        return nullptr;
    }
}

// ---- A pack

// How many objects a query can bring: of an entry that asks for all that it leads to nobody knows.
uint64_t most_objects(const Json *query) {
    const Json *entries = json_find(const_cast<Json *>(query), u"query.entries");
    const uint64_t count = entries && zJsonIsArray(entries) ? zJsonArraySize(entries) : 0;
    for (uint64_t n = 0; n < count; ++n) {
        const Json *entry = zJsonArrayAt(entries, n);
        if (zJsonIsObject(entry) && zJsonObjectAt(entry, u"recursive")) return limits::pack_objects;
    }
    return count;
}

// A pack's bytes on their way to the writer; its head tells how many objects there are: "PACK",
// version u32, count u32.
class PackIntake {
  public:
    PackIntake(PackWriter *writer, uint64_t most) : writer_(writer), most_(most) {}

    bool take(std::string_view bytes) {
        look(bytes);
        return whole_ = count() <= most_ && zPackWriterAppend(writer_, bytes.data(), bytes.size());
    }
    // A pack of nothing is not kept.
    bool commit() const {
        if (!seen_) return true;
        if (!whole_) return count() <= most_ ? false : raise_range();
        return (seen_ == head_.size() && !count()) || commit_formed(writer_, limits::object);
    }

  private:
    void look(std::string_view bytes) {
        const uint64_t part = std::min<uint64_t>(bytes.size(), head_.size() - seen_);
        memcpy(head_.data() + seen_, bytes.data(), part);
        seen_ += part;
    }
    uint32_t count() const { return seen_ == head_.size() ? load_u32(head_.data() + 8) : 0; }

    PackWriter *writer_;
    uint64_t most_;
    std::array<uint8_t, 12> head_{};
    uint64_t seen_ = 0;
    bool whole_ = true;
};

// Up to the end of the body, or to what the intake refuses, who knows why.
bool read_pieces(Stream *body, PackIntake &intake) {
    constexpr uint64_t kBlock = 1u << 16;
    const auto block = std::make_unique<char[]>(kBlock);
    rest::PieceReader pieces;
    while (const uint64_t count = zStreamRead(body, block.get(), kBlock))
        if (!pieces.add({block.get(), count}, [&](auto bytes) { return intake.take(bytes); }))
            return true;
    return !zStreamError(body) && pieces.is_whole();
}

bool store_pack(Remote *remote, Stream *body, uint64_t most) {
    const WriterPtr writer(zPackWriterNew(remote->owner));
    if (!writer) return false;
    PackIntake intake(writer.get(), most);
    const bool read = read_pieces(body, intake);
    return (read || raise_args()) && intake.commit();
}

} // namespace

std::u16string limit_text(uint64_t limit) {
    return to_wide(std::to_string(std::min<uint64_t>(limit, INT32_MAX)));
}

void PackQuery::add(const Oid &id) {
    push(entries_.get(), zJsonNewObject(u"id", zJsonNewId(&id), nullptr));
}

bool PackQuery::fetch(Remote *remote, const Notify *notify) {
    const JsonGuard query = entries_query(std::move(entries_));
    clear();
    return zRemoteDownloadPack(remote, query.get(), notify);
}

void PackQuery::clear() {
    entries_.reset(zJsonNew(Z_JSON_ARRAY));
    if (!entries_) throw std::bad_alloc();
}

} // namespace zev

using namespace zev;

bool zRemoteDownloadObject(Remote *remote, const Oid *id, const Notify *notify) try {
    if (!remote || !id) return fail_args();
    const OdbPtr odb(zOdbOpen(remote->owner));
    if (!odb) return notify_error(notify, u"odb.eFailedToOpenOdb");
    if (zOdbExists(odb.get(), id)) return true;
    const RemoteCall call{remote, notify, u"net.eFailedToFetchObject"};
    HttpRequest *request = make_request(call, Z_HTTP_GET, u"/objects/" + id_text(*id), kOctetType);
    Stream *body = body_of(call, send(call, request));
    if (!body) return false;
    return store_object(odb.get(), *id, body) || notify_error(notify, u"odb.eFailedToWriteObject");
} catch (...) {
    return fail_thrown();
}

bool zRemoteDownloadNested(Remote *remote, const Oid *id, int32_t type, const Notify *notify) try {
    if (!remote || !id) return fail_args();
    git_oid at = *git::oid(id);
    for (uint32_t depth = 0; depth <= limits::tag_depth; ++depth) {
        if (!zRemoteDownloadObject(remote, git::oid(&at), notify)) return false;
        const ObjectPtr object(zObjectByid(remote->owner, git::oid(&at), Z_OBJECT_ANY));
        if (!object) return notify_raised(notify);
        if (type == Z_OBJECT_ANY || zObjectType(object.get()) == type) return true;
        const git_oid *next = next_of(object.get());
        if (!next) break;
        at = *next;
    }
    raise_not_found(word(u"odb.eFailedToFetchObject"));
    return notify_raised(notify);
} catch (...) {
    return fail_thrown();
}

bool zRemoteDownloadPack(Remote *remote, const Json *query, const Notify *notify) try {
    if (!remote || !query) return fail_args();
    const RemoteCall call{remote, notify, u"net.eFailedToDownloadPack"};
    HttpRequest *request = make_request(call, Z_HTTP_POST, u"/packs/diff", query, kOctetType);
    Stream *body = body_of(call, send(call, request));
    if (!body) return false;
    return store_pack(remote, body, most_objects(query)) || notify_error(notify, call.summary);
} catch (...) {
    return fail_thrown();
}

bool zRemoteDownloadCommits(Remote *remote, const Oid *head, uint64_t limit,
                            const Notify *notify) try {
    if (!remote || !head) return fail_args();
    const OdbPtr odb(zOdbOpen(remote->owner));
    if (!odb) return notify_error(notify, u"odb.eFailedToOpenOdb");
    const RemoteCall call{remote, notify, u"net.eFailedToFetchCommits"};
    std::u16string tail = u"/commits?head=" + id_text(*head);
    if (limit) tail += u"&limit=" + limit_text(limit);
    const JsonGuard body = json_of(call, send(call, make_request(call, Z_HTTP_GET, tail)));
    Json *entries = entries_of(call, body);
    if (!entries) return false;
    PackQuery missing;
    git_odb_refresh(odb->handle.get());
    const uint64_t count = zJsonArraySize(entries);
    for (uint64_t n = 0; n < count; ++n) {
        Oid id;
        if (!id_in(&id, zJsonArrayAt(entries, n), u"id")) return wrong_data(call);
        if (is_stored(odb->handle.get(), git::oid(&id))) continue;
        missing.add(id);
        if (missing.size() == kQueried && !missing.fetch(remote, notify)) return false;
    }
    return missing.fetch(remote, notify);
} catch (...) {
    return fail_thrown();
}
