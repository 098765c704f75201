// A pack on its way into a directory. It grows in a directory of its own there, so that whatever
// goes wrong, and wherever, one removal leaves nothing behind; a complete pack is moved out, its
// index last, since that makes it count.
#pragma once

#include "objects/store/git.hpp"

#include <array>
#include <memory>
#include <string>

#include <git2/indexer.h>

namespace zev {

class PackFile {
  public:
    // Null with the reason raised, as all below give false: append of what it knows by then, the
    // others of all that was appended.
    static std::unique_ptr<PackFile> begin(std::u16string directory);
    ~PackFile(); // without commit: takes all away
    PackFile(const PackFile &) = delete;
    PackFile &operator=(const PackFile &) = delete;

    bool append(const void *bytes, uint64_t size);
    bool check(); // of bytes that others made: are the objects what they say? Ahead of commit
    bool commit();
    // commit, unless an object has more than `most` bytes or not the form of its type.
    bool commit_formed(uint64_t most);
    std::u16string path(const char16_t *extension) const; // once it is committed

  private:
    explicit PackFile(std::u16string directory) : directory_(std::move(directory)) {}
    bool open();
    bool few_objects(const uint8_t *bytes, uint64_t size);
    bool feed(const void *bytes, uint64_t size);
    bool feed_held();
    bool index();
    bool has_forms(uint64_t most) const;
    bool install();

    std::u16string directory_; // with its last slash
    std::u16string aside_;     // the pack's own one in it, likewise; empty until it is made
    int place_ = -1;           // that one, which may be renamed with the repository
    Owned<git_indexer, git_indexer_free> indexer_;
    git_indexer_progress progress_{};
    std::string held_; // appended, and not given to the indexer yet
    std::array<uint8_t, 12> header_{};
    size_t header_size_ = 0;
    std::u16string name_; // 40 digits
};

} // namespace zev
