// Index, for its own files and their neighbours.
#pragma once

#include "common/failure.hpp"
#include "objects/store/repository.hpp"
#include "zev/flock.h"
#include "zev/index.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <sys/stat.h>

namespace zev {
class CaseNames;
}

struct Index { // destroyed from below: lock file first
    zev::git::Index handle;
    Repository *owner;
    zev::Owned<Flock, zFlockClose> lock{};
    bool dirty = false;                      // holds changes that the file does not
    bool written = false;                    // to its file, since the lock was taken
    bool overtaken = false;                  // what it held was replaced by a look
    std::optional<git_oid> put_back{};       // digest of the file that went back since then
    std::shared_ptr<zev::CaseNames> names{}; // of its entries, once a new name was entered
};

namespace zev {

using IndexPtr = Owned<Index, zIndexFree>;

// An IndexEntry is libgit2's entry.
inline git_index_entry *git_entry(IndexEntry *entry) {
    return reinterpret_cast<git_index_entry *>(entry);
}
inline const git_index_entry *git_entry(const IndexEntry *entry) {
    return reinterpret_cast<const git_index_entry *>(entry);
}
inline const IndexEntry *zev_entry(const git_index_entry *entry) {
    return reinterpret_cast<const IndexEntry *>(entry);
}

// Around a call that may read the repository's index anew: libgit2 has one, and a holder of the
// lock whose changes went with what was there must not write the rest.
class IndexLook {
  public:
    explicit IndexLook(Repository *repository, const Index *reader = nullptr, bool force = false);
    ~IndexLook();
    IndexLook(const IndexLook &) = delete;
    IndexLook &operator=(const IndexLook &) = delete;

  private:
    Index *writer_; // none where nothing can be lost
    git_oid before_{};
    bool force_; // whatever the file says, it is read
};

// zIndexHead without a lock of its own, for one who has it in a transaction: what his callbacks
// look at leaves his changes alone, or he hears of it.
IndexPtr index_of_holder(Repository *repository);

// ---- Entries and what the system says of their files

// Times, device, inode, owner and size; the mode is left alone. libgit2 compares these fields to
// tell, without reading a file, that it is unchanged.
void entry_set_stat(git_index_entry &entry, const struct stat &status);
bool entry_has_stat(const git_index_entry &entry, const struct stat &status);
// The same but for the change time, which new rights move.
bool entry_has_content(const git_index_entry &entry, struct stat status);
bool same_stat(const struct stat &a, const struct stat &b);

// ---- Names that differ in case only
//
// One Windows machine in a team can't hold both, so the second is kept out. The hashes of folded
// names, one an entry, are gathered when the first new name comes; a look at the entries tells
// collisions apart.
class CaseNames {
  public:
    bool has_twin(git_index *index, std::string_view path);
    void entered(git_index *index, std::string_view path, size_t added = 1); // new entries
    void left(git_index *index, std::string_view path, size_t gone);         // its entries went

  private:
    void build(git_index *index);
    uint64_t hash(std::string_view path);

