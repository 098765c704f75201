// Object names that are found rather than told: by chance, and from a file's content.
#include "zev/oid.h"

#include "common/utf.hpp"
#include "objects/store/git.hpp"
#include "system/clock.hpp"
#include "system/os.hpp"

#include <algorithm>
#include <cstring>

#include <uv.h>

using namespace zev;

namespace {

// What tells this machine from others: the raw record of its first network interface.
void machine(void *block, size_t size) {
    uv_interface_address_t *addresses = nullptr;
    int count = 0;
    if (uv_interface_addresses(&addresses, &count) < 0) return;
    if (count > 0) memcpy(block, addresses, std::min(size, sizeof *addresses));
    uv_free_interface_addresses(addresses, count);
}

} // namespace

bool zOidRand(Oid *id) {
    if (!id) return fail_args();
    // Machine 80, seconds 8, nanoseconds since some start 8 bytes. Machines that were started
    // from one image at one moment differ by chance, which is mixed into the last.
    unsigned char block[96] = {};
    int64_t seconds = os::calls.now() / kSecond;
    uint64_t ticks = 0;
    os::calls.random(&ticks, sizeof ticks);
    ticks += uv_hrtime();
    machine(block, 80);
    memcpy(block + 80, &seconds, 8);
    memcpy(block + 88, &ticks, 8);
    int code = git_odb_hash(git::oid(id), block, sizeof block, GIT_OBJECT_BLOB);
    return code < 0 ? fail_git(code) : true;
}

bool zOidFromFile(Oid *id, const zwchar *path) try {
    if (!id || !path) return fail_args();
    git_oid found;
    int code = git_odb_hashfile(&found, git::path(path).c_str(), GIT_OBJECT_BLOB);
    if (code < 0) return fail_git(code);
    return zOidFromRaw(id, &found);
} catch (...) {
    return fail_thrown();
}
