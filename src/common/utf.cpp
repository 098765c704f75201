// Conversion between UTF-8 and UTF-16 in one pass, with a fast road for ASCII. It never fails: what
// is malformed becomes U+FFFD, and a null target measures what the same call then writes.
#include "common/utf.hpp"

#include "common/failure.hpp"
#include "common/guard.hpp"

#include "zev/str.h"

#include <cstring>
#include <string>

namespace zev {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool is_high(zwchar unit) { return (unit & 0xFC00) == 0xD800; }
bool is_low(zwchar unit) { return (unit & 0xFC00) == 0xDC00; }

struct Character {
    char32_t code;
    uint32_t length; // bytes or units that it took
};

// Nearly all text is ASCII, so eight characters go at a time while they are: from a block of their
// own, since a store through a char pointer could otherwise change what is yet to be read.
template <class In, class Out> uint64_t copy_ascii(const In *text, uint64_t count, Out *out) {
    constexpr uint64_t kBlock = 8;
    uint64_t i = 0;
    for (; i + kBlock <= count; i += kBlock) {
        In block[kBlock];
        memcpy(block, text + i, sizeof block);
        std::make_unsigned_t<In> bits = 0;
        for (In unit : block) bits |= static_cast<std::make_unsigned_t<In>>(unit);
        if (bits >= 0x80) break;
        if (!out) continue;
        Out copy[kBlock];
        for (uint64_t k = 0; k < kBlock; ++k) copy[k] = static_cast<Out>(block[k]);
        memcpy(out + i, copy, sizeof copy);
    }
    for (; i < count && static_cast<std::make_unsigned_t<In>>(text[i]) < 0x80; ++i)
        if (out) out[i] = static_cast<Out>(text[i]);
    return i;
}

Character next(const zwchar *text, uint64_t left) {
    if (!is_high(*text) && !is_low(*text)) return {*text, 1};
    if (is_low(*text) || left < 2 || !is_low(text[1])) return {kReplacement, 1};
    return {0x10000 + ((text[0] & 0x3FFu) << 10) + (text[1] & 0x3FFu), 2};
}

// One character of well-formed UTF-8; of a malformed one U+FFFD and as many bytes as could still
// have begun a character, at least one.
Character next(const char *text, uint64_t left) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(text);
    const uint8_t lead = *bytes;
    if (lead < 0x80) return {lead, 1};
    if (lead < 0xC2 || lead > 0xF4) return {kReplacement, 1};
    const uint32_t more = lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    // The second byte's range shuts out overlong forms, surrogates and what is above U+10FFFF.
    uint8_t low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    uint8_t high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    char32_t code = lead & (0x3Fu >> more);
    for (uint32_t i = 1; i <= more; ++i, low = 0x80, high = 0xBF) {
        if (i >= left || bytes[i] < low || bytes[i] > high) return {kReplacement, i};
        code = code << 6 | (bytes[i] & 0x3Fu);
    }
    return {code, more + 1};
}

// Both put one character and give the length that it has; a null `out` only measures.
uint64_t put(char32_t code, char *out) {
    const uint32_t more = code < 0x80 ? 0 : code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    if (!out) return more + 1;
    constexpr uint8_t kLead[] = {0, 0xC0, 0xE0, 0xF0};
    for (uint32_t i = more; i > 0; --i, code >>= 6)
        out[i] = static_cast<char>(0x80 | (code & 0x3F));
    out[0] = static_cast<char>(kLead[more] | code);
    return more + 1;
}

uint64_t put(char32_t code, zwchar *out) {
    const bool pair = code >= 0x10000;
    if (!out) return pair ? 2 : 1;
    if (pair) {
        out[1] = static_cast<zwchar>(0xDC00 | (code & 0x3FF));
        code = 0xD800 + ((code - 0x10000) >> 10);
    }
    out[0] = static_cast<zwchar>(code);
    return pair ? 2 : 1;
}

template <class In, class Out> uint64_t convert(const In *text, uint64_t count, Out *out) {
    uint64_t length = 0;
    for (uint64_t i = 0; i < count;) {
        const uint64_t run = copy_ascii(text + i, count - i, out ? out + length : nullptr);
        i += run;
        length += run;
        // Text beyond ASCII stays there for a while.
        while (i < count && static_cast<std::make_unsigned_t<In>>(text[i]) >= 0x80) {
            const Character character = next(text + i, count - i);
            length += put(character.code, out ? out + length : nullptr);
            i += character.length;
        }
    }
    return length;
}

template <class Out, class In> Out *convert_dup(const In *text, uint64_t count) {
    const uint64_t length = convert(text, count, static_cast<Out *>(nullptr));
    auto *copy = static_cast<Out *>(malloc((length + 1) * sizeof(Out)));
    if (!copy) return nullptr;
    convert(text, count, copy);
    copy[length] = 0;
    return copy;
}

// Hands a temporary to the thread's ring, or back to the heap where that fails.
template <class C> const C *parked(C *text) {
    if (!text) return fail_memory();
    Malloced<C> owned(text);
    return zGlobalRecyclePut(text, nullptr) ? owned.release() : nullptr;
}

} // namespace

uint64_t utf8_from_wide(const zwchar *text, uint64_t count, char *out) {
    return convert(text, count, out);
}

uint64_t wide_from_utf8(const char *text, uint64_t bytes, zwchar *out) {
    return convert(text, bytes, out);
}

uint64_t whole(const zwchar *text, uint64_t count) {
    return count && is_high(text[count - 1]) ? count - 1 : count;
}

uint64_t whole(const char *text, uint64_t bytes) {
    for (uint64_t back = 1; back <= 3 && back <= bytes; ++back) {
        const auto byte = static_cast<uint8_t>(text[bytes - back]);
        if (byte < 0x80) return bytes;
        if (byte < 0xC0) continue;
        const uint64_t needed = byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
        return back < needed ? bytes - back : bytes;
    }
    return bytes;
}

const zwchar *park(const char *text) {
    return text ? parked(wide_dup(text, strlen(text))) : nullptr;
}

const zwchar *park(const zwchar *text) { return text ? parked(zStrdupW(text)) : nullptr; }

char *utf8_dup(const zwchar *text, uint64_t count) { return convert_dup<char>(text, count); }

zwchar *wide_dup(const char *text, uint64_t bytes) { return convert_dup<zwchar>(text, bytes); }

std::string to_utf8(std::u16string_view text) {
    std::string result(utf8_from_wide(text.data(), text.size(), nullptr), 0);
    utf8_from_wide(text.data(), text.size(), result.data());
    return result;
}

std::u16string to_wide(std::string_view text) {
    std::u16string result(wide_from_utf8(text.data(), text.size(), nullptr), 0);
    wide_from_utf8(text.data(), text.size(), result.data());
    return result;
}

Utf8Path::Utf8Path(const zwchar *path) {
    uint64_t count = path ? zStrnlenW(path, Z_PATH_MAX) : 0;
    if (count == Z_PATH_MAX) count = whole(path, count - 1);
    text_[utf8_from_wide(path, count, text_)] = 0;
}

} // namespace zev

const char *zStrtoutf8(const zwchar *text) {
    return text ? zev::parked(zev::utf8_dup(text, zStrlenW(text))) : nullptr;
}

const zwchar *zStrfromutf8(const char *text) { return zev::park(text); }
