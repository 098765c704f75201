// Nodes of an analysis: what the user decides on, and what each side of it did.
#include "objects/conflict/conflict.hpp"

#include "common/utf.hpp"
#include "objects/notify/notify.hpp"
#include "system/os.hpp"
#include "zev/status.h"

#include <new>

using namespace zev;

namespace {

// Adds a side, or puts it in place of the one with its path.
void put_side(ConflictSides &sides, ConflictSide side) {
    const auto [known, is_new] = sides.by_path.try_emplace(side.path(), sides.list.size());
    if (is_new)
        sides.list.push_back(std::move(side));
    else
        sides.list[known->second] = std::move(side);
}

// What the user took away by hand is missing, whatever the index says.
int32_t our_status(const Index *index, const Conflict &copy) {
    const int32_t status = zConflictOurStatus(&copy);
    if (status != Z_KIND_ADDED && status != Z_KIND_MODIFIED) return status;
    return entry_on_disk(index, *git_entry(copy.ours.get())) ? status : int32_t{Z_KIND_MISSING};
}

void put_ours(ConflictNode *node, const Index *index, Conflict &copy) {
    const int32_t status = our_status(index, copy);
    put_side(node->ours, {std::move(copy.ours), std::move(copy.ancestor), status});
    node->type.clear();
}

void put_theirs(ConflictNode *node, Conflict &copy) {
    const int32_t status = zConflictTheirStatus(&copy);
    put_side(node->theirs, {std::move(copy.theirs), std::move(copy.ancestor), status});
    node->type.clear();
}

const char *path_of(const IndexEntry *entry, const IndexEntry *ancestor) {
    return git_entry(entry ? entry : ancestor)->path;
}

int32_t status_of(const ConflictSide *side) { return side ? side->status : -1; }

const zwchar *path_of(const ConflictNode *node, const ConflictSide *side) {
    return side ? park(side->path()) : node->path.c_str();
}

} // namespace

namespace zev {

// Each part of the way is a real directory: a file behind a link is not the entry's.
bool entry_on_disk(const Index *index, const git_index_entry &entry) {
    struct stat status;
    const std::string_view path = entry.path;
    for (size_t slash = path.find('/'); slash != path.npos; slash = path.find('/', slash + 1)) {
        const std::u16string above = full_path(index->owner, path.substr(0, slash));
        if (!os::lstat(above.c_str(), &status) || !S_ISDIR(status.st_mode)) return false;
    }
    if (!os::lstat(full_path(index->owner, path).c_str(), &status)) return false;
    return S_ISREG(status.st_mode) || (S_ISLNK(status.st_mode) && S_ISLNK(entry.mode));
}

} // namespace zev

// ---- The node

ConflictNode *zConflictNodeNew(const zwchar *path) try {
    if (!path) return fail_args();
    return new ConflictNode{path};
} catch (...) {
    return fail_thrown();
}

void zConflictNodeFree(ConflictNode *node) { delete node; }

int32_t zConflictNodeCompare(const ConflictNode *a, const ConflictNode *b) {
    if (!a || !b) return fail_args(), 0;
    return zStricollW(a->path.c_str(), b->path.c_str());
}

const zwchar *zConflictNodePath(const ConflictNode *node) {
    return node ? node->path.c_str() : fail_args();
}

bool zConflictNodeSetPath(ConflictNode *node, const zwchar *path) try {
    if (!node || !path) return fail_args();
    node->path = std::u16string(path); // which may be the node's own
    return true;
} catch (...) {
    return fail_thrown();
}

uint32_t zConflictNodeSolution(const ConflictNode *node) {
    if (!node) return fail_args(), 0;
    return node->solution;
}

bool zConflictNodeSetSolution(ConflictNode *node, uint32_t solution) {
    if (!node) return fail_args();
    node->solution = solution;
    return true;
}

bool zConflictNodeIsResolved(const ConflictNode *node) {
    if (!node) return fail_args();
    return node->resolved;
}

bool zConflictNodeSetResolved(ConflictNode *node, bool resolved) {
    if (!node) return fail_args();
    node->resolved = resolved;
    return true;
}

uint32_t zConflictNodeOptions(const ConflictNode *node) {
    if (!node) return fail_args(), 0;
    return node->options;
}

bool zConflictNodeSetOptions(ConflictNode *node, uint32_t options) {
    if (!node) return fail_args();
    node->options = options;
    return true;
}

bool zConflictNodeIsOptionOn(const ConflictNode *node, uint32_t bits) {
    if (!node) return fail_args();
    return (node->options & bits) == bits;
}

bool zConflictNodeSetOptionOn(ConflictNode *node, uint32_t bits) {
    if (!node) return fail_args();
    return zConflictNodeSetOptions(node, node->options | bits);
}

bool zConflictNodeIsOptionOff(const ConflictNode *node, uint32_t bits) {
    if (!node) return fail_args();
    return (node->options & bits) == 0;
}

