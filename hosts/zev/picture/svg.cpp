// SVG: strokes that look the same and follow each other become one path, up to a length that
// renderers stroke fast; fills stay apart, as the even-odd rule would make holes of what overlaps.
#include "picture/svg.hpp"

#include "picture/ocs.hpp"
#include "picture/svg_path.hpp"
#include "picture/svg_text.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>

namespace picture {

namespace {

constexpr size_t kLongest = 3000; // bytes of path data in one element
constexpr size_t kPiece = 1 << 16;
constexpr double kThinnest = 0.5, kWidest = 6, kUnitsPerMillimetre = 2; // of strokes

// The pattern of gaps, empty where it could not be told from a line.
std::string dashes_of(const Scene &scene, const Shape &shape, const Frame &frame, double width) {
    constexpr double kLeast = 0.5; // units, on an average
    constexpr size_t kMost = 32;   // lengths
    if (!shape.dashes || shape.dashes >= scene.dashes.size()) return {};
    const std::vector<double> &lengths = scene.dashes[shape.dashes];
    double sum = 0;
    for (const double length : lengths) sum += std::fabs(length) * frame.scale();
    if (lengths.size() > kMost || !(sum > kLeast * static_cast<double>(lengths.size()))) return {};
    if (sum > 2 * Frame::kSide) return {};
    std::string out;
    for (size_t i = 0; i < lengths.size(); ++i) {
        if (i) out += ' ';
        const double length = std::fabs(lengths[i]) * frame.scale();
        put_number(out, i % 2 ? length : std::max(length, width)); // a dot is as long as wide
    }
    return out;
}

// How wide an area is on an average, in units: twice its size through the length of its border.
// Where the border crosses itself, parts of it count against others, and it has at most the second.
struct AreaWidth {
    double least = 0, most = 0;
};

AreaWidth width_of_area(const Scene &scene, const Shape &shape, const Frame &frame) {
    double size = 0, most = 0, border = 0, part = 0;
    Point start{}, last{};
    size_t next = shape.point;
    const auto go = [&](Point to) {
        const double twice =
            (last.x - start.x) * (to.y - start.y) - (to.x - start.x) * (last.y - start.y);
        part += twice;
        most += std::fabs(twice) / 2;
        border += std::hypot(to.x - last.x, to.y - last.y);
        last = to;
    };
    const auto end = [&] {
        go(start);
        size += std::fabs(part) / 2;
        part = 0;
    };
    for (uint32_t i = 0; i < shape.count; ++i) {
        const Step step = scene.steps[shape.first + i];
        if (step == Step::move) {
            end();
            start = last = scene.points[next++];
        }
        for (int count = step == Step::curve ? 3 : step == Step::line; count; --count)
            go(scene.points[next++]);
    }
    end();
    const double share = border > 0 ? 2 * frame.scale() / border : 0;
    return {size * share, most * share};
}

double width_of(const Shape &shape, double least) {
    const double width = static_cast<double>(shape.weight) * kUnitsPerMillimetre;
    return std::max({std::min(width, kWidest), kThinnest, least});
}

std::string style_of_area(bool has_edge, uint32_t colour, double least) {
    std::string out = " fill=\"" + hex_of(colour) + "\"";
    if (!has_edge) return out;
    out += " stroke=\"" + hex_of(colour) + "\" stroke-width=\"";
    put_number(out, std::max(kThinnest, least));
    return out + '"';
}

// Attributes of a shape, but for those that its group has.
std::string style_of(const Scene &scene, const Visible &visible, const Frame &frame,
                     uint32_t colour, double least) {
    const Shape &shape = visible.shape;
    if (shape.kind == Shape::fill) return style_of_area(visible.has_edge, colour, least);
    const double width = width_of(shape, least);
    std::string out = " stroke=\"" + hex_of(colour) + "\" stroke-width=\"";
    put_number(out, width);
    out += '"';
    const std::string dashes = dashes_of(scene, shape, frame, width);
    if (!dashes.empty()) out += " stroke-dasharray=\"" + dashes + "\" stroke-linecap=\"butt\"";
    return out;
}

// Where lines run far out of the picture, their gaps are left out: there could be millions.
std::string without_gaps(std::string style) {
    return style.erase(std::min(style.find(" stroke-dasharray"), style.size()));
}

std::string path_element(const std::string &style, const PathData &data) {
    return "<path" + (data.is_far() ? without_gaps(style) : style) + " d=\"" + data.text() +
           "\"/>\n";
}

// The elements of a document, in the order of the scene.
class Sheet {
  public:
    Sheet(const Scene &scene, const SvgOptions &options, const Frame &frame, const Write &write)
        : scene_(scene), options_(options), frame_(frame), write_(write),
          data_(frame, options.grid) {}

    void add(const Shape &given) {
        if (given.kind == Shape::text) return add_text(given);
        const Visible seen = visible(scene_, given, frame_, kThinnest);
        const Shape &shape = seen.shape;
        if (!last_ || !is_alike(*last_, shape) || data_.text().size() > kLongest) {
            end_path();
            const uint32_t colour = rgb_of(shape.ink, options_.theme);
            style_ = style_of(scene_, seen, frame_, colour, options_.weight);
            last_ = shape;
        }
        data_.add(scene_, shape);
    }

