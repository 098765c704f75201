// An object file: what it gives is no longer than its head says, in pieces of any size, and its
// reading ends.
#include "objects/store/loose_object.hpp"
#include "zev/error.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

using namespace zev;

namespace {

constexpr git_oid kId = {{0xAB, 1}};
constexpr uint64_t kMost = 1u << 20; // of an object, so that many are tried

std::filesystem::path place() {
    const auto made = std::filesystem::temp_directory_path() / "zev-fuzz-XXXXXX";
    std::string name = made.string();
    if (!mkdtemp(name.data())) abort();
    std::filesystem::create_directory(name + "/ab");
    return name;
}

void read_through(LooseObject &object, size_t step) {
    std::vector<char> piece(step);
    uint64_t total = 0;
    for (int64_t got; (got = object.read(piece.data(), step)) > 0;) {
        if (static_cast<uint64_t>(got) > step) abort();
        total += static_cast<uint64_t>(got);
        if (total > kMost) break;
    }
    if (object.read(piece.data(), 0) > 0) abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    static const std::filesystem::path directory = place();
    const std::string name = git_oid_tostr_s(&kId);
    std::ofstream(directory / "ab" / name.substr(2), std::ios::binary)
        .write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
    for (const size_t step : {size_t{1}, size_t{7}, size_t{1} << 16}) {
        LooseObject object;
        const auto found = object.open(directory.u16string() + u"/", kId);
        if (found == LooseObject::Found::missing) abort();
        if (found == LooseObject::Found::sound) read_through(object, step);
    }
    return 0;
}
