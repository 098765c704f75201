// Compression streams beside bare zlib at the same level, from memory to a file without a name and
// back: random bytes, and rows of drawings.
#include "bare_zip.hpp"

#include "common/guard.hpp"
#include "zev/zev.h"
#include "zev/zip.h"

using namespace zev;

namespace {

using StreamPtr = Owned<Stream, zStreamFree>;

void check(bool good) {
    if (good) return;
    fprintf(stderr, "%s\n", zStrtoutf8(zErrorDetail()));
    exit(1);
}

StreamPtr memory(const std::string &bytes) {
    StreamPtr stream(zMemStream(0, bytes.size() + 1));
    check(zStreamWrite(stream.get(), bytes.data(), bytes.size()) == bytes.size());
    zStreamRewind(stream.get());
    return stream;
}

void measure(const char *data, const std::string &bytes) {
    StreamPtr source = memory(bytes), packed;
    const double zip = bench::median([&] { packed.reset(zStreamCompress(source.get(), u"gzip")); },
                                     [&] { zStreamRewind(source.get()); }, 3);
    check(packed != nullptr);
    std::string small(zStreamSize(packed.get()), 0);
    check(zStreamRead(packed.get(), small.data(), small.size()) == small.size());
    const double bare_zip = bench::median([&] { bench::zip(bytes); }, 3);
    source = memory(small);
    StreamPtr back;
    const double unzip =
        bench::median([&] { back.reset(zStreamUncompress(source.get(), u"gzip")); },
                      [&] { zStreamRewind(source.get()); }, 3);
    check(back && zStreamSize(back.get()) == bytes.size());
    const double bare_unzip = bench::median([&] { bench::unzip(small); }, 3);
    bench::compare((std::string("zip-") + data).c_str(), "zlib", "ms", zip, bare_zip);
    bench::compare((std::string("unzip-") + data).c_str(), "zlib", "ms", unzip, bare_unzip);
}

} // namespace

int main() {
    check(zGlobalInit(nullptr, nullptr));
    const uint64_t size = bench::size("ZEV_BENCH_ZIP", 100) * 1'000'000;
    measure("random", bench::noise(size));
    measure("rows", bench::rows(size));
    zGlobalCleanup();
}
