// A client has whole trees of few commits only: the record of a commit tells its changes without
// any, and a file comes by its path alone, with the trees that lead to it.
#include "server_history.hpp"

#include "server.hpp"
#include "verb.hpp"

namespace host {

namespace {

bool has_server(const WorkingCopy &copy) { return !origin_of(copy).empty(); }

// Every commit is here, and its record.
bool is_whole(const WorkingCopy &copy, const Commit *newest) {
    const Owned<Revdb, zRevdbFree> db(check(zRevdbOpen(copy.repository())));
    OwnedCommit commit(check(zCommitByid(copy.repository(), zCommitId(newest))));
    for (; commit; commit.reset(zCommitParent(commit.get()))) {
        if (!zRevdbExists(db.get(), zCommitId(commit.get()))) return false;
        if (!zCommitParentCount(commit.get())) return true;
    }
    return false;
}

bool has_file(const WorkingCopy &copy, const Commit *commit, const std::string &path) {
    const OwnedTree tree(zCommitTree(commit));
    if (!tree) return false;
    const OwnedTreeEntry entry(zTreeEntryBypath(tree.get(), wide(path).c_str()));
    if (!entry) return false; // not in the commit, or a tree on the way is not here
    const OwnedOdb odb(check(zOdbOpen(copy.repository())));
    return zOdbExists(odb.get(), zTreeEntryId(entry.get()));
}

// Null also where HEAD follows none of the server's branches.
OwnedCommit followed_commit(const WorkingCopy &copy) try {
    if (!has_server(copy)) return {};
    return server_commit(copy);
} catch (const Failed &failed) {
    if (failed.error_class != kNotFound) throw;
    return {};
}

} // namespace

OwnedCommit newest_commit(const WorkingCopy &copy) {
    OwnedCommit newest = followed_commit(copy);
    return newest ? std::move(newest) : copy.head();
}

void bring_history(const Host &host, const WorkingCopy &copy) {
    const OwnedCommit newest = has_server(copy) ? known_commit(copy) : OwnedCommit();
    if (!newest || is_whole(copy, newest.get())) return;
    use_account(server_of(origin_of(copy)));
    const OwnedRemote remote(check(zRemoteOpen(copy.repository())));
    const Oid *id = zCommitId(newest.get());
    if (zRemoteDownloadCommits(remote.get(), id, 0, nullptr) &&
        zRemoteDownloadRevlist(remote.get(), id, 0, nullptr))
        return;
    stop_on_break(host.notify);
    host.out.warn(say("the history before is not here, and the server doesn't send it: %s",
                      narrow(zErrorDetail())));
}

OwnedCommit find_commit(const Host &host, const WorkingCopy &copy,
                        const std::string &revision) try {
    return copy.commit(revision);
} catch (const Failed &failed) {
    if (failed.error_class != kNotFound || !has_server(copy)) throw;
    bring_history(host, copy);
    return copy.commit(revision);
}

OwnedCommit commit_with(const Host &host, const WorkingCopy &copy, const std::string &revision,
                        const std::string &path) {
    OwnedCommit commit = find_commit(host, copy, revision);
    if (!has_server(copy) || has_file(copy, commit.get(), path)) return commit;
    use_account(server_of(origin_of(copy)));
    const OwnedRemote remote(check(zRemoteOpen(copy.repository())));
    const OwnedSpec spec(
        check(zPathSpecNew(path.empty() ? nullptr : wide(path).c_str(), Z_SPEC_LITERAL)));
    check(zPathSpecSetNotify(spec.get(), host.notify));
    if (!zRemoteDownloadMatches(remote.get(), zCommitId(commit.get()), Z_OBJECT_ANY, spec.get()))
        stop_on_break(host.notify); // whoever looks for the file says that it isn't here
    return commit;
}

} // namespace host
