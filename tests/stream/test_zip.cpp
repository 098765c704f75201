// Compressed streams: what zlib and gzip make of them, and what is refused.
#include "support.hpp"

#include "stream/stream.hpp"

#include <zev/zip.h>

#include <zlib.h>

using namespace test;

namespace {

struct StreamPtr : Guard<Stream> {
    explicit StreamPtr(Stream *stream) : Guard<Stream>(stream, zStreamFree) {}
};

StreamPtr memory(const std::string &bytes) {
    StreamPtr stream(zMemStream(0, bytes.size() + 1));
    zStreamWrite(stream.get(), bytes.data(), bytes.size());
    zStreamRewind(stream.get());
    return stream;
}

std::string drain(Stream *stream, size_t step = 50000) {
    std::string bytes, block(step, 0);
    while (const uint64_t got = zStreamRead(stream, block.data(), block.size()))
        bytes.append(block.data(), got);
    return bytes;
}

// Half of it noise, so that the compressed form passes the buffer's size too.
std::string sample(size_t size) {
    std::string bytes(size, 'x');
    uint32_t state = 1;
    for (size_t i = 0; i < size; i += 2)
        bytes[i] = static_cast<char>((state = state * 69069 + 1) >> 24);
    return bytes;
}

std::string compressed(const std::string &bytes, const zwchar *encoding) {
    StreamPtr source = memory(bytes), target(zStreamCompress(source.get(), encoding));
    return target ? drain(target.get()) : "(null)";
}

StreamPtr uncompressed(const std::string &bytes, const zwchar *encoding) {
    StreamPtr source = memory(bytes);
    return StreamPtr(zStreamUncompress(source.get(), encoding));
}

// What zlib itself makes of it, as far as it goes.
std::string bare_inflate(const std::string &bytes, int bits, size_t size) {
    std::string out(size + 1, 0);
    z_stream z{};
    inflateInit2(&z, bits);
    z.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(bytes.data()));
    z.avail_in = static_cast<uInt>(bytes.size());
    z.next_out = reinterpret_cast<Bytef *>(out.data());
    z.avail_out = static_cast<uInt>(out.size());
    inflate(&z, Z_SYNC_FLUSH);
    out.resize(z.total_out);
    inflateEnd(&z);
    return out;
}

} // namespace

TEST(ZipStream, GivesBackTheBytes) {
    for (const size_t size : {0u, 1u, 262144u, 1000000u}) {
        for (const zwchar *encoding : {u"GZIP", u"deflate"}) {
            const std::string bytes = sample(size), packed = compressed(bytes, encoding);
            EXPECT_EQ(bare_inflate(packed, *encoding == u'G' ? 31 : 15, size), bytes);
            StreamPtr back = uncompressed(packed, encoding);
            ASSERT_OK(back);
            EXPECT_TRUE(drain(back.get()) == bytes) << size;
        }
    }
}

// Noise is stored and costs nothing; the text in front of it, behind it and in the next stream of
// the thread is not.
TEST(ZipStream, StoresWhatGainsNothing) {
    constexpr size_t kNoise = 20 << 20, kText = 60 << 20;
    std::string noise(kNoise, 0), bytes(1 << 20, 'x');
    uint64_t state = 1;
    for (char &each : noise)
        each = static_cast<char>((state = state * 6364136223846793005 + 1) >> 56);
    bytes += noise;
    bytes.append(kText, 'y');
    const std::string packed = compressed(bytes, u"gzip");
    EXPECT_LT(packed.size(),
              kNoise + kNoise / 1000 + (18 << 20)); // and no longer
    EXPECT_LT(compressed(bytes.substr(0, 500000), u"gzip").size(), 2000u);
    StreamPtr back = uncompressed(packed, u"gzip");
    ASSERT_OK(back);
    EXPECT_TRUE(drain(back.get()) == bytes);
}

// All of the input is taken long before a run of equal bytes is given.
TEST(ZipStream, ReadsInSmallStepsToTheEnd) {
    const std::string bytes(100000, 'a');
    StreamPtr source = memory(compressed(bytes, u"gzip")), zip(zUnzipStream(source.get(), u"gzip"));
    EXPECT_TRUE(drain(zip.get(), 7) == bytes);
    EXPECT_FALSE(zStreamError(zip.get()));
    EXPECT_EQ(zStreamWrite(zip.get(), "x", 1), 0u);
}

// The stream's first buffer of input ends just where a reader's block is full: stored blocks tell
// how much of them that is.
TEST(ZipStream, GoesOnWhereInputAndOutputEndTogether) {
    const std::string bytes = sample(600000);
    std::string packed(bytes.size() + 1000, 0);
    uLongf size = static_cast<uLongf>(packed.size());
    compress2(reinterpret_cast<Bytef *>(packed.data()), &size,
              reinterpret_cast<const Bytef *>(bytes.data()), bytes.size(), 0);
    packed.resize(size);
    const size_t step = bare_inflate(packed.substr(0, 0x40000), 15, bytes.size()).size();
    ASSERT_GT(step, 0x3f000u);
    StreamPtr source = memory(packed), zip(zUnzipStream(source.get(), u"deflate"));
    EXPECT_TRUE(drain(zip.get(), step) == bytes);
    EXPECT_FALSE(zStreamError(zip.get()));
}

