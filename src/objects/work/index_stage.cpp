// Files of the work directory into the object store and the index.
//
// libgit2 does this file by file: it loads the filters, reads the file, and asks the store twice.
// Here what holds for the whole operation is decided once, and a file's bytes go to the store as
// they are unless a filter could change them.
#include "objects/work/index.hpp"

#include "common/errno.hpp"
#include "common/limits.hpp"
#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/notify/notify.hpp"
#include "objects/store/bulk.hpp"
#include "objects/work/left.hpp"
#include "objects/work/workdir.hpp"
#include "system/os.hpp"
#include "zev/notify.h"
#include "zev/number.h"
#include "zev/repository.h"

#include <cerrno>
#include <cstdio>

using namespace zev;

namespace {

constexpr size_t kBlock = limits::step;

bool exists(const std::string &path) {
    struct stat status;
    return os::lstat(to_wide(path).c_str(), &status);
}

// Whether one of libgit2's search paths for a level holds a file.
bool level_has(git_config_level_t level, const char *name) {
    git_buf path{};
    if (git_libgit2_opts(GIT_OPT_GET_SEARCH_PATH, level, &path) < 0) return false;
    std::string_view left(path.ptr ? path.ptr : "");
    bool found = false;
    while (!left.empty() && !found) {
        const size_t end = std::min(left.find(GIT_PATH_LIST_SEPARATOR), left.size());
        found = exists(std::string(left.substr(0, end)) + "/" + name);
        left.remove_prefix(std::min(end + 1, left.size()));
    }
    git_buf_dispose(&path);
    return found;
}

// Settings and attribute files that hold for every directory.
bool filters_everywhere(git_repository *repository) {
    git::Config config;
    if (git_repository_config_snapshot(out(config), repository) < 0) return true;
    const char *text = nullptr;
    if (!git_config_get_string(&text, config.get(), "core.autocrlf") &&
        std::string_view(text) != "false")
        return true;
    if (!git_config_get_string(&text, config.get(), "core.attributesfile") && *text) return true;
    git_error_clear();
    return exists(std::string(git_repository_commondir(repository)) + "info/attributes") ||
           level_has(GIT_CONFIG_LEVEL_XDG, "attributes") ||
           level_has(GIT_CONFIG_LEVEL_SYSTEM, "gitattributes");
}

// Somebody has not let us read it.
bool is_closed(const std::u16string &full, const struct stat &status) {
    if (!S_ISREG(status.st_mode)) return false;
    const Owned<FILE, fclose> file(os::open(full.c_str(), u"rb"));
    return !file && (errno == EACCES || errno == EPERM);
}

uint32_t mode_for(const struct stat &status, const git_index_entry *known) {
    if (S_ISLNK(status.st_mode)) return GIT_FILEMODE_LINK;
    // core.filemode is off: the bits of a file on disk mean nothing, those recorded stay.
    return known && S_ISREG(known->mode) ? known->mode : uint32_t{GIT_FILEMODE_BLOB};
}

} // namespace

