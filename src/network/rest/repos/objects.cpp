// Objects: one is read or written as a stream, and a list is asked for what is missing of it. What
// holds: a file's content goes through memory block by block, and nothing is stored that is not
// what its type says.
#include "common/limits.hpp"
#include "network/http/server.hpp"
#include "network/rest/operations.hpp"
#include "network/rest/repos/content.hpp"
#include "network/rest/repos/object_stream.hpp"
#include "network/rest/repos/paths_of.hpp"
#include "objects/store/odb.hpp"
#include "stream/stream.hpp"
#include "zev/object.h"
#include "zev/odb.h"
#include "zev/oid.h"

#include <algorithm>
#include <cerrno>

namespace zev::rest {

namespace {

using StreamPtr = Owned<Stream, zStreamFree>;

constexpr uint64_t kHead = 12; // bytes before those of a file

// ---- Writing

// Stores a body that came whole, under the name that its bytes have.
HttpResponse *store_object(const Call &call, Odb *odb, Oid *id) {
    if (HttpResponse *refusal = need_octets(call)) return refusal;
    Stream *body = zHttpRequestBody(call.request);
    ObjectHead head;
    switch (read_object_head(body, &head)) {
    case HeadFate::unreadable:
        return refuse(call, 500, u"zev.eFailedToReadStream");
    case HeadFate::refused:
        return refuse(call, 500, u"odb.eFailedToWriteObject");
    case HeadFate::sound:
        break;
    }
    const bool is_file = head.type == GIT_OBJECT_BLOB;
    const uint64_t most = call.server->limits.object;
    if (head.size > (is_file ? most : std::min<uint64_t>(most, limits::object_form)))
        return refuse(call, 413);
    if (is_file) {
        if (zOdbWrite(id, odb, head.type, head.size, body) && sync_project(call)) return nullptr;
        return refuse(call, 500, u"odb.eFailedToWriteObject");
    }
    std::string bytes;
    if (!read_formed(body, head, bytes)) return refuse(call, 400, u"srv.eInvalidContent");
    const int code =
        git_odb_write(git::oid(id), odb->handle.get(), bytes.data(), bytes.size(), head.type);
    if ((code >= 0 || fail_git(code)) && sync_project(call)) return nullptr;
    return refuse(call, 500, u"odb.eFailedToWriteObject");
}

// A file's body on its way into the store: hashed, compressed and written as it comes. It gets its
// name when the procedure asks for that; until then nobody knows it, and what is broken off goes.
class FileIntake : public Intake {
  public:
    // An object that can't be begun takes nothing.
    FileIntake(const Call &call, uint32_t size) : left_(size) {
        git_repository *repository = call.repository ? call.repository->handle.get() : nullptr;
        const bool opened = repository && git_repository_odb(out(odb_), repository) >= 0;
        if (opened && git_odb_open_wstream(out(stream_), odb_.get(), size, GIT_OBJECT_BLOB) < 0)
            stream_.reset();
    }

    bool add(std::string_view bytes) override {
        bytes.remove_prefix(head_seen_ ? 0 : kHead);
        head_seen_ = true;
        if (!stream_ || bytes.size() > left_) return stream_.reset(), false;
        left_ -= bytes.size();
        const int code = git_odb_stream_write(stream_.get(), bytes.data(), bytes.size());
        if (code < 0) fail_git(code), stream_.reset();
        return code >= 0;
    }
    // False when it is not what its head told, or could not be written.
    bool finish(Oid *id) {
        if (!stream_ || left_) return fail_os(EBADMSG); // why was told while it came
        const int code = git_odb_stream_finalize_write(git::oid(id), stream_.get());
        stream_.reset();
        return code < 0 ? fail_git(code) : true;
    }

