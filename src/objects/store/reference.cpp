// References, each a file below the Git directory or a line of packed-refs. libgit2 syncs each
// before it takes its name, since repository.cpp asks it to.
#include "objects/store/reference.hpp"

#include "common/utf.hpp"
#include "objects/store/object.hpp"
#include "objects/store/strict.hpp"
#include "system/flock.hpp"
#include "system/os.hpp"
#include "zev/oid.h"
#include "zev/reference.h"
#include "zev/repository.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>

#include <git2/sys/refs.h>

using namespace zev;

namespace {

Reference *wrap_reference(git::Reference handle, Repository *owner, Here at = {}) {
    auto *reference = new (std::nothrow) Reference{std::move(handle), owner, nullptr};
    return reference ? reference : fail_memory(at);
}

// The record of the handle that `open` gives for a name.
template <class F>
Reference *opened(Repository *repository, const zwchar *name, F open, Here at = {}) try {
    if (!repository || !name || !*name) return fail_args(at);
    git::Reference handle;
    int code = open(out(handle), repository->handle.get(), to_utf8(name).c_str());
    if (code < 0) return fail_git(code);
    return wrap_reference(std::move(handle), repository, at);
} catch (...) {
    return fail_thrown(at);
}

const git_reference *handle_of(const Reference *reference) { return reference->handle.get(); }

// libgit2 gives its lock file a second name, the reference's, and doesn't look whether the first
// one went. A lock that is the reference is nobody's.
void drop_lock(const git_reference *reference, git_repository *git) {
    const std::string name = git_reference_name(reference);
    const std::u16string path = to_wide(reference_root(git, name) + name);
    const std::u16string lock = path + u".lock";
    struct stat own, other;
    if (os::lstat(lock.c_str(), &other) && os::lstat(path.c_str(), &own) &&
        own.st_ino == other.st_ino && own.st_dev == other.st_dev)
        os::unlink(lock.c_str());
}

// A deletion's lock is empty, and libgit2 doesn't look whether it went either.
void drop_empty_lock(const std::u16string &path) {
    const std::u16string lock = path + u".lock";
    struct stat status;
    if (os::lstat(lock.c_str(), &status) && !status.st_size) os::unlink(lock.c_str());
}

// The directory of a name that went; libgit2 takes away those that are empty now.
void sync_above(const std::u16string &root, std::u16string name) {
    while (!name.empty()) {
        name.resize(name.find_last_of(u'/') == name.npos ? 0 : name.find_last_of(u'/'));
        if (os::sync_dir((root + name).c_str())) break;
    }
}

// A reference's lock reaches the disk with its bytes, so the lock of the index has to be there
// before: else nobody could tell after a loss of power whose it is. Not by way of the directory,
// which would bring the name of a new index there ahead of its bytes. A reference beside the index
// does that, so that these have to be there.
void sync_index(Repository *repository, const zwchar *name) {
    const std::u16string index = std::u16string(zRepositoryPath(repository)) + u"index";
    os::sync_file(lock_path(index).c_str()); // where it is there
    if (name && std::u16string_view(name).find(u'/') == std::u16string_view::npos)
        os::sync_file(index.c_str());
}

// The record of a reference that `make` writes.
template <class F>
Reference *made(Repository *repository, const zwchar *name, F make, Here at = {}) try {
    if (repository) sync_index(repository, name);
    Reference *reference = opened(repository, name, make, at);
    if (reference)
        drop_lock(reference->handle.get(), repository->handle.get());
    else if (repository && name)
        drop_begun_log(repository->handle.get(), to_utf8(name).c_str());
    return reference;
} catch (...) {
    return fail_thrown(at);
}

// Takes the handle of the reference's new state.
bool renewed(Reference *reference, int code, git::Reference handle) {
    if (code < 0) return fail_git(code);
    reference->handle = std::move(handle);
    drop_lock(reference->handle.get(), reference->owner->handle.get());
    return true;
}

bool is_valid_name(const git_reference *reference) {
    int valid = 0;
    return !git_reference_name_is_valid(&valid, git_reference_name(reference)) && valid;
}

// Cuts at `length` characters with the terminator.
void copy_name(zwchar *buffer, uint64_t length, std::u16string_view name) {
    if (!length) return;
    uint64_t count = std::min<uint64_t>(name.size(), length - 1);
    std::copy_n(name.data(), count, buffer);
    buffer[count] = 0;
}

} // namespace

