// A blob that has a file of its own in the object store, read block by block. libgit2 maps such a
// file whole, which counts as memory of the process.
#pragma once

#include "objects/git.hpp"
#include "system/os.hpp"

#include <cstdint>
#include <vector>

#include <zlib.h>

namespace zev {

class LooseBlob {
  public:
    LooseBlob() = default;
    ~LooseBlob();
    LooseBlob(const LooseBlob &) = delete;
    LooseBlob &operator=(const LooseBlob &) = delete;

    // False, with nothing raised, for what the repository's own store has no such file of.
    bool open(git_repository *repository, const git_oid &id);
    uint64_t size() const { return size_; }

    // The next bytes, as many as there are up to `size`; 0 at the end, -1 for a damaged file. That
    // they are those of the id is for the caller to check.
    int64_t read(void *bytes, size_t size);

  private:
    bool read_head();

    Owned<FILE, fclose> file_;
    std::vector<Bytef> block_;
    z_stream state_{};
    bool ready_ = false;
    bool ended_ = false;
    uint64_t size_ = 0;
};

} // namespace zev
