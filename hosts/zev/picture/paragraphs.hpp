// Paragraphs: texts of several lines with their codes, as MTEXT and notes of leaders have them.
#pragma once

#include "picture/kinds.hpp"
#include "picture/text_codes.hpp"

#include <string>

namespace picture {

struct Paragraphs {
    std::string bytes; // as the drawing has them
    Format format;     // that they begin with
    double width = 0;  // of the box, 0 for none
    int point = 1;     // of the box that is at the origin, 1 to 9, row by row from the top
    double spacing = 1;
    bool is_exact = false; // lines are as far apart whatever stands in them
    Matrix plane;          // into the drawing's
};

Format format_of(const TextStyle &style, double height);
void write_paragraphs(Drawer &drawer, const Entity &entity, const Paragraphs &given);

} // namespace picture
