// Pen: writes shapes into a scene. Numbers that are none or too large, and what exceeds the limit,
// end here: such a shape is left out as a whole, and the caller is told why.
#pragma once

#include "picture/path.hpp"
#include "picture/scene.hpp"

#include <algorithm>
#include <string>

namespace picture {

// What all shapes of an entity have in common.
struct Marks {
    uint32_t object = 0, part = 0;
    Ink ink;
    float weight = 0;
    uint32_t dashes = 0;
};

class Pen {
  public:
    Pen(Scene &scene, uint64_t most_points) : scene_(scene), left_(most_points) {}

    enum Result : uint8_t { done, broken, beyond };
    // `place` turns the path's plane into the drawing's.
    Result stroke(const Path &path, const Matrix &place, const Marks &marks);
    Result fill(const Path &path, const Matrix &place, const Marks &marks);
    Result write(Text text, const Marks &marks);

    // Work of that many points; false, until some is given back, once there was too much of it.
    bool spend(uint64_t points);
    void waste(uint64_t points) { left_ -= std::min(points, left_); } // as much as there is
    bool is_spent() const { return is_spent_; }
    // Takes half of what is left away, so that what comes next leaves enough for the others.
    uint64_t hold_back();
    void give_back(uint64_t points);

  private:
    Result put(Shape::Kind kind, const Path &path, const Matrix &place, const Marks &marks);

    Scene &scene_;
    uint64_t left_;
    bool is_spent_ = false;
};

bool is_sound(Point point); // finite and within kFarthest

} // namespace picture
