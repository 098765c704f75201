// Markup: elements of SVG and their attributes, for pages that are put together piece by piece.
#pragma once

#include "picture/scene.hpp"

#include <string>
#include <string_view>

namespace picture {

// " name=\"value\"", text escaped.
std::string attribute(const char *name, double value);
std::string attribute(const char *name, std::string_view value);
std::string attribute(const char *name, uint32_t rgb) = delete; // a colour goes by hex_of

std::string pair(double x, double y); // "12.5 -3"
inline std::string pair(Point point) { return pair(point.x, point.y); }

// Each on a line of its own; the content is not escaped.
std::string element(const char *name, const std::string &attributes);
std::string element(const char *name, const std::string &attributes, const std::string &content);
std::string opening(const char *name, const std::string &attributes);
std::string closing(const char *name);

// A path by its data, which is taken as it is.
std::string path(const std::string &attributes, const std::string &data);
std::string line_path(const std::string &attributes, const std::string &data); // without an area
std::string stroke(uint32_t rgb, double width);

} // namespace picture
