// A response in pieces, as a client reads it, with interim ones before it, up to the end of the
// connection. Wherever the bytes are cut, the same message comes out of them.
//
// Input: a byte that says how long the pieces are, its top bit that a HEAD was sent; then what the
// peer sends.
#include "common/guard.hpp"
#include "common/utf.hpp"
#include "network/http/message.hpp"
#include "network/http/parser.hpp"
#include "zev/http_response.h"

#include <cstdlib>
#include <string>

namespace {

using namespace zev;

void require(bool holds) {
    if (!holds) abort();
}

constexpr HttpLimits kLimits = {4096, 32, 512, 65536};

struct Outcome {
    bool failed = false, complete = false;
    size_t taken = 0;
    std::string told;
};

std::string read_body(HttpResponse *response) {
    Stream *body = response->body;
    std::string bytes(body ? zStreamSize(body) : 0, '\0');
    require(bytes.size() <= kLimits.body);
    if (body) require(zStreamRead(body, bytes.data(), bytes.size()) == bytes.size());
    return bytes;
}

Outcome read(std::string_view bytes, size_t piece, bool bare) {
    const Owned<HttpResponse, zHttpResponseFree> response(zHttpResponseNew());
    MessageParser parser(false, kLimits);
    parser.begin(response.get(), zHttpResponseParser(), bare);
    Outcome out;
    while (!out.failed && out.taken < bytes.size() && !parser.is_complete()) {
        const std::string part(bytes.substr(out.taken, piece)); // of its own, so that ASan sees
        size_t taken = 0;
        out.failed = !parser.feed(part, &taken);
        require(taken <= part.size());
        out.taken += taken;
    }
    if (!out.failed && !parser.is_complete()) parser.end();
    out.complete = !out.failed && parser.is_complete();
    if (!out.complete) return out;
    out.told =
        std::to_string(response->code) + to_utf8(zStrsafeW(zHttpResponseReason(response.get())));
    append_fields(out.told, response->header, [](const zwchar *) { return false; });
    out.told += read_body(response.get());
    require(!bare || !response->body);
    require(zHttpResponseStrerr(response.get()));
    if (response->body && zHttpResponseUnzipBody(response.get())) require(response->body);
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (!size) return 0;
    const std::string_view bytes(reinterpret_cast<const char *>(data) + 1, size - 1);
    const bool bare = data[0] & 0x80;
    const Outcome whole = read(bytes, bytes.size(), bare),
                  pieces = read(bytes, size_t{data[0] & 0x7Fu} + 1, bare);
    require(whole.failed == pieces.failed && whole.complete == pieces.complete);
    require(whole.told == pieces.told && (!whole.complete || whole.taken == pieces.taken));
    return 0;
}
