// Layout: how the parts of a file stand in a row, kept as the drawing's DS block.
#pragma once

#include "dxf/reader.hpp"

#include <functional>
#include <string>

namespace dxf {

// Of the parts as the drawing keeps them. `differences`, which may be empty, tell what the file
// that was imported had in their place (dxf/as_imported.hpp).
std::string write_layout(const std::vector<Part> &parts, std::string_view differences = {});

// The differences in a layout; empty where it has none.
std::string_view differences_in(std::string_view layout);

// The layout without them: for a drawing whose objects are no longer those of its last import.
std::string without_differences(std::string_view layout);

// What a layout is played to, in file order.
struct LayoutVisitor {
    std::function<void(std::string_view bytes)> literal;
    std::function<void()> header;
    std::function<void(uint64_t count)> symbols; // the next `count` classes
    std::function<void(uint64_t count)> objects; // the next `count` objects
};

// False when the block is no layout, is damaged, or doesn't use exactly the given numbers of
// classes and objects. The visitor may have seen a part of it by then, never a class or an object
// that isn't there.
bool read_layout(std::string_view block, uint64_t symbols, uint64_t objects,
                 const LayoutVisitor &visitor);

} // namespace dxf
