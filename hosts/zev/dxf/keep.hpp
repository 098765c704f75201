// Keep: what of the former version of a drawing stays when a file is imported over it.
#pragma once

#include "dxf/groups.hpp"
#include "dxf/match.hpp"
#include "dxf/normal.hpp"
#include "dxf/reader.hpp"
#include "host.hpp"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace dxf {

// Bytes that stay where they are until all of them go.
class Arena {
  public:
    std::string_view copy(std::string_view bytes);

  private:
    std::vector<std::unique_ptr<char[]>> blocks_;
    char *at_ = nullptr;
    size_t left_ = 0;
};

// A block of the new version, in search of its key.
struct Item {
    std::string_view value;      // as it is stored: the file's bytes until others are kept
    const Part *part = nullptr;  // of the file; null for the summary and the layout
    DrawingKey key{};            // tag 0 until the former key or a new tag is found
    bool known = false;          // the former version has that object
    Item *same = nullptr;        // next one without handle and with the same content
    bool is_under_width = false; // a VERTEX of a POLYLINE whose widths count where it has none
    bool kept() const { return key.tag != 0; }
};

// A key of the former version; the place of its class or object in the list.
struct Former {
    DrawingKey key;
    uint64_t place;
    Item *item = nullptr;     // that is this object in the new version
    std::string_view value{}; // its row, if that is held
    bool is_held = false;
    bool is_drawn = false; // of one that no item was known for when its row was read
    void hold(std::string_view row) { value = row, is_held = true; }
};

// A number that was given to a record without handle.
inline bool is_own(uint64_t number) { return number >= kFirstNumber && number < 2 * kFirstNumber; }

// Finds the former objects of a file's records by a policy. What is equal gets key and bytes of
// the former one; what has another handle than before gets the former bytes of it back.
class Keeper {
  public:
    // `objects` in the order of the file, those with a usable handle named by it, the others 0;
    // `olds` in the order of the former list. Those that are equal byte for byte are joined and
    // have the key already, others with one handle are joined. `arena` outlives the items.
    Keeper(std::vector<Item> &objects, std::vector<Former *> olds, Arena &arena);

    // The policy that was taken. `has_kept`: the former version has kept bytes against those of its
    // file, so that records may be the same although most others are it to the byte.
    Match run(Match wanted, bool has_kept);

    // Of the file's handles to those of the drawing. Empty unless content was the policy.
    const HandleMap &handles() const { return handles_; }
    uint64_t highest_handle() const;

  private:
    void find_widths();
    bool is_mostly_equal() const;
    bool has_room() const;
    void collect();
    void hash();
    bool is_same_at(size_t place, NormalRecord &before, NormalRecord &after) const;
    bool is_in_place();
    void compare_by_handle();
    Match keep_in_place(Match wanted);
    bool keep(Item &item, const Former &former);
    bool keep_by_handle();
    void forget_nameless();
    void join_by_content();
    void give_handles();
    void keep_by_content();
    bool keep_nameless();

    std::vector<Item> &objects_;
    std::vector<Former *> olds_;
    Arena &arena_;
    HandleMap handles_;
    bool maps_ = false;
    std::vector<Item *> named_; // in the order of the file
    std::vector<Former *> former_named_;
    std::vector<uint8_t> is_same_; // by the places of these: equal in normal form, not in bytes
    std::vector<Matchable> old_records_, new_records_; // of the two lists, once they are hashed
};

// A header with the next free handle above `highest`; the same bytes if it is.
std::string with_free_handle(std::string_view header, uint64_t highest);

} // namespace dxf
