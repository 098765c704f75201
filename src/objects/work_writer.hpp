// Files of the object store into the work directory, entered as they stand there.
#pragma once

#include "objects/index.hpp"

#include <string>
#include <string_view>
#include <unordered_set>

namespace zev {

// For one operation: what holds for all files is decided once, directories on the way are made
// once, and a file is written by one call and needs no reading to be entered. What stands at a path
// is replaced in one step; nothing is followed or written behind a link. Nothing is synced.
class WorkWriter {
  public:
    explicit WorkWriter(Index *index) : index_(index), filters_(index) {}

    // Writes the blob of an entry, by its id, at its path, as a file or a link by its mode, and
    // enters it. False with the reason raised, and what stood there is still there. May throw.
    bool place(git_index_entry entry);

    // A directory of the work directory went, or something below it.
    void forget_directories() { directories_.clear(); }

  private:
    bool make_way(std::string_view path);
    bool make_directory(const std::string &path);
    bool write(const git_index_entry &entry, const std::u16string &full);
    bool write_bytes(int fd, const void *bytes, size_t size, const zwchar *full);
    bool write_file(const git_index_entry &entry, const std::u16string &full);
    bool write_filtered(const git_index_entry &entry);
    bool write_link(const git_index_entry &entry, const std::u16string &full);
    template <class F>
    bool with_file(const git_index_entry &entry, const std::u16string &full, F write);
    bool stream(git_odb_stream *from, int fd, uint64_t size, const zwchar *full);

    Index *index_;
    Filters filters_;
    git::Odb odb_;
    std::unordered_set<std::string> directories_; // that are there, real ones
    struct stat status_ {};                       // of the file just written
};

} // namespace zev
