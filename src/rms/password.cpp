// What stands for a password outside the head of its owner.
#include "rms/password.hpp"

#include "zev/oid.h"

#include <bit>

namespace zev {

static_assert(std::endian::native == std::endian::little, "units are hashed as they lie in memory");

std::u16string wire_form(const zwchar *password) {
    std::u16string text = password;
    Oid id;
    zwchar digits[41] = {};
    if (zOidFromBuffer(&id, text.data(), text.size() * sizeof(zwchar)) && zOidFormat(digits, &id))
        text = digits;
    return text;
}

} // namespace zev
