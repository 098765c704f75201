// Match: which record of a new file is which object of the former version of a drawing, where
// handles don't tell.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace dxf {

// How the records of a file find the objects of the drawing that they are.
enum class Match : uint8_t {
    automatic, // the first of the next three that fits
    handle,    // by handle; equal bytes keep their key
    normal,    // by handle; what is equal in normal form keeps key and bytes
    content,   // by content and neighbours; gets the old handles back
    exact      // as `handle`, and header and classes are held to their bytes, too
};

// One that can be matched; everything is lent.
struct Matchable {
    std::string_view record;
    uint64_t handle = 0;
    uint64_t hash = 0; // of what it says but for its handles
};

// Fills the hashes in, of both lists at once: of the text, where the other list has the same one,
// else of the normal form, which takes longer.
void hash_records(std::vector<Matchable> &olds, std::vector<Matchable> &news);

// How much of two lists is found in both by its content, and how much of that under its handle. The
// hashes must be there.
struct Likeness {
    size_t in_place = 0, common = 0;
    // The program that wrote the newer one has given out all handles anew.
    bool is_renumbered() const { return in_place * 2 < common; }
};
Likeness likeness_of(const std::vector<Matchable> &olds, const std::vector<Matchable> &news);

inline constexpr size_t kNoPartner = static_cast<size_t>(-1);

// For each of `news` the place of its partner in `olds`, both in the order of their files, or
// kNoPartner: those of the same content, then those of the same kind between two neighbours that
// are matched. Nothing of `olds` is given twice.
std::vector<size_t> pair_by_content(const std::vector<Matchable> &olds,
                                    const std::vector<Matchable> &news);

} // namespace dxf
