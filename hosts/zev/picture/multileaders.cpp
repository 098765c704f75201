// MULTILEADER: a note with lines that point at things. What it looks like stands in its context, a
// tree of groups in braces; what stands behind the context tells which of that is shown.
#include "picture/paragraphs.hpp"

#include "picture/splines.hpp"

#include <algorithm>
#include <cmath>

namespace picture {

namespace {

// Lines that end at one place, from where a short one goes on to the note.
struct Branch {
    std::vector<std::vector<Vec>> lines; // each begins at its arrow
    Vec end, along;
    double length = 0;
};

enum Content { kBlock = 1, kWords = 2 };
enum LineType { kNoLines, kStraight, kCurved };

struct Note {
    std::vector<Branch> branches;
    std::string_view words;
    Vec place, along{1, 0, 0}, normal{0, 0, 1}; // of the words
    Vec block_place, block_scale{1, 1, 1};
    double block_turn = 0; // radians
    double height = 0, width = 0, spacing = 1, arrow = 0;
    int align = 1; // left, middle, right
    uint64_t style = 0, arrow_block = 0, block = 0;
    int line_colour = 0, words_colour = 0;
    bool is_exact = false, has_context = false, has_along = false;
    int line_type = kStraight, content = 0;
};

// Its first byte says of what kind a colour is: a number of the table, or red, green and blue.
// Others are the entity's.
Ink ink_of(int colour, Ink otherwise) {
    const auto value = static_cast<uint32_t>(colour);
    const uint32_t kind = value >> 24, number = value & 0xFFFFFF;
    if (kind == 0xC2) return {Ink::kTrue | number};
    return kind == 0xC3 && number > 0 && number < 256 ? Ink{number} : otherwise;
}

void take(Vec &point, int code, int first, double value) {
    if (code == first) point = {value, 0, 0};
    if (code == first + 10) point.y = value;
    if (code == first + 20) point.z = value;
}

// Groups in their order. A brace's code tells what it opens or ends.
class Reader {
  public:
    Note run(const Groups &groups) {
        for (const Group &group : groups.all()) {
            const std::string_view value = trimmed(group.value);
            if (!braced(group.code, value)) group_in(group.code, group.value);
        }
        return std::move(note_);
    }

  private:
    enum Room : uint8_t { outside, context, branch, line } room_ = outside;

    bool braced(int code, std::string_view value) {
        if (code == 300 && value == "CONTEXT_DATA{") {
            room_ = context;
            note_.has_context = true;
        } else if (code == 302 && value == "LEADER{") {
            room_ = branch;
            note_.branches.emplace_back();
        } else if (code == 304 && room_ == branch && value == "LEADER_LINE{") {
            room_ = line;
            note_.branches.back().lines.emplace_back();
        } else if (code == 305 && room_ == line) {
            room_ = branch;
        } else if (code == 303 && room_ == branch) {
            room_ = context;
        } else if (code == 301 && room_ == context) {
            room_ = outside;
        } else {
            return false;
        }
        return true;
    }

    void group_in(int code, std::string_view value) {
        if (room_ == outside) return in_note(code, value);
        if (room_ == context) return in_context(code, value);
        Branch &own = note_.branches.back();
        const double number = number_of(value);
        if (room_ == line) {
            if (code == 10) own.lines.back().emplace_back();
            if (!own.lines.back().empty()) take(own.lines.back().back(), code, 10, number);
            return;
        }
        take(own.end, code, 10, number);
        take(own.along, code, 11, number);
        if (code == 40) own.length = number;
    }

