// Index: opening, its lock, its file, its tree.
#include "objects/work/index.hpp"

#include "common/errno.hpp"
#include "common/utf.hpp"
#include "objects/store/commit.hpp"
#include "objects/store/pathspec.hpp"
#include "objects/store/reference.hpp"
#include "objects/store/strict.hpp"
#include "objects/store/sweep.hpp"
#include "system/flock.hpp"
#include "system/os.hpp"
#include "zev/commit.h"
#include "zev/path.h"
#include "zev/repository.h"
#include "zev/status.h"
#include "zev/tree.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <new>
#include <optional>
#include <string>
#include <string_view>

using namespace zev;

namespace {

IndexPtr wrap_index(git::Index handle, Repository *owner) {
    IndexPtr index(new (std::nothrow) Index{std::move(handle), owner});
    if (!index) fail_memory();
    return index;
}

// A left-over of a killed writer goes first: its index.lock would stop us once we hold ours.
Lock lock_index(Repository *repository) {
    if (!sweep_stale(repository)) return nullptr;
    zwchar path[Z_PATH_MAX];
    if (!zPathCopy(path, zRepositoryPath(repository)) || !zPathAppend(path, u"index"))
        return nullptr;
    return Lock(flock_open_lazy(path));
}

// libgit2 asks for a file's size by name and opens it after that. Without the lock a writer may
// come in between: the size is the old file's then, the bytes are the new one's, and they make no
// index. So does memory after that; reading once more, by force, puts it right.
template <class F> int reading(bool locked, F read) {
    constexpr int kTries = 5;
    int code = read(locked);
    for (int tries = 1; code < 0 && !locked && tries < kTries; ++tries) {
        os::sleep(1);
        code = read(true);
    }
    return code;
}

// Raises the first path that lies below another one. Entries of a directory stand together, so
// that each directory is looked up once.
bool check_places(git_index *index) {
    std::string_view before;
    for (size_t i = 0, count = git_index_entrycount(index); i < count; ++i) {
        const std::string_view path = git_index_get_byindex(index, i)->path;
        const auto differs = std::ranges::mismatch(path, before).in1;
        const auto same = static_cast<size_t>(differs - path.begin());
        size_t slash = path.find('/', path.substr(0, same).rfind('/') + 1); // npos + 1 is 0
        for (; slash != path.npos; slash = path.find('/', slash + 1))
            if (git_index_get_bypath(index, std::string(path.substr(0, slash)).c_str(), 0))
                return raise_exists(std::string(path));
        before = path;
    }
    return true;
}

bool is_planned(const git_index_entry *entry) {
    return entry->flags_extended & GIT_INDEX_ENTRY_INTENT_TO_ADD;
}

bool has_planned(git_index *index) {
    for (size_t i = 0, count = git_index_entrycount(index); i < count; ++i)
        if (is_planned(git_index_get_byindex(index, i))) return true;
    return false;
}

// Entries that only say that a file is to be added have no content to commit.
IndexPtr without_planned(Index *index) {
    IndexPtr copy(zIndexDup(index));
    for (size_t i = copy ? git_index_entrycount(copy->handle.get()) : 0; i-- > 0;) {
        const git_index_entry *entry = git_index_get_byindex(copy->handle.get(), i);
        if (is_planned(entry) && !index_drop(copy.get(), std::string(entry->path).c_str()))
            return nullptr;
    }
    return copy;
}

git_oid head_of(const Repository *repository) {
    git_oid id{};
    if (git_reference_name_to_id(&id, repository->handle.get(), "HEAD") == 0) return id;
    git_error_clear();
    return {};
}

// HEAD is asked first: if it moves before the file is read, it counts as moved since.
int read_file(git_index *handle, Repository *owner, bool force, const Index *reader = nullptr) {
    const IndexLook look(owner, reader, force);
    const git_oid head = head_of(owner), before = *git_index_checksum(handle);
    const int code = git_index_read(handle, force);
    if (code < 0) return code;
    if (force || !owner->index_head || !git_oid_equal(&before, git_index_checksum(handle)))
        owner->index_head = head;
    return 0;
}

// The digest at the end of an index's file; nothing where there is none.
std::optional<git_oid> sum_in(const char *path) {
    const Owned<FILE, fclose> file(os::open(to_wide(path).c_str(), u"rb"));
    git_oid sum;
    if (!file || fseek(file.get(), -GIT_OID_RAWSZ, SEEK_END) ||
        fread(sum.id, 1, sizeof sum.id, file.get()) != sizeof sum.id)
        return {};
    return sum;
}

constexpr const char *kFileWritten = "the index was written since it was read";

Failure raise_modified(const char *what) {
    git_error_set_str(GIT_ERROR_INDEX, what);
    return fail_git(GIT_EMODIFIED);
}

bool is_head_known(const Index *index) {
    const auto &known = index->owner->index_head;
    if (!known) return true;
    const git_oid head = head_of(index->owner);
    return git_oid_equal(&head, &*known) != 0;
}

bool is_file_known(const Index *index) {
    if (index->overtaken) return false;
    const auto sum = sum_in(git_index_path(index->handle.get()));
    return !sum || git_oid_equal(&*sum, git_index_checksum(index->handle.get())) ||
           (index->put_back && git_oid_equal(&*sum, &*index->put_back));
}

// Git's own lock on an index. While we have it nobody writes the file.
class GitLock {
  public:
    explicit GitLock(const Index *index)
        : path_(to_wide(git_index_path(index->handle.get())) + u".lock") {
        os::Mode mode;
        mode.write = mode.create = mode.exclusive = true;
        fd_ = os::open_fd(path_.c_str(), mode);
        is_held_elsewhere_ = fd_ < 0 && errno == EEXIST;
    }
    ~GitLock() {
        if (fd_ < 0) return;
        // Left behind, it would stop git and us until somebody takes it away by hand.
        if (!os::unlink(path_.c_str())) os::unlink(path_.c_str());
        os::close_fd(fd_);
    }
    GitLock(const GitLock &) = delete;
    GitLock &operator=(const GitLock &) = delete;

