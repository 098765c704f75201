// Objects on their way: the head, the bytes, and what has a form of its own. What holds: a file's
// content goes through memory block by block, and no more memory is taken than bytes are there.
#include "network/rest/repos/object_stream.hpp"

#include "common/reader.hpp"
#include "common/sha1.hpp"
#include "network/rest/repos/content.hpp"
#include "objects/store/loose_object.hpp"
#include "objects/store/object_form.hpp"
#include "objects/store/odb.hpp"
#include "zev/object.h"
#include "zev/oid.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace zev::rest {

namespace {

constexpr uint32_t kLongestType = 6; // "commit"
constexpr uint64_t kBlock = 1u << 16;

bool read_u32(Stream *stream, uint32_t *value) {
    uint8_t bytes[4];
    if (zStreamRead(stream, bytes, sizeof bytes) != sizeof bytes) return false;
    *value = load_u32(bytes);
    return true;
}

// An object's size must fit the stream's head.
bool write_head(Stream *stream, git_object_t type, uint64_t size) {
    if (size > UINT32_MAX) return raise_range();
    return write_object_head(stream, {type, static_cast<uint32_t>(size)});
}

void begin_name(Sha1 &sum, git_object_t type, uint64_t size) {
    const std::string head = object_head(type, size);
    sum.add(head.data(), head.size());
}

// As libgit2 fails with an object whose bytes are not those that it was named by.
Failure fail_damaged() {
    git_error_set_str(GIT_ERROR_ODB, "object hash mismatch");
    return fail_git(GIT_EMISMATCH);
}

// Block by block, and compared with its name at the end.
bool copy_loose(Stream *stream, LooseObject &object, const Oid &id) {
    Sha1 sum;
    Oid name;
    const std::unique_ptr<uint8_t[]> block(new uint8_t[kBlock]);
    begin_name(sum, object.type(), object.size());
    if (!write_head(stream, object.type(), object.size())) return false;
    for (uint64_t left = object.size(); left;) {
        const int64_t got = object.read(block.get(), std::min(left, kBlock));
        if (got <= 0) return fail_damaged();
        const auto count = static_cast<uint64_t>(got);
        sum.add(block.get(), count);
        if (zStreamWrite(stream, block.get(), count) != count) return false;
        left -= count;
    }
    return (object.ends() && sum.end(name.id) && zOidIsEqual(&name, &id)) || fail_damaged();
}

} // namespace

bool read_object_type(Stream *stream, ObjectHead *head) {
    uint32_t length = 0;
    char name[kLongestType + 1] = {};
    if (!read_u32(stream, &length) || !length || length > kLongestType) return false;
    if (zStreamRead(stream, name, length) != length || !read_u32(stream, &head->size)) return false;
    head->type = strlen(name) == length ? git_object_string2type(name) : GIT_OBJECT_INVALID;
    return git_object_typeisloose(head->type);
}

HeadFate read_object_head(Stream *stream, ObjectHead *head) {
    const bool parsed = read_object_type(stream, head) && head->size == bytes_left(stream);
    if (zStreamError(stream)) return HeadFate::unreadable;
    return parsed ? HeadFate::sound : HeadFate::refused;
}

bool write_object_head(Stream *stream, const ObjectHead &head) {
    return zStreamWrStringW(stream, zOTypeName(head.type)) && zStreamWrUInt32(stream, head.size) &&
           !zStreamError(stream);
}

// What lies in a pack comes whole: libgit2 reads it in no other way.
bool copy_object(Stream *stream, Odb *odb, const Oid &id) {
    LooseObject loose;
    const auto directory = objects_directory(odb->owner->handle.get());
    if (loose.open(directory, *git::oid(&id)) == LooseObject::Found::sound)
        return copy_loose(stream, loose, id);
    size_t size;
    git_object_t type;
    const int code = git_odb_read_header(&size, &type, odb->handle.get(), git::oid(&id));
    if (code < 0) return fail_git(code);
    return write_head(stream, type, size) && zOdbRead(odb, &id, stream);
}

bool name_object(Stream *stream, const ObjectHead &head, Oid *id) {
    Sha1 sum;
    const std::unique_ptr<uint8_t[]> block(new uint8_t[kBlock]);
    begin_name(sum, head.type, head.size);
    for (uint64_t left = head.size; left;) {
        const uint64_t count = std::min(left, kBlock);
        if (zStreamRead(stream, block.get(), count) != count) return false;
        sum.add(block.get(), count);
        left -= count;
    }
    return sum.end(id->id);
}

bool read_formed(Stream *stream, const ObjectHead &head, std::string &bytes) {
    bytes.resize(head.size);
    return zStreamRead(stream, bytes.data(), bytes.size()) == bytes.size() &&
           has_object_form(head.type, bytes);
}

} // namespace zev::rest
