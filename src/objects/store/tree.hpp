// The record of a tree's entry, for the neighbours.
#pragma once

#include "objects/store/repository.hpp"

// A copy, which outlives the tree.
struct TreeEntry {
    zev::Wide name;
    Oid id;
    int32_t type;
    uint32_t mode; // 0 for one that is none of the five known
};
