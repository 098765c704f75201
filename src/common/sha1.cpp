// Over OpenSSL's, which takes the instructions of the processor.
#include "common/sha1.hpp"

#include <openssl/evp.h>

namespace zev {

bool sha1(const void *data, size_t size, uint8_t digest[20]) {
    return EVP_Digest(data, size, digest, nullptr, EVP_sha1(), nullptr) == 1;
}

void Sha1::Free::operator()(evp_md_ctx_st *context) const { EVP_MD_CTX_free(context); }

Sha1::Sha1() : context_(EVP_MD_CTX_new()) {}

bool Sha1::begin() {
    if (!begun_) begun_ = context_ && EVP_DigestInit_ex(context_.get(), EVP_sha1(), nullptr) == 1;
    return begun_;
}

bool Sha1::add(const void *data, size_t size) {
    return begin() && EVP_DigestUpdate(context_.get(), data, size) == 1;
}

bool Sha1::end(uint8_t digest[20]) {
    if (!begin()) return false;
    begun_ = false;
    return EVP_DigestFinal_ex(context_.get(), digest, nullptr) == 1;
}

} // namespace zev
