// The reference MERGE_HEAD names what is being merged, for git as for us.
#include "merge_state.hpp"

#include "graph.hpp"
#include "refs.hpp"
#include "transfer.hpp"

namespace host {

namespace fs = std::filesystem;

bool is_as_head(const WorkingCopy &copy, Index *index) {
    const OwnedTree tree(check(zIndexWriteTree(index)));
    return zOidIsEqual(zTreeId(tree.get()), zCommitTreeId(copy.head().get()));
}

std::string unfinished_merge(const WorkingCopy &copy) {
    if (!zReferenceExists(copy.repository(), kMergeHead)) return {};
    const OwnedCommit theirs(zCommitByref(copy.repository(), kMergeHead));
    return theirs ? merge_note(zCommitId(theirs.get())) : "";
}

// With the texts that git keeps beside it.
void finish_merge(const WorkingCopy &copy) {
    if (!zReferenceExists(copy.repository(), kMergeHead)) return;
    delete_reference(copy, narrow(kMergeHead));
    for (const char *name : {"MERGE_MSG", "MERGE_MODE"}) {
        std::error_code ignored;
        fs::remove(own_directory(copy) / name, ignored);
    }
}

void require_no_merge(const WorkingCopy &copy) {
    if (!unfinished_merge(copy).empty())
        throw Failed(kOther, "the last merge is not committed yet; commit it, or revert "
                             "everything");
}

// What was reverted as a whole must not be noted as merged by a later commit.
void forget_merge(const WorkingCopy &copy) {
    if (unfinished_merge(copy).empty() || has_conflicts(copy) || !copy.born()) return;
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    if (is_as_head(copy, index.get())) finish_merge(copy);
}

} // namespace host
