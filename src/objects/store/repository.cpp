// Kept in the repository's configuration: core.autocrlf and core.filemode, false, since drawings
// are bytes and modes follow rights; zev.id, 40 hexadecimal digits, any other text is no id.
#include "objects/store/repository.hpp"

#include "common/utf.hpp"
#include "objects/store/config.hpp"
#include "objects/store/loose_object.hpp"
#include "objects/store/removal.hpp"
#include "objects/store/sweep.hpp"
#include "system/os.hpp"
#include "zev/odb.h"
#include "zev/oid.h"
#include "zev/path.h"
#include "zev/reference.h"
#include "zev/repository.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>

using namespace zev;

namespace zev {

git::Config local_config(git_repository *handle) {
    git::Config all, local;
    int code = git_repository_config(out(all), handle);
    if (!code) code = git_config_open_level(out(local), all.get(), GIT_CONFIG_LEVEL_LOCAL);
    if (code < 0) fail_git(code);
    return local;
}

bool config_text(git_config *config, const char *key, std::string &text) {
    git_buf buffer = GIT_BUF_INIT;
    Finally dispose([&] { git_buf_dispose(&buffer); });
    if (git_config_get_string_buf(&buffer, config, key) < 0) return false;
    text.assign(buffer.ptr, buffer.size);
    return true;
}

std::u16string full_path(const Repository *repository, std::string_view path) {
    const char *workdir = git_repository_workdir(repository->handle.get());
    return workdir ? to_wide(std::string(workdir).append(path)) : std::u16string();
}

bool follows_server(Repository *repository) {
    const Finally clear([] { git_error_clear(); });
    git::Remote remote;
    if (git_remote_lookup(out(remote), repository->handle.get(), "origin")) return false;
    const char *url = git_remote_url(remote.get());
    return url && std::string_view(url).starts_with("http") && strstr(url, "/repos/");
}

} // namespace zev

