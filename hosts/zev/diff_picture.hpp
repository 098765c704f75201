// Diff picture: what differs between two versions of a drawing, as a picture in a file.
#pragma once

#include "verb.hpp"

namespace host {

struct DiffPicture {
    std::string path;     // of the drawing
    std::string from, to; // revisions; an empty `from` is HEAD, an empty `to` the work file
    std::string file;     // SVG, PNG or PDF by its suffix; - is SVG on stdout
    uint64_t size = 0;    // pixels of a PNG's longer side, 0 where none were asked for
    bool is_dark = false;
    bool is_paper = false;  // else where only paper space shows changes
    bool is_forced = false; // what the file displaces goes to the trash without a question
};

// A version that hasn't got the drawing is as one without objects; throws where both haven't.
void draw_diff(Host &host, const WorkingCopy &copy, const DiffPicture &request);

} // namespace host