bool zConflictNodeSetOptionOff(ConflictNode *node, uint32_t bits) {
    if (!node) return fail_args();
    return zConflictNodeSetOptions(node, node->options & ~bits);
}

// ---- Its sides

uint64_t zConflictNodeOurCount(const ConflictNode *node) {
    if (!node) return fail_args(), 0;
    return node->ours.list.size();
}

uint64_t zConflictNodeTheirCount(const ConflictNode *node) {
    if (!node) return fail_args(), 0;
    return node->theirs.list.size();
}

const ConflictSide *zConflictOurSide(const ConflictNode *node, uint64_t index) {
    return node ? node->ours.at(index) : fail_args();
}

const ConflictSide *zConflictTheirSide(const ConflictNode *node, uint64_t index) {
    return node ? node->theirs.at(index) : fail_args();
}

const IndexEntry *zConflictNodeOurEntry(const ConflictNode *node, uint64_t index) {
    const ConflictSide *side = zConflictOurSide(node, index);
    return side ? side->entry.get() : nullptr;
}

const IndexEntry *zConflictNodeTheirEntry(const ConflictNode *node, uint64_t index) {
    const ConflictSide *side = zConflictTheirSide(node, index);
    return side ? side->entry.get() : nullptr;
}

const IndexEntry *zConflictNodeOurAncestor(const ConflictNode *node, uint64_t index) {
    const ConflictSide *side = zConflictOurSide(node, index);
    return side ? side->ancestor.get() : nullptr;
}

const IndexEntry *zConflictNodeTheirAncestor(const ConflictNode *node, uint64_t index) {
    const ConflictSide *side = zConflictTheirSide(node, index);
    return side ? side->ancestor.get() : nullptr;
}

int32_t zConflictNodeOurStatus(const ConflictNode *node, uint64_t index) {
    return status_of(zConflictOurSide(node, index));
}

int32_t zConflictNodeTheirStatus(const ConflictNode *node, uint64_t index) {
    return status_of(zConflictTheirSide(node, index));
}

const zwchar *zConflictNodeOurPath(const ConflictNode *node, uint64_t index) {
    return node ? path_of(node, node->ours.at(index)) : fail_args();
}

const zwchar *zConflictNodeTheirPath(const ConflictNode *node, uint64_t index) {
    return node ? path_of(node, node->theirs.at(index)) : fail_args();
}

// Takes the place of a side that the node has of this path: the merge knows the ancestor better
// than the head, by which a file below was found.
bool zConflictNodeAddPair(ConflictNode *node, Index *index, const Conflict *conflict) try {
    if (!node || !index || !conflict) return fail_args();
    ConflictPtr ours(zConflictDup(conflict)), theirs(zConflictDup(conflict));
    if (!ours || !theirs) return false;
    if (conflict->ours || conflict->ancestor) put_ours(node, index, *ours);
    if (conflict->theirs || conflict->ancestor) put_theirs(node, *theirs);
    return true;
} catch (...) {
    return fail_thrown();
}

bool zConflictNodeAddOurs(ConflictNode *node, Index *index, const IndexEntry *entry,
                          const IndexEntry *ancestor) try {
    if (!node || !index || (!entry && !ancestor)) return fail_args();
    ConflictPtr copy = conflict_of(git_entry(ancestor), git_entry(entry), nullptr);
    if (!copy) return false;
    if (!node->ours.find(path_of(entry, ancestor))) put_ours(node, index, *copy);
    return true;
} catch (...) {
    return fail_thrown();
}

bool zConflictNodeAddTheirs(ConflictNode *node, const IndexEntry *entry,
                            const IndexEntry *ancestor) try {
    if (!node || (!entry && !ancestor)) return fail_args();
    ConflictPtr copy = conflict_of(git_entry(ancestor), nullptr, git_entry(entry));
    if (!copy) return false;
    if (!node->theirs.find(path_of(entry, ancestor))) put_theirs(node, *copy);
    return true;
} catch (...) {
    return fail_thrown();
}

// ---- Texts

const zwchar *zConflictNodeType(ConflictNode *node) try {
    if (!node) return fail_args();
    if (node->theirs.list.size() > 1) return word(u"conflict.sDirectoryObstructed");
    if (node->ours.list.size() > 1) return word(u"conflict.sFileObstructed");
    if (node->type.empty())
        node->type = std::u16string(zStatusName(status_of(node->ours.at(0)))) + u"/" +
                     zStatusName(status_of(node->theirs.at(0)));
    return node->type.c_str();
} catch (...) {
    return fail_thrown();
}

const zwchar *zResolveSolutionName(uint32_t solution) {
    if (solution == Z_CONFLICT_USE_THEIRS) return word(u"conflict.sUsingTheirChanges");
    if (solution == Z_CONFLICT_USE_OURS) return word(u"conflict.sUsingOurChanges");
    return u"*Invalid Solution*";
}

const zwchar *zResolveOptionName(uint32_t option) {
    return option == Z_CONFLICT_NO_TRASH ? word(u"conflict.sDontUseTrash") : u"*Invalid Option*";
}
