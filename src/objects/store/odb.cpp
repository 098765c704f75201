// The store of objects: whole ones go from and to streams. A type or a size is read off an object's
// head alone.
#include "zev/odb.h"

#include "objects/store/odb.hpp"
#include "zev/object.h"
#include "zev/stream.h"

#include <cerrno>
#include <new>

using namespace zev;

namespace {

// A block of a streamed object; one on the stack, whatever the object's size.
constexpr uint64_t kBlock = 16384;
// A stream that gives nothing this often in a row has ended without saying so.
constexpr int kIdleReads = 64;

// Type and size from the object's header. False with libgit2's error.
bool header(Odb *odb, const Oid *id, size_t &size, git_object_t &type, Here at = {}) {
    if (!odb || !id) return fail_args(at);
    int code = git_odb_read_header(&size, &type, odb->handle.get(), git::oid(id));
    return code < 0 ? fail_git(code) : true;
}

// Hands all that `source` still gives to `target`.
bool pour(git_odb_stream *target, Stream *source) {
    char block[kBlock];
    for (int idle = 0; idle < kIdleReads && !zStreamEOF(source);) {
        uint64_t count = zStreamRead(source, block, sizeof block);
        if (zStreamError(source)) return fail_os(EIO);
        idle = count ? 0 : idle + 1;
        if (int code = git_odb_stream_write(target, block, count); code < 0) return fail_git(code);
    }
    return true;
}

} // namespace

Odb *zOdbOpen(Repository *repository) {
    if (!repository) return fail_args();
    git::Odb handle;
    if (int code = git_repository_odb(out(handle), repository->handle.get()); code < 0)
        return fail_git(code);
    auto *odb = new (std::nothrow) Odb{std::move(handle), repository};
    return odb ? odb : fail_memory();
}

void zOdbFree(Odb *odb) { delete odb; }
Repository *zOdbOwner(const Odb *odb) { return odb ? odb->owner : fail_args(); }

bool zOdbExists(Odb *odb, const Oid *id) {
    if (!odb || !id) return fail_args();
    return git_odb_exists(odb->handle.get(), git::oid(id)) == 1;
}

int32_t zOdbType(Odb *odb, const Oid *id) {
    size_t size;
    git_object_t type;
    return header(odb, id, size, type) ? type : GIT_OBJECT_INVALID;
}

uint64_t zOdbSize(Odb *odb, const Oid *id) {
    size_t size;
    git_object_t type;
    return header(odb, id, size, type) ? size : 0;
}

bool zOdbForeach(Odb *odb, OdbCallback visit, void *context) {
    if (!odb || !visit) return fail_args();
    struct Walk {
        OdbCallback visit;
        void *context;
    } walk{visit, context};
    const int code = git_odb_foreach(
        odb->handle.get(),
        [](const git_oid *id, void *self) {
            const auto *to = static_cast<Walk *>(self);
            return to->visit(git::oid(id), to->context) ? 0 : 1;
        },
        &walk);
    return code < 0 ? fail_git(code) : true;
}

bool zOdbRead(Odb *odb, const Oid *id, Stream *stream) {
    if (!odb || !id || !stream) return fail_args();
    size_t size;
    git_object_t type;
    if (!header(odb, id, size, type)) return false;
    git::OdbObject object;
    if (int code = git_odb_read(out(object), odb->handle.get(), git::oid(id)); code < 0)
        return fail_git(code);
    size = git_odb_object_size(object.get());
    uint64_t count = zStreamWrite(stream, git_odb_object_data(object.get()), size);
    return zStreamError(stream) || count != size ? fail_git(0) : true;
}

bool zOdbWrite(Oid *out_id, Odb *odb, int32_t type, uint64_t size, Stream *stream) {
    if (!odb || !stream || type < Z_OBJECT_COMMIT || type > Z_OBJECT_TAG) return fail_args();
    git::OdbStream target;
    int code =
        git_odb_open_wstream(out(target), odb->handle.get(), size, static_cast<git_object_t>(type));
    if (code < 0) return fail_git(code);
    if (!pour(target.get(), stream)) return false;
    git_oid id;
    if (code = git_odb_stream_finalize_write(&id, target.get()); code < 0) return fail_git(code);
    if (out_id) *out_id = *git::oid(&id);
    return true;
}
