// The form in which one object travels, the same both ways; numbers are big-endian.
//   type u32 length, "commit", "tree", "blob" or "tag"; size u32; so many bytes
#pragma once

#include "objects/store/git.hpp"
#include "zev/odb.h"
#include "zev/stream.h"

#include <cstdint>
#include <string>

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

// An object of a store with its head. A file is read block by block where it lies for itself, and
// held against its name; what lies in a pack is in memory as a whole for that time. Failures are
// raised. May throw.
bool copy_object(Stream *stream, Odb *odb, const Oid &id);

// The name that the bytes behind a head have as an object; the stream stands behind them then.
bool name_object(Stream *stream, const ObjectHead &head, Oid *id);

// The rest of a stream behind the head of a tree, commit or tag; false for what has not the form
// of one. Blobs have none. May throw.
bool read_formed(Stream *stream, const ObjectHead &head, std::string &bytes);

} // namespace zev::rest
