// Meshes: polylines whose vertices are a net of rows and columns, or corners of faces.
#include "picture/kinds.hpp"

#include <cstdlib>

namespace picture {

namespace {

constexpr int kPoint = 64, kFace = 128, kControl = 16; // flags of a vertex

// An edge for each pair of neighbours in one direction; `step` leads from one to the next.
void put_edges(Path &path, const std::vector<Point> &points, size_t first, size_t step,
               size_t count, bool is_closed) {
    for (size_t i = 0; i < count; ++i) {
        const Point point = points[first + i * step];
        i ? path.line(point) : path.move(point);
    }
    if (is_closed && count > 2) path.close();
}

void put_face(Path &path, const Groups &groups, const std::vector<Point> &points) {
    int corners[4], count = 0;
    for (int code = 71; code <= 74; ++code)
        if (const int corner = groups.integer(code)) corners[count++] = corner;
    for (int i = 0; i < count; ++i) {
        const auto from = size_t(std::abs(int64_t(corners[i])));
        const auto to = size_t(std::abs(int64_t(corners[(i + 1) % count])));
        const bool is_hidden = corners[i] < 0;
        if (is_hidden || from > points.size() || to > points.size()) continue;
        path.move(points[from - 1]);
        path.line(points[to - 1]);
    }
}

} // namespace

void draw_mesh(Drawer &drawer, const Entity &entity) {
    constexpr int kClosedRows = 1, kClosedColumns = 32, kSmooth = 4;
    const int flags = drawer.groups.integer(70);
    const bool is_smooth = flags & kSmooth;
    const int rows = drawer.groups.integer(is_smooth ? 73 : 71);
    const int columns = drawer.groups.integer(is_smooth ? 74 : 72);
    std::vector<Point> points;
    for (size_t place = entity.range.first + 1; place < entity.range.last; ++place) {
        drawer.groups.read(drawer.record(place));
        if (drawer.groups.kind() != "VERTEX" || drawer.groups.integer(70) & kControl) continue;
        points.push_back(entity.stand.space.flat(drawer.groups.vec(10)));
    }
    if (rows < 1 || columns < 1 || uint64_t(rows) * uint64_t(columns) > points.size())
        return drawer.leave_out(entity.marks.part, "POLYLINE");
    const auto m = size_t(rows), n = size_t(columns);
    drawer.path.clear();
    for (size_t row = 0; row < m; ++row)
        put_edges(drawer.path, points, row * n, 1, n, flags & kClosedColumns);
    for (size_t column = 0; column < n; ++column)
        put_edges(drawer.path, points, column, n, m, flags & kClosedRows);
    drawer.stroke(entity, drawer.path, {});
}

void draw_polyface(Drawer &drawer, const Entity &entity) {
    std::vector<Point> points;
    drawer.path.clear();
    for (size_t place = entity.range.first + 1; place < entity.range.last; ++place) {
        drawer.groups.read(drawer.record(place));
        if (drawer.groups.kind() != "VERTEX") continue;
        const int flags = drawer.groups.integer(70);
        if (flags & kPoint)
            points.push_back(entity.stand.space.flat(drawer.groups.vec(10)));
        else if (flags & kFace)
            put_face(drawer.path, drawer.groups, points);
    }
    drawer.stroke(entity, drawer.path, {});
}

} // namespace picture
