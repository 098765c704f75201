// SVG: a scene as text. The same scene and options give the same bytes.
#pragma once

#include "picture/scene.hpp"

#include <functional>
#include <string>
#include <string_view>

namespace picture {

using Write = std::function<void(std::string_view)>;

struct Theme {
    bool is_dark = false;
};

// Red, green and blue of an ink, legible on the theme's ground.
uint32_t rgb_of(Ink ink, const Theme &theme);
uint32_t ground_of(const Theme &theme);

// Text for SVG: marks and quotes escaped, control characters and bad UTF-8 replaced.
std::string escaped(std::string_view text);

// The part of the drawing that a picture shows, and how: coordinates are written relative to the
// middle of `box`, y downwards, scaled so that the longer side has kSide units.
class Frame {
  public:
    static constexpr double kSide = 1000;
    explicit Frame(const Box &box, double margin = 0.02); // a share of the longer side
    Point operator()(Point drawing) const;
    double scale() const { return scale_; }   // units a unit of the drawing
    double width() const { return width_; }   // units
    double height() const { return height_; } // units
    Box shown() const;                        // what of the drawing it shows, margins included

  private:
    Point middle_;
    double scale_, width_, height_;
};

// A shape as it is drawn: an area that is hardly wider than a line would be lost, and is a line.
// One that may be is both.
struct Visible {
    Shape shape;
    bool has_edge = false; // beside an area
};
Visible visible(const Scene &scene, const Shape &shape, const Frame &frame, double thinnest);

struct SvgOptions {
    Theme theme;
    std::string title; // as it was typed, in UTF-8
    // Of a picture that is to be small, in units: the least width of strokes, the least height of
    // letters that are written, and how far apart places have to be to be two.
    double weight = 0, letters = 0, grid = 0;
};
void write_svg(const Scene &scene, const SvgOptions &options, const Write &write);

// A number as short as three decimals allow, never with an exponent.
void put_number(std::string &out, double value);

} // namespace picture