    void put(const std::string &text) {
        out_ += text;
        if (out_.size() >= kPiece) flush();
    }
    void end_path() {
        if (!data_.text().empty()) put(path_element(style_, data_));
        data_.clear();
        last_.reset();
    }
    void flush() {
        write_(out_);
        out_.clear();
    }

  private:
    static bool is_alike(const Shape &a, const Shape &b) {
        return a.kind == Shape::stroke && b.kind == Shape::stroke && a.ink == b.ink &&
               a.weight == b.weight && a.dashes == b.dashes;
    }
    void add_text(const Shape &shape) {
        end_path();
        const Text &text = scene_.texts[shape.first];
        const Ink ink = text.ink.value ? text.ink : shape.ink;
        put(text_element(text, rgb_of(ink, options_.theme), frame_, options_.letters, ""));
    }

    const Scene &scene_;
    const SvgOptions &options_;
    const Frame &frame_;
    const Write &write_;
    std::string out_, style_;
    PathData data_;
    std::optional<Shape> last_; // of the path under way
};

std::string attribute(const char *name, double value) {
    std::string out = std::string(" ") + name + "=\"";
    put_number(out, value);
    return out + '"';
}

// What stands below the title: which space, and what is not in the picture.
std::string description(const Scene &scene) {
    std::string out = scene.is_paper ? "Paper space" : "Model space";
    const char *between = "; left out: ";
    for (const auto &[what, count] : scene.left_out) {
        out += between + std::to_string(count) + " " + what;
        between = ", ";
    }
    return escaped(out);
}

// Where the picture lies in the drawing, lower left and upper right, to the last digit: who shows
// it can tell a place in the drawing by it.
std::string shown_box(const Frame &frame) {
    const Box box = frame.shown();
    std::string out;
    for (const double value : {box.low.x, box.low.y, box.high.x, box.high.y}) {
        char digits[40];
        if (!out.empty()) out += ' ';
        out.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
    }
    return out;
}

std::string head(const Scene &scene, const SvgOptions &options, const Frame &frame) {
    const std::string size =
        attribute("width", frame.width()) + attribute("height", frame.height());
    const std::string corner =
        attribute("x", -frame.width() / 2) + attribute("y", -frame.height() / 2);
    std::string box;
    for (const double value : {-frame.width() / 2, -frame.height() / 2, frame.width()}) {
        put_number(box, value);
        box += ' ';
    }
    put_number(box, frame.height());
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<svg xmlns=\"http://www.w3.org/2000/svg\"" +
           size + " viewBox=\"" + box + "\" data-box=\"" + shown_box(frame) + "\">\n<title>" +
           escaped(options.title) + "</title>\n<desc>" + description(scene) + "</desc>\n<rect" +
           corner + size + " fill=\"" + hex_of(ground_of(options.theme)) +
           "\"/>\n<g fill=\"none\" fill-rule=\"evenodd\" stroke-linecap=\"round\""
           " stroke-linejoin=\"round\">\n";
}

} // namespace

void put_number(std::string &out, double value) {
    constexpr double kMost = 1e12;
    if (std::isnan(value)) value = 0;
    put_thousandths(out, std::llround(std::clamp(value, -kMost, kMost) * 1000), false);
}

// A drawing without any extent is a point in the middle of a square; one of a single line has some
// ground beside it.
Frame::Frame(const Box &box, double margin) {
    constexpr double kNarrowest = 100; // units
    middle_ = {box.low.x / 2 + box.high.x / 2, box.low.y / 2 + box.high.y / 2};
    if (box.is_empty()) middle_ = {};
    double side = std::max(box.width(), box.height());
    const double noise = 1e-14 * std::max(std::fabs(middle_.x), std::fabs(middle_.y));
    if (!(side > std::max(noise, 1e-12))) side = 1;
    const double whole = side * (1 + 2 * margin);
    scale_ = kSide / whole;
    const bool is_point = !(box.width() * scale_ > 0.001 || box.height() * scale_ > 0.001);
    const auto extent = [&](double length) {
        if (is_point) return kSide;
        return std::clamp((length + 2 * margin * side) * scale_, kNarrowest, kSide);
    };
    width_ = extent(box.width());
    height_ = extent(box.height());
}

Point Frame::operator()(Point drawing) const {
    return {(drawing.x - middle_.x) * scale_, (middle_.y - drawing.y) * scale_};
}

Box Frame::shown() const {
    const double right = width_ / 2 / scale_, up = height_ / 2 / scale_;
    return {{middle_.x - right, middle_.y - up}, {middle_.x + right, middle_.y + up}};
}

Visible visible(const Scene &scene, const Shape &given, const Frame &frame, double thinnest) {
    if (given.kind != Shape::fill) return {given};
    const AreaWidth width = width_of_area(scene, given, frame);
    if (width.most > thinnest) return {given, !(width.least > thinnest)};
    Visible line{given};
    line.shape.kind = Shape::stroke;
    line.shape.weight = 0;
    line.shape.dashes = 0;
    return line;
}

void write_svg(const Scene &scene, const SvgOptions &options, const Write &write) {
    const Frame frame(scene.box);
    Sheet sheet(scene, options, frame, write);
    sheet.put(head(scene, options, frame));
    for (const Shape &shape : scene.shapes) sheet.add(shape);
    sheet.end_path();
    sheet.put("</g>\n</svg>\n");
    sheet.flush();
}

} // namespace picture