// A stream that gives a byte a time: the frame's ten are taken before anything can be given.
TEST(ZipStream, GoesOnWhereNothingIsGivenYet) {
    struct Slow {
        Stream head;
        std::string bytes;
        size_t at;
    } slow = {{}, compressed("some text", u"gzip"), 0};
    slow.head.read = [](Stream *stream, void *buffer, uint64_t) -> uint64_t {
        auto *source = reinterpret_cast<Slow *>(stream);
        if (source->at == source->bytes.size()) return 0;
        *static_cast<char *>(buffer) = source->bytes[source->at++];
        return 1;
    };
    slow.head.eof = [](Stream *stream) {
        return reinterpret_cast<Slow *>(stream)->at ==
               reinterpret_cast<Slow *>(stream)->bytes.size();
    };
    slow.head.error = [](Stream *) { return false; };
    StreamPtr back(zStreamUncompress(&slow.head, u"gzip"));
    ASSERT_OK(back);
    EXPECT_EQ(drain(back.get()), "some text");
}

TEST(ZipStream, WritesThroughAndFinishes) {
    const std::string bytes = sample(700000);
    StreamPtr below = memory("");
    {
        StreamPtr zip(zZipStream(below.get(), u"deflate"));
        for (size_t at = 0; at < bytes.size(); at += 70000)
            EXPECT_EQ(zStreamWrite(zip.get(), bytes.data() + at, 70000), 70000u);
        EXPECT_TRUE(zZipStreamFinish(zip.get()));
        const std::string packed = drain(zip.get()); // reads what is below
        EXPECT_TRUE(bare_inflate(packed, 15, bytes.size()) == bytes);
        EXPECT_FALSE(zStreamError(zip.get()));
    }
    for (const size_t size : {size_t{1}, bytes.size()}) { // fails at the end, and before
        StreamPtr full(zZipFile(u"/dev/full", u"gzip"));
        zStreamWrite(full.get(), bytes.data(), size);
        zZipStreamFinish(full.get());
        zStreamRewind(full.get());
        EXPECT_TRUE(zStreamError(full.get())) << size;
    }
    zRaiseError(0, 0, nullptr, nullptr);
    zStreamFree([] {
        Stream *full = zZipFile(u"/dev/full", u"gzip");
        zStreamWrite(full, "x", 1);
        return full;
    }());
    EXPECT_EQ(zErrorCode(), ENOSPC) << "freed, and nobody asked";
}

TEST(ZipStream, RefusesDamage) {
    const std::string bytes = sample(300000), good = compressed(bytes, u"gzip");
    std::string flipped = good;
    flipped[good.size() / 2] ^= 1;
    for (const std::string &input :
         {std::string(), std::string("no gzip at all"), flipped, good + "x", good + good,
          good.substr(0, good.size() - 1), good.substr(0, 9)}) {
        EXPECT_FALSE(uncompressed(input, u"gzip")) << input.size();
        StreamPtr source = memory(input), zip(zUnzipStream(source.get(), u"gzip"));
        for (char block[999]; !zStreamEOF(zip.get()) && !zStreamError(zip.get());)
            zStreamRead(zip.get(), block, sizeof block);
        EXPECT_TRUE(zStreamError(zip.get()) || input.empty()) << "piece by piece";
        EXPECT_NE(zErrorClass(), 0);
        EXPECT_TRUE(uncompressed(good, u"gzip")) << "behind damage"; // by the same decompressor
    }
    // A preset dictionary is wanted.
    EXPECT_FALSE(uncompressed(std::string("\x78\xbb\0\0\0\1\3\0\0\0\0\1", 12), u"deflate"));
}

// 100 MB of zeros in 100 KB come back, unless the caller sets a bound.
TEST(ZipStream, GrowsAsFarAsTheCallerAllows) {
    constexpr uint64_t kAll = 100 << 20;
    StreamPtr packed(zZipTemp(u"gzip"));
    const std::string zeros(1 << 20, 0);
    for (uint64_t made = 0; made < kAll; made += zeros.size())
        zStreamWrite(packed.get(), zeros.data(), zeros.size());
    zZipStreamFinish(packed.get());
    StreamPtr source = memory(drain(packed.get())), back(zStreamUncompress(source.get(), u"gzip"));
    ASSERT_OK(back);
    EXPECT_EQ(zStreamSize(back.get()), kAll);
    zStreamRewind(source.get());
    back.reset(zev::uncompress_stream(source.get(), u"gzip", kAll));
    EXPECT_OK(back);
    zStreamRewind(source.get());
    EXPECT_FALSE(zev::uncompress_stream(source.get(), u"gzip", kAll - 1));
    EXPECT_EQ(narrow(zErrorMsg()), "The data is larger than allowed once it is decompressed");
}

TEST(ZipStream, RefusesArguments) {
    TempDir dir;
    const auto file = dir.path() / "kept";
    write(file, "kept");
    EXPECT_FALSE(zZipFile(file.u16string().c_str(), u"br"));
    EXPECT_EQ(read(file), "kept");
}
