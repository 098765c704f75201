// SVG path: shapes of lines and curves as path data, in thousandths of a unit.
//
// What lies far outside of the picture is drawn along the border of a field around it, so that a
// small part of a large drawing needs no numbers that a renderer could not hold.
#pragma once

#include "picture/svg.hpp"

namespace picture {

class PathData {
  public:
    // Places are apart by `grid` units or a thousandth; steps between those that aren't are none.
    explicit PathData(const Frame &frame, double grid = 0);
    // Behind what is there.
    void add(const Scene &scene, const Shape &shape);
    const std::string &text() const { return text_; }
    bool is_far() const { return is_far_; } // some of it lies outside of the field
    void clear();

  private:
    struct Place {
        int64_t x, y;
        bool operator==(const Place &) const = default;
    };
    Place place(Point point);
    void move(Point to);
    void line(Point to);
    void curve(Point first, Point second, Point to, int depth);
    void close();
    void end();
    void begin();
    bool put(char letter);
    void put_to(Place from, Place to, bool is_apart);
    void draw_to(Place to);

    const Frame &frame_;
    const int64_t grid_; // thousandths
    std::string text_;
    Point at_{}, first_{};  // where the step begins, and the subpath, in units
    Place now_{0, 0};       // what the text has come to
    Place start_{0, 0};     // of the subpath
    bool is_begun_ = false; // its first point is written
    bool is_drawn_ = true;  // and something behind it
    bool is_far_ = false;
    char letter_ = 0;
};

// Thousandths as a number; a blank in front where it would run into the former one.
void put_thousandths(std::string &out, int64_t value, bool is_apart);

} // namespace picture
