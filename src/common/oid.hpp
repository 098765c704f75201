// Object names as digits, and in sets and maps.
#pragma once

#include "zev/oid.h"

#include <cstring>
#include <string>
#include <unordered_set>

namespace zev {

// From 40 hexadecimal digits, of either case; false, with nothing raised, for any other text and
// for null.
bool parse_id(Oid *id, const zwchar *text);
std::u16string id_text(const Oid &id); // 40 digits

struct IdHash {
    size_t operator()(const Oid &id) const {
        size_t hash;
        memcpy(&hash, id.id, sizeof hash);
        return hash;
    }
};
struct IdEqual {
    bool operator()(const Oid &a, const Oid &b) const { return !memcmp(a.id, b.id, sizeof a.id); }
};
struct IdLess {
    bool operator()(const Oid &a, const Oid &b) const {
        return memcmp(a.id, b.id, sizeof a.id) < 0;
    }
};
using Ids = std::unordered_set<Oid, IdHash, IdEqual>;

} // namespace zev
