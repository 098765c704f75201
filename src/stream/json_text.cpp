// JSON text from streams and files and into them: UTF-8, read in blocks, written whole. If the
// first byte is EF, three bytes are dropped as a byte order mark, whatever they are.
#include "common/json.hpp"

#include "common/failure.hpp"
#include "stream/stream.hpp"
#include "zev/stream.h"

#include <cstring>
#include <vector>

using namespace zev;

namespace {

constexpr uint64_t kBlock = 65536;

// The stream's text in blocks, each behind what the one before left of its last token.
Json *read_stream(Stream *stream, JsonBounds &bounds) {
    JsonBlocks reader;
    reader.set_most(bounds.nodes);
    reader.set_plain(bounds.plain);
    uint64_t total = 0;
    std::vector<char> block(kBlock);
    uint64_t kept = 0, wanted = 3; // first what may be a byte order mark
    for (bool first = true;; first = false) {
        if (block.size() - kept < wanted) block.resize(2 * block.size());
        char *at = block.data() + kept;
        uint64_t got = read_fully(stream, at, wanted);
        if (zStreamError(stream)) return nullptr;
        if (!got) break;
        bounds.exceeded = (total += got) > bounds.bytes;
        if (bounds.exceeded) return nullptr;
        if (first && static_cast<uint8_t>(*at) == 0xEF) got = 0;
        reader.resume(block.data());
        if (!reader.run(at, at + got)) {
            bounds.exceeded = reader.is_bounded();
            return nullptr;
        }
        const char *token = reader.token();
        kept = token ? static_cast<uint64_t>(at + got - token) : 0;
        if (kept) memmove(block.data(), token, kept);
        wanted = kBlock / 2;
    }
    return reader.finish();
}

bool send(const Json *node, Stream *stream) {
    uint64_t length = 0;
    const Narrow text = json_utf8(node, &length);
    return text && zStreamWrite(stream, text.get(), length) == length;
}

} // namespace

Json *zev::json_read_bounded(Stream *stream, JsonBounds &bounds) try {
    if (!stream) return fail_args();
    Json *tree = read_stream(stream, bounds);
    return tree ? tree : fail_raised();
} catch (...) {
    return fail_thrown();
}

Json *zJsonReadStream(Stream *stream) {
    JsonBounds none{UINT64_MAX, UINT64_MAX};
    return json_read_bounded(stream, none);
}

Json *zJsonReadFile(const zwchar *path) {
    Owned<Stream, zStreamFree> stream(zFileStream(path, u"rb"));
    return stream ? zJsonReadStream(stream.get()) : nullptr;
}

bool zJsonWriteStream(const Json *node, Stream *stream) try {
    if (!node || !stream) return fail_args();
    return send(node, stream) || fail_raised();
} catch (...) {
    return fail_thrown();
}

// The file is opened only when the text is there: a tree that can't be written leaves it alone.
bool zJsonWriteFile(const Json *node, const zwchar *path) try {
    if (!node || !path) return fail_args();
    uint64_t length = 0;
    const Narrow text = json_utf8(node, &length);
    if (!text) return fail_raised();
    Owned<Stream, zStreamFree> stream(zFileStream(path, u"w+b"));
    if (!stream || zStreamWrite(stream.get(), text.get(), length) != length) return fail_raised();
    return zStreamFlush(stream.get()) || fail_raised();
} catch (...) {
    return fail_thrown();
}
