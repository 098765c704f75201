// Text diff: which lines of a text are not the same in two versions of it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace host {

// Lines, each with its end, lent from the text. The last one may have none.
std::vector<std::string_view> lines_of(std::string_view text);

// So many lines from there on, counted from 0, in the place of so many others.
struct LineChange {
    size_t from, from_count, to, to_count;
};

// In their order; lines between them are the same. Of texts that are very unlike the shortest way
// isn't searched for: what is between the lines that they share at either end is one change.
std::vector<LineChange> compare_lines(const std::vector<std::string_view> &from,
                                      const std::vector<std::string_view> &to);

// Changes that lie close together, with lines of their surroundings.
struct Hunk {
    size_t from, from_count, to, to_count; // counted from 0
    std::vector<std::string> lines;        // without ends, behind ' ', '-' or '+'
};
std::vector<Hunk> hunks_of(std::string_view from, std::string_view to);

} // namespace host
