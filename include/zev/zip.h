// Zip: a stream laid over another one. What is written to it leaves compressed, what is read from
// it arrives decompressed. Encodings by name, case aside: "deflate" is the zlib format, "gzip" the
// gzip format; another one is class 2, logged.
#ifndef ZEV_ZIP_H
#define ZEV_ZIP_H

#include "zev/stream.h"

ZEV_BEGIN

// Compressing, at level 6, and decompressing. The stream below stays the caller's; a file, opened
// "wb" or "rb", and a temporary one (zFileTemp) go with it.
ZEV_API Stream *zZipStream(Stream *stream, const zwchar *encoding);
ZEV_API Stream *zUnzipStream(Stream *stream, const zwchar *encoding);
ZEV_API Stream *zZipFile(const zwchar *path, const zwchar *encoding);
ZEV_API Stream *zUnzipFile(const zwchar *path, const zwchar *encoding);
ZEV_API Stream *zZipTemp(const zwchar *encoding);

// Ends the compressed data and rewinds the stream below, which a read then gives; true in any case,
// zStreamError tells. Freeing does the same first.
ZEV_API bool zZipStreamFinish(Stream *stream);

// From the stream's position to its end, into a new temporary stream, rewound. Null when reading or
// writing failed, and for input that is damaged, ends early or goes on behind its end. All that
// comes out is written, and a small input can fill a disk: what a stranger sent is better read by
// zUnzipStream, counted.
ZEV_API Stream *zStreamCompress(Stream *stream, const zwchar *encoding);
ZEV_API Stream *zStreamUncompress(Stream *stream, const zwchar *encoding);

// The slots. A decompressing stream can't be written and has no positions; a read may give fewer
// bytes than asked for before the end.
ZEV_API uint64_t zZipStreamRead(Stream *stream, void *buffer, uint64_t count);
ZEV_API uint64_t zZipStreamWrite(Stream *stream, const void *buffer, uint64_t count);
ZEV_API void zZipStreamFree(Stream *stream);
ZEV_API bool zZipStreamFlush(Stream *stream);
ZEV_API bool zZipStreamEOF(Stream *stream);
ZEV_API bool zZipStreamError(Stream *stream);
ZEV_API int64_t zZipStreamTell(Stream *stream);
ZEV_API bool zZipStreamSeek(Stream *stream, int64_t offset, int32_t whence);
ZEV_API bool zZipStreamRewind(Stream *stream);
ZEV_API uint64_t zZipStreamSize(Stream *stream);

ZEV_END
#endif
