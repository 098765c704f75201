// Numbers are cut at three decimals: a picture has no finer ones.
#include "picture/changes/cloud.hpp"

#include "picture/changes/markup.hpp"
#include "picture/svg.hpp"
#include "picture/svg_text.hpp"

#include <algorithm>
#include <cmath>

namespace picture {

namespace {

void put(std::string &out, double value) {
    if (!out.empty() && out.back() >= '0' && out.back() <= '9') out += ' ';
    put_number(out, value);
}

void put(std::string &out, Point point) {
    put(out, point.x);
    put(out, point.y);
}

// Bulges along one side, the end of which comes last.
void put_side(std::string &out, Point from, Point to, double arc) {
    constexpr double kMost = 200;
    const double length = std::hypot(to.x - from.x, to.y - from.y);
    const double count = std::clamp(std::round(length / arc), 1.0, kMost);
    const double radius = length / count * 0.56; // a little more than half a circle is too round
    for (double i = 1; i <= count; ++i) {
        out += 'A';
        put(out, {radius, radius});
        out += " 0 0 1";
        put(out, {from.x + (to.x - from.x) * i / count, from.y + (to.y - from.y) * i / count});
    }
}

} // namespace

std::string cloud_path(const Box &box, double arc) {
    const double cut = std::min({arc * 0.5, box.width() / 3, box.height() / 3});
    const Point low = box.low, high = box.high;
    const Point corners[] = {{low.x + cut, low.y},   {high.x - cut, low.y},  {high.x, low.y + cut},
                             {high.x, high.y - cut}, {high.x - cut, high.y}, {low.x + cut, high.y},
                             {low.x, high.y - cut},  {low.x, low.y + cut},   {low.x + cut, low.y}};
    std::string path = "M";
    put(path, corners[0]);
    for (size_t i = 0; i + 1 < std::size(corners); ++i)
        put_side(path, corners[i], corners[i + 1], arc);
    return path + "Z";
}

std::string arrow_path(Point from, Point to, double head) {
    const double length = std::hypot(to.x - from.x, to.y - from.y);
    const Point along{(to.x - from.x) / length, (to.y - from.y) / length};
    const auto barb = [&](double side) {
        return Point{to.x - head * (along.x - side * along.y * 0.45),
                     to.y - head * (along.y + side * along.x * 0.45)};
    };
    std::string path = "M";
    put(path, from);
    path += 'L';
    put(path, to);
    path += 'M';
    put(path, barb(1));
    path += 'L';
    put(path, to);
    path += 'L';
    put(path, barb(-1));
    return path;
}

std::string numbered_disc(Point middle, double radius, uint64_t number, uint32_t fill,
                          uint32_t ink) {
    const double size = radius * (number < 100 ? 1.25 : 1);
    const std::string disc = attribute("cx", middle.x) + attribute("cy", middle.y) +
                             attribute("r", radius) + attribute("fill", hex_of(fill));
    const std::string text = attribute("x", middle.x) + attribute("y", middle.y + size * 0.36) +
                             attribute("font-size", size) + attribute("text-anchor", "middle") +
                             attribute("font-weight", "bold") + attribute("fill", hex_of(ink));
    return element("circle", disc) + element("text", text, std::to_string(number));
}

} // namespace picture
