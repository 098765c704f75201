// The compressing and the decompressing kind, over zlib.
#include "zev/zip.h"

#include "common/failure.hpp"
#include "common/guard.hpp"
#include "common/limits.hpp"
#include "common/per_thread.hpp"
#include "stream/stream.hpp"
#include "zev/lang.h"
#include "zev/str.h"

#include <algorithm>
#include <climits>
#include <memory>
#include <utility>

#include <zlib.h>

using namespace zev;

namespace {

constexpr uint32_t kBuffer = 0x40000;
constexpr size_t kBlock = 0x10000;
// inflate keeps 32 KiB of what each call gave, so larger steps copy less.
constexpr size_t kInflatedBlock = kBuffer;

constexpr int kLevel = 6;

enum Mode : uint32_t { kCompress, kDecompress };

struct ZipStream : Stream {
    Stream *below;
    z_stream z;
    uint32_t mode;
    uint32_t gzip;
    bool owned;
    bool ended;   // zlib saw the end of the data
    bool pending; // the last inflate filled its output: there may be more without further input
    bool failed;
    uint32_t size;
    unsigned char buffer[kBuffer];
    unsigned char block[kBuffer]; // for whole streams: what goes in, or what came out
};

constexpr Stream kZipHead = {.read = zZipStreamRead,
                             .write = zZipStreamWrite,
                             .free = zZipStreamFree,
                             .flush = zZipStreamFlush,
                             .eof = zZipStreamEOF,
                             .error = zZipStreamError,
                             .tell = zZipStreamTell,
                             .seek = zZipStreamSeek,
                             .rewind = zZipStreamRewind,
                             .size = zZipStreamSize};

using StreamPtr = Owned<Stream, zStreamFree>;

ZipStream *record(Stream *stream, Here at = {}) {
    if (!stream) return fail_args(at);
    return static_cast<ZipStream *>(stream);
}

// 0 deflate, 1 gzip, -1 for another encoding.
int format_of(const zwchar *encoding) {
    if (!encoding) return -1;
    if (zStrcasesameW(encoding, u"gzip")) return 1;
    return zStrcasesameW(encoding, u"deflate") ? 0 : -1;
}

Failure fail_zlib(const z_stream &z, Here at = {}) {
    const zwchar *reason = z.msg ? zStrfromutf8(z.msg) : nullptr;
    raise_other(reason, zI18nTextLookup(zI18nCurrentLang(), u"zev.eFailedToDecompressData"));
    return fail_raised(at);
}

Failure fail_too_large(Here at = {}) {
    return logged(raise_range(zI18nTextLookup(zI18nCurrentLang(), u"zev.eDecompressedTooLarge")),
                  at);
}

int bits_of(uint32_t gzip) { return gzip ? 31 : 15; }

int start(ZipStream &zip) {
    constexpr int kMemory = 8;
    if (zip.mode == kDecompress) return inflateInit2(&zip.z, bits_of(zip.gzip));
    return deflateInit2(&zip.z, kLevel, Z_DEFLATED, bits_of(zip.gzip), kMemory, Z_DEFAULT_STRATEGY);
}

// ---- Between uses

void discard(ZipStream *zip) {
    if (!zip) return;
    zip->mode == kDecompress ? inflateEnd(&zip->z) : deflateEnd(&zip->z);
    delete zip;
}

// One record of each mode rests with its thread: a small body costs less than the memory of a new
// one, which the system clears first.
struct Resting {
    ZipStream *of[2] = {};
};
Resting *make_resting() { return new (std::nothrow) Resting; }
void release_resting(void *pointer) {
    auto *resting = static_cast<Resting *>(pointer);
    for (ZipStream *zip : resting->of) discard(zip);
    delete resting;
}
using PerThreadResting = PerThread<Resting, make_resting, release_resting>;

void rest(ZipStream *zip) {
    Resting *resting = PerThreadResting::get();
    if (resting) std::swap(resting->of[zip->mode], zip);
    discard(zip);
}

// A record with zlib at its start; null when there is none at rest for this format.
ZipStream *wake(Mode mode, uint32_t gzip) {
    Resting *resting = PerThreadResting::get();
    ZipStream *zip = resting ? std::exchange(resting->of[mode], nullptr) : nullptr;
    if (!zip) return nullptr;
    const bool compress = mode == kCompress;
    int code = compress ? deflateReset(&zip->z) : inflateReset2(&zip->z, bits_of(gzip));
    if (code == Z_OK && compress) code = deflateParams(&zip->z, kLevel, Z_DEFAULT_STRATEGY);
    if (code == Z_OK && (!compress || zip->gzip == gzip)) return zip;
    return discard(zip), nullptr;
}

ZipStream *obtain(Mode mode, uint32_t gzip) {
    if (ZipStream *zip = wake(mode, gzip)) return zip;
    std::unique_ptr<ZipStream> zip(new (std::nothrow) ZipStream);
    if (!zip) return fail_memory();
    zip->mode = mode;
    zip->gzip = gzip;
    zip->z = {};
    return start(*zip) == Z_OK ? zip.release() : fail_zlib(zip->z);
}

// Owns `below` from here on if `owned`, also when it fails.
Stream *over(Stream *below, const zwchar *encoding, Mode mode, bool owned, Here at = {}) {
    StreamPtr kept(owned ? below : nullptr);
    const int format = format_of(encoding);
    if (!below || format < 0) return fail_args(at);
    ZipStream *zip = obtain(mode, static_cast<uint32_t>(format));
    if (!zip) return nullptr;
    *static_cast<Stream *>(zip) = kZipHead;
    zip->z.next_in = nullptr;
    zip->z.avail_in = 0;
    zip->below = below;
    zip->gzip = static_cast<uint32_t>(format);
    zip->owned = owned;
    zip->ended = zip->pending = zip->failed = false;
    zip->size = kBuffer;
    kept.release();
    return zip;
}

// A file is only opened, and cut, for an encoding that there is.
Stream *over_file(const zwchar *path, const zwchar *mode, const zwchar *encoding, Mode direction,
                  Here at = {}) {
    if (!path || format_of(encoding) < 0) return fail_args(at);
    Stream *file = zFileStream(path, mode);
    return file ? over(file, encoding, direction, true, at) : nullptr;
}

// zlib counts in 32 bits.
uInt step_of(uint64_t count) { return static_cast<uInt>(std::min<uint64_t>(count, UINT_MAX)); }

// Runs what zlib has as input through it. False when something failed on the way.
bool deflate_step(ZipStream &zip, int flush) {
    do {
        zip.z.next_out = zip.buffer;
        zip.z.avail_out = zip.size;
        const uInt before = zip.z.avail_in;
        const int code = deflate(&zip.z, flush);
        const uint64_t made = zip.size - zip.z.avail_out;
        // The buffer was filled to the last byte the time before, and nothing was left.
        if (code == Z_BUF_ERROR && !made && before == zip.z.avail_in)
            return zip.z.msg = nullptr, true;
        if (code != Z_OK && code != Z_STREAM_END) return !(zip.failed = true);
        if (made && zStreamWrite(zip.below, zip.buffer, made) != made) return !(zip.failed = true);
        if (zStreamError(zip.below)) return false;
    } while (!zip.z.avail_out);
    return true;
}

uint64_t deflate_all(ZipStream &zip, const void *data, uint64_t count) {
    const auto *bytes = static_cast<const unsigned char *>(data);
    uint64_t taken = 0;
    while (taken < count) {
        const uInt size = step_of(count - taken);
        zip.z.next_in = const_cast<unsigned char *>(bytes + taken);
        zip.z.avail_in = size;
        const bool good = deflate_step(zip, Z_NO_FLUSH);
        taken += size - zip.z.avail_in;
        if (!good) break;
    }
    zip.z.next_in = nullptr;
    zip.z.avail_in = 0;
    return taken;
}

// Ends the blocks of the level before, too.
bool set_level(ZipStream &zip, int level) {
    zip.z.next_out = zip.buffer;
    zip.z.avail_out = zip.size;
    const int code = deflateParams(&zip.z, level, Z_DEFAULT_STRATEGY);
    const uint64_t made = zip.size - zip.z.avail_out;
    const bool good = code == Z_OK && zStreamWrite(zip.below, zip.buffer, made) == made;
    return good || !(zip.failed = true);
}

// What gains nothing is stored: noise, and what is compressed already, takes 30 ms a MiB, in which
// a peer hears nothing. Now and then it is tried anew.
//   trying --a span with no gain--> storing --a longer one each time--> trying
class Effort {
  public:
    explicit Effort(ZipStream &zip) : zip_(zip) {}

