// The tree: nodes, their values, objects and arrays.
#include "common/json.hpp"

#include "common/failure.hpp"

#include "zev/error.h"
#include "zev/hashmap.h"
#include "zev/oid.h"
#include "zev/variant.h"
#include "zev/vector.h"

#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdlib>
#include <new>
#include <vector>

using namespace zev;

namespace {

using Value = decltype(Json::value);

constexpr uint64_t kNotFound = UINT64_MAX;

bool is_container(const Json *node) {
    return node->type == Z_JSON_OBJECT || node->type == Z_JSON_ARRAY;
}

uint64_t child_count(const Json *node) {
    return node->type == Z_JSON_OBJECT ? members(node)->count() : zVectorSize(node->value.array);
}

Json **elements(const Json *array) { return static_cast<Json **>(zVectorData(array->value.array)); }

// A copy of a text for a node, null counting as empty.
zwchar *copy_text(const zwchar *text) {
    zwchar *copy = zStrdupW(zStrsafeW(text));
    return copy ? copy : fail_memory();
}

bool make_value(int32_t type, Value *value) {
    *value = {};
    switch (type) {
    case Z_JSON_STRING:
        return (value->string = copy_text(nullptr));
    case Z_JSON_OBJECT:
        return (value->object = Members::make());
    case Z_JSON_ARRAY:
        return (value->array = zVectorNewPtr(0, nullptr, nullptr));
    default:
        return (type >= Z_JSON_NULL && type <= Z_JSON_BOOLEAN) || fail_args();
    }
}

// Takes some child out of a container; null when there is none left.
Json *take_child(Json *node) {
    if (node->type == Z_JSON_OBJECT) return members(node)->take_last();
    if (node->type != Z_JSON_ARRAY) return nullptr;
    Json *child = nullptr;
    if (zVectorIsEmpty(node->value.array)) return nullptr;
    zVectorLast(node->value.array, &child);
    zVectorPop(node->value.array);
    return child;
}

void release_own(Json *node) {
    if (node->type == Z_JSON_STRING && !(node->place & kTextInside)) zStrfreeW(node->value.string);
    if (node->type == Z_JSON_OBJECT) members(node)->destroy();
    if (node->type == Z_JSON_ARRAY) zVectorFree(node->value.array);
}

// Frees the value with all that lies below. Goes down by the children and up by the parent
// links: a tree may be deeper than any stack.
void release_value(Json *top) {
    NodeRelease gone;
    for (Json *node = top;;) {
        if (Json *child = take_child(node)) {
            node = child;
            continue;
        }
        release_own(node);
        if (node == top) return;
        Json *parent = node->parent;
        gone.add(node);
        node = parent;
    }
}

void set_value(Json *node, int32_t type, Value value) {
    release_value(node);
    *node = {node->parent, type, node->place & ~kTextInside, value};
}

// Where a node stands in its array; looks from both ends, so that freeing the elements one after
// another, in either direction, finds each at once.
uint64_t index_of(const Json *array, const Json *node) {
    Json *const *data = elements(array);
    uint64_t low = 0, high = zVectorSize(array->value.array);
    while (low < high) {
        if (data[low++] == node) return low - 1;
        if (data[--high] == node) return high;
    }
    return kNotFound;
}

void leave_parent(Json *node) {
    Json *parent = node->parent;
    node->parent = nullptr;
    if (!parent) return;
    if (parent->type == Z_JSON_OBJECT) {
        if (Member *member = members(parent)->slot_of(node)) members(parent)->remove(member);
    } else if (parent->type == Z_JSON_ARRAY) {
        if (uint64_t at = index_of(parent, node); at != kNotFound)
            zVectorRemove(parent->value.array, at);
    }
}

// A node with a parent stays there, and a node never goes below itself.
bool can_hold(const Json *container, const Json *node) {
    if (node->parent || node == container) return false;
    if (!is_container(node) || !child_count(node)) return true;
    return zJsonRoot(const_cast<Json *>(container)) != node;
}

bool array_push(Json *array, Json *node) {
    if (!zVectorPush(array->value.array, node)) return false;
    node->parent = array;
    return true;
}

} // namespace

namespace zev {

void json_drop(Json *node) {
    if (!node) return;
    release_value(node);
    NodeRelease().add(node);
}

bool json_put(Json *object, WideView name, Json *node) {
    if (Member *member = members(object)->slot(name)) {
        json_drop(member->node);
        member->node = node;
    } else if (!members(object)->put(name, node)) {
        return false;
    }
    node->parent = object;
    return true;
}

Children::Children(const Json *container) : object_(container->type == Z_JSON_OBJECT) {
    if (object_) {
        members(container)->settle();
        member_ = members(container)->begin();
        last_member_ = members(container)->end();
    } else {
        element_ = elements(container);
        last_element_ = element_ + zVectorSize(container->value.array);
    }
}

Json *Children::next() {
    while (object_ && member_ != last_member_ && !member_->node) ++member_;
    if (member_ == last_member_ && element_ == last_element_) return nullptr;
    ++given_;
    if (!object_) return *element_++;
    name_ = member_->name();
    return member_++->node;
}

} // namespace zev

