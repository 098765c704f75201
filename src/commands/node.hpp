// Operations on a tree of nodes, for the reload.
#pragma once

#include "commands/connection.hpp"

namespace zev {

// Fills a tree with the paths of an index. Children come into their order at the end, which gives
// what putting each one into its place would: a node stands before the first child of its kind
// whose name collates after it, else behind all others.
class NodeBuilder {
  public:
    explicit NodeBuilder(Node *root) : root_(root), last_(root) {}

    // UTF-8. Makes the directories on the way; a name that is there already is left alone, and so
    // is a path that is too deep. May throw, as all of these.
    void add(std::string_view path);
    void finish();

  private:
    Node *directory(std::string_view path);
    Node *enter(Node *parent, std::u16string_view name);

    Node *root_;
    Node *last_;            // the directory of the path before, mostly that of the next one too
    std::string last_path_; // its path with the slash, as the index has it
    std::u16string last_prefix_; // the same
    std::vector<Node *> made_;
};

// An empty directory: a root, or one to be put into a tree.
std::unique_ptr<Node> make_directory(std::u16string_view prefix, std::u16string_view name);

// Sets a flag on all directories above a path that are in the tree, the root left out.
void mark_above(Node *root, std::u16string_view path, uint32_t flag);

// Takes a file node out, unless it isn't there or no file.
void remove_file(Node *root, std::u16string_view path);

} // namespace zev