    bool is_held() const { return fd_ >= 0; }
    bool is_held_elsewhere() const { return is_held_elsewhere_; }

  private:
    std::u16string path_;
    int fd_ = -1;
    bool is_held_elsewhere_ = false;
};

// Whether libgit2 has compared the entries that are as young as the file with their files, as it
// does before it writes, and need not once more.
void set_looked_into(git_index *index, bool has) {
    for (size_t i = 0, count = git_index_entrycount(index); i < count; ++i) {
        auto *entry = const_cast<git_index_entry *>(git_index_get_byindex(index, i));
        const int flags = entry->flags_extended & ~GIT_INDEX_ENTRY_UPTODATE;
        entry->flags_extended =
            static_cast<uint16_t>(has ? flags | GIT_INDEX_ENTRY_UPTODATE : flags);
    }
}

// Changes of an operation that did not come to its end must not show in the next one, unless they
// stand among those of a holder of the lock.
void drop_changes(Index *index) {
    const Index *writer = index->owner->writer;
    if (writer && writer->dirty) return;
    const auto read = [=](bool) { return read_file(index->handle.get(), index->owner, true); };
    if (reading(index->lock != nullptr, read) < 0) git_error_clear();
}

} // namespace

namespace zev {

IndexLook::IndexLook(Repository *repository, const Index *reader, bool force)
    : writer_(repository->writer && repository->writer->dirty && repository->writer != reader
                  ? repository->writer
                  : nullptr),
      force_(force) {
    if (writer_) before_ = *git_index_checksum(writer_->handle.get());
}

IndexLook::~IndexLook() {
    if (writer_ && (force_ || !git_oid_equal(&before_, git_index_checksum(writer_->handle.get()))))
        writer_->overtaken = true;
}

bool index_stands(const Index *index) {
    if (!git_index_path(index->handle.get())) return true;
    if (!is_file_known(index)) return raise_modified(kFileWritten);
    return is_head_known(index) || raise_modified("HEAD has moved since the index was read");
}

// The file alone counts: an index is no older for a HEAD that was moved without it. libgit2 has to
// take git's lock anew. It must not look into files between that and our own letting go, or git has
// the time to take it, read, write and rename. So it does that before, in a call that then fails.
bool index_replace(Index *index) {
    git_index *handle = index->handle.get();
    if (git_index_path(handle)) {
        const GitLock lock(index);
        if (lock.is_held_elsewhere()) {
            git_error_set_str(GIT_ERROR_INDEX, "the index is being written by another program");
            return fail_git(GIT_ELOCKED);
        }
        if (!is_file_known(index)) return raise_modified(kFileWritten);
        if (lock.is_held() && git_index_write(handle) < 0) set_looked_into(handle, true);
        git_error_clear();
    }
    const int code = git_index_write(handle);
    set_looked_into(handle, false);
    return code < 0 ? fail_git(code) : true;
}

// Not where another program has gone on from what we wrote.
static bool file_is_put_back(Index *index) {
    const GitLock lock(index);
    if (lock.is_held_elsewhere() || !is_file_known(index)) return false;
    if (!zFlockUndo(index->lock.get())) return log_raised(kWarning), false;
    index->put_back = sum_in(git_index_path(index->handle.get()));
    return true;
}

void index_put_back(Index *index) {
    const KeptFailure kept;
    index->written = !file_is_put_back(index);
    index->dirty = true;
}

void index_committed(Index *index, const Oid *commit) {
    const git_oid head = head_of(index->owner);
    if (git_oid_equal(&head, git::oid(commit))) index->owner->index_head = head;
}

// A file that can't be read is told by whoever has to change it.
void index_refresh(Index *index) {
    if (index->lock || index->dirty || !git_index_path(index->handle.get())) return;
    const auto read = [=](bool force) {
        return read_file(index->handle.get(), index->owner, force, index);
    };
    if (reading(false, read) < 0) git_error_clear();
}

// The saved copy waits for the first write: a mere status pays for none.
bool index_write(Index *index) {
    if (index->lock && !flock_complete(index->lock.get())) return false;
    if (!index_replace(index)) return false;
    index->dirty = false;
    index->put_back.reset();
    return index->written = true;
}

bool index_write_synced(Index *index) {
    if (!index_write(index)) return false;
    const std::u16string path = to_wide(git_index_path(index->handle.get()));
    return (os::sync_file(path.c_str()) &&
            os::sync_dir(path.substr(0, path.rfind(u'/')).c_str())) ||
           fail_errno(path.c_str());
}

} // namespace zev

