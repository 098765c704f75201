// Where the system has no such call, or refuses it, all is left to the sync.
#include "system/write_out.hpp"

#include <cerrno>

#include <fcntl.h>

namespace zev::os {

void start_sync(int fd) {
    const int kept = errno;
    ::sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);
    errno = kept;
}

} // namespace zev::os
