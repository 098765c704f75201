// Stream: the one byte-stream interface, its kinds over files, shares, memory, JSON and sockets,
// and the portable binary encoding: big-endian numbers, strings behind a 32-bit length.
//
// A stream belongs to one thread at a time. Whoever made one gives it back through zStreamFree.
#ifndef ZEV_STREAM_H
#define ZEV_STREAM_H

#include "zev/base.h"
#include <stdio.h>

ZEV_BEGIN

// Heads every kind's record. A kind fills read, write, free, eof and error; others may be null.
struct Stream {
    uint64_t (*read)(Stream *stream, void *buffer, uint64_t count);
    uint64_t (*write)(Stream *stream, const void *buffer, uint64_t count);
    void (*free)(Stream *stream);
    bool (*flush)(Stream *stream);
    bool (*eof)(Stream *stream);
    bool (*error)(Stream *stream);
    int64_t (*tell)(Stream *stream);
    bool (*seek)(Stream *stream, int64_t offset, int32_t whence);
    bool (*rewind)(Stream *stream);
    uint64_t (*size)(Stream *stream);
};

// Block of `capacity` plus `terminator` bytes, zero behind `size`; kind 0 bytes, 1 UTF-8, 2 wide.
struct Buffer {
    uint32_t kind;
    uint8_t *cursor;
    uint8_t *data;
    uint64_t size;
    uint64_t capacity;
    uint64_t terminator;
};

struct MemStream {
    Stream head;
    Buffer buffer;
};

// Made by whoever connects it; the last owning stream closes it and frees block and record.
struct Socket {
    uint32_t references;
    void *block;
    int32_t descriptor;
    int32_t last_error;
};

// Accepts null. What a kind releases with the stream stands at its constructor.
ZEV_API void zStreamFree(Stream *stream);
// Bytes moved. Fewer than asked for mean the end or a failure; zStreamError tells which.
ZEV_API uint64_t zStreamRead(Stream *stream, void *buffer, uint64_t count);
ZEV_API uint64_t zStreamWrite(Stream *stream, const void *buffer, uint64_t count);
// True where a kind has nothing to push out.
ZEV_API bool zStreamFlush(Stream *stream);
ZEV_API bool zStreamEOF(Stream *stream);
ZEV_API bool zStreamError(Stream *stream);
// Whence: 0 from the start, 1 from the position, 2 from the end. On a kind without positions (a
// socket) these raise the standard error 129, not supported, and give -1, false, false, 0.
ZEV_API int64_t zStreamTell(Stream *stream);
ZEV_API bool zStreamSeek(Stream *stream, int64_t offset, int32_t whence);
ZEV_API bool zStreamRewind(Stream *stream);
ZEV_API uint64_t zStreamSize(Stream *stream);

// Encoding. Each writer gives the bytes written: 1, 2, 4, 8 for numbers, big-endian; floats in the
// forms of IEEE 754. A string is its length as 32 bits, then its bytes without a terminator, wide
// text in UTF-8. A string above 67,108,864 bytes is class 2 and nothing is written. After a failed
// write a string gives 0.
ZEV_API uint64_t zStreamWrInt8(Stream *stream, int8_t value);
ZEV_API uint64_t zStreamWrUInt8(Stream *stream, uint8_t value);
ZEV_API uint64_t zStreamWrInt16(Stream *stream, int16_t value);
ZEV_API uint64_t zStreamWrUInt16(Stream *stream, uint16_t value);
ZEV_API uint64_t zStreamWrInt32(Stream *stream, int32_t value);
ZEV_API uint64_t zStreamWrUInt32(Stream *stream, uint32_t value);
ZEV_API uint64_t zStreamWrInt64(Stream *stream, int64_t value);
ZEV_API uint64_t zStreamWrUInt64(Stream *stream, uint64_t value);
ZEV_API uint64_t zStreamWrFloat(Stream *stream, float value);
ZEV_API uint64_t zStreamWrDouble(Stream *stream, double value);
ZEV_API uint64_t zStreamWrStringA(Stream *stream, const char *text);
ZEV_API uint64_t zStreamWrStringW(Stream *stream, const zwchar *text);

// Each reader gives the bytes read. A number that ends early leaves the value alone. A string is
// always a new one for the caller to free: empty, with 0, when the stream failed, ended behind the
// length (an empty string that stands last reads as 0 too) or announces more than is allowed; of
// the announced length, padded with zeros, when the stream ended within it. Null only when memory
// ran out. Malformed UTF-8 becomes U+FFFD.
ZEV_API uint64_t zStreamRdInt8(Stream *stream, int8_t *value);
ZEV_API uint64_t zStreamRdUInt8(Stream *stream, uint8_t *value);
ZEV_API uint64_t zStreamRdInt16(Stream *stream, int16_t *value);
ZEV_API uint64_t zStreamRdUInt16(Stream *stream, uint16_t *value);
ZEV_API uint64_t zStreamRdInt32(Stream *stream, int32_t *value);
ZEV_API uint64_t zStreamRdUInt32(Stream *stream, uint32_t *value);
ZEV_API uint64_t zStreamRdInt64(Stream *stream, int64_t *value);
ZEV_API uint64_t zStreamRdUInt64(Stream *stream, uint64_t *value);
ZEV_API uint64_t zStreamRdFloat(Stream *stream, float *value);
ZEV_API uint64_t zStreamRdDouble(Stream *stream, double *value);
ZEV_API uint64_t zStreamRdStringA(Stream *stream, char **text);
ZEV_API uint64_t zStreamRdStringW(Stream *stream, zwchar **text);

