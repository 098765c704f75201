// Object names as values and as text: what of them needs no object store.
#include "common/oid.hpp"

#include "common/failure.hpp"
#include "common/sha1.hpp"
#include "common/utf.hpp"
#include "zev/path.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <git2.h>

using namespace zev;

namespace {

constexpr Oid kZero{};
constexpr uint64_t kDigits = 2 * sizeof(Oid);

// Hexadecimal digits, their count and a terminator after them, a slash behind the second if asked.
void print(zwchar *buffer, const Oid &id, uint64_t count, bool slash) {
    static constexpr zwchar digits[] = u"0123456789abcdef";
    for (uint64_t i = 0; i < count; ++i) {
        if (slash && i == 2) *buffer++ = u'/';
        uint8_t byte = id.id[i / 2];
        *buffer++ = digits[i % 2 ? byte & 15 : byte >> 4];
    }
    *buffer = 0;
}

} // namespace

Oid *zOidNew() {
    auto *id = static_cast<Oid *>(calloc(1, sizeof(Oid)));
    return id ? id : fail_memory();
}

Oid *zOidDup(const Oid *id) {
    if (!id) return fail_args();
    Oid *copy = zOidNew();
    if (copy) *copy = *id;
    return copy;
}

void zOidFree(Oid *id) { free(id); }
const Oid *zOidIdentity() { return &kZero; }

bool zOidZero(Oid *id) {
    if (!id) return fail_args();
    *id = kZero;
    return true;
}

bool zOidIsZero(const Oid *id) { return !id || !memcmp(id, &kZero, sizeof kZero); }

int32_t zOidCompare(const Oid *a, const Oid *b) {
    if (!a || !b) return (a > b) - (a < b);
    int order = memcmp(a, b, sizeof(Oid));
    return (order > 0) - (order < 0);
}

bool zOidIsEqual(const Oid *a, const Oid *b) { return zOidCompare(a, b) == 0; }

bool zOidCopy(Oid *target, const Oid *source) {
    if (!target || !source) return fail_args();
    memmove(target, source, sizeof(Oid));
    return true;
}

bool zOidFromStr(Oid *id, const zwchar *text) try {
    if (!id || !text) return fail_args();
    git_oid parsed;
    int code = git_oid_fromstr(&parsed, to_utf8(text).c_str());
    if (code < 0) return fail_git(code);
    return zOidFromRaw(id, &parsed);
} catch (...) {
    return fail_thrown();
}

bool zOidFromRaw(Oid *id, const void *bytes) {
    if (!id || !bytes) return fail_args();
    memmove(id, bytes, sizeof(Oid));
    return true;
}

bool zOidFormat(zwchar *buffer, const Oid *id) { return zOidNFormat(buffer, kDigits, id); }

bool zOidNFormat(zwchar *buffer, uint64_t count, const Oid *id) {
    if (!buffer || !id) return fail_args();
    print(buffer, *id, std::min(count, kDigits), false);
    return true;
}

bool zOidPathFormat(zwchar *buffer, const Oid *id) {
    if (!buffer || !id) return fail_args();
    print(buffer, *id, kDigits, true);
    return true;
}

bool zOidPathAppend(zwchar *path, const Oid *id) {
    if (!path || !id) return fail_args();
    zwchar text[kDigits + 2];
    print(text, *id, kDigits, true);
    return zPathAppend(path, text);
}

bool zOidFromBuffer(Oid *id, const void *data, uint64_t size) {
    if (!id || (!data && size)) return fail_args();
    return sha1(data, size, id->id) || fail_memory();
}

namespace zev {

bool parse_id(Oid *id, const zwchar *text) {
    const auto is_digit = [](zwchar unit) {
        return (unit >= u'0' && unit <= u'9') || (unit >= u'a' && unit <= u'f') ||
               (unit >= u'A' && unit <= u'F');
    };
    if (!text || zStrlenW(text) != kDigits || !std::all_of(text, text + kDigits, is_digit))
        return false;
    return zOidFromStr(id, text);
}

std::u16string id_text(const Oid &id) {
    zwchar text[kDigits + 1] = {};
    zOidFormat(text, &id);
    return text;
}

} // namespace zev
