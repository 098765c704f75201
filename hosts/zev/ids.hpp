// Ids: object names in sets and maps.
#pragma once

#include "host.hpp"

#include <cstring>
#include <unordered_map>
#include <unordered_set>

namespace host {

struct OidHash {
    size_t operator()(const Oid &id) const {
        size_t hash;
        memcpy(&hash, id.id, sizeof hash);
        return hash;
    }
};
struct OidEqual {
    bool operator()(const Oid &a, const Oid &b) const { return !memcmp(a.id, b.id, sizeof a.id); }
};
struct OidLess {
    bool operator()(const Oid &a, const Oid &b) const {
        return memcmp(a.id, b.id, sizeof a.id) < 0;
    }
};
using Ids = std::unordered_set<Oid, OidHash, OidEqual>;
template <class Value> using IdMap = std::unordered_map<Oid, Value, OidHash, OidEqual>;

} // namespace host