namespace zev {

// ---- Filters

Filters::Filters(const Index *index)
    : index_(index), always_(filters_everywhere(index->owner->handle.get())) {}

// A drawing is never converted: no line of it ends anywhere, whatever an attribute says of all
// files.
bool Filters::may_apply(std::string_view path) { return !is_drawing_name(path) && are_set(path); }

bool Filters::are_set(std::string_view path) {
    if (always_) return true;
    const size_t slash = path.rfind('/');
    return in_directory(slash == path.npos ? "" : path.substr(0, slash + 1));
}

// Attributes of a directory hold for all below it, and count from the index where the work
// directory lacks the file. `directory` is empty or ends in a slash.
bool Filters::in_directory(std::string_view directory) {
    std::string key(directory);
    if (auto known = directories_.find(key); known != directories_.end()) return known->second;
    const std::string name = key + ".gitattributes";
    struct stat status;
    bool found = os::lstat(full_path(index_->owner, name).c_str(), &status) ||
                 !git_index_find(nullptr, index_->handle.get(), name.c_str());
    if (!found && !directory.empty()) {
        directory.remove_suffix(1);
        const size_t slash = directory.rfind('/');
        found = in_directory(slash == directory.npos ? "" : directory.substr(0, slash + 1));
    }
    return directories_[std::move(key)] = found;
}

// ---- Other repositories

bool NestedRepositories::is_one(const std::string &directory) const {
    struct stat status;
    const auto *known = git_index_get_bypath(index_->handle.get(), directory.c_str(), 0);
    return (known && known->mode == GIT_FILEMODE_COMMIT) ||
           os::lstat(full_path(index_->owner, directory + "/.git").c_str(), &status);
}

bool NestedRepositories::hold(std::string_view path) {
    const size_t slash = path.rfind('/');
    if (slash == path.npos) return false;
    std::string directory(path.substr(0, slash));
    const auto known = directories_.find(directory);
    if (known != directories_.end()) return known->second;
    const bool nested = hold(directory) || is_one(directory);
    return directories_[std::move(directory)] = nested;
}

// ---- Staging one file

// A path that is tracked keeps its place; only a new one can be somebody's twin, or lie in
// another's repository.
Staging Stager::admit(const char *path) {
    if (!path_can_enter(path) || is_too_long(index_, path)) return Staging::refused;
    if (known(path)) return Staging::staged;
    if (nested_.hold(path)) return Staging::refused;
    return index_has_twin(index_, path) ? Staging::twin : Staging::staged;
}

Staging Stager::stage(const char *path) {
    const Staging admitted = admit(path);
    return admitted == Staging::staged ? stage_file(path, known(path)) : admitted;
}

const git_index_entry *Stager::known(const char *path) const {
    return git_index_get_bypath(index_->handle.get(), path, 0);
}

// A file that is written while we read it is read again; one that never rests is entered with
// the times from before, so that the next status looks at it.
Staging Stager::stage_file(const char *path, const git_index_entry *known) {
    constexpr int kTries = 3;
    const std::u16string full = full_path(index_->owner, path);
    git_index_entry entry{};
    for (int tries = 1; tries <= kTries; ++tries) {
        struct stat before, after;
        if (!os::lstat(full.c_str(), &before)) {
            if (errno == ENOENT) return Staging::missing;
            return fail_errno(full.c_str()), Staging::failed;
        }
        if (S_ISDIR(before.st_mode)) return Staging::directory;
        if (!S_ISREG(before.st_mode) && !S_ISLNK(before.st_mode)) return Staging::refused;
        const Read read = store(&entry.id, full.c_str(), path, known, before);
        if (read == Read::failed)
            return is_closed(full, before) ? Staging::closed : Staging::failed;
        entry_set_stat(entry, before);
        entry.mode = mode_for(before, known);
        const bool rests = os::lstat(full.c_str(), &after) && same_stat(before, after);
        if (read == Read::done && (rests || tries == kTries)) break;
        if (tries == kTries) return fail_os(EBUSY, full.c_str()), Staging::failed;
    }
    entry.path = path;
    return index_enter(index_, entry) ? Staging::staged : Staging::failed;
}

bool Stager::open() {
    if (odb_) return true;
    int code = git_repository_odb(out(odb_), index_->owner->handle.get());
    return code < 0 ? fail_git(code) : true;
}

bool Stager::is_stopped() {
    if (!zNotifyIsUsrbrk(notify_)) return false;
    raise_canceled();
    return true;
}

// The blob of a file: of a link, its target's name.
Stager::Read Stager::store(git_oid *id, const zwchar *full, const char *path,
                           const git_index_entry *known, const struct stat &status) {
    if (!open()) return Read::failed;
    if (S_ISLNK(status.st_mode) || filters_.may_apply(path)) {
        int code = git_blob_create_from_workdir(id, index_->owner->handle.get(), path);
        return code < 0 ? (fail_git(code), Read::failed) : Read::done;
    }
    const auto size = static_cast<uint64_t>(status.st_size);
    if (size > kBlock && is_known(full, known, size)) return *id = known->id, Read::done;
    Owned<FILE, fclose> file(os::open(full, u"rb"));
    if (!file) return errno == ENOENT ? Read::changed : (fail_errno(full), Read::failed);
    setvbuf(file.get(), nullptr, _IONBF, 0); // blocks are large, and are our own
    return size > kBlock ? store_blocks(id, file.get(), size) : store_whole(id, file.get(), size);
}

// A large file that was only touched costs one reading instead of a second compression.
bool Stager::is_known(const zwchar *full, const git_index_entry *known, uint64_t size) {
    git_oid id;
    return known && known->file_size == static_cast<uint32_t>(size) &&
           !git_odb_hashfile(&id, to_utf8(full).c_str(), GIT_OBJECT_BLOB) &&
           git_oid_equal(&id, &known->id) && git_odb_exists(odb_.get(), &id);
}

// One byte more than the size tells that the file grew.
Stager::Read Stager::store_whole(git_oid *id, FILE *file, size_t size) {
    block_.resize(std::max(block_.size(), size + 1));
    const size_t count = fread(block_.data(), 1, size + 1, file);
    if (ferror(file)) return fail_errno(), Read::failed;
    if (count != size) return Read::changed;
    int code = write_blob(id, odb_.get(), block_.data(), size);
    return code < 0 ? (fail_git(code), Read::failed) : Read::done;
}

Stager::Read Stager::store_blocks(git_oid *id, FILE *file, uint64_t size) {
    git::OdbStream stream;
    int code = git_odb_open_wstream(out(stream), odb_.get(), static_cast<git_object_size_t>(size),
                                    GIT_OBJECT_BLOB);
    block_.resize(kBlock);
    for (uint64_t left = size; !code && left;) {
        if (is_stopped()) return Read::failed;
        const size_t wanted = static_cast<size_t>(std::min<uint64_t>(left, block_.size()));
        if (fread(block_.data(), 1, wanted, file) != wanted)
            return ferror(file) ? (fail_errno(), Read::failed) : Read::changed;
        code = git_odb_stream_write(stream.get(), block_.data(), wanted);
        left -= wanted;
        if (notify_)
            zNotifyProgress(notify_, u"%s / %s", zNumToHumanBytes(size - left),
                            zNumToHumanBytes(size));
    }
    if (!code) code = git_odb_stream_finalize_write(id, stream.get());
    return code < 0 ? (fail_git(code), Read::failed) : Read::done;
}

bool check_above(const Index *index, const zwchar *path) {
    const zwchar *workdir = zRepositoryWorkdir(index->owner);
    return workdir && check_links(workdir, path);
}

bool is_too_long(const Index *index, std::string_view path) {
    return full_path(index->owner, path).size() >= Z_PATH_MAX - 1;
}

namespace {

const zwchar *word_for(Index *index, Staging done, const char *path) {
    if (done == Staging::twin) return u"reason.eTwin";
    if (!path_can_enter(path)) return u"reason.eName";
    const bool nested = done == Staging::directory || NestedRepositories(index).hold(path);
    return nested ? u"reason.eOtherRepository" : u"reason.eNoFile";
}

} // namespace

Failure raise_left(Index *index, Staging done, const char *path) {
    if (done == Staging::failed) return {};
    if (done == Staging::missing) return fail_os(ENOENT, path);
    if (done == Staging::closed) return fail_os(EACCES, path);
    if (done == Staging::refused && is_too_long(index, path)) return fail_os(ENAMETOOLONG, path);
    done == Staging::twin ? raise_exists(path) : raise_args(path);
    zSetErrorReason(u"%s", word(word_for(index, done, path)));
    return {};
}

bool finish_named(Index *index, Staging done, const char *path) {
    if (done == Staging::staged) return true;
    if (done != Staging::directory) return raise_left(index, done, path);
    int code = git_index_add_bypath(index->handle.get(), path);
    if (code < 0) return fail_git(code);
    index->dirty = true;
    return index_drop_below(index, path);
}

bool stage_named(Index *index, Stager &stager, const char *path) {
    return finish_named(index, stager.stage(path), path);
}

} // namespace zev

bool zIndexAddBypath(Index *index, const zwchar *path) try {
    if (!index || !path) return fail_args();
    if (!check_above(index, path)) return false;
    Stager stager(index);
    return stage_named(index, stager, to_utf8(path).c_str());
} catch (...) {
    return fail_thrown();
}
