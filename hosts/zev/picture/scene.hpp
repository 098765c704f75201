// Scene: what a drawing looks like, as lines, areas and texts in the plane, before it is written in
// any format.
//
// A scene is a pure function of the rows that it is made of. Nothing in it is trusted: numbers are
// finite and within kFarthest of the origin, texts are UTF-8 without control characters, and what
// exceeds a limit is left out and counted.
#pragma once

#include "dxf/content.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace picture {

struct Point {
    double x = 0, y = 0;
};

struct Box {
    Point low{1, 1}, high{0, 0}; // none yet
    bool is_empty() const { return low.x > high.x; }
    void add(Point point);
    void add(const Box &box);
    double width() const { return is_empty() ? 0 : high.x - low.x; }
    double height() const { return is_empty() ? 0 : high.y - low.y; }
};

// x' = a x + c y + e, y' = b x + d y + f
struct Matrix {
    double a = 1, b = 0, c = 0, d = 1, e = 0, f = 0;
    Point operator*(Point point) const;
    Matrix operator*(const Matrix &first) const; // what `first` did is done before
};

// A colour of the standard table by its number, 1 to 255, of which 7 is black on light and white on
// dark; or 24 bits of red, green and blue with kTrue beside them.
struct Ink {
    static constexpr uint32_t kTrue = 1u << 24;
    uint32_t value = 7;
    bool operator==(const Ink &) const = default;
};

enum class Step : uint8_t { move, line, curve, close }; // of 1, 1, 3 (cubic) and 0 points

struct Shape {
    enum Kind : uint8_t { stroke, fill, text }; // a fill is by the even-odd rule
    Kind kind = stroke;
    Ink ink;
    uint32_t object = 0; // place in Content::objects of the entity that stands in model or paper
    uint32_t part = 0;   // of the one that it was drawn for: the same, or one of a block
    float weight = 0;    // of strokes, in millimetres on paper; 0 is the thinnest that can be seen
    uint32_t dashes = 0; // in Scene::dashes, 0 for a line without gaps
    uint32_t first = 0, count = 0;  // steps; of a text, its number in `first`
    uint32_t point = 0, points = 0; // in Scene::points
};

// One line of text; its own plane has the baseline as x from the origin on, and a letter height
// of 1 (of capitals).
struct Text {
    std::string text;
    std::string font; // a family, or the file that the style names; empty for any
    Matrix place;     // from its plane into the drawing's
    double width = 0; // that it is to have, in its own plane, 0 for as it comes
    enum Anchor : uint8_t { start, middle, end } anchor = start;
    bool is_bold = false, is_italic = false, is_underlined = false;
    Ink ink{0}; // 0 for its shape's
};

// Why something is left out, beside kinds of entities that aren't drawn.
namespace reason {
inline constexpr const char *kBroken = "numbers that are none or too large";
inline constexpr const char *kBeyond = "objects beyond the limit";
inline constexpr const char *kMissing = "blocks that are missing";
inline constexpr const char *kForeign = "blocks of other drawings";
inline constexpr const char *kRecursive = "blocks inside themselves";
inline constexpr const char *kDeep = "blocks nested too deeply";
inline constexpr const char *kKnots = "splines with broken knots"; // drawn by even ones
inline constexpr const char *kDense = "hatches too dense";         // drawn in part
inline constexpr const char *kLayouts = "objects of other layouts";
inline constexpr const char *kOthers = "of other kinds";
} // namespace reason

struct Scene {
    std::vector<Shape> shapes; // those in front come last
    std::vector<Step> steps;
    std::vector<Point> points;
    std::vector<Text> texts;
    std::vector<std::vector<double>>
        dashes; // lengths in the drawing's units, lines and gaps by turns
    Box box;    // of all shapes, of texts by guess
    bool is_paper = false;
    // Kinds of entities, or reasons, and of how many records: one that is in many places counts
    // once.
    std::map<std::string, uint64_t> left_out;

    Box box_of(const Shape &shape) const;
};

struct SceneOptions {
    // Only entities of these places, with their blocks; empty for all.
    std::function<bool(size_t object)> wanted{};
    enum Space : uint8_t { any, model, paper } space = any; // any: model, paper where that is empty
    uint64_t most_points = 5'000'000;
};

inline constexpr double kFarthest = 1e15;

// What is drawn with another entity, a vertex with its polyline, is wanted with it: either brings
// both, and the polyline is the shapes' object. Attributes are objects of their own.
Scene draw(const dxf::Content &content, const SceneOptions &options = {});

} // namespace picture
