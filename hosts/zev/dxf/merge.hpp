// Merge: three versions of one drawing brought together object by object, by their keys; only rows
// that differ are read. Fails closed: with one conflict left there is no result.
#pragma once

#include "dxf/manifest.hpp"
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
    std::string name;                              // of the variable
    std::string kind, layer;                       // of the object, of whichever side has it
    std::optional<std::string> base, ours, theirs; // rows, or values; none: not there
    std::string reason; // for people, said: "both changed it", "its layer is gone" ...
};

struct Merge {
    std::vector<MergeConflict> conflicts;
    // What the result has that ours lacked, without what only ours did.
    uint64_t added = 0, modified = 0, removed = 0;
    uint64_t renumbered = 0;                 // objects of theirs under new handles
    bool is_ours = false, is_theirs = false; // the result is that version, key for key

    // The result, if there is no conflict. Keys with tag 0 are of `rows`, whose keys have their
    // object numbers and no tag yet.
    DrawingKey header{}, summary{}, layout{};
    std::vector<DrawingKey> classes, objects;
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
    std::optional<Side> others{};       // what is in conflict besides
    // In a copy of a server's project: brings rows that are not here. May be empty, may throw.
    std::function<void(const Oid &table, const std::vector<DrawingKey> &keys)> fetch_rows{};
};

Merge merge_drawings(const MergeRequest &request);

// Rows under a new tag, then the manifest, with what ours has besides (thumbnail, VBA project,
// reference data), at `drawing`, an absolute path. `ask_tag` as of raise_tag. Nothing else is
// touched when it throws.
struct MergeTarget {
    std::u16string drawing;
    std::string path; // for messages
    std::function<bool(Table *)> ask_tag{};
    std::function<void()> keep_former{}; // before the file is replaced
};
void write_merge(const MergeRequest &request, const Merge &merge, const MergeTarget &target);

} // namespace dxf
