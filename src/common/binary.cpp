// Binary: a block of bytes on the C heap that its record owns. Setting copies first and frees the
// old block last, so that a binary can be set from its own bytes.
#include "zev/binary.h"

#include "common/failure.hpp"
#include "common/guard.hpp"

#include <cstdlib>
#include <cstring>

using namespace zev;

namespace {

// A block of its own for the caller's bytes; none for none. False when memory ran out.
bool copy_block(Malloced<void> &block, const void *data, uint64_t size) {
    if (!data || !size) return true;
    block.reset(malloc(size));
    if (!block) return fail_memory();
    memcpy(block.get(), data, size);
    return true;
}

} // namespace

Binary *zBinaryNew(const void *data, uint64_t size) {
    Owned<Binary, zBinaryFree> binary(static_cast<Binary *>(calloc(1, sizeof(Binary))));
    if (!binary) return fail_memory();
    return zBinarySet(binary.get(), data, size) ? binary.release() : nullptr;
}

void zBinaryFree(Binary *binary) {
    zBinaryCleanup(binary);
    free(binary);
}

bool zBinaryInit(Binary *binary, const void *data, uint64_t size) {
    if (!binary) return fail_args();
    *binary = {};
    return zBinarySet(binary, data, size);
}

bool zBinarySet(Binary *binary, const void *data, uint64_t size) {
    if (!binary) return fail_args();
    Malloced<void> block; // made first: the bytes may be the binary's own
    if (!copy_block(block, data, size)) return false;
    return zBinaryAttach(binary, block.release(), size);
}

bool zBinaryCopy(Binary *target, const Binary *source) {
    if (!target || !source) return fail_args();
    return zBinarySet(target, source->data, source->size);
}

bool zBinaryAttach(Binary *binary, void *data, uint64_t size) {
    if (!binary) return fail_args();
    if (binary->data != data) free(binary->data);
    *binary = {data, data ? size : 0};
    return true;
}

void *zBinaryDeatch(Binary *binary) {
    if (!binary) return fail_args();
    return std::exchange(*binary, {}).data;
}

void zBinaryCleanup(Binary *binary) {
    if (!binary) return;
    free(binary->data);
    *binary = {};
}
