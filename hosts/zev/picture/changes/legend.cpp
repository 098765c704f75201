// Samples stand in front of their words; those have the room that letters take on an average.
#include "picture/changes/legend.hpp"

#include "picture/changes/cloud.hpp"
#include "picture/changes/markup.hpp"
#include "picture/svg_text.hpp"
#include "say.hpp"

namespace picture {

namespace {

using host::say;

constexpr double kSample = 36, kGap = 24;

std::string line(Point at, uint32_t colour, double width, const char *gaps = nullptr) {
    std::string attributes = stroke(colour, width);
    if (gaps) attributes += attribute("stroke-dasharray", gaps);
    return line_path(attributes, "M" + pair(at) + "L" + pair({at.x + kSample, at.y}));
}

} // namespace

std::string legend(const DiffCounts &counts, const Palette &palette, Point at, double size) {
    std::string out;
    const auto older = [&](double y) { return line({at.x, y}, palette.older, kOldWidth, "6 3.5"); };
    const auto newer = [&](double y) { return line({at.x, y}, palette.newer, kNewWidth); };
    const auto sample = [&](const std::string &lines, const std::string &text) {
        const double x = at.x + kSample + 10;
        out += lines +
               element("text",
                       attribute("x", x) + attribute("y", at.y + 5) + attribute("font-size", size) +
                           attribute("fill", hex_of(palette.ink)),
                       escaped(text));
        at.x = x + static_cast<double>(text.size()) * size * kLetter + kGap;
    };
    sample(newer(at.y), say("added: %s", counts.added));
    sample(older(at.y), say("removed: %s", counts.removed));
    sample(older(at.y - 4) + newer(at.y + 4),
           say("modified, before and after: %s", counts.modified));
    sample(line_path(stroke(palette.arrow, kArrowWidth), arrow_path(at, {at.x + kSample, at.y}, 9)),
           say("moved: %s", counts.moved));
    sample(line(at, palette.stayed, 1), say("unchanged"));
    return out;
}

} // namespace picture
