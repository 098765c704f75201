// Files of the object store into the work directory, entered as they stand there.
#pragma once

#include "objects/work/file_mode.hpp"
#include "objects/work/index.hpp"

#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>

#include <openssl/evp.h>

namespace zev {

class LooseObject;
struct StoredBlob;

// For one operation: what holds for all files is decided once, directories on the way are made
// once, and a file is written by one call and needs no reading to be entered. A file that stands at
// a path is replaced in one step, or not at all; nothing is followed or written behind a link.
// Nothing is synced.
class WorkWriter {
  public:
    // `aside` lets a new file appear whole too: somebody else might write it at the same moment.
    // Else a small one is begun under its name, which costs less.
    explicit WorkWriter(Index *index, bool aside = false)
        : index_(index), aside_(aside), filters_(index) {}

    // Who hears of the progress of a large file, as of one that is added; null for nobody.
    void tell(const Notify *notify) { notify_ = notify; }

    // Writes the blob of an entry, by its id, at its path, as a file or a link by its mode, and
    // enters it; of a repository within there is only a directory, which may be there. Where the
    // user may not write, it has no write bits from its first moment on. Without `replaces` nothing
    // else may stand there, with it a file or a link. False with the reason raised, and what stood
    // there is still there. May throw.
    bool place(git_index_entry entry, bool replaces);

    // Gives a file that stands there, and is as the index has it, the run bits of an entry, which
    // is entered. Its bytes are not looked at. May throw.
    bool enter_mode(git_index_entry entry);

    // Whether the store has a blob, to be asked before anything makes way for it. Else raised.
    bool has(const git_oid &id);

    // Whether a directory above the path is a link: what is there is not of this work directory.
    bool is_behind_link(std::string_view path); // may throw

    // Waits until the clock of files has moved on from the last one written, some milliseconds at
    // most: an index that is written then is younger than all of them, and no status has to look
    // into one.
    void settle() const;

    // A directory of the work directory went, or something below it.
    void forget_directories() { directories_.clear(); }

  private:
    bool open();
    bool make_way(std::string_view path);
    bool make_directory(const std::string &path);
    bool place_directory(const git_index_entry &entry, const std::u16string &full, bool replaces);
    bool can_replace(const std::u16string &full, bool replaces);
    bool write(const git_index_entry &entry, const std::u16string &full, bool replaces);
    bool write_file(const git_index_entry &entry, const std::u16string &full, bool replaces);
    bool write_stored(const git_index_entry &entry, const std::u16string &full, bool replaces);
    bool write_whole(const git_index_entry &entry, const std::u16string &full, bool replaces,
                     const void *bytes, size_t size);
    bool is_loose(LooseObject &object, const git_oid &id);
    int read(StoredBlob &blob, const git_oid &id);
    bool write_filtered(const git_index_entry &entry, const std::u16string &full, bool replaces);
    bool is_readonly(const git_index_entry &entry);
    void set_mode(int fd, const git_index_entry &entry);
    bool write_link(const git_index_entry &entry, const std::u16string &full, bool replaces);
    template <class F> bool write_new(int fd, const std::u16string &full, F fill);
    template <class F>
    bool write_aside(const git_index_entry &entry, const std::u16string &full, bool replaces,
                     F fill);
    bool stream(LooseObject &from, int fd, const git_oid &id, const zwchar *full);
    bool hash_begins(uint64_t size);
    bool hash_ends(const git_oid &id);

    Index *index_;
    bool aside_;
    const Notify *notify_ = nullptr;
    Filters filters_;
    git::Odb odb_;
    AuthdbPtr rules_;                             // null where no server has given any
    std::u16string objects_;                      // where the store has its files
    Owned<EVP_MD_CTX, EVP_MD_CTX_free> hash_;     // of the blob at hand
    std::unique_ptr<char[]> block_;               // of a loose one, once there is one
    std::unordered_set<std::string> directories_; // that are there, real ones
    struct stat status_ {};                       // of the file just written
    timespec youngest_{};                         // of those written
};

} // namespace zev
