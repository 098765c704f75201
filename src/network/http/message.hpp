// What requests and responses do alike: with their header, with their body, and as a parser fills
// them.
#pragma once

#include "common/limits.hpp"
#include "network/http/framing.hpp"
#include "network/http/header.hpp"
#include "zev/json.h"
#include "zev/stream.h"

namespace zev {

inline constexpr uint64_t kBodyPiece = 65535; // sent at once

// The part that both records have; empty of a null record, which each function below refuses.
struct Message {
    HttpHeader *header = nullptr;
    Stream **body = nullptr; // owned by the record

    Message() = default;
    template <class Record>
    Message(Record *record)
        : header(record ? &record->header : nullptr), body(record ? &record->body : nullptr) {}
    explicit operator bool() const { return header; }
};

// Takes a stream as the body, rewound, and gives the former one back; null only does that. False
// when the new one has no way back to its start; it is taken all the same.
bool set_body(Message message, Stream *stream, Here at = {});
// With the fields that describe it, where they are given.
bool set_contents(Message message, const zwchar *type, const zwchar *charset,
                  const zwchar *language, Stream *stream, Here at = {});
// Bodies that are required, with their types.
bool set_json(Message message, const Json *json, Here at = {});
bool set_octet(Message message, Stream *stream, Here at = {});
bool set_file(Message message, const zwchar *path, Here at = {});

// Replaces the body by its compressed form and says so in the header; the body stays on failure.
bool zip_body(Message message, const zwchar *encoding, Here at = {});
// At most so many bytes of it, and no more of a body that needs no decoding: else class 5.
bool unzip_body(Message message, uint64_t most = limits::http_body, Here at = {});

uint64_t body_size(Stream *body); // 0 without one
// Back to its start, with what was still buffered written; false when something of it is on no
// disk. One without a way back is taken as it stands; none is whole.
bool rewind_whole(Stream *body);
// The next piece of a body of which `left` bytes are promised: one that ends before that can't be
// sent. 0 when it failed.
uint64_t read_piece(Stream *body, char *out, uint64_t *left);
bool put_length(HttpHeader *header, Stream *body);
// Whether a field is written by other means than the vector's order.
bool is_connection_field(const zwchar *name);

// ---- As a parser fills them

bool append_body(Stream *&body, const void *bytes, uint64_t length);
bool complete_body(Stream *body);

template <class Record> Record *filled(void *target) { return static_cast<Record *>(target); }

// The delegates of a record that is filled in the common way; each kind adds its own.
template <class Record> constexpr HttpDelegates filling() {
    return {
        .begin = nullptr,
        .url = nullptr,
        .version =
            [](void *target, uint32_t code, const zwchar *) {
                return filled<Record>(target)->header.version = code, true;
            },
        .alive = [](void *target,
                    bool alive) { return filled<Record>(target)->header.alive = alive, true; },
        .method = nullptr,
        .status = nullptr,
        .field =
            [](void *target, const zwchar *name, const zwchar *value) {
                return zHttpHeaderPut(&filled<Record>(target)->header, name, value);
            },
        .headers = [](void *target) { return set_body(filled<Record>(target), nullptr); },
        .body =
            [](void *target, const void *bytes, uint64_t length) {
                return append_body(filled<Record>(target)->body, bytes, length);
            },
        .chunkBegin = [](void *) { return true; },
        .chunkEnd = [](void *) { return true; },
        .complete = [](void *target) { return complete_body(filled<Record>(target)->body); },
    };
}

} // namespace zev

// Exported functions that both records have of one form: a field by its name.
#define ZEV_MESSAGE_FIELD(Record, Noun)                                                            \
    const zwchar *z##Record##Noun(Record *record) {                                                \
        return zHttpHeader##Noun(Message(record).header);                                          \
    }
#define ZEV_MESSAGE_FIELD_SET(Record, Noun)                                                        \
    ZEV_MESSAGE_FIELD(Record, Noun)                                                                \
    bool z##Record##Set##Noun(Record *record, const zwchar *value) {                               \
        return zHttpHeaderSet##Noun(Message(record).header, value);                                \
    }