namespace zev {

// The rule is libgit2's, which reads and writes them. Git would have refs/worktree and
// refs/rewritten in each worktree, too; nothing here makes any.
std::string reference_root(git_repository *git, std::string_view name) {
    const bool shared = name.starts_with("refs/") && !name.starts_with("refs/bisect/");
    return shared ? git_repository_commondir(git) : git_repository_path(git);
}

void drop_begun_log(git_repository *git, const char *name) {
    using Log = Owned<git_reflog, git_reflog_free>;
    const Finally clear([] { git_error_clear(); });
    git_oid id;
    Log log;
    if (git_reference_name_to_id(&id, git, name) != GIT_ENOTFOUND) return;
    // A log that isn't there would be made by the reading.
    if (git_reference_has_log(git, name) != 1 || git_reflog_read(out(log), git, name)) return;
    const git_reflog_entry *first = git_reflog_entry_byindex(log.get(), 0);
    if (git_reflog_entrycount(log.get()) == 1 && git_oid_is_zero(git_reflog_entry_id_old(first)))
        git_reflog_delete(git, name);
}

namespace {

bool can_be_reference(const std::string &name) {
    int valid = 0;
    return !git_reference_name_is_valid(&valid, name.c_str()) && valid;
}

// One that has come since is none, nor is one that went.
bool is_damaged(git_repository *git, const std::string &name) {
    git::Reference found;
    const int code = git_reference_lookup(out(found), git, name.c_str());
    if (code < 0 && code != GIT_ENOTFOUND) return fail_git(code), true;
    return git_error_clear(), false;
}

std::string find_damaged(git_repository *git, const std::unordered_set<std::string> &met,
                         const std::string &above) {
    std::vector<os::Name> names;
    const std::u16string directory = to_wide(git_repository_commondir(git) + above);
    if (!os::read_dir(directory.c_str(), &names) && errno != ENOENT)
        return fail_os(errno, directory), above;
    for (const os::Name &each : names) {
        if (each.text == u"." || each.text == u"..") continue;
        if (!each.directory && each.text.ends_with(kLockTail)) continue;
        const std::string name = above + "/" + to_utf8(each.text);
        if (each.directory) {
            if (std::string found = find_damaged(git, met, name); !found.empty()) return found;
        } else if (!met.contains(name) && can_be_reference(name) && is_damaged(git, name)) {
            return name;
        }
    }
    return {};
}

} // namespace

std::string find_damaged_reference(git_repository *git,
                                   const std::unordered_set<std::string> &met) {
    return find_damaged(git, met, "refs");
}

} // namespace zev

Reference *zReferenceNew(void *handle, Repository *repository) {
    if (!handle || !repository) return fail_args();
    Reference *reference = wrap_reference(git::Reference(), repository);
    if (reference) reference->handle.reset(static_cast<git_reference *>(handle));
    return reference;
}

void zReferenceFree(Reference *reference) { delete reference; }
Repository *zReferenceOwner(const Reference *reference) {
    return reference ? reference->owner : fail_args();
}

Reference *zReferenceCreate(Repository *repository, const zwchar *name, const Oid *id) {
    if (!id) return fail_args();
    return made(repository, name, [&](git_reference **handle, git_repository *git, auto *text) {
        StrictOff partial;
        return git_reference_create(handle, git, text, git::oid(id), 1, "");
    });
}