    void in_context(int code, std::string_view value) {
        const double number = number_of(value);
        take(note_.normal, code, 11, number);
        take(note_.place, code, 12, number);
        take(note_.along, code, 13, number);
        take(note_.block_place, code, 15, number);
        take(note_.block_scale, code, 16, number);
        if (code == 41) note_.height = number;
        if (code == 43) note_.width = number;
        if (code == 45) note_.spacing = number;
        if (code == 46) note_.block_turn = number;
        if (code == 90) note_.words_colour = integer_of(value);
        if (code == 140) note_.arrow = number;
        if (code == 170) note_.is_exact = integer_of(value) == 2;
        if (code == 171) note_.align = integer_of(value, 1);
        if (code == 304) note_.words = value;
        if (code == 340) note_.style = handle_of(value);
        if (code == 341) note_.block = handle_of(value);
    }

    void in_note(int code, std::string_view value) {
        if (code == 91) note_.line_colour = integer_of(value);
        if (code == 170) note_.line_type = integer_of(value, kStraight);
        if (code == 172) note_.content = integer_of(value);
        if (code == 291) note_.has_along = integer_of(value) != 0;
        if (code == 342) note_.arrow_block = handle_of(value);
    }

    Note note_;
};

// A curve goes on to the note, a straight line has a corner where its branch ends.
void put_line(Drawer &drawer, const Entity &entity, const Note &note, const Branch &branch,
              const std::vector<Vec> &line) {
    std::vector<Vec> vertices = line;
    vertices.push_back(branch.end);
    if (note.has_along && branch.length > 0) {
        const Vec last = branch.end + branch.along * branch.length;
        note.line_type == kCurved ? void(vertices.back() = last) : vertices.push_back(last);
    }
    Spline spline;
    for (const Vec vertex : vertices) spline.fit.push_back(entity.stand.space.flat(vertex));
    Path &path = drawer.path;
    path.clear();
    if (note.line_type == kCurved) {
        put_spline(path, spline);
    } else {
        for (const Point point : spline.fit) path.reach(point);
    }
    drawer.stroke(entity, path, {});
    if (!line.empty())
        draw_arrow(drawer, entity, note.arrow, note.arrow_block, vertices[0], vertices[1]);
}

void draw_words(Drawer &drawer, const Entity &entity, const Note &note) {
    const Vec along = unit(note.along), normal = unit(note.normal);
    const Space plane{along, cross(normal, along), normal, note.place};
    write_paragraphs(
        drawer, entity,
        {.bytes = std::string(note.words),
         .format = format_of(drawer.outline().tables.style_of(note.style), note.height),
         .width = note.width,
         .point = std::clamp(note.align, 1, 3),
         .spacing = note.spacing,
         .is_exact = note.is_exact,
         .plane = (entity.stand.space * plane).plane(0)});
}

void draw_note_block(Drawer &drawer, const Entity &entity, const Note &note) {
    const std::string_view name = drawer.outline().tables.block_of(note.block);
    if (!drawer.outline().block(name)) return;
    const double c = std::cos(note.block_turn), s = std::sin(note.block_turn);
    const Vec scale = note.block_scale;
    drawer.draw_block(name, entity,
                      {{c * scale.x, s * scale.x, 0},
                       {-s * scale.y, c * scale.y, 0},
                       {0, 0, scale.z},
                       note.block_place});
}

} // namespace

void draw_multileader(Drawer &drawer, const Entity &entity) {
    const Note note = Reader().run(drawer.groups);
    // The attributes of a block are not among what is drawn.
    if (!note.has_context || note.content == kBlock)
        drawer.leave_out(entity.marks.part, drawer.groups.kind());
    Entity lines = entity, words = entity;
    lines.marks.ink = lines.look.ink = ink_of(note.line_colour, entity.marks.ink);
    words.marks.ink = words.look.ink = ink_of(note.words_colour, entity.marks.ink);
    if (note.line_type != kNoLines)
        for (const Branch &branch : note.branches)
            for (const std::vector<Vec> &line : branch.lines)
                put_line(drawer, lines, note, branch, line);
    if (note.content == kWords) draw_words(drawer, words, note);
    if (note.content == kBlock) draw_note_block(drawer, entity, note);
}

} // namespace picture
