// The record of an object database, for the neighbours.
#pragma once

#include "objects/store/repository.hpp"
#include "zev/odb.h"

#include <git2/sys/odb_backend.h>

struct Odb {
    zev::git::Odb handle;
    Repository *owner;
};

namespace zev {

using OdbPtr = Owned<Odb, zOdbFree>;

// Without looking into the store's directory again: for many ids, after one refresh.
inline bool is_stored(git_odb *odb, const git_oid *id) {
    return git_odb_exists_ext(odb, id, GIT_ODB_LOOKUP_NO_REFRESH) == 1;
}

// The backend of a store that `free` gives back: each of ours has one of its own. Null if none.
inline git_odb_backend *find_backend(git_odb *odb, decltype(git_odb_backend::free) free) {
    git_odb_backend *backend = nullptr;
    for (size_t n = 0; n < git_odb_num_backends(odb); ++n)
        if (!git_odb_get_backend(&backend, odb, n) && backend->free == free) return backend;
    return nullptr;
}

} // namespace zev
