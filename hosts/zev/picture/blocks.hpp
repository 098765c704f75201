// Blocks: where a drawing's records stand: those of its tables, of each block, of model space and
// of paper space. There are no marks of sections among them; their kinds tell.
#pragma once

#include "dxf/content.hpp"
#include "picture/tables.hpp"

#include <string_view>
#include <vector>

namespace picture {

// Places of records, the last one behind the end.
struct Range {
    size_t first = 0, last = 0;
};

struct Block {
    Range range;
    Vec base;
    bool is_foreign = false; // a drawing elsewhere, or a part of one
};

struct Run {
    Range range;
    enum Space : uint8_t { by_flag, model, paper } space = by_flag; // by_flag: each record tells
};

struct Outline {
    explicit Outline(const dxf::Content &content);

    Tables tables;
    std::vector<Block> blocks;
    std::vector<Run> runs;     // entities outside of blocks
    std::vector<Range> others; // entities of the layouts that aren't active
    Names block_names;

    const Block *block(std::string_view name) const; // null without one

  private:
    void begin_block(const dxf::Content &content, size_t place);
    void end_block(size_t place);
    void add_outside(size_t place);

    Groups groups_;
    bool in_block_ = false;
    size_t block_begin_ = 0;
};

} // namespace picture
