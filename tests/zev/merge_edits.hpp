// Edits of DXF texts by chance: what two people may do to one sheet.
#pragma once

#include "dxf/merge/references.hpp"
#include "dxf/reader.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace merge_test {

class Random {
  public:
    explicit Random(uint64_t seed) : state_(seed) {}
    uint64_t below(uint64_t bound) {
        uint64_t z = state_ += 0x9E3779B97F4A7C15;
        z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9;
        z = (z ^ z >> 27) * 0x94D049BB133111EB;
        return (z ^ z >> 31) % bound;
    }

  private:
    uint64_t state_;
};

// A sheet cut into records, so that they can be changed and put together again.
class Sheet {
  public:
    explicit Sheet(const std::string &text);
    std::string text() const;

    // One edit: an entity moved, deleted, copied under a new handle or changed in its layer, a new
    // layer with something on it, a layer or a block renamed, a variable, a save, a note in a
    // dictionary or out of it, an entity named back by another one.
    void edit(Random &random);

  private:
    struct Record {
        dxf::Kind kind;
        std::string bytes, type;
        uint64_t handle;
        bool is_entity;
    };
    std::vector<size_t> entities() const;
    size_t end_of(size_t at) const; // behind what belongs to the entity
    void move(Random &random);
    void remove(Random &random);
    void copy(Random &random);
    void add_layer(Random &random);
    void rename_layer(Random &random);
    void set_variable(Random &random);
    void add_note(Random &random);
    void remove_note(Random &random);
    void add_reactor(Random &random);
    void copy_record(size_t at, size_t behind);
    void set_value(Record &record, int code, const std::string &value) const;

    std::vector<Record> records_;
    uint64_t next_ = 1;
};

} // namespace merge_test
