// Sums are taken block by block, so that the largest pack costs no memory.
#include "verify/files.hpp"

#include "common/guard.hpp"
#include "common/sha1.hpp"
#include "common/utf.hpp"
#include "objects/store/git.hpp"

#include <cstring>

namespace zev::verify {

namespace {

constexpr size_t kBlock = 1u << 18;
constexpr size_t kSum = 20;

Owned<FILE, fclose> open_unbuffered(const std::u16string &path) {
    Owned<FILE, fclose> file(os::open(path.c_str(), u"rb"));
    if (file) setvbuf(file.get(), nullptr, _IONBF, 0);
    return file;
}

} // namespace

std::u16string own_directory(git_repository *repository) {
    return to_wide(git_repository_path(repository));
}

std::u16string shared_directory(git_repository *repository) {
    return to_wide(git_repository_commondir(repository));
}

bool exists(const std::u16string &path) {
    struct stat status;
    return os::stat(path.c_str(), &status);
}

std::string read_text(const std::u16string &path) {
    const auto file = open_unbuffered(path);
    std::string text;
    char block[4096];
    while (const size_t count = file ? fread(block, 1, sizeof block, file.get()) : 0)
        text.append(block, count);
    return text;
}

// The last bytes read are kept back: they may be the sum.
bool has_own_sum(const std::u16string &path) {
    const auto file = open_unbuffered(path);
    if (!file) return false;
    const auto block = std::make_unique<char[]>(kSum + kBlock);
    Sha1 sum;
    size_t kept = 0;
    while (const size_t count = fread(block.get() + kept, 1, kBlock, file.get())) {
        const size_t all = kept + count, done = all > kSum ? all - kSum : 0;
        if (!sum.add(block.get(), done)) return false;
        memmove(block.get(), block.get() + done, kept = all - done);
    }
    uint8_t digest[kSum];
    return !ferror(file.get()) && kept == kSum && sum.end(digest) &&
           !memcmp(digest, block.get(), kSum);
}

} // namespace zev::verify
