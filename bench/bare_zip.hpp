// Bytes that don't shrink, bytes that do, and what a program that calls zlib itself does with them,
// into a file without a name.
#pragma once

#include "bench.hpp"

#include <cstring>

#include <zlib.h>

namespace bench {

inline std::string noise(uint64_t size) {
    Random random(1);
    std::string bytes(size, 0);
    for (size_t i = 0; i + 8 <= size; i += 8) {
        const uint64_t value = random.next();
        memcpy(bytes.data() + i, &value, 8);
    }
    return bytes;
}

// Lines as a drawing has them: kind, handle, layer, coordinates.
inline std::string rows(uint64_t size) {
    Random random(2);
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
inline constexpr size_t kBlock = 0x40000;
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

inline void zip(const std::string &bytes) {
    z_stream z{};
    deflateInit2(&z, 6, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
    const File file(tmpfile(), fclose);
    through(deflate, z, bytes, file.get());
    deflateEnd(&z);
}

inline void unzip(const std::string &bytes) {
    z_stream z{};
    inflateInit2(&z, 31);
    const File file(tmpfile(), fclose);
    through([](z_stream *state, int) { return inflate(state, Z_NO_FLUSH); }, z, bytes, file.get());
    inflateEnd(&z);
}

} // namespace bench
