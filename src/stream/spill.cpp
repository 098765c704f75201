// A stream that lies in memory while it is small and goes on in a file without a name: most bodies
// have some hundred bytes, and a file costs ten times what these do.
#include "stream/stream.hpp"

#include "common/failure.hpp"
#include "common/guard.hpp"
#include "common/limits.hpp"

#include <new>

namespace zev {

namespace {

struct SpillStream : Stream {
    explicit SpillStream(Stream *memory);
    ~SpillStream() { zStreamFree(below); }
    SpillStream(const SpillStream &) = delete;
    SpillStream &operator=(const SpillStream &) = delete;

    bool spill();

    Stream *below; // owned: memory first, then the file
    bool spilled = false;
    bool failed = false; // the file could not be made, or not be written
};

SpillStream *self(Stream *stream) { return static_cast<SpillStream *>(stream); }

// Moves what there is into a file, with the position kept.
bool SpillStream::spill() {
    Owned<Stream, zStreamFree> file(temp_stream());
    const Buffer &held = memory_stream(below)->buffer;
    const int64_t at = zStreamTell(below);
    if (!file || zStreamWrite(file.get(), held.data, held.size) != held.size ||
        !zStreamSeek(file.get(), at, 0))
        return failed = true, false;
    zStreamFree(std::exchange(below, file.release()));
    return spilled = true;
}

uint64_t write_to(Stream *stream, const void *bytes, uint64_t count) {
    SpillStream *spill = self(stream);
    if (spill->failed) return 0;
    const uint64_t end = static_cast<uint64_t>(zStreamTell(spill->below)) + count;
    if (!spill->spilled && end > limits::spill && !spill->spill()) return 0;
    return zStreamWrite(spill->below, bytes, count);
}

constexpr Stream kHead = {
    .read = [](Stream *s, void *to,
               uint64_t count) { return zStreamRead(self(s)->below, to, count); },
    .write = write_to,
    .free = [](Stream *s) { delete self(s); },
    .flush = [](Stream *s) { return zStreamFlush(self(s)->below); },
    .eof = [](Stream *s) { return zStreamEOF(self(s)->below); },
    .error = [](Stream *s) { return self(s)->failed || zStreamError(self(s)->below); },
    .tell = [](Stream *s) { return zStreamTell(self(s)->below); },
    .seek = [](Stream *s, int64_t to,
               int32_t from) { return zStreamSeek(self(s)->below, to, from); },
    .rewind = [](Stream *s) { return zStreamRewind(self(s)->below); },
    .size = [](Stream *s) { return zStreamSize(self(s)->below); },
};

SpillStream::SpillStream(Stream *memory) : Stream(kHead), below(memory) {}

} // namespace

Stream *spill_stream() {
    Owned<Stream, zStreamFree> memory(zMemStream(0, 0));
    if (!memory) return nullptr;
    auto *stream = new (std::nothrow) SpillStream(memory.get());
    if (!stream) return fail_memory();
    static_cast<void>(memory.release());
    return stream;
}

} // namespace zev
