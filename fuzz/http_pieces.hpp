// What the targets of HTTP share: a message that comes in pieces. Wherever the bytes are cut, the
// same comes out of them, and it ends at the same byte.
#pragma once

#include "common/guard.hpp"
#include "network/http/message.hpp"
#include "network/http/parser.hpp"

#include <cstdlib>
#include <string>
#include <string_view>

namespace fuzz {

inline void require(bool holds) {
    if (!holds) abort();
}

constexpr zev::HttpLimits kLimits = {4096, 32, 512, 65536};

struct Outcome {
    bool failed = false, complete = false;
    size_t taken = 0;
    std::string told; // what the message says
};

inline std::string body_of(Stream *body) {
    std::string bytes(body ? zStreamSize(body) : 0, '\0');
    require(bytes.size() <= kLimits.body);
    if (body) require(zStreamRead(body, bytes.data(), bytes.size()) == bytes.size());
    return bytes;
}

// Up to the message's end. Each piece is memory of its own, so that ASan sees what is read behind.
inline Outcome feed(zev::MessageParser &parser, std::string_view bytes, size_t piece) {
    Outcome out;
    while (!out.failed && out.taken < bytes.size() && !parser.is_complete()) {
        const std::string part(bytes.substr(out.taken, piece));
        size_t taken = 0;
        out.failed = !parser.feed(part, &taken);
        require(taken <= part.size());
        require(out.failed || parser.is_complete() || taken == part.size());
        out.taken += taken;
    }
    out.complete = !out.failed && parser.is_complete();
    return out;
}

inline void require_same(const Outcome &whole, const Outcome &pieces) {
    require(whole.failed == pieces.failed && whole.complete == pieces.complete);
    require(whole.told == pieces.told && (!whole.complete || whole.taken == pieces.taken));
}

} // namespace fuzz
