// Share as its neighbours see it.
#pragma once

#include "common/guard.hpp"
#include "system/os.hpp"
#include "zev/share.h"

struct Share {
    FILE *file = nullptr;
    std::u16string removed; // path of a file that goes with its closing, mode letter D

    Share() = default;
    Share(const Share &) = delete;
    Share &operator=(const Share &) = delete;
    ~Share();
};

namespace zev {

// Mode letters of a file that is there to be held: empty, and gone with its holder.
constexpr zwchar kGuardMode[] = u"w+bSTD";

using ShareGuard = Owned<Share, zShareClose>;

// Opens as zShareOpen. A refusal is the locked error for `told`.
Share *share_open(const zwchar *path, const os::Mode &mode, uint32_t flags, mode_t create,
                  const zwchar *told);
// At most five rounds of zShareOpen, as long as it is refused.
Share *share_wait(const zwchar *path, const os::Mode &mode, uint32_t flags, mode_t create);

inline int fd_of(const Share *share) { return fileno(share->file); }

} // namespace zev
