// An object on its way: what is taken for one has its type, its size and nothing behind; and git's
// library reads every tree, commit and tag that has the form of one.
#include "network/rest/repos/object_stream.hpp"

#include "common/guard.hpp"
#include "zev/error.h"

#include <cstdlib>
#include <string>

using namespace zev;
using namespace zev::rest;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    const Owned<Stream, zStreamFree> stream{zMemStream(0, size)};
    zStreamWrite(stream.get(), data, size);
    zStreamRewind(stream.get());
    ObjectHead head{};
    if (read_object_head(stream.get(), &head) != HeadFate::sound) return 0;
    const uint64_t at = static_cast<uint64_t>(zStreamTell(stream.get()));
    if (!git_object_typeisloose(head.type) || at + head.size != size) abort();
    std::string bytes;
    if (!read_formed(stream.get(), head, bytes)) return 0;
    if (bytes != std::string(reinterpret_cast<const char *>(data) + at, head.size)) abort();
    int valid = 0;
    git_object_rawcontent_is_valid(&valid, bytes.data(), bytes.size(), head.type);
    if (!valid) abort();
    return 0;
}
