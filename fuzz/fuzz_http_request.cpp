// A request in pieces, as a server reads it. The two that look for its end agree.
//
// Input: a byte that says how long the pieces are, then what is sent.
#include "http_pieces.hpp"

#include "common/utf.hpp"
#include "zev/http_request.h"

namespace {

using namespace fuzz;

Outcome read(std::string_view bytes, size_t piece) {
    const zev::Owned<HttpRequest, zHttpRequestFree> request(zHttpRequestNew(nullptr));
    zev::MessageParser parser(true, kLimits);
    parser.begin(request.get(), zHttpRequestParser());
    Outcome out = feed(parser, bytes, piece);
    require(out.failed || out.complete == parser.framing().is_complete());
    if (!out.complete) return out;
    out.told =
        std::to_string(request->method) + " " + zev::to_utf8(zHttpRequestUrl(request.get())) + "\n";
    zev::append_fields(out.told, request->header, [](const zwchar *) { return false; });
    out.told += body_of(request->body);
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (!size) return 0;
    const std::string_view bytes(reinterpret_cast<const char *>(data) + 1, size - 1);
    require_same(read(bytes, bytes.size()), read(bytes, size_t{data[0]} + 1));
    return 0;
}
