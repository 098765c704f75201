// What stands for a password outside the head of its owner.
#include "rms/password.hpp"

#include "zev/oid.h"
#include "zev/str.h"

#include <bit>
#include <new>

namespace zev {

static_assert(std::endian::native == std::endian::little, "units are hashed as they lie in memory");

std::u16string wire_form(const zwchar *password) {
    Oid id;
    zwchar digits[41] = {};
    if (!zOidFromBuffer(&id, password, zStrlenW(password) * sizeof(zwchar)) ||
        !zOidFormat(digits, &id))
        throw std::bad_alloc(); // the password itself is not to get anywhere
    return digits;
}

} // namespace zev