    // Behind each block. False when the stream failed.
    bool weigh() {
        ++blocks_;
        if (stores_) return blocks_ < span_ || begin(false);
        if (blocks_ == 1) in_ = zip_.z.total_in, out_ = zip_.z.total_out; // zlib holds some back
        if (blocks_ <= kTried) return true;
        const uint64_t taken = zip_.z.total_in - in_, made = zip_.z.total_out - out_;
        if (made > taken - taken / 32) return begin(true);
        blocks_ = 0;
        span_ = kShortest;
        return true;
    }

  private:
    static constexpr uint32_t kTried = 4, kShortest = 16, kLongest = 256; // blocks

    bool begin(bool stores) {
        blocks_ = 0;
        stores_ = stores;
        if (!stores) span_ = std::min(2 * span_, kLongest);
        return set_level(zip_, stores ? Z_NO_COMPRESSION : kLevel);
    }

    ZipStream &zip_;
    uint64_t in_ = 0, out_ = 0; // where the span began
    uint32_t blocks_ = 0, span_ = kShortest;
    bool stores_ = false;
};

// What follows the end of the data can't belong to it.
uint64_t behind_end(ZipStream &zip) {
    unsigned char more;
    if (zip.z.avail_in || (!zStreamEOF(zip.below) && zStreamRead(zip.below, &more, 1)))
        zip.failed = true;
    zip.z.avail_in = 0;
    return 0;
}

// Input for zlib, when it has none left; false at its end, which is before the data's own.
bool refill(ZipStream &zip) {
    if (zip.z.avail_in) return true;
    const uint64_t got = zStreamRead(zip.below, zip.buffer, zip.size);
    zip.z.next_in = zip.buffer;
    zip.z.avail_in = static_cast<uInt>(got);
    if (!got && zStreamEOF(zip.below)) zip.failed = true;
    return got > 0;
}

// One inflate, but a second one where the first only finds that the output before it, which was
// filled to the last byte, had been all of its input's.
uint64_t inflate_some(ZipStream &zip, void *buffer, uint64_t count) {
    if (zip.ended) return behind_end(zip);
    if (!count || (!zip.pending && !refill(zip))) return 0;
    const uInt wanted = step_of(count);
    zip.z.next_out = static_cast<unsigned char *>(buffer);
    zip.z.avail_out = wanted;
    int code = inflate(&zip.z, Z_NO_FLUSH);
    if (code == Z_BUF_ERROR && zip.pending) {
        zip.pending = false;
        if (!refill(zip)) return 0;
        code = inflate(&zip.z, Z_NO_FLUSH);
    }
    zip.pending = code == Z_OK && !zip.z.avail_out;
    zip.ended = code == Z_STREAM_END;
    if (code != Z_OK && code != Z_STREAM_END) return zip.failed = true, 0;
    const bool is_dry = !zip.ended && !zip.pending && !zip.z.avail_in;
    if (is_dry && zStreamEOF(zip.below)) zip.failed = true; // nobody may read once more
    return wanted - zip.z.avail_out;
}

// Until the source's end; false when it, or what is behind `write`, failed. `taken` counts what
// the source itself takes: it may do so for a while before it gives anything.
template <class F>
bool each_block(Stream *source, void *block, size_t size, const uLong &taken, F write) {
    while (!zStreamEOF(source)) {
        const uLong before = taken;
        const uint64_t count = zStreamRead(source, block, size);
        if (zStreamError(source)) return false;
        if (!count && taken == before && !zStreamEOF(source)) return true; // it stands still
        if (!write(block, count)) return false;
    }
    return true;
}

bool rewound(Stream *stream) {
    return zStreamFlush(stream) && !zStreamError(stream) && zStreamRewind(stream);
}

} // namespace

