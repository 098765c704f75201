// The reference that names the merge goes last: what breaks off before is aborted once more.
#include "merge_abort.hpp"

#include "conflict_nodes.hpp"
#include "front.hpp"
#include "merge_state.hpp"
#include "transfer.hpp"
#include "walks.hpp"

namespace host {

namespace {

// Nothing was staged when the merge began, so that what is now came with it, or by settling it.
void add_staged(const WorkingCopy &copy, PathSpec *paths) {
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    const OwnedTree head(check(zCommitTree(copy.head().get())));
    const OwnedSpec all(check(zPathSpecNew(nullptr, Z_SPEC_NO_RENAMED | Z_SPEC_NO_UNCHANGED)));
    const OwnedDiff changes(
        check(zDiffTreeToIndex(copy.repository(), head.get(), index.get(), all.get(), nullptr)));
    for (uint64_t i = 0; i < zDiffListLength(changes.get()); ++i)
        check(zPathSpecAdd(paths, zDiffEntryNewPath(zDiffListEntry(changes.get(), i))));
}

// Their files may be half decided.
void add_conflicts(const WorkingCopy &copy, PathSpec *paths) {
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    each_entry_of(index.get(), [&](const IndexEntry *entry) {
        if (zIndexEntryStage(entry)) check(zPathSpecAdd(paths, zIndexEntryPath(entry)));
    });
}

} // namespace

int abort_merge(Host &host, const WorkingCopy &copy) {
    const auto merge = unsettled_merge(copy);
    if (!merge) throw Failed(kNotFound, "no merge is under way");
    const OwnedSpec paths(
        check(zPathSpecNew(nullptr, Z_SPEC_LITERAL | Z_SPEC_NO_UNTRACKED | Z_SPEC_NO_IGNORED)));
    check(zPathSpecSetNotify(paths.get(), host.notify));
    if (has_conflicts(copy)) {
        add_conflicts(copy, paths.get());
        take_ours(host, copy, [](const std::string &) { return true; });
    }
    add_staged(copy, paths.get());
    stop_on_break(host.notify);
    host.notify->forget();
    if (zPathSpecCount(paths.get())) check(zShellRevert(copy.repository(), paths.get()));
    require_done(host, "taking the merge back");
    {
        const OwnedIndex lock = copy.lock_index(); // by which what a kill leaves is taken away
        finish_merge(copy);
    }
    host.out.line("the merge is taken back");
    host.out.record(Record("merge").set(u"result", "aborted").set(u"theirs", &merge->theirs));
    return kDone;
}

} // namespace host