Reference *zReferenceSymlink(Repository *repository, const zwchar *name, const zwchar *target) try {
    if (!target) return fail_args();
    std::string to = to_utf8(target);
    return made(repository, name, [&](git_reference **handle, git_repository *git, auto *text) {
        StrictOff partial;
        return git_reference_symbolic_create(handle, git, text, to.c_str(), 1, "");
    });
} catch (...) {
    return fail_thrown();
}

Reference *zReferenceHead(Repository *repository) {
    if (!repository) return fail_args();
    git::Reference handle;
    if (int code = git_repository_head(out(handle), repository->handle.get()); code < 0)
        return fail_git(code);
    return wrap_reference(std::move(handle), repository);
}

bool zReferenceSetHead(Repository *repository, const zwchar *name) try {
    if (!repository || !name || !*name) return fail_args();
    int code = git_repository_set_head(repository->handle.get(), to_utf8(name).c_str());
    return code < 0 ? fail_git(code) : true;
} catch (...) {
    return fail_thrown();
}

Reference *zReferenceLookup(Repository *repository, const zwchar *name) {
    return opened(repository, name, git_reference_lookup);
}
Reference *zReferenceDwim(Repository *repository, const zwchar *name) {
    return opened(repository, name, git_reference_dwim);
}

bool zReferenceExists(Repository *repository, const zwchar *name) try {
    if (!repository || !name) return fail_args();
    git::Reference found;
    return !git_reference_lookup(out(found), repository->handle.get(), to_utf8(name).c_str());
} catch (...) {
    return fail_thrown();
}

std::optional<bool> zev::reference_there(Repository *repository, const zwchar *name) {
    git::Reference found;
    const int code =
        git_reference_lookup(out(found), repository->handle.get(), to_utf8(name).c_str());
    if (code < 0 && code != GIT_ENOTFOUND) return fail_git(code), std::nullopt;
    git_error_clear();
    return !code;
}

std::optional<bool> zev::head_born(Repository *repository) {
    const int code = git_repository_head_unborn(repository->handle.get());
    if (code < 0) return fail_git(code), std::nullopt;
    return !code;
}

bool zReferenceForeach(Repository *repository, ReferenceCallback callback, void *context) {
    if (!repository || !callback) return fail_args();
    Owned<git_reference_iterator, git_reference_iterator_free> names;
    if (git_reference_iterator_new(out(names), repository->handle.get()) < 0) return false;
    Reference lent{nullptr, repository, nullptr};
    int code;
    while (!(code = git_reference_next(out(lent.handle), names.get()))) {
        if (!is_valid_name(lent.handle.get())) continue; // lock files are no references
        lent.path.reset();
        lent.id = {};
        if (!callback(&lent, context)) return false;
    }
    return code == GIT_ITEROVER;
}

const zwchar *zReferencePath(Reference *reference) try {
    if (!reference) return fail_args();
    if (!reference->path) {
        const std::string name = git_reference_name(handle_of(reference));
        const std::string path = reference_root(reference->owner->handle.get(), name) + name;
        reference->path.reset(wide_dup(path.data(), path.size()));
    }
    return reference->path ? reference->path.get() : fail_memory();
} catch (...) {
    return fail_thrown();
}

const zwchar *zReferenceName(const Reference *reference) {
    return reference ? park(git_reference_name(handle_of(reference))) : fail_args();
}
const zwchar *zReferenceShorthand(const Reference *reference) {
    return reference ? park(git_reference_shorthand(handle_of(reference))) : fail_args();
}
int32_t zReferenceType(const Reference *reference) {
    if (!reference) return fail_args(), GIT_REFERENCE_INVALID;
    return git_reference_type(handle_of(reference));
}

const Oid *zReferenceTarget(const Reference *reference) {
    const git_oid *target = reference ? git_reference_target(handle_of(reference)) : nullptr;
    return target ? git::oid(target) : fail_args();
}

