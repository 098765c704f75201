// The record of a tree builder, for the neighbours.
#pragma once

#include "objects/work/index.hpp"

struct TreeBuilder {
    zev::Owned<Index, zIndexFree> index; // in memory; its entries are full paths
    Repository *owner;
};

namespace zev {

// As zTreeBuilderInsert does, with a mode of the caller's. May throw.
bool builder_insert(TreeBuilder *builder, const std::string &path, const git_oid &id,
                    git_filemode_t mode);

} // namespace zev
