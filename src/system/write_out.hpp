// What has been written begins to go to the disk, so that a later sync finds little left to do.
#pragma once

namespace zev::os {

void start_sync(int fd); // of a file's bytes by now, which is not waited for

} // namespace zev::os
