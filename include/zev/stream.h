// Stream: the one byte-stream interface, its kinds over files, shares, memory, JSON and sockets,
// and the portable binary encoding: big-endian numbers, strings behind a 32-bit length.
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

ZEV_API void zStreamFree(Stream *stream);
ZEV_API uint64_t zStreamRead(Stream *stream, void *buffer, uint64_t count);
ZEV_API uint64_t zStreamWrite(Stream *stream, const void *buffer, uint64_t count);
ZEV_API bool zStreamFlush(Stream *stream);
ZEV_API bool zStreamEOF(Stream *stream);
ZEV_API bool zStreamError(Stream *stream);
ZEV_API int64_t zStreamTell(Stream *stream);
ZEV_API bool zStreamSeek(Stream *stream, int64_t offset, int32_t whence);
ZEV_API bool zStreamRewind(Stream *stream);
ZEV_API uint64_t zStreamSize(Stream *stream);

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

ZEV_API Stream *zFileStream(const zwchar *path, const zwchar *mode);
ZEV_API Stream *zStdioStream(FILE *file);
ZEV_API Stream *zTempStream(void);
ZEV_API Stream *zShareStream(const zwchar *path, const zwchar *mode, uint32_t share);
ZEV_API Stream *zMemStream(uint32_t mode, uint64_t capacity);
ZEV_API bool zMemStreamInit(MemStream *stream, uint32_t mode, uint64_t capacity);
ZEV_API void zMemStreamCleanup(MemStream *stream);
ZEV_API Stream *zJsonStreamIn(void);
ZEV_API Stream *zJsonStreamOut(const Json *json);
ZEV_API Json *zJsonStreamData(Stream *stream);
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

// The slots of the mem kind.
ZEV_API uint64_t zMemStreamRead(Stream *stream, void *buffer, uint64_t count);
ZEV_API uint64_t zMemStreamWrite(Stream *stream, const void *buffer, uint64_t count);
ZEV_API void zMemStreamFree(Stream *stream);
ZEV_API bool zMemStreamEOF(Stream *stream);
ZEV_API bool zMemStreamError(Stream *stream);
ZEV_API int64_t zMemStreamTell(Stream *stream);
ZEV_API bool zMemStreamSeek(Stream *stream, int64_t offset, int32_t whence);
ZEV_API bool zMemStreamRewind(Stream *stream);
ZEV_API uint64_t zMemStreamSize(Stream *stream);

// The slots of the JSON kind.
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