const zwchar *zReferenceSymbolic(const Reference *reference) {
    const char *name = reference ? git_reference_symbolic_target(handle_of(reference)) : nullptr;
    return name ? park(name) : fail_args();
}

const Oid *zReferenceResolve(Reference *reference) {
    if (!reference) return fail_args();
    git::Reference direct;
    if (int code = git_reference_resolve(out(direct), handle_of(reference)); code < 0)
        return fail_git(code);
    reference->id = *git::oid(git_reference_target(direct.get()));
    return &reference->id;
}

Object *zReferencePeel(Reference *reference, int32_t type) {
    if (!reference) return fail_args();
    git::Object object;
    int code =
        git_reference_peel(out(object), handle_of(reference), static_cast<git_object_t>(type));
    if (code < 0) return fail_git(code);
    return wrap<Object>(std::move(object), reference->owner);
}

bool zReferenceSetTarget(Reference *reference, const Oid *id) try {
    if (!reference || !id) return fail_args();
    git::Reference handle;
    int code = git_reference_set_target(out(handle), reference->handle.get(), git::oid(id), "");
    return renewed(reference, code, std::move(handle));
} catch (...) {
    return fail_thrown();
}

bool zReferenceSetSymbolic(Reference *reference, const zwchar *name) try {
    if (!reference || !name) return fail_args();
    git::Reference handle;
    int code = git_reference_symbolic_set_target(out(handle), reference->handle.get(),
                                                 to_utf8(name).c_str(), "");
    return renewed(reference, code, std::move(handle));
} catch (...) {
    return fail_thrown();
}

bool zReferenceDelete(Reference *reference) try {
    if (!reference) return fail_args();
    git_repository *git = reference->owner->handle.get();
    const std::u16string name = to_wide(git_reference_name(handle_of(reference)));
    const std::u16string root = to_wide(reference_root(git, to_utf8(name)));
    if (int code = git_reference_delete(reference->handle.get()); code < 0) return fail_git(code);
    drop_empty_lock(root + name);
    if (!name.starts_with(u"refs/"))
        return true;                   // beside the index, whose bytes may not be on the disk yet
    sync_above(root + u"logs/", name); // first: a log without its reference tells of a loss
    sync_above(root, name);
    return true;
} catch (...) {
    return fail_thrown();
}

bool zReferenceIsBranch(const Reference *reference) {
    return reference ? git_reference_is_branch(handle_of(reference)) == 1 : fail_args();
}
bool zReferenceIsTag(const Reference *reference) {
    return reference ? git_reference_is_tag(handle_of(reference)) == 1 : fail_args();
}
bool zReferenceIsNote(const Reference *reference) {
    return reference ? git_reference_is_note(handle_of(reference)) == 1 : fail_args();
}
bool zReferenceIsRemote(const Reference *reference) {
    return reference ? git_reference_is_remote(handle_of(reference)) == 1 : fail_args();
}

bool zReferenceXform(zwchar *buffer, uint64_t length, void *remote, const zwchar *name) try {
    if (!buffer || !remote || !name) return fail_args();
    std::u16string_view given = name;
    bool tracking = given.starts_with(u"refs/remotes/");
    if (!tracking && !given.starts_with(u"refs/heads/"))
        return copy_name(buffer, length, given), true;
    std::string text = to_utf8(given);
    git_buf found = GIT_BUF_INIT;
    Finally dispose([&] { git_buf_dispose(&found); });
    auto *from = static_cast<git_remote *>(remote);
    for (size_t n = 0; n < git_remote_refspec_count(from); ++n) {
        auto map = tracking ? git_refspec_rtransform : git_refspec_transform;
        if (map(&found, git_remote_get_refspec(from, n), text.c_str()) < 0) continue;
        return copy_name(buffer, length, to_wide({found.ptr, found.size})), true;
    }
    return false;
} catch (...) {
    return fail_thrown();
}

void zRefdbFree(void *refdb) { git_refdb_free(static_cast<git_refdb *>(refdb)); }
