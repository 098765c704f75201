// The tree of nodes: looked up by path, case aside, and built from the paths of an index. A name
// stands once among the children of its kind, and never deeper than limits::path_depth.
#include "commands/node.hpp"

#include "common/collate.hpp"
#include "common/fold.hpp"
#include "common/limits.hpp"
#include "common/utf.hpp"
#include "objects/work/gitkeep.hpp"
#include "objects/work/workdir.hpp"
#include "zev/status.h"

#include <algorithm>

namespace zev {

namespace {

bool same_name(std::u16string_view a, std::u16string_view b) { return FoldedEqual{}(a, b); }

// Cuts the part up to the first slash off a path.
std::u16string_view take_part(std::u16string_view &path) {
    const size_t slash = std::min(path.find(u'/'), path.size());
    const std::u16string_view part = path.substr(0, slash);
    path.remove_prefix(std::min(slash + 1, path.size()));
    return part;
}

// The first in the children's order where a file and a directory share the name.
Node *find_child(const Node &parent, std::u16string_view name) {
    const auto [begin, end] = parent.names->equal_range(name);
    Node *first = nullptr;
    for (auto known = begin; known != end; ++known)
        if (!first || known->second->position < first->position) first = known->second;
    return first;
}

Node *find_directory(const Node &parent, std::u16string_view name) {
    const auto [begin, end] = parent.names->equal_range(name);
    const auto found =
        std::find_if(begin, end, [](const auto &known) { return known.second->is(kDirectory); });
    return found == end ? nullptr : found->second;
}

Node *append(Node *parent, std::unique_ptr<Node> node) {
    Node *added = node.get();
    parent->children.push_back(std::move(node));
    parent->names->emplace(added->name, added);
    return added;
}

// ---- Order

// For each child its place in the order of names, in which the keep-file comes first.
std::vector<uint32_t> ranks_of(const Node &directory) {
    std::vector<const zwchar *> names;
    names.reserve(directory.children.size());
    for (const auto &child : directory.children) names.push_back(child->name.c_str());
    std::vector<uint32_t> ranks = collation_ranks(names);
    for (size_t i = 0; i < ranks.size(); ++i)
        ranks[i] = same_name(directory.children[i]->name, kKeepFileWide) ? 0 : ranks[i] + 1;
    return ranks;
}

// The children of one kind, as positions, by rank; those of the same rank as they came.
std::vector<uint32_t> sorted_kind(const Node &directory, const std::vector<uint32_t> &ranks,
                                  bool directories) {
    std::vector<uint32_t> kind;
    for (uint32_t i = 0; i < ranks.size(); ++i)
        if (directory.children[i]->is(kDirectory) == directories) kind.push_back(i);
    const auto by_rank = [&](uint32_t a, uint32_t b) { return ranks[a] < ranks[b]; };
    if (!std::ranges::is_sorted(kind, by_rank)) std::ranges::stable_sort(kind, by_rank);
    return kind;
}

// A child went to the end when it came, unless an earlier one of its kind collates after it. Then
// it went right before one of its kind, and so stands, with all that lie between it and the
// highest before, in one run that ends in a child that went to the end.
void order_children(Node *directory) {
    const auto ranks = ranks_of(*directory);
    const std::vector<uint32_t> kinds[] = {sorted_kind(*directory, ranks, false),
                                           sorted_kind(*directory, ranks, true)};
    auto &children = directory->children;
    std::vector<std::unique_ptr<Node>> ordered;
    ordered.reserve(children.size());
    uint32_t next[2] = {};
    for (uint32_t i = 0; i < ranks.size(); ++i) {
        if (!children[i]) continue; // in the run of an earlier one
        const size_t kind = children[i]->is(kDirectory);
        while (children[i]) ordered.push_back(std::move(children[kinds[kind][next[kind]++]]));
    }
    children = std::move(ordered);
    for (uint32_t i = 0; i < children.size(); ++i) children[i]->position = i;
}

} // namespace

// ---- Names

size_t FoldedHash::operator()(std::u16string_view name) const {
    uint64_t hash = 0xcbf29ce484222325; // FNV-1a
    for (const zwchar unit : name) hash = (hash ^ fold(unit)) * 0x100000001b3;
    return hash;
}

bool FoldedEqual::operator()(std::u16string_view a, std::u16string_view b) const {
    return std::ranges::equal(a, b,
                              [](zwchar x, zwchar y) { return x == y || fold(x) == fold(y); });
}

bool ends_in_keep(std::u16string_view path) {
    return path.size() >= kKeepFileWide.size() &&
           same_name(path.substr(path.size() - kKeepFileWide.size()), kKeepFileWide);
}

std::u16string_view without_keep(std::u16string_view path) {
    if (ends_in_keep(path)) path.remove_suffix(kKeepFileWide.size());
    return path;
}

// ---- One node

Node *find_node(Node *start, std::u16string_view path) {
    Node *node = start;
    while (node && node->is(kDirectory) && !path.empty()) {
        const std::u16string_view part = take_part(path);
        node = find_child(*node, part);
    }
    return node;
}

int32_t node_status(const Node &node) {
    if (node.is(kConflicted)) return Z_KIND_CONFLICTED;
    if (node.is(kAdded)) return Z_KIND_ADDED;
    if (node.is(kRenamed)) return Z_KIND_RENAMED;
    return node.is(kChanged) ? Z_KIND_MODIFIED : Z_KIND_UNCHANGED;
}

std::u16string node_path(const Node &node) {
    std::u16string path = node.prefix + node.name;
    if (node.is(kDirectory)) path += u'/';
    return path;
}

std::u16string node_old_path(const Node &node) {
    std::u16string path = node.old_prefix + node.old_name;
    if (node.is(kDirectory) && !path.empty()) path += u'/';
    return path;
}

std::unique_ptr<Node> make_directory(std::u16string_view prefix, std::u16string_view name) {
    auto node = std::make_unique<Node>();
    node->prefix = prefix;
    node->name = name;
    node->flags = kDirectory;
    node->names = std::make_unique<NodeNames>();
    return node;
}

void mark_above(Node *root, std::u16string_view path, uint32_t flag) {
    std::u16string_view rest = path_above(path);
    for (Node *node = root; !rest.empty();) {
        node = find_child(*node, take_part(rest));
        if (!node || !node->is(kDirectory)) return;
        node->flags |= flag;
    }
}

void remove_file(Node *root, std::u16string_view path) {
    Node *node = find_node(root, path), *parent = find_node(root, path_above(path));
    if (!node || node->is(kDirectory) || !parent || !parent->is(kDirectory)) return;
    auto &children = parent->children;
    const auto at =
        std::ranges::find(children, node, [](const auto &child) { return child.get(); });
    if (at == children.end()) return;
    std::erase_if(*parent->names, [&](const auto &known) { return known.second == node; });
    children.erase(at);
}

// ---- A whole tree

void NodeBuilder::add(std::string_view path) {
    if (std::ranges::count(path, '/') > limits::path_depth) return;
    const size_t name_at = path.rfind('/') + 1;
    Node *parent = directory(path.substr(0, name_at));
    auto file = std::make_unique<Node>();
    file->name = to_wide(path.substr(name_at));
    if (file->name.empty() || parent->names->contains(file->name)) return;
    file->prefix = last_prefix_;
    append(parent, std::move(file));
}

// That of a path with its slash.
Node *NodeBuilder::directory(std::string_view path) {
    if (path == last_path_) return last_;
    last_prefix_ = to_wide(path);
    last_ = root_;
    for (std::u16string_view rest = last_prefix_; !rest.empty();)
        last_ = enter(last_, take_part(rest));
    last_path_ = path;
    return last_;
}

Node *NodeBuilder::enter(Node *parent, std::u16string_view name) {
    if (Node *known = find_directory(*parent, name)) return known;
    const std::u16string prefix = parent == root_ ? u"" : node_path(*parent);
    made_.push_back(append(parent, make_directory(prefix, name)));
    return made_.back();
}

void NodeBuilder::finish() {
    order_children(root_);
    for (Node *directory : made_) order_children(directory);
}

} // namespace zev
