// A tree beside an index: the comparison is the store's, the index this floor's.
#include "objects/store/diff.hpp"
#include "objects/store/object.hpp"
#include "objects/work/index.hpp"

using namespace zev;

DiffList *zDiffTreeToIndex(Repository *repository, Tree *tree, Index *index, PathSpec *spec,
                           DiffCancel cancel) try {
    if (!repository && !tree && !index) return fail_args();
    if (!repository) repository = tree ? tree->owner : index->owner;
    const IndexLook look(repository, index);
    return diff_tree_to_index(repository->handle.get(), tree ? tree->handle.get() : nullptr,
                              index ? index->handle.get() : nullptr, spec, cancel);
} catch (...) {
    return fail_thrown();
}
