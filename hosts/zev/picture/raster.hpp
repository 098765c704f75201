// Raster: an SVG as PNG or PDF, by the renderer of the system, rsvg-convert, as a child process.
#pragma once

#include "picture/svg.hpp"

#include <chrono>

namespace picture {

enum class Format : uint8_t { svg, png, pdf };
// By the suffix of a file's name; "-" and no name are SVG. Throws for another one.
Format format_of(const std::string &file);
const char *name_of(Format format);

inline constexpr uint32_t kUsualSide = 2000; // pixels

// Pixels of a PNG's longer side, where `size` were asked for; 0 stands for none. Throws for other
// formats with a size, and for one that makes no sense.
uint32_t side_of(uint64_t size, Format format);

struct Raster {
    Format format = Format::png; // not SVG
    uint32_t side = kUsualSide;  // of a PNG
    Theme theme;                 // whose ground is behind all
    std::chrono::milliseconds patience = std::chrono::minutes(5);
    const Notify *notify = nullptr; // that can break it off
};

// Gives what `svg` writes to the renderer, and what comes of it to `write`, in pieces. `svg` runs
// on a thread of its own. Throws host::Failed when there is no renderer (kNotFound), or it fails.
void rasterize(const std::function<void(const Write &)> &svg, const Raster &raster,
               const Write &write);

} // namespace picture
