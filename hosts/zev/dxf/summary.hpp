// Summary: what is told of a drawing without its rows, kept as its summary block.
#pragma once

#include "dxf/reader.hpp"
#include "host.hpp"

#include <map>
#include <optional>

namespace dxf {

// One JSON object: "objects", their number; "kinds" and "layers", objects by name; and, where the
// header has them, "title" and "extents", {"min": [x, y, z], "max": ...}.
host::OwnedJson summarize(const Document &document);

// The counts of a summary, so that they can be brought forward by single records.
struct Tally {
    int64_t objects = 0;
    std::map<std::u16string, int64_t> kinds, layers;
    void add(std::string_view kind, std::string_view layer, int64_t count);
};
// None if the block is no whole summary.
std::optional<Tally> tally_in(std::string_view summary);
// The same as of a document with such records, and with that header.
host::OwnedJson summarize(const Tally &tally, const Document &header);
std::string summary_text(const Json *summary); // in UTF-8, as it is stored

// What the header, the layout, the classes and the objects of the drawing come to, as "digest".
// Drawings of older versions have none.
void put_digest(Json *summary, const DrawingDigest &digest);
std::optional<DrawingDigest> digest_in(std::string_view summary);

inline bool same(const DrawingDigest &a, const DrawingDigest &b) {
    return a.low == b.low && a.high == b.high;
}

} // namespace dxf
