// Entries of the file of remembered logins, in memory.
#pragma once

#include "common/json.hpp"

#include <string>

namespace zev {

// The 40 digits under which two texts are remembered; empty without one of them. May throw.
std::u16string cookie_key(const zwchar *first, const zwchar *second);

// Of a file's tree, which may be null: the texts of an entry, lent. False for one that isn't whole.
bool cookie_find(Json *tree, const std::u16string &key, const zwchar **user, const zwchar **code);
// Puts an entry in place of an old one.
bool cookie_put(Json *tree, const std::u16string &key, const zwchar *user, const zwchar *code);

} // namespace zev
