// File diff: what is not the same in two versions of a file that is no drawing, by lines.
#pragma once

#include "verb.hpp"

namespace host {

struct LineCounts {
    uint64_t added = 0, removed = 0;
};

struct FileVersions {
    std::string path;
    std::string from, to; // revisions; an empty `to` is the work file
    bool only_counts = false;
};

// Prints it. A version that hasn't got the file is as one without lines; throws where both haven't.
LineCounts diff_file(const Host &host, const WorkingCopy &copy, const FileVersions &versions);

} // namespace host
