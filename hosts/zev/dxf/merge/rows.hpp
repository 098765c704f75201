// Rows of the versions that are merged: read in batches, each one walk over the table, and held.
#pragma once

#include "dxf/rows.hpp"

#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace dxf::merging {

class Rows {
  public:
    using Visit = std::function<void(size_t place, std::string_view row)>;
    // Visits the rows of keys that stand in table order, each once; throws when one is missing.
    using Read = std::function<void(const std::vector<DrawingKey> &keys, const Visit &visit)>;
    explicit Rows(Read read) : read_(std::move(read)) {}

    // Brings the rows of these keys, which may come in any order and more than once; keys of no
    // row, all zero, are passed over.
    void load(std::vector<DrawingKey> keys);
    // A row that was loaded; empty for a key of none.
    std::string_view operator[](const DrawingKey &key) const;
    // Shows rows without holding them.
    void pass(std::vector<DrawingKey> keys,
              const std::function<void(const DrawingKey &, std::string_view row)> &visit) const;

  private:
    struct Batch {
        std::vector<DrawingKey> keys;
        std::vector<std::pair<size_t, size_t>> places; // offset and size
        std::string bytes;
    };
    const Batch *find(const DrawingKey &key, size_t &place) const;

    Read read_;
    std::deque<Batch> batches_;
};

} // namespace dxf::merging
