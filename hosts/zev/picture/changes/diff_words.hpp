// Diff words: what the page of a diff tells beside what it draws, in the user's language.
#pragma once

#include "picture/changes/diff_svg.hpp"
#include "picture/changes/regions.hpp"
#include "picture/changes/tooltips.hpp"

#include <map>
#include <string>
#include <vector>

namespace picture {

// By kinds: "1 LAYER, 2 header". Records without a picture, and what is no record.
std::map<std::string, uint64_t> unseen_changes(const DiffScene &diff, const dxf::Content &older,
                                               const dxf::Content &newer);

DiffCounts count_marks(const DiffScene &diff);

// Sentences about the whole, none of them for what is as expected.
struct Notes {
    const DiffScene &diff;
    const DiffCounts &counts;
    const Regions &regions;
    const std::map<std::string, uint64_t> &unseen;
};
std::vector<std::string> notes_of(const Notes &notes);

// What changed in one region, a line each, the last tells how much is left.
std::vector<std::string> caption_of(const Region &region, const DiffScene &diff,
                                    const Tooltips &tooltips, size_t most);

// At most so many characters, the last ones dots if there were more.
std::string fitted(const std::string &text, size_t most);

} // namespace picture
