// Objects of any type, and tags. What is looked up, peeled and wrapped is the same for all types:
// that lies in the header, as templates.
#include "objects/store/object.hpp"

#include "zev/object.h"

#include <iterator>
#include <string_view>

using namespace zev;

namespace {

constexpr struct {
    int32_t type;
    const zwchar *name;
} kTypes[] = {
    {Z_OBJECT_ANY, u"any"},   {Z_OBJECT_COMMIT, u"commit"}, {Z_OBJECT_TREE, u"tree"},
    {Z_OBJECT_BLOB, u"blob"}, {Z_OBJECT_TAG, u"tag"},
};

git_object_t git_type(int32_t type) { return static_cast<git_object_t>(type); }

} // namespace

Object *zObjectByid(Repository *repository, const Oid *id, int32_t type) {
    return by_id<Object>(repository, id, git_type(type));
}
Object *zObjectByprefix(Repository *repository, const Oid *prefix, uint64_t length, int32_t type) {
    return by_prefix<Object>(repository, prefix, length, git_type(type));
}
Object *zObjectBypath(Object *object, const zwchar *path, int32_t type) {
    return by_path<Object>(object, path, git_type(type));
}
Object *zObjectPeel(Object *object, int32_t type) { return peel<Object>(object, git_type(type)); }

void zObjectFree(Object *object) {
    if (!object) return;
    int32_t type = object->handle ? git_object_type(object->handle.get()) : GIT_OBJECT_INVALID;
    if (type < Z_OBJECT_COMMIT || type > Z_OBJECT_TAG) fail_args();
    delete object;
}

const Oid *zObjectId(const Object *object) {
    if (!object) return fail_args();
    return git::oid(git_object_id(object->handle.get()));
}

int32_t zObjectType(const Object *object) {
    if (!object) return fail_args(), Z_OBJECT_BAD;
    return git_object_type(object->handle.get());
}

Repository *zObjectOwner(const Object *object) { return object ? object->owner : fail_args(); }

const zwchar *zOTypeName(int32_t type) {
    for (auto &row : kTypes)
        if (row.type == type) return row.name;
    return u"bad";
}

int32_t zOTypeId(const zwchar *name) {
    if (!name) return fail_args(), Z_OBJECT_BAD;
    for (auto &row : kTypes)
        if (std::u16string_view(row.name) == name) return row.type;
    return Z_OBJECT_BAD;
}

Tag *zTagByid(Repository *repository, const Oid *id) { return by_id<Tag>(repository, id); }
Tag *zTagByprefix(Repository *repository, const Oid *prefix, uint64_t length) {
    return by_prefix<Tag>(repository, prefix, length);
}
Tag *zTagPeel(Object *object) { return peel<Tag>(object); }
void zTagFree(Tag *tag) { delete tag; }

const Oid *zTagId(const Tag *tag) {
    return tag ? git::oid(git_tag_id(tag->handle.get())) : fail_args();
}
Repository *zTagOwner(const Tag *tag) { return tag ? tag->owner : fail_args(); }
int32_t zTagTargetType(const Tag *tag) {
    if (!tag) return fail_args(), Z_OBJECT_BAD;
    return git_tag_target_type(tag->handle.get());
}
const Oid *zTagTargetId(const Tag *tag) {
    return tag ? git::oid(git_tag_target_id(tag->handle.get())) : fail_args();
}
const zwchar *zTagName(const Tag *tag) {
    return tag ? park(git_tag_name(tag->handle.get())) : fail_args();
}

const zwchar *zTagTagger(const Tag *tag) {
    if (!tag) return fail_args();
    const git_signature *tagger = git_tag_tagger(tag->handle.get());
    if (!tagger) return raise_not_found(); // tags of old have none
    return park(tagger->name);
}

const zwchar *zTagMessage(const Tag *tag) {
    if (!tag) return fail_args();
    const char *message = git_tag_message(tag->handle.get());
    return park(message ? message : "");
}

Object *zTagTarget(const Tag *tag) {
    if (!tag) return fail_args();
    git::Object target;
    int code = git_tag_target(out(target), tag->handle.get());
    if (code < 0) return fail_git(code);
    return wrap<Object>(std::move(target), tag->owner);
}
