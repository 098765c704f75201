// Reads and writes the head of an object on its way, and what has a form of its own. What holds:
// no more memory is taken than bytes are there.
#include "network/rest/repos/object_stream.hpp"

#include "common/reader.hpp"
#include "network/rest/repos/content.hpp"
#include "objects/store/object_form.hpp"
#include "zev/object.h"

#include <cstring>
#include <string>

namespace zev::rest {

namespace {

constexpr uint32_t kLongestType = 6; // "commit"

bool read_u32(Stream *stream, uint32_t *value) {
    uint8_t bytes[4];
    if (zStreamRead(stream, bytes, sizeof bytes) != sizeof bytes) return false;
    *value = load_u32(bytes);
    return true;
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

bool read_formed(Stream *stream, const ObjectHead &head, std::string &bytes) {
    bytes.resize(head.size);
    return zStreamRead(stream, bytes.data(), bytes.size()) == bytes.size() &&
           has_object_form(head.type, bytes);
}

} // namespace zev::rest
