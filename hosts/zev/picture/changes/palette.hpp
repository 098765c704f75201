// Palette: colours and widths of a diff's page.
#pragma once

#include "picture/svg.hpp"

namespace picture {

// Colours that most colour-blind people tell apart, too.
struct Palette {
    explicit Palette(const Theme &theme);
    uint32_t ground, ink, faint; // of the page, its texts, its hairlines
    uint32_t stayed, stayed_fill;
    uint32_t older, newer, cloud, arrow;
};

// Of strokes, in units of the page. What is heavy is new, and what has gaps was there before.
inline constexpr double kStayedWidth = 0.5, kGhostWidth = 1, kOldWidth = 1.6, kNewWidth = 2.6,
                        kArrowWidth = 1.4;

} // namespace picture
