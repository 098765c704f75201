// Clusters: things of a plane grouped by nearness, over a grid, so that the time is that of drawing
// their outlines coarsely.
#pragma once

#include "picture/scene.hpp"

#include <vector>

namespace picture {

class Clusters {
  public:
    static constexpr double kCells = 96; // along the longer side

    // Of so many things in a box.
    Clusters(const Box &box, size_t things);
    void add(uint32_t thing, Point from, Point to);              // a line of its outline
    void add(uint32_t thing, const Scene &scene, const Shape &); // all of them
    void join(uint32_t one, uint32_t other);

    // For each thing the number of its group, from 0 on, in the order of the things; kNowhere for
    // those without an outline. In a group are things that have lines at most `reach` cells apart.
    static constexpr uint32_t kNowhere = UINT32_MAX;
    std::vector<uint32_t> groups(int reach) const;

  private:
    struct Sets {
        std::vector<uint32_t> up;
        uint32_t root(uint32_t thing);
        void join(uint32_t one, uint32_t other);
    };
    void touch(uint32_t thing, int x, int y);
    void reach_from(Sets &sets, int x, int y, int reach) const;

    Point low_;
    double cell_;
    int columns_, rows_;
    std::vector<uint32_t> owners_; // of cells: a thing, or kNowhere
    std::vector<bool> is_seen_;    // things with cells
    Sets sets_;
};

} // namespace picture