// ---- Making

Stream *zZipStream(Stream *stream, const zwchar *encoding) {
    return over(stream, encoding, kCompress, false);
}
Stream *zUnzipStream(Stream *stream, const zwchar *encoding) {
    return over(stream, encoding, kDecompress, false);
}
Stream *zZipFile(const zwchar *path, const zwchar *encoding) {
    return over_file(path, u"wb", encoding, kCompress);
}
Stream *zUnzipFile(const zwchar *path, const zwchar *encoding) {
    return over_file(path, u"rb", encoding, kDecompress);
}
Stream *zZipTemp(const zwchar *encoding) {
    if (format_of(encoding) < 0) return fail_args();
    Stream *file = zTempStream();
    return file ? over(file, encoding, kCompress, true) : nullptr;
}

bool zZipStreamFinish(Stream *stream) {
    ZipStream *zip = record(stream);
    if (!zip) return false;
    if (zip->mode == kDecompress || !zip->below) return true;
    const bool written = deflate_step(*zip, Z_FINISH);
    const bool kept = !zip->below->rewind || zStreamRewind(zip->below);
    if (!written || !kept) zip->failed = true; // for good: a rewind may clear what is below
    return true;
}

// ---- Whole streams

Stream *zStreamCompress(Stream *stream, const zwchar *encoding) try {
    if (!stream || format_of(encoding) < 0) return fail_args();
    StreamPtr target(spill_stream());
    StreamPtr zip(target ? over(target.get(), encoding, kCompress, false) : nullptr);
    if (!zip) return nullptr;
    ZipStream &state = *record(zip.get());
    Effort effort(state);
    const auto pack = [&](const void *data, uint64_t count) {
        return zStreamWrite(zip.get(), data, count) == count && effort.weigh() &&
               !zStreamError(zip.get());
    };
    const uLong none = 0;
    const bool unpacks = stream->read == zZipStreamRead;
    const uLong &taken = unpacks ? record(stream)->z.total_in : none;
    if (!each_block(stream, state.block, kBlock, taken, pack)) return nullptr;
    zZipStreamFinish(zip.get());
    if (zStreamError(zip.get())) return nullptr;
    state.below = nullptr; // done: freeing it has nothing to finish
    zip.reset();
    return rewound(target.get()) ? target.release() : nullptr;
} catch (...) {
    return fail_thrown();
}