Json *zJsonNew(int32_t type) {
    JsonGuard node(json_node(Z_JSON_NULL));
    return node && zJsonSetType(node.get(), type) ? node.release() : nullptr;
}

bool zJsonInit(Json *node, int32_t type) {
    if (!node) return fail_args();
    Value value;
    if (!make_value(type, &value)) return false;
    *node = {nullptr, type, 0, value};
    return true;
}

namespace {

// A list takes its nodes over, and goes on after a failure so that none is lost.
void drop_unplaced(Json *node) {
    if (node && !node->parent) zJsonFree(node);
}

} // namespace

Json *zJsonNewObject(const zwchar *name, ...) {
    JsonGuard object(zJsonNew(Z_JSON_OBJECT));
    bool complete = object != nullptr;
    va_list list;
    va_start(list, name);
    for (; name; name = va_arg(list, const zwchar *)) {
        Json *node = va_arg(list, Json *);
        if (object && zJsonObjectPut(object.get(), name, node)) continue;
        complete = false;
        drop_unplaced(node);
    }
    va_end(list);
    return complete ? object.release() : nullptr;
}

Json *zJsonNewArray(Json *node, ...) {
    JsonGuard array(zJsonNew(Z_JSON_ARRAY));
    bool complete = array != nullptr;
    va_list list;
    va_start(list, node);
    for (; node; node = va_arg(list, Json *)) {
        if (array && zJsonArrayPush(array.get(), node)) continue;
        complete = false;
        drop_unplaced(node);
    }
    va_end(list);
    return complete ? array.release() : nullptr;
}

Json *zJsonNewString(const zwchar *text) { return zJsonAttachString(copy_text(text)); }

Json *zJsonAttachString(zwchar *text) {
    Wide owned(text);
    Json *node = text ? json_node(Z_JSON_STRING) : nullptr;
    if (node) node->value.string = owned.release();
    return node;
}

Json *zJsonNewId(const Oid *id) {
    zwchar text[41] = {};
    return id && zOidFormat(text, id) ? zJsonNewString(text) : fail_args();
}

Json *zJsonNewInt(int64_t value) {
    Json *node = json_node(Z_JSON_INT);
    if (node) node->value.integer = value;
    return node;
}

Json *zJsonNewReal(double value) {
    Json *node = json_node(Z_JSON_REAL);
    if (node) node->value.real = value;
    return node;
}

Json *zJsonNewBoolean(bool value) {
    Json *node = json_node(Z_JSON_BOOLEAN);
    if (node) node->value.boolean = value;
    return node;
}

Json *zJsonNewNull(void) { return json_node(Z_JSON_NULL); }

namespace {

// The node without its children, as a root.
Json *copy_alone(const Json *node) {
    if (node->type == Z_JSON_STRING) return zJsonNewString(node->value.string);
    Json *copy = zJsonNew(node->type);
    if (copy && !is_container(node)) copy->value = node->value;
    return copy;
}

} // namespace

Json *zJsonDup(const Json *node) try {
    if (!node) return fail_args();
    struct Level {
        Children from;
        Json *to;
    };
    JsonGuard root(copy_alone(node));
    std::vector<Level> levels;
    if (root && is_container(node)) levels.push_back({Children(node), root.get()});
    while (!levels.empty()) {
        Level &level = levels.back();
        const Json *child = level.from.next();
        if (!child) {
            levels.pop_back();
            continue;
        }
        JsonGuard copy(copy_alone(child));
        if (!copy) return nullptr;
        Json *made = copy.get();
        if (!(level.from.in_object() ? json_put(level.to, level.from.name(), made)
                                     : array_push(level.to, made)))
            return nullptr;
        copy.release();
        if (is_container(child)) levels.push_back({Children(child), made});
    }
    return root.release();
} catch (...) {
    return fail_thrown();
}

void zJsonCleanup(Json *node) {
    if (node) set_value(node, Z_JSON_NULL, {});
}

void zJsonFree(Json *node) {
    if (!node) return;
    release_value(node);
    leave_parent(node);
    NodeRelease().add(node);
}

int32_t zJsonType(const Json *node) { return node->type; }
bool zJsonIsA(const Json *node, int32_t type) { return node->type == type; }
bool zJsonIsNull(const Json *node) { return node->type == Z_JSON_NULL; }
bool zJsonIsInt(const Json *node) { return node->type == Z_JSON_INT; }
bool zJsonIsReal(const Json *node) { return node->type == Z_JSON_REAL; }
bool zJsonIsString(const Json *node) { return node->type == Z_JSON_STRING; }
bool zJsonIsObject(const Json *node) { return node->type == Z_JSON_OBJECT; }
bool zJsonIsArray(const Json *node) { return node->type == Z_JSON_ARRAY; }
bool zJsonIsRoot(const Json *node) { return !node->parent; }
Json *zJsonParent(const Json *node) { return node->parent; }

