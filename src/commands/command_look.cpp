// Looking: a directory of the node tree, the commits of a branch, the changes of a commit.
#include "commands/adapter.hpp"
#include "objects/history/revision.hpp"
#include "objects/store/object.hpp"
#include "zev/commit.h"
#include "zev/status.h"

using namespace zev;

namespace {

using RevListPtr = Owned<RevList, zRevListFree>;

// Kinds that no commit makes.
constexpr uint32_t kFileLog = Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_IGNORED | Z_SPEC_NO_UNTRACKED |
                              Z_SPEC_NO_TYPECHANGE | Z_SPEC_NO_UNREADABLE;

// Keep-files stay behind the scenes.
bool tell_node(const Node &node, CommandListing callback, void *context) {
    const std::u16string path = node_path(node);
    if (ends_in_keep(path)) return true;
    const int32_t status = node_status(node);
    const std::u16string from = status == Z_KIND_RENAMED ? node_old_path(node) : u"";
    return callback(status, from.c_str(), path.c_str(), context);
}

bool tell_revision(const Revision *revision, const CommandLog *log) {
    return log->entry(log, zRevisionId(revision), zRevisionAuthor(revision),
                      zRevisionTime(revision), zRevisionMessage(revision));
}

RevListPtr history(Repository *repository, const zwchar *file) {
    RevSpecPtr spec(zRevSpecNew());
    if (!spec) return nullptr;
    if (file && *file &&
        !(zRevSpecSetOptions(spec.get(), kFileLog) &&
          zRevSpecAddPath(spec.get(), pattern_of(file).c_str())))
        return nullptr;
    return RevListPtr(zRevListBuild(repository, spec.get()));
}

// From the commit's record, or, where that is missing or damaged, from the commit, which then gets
// one.
DiffListPtr changes_of(Repository *repository, const Oid *id) {
    RevdbPtr db(zRevdbOpen(repository));
    if (!db) return nullptr;
    if (DiffListPtr recorded{zRevdbChanges(db.get(), id)}) return recorded;
    const CommitPtr commit(zCommitByid(repository, id));
    const RevisionPtr revision = commit ? revision_of(commit.get()) : nullptr;
    if (!revision) return nullptr;
    zRevdbInsert(db.get(), id, revision.get());
    return DiffListPtr(zRevisionMatch(revision.get(), nullptr));
}

} // namespace

bool zCommandList(const zwchar *workdir, const zwchar *directory, CommandListing callback,
                  void *context) try {
    const ConnectionUse connection(workdir);
    if (!connection) return false;
    if (!callback) return fail_args();
    const Node *node = find_node(connection->root.get(), zStrsafeW(directory));
    if (!node || !node->is(kDirectory)) return raise_not_found(zStrsafeW(directory));
    for (const auto &child : node->children)
        if (!tell_node(*child, callback, context)) break;
    return true;
} catch (...) {
    return fail_thrown();
}

bool zCommandLog(const zwchar *workdir, const zwchar *file, const CommandLog *log) try {
    const ConnectionUse connection(workdir);
    if (!connection) return false;
    if (!log || !log->entry || !log->stop) return fail_args();
    const RevListPtr list = history(connection.repository(), file);
    if (!list) return false;
    const uint64_t count = zRevListLength(list.get());
    for (uint64_t i = 0; i < count && !log->stop(log); ++i)
        if (!tell_revision(zRevListEntry(list.get(), i), log)) break;
    return true;
} catch (...) {
    return fail_thrown();
}

void zCommandLogDiff(const zwchar *workdir, const Oid *id, CommandListing callback,
                     void *context) try {
    const ConnectionUse connection(workdir);
    if (!connection) return;
    if (!id || !callback) return static_cast<void>(fail_args());
    if (DiffListPtr changes = changes_of(connection.repository(), id))
        tell_changes(changes.get(), callback, context);
} catch (...) {
    fail_thrown();
}
