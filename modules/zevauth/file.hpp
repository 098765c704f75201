// Whole files of the store: what can be seen of one without reading it, its bytes, and another one
// put in its place.
#pragma once

#include "text.hpp"

#include <cstdint>
#include <string>

#include <sys/types.h>

namespace zevauth {

// Two stamps that are equal, and settled, mean the same bytes.
struct Stamp {
    bool exists = false;
    uint64_t device = 0, inode = 0;
    int64_t size = 0, seconds = 0, nanoseconds = 0;
    bool operator==(const Stamp &) const = default;

    // Whether a later change would show: within the clock's tick one of equal size, in an inode
    // that was given away and used again, has the same stamp.
    bool is_settled() const;
};

// False with errno for what can't be told; a missing file is none.
bool look(const Text &path, Stamp *stamp);
// As look; nothing is read of a missing file. Above 64 MiB EFBIG.
bool read_file(const Text &path, std::string *bytes, Stamp *stamp);
// Whether this process may put a file there; false with errno.
bool can_replace(const Text &path);
// Written aside as .<name>.new, synced and renamed: the name has the old bytes or the new ones,
// whenever the process ends. For one writer at a time, who also takes away what an earlier one left
// aside. The new file has that mode, or with 0 the replaced one's; written by root it belongs to
// whom the replaced one belongs, or its directory.
bool replace_file(const Text &path, const std::string &bytes, mode_t mode);

} // namespace zevauth
