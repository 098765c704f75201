// A tree is put together as an index in memory and written in one step, at any depth.
#include "objects/work/treebuilder.hpp"
#include "common/pathname.hpp"
#include "common/utf.hpp"
#include "objects/store/strict.hpp"
#include "objects/store/tree.hpp"
#include "zev/tree.h"

#include <new>
#include <string>

using namespace zev;

bool zev::builder_insert(TreeBuilder *builder, const std::string &path, const git_oid &id,
                         git_filemode_t mode) {
    if (!check_path(path) || !check_twin(builder->index.get(), path.c_str())) return false;
    git_index_entry entry{};
    entry.mode = static_cast<uint32_t>(mode);
    entry.id = id;
    entry.path = path.c_str();
    return index_enter(builder->index.get(), entry);
}

TreeBuilder *zTreeBuilderNew(Repository *repository, Tree *base) {
    if (!repository) return fail_args();
    Owned<Index, zIndexFree> index(base ? zIndexBytree(base) : zIndexNew(repository));
    if (!index) return nullptr;
    auto *builder = new (std::nothrow) TreeBuilder{std::move(index), repository};
    return builder ? builder : fail_memory();
}

void zTreeBuilderFree(TreeBuilder *builder) { delete builder; }

bool zTreeBuilderExists(TreeBuilder *builder, const zwchar *path) try {
    if (!builder || !path) return fail_args();
    return git_index_get_bypath(builder->index->handle.get(), to_utf8(path).c_str(), 0) != nullptr;
} catch (...) {
    return fail_thrown();
}

bool zTreeBuilderInsert(TreeBuilder *builder, const zwchar *path, const Oid *id) try {
    if (!builder || !path || !id) return fail_args();
    return builder_insert(builder, to_utf8(path), *git::oid(id), GIT_FILEMODE_BLOB);
} catch (...) {
    return fail_thrown();
}

bool zTreeBuilderRemove(TreeBuilder *builder, const zwchar *path) try {
    if (!builder || !path) return fail_args();
    return index_drop(builder->index.get(), to_utf8(path).c_str());
} catch (...) {
    return fail_thrown();
}

bool zTreeBuilderRmdir(TreeBuilder *builder, const zwchar *path) try {
    if (!builder || !path) return fail_args();
    if (!*path) return zIndexClear(builder->index.get());
    std::string name = to_utf8(path);
    while (name.ends_with('/')) name.pop_back();
    return index_drop_below(builder->index.get(), name);
} catch (...) {
    return fail_thrown();
}

uint64_t zTreeBuilderEntryCount(TreeBuilder *builder) {
    if (!builder) return fail_args(), uint64_t{0};
    return git_index_entrycount(builder->index->handle.get());
}

Tree *zTreeBuilderWrite(TreeBuilder *builder, Repository *repository) {
    if (!builder || !repository) return fail_args();
    git_oid id;
    int code;
    {
        StrictOff partial;
        code = git_index_write_tree_to(&id, builder->index->handle.get(), repository->handle.get());
    }
    return code < 0 ? fail_git(code) : zTreeByid(repository, git::oid(&id));
}
