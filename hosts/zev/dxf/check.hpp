// Check: whether the rows of a drawing are those that were imported, by the digests of its
// versions.
#pragma once

#include "dxf/manifest.hpp"

#include <array>
#include <string>

namespace dxf {

// A key that one of two versions has, and the other hasn't.
struct OtherKey {
    DrawingKey key;
    bool is_newer;
};

// Keys of all blocks but objects.
std::vector<OtherKey> other_blocks(const Manifest &from, const Manifest &to);

// Two versions differ in their digests by the rows in which they differ.
class DigestCheck {
  public:
    DigestCheck(const Manifest &from, const Manifest &to);
    void take(const OtherKey &key, std::string_view row);
    // Once all rows that differ were taken. Older drawings have no digest, and nothing is told.
    bool is_mixed() const;

  private:
    std::array<DrawingKey, 2> summaries_;
    std::array<DrawingDigest, 2> sums_{};
    std::array<std::optional<DrawingDigest>, 2> imported_;
};

// The same for versions of which nothing else is to be read. An older one that is null, or kept in
// another table, counts as empty. False also when rows are missing or the table is.
bool is_mixed(Repository *repository, const Manifest *from, const Manifest &to,
              const Notify *notify);

} // namespace dxf
