// Passwords: their hashes, and the ones that were right a moment ago.
#pragma once

#include "store.hpp"

#include <cstdint>
#include <string>

namespace zevauth {

// The hash of a password in wire form under a fresh salt; empty, logged, if it can't be had.
std::string hash_password(const std::string &password);

// Whether a password is the one that was hashed, in the time of one hash; for a user who was let
// in less than five minutes ago, and has the same hash still, in that of a keyed digest. Without a
// hash the time is the same and the answer no.
bool is_password(int32_t uid, const std::string *hash, const std::string &password);
// This user's next password is hashed again.
void forget_password(int32_t uid);

} // namespace zevauth