// ---- Making and freeing

Index *zIndexAlloc(void *handle, Repository *repository) {
    if (!handle || !repository) return fail_args();
    IndexPtr index = wrap_index(nullptr, repository);
    if (index) index->handle.reset(static_cast<git_index *>(handle)); // else it stays the caller's
    return index.release();
}

Index *zIndexNew(Repository *repository) {
    if (!repository) return fail_args();
    git::Index handle;
    int code = git_index_new(out(handle));
    if (code < 0) return fail_git(code);
    return wrap_index(std::move(handle), repository).release();
}

// libgit2 has one index per repository. What an operation that failed left in its memory is
// dropped by reading it by force; without the lock nothing is going to be written.
Index *zIndexHead(Repository *repository, bool lock) {
    if (!repository) return fail_args();
    Lock held;
    if (lock && !(held = lock_index(repository))) return nullptr;
    git::Index handle;
    const int code = reading(lock, [&](bool force) {
        const int opened = git_repository_index(out(handle), repository->handle.get());
        return opened ? opened : read_file(handle.get(), repository, force);
    });
    if (code < 0) return fail_git(code);
    IndexPtr index = wrap_index(std::move(handle), repository);
    if (index && held) repository->writer = index.get();
    if (index) index->lock = std::move(held);
    return index.release();
}