// A file, opened with a mode of fopen and closed with the stream; what zFileOpen raises stands.
ZEV_API Stream *zFileStream(const zwchar *path, const zwchar *mode);
// The caller's open file, which stays open. Null is class 2.
ZEV_API Stream *zStdioStream(FILE *file);
// A new file in the temporary directory, "w+b". It is closed with the stream and stays there.
ZEV_API Stream *zTempStream(void);
// A file opened with a sharing mode (zev/share.h), which lasts as long as the stream.
ZEV_API Stream *zShareStream(const zwchar *path, const zwchar *mode, uint32_t share);

// Memory that grows. The mode is the kind of the Buffer, above 2 it is class 2; capacity 0 means
// 4,096 bytes. A seek behind the end stops one byte behind it. Init and Cleanup work on a record
// of the caller's, which Cleanup leaves zeroed.
ZEV_API Stream *zMemStream(uint32_t mode, uint64_t capacity);
ZEV_API bool zMemStreamInit(MemStream *stream, uint32_t mode, uint64_t capacity);
ZEV_API void zMemStreamCleanup(MemStream *stream);

// Memory that holds JSON text: empty, or the text of a tree, which stays the caller's.
ZEV_API Stream *zJsonStreamIn(void);
ZEV_API Stream *zJsonStreamOut(const Json *json);
// The tree of a JSON stream's text, lent: parsed by the first call and freed with the stream. Null
// when the text is no JSON.
ZEV_API Json *zJsonStreamData(Stream *stream);

// A connected socket. Each transfer waits up to a second for it. A failure is class 9, logged, and
// gives 0; the end of a socket is never reported as such. Freeing an owning stream counts
// `references` down, so whoever makes the Socket sets it to the number of owning streams, and
// allocates record and block by malloc.
ZEV_API Stream *zSocketStream(Socket *socket, bool owned);

// The slots of the file kind.
ZEV_API uint64_t zFileStreamRead(Stream *stream, void *buffer, uint64_t count);
ZEV_API uint64_t zFileStreamWrite(Stream *stream, const void *buffer, uint64_t count);
ZEV_API void zFileStreamFree(Stream *stream);
ZEV_API bool zFileStreamFlush(Stream *stream);
ZEV_API bool zFileStreamEOF(Stream *stream);
ZEV_API bool zFileStreamError(Stream *stream);
ZEV_API int64_t zFileStreamTell(Stream *stream);
ZEV_API bool zFileStreamSeek(Stream *stream, int64_t offset, int32_t whence);
ZEV_API bool zFileStreamRewind(Stream *stream);
ZEV_API uint64_t zFileStreamSize(Stream *stream);

// The slots of the share kind.
ZEV_API uint64_t zShareStreamRead(Stream *stream, void *buffer, uint64_t count);
ZEV_API uint64_t zShareStreamWrite(Stream *stream, const void *buffer, uint64_t count);
ZEV_API void zShareStreamFree(Stream *stream);
ZEV_API bool zShareStreamFlush(Stream *stream);
ZEV_API bool zShareStreamEOF(Stream *stream);
ZEV_API bool zShareStreamError(Stream *stream);
ZEV_API int64_t zShareStreamTell(Stream *stream);
ZEV_API bool zShareStreamSeek(Stream *stream, int64_t offset, int32_t whence);
ZEV_API bool zShareStreamRewind(Stream *stream);
ZEV_API uint64_t zShareStreamSize(Stream *stream);

// The slots of the memory kind.
ZEV_API uint64_t zMemStreamRead(Stream *stream, void *buffer, uint64_t count);
ZEV_API uint64_t zMemStreamWrite(Stream *stream, const void *buffer, uint64_t count);
ZEV_API void zMemStreamFree(Stream *stream);
ZEV_API bool zMemStreamEOF(Stream *stream);
ZEV_API bool zMemStreamError(Stream *stream);
ZEV_API int64_t zMemStreamTell(Stream *stream);
ZEV_API bool zMemStreamSeek(Stream *stream, int64_t offset, int32_t whence);
ZEV_API bool zMemStreamRewind(Stream *stream);
ZEV_API uint64_t zMemStreamSize(Stream *stream);

// The slots of the JSON kind; its size is zMemStreamSize.
ZEV_API uint64_t zJsonStreamRead(Stream *stream, void *buffer, uint64_t count);
ZEV_API uint64_t zJsonStreamWrite(Stream *stream, const void *buffer, uint64_t count);
ZEV_API void zJsonStreamFree(Stream *stream);
ZEV_API bool zJsonStreamEOF(Stream *stream);
ZEV_API bool zJsonStreamError(Stream *stream);
ZEV_API int64_t zJsonStreamTell(Stream *stream);
ZEV_API bool zJsonStreamSeek(Stream *stream, int64_t offset, int32_t whence);
ZEV_API bool zJsonStreamRewind(Stream *stream);

// The slots of the socket kind.
ZEV_API uint64_t zSocketStreamRead(Stream *stream, void *buffer, uint64_t count);
ZEV_API uint64_t zSocketStreamWrite(Stream *stream, const void *buffer, uint64_t count);
ZEV_API void zSocketStreamFree(Stream *stream);
ZEV_API bool zSocketStreamFlush(Stream *stream);
ZEV_API bool zSocketStreamEOF(Stream *stream);
ZEV_API bool zSocketStreamError(Stream *stream);

ZEV_END
#endif
