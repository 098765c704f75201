#include "common/sha1.hpp"

#include <openssl/evp.h>

namespace zev {

bool sha1(const void *data, size_t size, uint8_t digest[20]) {
    return EVP_Digest(data, size, digest, nullptr, EVP_sha1(), nullptr) == 1;
}

} // namespace zev
