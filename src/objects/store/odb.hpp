// The record of an object database, for the neighbours.
#pragma once

#include "objects/store/repository.hpp"

struct Odb {
    zev::git::Odb handle;
    Repository *owner;
};