namespace {

constexpr const char *kOff[] = {"core.autocrlf", "core.filemode"};
constexpr const char *kIdKey = "zev.id";
constexpr const char *kFirstBranch = "init.defaultBranch";

bool is_off(git_config *config, const char *key) {
    int value = 1;
    return git_config_get_bool(&value, config, key) == 0 && !value;
}

// libgit2 forgets what it knew of a switch when it sets it.
int forget_switches(git_repository *handle) {
    git::Config all;
    int code = git_repository_config(out(all), handle);
    for (const char *key : kOff)
        if (code >= 0 && is_off(all.get(), key)) code = git_config_set_bool(all.get(), key, 0);
    return code;
}

// The switches that must be off. Nothing is written where they are already: a write at every
// open would leave a stale lock behind when the process is killed. What nobody may write, an
// archive, is read as it is.
bool switch_off(git_repository *handle) {
    git::Config local = local_config(handle);
    if (!local) return false;
    auto off = [&](const char *key) { return is_off(local.get(), key); };
    const std::u16string place = to_wide(git_repository_commondir(handle));
    if (std::ranges::all_of(kOff, off) || !os::writable(place.c_str())) return true;
    const bool written = change_config(handle, [](git_config *file) {
        int code = 0;
        for (const char *key : kOff)
            if (code >= 0 && !is_off(file, key)) code = git_config_set_bool(file, key, 0);
        return code;
    });
    if (!written) return false;
    const int code = forget_switches(handle);
    return code < 0 ? fail_git(code) : true;
}

// libgit2 asks when it opens the store of references, once for a repository, whether they are to
// be synced: each is then on the disk before it takes its name, and the name when the call returns.
void sync_references(git_repository *handle) {
    static std::mutex mutex;
    const std::lock_guard held(mutex);
    git_libgit2_opts(GIT_OPT_ENABLE_FSYNC_GITDIR, 1);
    const Finally off([] { git_libgit2_opts(GIT_OPT_ENABLE_FSYNC_GITDIR, 0); });
    Owned<git_refdb, git_refdb_free> opened;
    if (git_repository_refdb(out(opened), handle) < 0) git_error_clear();
}

// Another user's repository is refused. Where no safe.directory is configured at all libgit2
// complains of that alone, which tells nobody what is wrong.
Failure fail_open(int code, const char *path) {
    const git_error *error = git_error_last();
    bool unsafe = code == GIT_EOWNER || (code == GIT_ENOTFOUND && error && error->message &&
                                         strstr(error->message, "safe.directory"));
    if (!unsafe) return fail_git(code);
    std::string text = std::string("repository path '") + path + "' is not owned by current user";
    git_error_set_str(GIT_ERROR_CONFIG, text.c_str());
    return fail_git(GIT_EOWNER);
}

// The first branch is master, whatever the user's init.defaultBranch says.
int init_on_master(git_repository **handle, const char *path, bool bare) {
    git_repository_init_options options;
    git_repository_init_options_init(&options, GIT_REPOSITORY_INIT_OPTIONS_VERSION);
    options.flags = GIT_REPOSITORY_INIT_MKPATH;
    if (bare) options.flags |= GIT_REPOSITORY_INIT_BARE;
    options.initial_head = "master";
    return git_repository_init_ext(handle, path, &options);
}

// A clone of what has no commit goes by the setting once more, for its head and that branch's
// upstream. While it is made it has one of its own, before which the user's does not count.
bool set_first_branch(git_repository *handle) {
    return change_config(handle, [](git_config *file) {
        return git_config_set_string(file, kFirstBranch, "master");
    });
}

void forget_first_branch(git_repository *handle) {
    const KeptFailure kept; // it stays then, and does no harm
    change_config(handle,
                  [](git_config *file) { return git_config_delete_entry(file, kFirstBranch); });
}

// The switches are off before files are checked out: the user's own setting must not touch them.
int init_for_clone(git_repository **handle, const char *path, int bare, void *) {
    git::Repository made;
    int code = init_on_master(out(made), path, bare);
    if (!code && !(switch_off(made.get()) && set_first_branch(made.get()))) code = GIT_ERROR;
    if (!code) sync_references(made.get());
    if (!code) *handle = made.release();
    return code;
}

// Wraps what `open` makes of the path; the handle is given back on failure.
template <class F> Repository *opened(const zwchar *path, F open, Here at = {}) try {
    if (!path) return fail_args(at);
    std::string text = git::path(path);
    git::Repository handle;
    if (int code = open(out(handle), text.c_str()); code < 0) return fail_open(code, text.c_str());
    Repository *repository = zRepositoryNew(handle.get());
    if (repository) static_cast<void>(handle.release());
    return repository;
} catch (...) {
    return fail_thrown(at);
}

// A path of libgit2, converted once and kept with the record.
const zwchar *kept(Wide &field, const char *path) {
    if (!field) field.reset(wide_dup(path, strlen(path)));
    return field ? field.get() : fail_memory();
}

bool store(Repository *repository, Wide Repository::*field, const zwchar *text, Here at = {}) {
    if (!repository || !text) return fail_args(at);
    Wide copy(zStrdupW(text));
    if (!copy) return false;
    (repository->*field) = std::move(copy);
    return true;
}

const zwchar *stored(const Repository *repository, Wide Repository::*field, Here at = {}) {
    if (!repository) return fail_args(at);
    const Wide &text = repository->*field;
    return text ? text.get() : u"";
}

// A linked worktree had a trash of its own once, which its removal would destroy: what is in there
// joins that of the repository.
void share_trash(git_repository *git) {
    const std::u16string own = to_wide(git_repository_path(git)) + u"trash";
    const std::u16string shared = to_wide(git_repository_commondir(git)) + u"trash";
    std::vector<os::Name> names;
    if (!os::read_dir(own.c_str(), &names) || !os::make_dirs(shared.c_str())) return;
    for (const os::Name &name : names)
        if (name.text != u"." && name.text != u"..")
            os::move((own + u"/" + name.text).c_str(), (shared + u"/" + name.text).c_str(), false);
    os::remove_dir(own.c_str());
}

// The id that a configuration holds, zero if it holds none.
Oid read_id(git_config *config) {
    std::string text;
    git_oid id{};
    if (config_text(config, kIdKey, text) && text.size() == GIT_OID_HEXSZ)
        if (git_oid_fromstr(&id, text.c_str()) < 0) id = {};
    return *git::oid(&id);
}

int write_id(git_config *file, const Oid &id) {
    char text[GIT_OID_HEXSZ + 1];
    git_oid_tostr(text, sizeof text, git::oid(&id));
    return git_config_set_string(file, kIdKey, text);
}

// Draws the id, unless another process did so since it was looked for.
bool make_id(Repository *repository) {
    Oid id;
    const bool kept = change_config(repository->handle.get(), [&](git_config *file) {
        id = read_id(file);
        if (!zOidIsZero(&id)) return 0;
        return zOidRand(&id) ? write_id(file, id) : GIT_ERROR;
    });
    if (kept) repository->id = id;
    return kept;
}

} // namespace