IndexPtr zev::index_of_holder(Repository *repository) {
    IndexPtr index(zIndexHead(repository, false));
    if (index && !repository->writer) repository->writer = index.get();
    return index;
}

// An unborn head has no tree, and its index no entries.
Index *zIndexByref(Repository *repository, const zwchar *reference) {
    if (!repository) return fail_args();
    const bool head = !reference || std::u16string_view(reference) == u"HEAD";
    const std::optional<bool> born = head ? head_born(repository) : true;
    if (!born) return nullptr;
    if (!*born) return zIndexNew(repository);
    TreePtr tree(zTreeByref(repository, head ? u"HEAD" : reference));
    return tree ? zIndexBytree(tree.get()) : nullptr;
}

Index *zIndexBytree(Tree *tree) {
    if (!tree) return fail_args();
    IndexPtr index(zIndexNew(tree->owner));
    if (!index) return nullptr;
    int code = git_index_read_tree(index->handle.get(), tree->handle.get());
    if (code < 0) return fail_git(code);
    return index.release();
}

Index *zIndexDup(Index *index) {
    if (!index) return fail_args();
    IndexPtr copy(zIndexNew(index->owner));
    if (!copy) return nullptr;
    for (size_t i = 0, count = git_index_entrycount(index->handle.get()); i < count; ++i) {
        const git_index_entry *entry = git_index_get_byindex(index->handle.get(), i);
        int code = git_index_add(copy->handle.get(), entry);
        if (code < 0) return fail_git(code);
    }
    return copy.release();
}

void zIndexFree(Index *index) {
    if (!index) return;
    if (index->owner->writer == index) index->owner->writer = nullptr;
    if (index->dirty && git_index_path(index->handle.get())) drop_changes(index);
    delete index;
}

// ---- The whole

bool zIndexClear(Index *index) {
    if (!index) return fail_args();
    int code = git_index_clear(index->handle.get());
    if (code < 0) return fail_git(code);
    index->names.reset();
    return index->dirty = true;
}

bool zIndexRead(Index *index, bool force) {
    if (!index) return fail_args();
    int code = read_file(index->handle.get(), index->owner, force, index);
    if (code < 0) return fail_git(code);
    index->names.reset();
    if (force) index->dirty = index->overtaken = false;
    return true;
}

// What the index names is on the disk before it is; a later commit trusts its entries. The saved
// copy expires with the first write: a disk that takes nothing from then on leaves it behind, and
// the next command would take back what was told done.
bool zIndexWrite(Index *index) try {
    if (!index) return fail_args();
    const zwchar *path = zRepositoryPath(index->owner);
    const bool is_first = !index->written;
    if (index->dirty && !(path && (os::sync_tree(path) || fail_errno(path)))) return false;
    if (!index_write(index)) return false;
    if (!index->lock || !is_first || flock_expire(index->lock.get())) return true;
    return index_put_back(index), false;
} catch (...) {
    return fail_thrown();
}

Repository *zIndexOwner(const Index *index) {
    if (!index) return fail_args();
    return index->owner;
}

const zwchar *zIndexPath(const Index *index) {
    if (!index) return fail_args();
    return park(git_index_path(index->handle.get()));
}

bool zIndexFindPrefix(uint64_t *position, Index *index, const zwchar *prefix) try {
    if (!position || !index || !prefix) return fail_args();
    size_t at = 0;
    if (git_index_find_prefix(&at, index->handle.get(), to_utf8(prefix).c_str()) < 0)
        return raise_not_found(prefix); // libgit2 gives no reason
    *position = at;
    return true;
} catch (...) {
    return fail_thrown();
}

