// Dotted paths: names separated by dots, each a step into a member. Empty names don't count, and
// `$` stands for the place reached so far. Arrays have no steps.
#include "common/json.hpp"

#include "common/failure.hpp"

#include "zev/error.h"

using namespace zev;

namespace {

class Names {
  public:
    explicit Names(const zwchar *path) : rest_(path) {}

    // The next name, or an empty one at the end.
    WideView next() {
        while (!rest_.empty()) {
            const WideView name = rest_.substr(0, rest_.find(u'.'));
            rest_.remove_prefix(std::min(name.size() + 1, rest_.size()));
            if (!name.empty() && name != u"$") return name;
        }
        return {};
    }

  private:
    WideView rest_;
};

Json *step(const Json *node, WideView name, Here at = {}) {
    if (node->type != Z_JSON_OBJECT) return fail_args(at);
    return members(node)->find(name);
}

// The node that the steps along a path come to; null where one has none.
template <class Step> Json *follow(Json *root, const zwchar *path, Step step) {
    Names names(path);
    Json *node = nullptr;
    for (WideView name = names.next(); !name.empty(); name = names.next())
        if (!(node = step(node ? node : root, name))) return nullptr;
    return node;
}

struct Place {
    Json *object = nullptr;
    WideView name;
};

// The object and the name that a path ends in; makes the objects on the way.
bool descend(Json *root, const zwchar *path, Place *place) {
    Names names(path);
    *place = {root, names.next()};
    if (place->name.empty()) return raise_not_found();
    for (WideView name = names.next(); !name.empty(); name = names.next()) {
        if (place->object->type != Z_JSON_OBJECT) return fail_args();
        Json *below = members(place->object)->find(place->name);
        if (!below) {
            JsonGuard made(zJsonNew(Z_JSON_OBJECT));
            if (!made || !json_put(place->object, place->name, made.get())) return false;
            below = made.release();
        }
        *place = {below, name};
    }
    return place->object->type == Z_JSON_OBJECT || fail_args();
}

// The node at a path, made as null if it is missing.
Json *reach(Json *root, const zwchar *path) {
    if (!root || !path) return fail_args();
    Place place;
    if (!descend(root, path, &place)) return nullptr;
    if (Json *node = members(place.object)->find(place.name)) return node;
    JsonGuard made(zJsonNewNull());
    if (!made || !json_put(place.object, place.name, made.get())) return nullptr;
    return made.release();
}

// The node at a path; class 3 if there is none.
Json *need(Json *root, const zwchar *path) {
    if (!root || !path) return fail_args();
    Json *node = zJsonPathGet(root, path);
    return node ? node : raise_not_found(path);
}

} // namespace

Json *zJsonNewPath(const zwchar *path, Json *node) {
    if (!path || !node) return fail_args();
    if (node->parent) return fail_raised();
    JsonGuard root(zJsonNew(Z_JSON_OBJECT));
    Place place;
    if (!root || !descend(root.get(), path, &place)) return nullptr;
    return json_put(place.object, place.name, node) ? root.release() : nullptr;
}

Json *zev::json_find(Json *root, const zwchar *path) {
    return follow(root, path, [](const Json *node, WideView name) {
        return node->type == Z_JSON_OBJECT ? members(node)->find(name) : nullptr;
    });
}

Json *zJsonPathGet(Json *root, const zwchar *path) {
    if (!root || !path) return fail_args();
    return follow(root, path, [](const Json *node, WideView name) { return step(node, name); });
}

bool zJsonPathExists(Json *root, const zwchar *path) { return zJsonPathGet(root, path); }

bool zJsonPathRemove(Json *root, const zwchar *path) {
    Json *node = zJsonPathGet(root, path);
    if (!node) return true;
    // By its name: a node alone would have to be searched for in its object.
    WideView last;
    Names names(path);
    for (WideView name = names.next(); !name.empty(); name = names.next()) last = name;
    Members *object = members(node->parent);
    object->remove(object->slot(last));
    json_drop(node);
    return true;
}

bool zJsonPathGetBool(Json *root, const zwchar *path) {
    const Json *node = need(root, path);
    return node && zJsonGetBoolean(node);
}

int64_t zJsonPathGetInt(Json *root, const zwchar *path) {
    const Json *node = need(root, path);
    return node ? zJsonGetInt(node) : 0;
}

int64_t zJsonPathGetLarge(Json *root, const zwchar *path) { return zJsonPathGetInt(root, path); }

const zwchar *zJsonPathGetString(Json *root, const zwchar *path) {
    const Json *node = zJsonPathGet(root, path);
    return node ? zJsonGetString(node) : nullptr;
}

bool zJsonPathGetId(Oid *id, Json *root, const zwchar *path) {
    const Json *node = zJsonPathGet(root, path);
    return node && zJsonGetId(id, node);
}

bool zJsonPathSetBool(Json *root, const zwchar *path, bool value) {
    Json *node = reach(root, path);
    return node && zJsonSetBoolean(node, value);
}

bool zJsonPathSetInt(Json *root, const zwchar *path, int32_t value) {
    return zJsonPathSetLarge(root, path, value);
}

bool zJsonPathSetLarge(Json *root, const zwchar *path, int64_t value) {
    Json *node = reach(root, path);
    return node && zJsonSetInt(node, value);
}

bool zJsonPathSetString(Json *root, const zwchar *path, const zwchar *text) {
    Json *node = reach(root, path);
    return node && zJsonSetString(node, text);
}

bool zJsonPathSetId(Json *root, const zwchar *path, const Oid *id) {
    if (!id) return fail_args();
    Json *node = reach(root, path);
    return node && zJsonSetId(node, id);
}
