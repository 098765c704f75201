// The catalogues that there are, and the check of one. Its texts become printf formats, and the key
// says by its tail which arguments they are given: `_s` a wide string, `_d` a 32-bit integer, `_4d`
// four of them.
#pragma once

#include "zev/base.h"

#include <string>
#include <string_view>
#include <vector>

namespace zev {

// Whether the conversions of a text are those of the key's last name, one by one.
bool catalogue_fits(std::u16string_view name, std::u16string_view text);

// Drops the texts that don't fit their key, so that they count as missing.
void catalogue_clean(Json *catalogue);

// Names of the languages that have a catalogue, in order.
std::vector<std::u16string> installed_languages();

// The one of them that is wanted, whatever the case, else the first of its family: "de-AT" finds
// "de-DE". Null where there is none.
const std::u16string *find_language(const std::vector<std::u16string> &names,
                                    const std::u16string &wanted);

// Where lang.conf names no language, that of the environment becomes the product's, if it has a
// catalogue. To be called before anything asks for the product's.
void follow_user_language();

} // namespace zev