Stream *zev::uncompress_stream(Stream *stream, const zwchar *encoding, uint64_t most) try {
    if (!stream || format_of(encoding) < 0) return fail_args();
    StreamPtr target(spill_stream());
    StreamPtr zip(target ? over(stream, encoding, kDecompress, false) : nullptr);
    if (!zip) return nullptr;
    ZipStream &state = *record(zip.get());
    const auto unpack = [&](const void *data, uint64_t count) {
        return state.z.total_out <= most && zStreamWrite(target.get(), data, count) == count &&
               !zStreamError(target.get());
    };
    const bool whole = each_block(zip.get(), state.block, kInflatedBlock, state.z.total_in, unpack);
    if (state.z.total_out > most) return fail_too_large();
    if (zStreamError(target.get()) || zStreamError(stream)) return nullptr;
    if (!whole || !state.ended || state.failed) return fail_zlib(state.z);
    return rewound(target.get()) ? target.release() : nullptr;
} catch (...) {
    return fail_thrown();
}

Stream *zStreamUncompress(Stream *stream, const zwchar *encoding) {
    return uncompress_stream(stream, encoding, UINT64_MAX);
}

// ---- Slots

uint64_t zZipStreamRead(Stream *stream, void *buffer, uint64_t count) {
    ZipStream *zip = record(stream);
    if (!zip) return 0;
    if (!buffer) return fail_args(), 0;
    if (zip->mode == kCompress) return zStreamRead(zip->below, buffer, count);
    return inflate_some(*zip, buffer, count);
}

uint64_t zZipStreamWrite(Stream *stream, const void *buffer, uint64_t count) {
    ZipStream *zip = record(stream);
    if (!zip) return 0;
    if (!buffer && count) return fail_args(), 0;
    return zip->mode == kCompress ? deflate_all(*zip, buffer, count) : 0;
}

void zZipStreamFree(Stream *stream) {
    if (!stream) return;
    ZipStream *zip = record(stream);
    zZipStreamFinish(stream);
    if (zip->owned) zStreamFree(zip->below);
    rest(zip);
}

bool zZipStreamFlush(Stream *stream) {
    ZipStream *zip = record(stream);
    return zip && (zip->mode == kDecompress || zStreamFlush(zip->below));
}

bool zZipStreamEOF(Stream *stream) {
    ZipStream *zip = record(stream);
    if (!zip) return true;
    const bool more = zip->mode == kDecompress && (zip->z.avail_in || zip->pending);
    return !more && zStreamEOF(zip->below);
}

bool zZipStreamError(Stream *stream) {
    ZipStream *zip = record(stream);
    return !zip || zip->failed || zip->z.msg || zStreamError(zip->below);
}

int64_t zZipStreamTell(Stream *stream) {
    ZipStream *zip = record(stream);
    if (!zip) return -1;
    return zip->mode == kDecompress ? 0 : zStreamTell(zip->below);
}

bool zZipStreamSeek(Stream *stream, int64_t offset, int32_t whence) {
    ZipStream *zip = record(stream);
    return zip && zip->mode == kCompress && zStreamSeek(zip->below, offset, whence);
}

bool zZipStreamRewind(Stream *stream) {
    ZipStream *zip = record(stream);
    return zip && zip->mode == kCompress && zStreamRewind(zip->below);
}

uint64_t zZipStreamSize(Stream *stream) {
    ZipStream *zip = record(stream);
    return zip ? zStreamSize(zip->below) : 0;
}