Json *zJsonRoot(Json *node) {
    while (node->parent) node = node->parent;
    return node;
}

namespace {

int64_t truncate(double value) {
    if (std::isnan(value)) return 0;
    if (value >= 0x1p63) return INT64_MAX;
    return value < -0x1p63 ? INT64_MIN : static_cast<int64_t>(value);
}

// Parks the text of a number, made by std::to_chars, which asks no locale.
const zwchar *number_text(const char *text, const char *end) {
    const auto length = static_cast<uint64_t>(end - text);
    Wide parked(zStrnewW(length));
    if (!parked) return fail_memory();
    *std::copy(text, end, parked.get()) = 0;
    return zGlobalRecyclePut(parked.get(), nullptr) ? parked.release() : nullptr;
}

} // namespace

int64_t zJsonGetInt(const Json *node) {
    switch (node->type) {
    case Z_JSON_STRING:
        return zStrtollW(node->value.string, nullptr, 0);
    case Z_JSON_INT:
        return node->value.integer;
    case Z_JSON_REAL:
        return truncate(node->value.real);
    case Z_JSON_OBJECT:
    case Z_JSON_ARRAY:
        return static_cast<int64_t>(child_count(node));
    case Z_JSON_BOOLEAN:
        return node->value.boolean;
    default:
        return 0;
    }
}

double zJsonGetReal(const Json *node) {
    if (node->type == Z_JSON_STRING) return zStrtodW(node->value.string, nullptr);
    return node->type == Z_JSON_REAL ? node->value.real : static_cast<double>(zJsonGetInt(node));
}

bool zJsonGetBoolean(const Json *node) {
    if (node->type == Z_JSON_STRING) return *node->value.string != 0;
    return node->type == Z_JSON_REAL ? node->value.real != 0.0 : zJsonGetInt(node) != 0;
}

const zwchar *zJsonGetString(const Json *node) {
    char text[32];
    switch (node->type) {
    case Z_JSON_NULL:
        return u"null";
    case Z_JSON_STRING:
        return node->value.string;
    case Z_JSON_INT:
        return number_text(text, std::to_chars(text, std::end(text), node->value.integer).ptr);
    case Z_JSON_REAL:
        return number_text(text, std::to_chars(text, std::end(text), node->value.real,
                                               std::chars_format::general, 6)
                                     .ptr);
    case Z_JSON_BOOLEAN:
        return node->value.boolean ? u"true" : u"false";
    default:
        return u"";
    }
}

bool zJsonGetId(Oid *id, const Json *node) {
    if (!id || node->type != Z_JSON_STRING) return fail_args();
    return zOidFromStr(id, node->value.string);
}

bool zJsonSetType(Json *node, int32_t type) {
    if (!node) return fail_args();
    if (node->type == type) return true;
    Value value;
    if (!make_value(type, &value)) return false;
    return set_value(node, type, value), true;
}

bool zJsonSetNull(Json *node) { return node ? (zJsonCleanup(node), true) : fail_args(); }

bool zJsonSetInt(Json *node, int64_t value) {
    if (!node) return fail_args();
    return set_value(node, Z_JSON_INT, {.integer = value}), true;
}

bool zJsonSetReal(Json *node, double value) {
    if (!node) return fail_args();
    return set_value(node, Z_JSON_REAL, {.real = value}), true;
}

bool zJsonSetBoolean(Json *node, bool value) {
    if (!node) return fail_args();
    return set_value(node, Z_JSON_BOOLEAN, {.boolean = value}), true;
}

bool zJsonSetString(Json *node, const zwchar *text) {
    if (!node) return fail_args();
    zwchar *copy = copy_text(text);
    if (!copy) return false;
    return set_value(node, Z_JSON_STRING, {.string = copy}), true;
}

bool zJsonSetId(Json *node, const Oid *id) {
    zwchar text[41] = {};
    return id && zOidFormat(text, id) ? zJsonSetString(node, text) : fail_args();
}

bool zJsonObjectPut(Json *object, const zwchar *name, Json *node) {
    if (!object || !name || !node) return fail_args();
    if (object->type != Z_JSON_OBJECT || !can_hold(object, node)) return fail_raised();
    return json_put(object, name, node);
}

Json *zJsonObjectAt(const Json *object, const zwchar *name) {
    if (!object || !name || object->type != Z_JSON_OBJECT) return fail_args();
    return members(object)->find(name);
}

