// Packs: built of chosen objects, or of all that these lead to, and taken in as they came. A
// builder copies what lies packed already rather than pack it anew, see pack_copy.cpp.
#include "objects/store/pack.hpp"

#include "objects/store/loose_object.hpp"
#include "objects/store/odb.hpp"
#include "objects/store/pack_copy.hpp"
#include "objects/store/pack_file.hpp"
#include "system/os.hpp"

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include <git2/pack.h>
#include <git2/sys/config.h>
#include <git2/sys/repository.h>

using namespace zev;

namespace {

using Builder = GitPackBuilder;

// ---- The search for deltas
//
// It takes longer than all the rest of a pack, so that what travels goes without; what is to stay
// has it, within bounds of memory. libgit2 leaves objects above core.bigFileThreshold out of it
// (1.5 asks pack.deltaCacheSize for that number, by mistake), and reads this only once, when a
// builder is made. So for that moment the repository's handle has a configuration, in memory, that
// says so.

constexpr const char *kThresholds[] = {"core.bigfilethreshold", "pack.deltacachesize"};
constexpr const char *kWindow = "pack.windowmemory"; // of one thread
constexpr const char *kDeltaMost = "67108864";       // 64 MiB, both

struct Settings : git_config_backend {
    bool deltas;
};

int on_get(git_config_backend *self, const char *key, git_config_entry **entry) {
    static const git_config_entry kNone = {
        "", "0", 0, GIT_CONFIG_LEVEL_APP, [](git_config_entry *) {}, nullptr};
    static const git_config_entry kMost = {
        "", kDeltaMost, 0, GIT_CONFIG_LEVEL_APP, [](git_config_entry *) {}, nullptr};
    const bool deltas = static_cast<Settings *>(self)->deltas;
    for (const char *known : kThresholds)
        if (!strcmp(key, known))
            return *entry = const_cast<git_config_entry *>(deltas ? &kMost : &kNone), 0;
    if (!deltas || strcmp(key, kWindow)) return GIT_ENOTFOUND;
    return *entry = const_cast<git_config_entry *>(&kMost), 0;
}

int snapshot(git_config_backend **out, git_config_backend *of);

int new_backend(git_config_backend **out, bool deltas) {
    auto *backend = new (std::nothrow) Settings{};
    if (!backend) return git_error_set_oom(), GIT_ERROR;
    backend->deltas = deltas;
    backend->version = GIT_CONFIG_BACKEND_VERSION;
    backend->readonly = 1;
    backend->open = [](git_config_backend *, git_config_level_t, const git_repository *) {
        return 0;
    };
    backend->get = on_get;
    backend->snapshot = snapshot;
    backend->free = [](git_config_backend *self) { delete static_cast<Settings *>(self); };
    return *out = backend, 0;
}

int snapshot(git_config_backend **out, git_config_backend *of) {
    return new_backend(out, static_cast<Settings *>(of)->deltas);
}

int new_settings(git_config **settings, bool deltas) {
    git_config_backend *backend = nullptr;
    int code = git_config_new(settings);
    if (code < 0 || (code = new_backend(&backend, deltas)) < 0) return code;
    code = git_config_add_backend(*settings, backend, GIT_CONFIG_LEVEL_APP, nullptr, 0);
    if (code < 0) backend->free(backend);
    return code;
}

// ---- What is in a pack

using How = int (*)(git_packbuilder *builder, const git_oid *id);

struct Wanted {
    How how;
    git_oid id;
};

int insert_one(git_packbuilder *builder, const git_oid *id) {
    return git_packbuilder_insert(builder, id, nullptr);
}
int insert_recur(git_packbuilder *builder, const git_oid *id) {
    return git_packbuilder_insert_recur(builder, id, nullptr);
}

} // namespace

