// A file system that takes a part of what is written is asked to take the rest.
#include "scratch.hpp"

namespace host {

namespace fs = std::filesystem;

namespace {

bool write_all(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t taken = write(file, bytes.data(), bytes.size());
        if (taken < 0 && errno == EINTR) continue;
        if (taken <= 0) return false;
        bytes.remove_prefix(static_cast<size_t>(taken));
    }
    return true;
}

} // namespace

void replace_file(const fs::path &path, std::string_view bytes) {
    const fs::path aside = path.string() + ".new";
    const int file = open(aside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const bool written = file >= 0 && write_all(file, bytes) && !fsync(file);
    const int code = errno; // which closing it may change
    if (file >= 0) close(file);
    if (written && !rename(aside.c_str(), path.c_str())) return;
    throw fs::filesystem_error({}, path, {written ? errno : code, std::generic_category()});
}

} // namespace host
