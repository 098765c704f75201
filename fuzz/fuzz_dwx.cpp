// A drawing file: what is read is no larger than the file and needs nothing beyond itself, also
// from a stream that only goes forward and does not know its size; and read in place it is the
// same.
#include "objects/drawing/drawing.hpp"

#include "zev/error.h"
#include "zev/manifest.h"

#include <cstdlib>

namespace {

using namespace zev;

void look_at(const Drawing *drawing, size_t size) {
    const auto classes = keys_of(drawing->classes.get());
    const auto objects = keys_of(drawing->objects.get());
    if ((classes.size() + objects.size()) * sizeof(DrawingKey) > size) abort();
    if (drawing->thumbnail_size > size) abort();
}

void read_in_place(const uint8_t *data, size_t size, const Drawing *drawing) {
    Manifest manifest{};
    if (!zManifestRead(&manifest, data, size)) return;
    const bool same = drawing && manifest.class_count == zVectorSize(drawing->classes.get()) &&
                      manifest.object_count == zVectorSize(drawing->objects.get()) &&
                      same_key(manifest.summary, drawing->summary);
    zManifestDeinit(&manifest);
    if (!same) abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = zGlobalInit(nullptr, nullptr);
    (void)started;
    const Owned<Stream, zStreamFree> stream{zMemStream(0, size)};
    zStreamWrite(stream.get(), data, size);
    const DrawingPtr drawing = read_drawing(stream.get());
    if (drawing) look_at(drawing.get(), size);
    read_in_place(data, size, drawing.get());
    Oid id;
    zDrawingDetectStream(&id, stream.get());
    if (drawing && !zDrawingDetectStream(nullptr, stream.get())) abort();
    Vector *keys = nullptr;
    if (zDrawingIncrements(stream.get(), stream.get(), &keys) && !zVectorIsEmpty(keys) &&
        !zDrawingHasVba(drawing.get()))
        abort();
    zVectorFree(keys);

    stream->seek = nullptr;
    stream->size = nullptr;
    const DrawingPtr forward = read_drawing(stream.get());
    if (forward) look_at(forward.get(), size);
    return 0;
}
