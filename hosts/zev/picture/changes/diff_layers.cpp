// What stayed is one path of many pieces; what changed has a group of its own for each entity.
#include "picture/changes/diff_layers.hpp"

#include "object_names.hpp"
#include "picture/changes/markup.hpp"
#include "picture/svg_path.hpp"
#include "picture/svg_text.hpp"

#include <algorithm>
#include <cmath>

namespace picture {

namespace {

constexpr double kThinnest = 0.5; // units of the page, of areas that are no lines
constexpr double kLowest = 1.2;   // units of the page, of letters that are worth their bytes

const char *class_of(const Mark &mark) {
    constexpr const char *kClasses[] = {"added", "modified", "removed", "moved"};
    return kClasses[mark.kind];
}

bool overlap(const Box &a, const Box &b) {
    return a.low.x <= b.high.x && b.low.x <= a.high.x && a.low.y <= b.high.y && b.low.y <= a.high.y;
}

bool is_in(const View &view, const std::vector<Box> &boxes, uint32_t shape) {
    return !view.part || overlap(boxes[shape], *view.part);
}

std::string gaps(double line, double gap) { return attribute("stroke-dasharray", pair(line, gap)); }

std::string path_of(const std::string &style, const PathData &data) {
    return data.text().empty() ? std::string() : path(style, data.text());
}

// Of a group: nothing is filled unless it says so.
std::string lines_only(const char *group) {
    return attribute("class", group) + attribute("fill", "none") +
           attribute("fill-rule", "evenodd") + attribute("stroke-linecap", "round") +
           attribute("stroke-linejoin", "round");
}

// Shapes that stayed, all of one kind in a group.
class Stayed {
  public:
    Stayed(const Scene &scene, const View &view, const Palette &palette, Shape::Kind kind, Out &out)
        : scene_(scene), view_(view), palette_(palette), out_(out), data_(view.frame) {
        std::string style = stroke(palette.stayed, kStayedWidth * view.unit);
        if (kind == Shape::fill) style = attribute("fill", hex_of(palette.stayed_fill));
        out_.put(opening("g", kind == Shape::text ? std::string() : style));
    }
    void add(const Shape &shape) {
        constexpr size_t kLongest = 3000; // bytes that renderers stroke fast
        if (shape.kind == Shape::text)
            return out_.put(text_element(scene_.texts[shape.first], palette_.stayed, view_.frame,
                                         kLowest * view_.unit, {}));
        data_.add(scene_, shape);
        if (shape.kind == Shape::fill || data_.text().size() > kLongest) end_path();
    }
    void finish() {
        end_path();
        out_.put(closing("g"));
    }

  private:
    void end_path() {
        out_.put(path_of({}, data_));
        data_.clear();
    }

    const Scene &scene_;
    const View &view_;
    const Palette &palette_;
    Out &out_;
    PathData data_;
};

} // namespace

Palette::Palette(const Theme &theme) : ground(ground_of(theme)) {
    if (theme.is_dark) {
        ink = 0xe6e6e6, faint = 0x555b63, stayed = 0x767d86, stayed_fill = 0x33383f;
        older = 0xe69f00, newer = 0x56b4e9, cloud = 0xe58fc0, arrow = 0xffffff;
    } else {
        ink = 0x222222, faint = 0xc8c8c8, stayed = 0xa6a6a6, stayed_fill = 0xdddddd;
        older = 0xd55e00, newer = 0x0072b2, cloud = 0xb0468c, arrow = 0x222222;
    }
}

DiffLayers::DiffLayers(const DiffScene &diff, Tooltips &tooltips, const Theme &theme, Out &out)
    : diff_(diff), tooltips_(tooltips), palette_(theme), out_(out),
      older_(diff.older, diff.older_marks, diff.marks.size()),
      newer_(diff.newer, diff.newer_marks, diff.marks.size()) {}

bool DiffLayers::has_stayed(uint32_t shape) const {
    const uint32_t mark = diff_.newer_marks[shape];
    return mark == kNone || !diff_.marks[mark].is_drawn();
}

// ---- What stayed

// Areas below lines and lines below texts, so that lines come together in few paths.
void DiffLayers::write_stayed(const View &view) {
    if (view.part) measure();
    out_.put(opening("g", lines_only("stayed")));
    for (const Shape::Kind kind : {Shape::fill, Shape::stroke, Shape::text}) {
        Stayed stayed(diff_.newer, view, palette_, kind, out_);
        for (uint32_t at = 0; at < diff_.newer.shapes.size(); ++at) {
            if (!has_stayed(at) || !is_in(view, newer_boxes_, at)) continue;
            const Shape shape =
                visible(diff_.newer, diff_.newer.shapes[at], view.frame, kThinnest * view.unit)
                    .shape;
            if (shape.kind == kind) stayed.add(shape);
        }
        stayed.finish();
    }
    out_.put(closing("g"));
}

uint64_t DiffLayers::count_points(const Box &box) {
    measure();
    uint64_t count = 0;
    for (size_t at = 0; at < newer_boxes_.size(); ++at)
        if (overlap(newer_boxes_[at], box)) count += diff_.newer.shapes[at].points + 1;
    return count;
}

void DiffLayers::measure() {
    const auto fill = [](const Scene &scene, std::vector<Box> &boxes) {
        if (!boxes.empty()) return;
        boxes.reserve(scene.shapes.size());
        for (const Shape &shape : scene.shapes) boxes.push_back(scene.box_of(shape));
    };
    fill(diff_.older, older_boxes_);
    fill(diff_.newer, newer_boxes_);
}

// ---- What changed

void DiffLayers::write_changed(const View &view) {
    if (view.part) measure();
    out_.put(opening("g", lines_only("changed")));
    for (uint32_t at = 0; at < diff_.marks.size(); ++at)
        if (diff_.marks[at].is_drawn()) out_.put(mark_text(at, view));
    out_.put(closing("g"));
}

std::string DiffLayers::mark_text(uint32_t at, const View &view) {
    const std::string text = older_text(at, view) + newer_text(at, view);
    if (text.empty()) return {};
    return head_of(diff_.marks[at], !view.part) + text + closing("g");
}

std::string DiffLayers::head_of(const Mark &mark, bool has_title) {
    std::string attributes = attribute("class", class_of(mark));
    const std::string title = has_title ? tooltips_.of(mark) : std::string();
    if (title.empty()) return opening("g", attributes);
    if (mark.block.empty())
        attributes += attribute("data-handle", host::object_name(mark.number)) +
                      attribute("data-kind", tooltips_.kind_of(mark)) +
                      attribute("data-layer", tooltips_.layer_of(mark));
    else
        attributes += attribute("data-block", mark.block);
    std::string lines;
    for (size_t from = 0, to = 0; from <= title.size(); from = to + 1) { // the ends of lines stay
        to = std::min(title.find('\n', from), title.size());
        if (from) lines += '\n';
        lines += escaped(std::string_view(title).substr(from, to - from));
    }
    return opening("g", attributes) + element("title", {}, lines);
}

namespace {

// Of a text, in its own plane, where letters are 1 high.
double guessed_width(const Text &text) {
    constexpr double kLetter = 0.85;
    if (text.width > 0) return text.width;
    const auto letters = std::count_if(text.text.begin(), text.text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    });
    return kLetter * static_cast<double>(letters);
}

// Whether two lines of text can't be read where both are.
bool collide(const Text &a, const Text &b) {
    const Matrix &place = a.place;
    const double area = place.a * place.d - place.b * place.c;
    const Point away{b.place.e - place.e, b.place.f - place.f};
    if (!(std::abs(area) > 0)) return false;
    const double x = (away.x * place.d - away.y * place.c) / area;
    const double y = (away.y * place.a - away.x * place.b) / area;
    return std::abs(y) < 1.2 && std::abs(x) < std::max(guessed_width(a), 1.0);
}

} // namespace

