// SHA-1 of plain bytes, without an object header.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

struct evp_md_ctx_st;

namespace zev {

bool sha1(const void *data, size_t size, uint8_t digest[20]);

// Of bytes that come piece by piece; after the end it begins anew.
class Sha1 {
  public:
    Sha1();
    bool add(const void *data, size_t size);
    bool end(uint8_t digest[20]);

  private:
    struct Free {
        void operator()(evp_md_ctx_st *context) const;
    };
    std::unique_ptr<evp_md_ctx_st, Free> context_;
    bool begun_ = false;
    bool begin();
};

} // namespace zev
