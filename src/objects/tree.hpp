// The records of trees, for the neighbours.
#pragma once

#include "objects/records.hpp"
#include "zev/index.h"

// A copy, which outlives the tree.
struct TreeEntry {
    zev::Wide name;
    Oid id;
    int32_t type;
    uint32_t mode; // 0 for one that is none of the five known
};

struct TreeBuilder {
    zev::Owned<Index, zIndexFree> index; // in memory; its entries are full paths
    Repository *owner;
};