bool zJsonObjectHas(const Json *object, const zwchar *name) { return zJsonObjectAt(object, name); }

bool zJsonObjectRemove(Json *object, const zwchar *name) {
    Json *node = zJsonObjectDetach(object, name);
    if (!node) return false;
    json_drop(node);
    return true;
}

Json *zJsonObjectDetach(Json *object, const zwchar *name) {
    if (!object || !name || object->type != Z_JSON_OBJECT) return fail_args();
    Member *member = members(object)->slot(name);
    if (!member) return fail_raised();
    Json *node = member->node;
    members(object)->remove(member);
    node->parent = nullptr;
    return node;
}

bool zJsonObjectClear(Json *object) {
    if (!object || object->type != Z_JSON_OBJECT) return fail_args();
    while (Json *node = take_child(object)) json_drop(node);
    return true;
}

namespace {

// Stands on a node, not only on a place: members may change places when others come or go.
struct ObjectIter : HashmapIter {
    Members *members;
    uint64_t index;
    uint64_t generation;
    Json *node;
    Variant name;
    Variant value;
    std::u16string held; // the name: that in the object moves when others are put
};

ObjectIter *self(HashmapIter *iter) { return static_cast<ObjectIter *>(iter); }

// The member under the iterator, null when it was removed.
const Member *iter_member(ObjectIter *iter) {
    const Member *at = iter->members->begin() + iter->index;
    if (iter->generation == iter->members->generation()) return at->node ? at : nullptr;
    return iter->members->slot_of(iter->node);
}

// Goes on to the first member at or behind a place that is no hole.
void iter_stand(ObjectIter *iter, const Member *at) {
    const Member *end = iter->members->end();
    while (at < end && !at->node) ++at;
    iter->index = static_cast<uint64_t>(at - iter->members->begin());
    iter->node = at < end ? at->node : nullptr;
    iter->generation = iter->members->generation();
}

void iter_first(HashmapIter *iter) {
    self(iter)->members->settle();
    iter_stand(self(iter), self(iter)->members->begin());
}

void iter_next(HashmapIter *base) {
    ObjectIter *iter = self(base);
    if (!iter->node) return;
    iter->members->settle();
    const Member *here = iter_member(iter);
    iter_stand(iter, here ? here + 1 : iter->members->begin() + iter->index + 1);
}

bool iter_done(HashmapIter *iter) { return !self(iter)->node; }

void iter_free(HashmapIter *iter) { delete self(iter); }

Variant *iter_current(HashmapIter *base) try {
    ObjectIter *iter = self(base);
    const Member *member = iter->node ? iter_member(iter) : nullptr;
    if (!member) return nullptr;
    iter->held = member->name();
    iter->name = {20, {.wide = iter->held.data()}, &iter->value};
    iter->value = {18, {.pointer = member->node}, nullptr};
    return &iter->name;
} catch (...) {
    return fail_thrown();
}

constexpr HashmapIter kIterSlots = {.first = iter_first,
                                    .next = iter_next,
                                    .done = iter_done,
                                    .free = iter_free,
                                    .current = iter_current};

} // namespace

HashmapIter *zJsonObjectNewiter(Json *object) {
    if (!object || object->type != Z_JSON_OBJECT) return fail_args();
    auto *iter =
        new (std::nothrow) ObjectIter{{kIterSlots}, members(object), 0, 0, nullptr, {}, {}, {}};
    if (!iter) return fail_memory();
    iter_first(iter);
    return iter;
}

bool zJsonArrayPush(Json *array, Json *node) {
    if (!array || !node) return fail_args();
    if (array->type != Z_JSON_ARRAY || !can_hold(array, node)) return fail_raised();
    return array_push(array, node);
}

uint64_t zJsonArraySize(const Json *array) {
    return array && array->type == Z_JSON_ARRAY ? zVectorSize(array->value.array) : 0;
}

namespace {

// The place of an element, or null with the reason told.
Json **element(const Json *array, uint64_t index, Here at = {}) {
    if (!array) return fail_args(at);
    if (array->type != Z_JSON_ARRAY) return fail_raised(at);
    if (index >= zVectorSize(array->value.array)) return raise_range();
    return elements(array) + index;
}

} // namespace

Json *zJsonArrayAt(const Json *array, uint64_t index) {
    Json **place = element(array, index);
    return place ? *place : nullptr;
}

bool zJsonArraySet(Json *array, uint64_t index, Json *node) {
    if (!node) return fail_args();
    Json **place = element(array, index);
    if (!place) return false;
    if (!can_hold(array, node)) return fail_raised();
    json_drop(*place);
    *place = node;
    node->parent = array;
    return true;
}

bool zJsonArrayRemove(Json *array, uint64_t index) {
    Json **place = element(array, index);
    if (!place) return false;
    json_drop(*place);
    return zVectorRemove(array->value.array, index);
}
