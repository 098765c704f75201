// MTEXT: paragraphs, broken into lines by how wide their words are likely to be, each line in runs
// of one format.
#include "picture/kinds.hpp"

#include "picture/paragraphs.hpp"
#include "picture/widths.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace picture {

namespace {

constexpr double kDegree = std::numbers::pi / 180;
constexpr size_t kLongest = 1 << 16;  // bytes of a text
constexpr double kLineStep = 5.0 / 3; // from line to line, in heights of a capital
constexpr double kDescent = 0.32;     // of letters below the baseline
constexpr double kTolerance = 1.01;   // that a line may be wider than it should

struct Run {
    std::string text;
    uint32_t format;
    double width; // drawing's units
};

struct Line {
    std::vector<Run> runs;
    double width = 0, height = 0;
    uint32_t format = 0; // that tells how it is aligned
};

class Lines {
  public:
    Lines(const MText &text, double width) : text_(text), most_(width * kTolerance) {}

    std::vector<Line> run() {
        lines_.emplace_back();
        for (const Word &word : text_.words) {
            const Format &format = text_.formats[word.format];
            if (word.is_end()) {
                end_line(word.format);
                continue;
            }
            const double width = width_of(word.text) * format.height * std::abs(format.width);
            if (most_ > 0 && !word.is_blank() && !lines_.back().runs.empty() &&
                lines_.back().width + width > most_)
                end_line(word.format);
            put(word, width);
        }
        end_line(0);
        lines_.pop_back();
        return std::move(lines_);
    }

  private:
    void put(const Word &word, double width) {
        Line &line = lines_.back();
        const bool is_new = line.runs.empty() || line.runs.back().format != word.format;
        if (is_new) line.runs.push_back({"", word.format, 0});
        line.runs.back().text += word.text;
        line.runs.back().width += width;
        line.width += width;
    }

    // Blanks at its end are none of a line.
    void end_line(uint32_t format) {
        Line &line = lines_.back();
        while (!line.runs.empty() && trim(line)) {
        }
        line.format = line.runs.empty() ? format : line.runs.front().format;
        for (const Run &run : line.runs)
            line.height = std::max(line.height, text_.formats[run.format].height);
        if (line.runs.empty()) line.height = text_.formats[format].height;
        lines_.emplace_back();
    }

    // False when the last run ends in a letter.
    bool trim(Line &line) {
        Run &run = line.runs.back();
        if (!run.text.empty() && run.text.back() != ' ') return false;
        if (run.text.empty()) return line.runs.pop_back(), true;
        const Format &format = text_.formats[run.format];
        const double blank = width_of(" ") * format.height * std::abs(format.width);
        run.text.pop_back();
        run.width -= blank, line.width -= blank;
        return true;
    }

    const MText &text_;
    const double most_;
    std::vector<Line> lines_;
};

// The text's plane, whose origin is the point that it is placed by, as the drawing sees it.
Matrix plane_of(const Groups &groups, const Space &space) {
    const Vec place = groups.vec(10);
    const Vec normal = groups.has(230) ? unit(groups.vec(210)) : Vec{0, 0, 1};
    const double angle = groups.number(50) * kDegree;
    Vec along = ocs(normal) * Vec{std::cos(angle), std::sin(angle), 0};
    if (groups.has(11)) along = unit(groups.vec(11));
    return (space * Space{along, cross(normal, along), normal, place}).plane(0);
}

struct Layout {
    const MText &text;
    double width;    // of the box
    double share;    // of it to the left of the point: 0, a half, 1
    double step;     // of line spacing, in heights
    double at_least; // height of a line; below zero: of each line
    Matrix plane;
};

double share_of(Format::Align align, double usual) {
    return align == Format::left     ? 0
           : align == Format::middle ? 0.5
           : align == Format::right  ? 1
                                     : usual;
}

void put_run(Drawer &drawer, const Entity &entity, const Layout &layout, const Run &run, Point at,
             bool is_alone, double share) {
    const Format &format = layout.text.formats[run.format];
    Text text;
    text.text = run.text, text.font = format.font, text.ink = format.ink;
    text.is_bold = format.is_bold, text.is_italic = format.is_italic;
    text.is_underlined = format.is_underlined;
    const double wide = format.height * std::abs(format.width);
    if (is_alone)
        text.anchor = share == 0 ? Text::start : share == 1 ? Text::end : Text::middle;
    else
        text.width = run.width / wide;
    const double slant = std::tan(std::clamp(format.oblique, -85.0, 85.0) * kDegree);
    text.place = layout.plane * Matrix{wide, 0, slant * format.height, format.height, at.x, at.y};
    drawer.write(entity, std::move(text));
}

void put_line(Drawer &drawer, const Entity &entity, const Layout &layout, const Line &line,
              double baseline) {
    const double share = share_of(layout.text.formats[line.format].align, layout.share);
    const double edge = (share - layout.share) * layout.width;
    const bool is_alone = line.runs.size() == 1;
    double x = is_alone ? edge : edge - share * line.width;
    for (const Run &run : line.runs) {
        const bool is_seen = run.text.find_first_not_of(' ') != run.text.npos;
        if (is_seen) put_run(drawer, entity, layout, run, {x, baseline}, is_alone, share);
        x += run.width;
    }
}

std::string text_of(const Groups &groups) {
    std::string bytes;
    for (const auto &[code, value] : groups.all())
        if (code == 3 || code == 1) bytes += value;
    return bytes;
}

} // namespace

Format format_of(const TextStyle &style, double height) {
    Format format;
    format.height = height;
    format.width = style.width, format.oblique = style.oblique;
    format.font = style.font, format.is_bold = style.is_bold, format.is_italic = style.is_italic;
    return format;
}

void write_paragraphs(Drawer &drawer, const Entity &entity, const Paragraphs &given) {
    std::string bytes = given.bytes;
    if (bytes.size() > kLongest) {
        bytes.resize(kLongest);
        drawer.leave_out(entity.marks.part, reason::kBeyond);
    }
    drawer.pen().spend(bytes.size() / 2); // its codes cost, whatever they show
    const MText text = read_mtext(drawer.encoding().text(bytes), given.format);
    const double height = text.formats.front().height, width = given.width;
    if (!(height > 0)) return;
    const std::vector<Line> lines = Lines(text, width).run();
    const int point = std::clamp(given.point, 1, 9) - 1;
    Layout layout{text, width, (point % 3) * 0.5, kLineStep * given.spacing, height, given.plane};
    std::vector<double> baselines;
    double y = 0;
    for (const Line &line : lines) {
        const double tall = given.is_exact ? height : line.height;
        y -= baselines.empty() ? line.height : layout.step * tall;
        baselines.push_back(y);
        if (!(width > 0)) layout.width = std::max(layout.width, line.width);
    }
    const double shift = point / 3 == 0 ? 0 : point / 3 == 1 ? -y / 2 : -y + kDescent * height;
    for (size_t i = 0; i < lines.size(); ++i)
        put_line(drawer, entity, layout, lines[i], baselines[i] + shift);
}

void draw_mtext(Drawer &drawer, const Entity &entity) {
    const Groups &groups = drawer.groups;
    write_paragraphs(
        drawer, entity,
        {.bytes = text_of(groups),
         .format = format_of(drawer.outline().tables.style(groups.name(7)), groups.number(40, 1)),
         .width = groups.number(41),
         .point = groups.integer(71, 1),
         .spacing = groups.number(44, 1),
         .is_exact = groups.integer(73, 1) == 2,
         .plane = plane_of(groups, entity.stand.space)});
}

} // namespace picture