Repository *zRepositoryOpen(const zwchar *path) { return opened(path, git_repository_open); }
Repository *zRepositoryOpenBare(const zwchar *path) {
    return opened(path, git_repository_open_bare);
}

Repository *zRepositoryDiscover(const zwchar *start, const zwchar *ceilings) try {
    std::string list = ceilings ? git::path(ceilings) : std::string();
    std::ranges::replace(list, ';', GIT_PATH_LIST_SEPARATOR);
    return opened(start, [&](git_repository **handle, const char *path) {
        return git_repository_open_ext(handle, path, 0, ceilings ? list.c_str() : nullptr);
    });
} catch (...) {
    return fail_thrown();
}

Repository *zRepositoryInit(const zwchar *path, bool bare) {
    if (!path || !zPathDirEmpty(path)) return fail_args();
    return opened(path, [&](git_repository **handle, const char *text) {
        return init_on_master(handle, text, bare);
    });
}

Repository *zRepositoryClone(const zwchar *url, const zwchar *path, bool bare) try {
    if (!url) return fail_args();
    std::string from = to_utf8(url);
    return opened(path, [&](git_repository **handle, const char *text) {
        git_clone_options options;
        git_clone_options_init(&options, GIT_CLONE_OPTIONS_VERSION);
        options.bare = bare;
        options.repository_cb = init_for_clone;
        const int code = git_clone(handle, from.c_str(), text, &options);
        if (code >= 0) forget_first_branch(*handle);
        return code;
    });
} catch (...) {
    return fail_thrown();
}

Repository *zRepositoryNew(void *handle) try {
    if (!handle) return fail_args();
    auto *raw = static_cast<git_repository *>(handle);
    if (!switch_off(raw)) return nullptr;
    sync_references(raw);
    guard_loose_objects(raw);
    auto *repository = new (std::nothrow) Repository();
    if (!repository) return fail_memory();
    repository->handle.reset(raw);
    return repository;
} catch (...) {
    return fail_thrown();
}

void zRepositoryFree(Repository *repository) { delete repository; }
void zShellFree(Repository *repository) { zRepositoryFree(repository); }

namespace {

std::u16string without_slash(std::u16string path) {
    std::ranges::replace(path, u'\\', u'/');
    while (path.size() > 1 && path.back() == u'/') path.pop_back();
    return path;
}

// Where a repository's files lie, or the link to them by which it was named.
std::u16string place_of(Repository *repository, const std::u16string &path) {
    const std::u16string place =
        without_slash(zStrsafeW(zRepositoryIsBare(repository) ? zRepositoryPath(repository)
                                                              : zRepositoryWorkdir(repository)));
    const std::u16string link = without_slash(path);
    struct stat status;
    std::u16string target;
    const bool leads = os::lstat(link.c_str(), &status) && S_ISLNK(status.st_mode) &&
                       os::real_path(link.c_str(), &target) && target == place;
    return leads ? link : place;
}

} // namespace

bool zRepositoryDestroy(const zwchar *path) try {
    if (!path) return fail_args();
    auto repository = Owned<Repository, zRepositoryFree>(zRepositoryOpen(path));
    struct stat status; // what is there, and no repository that can be opened, stays
    if (!repository)
        return !os::lstat(path, &status) && sweep_aside(path) ? true : raise_not_found();
    const std::u16string place = place_of(repository.get(), path);
    repository.reset();
    return !place.empty() && remove_repository(place) == Removal::whole;
} catch (...) {
    return fail_thrown();
}

const zwchar *zRepositoryPath(Repository *repository) {
    if (!repository) return fail_args();
    return kept(repository->path, git_repository_path(repository->handle.get()));
}

const zwchar *zRepositoryWorkdir(Repository *repository) {
    const char *path = repository ? git_repository_workdir(repository->handle.get()) : nullptr;
    if (!path) return fail_args();
    return kept(repository->workdir, path);
}

