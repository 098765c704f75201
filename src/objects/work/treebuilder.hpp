// The record of a tree builder, for the neighbours.
#pragma once

#include "objects/work/index.hpp"

struct TreeBuilder {
    zev::Owned<Index, zIndexFree> index; // in memory; its entries are full paths
    Repository *owner;
};
