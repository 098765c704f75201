// Diff layers: what stayed and what changed, in a picture's overview or in an enlarged part of it.
//
// Old lines have gaps and new ones are heavy; nothing that stayed is either, so that a picture can
// be read without colour.
#pragma once

#include "picture/changes/diff_scene.hpp"
#include "picture/changes/palette.hpp"
#include "picture/changes/tooltips.hpp"
#include "picture/svg.hpp"

#include <string>
#include <vector>

namespace picture {

// Text on its way out, in pieces. Whoever puts some has to finish it: both may throw.
class Out {
  public:
    explicit Out(const Write &write) : write_(write) {}
    Out(const Out &) = delete;
    Out &operator=(const Out &) = delete;
    void put(std::string_view text) {
        text_ += text;
        if (text_.size() >= kPiece) finish();
    }
    void finish() {
        if (!text_.empty()) write_(text_);
        text_.clear();
    }

  private:
    static constexpr size_t kPiece = 1 << 16;
    const Write &write_;
    std::string text_;
};

// One look at the drawing: as a whole, or at a part of it.
struct View {
    const Frame &frame;
    double unit = 1;           // of the page, in the frame's units
    const Box *part = nullptr; // null for the whole, which alone has tooltips
};

class DiffLayers {
  public:
    DiffLayers(const DiffScene &diff, Tooltips &tooltips, const Theme &theme, Out &out);

    void write_stayed(const View &view);
    void write_changed(const View &view);
    uint64_t count_points(const Box &part); // that are drawn for it

  private:
    std::string mark_text(uint32_t at, const View &view); // as SVG; empty where none of it is seen
    std::string older_text(uint32_t at, const View &view);
    std::string newer_text(uint32_t at, const View &view);
    std::string struck_text(uint32_t mark, Text text, const View &view) const;
    std::string head_of(const Mark &mark, bool has_title);
    bool has_stayed(uint32_t shape) const;
    void measure();

    const DiffScene &diff_;
    Tooltips &tooltips_;
    const Palette palette_;
    Out &out_;
    const Figures older_, newer_;
    std::vector<Box> older_boxes_, newer_boxes_; // of shapes, once they were needed
};

} // namespace picture
