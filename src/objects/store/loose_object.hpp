// An object that has a file of its own in the object store, read block by block; and the reading of
// all such objects, put before that of libgit2, which maps the file whole and goes round for ever
// in one that was cut off.
#pragma once

#include "objects/store/git.hpp"
#include "system/os.hpp"

#include <cstdint>
#include <memory>
#include <string>

#include <zlib.h>

namespace zev {

class LooseObject {
  public:
    enum class Found { sound, missing, damaged };

    LooseObject() = default;
    ~LooseObject();
    LooseObject(const LooseObject &) = delete;
    LooseObject &operator=(const LooseObject &) = delete;

    // Opens the object's file in a directory of objects, which ends with a slash, and reads what
    // comes before its bytes. A file that is there and can't be read counts as damaged.
    Found open(const std::u16string &directory, const git_oid &id);
    git_object_t type() const { return type_; }
    uint64_t size() const { return size_; }

    // The next bytes, as many as there are up to `size`; 0 at the end, -1 for a damaged file. That
    // they are those of the id is for the caller to check.
    int64_t read(void *bytes, uint64_t size);
    bool ends(); // it was read whole, and nothing stands behind it in the file

  private:
    static constexpr size_t kHead = 32; // longer than any: a type, a blank and 20 digits

    bool read_head();
    bool parse_head(size_t length);
    int64_t inflate_to(void *bytes, uint64_t size);
    bool refill();

    Owned<FILE, fclose> file_;
    std::unique_ptr<Bytef[]> block_;
    uint64_t length_ = 0; // of the file
    z_stream state_{};
    bool ready_ = false;
    bool ended_ = false;
    char head_[kHead];
    size_t ahead_ = 0, ahead_end_ = 0; // bytes of the object that came with the head
    git_object_t type_ = GIT_OBJECT_INVALID;
    uint64_t size_ = 0;
};

// Where a repository's own objects are, with a slash behind.
std::u16string objects_directory(git_repository *repository); // may throw

// Takes an object's file away if a loss of power left it empty; libgit2 would count it as there,
// and write what it stands for nowhere. `name` is that below a directory of objects, which ends
// with a slash. False if an empty one stays; may throw.
bool drop_hollow(const std::u16string &directory, const std::u16string &name);

// From here on the repository's own store reads such files so, and writes over empty ones. Where
// the store can't be opened that is left to whoever reads first. May throw.
void guard_loose_objects(git_repository *repository);

} // namespace zev
