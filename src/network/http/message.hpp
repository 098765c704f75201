// What requests and responses do alike with their bodies, and the limits of what is read.
#pragma once

#include "common/limits.hpp"
#include "network/http/framing.hpp"
#include "network/http/header.hpp"
#include "zev/json.h"
#include "zev/stream.h"

namespace zev {

inline constexpr HttpLimits kHttpLimits = {limits::http_head, limits::http_fields,
                                           limits::http_target, limits::http_body};
inline constexpr uint64_t kBodyPiece = 65535; // sent at once

// Takes a stream as the body, rewound, and gives the former one back; null only does that. False
// when the new one has no way back to its start; it is taken all the same.
bool set_body(Stream *&body, Stream *stream);
// With the fields that describe it, where they are given.
bool set_contents(HttpHeader *header, Stream *&body, const zwchar *type, const zwchar *charset,
                  const zwchar *language, Stream *stream);
bool set_octet(HttpHeader *header, Stream *&body, Stream *stream);

Stream *json_body(const Json *json); // its text in a new stream
Stream *file_body(const zwchar *path);

// Replaces the body by its compressed form and says so in the header; the body stays on failure.
bool zip_body(HttpHeader *header, Stream *&body, const zwchar *encoding);
bool unzip_body(HttpHeader *header, Stream *&body);

// A parser's piece of body, and the end of it.
bool append_body(Stream *&body, const void *bytes, uint64_t length);
bool complete_body(Stream *body);

uint64_t body_size(Stream *body); // 0 without one
bool put_length(HttpHeader *header, Stream *body);
// Whether a field is written by other means than the vector's order.
bool is_connection_field(const zwchar *name);

} // namespace zev