const zwchar *zRepositoryTrash(Repository *repository) try {
    if (!repository || zRepositoryIsBare(repository)) return fail_args();
    if (repository->trash) return repository->trash.get();
    std::string path = git_repository_commondir(repository->handle.get());
    if (zRepositoryIsWorktree(repository)) share_trash(repository->handle.get());
    return kept(repository->trash, (path + "trash").c_str());
} catch (...) {
    return fail_thrown();
}

namespace zev {

namespace {

constexpr int kForeign[] = {GIT_CONFIG_LEVEL_PROGRAMDATA, GIT_CONFIG_LEVEL_SYSTEM,
                            GIT_CONFIG_LEVEL_XDG, GIT_CONFIG_LEVEL_GLOBAL};

} // namespace

OwnSettingsOnly::OwnSettingsOnly() {
    static_assert(std::size(kForeign) == kLevels);
    for (size_t i = 0; i < kLevels; ++i) {
        git_libgit2_opts(GIT_OPT_GET_SEARCH_PATH, kForeign[i], &paths_[i]);
        git_libgit2_opts(GIT_OPT_SET_SEARCH_PATH, kForeign[i], "");
    }
}

OwnSettingsOnly::~OwnSettingsOnly() {
    for (size_t i = 0; i < kLevels; ++i) {
        git_libgit2_opts(GIT_OPT_SET_SEARCH_PATH, kForeign[i], paths_[i].ptr);
        git_buf_dispose(&paths_[i]);
    }
}

} // namespace zev

const Oid *zRepositoryId(Repository *repository, bool create) try {
    if (!repository) return fail_args();
    if (!zOidIsZero(&repository->id)) return &repository->id;
    git::Config config = local_config(repository->handle.get());
    if (!config) return nullptr;
    repository->id = read_id(config.get());
    if (!create || !zOidIsZero(&repository->id)) return &repository->id;
    return make_id(repository) ? &repository->id : nullptr;
} catch (...) {
    return fail_thrown();
}

bool zRepositorySetId(Repository *repository, const Oid *id) try {
    if (!repository || !id) return fail_args();
    return change_config(repository->handle.get(),
                         [id](git_config *file) { return write_id(file, *id); }) &&
           zOidCopy(&repository->id, id);
} catch (...) {
    return fail_thrown();
}

const zwchar *zRepositoryOwner(Repository *repository) {
    return stored(repository, &Repository::owner);
}
const zwchar *zRepositoryName(Repository *repository) {
    return stored(repository, &Repository::name);
}
const zwchar *zRepositoryUrl(Repository *repository) {
    return stored(repository, &Repository::url);
}
bool zRepositorySetOwner(Repository *repository, const zwchar *text) {
    return store(repository, &Repository::owner, text);
}
bool zRepositorySetName(Repository *repository, const zwchar *text) {
    return store(repository, &Repository::name, text);
}
bool zRepositorySetUrl(Repository *repository, const zwchar *text) {
    return store(repository, &Repository::url, text);
}

zwchar *zRepositoryRemoteUrl(Repository *repository) try {
    if (!repository) return fail_args();
    git::Remote remote;
    const int code = git_remote_lookup(out(remote), repository->handle.get(), "origin");
    if (code < 0) return fail_git(code);
    const char *url = git_remote_url(remote.get());
    return url ? zStrdupW(to_wide(url).c_str()) : (raise_not_found(), nullptr);
} catch (...) {
    return fail_thrown();
}

bool zRepositoryIsBare(Repository *repository) {
    return repository ? git_repository_is_bare(repository->handle.get()) == 1 : fail_args();
}
bool zRepositoryIsWorktree(Repository *repository) {
    return repository ? git_repository_is_worktree(repository->handle.get()) == 1 : fail_args();
}

Reference *zRepositoryHead(Repository *repository) { return zReferenceHead(repository); }

bool zRepositoryHeadUnborn(Repository *repository) {
    if (!repository) return fail_args(), true;
    int code = git_repository_head_unborn(repository->handle.get());
    if (code < 0) fail_git(code);
    return code != 0;
}

Odb *zRepositoryOdb(Repository *repository) { return zOdbOpen(repository); }
