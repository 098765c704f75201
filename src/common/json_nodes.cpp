// Where the nodes of JSON trees lie: alone, or in the blocks of a reader, see json.hpp.
#include "common/json.hpp"

#include "common/failure.hpp"

#include <atomic>
#include <utility>

namespace zev {
namespace {

constexpr uint32_t kBlockBytes = 32 * 1024;
// Larger nodes lie alone, so that little is lost at a block's end.
constexpr uint64_t kLargest = 1024;
constexpr uint32_t kFilling = 1u << 30;
constexpr uint64_t kAlign = alignof(Json);

uint64_t text_bytes(uint64_t units) { return (units + 1) * sizeof(zwchar); }

zwchar *behind(Json *node) { return reinterpret_cast<zwchar *>(node + 1); }

void leave(NodeBlock *block, uint32_t count) {
    if (std::atomic_ref(block->alive).fetch_sub(count, std::memory_order_acq_rel) == count)
        std::free(block);
}

} // namespace

Json *json_node(int32_t type) {
    auto *node = static_cast<Json *>(malloc(sizeof(Json)));
    if (!node) return fail_memory();
    *node = {nullptr, type, 0, {}};
    return node;
}

Json *json_text_node(uint64_t units) {
    auto *node = static_cast<Json *>(malloc(sizeof(Json) + text_bytes(units)));
    if (!node) return fail_memory();
    *node = {nullptr, Z_JSON_STRING, kTextInside, {.string = behind(node)}};
    return node;
}

Json *NodePool::take(uint64_t bytes) {
    bytes = (bytes + kAlign - 1) / kAlign * kAlign;
    if (!block_ || kBlockBytes - used_ < bytes) {
        retire();
        block_ = static_cast<NodeBlock *>(malloc(kBlockBytes));
        if (!block_) return fail_memory();
        *block_ = {kFilling};
        used_ = kAlign;
        made_ = 0;
    }
    auto *node = reinterpret_cast<Json *>(reinterpret_cast<char *>(block_) + used_);
    node->place = used_;
    used_ += static_cast<uint32_t>(bytes);
    ++made_;
    return node;
}

Json *NodePool::make(int32_t type) {
    Json *node = take(sizeof(Json));
    if (node) *node = {nullptr, type, node->place, {}};
    return node;
}

Json *NodePool::make_text(uint64_t units) {
    const uint64_t bytes = sizeof(Json) + text_bytes(units);
    if (bytes > kLargest) return json_text_node(units);
    Json *node = take(bytes);
    if (node) *node = {nullptr, Z_JSON_STRING, node->place | kTextInside, {.string = behind(node)}};
    return node;
}

void NodePool::retire() {
    if (block_) leave(std::exchange(block_, nullptr), kFilling - made_);
}

void NodeRelease::add(Json *node) {
    const uint32_t distance = node->place & ~kTextInside;
    if (!distance) return std::free(node);
    auto *block = reinterpret_cast<NodeBlock *>(reinterpret_cast<char *>(node) - distance);
    if (block != block_) flush();
    block_ = block;
    ++count_;
}

void NodeRelease::flush() {
    if (block_) leave(std::exchange(block_, nullptr), std::exchange(count_, 0));
}

} // namespace zev