  private:
    git::Odb odb_;          // without the repository, which others use meanwhile
    git::OdbStream stream_; // null once it failed
    uint64_t left_;
    bool head_seen_ = false;
};

HttpResponse *finish_object(const Call &call, Oid *id) {
    if (static_cast<FileIntake &>(*call.intake).finish(id) && sync_project(call)) return nullptr;
    return refuse(call, 500, u"odb.eFailedToWriteObject");
}

HttpResponse *answer_stored(const Call &call, Odb *odb, const Oid &id) {
    const int32_t type = zOdbType(odb, &id);
    if (type == Z_OBJECT_BAD) return refuse(call, 500, u"odb.eFailedToReadObject");
    const std::u16string text = id_text(id);
    Tree record = project_record(call, zOTypeName(type), {u"objects", text.c_str()});
    HttpResponse *response = answer_data(200, with_id(std::move(record), id));
    return response ? response : refuse(call, 500, u"zev.eFailedToWriteStream");
}

} // namespace

HttpResponse *read_object(Call &call) {
    Oid id;
    if (HttpResponse *refusal = need_id(call, &id)) return refusal;
    if (HttpResponse *refusal = open_project(call)) return refusal;
    const OdbPtr odb(zOdbOpen(call.repository.get()));
    if (!odb) return refuse(call, 500, u"odb.eFailedToOpenOdb");
    if (HttpResponse *refusal = admit_blob(call, id)) return refusal;
    StreamPtr stream(spill_stream());
    if (!stream) return refuse(call, 500, u"zev.eFailedToOpenStream");
    if (!copy_object(stream.get(), odb.get(), id))
        return refuse(call, 500, u"zev.eFailedToWriteStream");
    return zHttpResponseOctet(200, stream.release());
}

// The head lies in the request's body by now. What is to be looked at whole goes on there.
std::unique_ptr<Intake> take_object(Call &call) {
    Stream *body = zHttpRequestBody(call.request);
    ObjectHead head;
    const bool told = body && zStreamRewind(body) && read_object_type(body, &head);
    if (body) zStreamSeek(body, 0, SEEK_END);
    if (!told || head.type != GIT_OBJECT_BLOB || head.size > call.server->limits.object) return {};
    Oid id;
    const bool named = parse_id(&id, capture(call, u":other"));
    const Owned<HttpResponse, zHttpResponseFree> refusal(named ? open_project(call) : nullptr);
    return std::make_unique<FileIntake>(call, head.size);
}

HttpResponse *write_object(Call &call) {
    Oid wanted, id;
    if (HttpResponse *refusal = need_id(call, &wanted)) return refusal;
    if (HttpResponse *refusal = open_project(call)) return refusal;
    const OdbPtr odb(zOdbOpen(call.repository.get()));
    if (!odb) return refuse(call, 500, u"odb.eFailedToOpenOdb");
    HttpResponse *refusal =
        call.intake ? finish_object(call, &id) : store_object(call, odb.get(), &id);
    if (refusal) return refusal;
    if (!zOidIsEqual(&id, &wanted)) return refuse(call, 400, u"srv.eInvalidContent");
    return answer_stored(call, odb.get(), id);
}

// One look at what others have stored meanwhile, none an id.
HttpResponse *find_missing_objects(Call &call) {
    if (HttpResponse *refusal = open_project(call)) return refusal;
    const OdbPtr odb(zOdbOpen(call.repository.get()));
    if (!odb || git_odb_refresh(odb->handle.get()) < 0)
        return refuse(call, 500, u"srv.eAccessProject");
    Tree body;
    Json *entries = nullptr;
    if (HttpResponse *refusal = read_entries(call, body, entries)) return refusal;
    Tree missing(zJsonNew(Z_JSON_ARRAY));
    const uint64_t count = zJsonArraySize(entries);
    for (uint64_t n = 0; missing && n < count; ++n) {
        Oid id;
        Json *entry = zJsonArrayAt(entries, n);
        if (!zJsonIsString(entry) || !parse_id(&id, zJsonGetString(entry)))
            return refuse(call, 400, u"srv.eInvalidContent");
        if (is_stored(odb->handle.get(), git::oid(&id))) continue;
        if (!push(missing.get(), Tree(zJsonNewId(&id)))) missing.reset();
    }
    return answer_entries(std::move(missing));
}

} // namespace zev::rest
