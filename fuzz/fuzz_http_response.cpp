// A response in pieces, as a client reads it, with interim ones before it, up to the end of the
// connection.
//
// Input: a byte that says how long the pieces are, its top bit that a HEAD was sent; then what the
// peer sends.
#include "http_pieces.hpp"

#include "common/utf.hpp"
#include "zev/http_response.h"

namespace {

using namespace fuzz;

Outcome read(std::string_view bytes, size_t piece, bool bare) {
    const zev::Owned<HttpResponse, zHttpResponseFree> response(zHttpResponseNew());
    zev::MessageParser parser(false, kLimits);
    parser.begin(response.get(), zHttpResponseParser(), bare);
    Outcome out = feed(parser, bytes, piece);
    if (!out.failed && !out.complete) parser.end();
    out.complete = !out.failed && parser.is_complete();
    if (!out.complete) return out;
    out.told = std::to_string(response->code) +
               zev::to_utf8(zStrsafeW(zHttpResponseReason(response.get())));
    zev::append_fields(out.told, response->header, [](const zwchar *) { return false; });
    out.told += body_of(response->body);
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
    require_same(read(bytes, bytes.size(), bare), read(bytes, size_t{data[0] & 0x7Fu} + 1, bare));
    return 0;
}