// Over the entries as they were: the callback may change the index.
bool zIndexWalk(Index *index, IndexCallback callback, void *context) {
    if (!index || !callback) return fail_args();
    Owned<git_index_iterator, git_index_iterator_free> entries;
    int code = git_index_iterator_new(out(entries), index->handle.get());
    const git_index_entry *entry = nullptr;
    while (!code && !(code = git_index_iterator_next(&entry, entries.get())))
        if (callback(zev_entry(entry), context) < 0) return false;
    return code == GIT_ITEROVER ? true : fail_git(code);
}

// A client that holds part of a project writes trees of blobs that it lacks: no questions asked.
Tree *zIndexWriteTree(Index *index) try {
    if (!index) return fail_args();
    if (!check_places(index->handle.get())) return nullptr;
    if (has_planned(index->handle.get())) {
        const IndexPtr whole = without_planned(index);
        return whole ? zIndexWriteTree(whole.get()) : nullptr;
    }
    git_oid id;
    int code = 0;
    {
        StrictOff off;
        code = git_index_write_tree_to(&id, index->handle.get(), index->owner->handle.get());
    }
    if (code < 0) return fail_git(code);
    return zTreeByid(index->owner, git::oid(&id));
} catch (...) {
    return fail_thrown();
}

Commit *zIndexWriteCommit(Index *index, const zwchar *reference, const zwchar *author,
                          const zwchar *message) try {
    if (!index || !author || !message) return fail_args();
    TreePtr tree(zIndexWriteTree(index));
    if (!tree) return nullptr;
    const auto stands = [&] { return !reference || index_stands(index); };
    Commit *commit = commit_create(reference, author, message, tree.get(), stands);
    if (commit) index_committed(index, zCommitId(commit));
    return commit;
} catch (...) {
    return fail_thrown();
}

// ---- Asking

StatusList *zIndexStatus(Index *index, PathSpec *spec) { return zStatusListBuild(index, spec); }

// Unchanged files are part of a status, so a tracked one counts.
bool zIndexIsStaged(Index *index, const zwchar *path) {
    if (!index || !path) return fail_args();
    PathSpecPtr spec(zPathSpecNew(path, Z_SPEC_LITERAL | Z_SPEC_NO_UNTRACKED));
    if (!spec) return false;
    Owned<StatusList, zStatusListFree> list(zStatusListBuild(index, spec.get()));
    return list && zStatusListLength(list.get()) > 0;
}

// Conflicts are no entries to match: their sides stand at stages above 0.
Vector *zIndexMatch(Index *index, PathSpec *spec) try {
    if (!index) return fail_args();
    Owned<Vector, zVectorFree> list(zVectorNewPrim(Z_TYPE_STRINGW, 0));
    if (!list) return nullptr;
    for (size_t i = 0, count = git_index_entrycount(index->handle.get()); i < count; ++i) {
        const git_index_entry *entry = git_index_get_byindex(index->handle.get(), i);
        if (git_index_entry_stage(entry) || !spec_matches(spec, entry->path)) continue;
        if (!zVectorPush(list.get(), to_wide(entry->path).c_str())) return nullptr;
    }
    if (zVectorIsEmpty(list.get()) && spec_options(spec) & Z_SPEC_MUST_MATCH)
        return raise_not_found();
    return list.release();
} catch (...) {
    return fail_thrown();
}

bool zIndexHasConflicts(const Index *index) {
    if (!index) return fail_args();
    return git_index_has_conflicts(index->handle.get()) != 0;
}

bool zIndexPathIsConflict(Index *index, const zwchar *path) try {
    if (!index || !path) return fail_args();
    const git_index_entry *ancestor, *ours, *theirs;
    return git_index_conflict_get(&ancestor, &ours, &theirs, index->handle.get(),
                                  to_utf8(path).c_str()) == 0;
} catch (...) {
    return fail_thrown();
}
