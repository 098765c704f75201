// Drawing: a DXF file into a drawing and its table, and back out of them.
#pragma once

#include "dxf/content.hpp"
#include "dxf/match.hpp"
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
    Match match = Match::automatic;
    // A small picture of the file, PNG or nothing, of a drawing that changes. Called on a thread
    // of its own; must not throw.
    std::function<std::string(const Document &document)> thumbnail{};
};

struct ImportResult {
    uint64_t objects = 0, added = 0, modified = 0, removed = 0, unchanged = 0;
    Match match =
        Match::exact;  // the policy that was taken; exact where there was no version before
    uint64_t kept = 0; // of the unchanged ones those whose former bytes are kept
    struct Changes {
        uint64_t added = 0, modified = 0, removed = 0;
    } drawn; // of the changed ones those that are drawn, which tables and dictionaries are not
    uint64_t rows = 0, bytes = 0; // stored by this import
    bool written = false;         // false when the drawing already was that file
};

// Reads a file into a new drawing, or into one that exists: objects that are the same by the policy
// keep keys and bytes, the others get new ones. A file that differs from the last import in what a
// program marks each saving with, and in nothing else, is not taken for a change. Throws and leaves
// the drawing as it was when anything fails; a file that is no DXF leaves no trace at all.
ImportResult import_drawing(const Import &request);

// The bytes of the version, or those of the last import, to `write` in pieces. `name` is for
// messages.
void export_drawing(Repository *repository, Drawing *drawing, const std::string &name,
                    const Notify *notify, const std::function<void(std::string_view)> &write,
                    Form form = Form::version);

} // namespace dxf
