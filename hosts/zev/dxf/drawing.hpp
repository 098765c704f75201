// Drawing: a DXF file into a drawing and its table, and back out of them.
#pragma once

#include "host.hpp"

#include <functional>
#include <string>

namespace dxf {

struct Import {
    Repository *repository;
    std::u16string source;  // the DXF file
    std::string name;       // how messages call it
    std::u16string drawing; // the .dwx file, an absolute path in the work directory
    std::string path;       // the same, relative to it
    Drawing *committed;     // the version of it that HEAD holds, may be null
    const Notify *notify;
    // In a copy of a server's project, else empty. Brings the rows of the drawing that are not
    // here; gives the table a tag from the server, false where it has none to give. Both may throw.
    std::function<void(Drawing *drawing)> fetch_rows{};
    std::function<bool(Table *table)> ask_tag{};
    // Of the drawing's file as it stands, at the last moment before another one takes its place.
    std::function<void()> keep_former{};
};

struct ImportResult {
    uint64_t objects = 0, added = 0, modified = 0, removed = 0, unchanged = 0;
    uint64_t rows = 0, bytes = 0; // stored by this import
    bool written = false;         // false when the drawing already was that file
};

// Reads a file into a new drawing, or into one that exists: objects whose bytes are the same keep
// their keys, the others get new ones. Throws and leaves the drawing as it was when anything
// fails; a file that is no DXF leaves no trace at all.
ImportResult import_drawing(const Import &request);

// The bytes that were imported, to `write` in pieces. `name` is for messages.
void export_drawing(Repository *repository, Drawing *drawing, const std::string &name,
                    const Notify *notify, const std::function<void(std::string_view)> &write);

} // namespace dxf