// Of areas the outline, so that what is there now is seen through them. Gaps far out of the
// picture could be millions.
std::string DiffLayers::older_text(uint32_t at, const View &view) {
    const Mark &mark = diff_.marks[at];
    const bool is_ghost = mark.kind == Mark::moved;
    std::string texts;
    PathData lines(view.frame);
    for (const uint32_t place : older_.of(at).shapes) {
        if (mark.is_in_place || !is_in(view, older_boxes_, place)) continue;
        const Shape &shape = diff_.older.shapes[place];
        if (shape.kind == Shape::text)
            texts += struck_text(at, diff_.older.texts[shape.first], view);
        else
            lines.add(diff_.older, shape);
    }
    std::string style = stroke(palette_.older, (is_ghost ? kGhostWidth : kOldWidth) * view.unit);
    if (!lines.is_far())
        style += is_ghost ? gaps(2.5 * view.unit, 2.5 * view.unit)
                          : gaps(6 * view.unit, 3.5 * view.unit);
    return path_of(style, lines) + texts;
}

// Letters have no gaps: a line through them says as much. What a new text would cover stands above.
std::string DiffLayers::struck_text(uint32_t mark, Text text, const View &view) const {
    constexpr double kMiddle = 0.4, kAbove = 1.35, kFar = 100 * Frame::kSide;
    constexpr size_t kMost = 1000; // of a block in very many places nobody reads them
    const auto shapes = newer_.of(mark).shapes;
    for (const uint32_t at : shapes.size() > kMost ? shapes.first(0) : shapes) {
        const Shape &newer = diff_.newer.shapes[at];
        if (newer.kind != Shape::text || !collide(text, diff_.newer.texts[newer.first])) continue;
        text.place = text.place * Matrix{1, 0, 0, 1, 0, kAbove};
        break;
    }
    const std::string letters = text_element(text, palette_.older, view.frame, 0, {});
    const double width = guessed_width(text);
    const double begin = text.anchor == Text::start ? 0
                         : text.anchor == Text::end ? -width
                                                    : -width / 2;
    const Point from = view.frame(text.place * Point{begin, kMiddle});
    const Point to = view.frame(text.place * Point{begin + width, kMiddle});
    for (const double value : {from.x, from.y, to.x, to.y})
        if (!(std::abs(value) < kFar)) return letters;
    return letters +
           path(stroke(palette_.older, kGhostWidth * view.unit), "M" + pair(from) + "L" + pair(to));
}

std::string DiffLayers::newer_text(uint32_t at, const View &view) {
    std::string texts, areas;
    PathData lines(view.frame), area(view.frame);
    const std::string filled = attribute("fill", hex_of(palette_.newer)) +
                               attribute("fill-opacity", 0.35) +
                               stroke(palette_.newer, kOldWidth * view.unit);
    for (const uint32_t place : newer_.of(at).shapes) {
        if (!is_in(view, newer_boxes_, place)) continue;
        const Shape &shape = diff_.newer.shapes[place];
        if (shape.kind == Shape::stroke) lines.add(diff_.newer, shape);
        if (shape.kind == Shape::fill) {
            area.clear();
            area.add(diff_.newer, shape);
            areas += path_of(filled, area);
        }
        if (shape.kind == Shape::text)
            texts += text_element(diff_.newer.texts[shape.first], palette_.newer, view.frame, 0,
                                  stroke(palette_.newer, kStayedWidth * view.unit));
    }
    return areas + path_of(stroke(palette_.newer, kNewWidth * view.unit), lines) + texts;
}

} // namespace picture
