// What Object, Commit, Tree, Blob and Tag share: one layout (handle and owner) and one way of
// being looked up, so that a typed record is an Object whose handle has that type.
#pragma once

#include "common/utf.hpp"
#include "objects/store/repository.hpp"
#include "zev/commit.h"
#include "zev/tree.h"

#include <new>
#include <type_traits>

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

namespace zev {

using CommitPtr = Owned<Commit, zCommitFree>;
using TreePtr = Owned<Tree, zTreeFree>;

// A blob's bytes into an open file, as the work directory has them at the path `name`.
bool write_filtered(int file, const Blob *blob, const char *name);

template <class Record> struct ObjectKind;
template <> struct ObjectKind<Object> { static constexpr git_object_t type = GIT_OBJECT_ANY; };
template <> struct ObjectKind<Commit> { static constexpr git_object_t type = GIT_OBJECT_COMMIT; };
template <> struct ObjectKind<Tree> { static constexpr git_object_t type = GIT_OBJECT_TREE; };
template <> struct ObjectKind<Blob> { static constexpr git_object_t type = GIT_OBJECT_BLOB; };
template <> struct ObjectKind<Tag> { static constexpr git_object_t type = GIT_OBJECT_TAG; };

// The record of a handle of the record's type; the handle is given back on failure.
template <class Record> Record *wrap(git::Object handle, Repository *owner, Here at = {}) {
    using Handle = decltype(Record::handle);
    auto *raw = git::as<std::remove_pointer_t<typename Handle::pointer>>(handle.release());
    auto *record = new (std::nothrow) Record{Handle(raw), owner};
    return record ? record : fail_memory(at);
}

template <class Record>
Record *by_id(Repository *repository, const Oid *id, git_object_t type = ObjectKind<Record>::type,
              Here at = {}) {
    if (!repository || !id) return fail_args(at);
    git::Object handle;
    int code = git_object_lookup(out(handle), repository->handle.get(), git::oid(id), type);
    if (code < 0) return fail_git(code);
    return wrap<Record>(std::move(handle), repository, at);
}

// `length` counts hexadecimal digits. The whole id is looked up first: libgit2 reads by a prefix
// past the guard of loose objects.
template <class Record>
Record *by_prefix(Repository *repository, const Oid *prefix, uint64_t length,
                  git_object_t type = ObjectKind<Record>::type, Here at = {}) {
    if (!repository || !prefix) return fail_args(at);
    git::Odb odb;
    git::Object handle;
    git_oid id;
    int code = git_repository_odb(out(odb), repository->handle.get());
    if (!code) code = git_odb_exists_prefix(&id, odb.get(), git::oid(prefix), length);
    if (!code) code = git_object_lookup(out(handle), repository->handle.get(), &id, type);
    if (code < 0) return fail_git(code);
    return wrap<Record>(std::move(handle), repository, at);
}

template <class Record>
Record *by_path(const Object *object, const zwchar *path,
                git_object_t type = ObjectKind<Record>::type, Here at = {}) try {
    if (!object || !path) return fail_args(at);
    git::Object handle;
    int code =
        git_object_lookup_bypath(out(handle), object->handle.get(), to_utf8(path).c_str(), type);
    if (code < 0) return fail_git(code);
    return wrap<Record>(std::move(handle), object->owner, at);
} catch (...) {
    return fail_thrown(at);
}

// Follows tags, and commits to their trees, until an object of the type is found.
template <class Record>
Record *peeled(const git_object *object, Repository *owner,
               git_object_t type = ObjectKind<Record>::type, Here at = {}) {
    git::Object handle;
    int code = git_object_peel(out(handle), object, type);
    if (code < 0) return fail_git(code);
    return wrap<Record>(std::move(handle), owner, at);
}

template <class Record>
Record *peel(const Object *object, git_object_t type = ObjectKind<Record>::type, Here at = {}) {
    if (!object) return fail_args(at);
    return peeled<Record>(object->handle.get(), object->owner, type, at);
}

// Any object that peels to the record's type.
template <class Record> Record *by_peeled_id(Repository *repository, const Oid *id, Here at = {}) {
    if (!repository || !id) return fail_args(at);
    git::Object any;
    int code = git_object_lookup(out(any), repository->handle.get(), git::oid(id), GIT_OBJECT_ANY);
    if (code < 0) return fail_git(code);
    if (git_object_type(any.get()) == ObjectKind<Record>::type)
        return wrap<Record>(std::move(any), repository, at);
    return peeled<Record>(any.get(), repository, ObjectKind<Record>::type, at);
}

// What a reference, by its full or short name, peels to.
template <class Record>
Record *by_reference(Repository *repository, const zwchar *name, Here at = {}) try {
    if (!repository || !name) return fail_args(at);
    git::Reference reference;
    int code = git_reference_dwim(out(reference), repository->handle.get(), to_utf8(name).c_str());
    if (code < 0) return fail_git(code);
    git::Object handle;
    code = git_reference_peel(out(handle), reference.get(), ObjectKind<Record>::type);
    if (code < 0) return fail_git(code);
    return wrap<Record>(std::move(handle), repository, at);
} catch (...) {
    return fail_thrown(at);
}

} // namespace zev
