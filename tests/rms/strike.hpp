// Strikes at calls of the authentication module into the system: this program's symbols come before
// those of the C library. And counts what is costly.
#pragma once

namespace test {

enum class Strike { kill, fail };

// The n-th changing call from now on is hit, from 1: the process is killed at it, or it fails with
// EIO. 0 ends that.
void strike_at(int n, Strike how = Strike::kill);
bool struck();
int hashes_made(); // since the program began

} // namespace test
