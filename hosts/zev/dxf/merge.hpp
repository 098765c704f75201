// Merge: three versions of one drawing brought together object by object, by their keys; only rows
// that differ are read. Fails closed: with one conflict left there is no result.
#pragma once

#include "dxf/content.hpp"
#include "dxf/manifest.hpp"
#include "dxf/merge/besides.hpp"
#include "dxf/rows.hpp"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace dxf {

enum class Side : uint8_t { ours, theirs };

struct MergeConflict {
    // what: an object by its number; a variable of the header by its name; the classes; the layout
    enum What : uint8_t { object, variable, classes, layout } what = object;
    uint64_t number = 0;                           // of the object
    std::string name;                              // of the variable, or the class
    std::string kind, layer;                       // of the object, of whichever side has it
    std::optional<std::string> base, ours, theirs; // rows, or values; none: not there
    std::string reason; // for people, said: "both changed it", "its layer is gone" ...
};

struct Merge {
    std::vector<MergeConflict> conflicts;
    // What the result has that ours lacked, without what only ours did; with conflicts what could
    // be taken besides.
    uint64_t added = 0, modified = 0, removed = 0;
    uint64_t renumbered = 0;                 // objects of theirs under new handles
    bool is_ours = false, is_theirs = false; // the result is that version, key for key

    // The result, if there is no conflict. Keys with tag 0 are of `rows`, whose keys have their
    // object numbers and no tag yet.
    DrawingKey header{}, summary{}, layout{};
    std::vector<DrawingKey> classes, objects;
    merging::Besides besides; // lends from the manifests
    struct NewRow {
        uint64_t object;
        std::string value;
    };
    std::vector<NewRow> rows;
};

struct MergeRequest {
    Repository *repository;
    const Manifest *base, *ours, *theirs; // of one table, else this throws
    std::string name;                     // for messages
    const Notify *notify;
    std::map<uint64_t, Side> decided{}; // objects in conflict, by number
    // Variables of the header, the classes and the layout; whatever else is in conflict.
    std::optional<Side> header{}, classes{}, layout{}, others{};
    // In a copy of a server's project: brings rows that are not here, before each walk over the
    // table: one more for objects without handle, or anonymous blocks, that both sides added, and
    // for drawings of older versions. May be empty, may throw.
    std::function<void(const Oid &table, const std::vector<DrawingKey> &keys)> fetch_rows{};
};

Merge merge_drawings(const MergeRequest &request);

// Rows under a new tag, then the manifest, at `drawing`, an absolute path. `ask_tag` as of
// raise_tag. Nothing else is touched when it throws: the rows that were written by then are named
// by nobody.
struct MergeTarget {
    std::u16string drawing;
    std::string path; // for messages
    std::function<bool(Table *)> ask_tag{};
    std::function<void()> keep_former{}; // before the file is replaced
    // A small picture of the result, PNG or nothing; may be empty, must not throw.
    std::function<std::string(const Content &content)> thumbnail{};
};
void write_merge(const MergeRequest &request, const Merge &merge, const MergeTarget &target);

} // namespace dxf
