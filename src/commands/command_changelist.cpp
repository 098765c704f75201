// What a commit of given paths would take, read off the node tree and the map of deleted paths.
#include "commands/adapter.hpp"
#include "zev/status.h"

#include <algorithm>
#include <unordered_set>

using namespace zev;

namespace {

class Changelist {
  public:
    explicit Changelist(const Connection &connection) : connection_(connection) {}

    void add(const zwchar *start);
    void tell(CommandListing callback, void *context) const;

  private:
    const Node *climb(const Node *node) const;
    void collect(const Node &node);
    bool take(const Node &node);
    void take_deleted(const Node &directory);
    bool is_root(const Node &node) const { return &node == connection_.root.get(); }

    const Connection &connection_;
    std::map<std::u16string, const Node *> found_; // null for a deleted path
    std::unordered_set<const Node *> visited_;     // directories that have nothing more to give
};

// The tree has come with the directory: it was moved, or has a keep-file that is new.
bool is_new(const Node &directory) {
    if (directory.is(kRenamed)) return true;
    if (!directory.is(kChanged)) return false;
    // Of the files the keep-file is the first; directories may stand before it.
    const auto first = std::ranges::find_if(
        directory.children, [](const auto &child) { return !child->is(kDirectory); });
    return first != directory.children.end() && (*first)->is(kAdded | kRenamed) &&
           ends_in_keep((*first)->name);
}

bool takes_part(const Node &node) {
    return node.is(kAdded | kRenamed) || (!node.is(kDirectory) && node.is(kChanged | kConflicted));
}

void Changelist::add(const zwchar *start) {
    const Node *node = find_node(connection_.root.get(), zStrsafeW(start));
    if (node) node = climb(node);
    if (node) collect(*node);
}

// Something new can't be committed without the new directories above it. Null when one of them
// isn't in the tree.
const Node *Changelist::climb(const Node *node) const {
    while (!node->prefix.empty() && node->is(kAdded | kRenamed)) {
        const Node *parent = find_node(connection_.root.get(), node->prefix);
        if (!parent) return nullptr;
        if (!is_new(*parent)) break;
        node = parent;
    }
    return node;
}

// A node that is in the list already has given all that is below it.
void Changelist::collect(const Node &node) {
    if (takes_part(node) && !take(node)) return;
    if (!node.is(kDirectory) || !visited_.insert(&node).second) return;
    for (const auto &child : node.children) collect(*child);
    take_deleted(node);
}

bool Changelist::take(const Node &node) {
    return found_.try_emplace(node_path(node), &node).second;
}

// Those below the directory, by the path that it has in HEAD.
void Changelist::take_deleted(const Node &directory) {
    std::u16string prefix;
    if (!is_root(directory))
        prefix = directory.is(kRenamed) ? node_old_path(directory) : node_path(directory);
    const auto &deleted = connection_.deleted;
    for (auto at = deleted.lower_bound(prefix); at != deleted.end() && at->starts_with(prefix);
         ++at)
        found_.try_emplace(*at, nullptr);
}

void Changelist::tell(CommandListing callback, void *context) const {
    for (const auto &[path, node] : found_) {
        const std::u16string to = shown(path);
        if (!node) {
            callback(Z_KIND_DELETED, nullptr, to.c_str(), context);
            continue;
        }
        const int32_t status = node_status(*node);
        const std::u16string from = status == Z_KIND_RENAMED ? shown(node_old_path(*node)) : u"";
        callback(status, from.c_str(), to.c_str(), context);
    }
}

} // namespace

bool zCommandChangelist(const zwchar *workdir, uint64_t count, const zwchar *const *paths,
                        CommandListing callback, void *context) try {
    const ConnectionUse connection(workdir);
    if (!connection) return false;
    if ((!paths && count) || !callback) return fail_args();
    Changelist list(*connection);
    for (uint64_t i = 0; i < count; ++i) list.add(paths[i]);
    list.tell(callback, context);
    return true;
} catch (...) {
    return fail_thrown();
}
