// The form in which one object travels, the same both ways; numbers are big-endian.
//   type u32 length, "commit", "tree", "blob" or "tag"; size u32; so many bytes
#pragma once

#include "objects/store/git.hpp"
#include "zev/stream.h"

#include <cstdint>

namespace zev::rest {

struct ObjectHead {
    git_object_t type;
    uint32_t size;
};

// `refused` is what can't begin an object: another type, a size that doesn't match what follows.
enum class HeadFate { sound, unreadable, refused };
HeadFate read_object_head(Stream *stream, ObjectHead *head);
// The head alone, of a stream of which more is still to come; false for another type, too.
bool read_object_type(Stream *stream, ObjectHead *head);
bool write_object_head(Stream *stream, const ObjectHead &head);

// The rest of a stream behind the head of a tree, commit or tag; false for what has not the form
// of one. Blobs have none. May throw.
bool read_formed(Stream *stream, const ObjectHead &head, std::string &bytes);

} // namespace zev::rest