// The object database is opened before, since it reads settings of its own when it is made.
int zev::new_pack_builder(GitPackBuilder &builder, git_repository *handle, bool deltas) {
    git::Odb odb;
    git::Config own, settings;
    int code = git_repository_odb(out(odb), handle);
    if (code >= 0) code = git_repository_config(out(own), handle);
    if (code >= 0) code = new_settings(out(settings), deltas);
    if (code < 0) return code;
    git_repository_set_config(handle, settings.get());
    code = git_packbuilder_new(out(builder), handle);
    git_repository_set_config(handle, own.get());
    if (code >= 0) git_packbuilder_set_threads(builder.get(), 0);
    return code;
}

struct PackBuilder {
    Builder handle;
    Repository *owner;
    Wide idx, pack;
    std::vector<Wanted> wanted; // as it was inserted
    bool used = false;          // the handle has given out its objects, and never does so again
    std::optional<uint64_t> copied{}; // objects of the last walk, where it went round the handle
};

struct PackWriter {
    std::unique_ptr<PackFile> file; // null once it is committed or refused
    Repository *owner;
    git::Odb odb;
};

namespace {

bool insert(PackBuilder *builder, const Oid *id, How how, Here at = {}) try {
    if (!builder || !id) return fail_args(at);
    builder->wanted.push_back({how, *git::oid(id)});
    int code = how(builder->handle.get(), git::oid(id));
    if (code >= 0) return true;
    builder->wanted.pop_back();
    return fail_git(code);
} catch (...) {
    return fail_thrown(at);
}

// A handle that has given out nothing yet, with the same objects.
int renew(PackBuilder *builder) {
    Builder handle;
    int code = new_pack_builder(handle, builder->owner->handle.get(), false);
    for (const Wanted &wanted : builder->wanted) {
        if (code < 0) return code;
        code = wanted.how(handle.get(), &wanted.id);
    }
    if (code < 0) return code;
    builder->handle = std::move(handle);
    builder->used = false;
    return 0;
}

// Calls `take` with each piece; another result than 0 ends it and is given back. libgit2 itself
// goes on after a positive one.
template <class F> int each_piece(PackBuilder *builder, F take) {
    if (builder->used)
        if (int code = renew(builder); code < 0) return code;
    builder->used = true;
    builder->copied.reset();
    struct Walk {
        F take;
        int32_t result;
    } walk{take, 0};
    int code = git_packbuilder_foreach(
        builder->handle.get(),
        [](void *bytes, size_t size, void *context) {
            auto *self = static_cast<Walk *>(context);
            self->result = self->take(bytes, size);
            return self->result ? GIT_EUSER : 0;
        },
        &walk);
    return walk.result ? walk.result : code;
}

// Objects that were named one by one, which is what a transfer asks for: libgit2 would compress
// each of them anew.
bool is_plain(const PackBuilder &builder) {
    return std::ranges::all_of(builder.wanted,
                               [](const Wanted &one) { return one.how == insert_one; });
}

template <class F> int walk(PackBuilder &builder, F take) {
    if (!is_plain(builder)) return each_piece(&builder, take);
    std::vector<git_oid> ids;
    ids.reserve(builder.wanted.size());
    for (const Wanted &wanted : builder.wanted) ids.push_back(wanted.id);
    return copy_pack(builder.owner->handle.get(), std::move(ids), take, builder.copied.emplace());
}

Failure fail_closed() {
    git_error_set_str(GIT_ERROR_INDEXER, "the pack was committed or refused");
    return fail_git(GIT_ERROR);
}

Wide copy(const std::u16string &text) {
    Wide made(zStrdupW(text.c_str()));
    if (!made) throw std::bad_alloc();
    return made;
}

} // namespace

// ---- Building

PackBuilder *zPackBuilderNew(Repository *repository) try {
    if (!repository) return fail_args();
    Builder handle;
    int code = new_pack_builder(handle, repository->handle.get(), false);
    if (code < 0) return fail_git(code);
    return new PackBuilder{std::move(handle), repository, {}, {}, {}};
} catch (...) {
    return fail_thrown();
}

void zPackBuilderFree(PackBuilder *builder) { delete builder; }

