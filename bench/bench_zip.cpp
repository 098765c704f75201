// Compression streams beside bare zlib at the same level, from memory to a file without a name and
// back: random bytes, and rows of drawings.
#include "bench.hpp"

#include "common/guard.hpp"
#include "zev/zev.h"
#include "zev/zip.h"

#include <cstring>

#include <zlib.h>

using namespace zev;

namespace {

using StreamPtr = Owned<Stream, zStreamFree>;

void check(bool good) {
    if (good) return;
    fprintf(stderr, "%s\n", zStrtoutf8(zErrorDetail()));
    exit(1);
}

std::string noise(uint64_t size) {
    bench::Random random(1);
    std::string bytes(size, 0);
    for (size_t i = 0; i + 8 <= size; i += 8) {
        const uint64_t value = random.next();
        memcpy(bytes.data() + i, &value, 8);
    }
    return bytes;
}

// Lines as a drawing has them: kind, handle, layer, coordinates.
std::string rows(uint64_t size) {
    bench::Random random(2);
    std::string bytes;
    bytes.reserve(size + 200);
    for (uint64_t handle = 0x100; bytes.size() < size; ++handle) {
        char line[200];
        const auto number = [&] { return static_cast<double>(random.below(10'000'000)) / 1e4; };
        snprintf(line, sizeof line,
                 "  0\nLINE\n  5\n%llX\n  8\nLayer%d\n 10\n%.4f\n 20\n%.4f\n 30\n0.0\n 11\n%.4f\n"
                 " 21\n%.4f\n 31\n0.0\n",
                 static_cast<unsigned long long>(handle), static_cast<int>(random.below(20)),
                 number(), number(), number(), number());
        bytes += line;
    }
    return bytes;
}

// What a program that calls zlib itself would do, in blocks as large as the stream's.
constexpr size_t kBlock = 0x40000;
template <class F> void through(F step, z_stream &z, const std::string &from, FILE *to) {
    std::vector<unsigned char> out(kBlock);
    int code = Z_OK;
    for (size_t at = 0; code != Z_STREAM_END;) {
        const size_t size = std::min(kBlock, from.size() - at);
        z.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(from.data() + at));
        z.avail_in = static_cast<uInt>(size);
        at += size;
        do {
            z.next_out = out.data();
            z.avail_out = static_cast<uInt>(out.size());
            code = step(&z, at == from.size() ? Z_FINISH : Z_NO_FLUSH);
            fwrite(out.data(), 1, out.size() - z.avail_out, to);
        } while (!z.avail_out && code != Z_STREAM_END);
    }
    fflush(to);
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
    const double bare_zip = bench::median(
        [&] {
            z_stream z{};
            deflateInit2(&z, 6, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
            const Owned<FILE, fclose> file(tmpfile());
            through(deflate, z, bytes, file.get());
            deflateEnd(&z);
        },
        3);
    source = memory(small);
    StreamPtr back;
    const double unzip =
        bench::median([&] { back.reset(zStreamUncompress(source.get(), u"gzip")); },
                      [&] { zStreamRewind(source.get()); }, 3);
    check(back && zStreamSize(back.get()) == bytes.size());
    const double bare_unzip = bench::median(
        [&] {
            z_stream z{};
            inflateInit2(&z, 31);
            const Owned<FILE, fclose> file(tmpfile());
            through([](z_stream *state, int) { return inflate(state, Z_NO_FLUSH); }, z, small,
                    file.get());
            inflateEnd(&z);
        },
        3);
    bench::compare((std::string("zip-") + data).c_str(), "zlib", "ms", zip, bare_zip);
    bench::compare((std::string("unzip-") + data).c_str(), "zlib", "ms", unzip, bare_unzip);
}

} // namespace

int main() {
    check(zGlobalInit(nullptr, nullptr));
    const uint64_t size = bench::size("ZEV_BENCH_ZIP", 100) * 1'000'000;
    measure("random", noise(size));
    measure("rows", rows(size));
    zGlobalCleanup();
}
