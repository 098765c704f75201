// A request in pieces, as a server reads it. Wherever the bytes are cut, the same message comes out
// of them, it ends at the same byte, and the two that look for its end agree.
//
// Input: a byte that says how long the pieces are, then what is sent.
#include "common/guard.hpp"
#include "common/utf.hpp"
#include "network/http/message.hpp"
#include "network/http/parser.hpp"
#include "zev/http_request.h"

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

std::string body_of(Stream *body) {
    std::string bytes(body ? zStreamSize(body) : 0, '\0');
    if (body) require(zStreamRead(body, bytes.data(), bytes.size()) == bytes.size());
    return bytes;
}

Outcome read(std::string_view bytes, size_t piece) {
    const Owned<HttpRequest, zHttpRequestFree> request(zHttpRequestNew(nullptr));
    MessageParser parser(true, kLimits);
    parser.begin(request.get(), zHttpRequestParser());
    Outcome out;
    while (!out.failed && out.taken < bytes.size() && !parser.is_complete()) {
        const std::string part(bytes.substr(out.taken, piece)); // of its own, so that ASan sees
        size_t taken = 0;
        out.failed = !parser.feed(part, &taken);
        require(taken <= part.size());
        require(out.failed || parser.is_complete() || taken == part.size());
        out.taken += taken;
    }
    out.complete = !out.failed && parser.is_complete();
    require(out.failed || parser.is_complete() == parser.framing().is_complete());
    if (!out.complete) return out;
    out.told =
        std::to_string(request->method) + " " + to_utf8(zHttpRequestUrl(request.get())) + "\n";
    append_fields(out.told, request->header, [](const zwchar *) { return false; });
    out.told += body_of(request->body);
    require(body_size(request->body) <= kLimits.body);
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (!size) return 0;
    const std::string_view bytes(reinterpret_cast<const char *>(data) + 1, size - 1);
    const Outcome whole = read(bytes, bytes.size()), pieces = read(bytes, size_t{data[0]} + 1);
    require(whole.failed == pieces.failed);
    require(whole.complete == pieces.complete && whole.told == pieces.told);
    require(!whole.complete || whole.taken == pieces.taken);
    return 0;
}