bool zPackBuilderInsert(PackBuilder *builder, const Oid *id) {
    return insert(builder, id, insert_one);
}
bool zPackBuilderInsertRecur(PackBuilder *builder, const Oid *id) {
    return insert(builder, id, insert_recur);
}
bool zPackBuilderInsertTree(PackBuilder *builder, const Oid *id) {
    return insert(builder, id, git_packbuilder_insert_tree);
}
bool zPackBuilderInsertCommit(PackBuilder *builder, const Oid *id) {
    return insert(builder, id, git_packbuilder_insert_commit);
}

bool zPackBuilderWrite(PackBuilder *builder, const zwchar *directory) try {
    if (!builder || !directory) return fail_args();
    const auto file = PackFile::begin(directory);
    if (!file) return false;
    bool stored = true;
    int code = walk(*builder, [&](const void *bytes, size_t size) {
        return (stored = file->append(bytes, size)) ? 0 : GIT_EUSER;
    });
    if (!stored) return false;
    if (code < 0) return fail_git(code);
    if (!file->commit()) return false;
    Wide idx = copy(file->path(u".idx"));
    builder->pack = copy(file->path(u".pack"));
    builder->idx = std::move(idx);
    return true;
} catch (...) {
    return fail_thrown();
}

bool zPackBuilderForeach(PackBuilder *builder, PackCallback callback, void *context) try {
    if (!builder || !callback) return fail_args();
    git_error_clear(); // a callback's code has no text of libgit2's
    const auto take = [&](const void *bytes, uint64_t size) {
        return callback(bytes, size, context);
    };
    const int code = walk(*builder, take);
    if (code) return fail_git(code);
    builder->idx.reset();
    builder->pack.reset();
    return true;
} catch (...) {
    return fail_thrown();
}

uint64_t zPackBuilderCount(const PackBuilder *builder) {
    if (!builder) return fail_args(), 0;
    return git_packbuilder_object_count(builder->handle.get());
}
uint64_t zPackBuilderWritten(const PackBuilder *builder) {
    if (!builder) return fail_args(), 0;
    return builder->copied.value_or(git_packbuilder_written(builder->handle.get()));
}

const zwchar *zPackBuilderIdx(const PackBuilder *builder) {
    return builder ? builder->idx.get() : fail_args();
}
const zwchar *zPackBuilderPack(const PackBuilder *builder) {
    return builder ? builder->pack.get() : fail_args();
}

// ---- Taking in

PackWriter *zPackWriterNew(Repository *repository) try {
    if (!repository) return fail_args();
    git::Odb odb;
    if (int code = git_repository_odb(out(odb), repository->handle.get()); code < 0)
        return fail_git(code);
    std::u16string place = objects_directory(repository->handle.get()) + u"pack/";
    os::make_dirs(place.c_str()); // a copy made by other means may lack it while it is empty
    auto file = PackFile::begin(std::move(place));
    if (!file) return nullptr;
    return new PackWriter{std::move(file), repository, std::move(odb)};
} catch (...) {
    return fail_thrown();
}

void zPackWriterFree(PackWriter *writer) { delete writer; }
Repository *zPackWriterOwner(const PackWriter *writer) {
    return writer ? writer->owner : fail_args();
}

bool zPackWriterAppend(PackWriter *writer, const void *bytes, uint64_t size) try {
    if (!writer || !bytes) return fail_args();
    if (!writer->file) return fail_closed();
    if (writer->file->append(bytes, size)) return true;
    writer->file.reset();
    return false;
} catch (...) {
    return fail_thrown();
}

namespace {

template <class F> bool commit_file(PackWriter *writer, F commit) {
    const std::unique_ptr<PackFile> file = std::move(writer->file);
    if (!file) return fail_closed();
    if (!file->check() || !commit(*file)) return false;
    int code = git_odb_refresh(writer->odb.get());
    return code < 0 ? fail_git(code) : true;
}

} // namespace

bool zPackWriterCommit(PackWriter *writer) try {
    if (!writer) return fail_args();
    return commit_file(writer, [](PackFile &file) { return file.commit(); });
} catch (...) {
    return fail_thrown();
}

bool zev::commit_formed(PackWriter *writer, uint64_t most) {
    return commit_file(writer, [&](PackFile &file) { return file.commit_formed(most); });
}
