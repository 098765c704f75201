// Many objects at once. While a BulkWriter lives, the objects that libgit2 or write_blob store in
// its repository are collected and end up in one pack, which costs one sync and no file a piece.
// They can be read at once, but exist only when finish gave true: call it before anything that
// names them reaches the disk. Objects that are streamed are large, and go their own way.
#pragma once

#include "objects/store/repository.hpp"

#include <memory>

namespace zev {

class Bulk;

class BulkWriter {
  public:
    // Null with the reason raised. Inside of another one's life it does nothing by itself: what
    // it was given becomes real with the outer one.
    static std::unique_ptr<BulkWriter> begin(Repository *repository);
    ~BulkWriter(); // without finish: forgets the objects

    // Makes the objects real and ends the collecting. False with the reason raised.
    bool finish();

  private:
    explicit BulkWriter(git::Odb odb) : odb_(std::move(odb)) {}
    git::Odb odb_;         // keeps the bulk, which is one of its backends
    Bulk *bulk_ = nullptr; // null when done, or inside of another one
};

// git_odb_write for a blob, without the look around the disk that libgit2 does for each object.
int write_blob(git_oid *id, git_odb *odb, const void *bytes, size_t size);

} // namespace zev
