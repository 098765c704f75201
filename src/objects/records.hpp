// The records of the object store, for its families. A public handle is one of these; hosts see
// only the name. Pointers to owners are lent: a Repository outlives what was opened through it.
#pragma once

#include "objects/git.hpp"
#include "zev/flock.h"
#include "zev/hashmap.h"
#include "zev/pathspec.h"
#include "zev/vector.h"

#include <memory>
#include <string>
#include <vector>

namespace zev {
class Matcher;   // objects/pathspec.hpp
class CaseNames; // objects/index.hpp
} // namespace zev

struct Repository {
    zev::git::Repository handle;
    zev::Wide path;    // Git directory, at the first zRepositoryPath
    zev::Wide workdir; // work tree, at the first zRepositoryWorkdir
    zev::Wide trash;   // at the first zRepositoryTrash
    zev::Wide owner;   // of the project; set by a server, never stored
    zev::Wide name;
    zev::Wide url;
    Oid id{}; // all zero until known
};

struct Object {
    zev::git::Object handle;
    Repository *owner;
};
struct Commit {
    zev::git::Commit handle;
    Repository *owner;
};
struct Tree {
    zev::git::Tree handle;
    Repository *owner;
};
struct Blob {
    zev::git::Blob handle;
    Repository *owner;
};
struct Tag {
    zev::git::Tag handle;
    Repository *owner;
};
struct Odb {
    zev::git::Odb handle;
    Repository *owner;
};

struct Reference {
    zev::git::Reference handle;
    Repository *owner;
    zev::Wide path; // the reference's file, at the first zReferencePath
    Oid id{};       // result of zReferenceResolve
};

struct Branch {
    Repository *owner;
    zev::Wide name;   // short
    zev::Wide merge;  // full name, the branch's identity
    zev::Wide origin; // of an upstream: full name of its local branch
    Oid id{};         // result of zBranchResolve
};

struct Index { // destroyed from below: lock file first
    zev::git::Index handle;
    Repository *owner;
    zev::Owned<Flock, zFlockClose> lock{};
    bool dirty = false;                      // holds changes that the file does not
    bool written = false;                    // to its file, since the lock was taken
    std::shared_ptr<zev::CaseNames> names{}; // of its entries, once a new name was entered
};

struct PathSpec {
    Vector patterns; // of owned wide strings; first, so that vector calls work on the record
    uint32_t options;
    std::shared_ptr<zev::Matcher> matcher; // made at first use, dropped by every change
    const Notify *notify;                  // lent
};

struct StatusEntry {
    zev::Wide from; // old path of a rename between head and index
    zev::Wide path;
    int32_t kind;
    uint32_t word; // libgit2's status flags as they came
    Oid old_id;    // of the head-to-index change
    Oid new_id;
};

struct DiffFile {
    Oid id;
    zev::Wide path;
    uint64_t size;
    uint32_t flags;
    uint16_t mode;
    uint16_t id_abbrev;
};

struct DiffEntry {
    int32_t status; // kinds 0 to 10
    uint32_t flags;
    uint16_t similarity;
    uint16_t files;
    std::unique_ptr<DiffFile> old_file; // either may be missing
    std::unique_ptr<DiffFile> new_file;
};

// One layout, so that one function frees both: a vector that owns its entries, and a map from
// path to entry, made at the first look-up.
struct StatusList {
    Vector entries;
    zev::Owned<Hashmap, zHashmapFree> by_path;
};
struct DiffList {
    Vector entries;
    zev::Owned<Hashmap, zHashmapFree> by_path;
};

namespace zev {

// A text of libgit2 as wide text in the thread's ring; null stays null.
inline const zwchar *park(const char *text) { return text ? zStrfromutf8(text) : nullptr; }

} // namespace zev
