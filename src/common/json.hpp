// What the files of the JSON family share: the members of an object, the walk over children.
#pragma once

#include "common/guard.hpp"

#include "zev/json.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

namespace zev {

using WideView = std::u16string_view;
using JsonGuard = Owned<Json, zJsonFree>;

// A name and its node. Most names fit into the record, so that a member costs no allocation.
class Member {
  public:
    static constexpr uint64_t kLocal = 10; // units that fit beside a terminator

    Json *node; // null: a hole, whose name still holds its place in the order

    zwchar *name() { return far_ ? far_name() : local_; }
    const zwchar *name() const { return far_ ? far_name() : local_; }
    void keep_name(zwchar *owned) { // null: the name goes into the record
        far_ = owned != nullptr;
        memcpy(local_, &owned, sizeof owned);
    }
    void free_name() {
        if (far_) std::free(far_name());
    }

  private:
    zwchar *far_name() const {
        zwchar *name;
        memcpy(&name, local_, sizeof name);
        return name;
    }

    zwchar local_[kLocal + 1]; // or the pointer to an owned name
    zwchar far_;
};
static_assert(sizeof(Member) == 32);

// The members of an object: an array in key order (16-bit unit by unit), then a tail of those that
// came later and out of order. What always holds:
//   - put keeps the tail in runs, each in key order, as long as the powers of two that its length
//     is made of, longest first: a new member is a run of its own, and runs of one length merge. A
//     tail as long as the part before it joins that. So an object is filled in any order by
//     n log n moves, and searched by one bisection a run.
//   - append, by which a text is read, leaves runs aside, and names may occur twice, of which the
//     later one wins; the reader settles each object at its closing bracket, before others see it.
//   - a removed member leaves a hole, whose name still counts for the order, until half of the
//     array is holes; then all is put in order without them.
class Members {
  public:
    static Members *make(); // null when memory ran out, raised
    void destroy();         // frees names and record; the nodes have been taken

    uint64_t count() const { return size_ - holes_; }
    Json *find(WideView name) const;
    Member *slot(WideView name); // of a live member, or null
    Member *slot_of(const Json *node);
    bool put(WideView name, Json *node); // a name that no live member has
    void remove(Member *member);         // its node has been taken
    Json *take_last();                   // in no special order; null when empty
    void settle();                       // all in key order; frees what a later twin replaces

    // Appends a hole with room for a name of `units`, which the caller writes, then fills.
    Member *append(uint64_t units);
    void fill(Member *member, Json *node) {
        member->node = node;
        --holes_;
    }

    // After settle: all members in key order, holes among them.
    const Member *begin() const { return data_; }
    const Member *end() const { return data_ + size_; }
    uint64_t generation() const { return generation_; } // changes when members change places

  private:
    Member *locate(WideView name) const; // holes too
    void merge_runs();
    void drop_holes(); // the tail has no runs then: settle
    void drop_twins();

    Member *data_;
    uint64_t size_;
    uint64_t capacity_;
    uint64_t sorted_; // so many are in order, the tail is behind them
    uint64_t holes_;
    uint64_t near_; // where the last member was removed: its neighbour is often the next
    uint64_t generation_;
};

inline Members *members(const Json *node) { return static_cast<Members *>(node->value.object); }

// Walks the children of a container, an object's in key order. The container stays unchanged.
class Children {
  public:
    explicit Children(const Json *container);
    Json *next();                                // null at the end
    const zwchar *name() const { return name_; } // of the child given last; null in an array
    bool in_object() const { return object_; }
    bool at_first() const { return given_ == 1; }

  private:
    bool object_;
    const Member *member_ = nullptr, *last_member_ = nullptr;
    Json *const *element_ = nullptr, *const *last_element_ = nullptr;
    const zwchar *name_ = nullptr;
    uint64_t given_ = 0;
};

// Nodes lie in one of two ways, which Json::place tells. A node that a call made has an allocation
// of its own, place 0. Those that the reader makes follow each other in blocks, each string's text
// behind its node; place is the node's distance from the head of its block. A block goes with its
// last node: one that is taken out of its tree holds a block, not the tree. The lowest bit of place
// says of either that the text of a string lies behind the node and is not freed for itself.
constexpr uint32_t kTextInside = 1;

struct NodeBlock {
    uint32_t alive; // nodes, counted atomically; more than there can be while the block fills
};

// Makes the nodes of one reader.
class NodePool {
  public:
    NodePool() = default;
    NodePool(const NodePool &) = delete;
    ~NodePool() { retire(); }

    Json *make(int32_t type);        // as json_node
    Json *make_text(uint64_t units); // as json_text_node

  private:
    Json *take(uint64_t bytes);
    void retire();

    NodeBlock *block_ = nullptr;
    uint32_t used_ = 0, made_ = 0; // bytes, nodes
};

// Frees nodes, whose values are gone; the nodes of one block with one count.
class NodeRelease {
  public:
    NodeRelease() = default;
    NodeRelease(const NodeRelease &) = delete;
    ~NodeRelease() { flush(); }
    void add(Json *node);

  private:
    void flush();

    NodeBlock *block_ = nullptr;
    uint32_t count_ = 0;
};

// A node with its value zero, for the caller to set; with a container's it is not complete.
Json *json_node(int32_t type);
// A string node with room for a text of so many units, which the caller writes.
Json *json_text_node(uint64_t units);
void json_drop(Json *node); // frees a node that is in no container (any more)

// A member put in place of one of that name. The node has no parent and is not above the object.
bool json_put(Json *object, WideView name, Json *node);

// Reads UTF-8 text block by block. `run` goes over a block, false for what is no JSON. A token that
// the block doesn't end stands at token() and must be in front of the next block, from where
// `resume` takes it. `finish` gives the tree, if the text was whole.
class JsonBlocks {
  public:
    JsonBlocks();
    JsonBlocks(const JsonBlocks &) = delete;
    ~JsonBlocks();
    bool run(const char *at, const char *end);
    const char *token() const; // null between tokens
    void resume(const char *token);
    Json *finish();
    // So many nodes at most: a run beyond them is false, and `is_bounded` then.
    void set_most(uint64_t nodes);
    void set_plain(bool plain);
    bool is_bounded() const;

  private:
    struct Reader;
    std::unique_ptr<Reader> reader_;
};

// zJsonReadStream with bounds, for what comes from a peer: a text of more bytes, or with more
// nodes, is null too and sets `exceeded`. At most one block beyond the bound is read.
struct JsonBounds {
    uint64_t bytes, nodes;
    bool exceeded = false;
    bool plain = false; // a text with \u, which stays as it is, is refused
};
Json *json_read_bounded(Stream *stream, JsonBounds &bounds);

// The text of a container as UTF-8, in a block of `length` bytes; null with the reason raised, or
// nothing raised for what is no container.
Narrow json_utf8(const Json *node, uint64_t *length);

// As zJsonPathGet, but a path through what is no object finds nothing and raises nothing.
Json *json_find(Json *root, const zwchar *path);

// Takes the escapes of JSON text back in place, all but \/ and \u, which stay as they are; gives
// the new length.
uint64_t json_unescape(zwchar *text, uint64_t units);

} // namespace zev
