// objects/<2 hex>/<38 hex>: one zlib stream of the type ("blob", "commit", "tag", "tree"), a blank,
// the size in decimal digits, a zero byte, and the bytes.
#include "objects/store/loose_object.hpp"

#include "common/errno.hpp"
#include "common/utf.hpp"
#include "objects/store/loose_writer.hpp"
#include "objects/store/odb.hpp"
#include "zev/oid.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <new>
#include <string_view>

namespace zev {

namespace {

constexpr size_t kBlock = 1u << 16;
constexpr uint64_t kDensest = 1032; // bytes that one byte of a zlib stream can give
// That of the packs, behind which it comes as the later one; libgit2's own reading of such files
// has 1.
constexpr int kPriority = 2;

int fail_damaged(const git_oid *id) {
    git_error_set(GIT_ERROR_ODB, "object file %s is damaged or can't be read", git_oid_tostr_s(id));
    return GIT_ERROR;
}

} // namespace

// ---- Reading

LooseObject::~LooseObject() {
    if (ready_) inflateEnd(&state_);
}

LooseObject::Found LooseObject::open(const std::u16string &directory, const git_oid &id) {
    const std::u16string hex = to_wide(git_oid_tostr_s(&id));
    file_.reset(os::open((directory + hex.substr(0, 2) + u'/' + hex.substr(2)).c_str(), u"rb"));
    if (!file_) return errno == ENOENT || errno == ENOTDIR ? Found::missing : Found::damaged;
    setvbuf(file_.get(), nullptr, _IONBF, 0);
    struct stat status;
    if (!os::fd_stat(fileno(file_.get()), &status)) return Found::damaged;
    length_ = static_cast<uint64_t>(status.st_size);
    block_.reset(new Bytef[std::min<uint64_t>(length_ + 1, kBlock)]);
    ready_ = inflateInit(&state_) == Z_OK;
    return ready_ && read_head() ? Found::sound : Found::damaged;
}

bool LooseObject::read_head() {
    const int64_t got = inflate_to(head_, kHead);
    return got > 0 && parse_head(static_cast<size_t>(got));
}

bool LooseObject::parse_head(size_t length) {
    const std::string_view head(head_, length);
    const size_t end = head.find('\0'), blank = head.substr(0, end).find(' ');
    if (end == head.npos || blank == head.npos) return false;
    type_ = git_object_string2type(std::string(head.substr(0, blank)).c_str());
    const auto number = std::from_chars(head_ + blank + 1, head_ + end, size_);
    ahead_ = end + 1;
    ahead_end_ = length;
    return git_object_typeisloose(type_) && number.ec == std::errc() && number.ptr == head_ + end &&
           size_ / kDensest <= length_;
}

int64_t LooseObject::read(void *bytes, uint64_t size) {
    const size_t ahead = std::min<uint64_t>(size, ahead_end_ - ahead_);
    memcpy(bytes, head_ + ahead_, ahead);
    ahead_ += ahead;
    const int64_t rest = inflate_to(static_cast<char *>(bytes) + ahead, size - ahead);
    return rest < 0 ? rest : rest + static_cast<int64_t>(ahead);
}

bool LooseObject::ends() {
    char beyond = 0;
    return !read(&beyond, 1) && !state_.avail_in && !fread(&beyond, 1, 1, file_.get());
}

// Fewer bytes than asked for only at the stream's end, which a file that was cut off never reaches.
int64_t LooseObject::inflate_to(void *bytes, uint64_t size) {
    constexpr uint64_t kMost = 1u << 30; // the inflater counts with 32 bits
    auto at = static_cast<Bytef *>(bytes);
    uint64_t left = size;
    while (left && !ended_) {
        if (!state_.avail_in && !refill()) return -1;
        const auto step = static_cast<uInt>(std::min(left, kMost));
        state_.next_out = at;
        state_.avail_out = step;
        const int code = inflate(&state_, Z_NO_FLUSH);
        ended_ = code == Z_STREAM_END;
        if (code != Z_OK && !ended_) return -1;
        at += step - state_.avail_out;
        left -= step - state_.avail_out;
    }
    return static_cast<int64_t>(size - left);
}

bool LooseObject::refill() {
    const uint64_t room = std::min<uint64_t>(length_ + 1, kBlock);
    state_.next_in = block_.get();
    state_.avail_in = static_cast<uInt>(fread(block_.get(), 1, room, file_.get()));
    return state_.avail_in;
}

// No writer gives an object its name before its bytes, so none is at work on an empty one. But the
// whole object may take the name at any time: what was moved away is looked at once more.
bool drop_hollow(const std::u16string &directory, const std::u16string &name) {
    const std::u16string path = directory + name;
    struct stat status;
    if (!os::lstat(path.c_str(), &status) || !S_ISREG(status.st_mode) || status.st_size)
        return true;
    Oid id;
    zwchar digits[17];
    if (!zOidRand(&id) || !zOidNFormat(digits, 16, &id)) return false;
    const std::u16string aside = directory + u"tmp_obj_" + digits;
    if (!os::move(path.c_str(), aside.c_str(), false)) return errno == ENOENT || fail_errno(path);
    if (os::lstat(aside.c_str(), &status) && status.st_size) os::link(aside.c_str(), path.c_str());
    os::unlink(aside.c_str());
    return true;
}

std::u16string objects_directory(git_repository *repository) {
    return to_wide(git_repository_commondir(repository)) + u"objects/";
}

// ---- As a backend of the store

namespace {

struct Backend : git_odb_backend {
    std::u16string directory;
};

int found(LooseObject &object, git_odb_backend *backend, const git_oid *id) {
    const auto found = object.open(static_cast<Backend *>(backend)->directory, *id);
    if (found == LooseObject::Found::sound) return 0;
    return found == LooseObject::Found::missing ? GIT_ENOTFOUND : fail_damaged(id);
}

bool read_all(LooseObject &object, void *bytes) {
    char beyond = 0;
    const auto size = static_cast<int64_t>(object.size());
    return object.read(bytes, object.size()) == size && !object.read(&beyond, 1);
}

int backend_read(void **bytes, size_t *size, git_object_t *type, git_odb_backend *backend,
                 const git_oid *id) try {
    LooseObject object;
    if (const int code = found(object, backend, id)) return code;
    void *buffer = git_odb_backend_data_alloc(backend, object.size() + 1);
    if (!buffer) return GIT_ERROR;
    if (!read_all(object, buffer)) {
        git_odb_backend_data_free(backend, buffer);
        return fail_damaged(id);
    }
    static_cast<char *>(buffer)[object.size()] = 0;
    *bytes = buffer;
    *size = object.size();
    *type = object.type();
    return 0;
} catch (const std::bad_alloc &) {
    git_error_set_oom();
    return GIT_ERROR;
}

int backend_read_header(size_t *size, git_object_t *type, git_odb_backend *backend,
                        const git_oid *id) try {
    LooseObject object;
    if (const int code = found(object, backend, id)) return code;
    *size = object.size();
    *type = object.type();
    return 0;
} catch (const std::bad_alloc &) {
    git_error_set_oom();
    return GIT_ERROR;
}

// Asked before an object is written, ahead of libgit2's own store, which goes by the name alone.
int backend_freshen(git_odb_backend *backend, const git_oid *id) try {
    const KeptFailure kept;
    const std::u16string hex = to_wide(git_oid_tostr_s(id));
    drop_hollow(static_cast<Backend *>(backend)->directory,
                hex.substr(0, 2) + u'/' + hex.substr(2));
    return GIT_ENOTFOUND;
} catch (const std::bad_alloc &) {
    return GIT_ENOTFOUND;
}

void backend_free(git_odb_backend *backend) { delete static_cast<Backend *>(backend); }

} // namespace

void guard_loose_objects(git_repository *repository) {
    git::Odb odb;
    if (git_repository_odb(out(odb), repository) < 0) return git_error_clear();
    if (find_backend(odb.get(), backend_free)) return;
    auto backend = std::make_unique<Backend>();
    git_odb_init_backend(backend.get(), GIT_ODB_BACKEND_VERSION);
    backend->directory = objects_directory(repository);
    backend->read = backend_read;
    backend->read_header = backend_read_header;
    backend->freshen = backend_freshen;
    backend->writestream = [](git_odb_stream **out, git_odb_backend *own, git_object_size_t size,
                              git_object_t type) {
        return write_loose(out, own, static_cast<Backend *>(own)->directory, type, size);
    };
    // libgit2 asks each for its list without a look; these objects are in that of its own.
    backend->foreach = [](git_odb_backend *, git_odb_foreach_cb, void *) { return 0; };
    backend->free = backend_free;
    if (git_odb_add_backend(odb.get(), backend.get(), kPriority) < 0) return git_error_clear();
    static_cast<void>(backend.release());
}

} // namespace zev
