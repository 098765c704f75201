// Everything is short: a page has some thousand elements that differ.
#include "picture/changes/markup.hpp"

#include "picture/svg.hpp"
#include "picture/svg_text.hpp"

namespace picture {

std::string attribute(const char *name, std::string_view value) {
    return " " + std::string(name) + "=\"" + escaped(value) + "\"";
}

std::string attribute(const char *name, double value) {
    std::string number;
    put_number(number, value);
    return attribute(name, std::string_view(number));
}

std::string pair(double x, double y) {
    std::string out;
    put_number(out, x);
    out += ' ';
    put_number(out, y);
    return out;
}

std::string element(const char *name, const std::string &attributes) {
    return "<" + std::string(name) + attributes + "/>\n";
}

std::string element(const char *name, const std::string &attributes, const std::string &content) {
    return "<" + std::string(name) + attributes + ">" + content + "</" + name + ">\n";
}

std::string opening(const char *name, const std::string &attributes) {
    return "<" + std::string(name) + attributes + ">\n";
}

std::string closing(const char *name) { return "</" + std::string(name) + ">\n"; }

std::string stroke(uint32_t rgb, double width) {
    return attribute("stroke", hex_of(rgb)) + attribute("stroke-width", width);
}

std::string path(const std::string &attributes, const std::string &data) {
    std::string out;
    out.reserve(attributes.size() + data.size() + 16);
    return out.append("<path").append(attributes).append(" d=\"").append(data).append("\"/>\n");
}

std::string line_path(const std::string &attributes, const std::string &data) {
    return path(attribute("fill", "none") + attributes, data);
}

} // namespace picture