    std::unordered_multiset<uint64_t> hashes_;
    size_t count_ = SIZE_MAX; // of entries when last looked at: others may change the index too
    size_t found_ = 0;        // where the last twin stood
    std::u16string scratch_;
};

bool index_has_twin(Index *index, std::string_view path); // may throw
// Raises class 4 for a twin. Under the path that it has already an entry may always be replaced:
// the twin came first then. May throw.
bool check_twin(Index *index, const char *path);

// ---- Changes of an index in memory; each raises its failure. `dirty` tells that it has some.

// Enters or replaces. A conflict of the path at stages 1 to 3 counts as resolved, and what lay
// below the path, or at one of the directories above it, goes: no tree can hold both.
bool index_enter(Index *index, const git_index_entry &entry);
bool index_drop(Index *index, const char *path); // at every stage; no entry is no failure

// Takes what another process wrote into an index that holds no changes and no lock.
void index_refresh(Index *index);
bool index_write(Index *index); // to its file
// The same, and on the disk before a reference that moves next: not every file system keeps the
// order of changes in two directories, and an index older than its head takes the commit back.
bool index_write_synced(Index *index);

// Git knows no lock of ours: what it has added or committed since the repository's index was read
// is not in it. Whether the tree of the index may be committed: its file is as we know it, and HEAD
// where it was. Else raised.
bool index_stands(const Index *index);
bool index_replace(Index *index); // its file by one of the entries, if it is as we know it
// The file as it was when the lock was taken, unless another program has written it since; the
// failure that led here stays the one that is told. Freeing the index reads what then stands there.
void index_put_back(Index *index);
void index_committed(Index *index, const Oid *commit); // of our own: HEAD may be there now

// ---- Files into the index

enum class Staging {
    staged,
    missing, // no such file
    directory,
    refused, // a path that no index may hold, one of another repository, or a pipe, a device
    twin,    // another entry's path differs in case only
    closed,  // a file that we may not read
    failed   // raised
};

// Decides once per operation, and once per directory, whether a file's bytes can differ from its
// blob's: asking libgit2 for each file costs more than storing a small one.
class Filters {
  public:
    explicit Filters(const Index *index);
    bool may_apply(std::string_view path);
    bool are_set(std::string_view path); // by attributes or settings, be it a drawing or not

  private:
    bool in_directory(std::string_view directory); // by a .gitattributes in it or above

    const Index *index_;
    bool always_;
    std::unordered_map<std::string, bool> directories_;
};

// Whether a path lies below a directory that is another repository's: one with a `.git`, or that
// the index has as a submodule. What is there is not ours to enter. For one operation; each
// directory is looked at once.
class NestedRepositories {
  public:
    explicit NestedRepositories(const Index *index) : index_(index) {}
    bool hold(std::string_view path);
    bool is_one(const std::string &directory) const; // itself

  private:
    const Index *index_;
    std::unordered_map<std::string, bool> directories_; // that are one, or lie in one
};

// Stores files of the work directory and enters them, for one operation. Memory is bounded by
// one block, whatever the size of a file.
class Stager {
  public:
    // `notify` is asked for a user break between the blocks of a large file.
    explicit Stager(Index *index, const Notify *notify = nullptr)
        : index_(index), notify_(notify), filters_(index), nested_(index) {}
    Staging stage(const char *path); // UTF-8; may throw
    // By its name and its place: staged if the file there may enter. May throw.
    Staging admit(const char *path);

  private:
    enum class Read { done, changed, failed };

    const git_index_entry *known(const char *path) const;
    Staging stage_file(const char *path, const git_index_entry *known);
    bool open();
    bool is_stopped();
    Read store(git_oid *id, const zwchar *full, const char *path, const git_index_entry *known,
               const struct stat &status);
    Read store_whole(git_oid *id, FILE *file, size_t size);
    Read store_blocks(git_oid *id, FILE *file, uint64_t size);
    bool is_known(const zwchar *full, const git_index_entry *known, uint64_t size);

    Index *index_;
    const Notify *notify_;
    Filters filters_;
    NestedRepositories nested_;
    git::Odb odb_;
    std::vector<char> block_;
};

// By a path that the caller named: false unless staged, with the reason raised. Of a directory the
// commit of a repository of its own enters.
bool stage_named(Index *index, Stager &stager, const char *path);
bool finish_named(Index *index, Staging done, const char *path); // what stage() has given

// Whether the full path has more units than the system layer takes.
bool is_too_long(const Index *index, std::string_view path);

// Whether a path that a caller named lies in the work directory itself, not behind a link: what is
// there is not ours, and entering it would put the link's own entry out. Raises class 2.
bool check_above(const Index *index, const zwchar *path); // may throw

// Drops the entries of a directory: all below `path`, at every stage.
bool index_drop_below(Index *index, std::string_view path);

} // namespace zev
