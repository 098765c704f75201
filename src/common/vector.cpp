// Elements are driven by a descriptor: one of a shared table for the type codes 0 to 19, or the
// vector's own, for structures and pointers with functions of the caller's.
#include "zev/vector.h"

#include "common/failure.hpp"
#include "common/guard.hpp"

#include "zev/str.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace zev {
namespace {

// An element as the caller passes it, read before anything moves.
union Value {
    uint64_t integer;
    double real;
    const void *pointer;
};

} // namespace
} // namespace zev

using zev::Value;

struct VectorDescriptor {
    uint64_t element_size;
    bool is_static;     // one of the shared table's, not freed with the vector
    bool holds_pointer; // compare and release get the pointer in the slot, not the slot's address
    void (*set)(void *slot, uint64_t size, Value value);
    void (*get)(void *slot, void *out);
    VectorComp compare;
    int64_t (*search)(const Vector *vector, Value key);
    ReleaseFn release;
};

namespace zev {
namespace {

constexpr uint64_t kLeast = 8;
const char kSentinel[] = "This is a valid vector"; // told by its address

bool valid(const Vector *vector) { return vector && vector->sentinel == kSentinel; }

uint8_t *slot_at(const Vector *vector, uint64_t index) {
    return static_cast<uint8_t *>(vector->data) + index * vector->descriptor->element_size;
}

// What the descriptor's functions get for a slot.
void *element(const VectorDescriptor &descriptor, void *slot) {
    return descriptor.holds_pointer ? *static_cast<void **>(slot) : slot;
}

// ---- The shared table

template <class T> int32_t order(T a, T b) { return a < b ? -1 : a == b ? 0 : 1; }

template <class T> int32_t compare(const void *a, const void *b) {
    return order(*static_cast<const T *>(a), *static_cast<const T *>(b));
}

int32_t compare_pointers(const void *a, const void *b) {
    return order(reinterpret_cast<uintptr_t>(a), reinterpret_cast<uintptr_t>(b));
}

int32_t compare_narrow(const void *a, const void *b) {
    return zStrcmpA(zStrsafeA(static_cast<const char *>(a)),
                    zStrsafeA(static_cast<const char *>(b)));
}

int32_t compare_wide(const void *a, const void *b) {
    return zStrcmpW(zStrsafeW(static_cast<const zwchar *>(a)),
                    zStrsafeW(static_cast<const zwchar *>(b)));
}

// The index of an element equal to `key`, in the form that the comparator takes, or -1.
int64_t binary_search(const Vector *vector, const void *key) {
    const VectorDescriptor &descriptor = *vector->descriptor;
    uint64_t low = 0, high = vector->size;
    while (low < high) {
        const uint64_t middle = low + (high - low) / 2;
        const int32_t found = descriptor.compare(key, element(descriptor, slot_at(vector, middle)));
        if (!found) return static_cast<int64_t>(middle);
        if (found < 0)
            high = middle;
        else
            low = middle + 1;
    }
    return -1;
}

template <class T> T typed(Value value) {
    if constexpr (std::is_floating_point_v<T>)
        return static_cast<T>(value.real);
    else
        return static_cast<T>(value.integer);
}

template <class T> constexpr VectorDescriptor number() {
    return {
        .element_size = sizeof(T),
        .is_static = true,
        .holds_pointer = false,
        .set = [](void *slot, uint64_t, Value v) { *static_cast<T *>(slot) = typed<T>(v); },
        .get = [](void *slot, void *out) { *static_cast<T *>(out) = *static_cast<T *>(slot); },
        .compare = compare<T>,
        .search =
            [](const Vector *vector, Value v) {
                const T key = typed<T>(v);
                return binary_search(vector, &key);
            },
        .release = nullptr,
    };
}

constexpr VectorDescriptor pointers(VectorComp compare, ReleaseFn release) {
    return {
        .element_size = sizeof(void *),
        .is_static = true,
        .holds_pointer = true,
        .set = [](void *slot, uint64_t, Value v) { *static_cast<const void **>(slot) = v.pointer; },
        .get =
            [](void *slot, void *out) {
                if (out) *static_cast<void **>(out) = *static_cast<void **>(slot);
            },
        .compare = compare,
        .search = [](const Vector *vector, Value v) { return binary_search(vector, v.pointer); },
        .release = release,
    };
}

// The bytes of the caller's structure go into the slot; out comes the slot's address.
constexpr VectorDescriptor kStructure = {
    .element_size = 0,
    .is_static = false,
    .holds_pointer = false,
    .set = [](void *slot, uint64_t size, Value v) { memmove(slot, v.pointer, size); },
    .get =
        [](void *slot, void *out) {
            if (out) *static_cast<void **>(out) = slot;
        },
    .compare = nullptr,
    .search = [](const Vector *vector, Value v) { return binary_search(vector, v.pointer); },
    .release = nullptr,
};

constexpr VectorDescriptor kShared[] = {
    number<uint8_t>(),
    number<int8_t>(),
    number<uint8_t>(), // 0
    number<int16_t>(),
    number<uint16_t>(), // 3
    number<int32_t>(),
    number<uint32_t>(),
    number<int32_t>(),
    number<uint32_t>(), // 5
    number<float>(),
    number<int64_t>(),
    number<uint64_t>(),
    number<double>(), // 9
    number<int8_t>(),
    number<uint16_t>(),
    number<uint64_t>(),
    number<int64_t>(),                   // 13
    pointers(compare_pointers, nullptr), // 17
    pointers(compare_narrow, free),
    pointers(compare_wide, free),
};
static_assert(std::size(kShared) == Z_TYPE_STRUCT);

// ---- Arguments

Value read_argument(const Vector *vector, va_list arguments) {
    switch (vector->type) {
    case Z_TYPE_FLOAT:
    case Z_TYPE_DOUBLE:
        return {.real = va_arg(arguments, double)};
    case Z_TYPE_INT64:
    case Z_TYPE_UINT64:
    case Z_TYPE_SIZE:
    case Z_TYPE_SSIZE:
        return {.integer = va_arg(arguments, uint64_t)};
    case Z_TYPE_POINTER:
    case Z_TYPE_STRINGA:
    case Z_TYPE_STRINGW:
    case Z_TYPE_STRUCT:
        return {.pointer = va_arg(arguments, const void *)};
    default:
        return {.integer = va_arg(arguments, unsigned)};
    }
}

// Strings are copied when they come in; false when memory ran out, which is raised.
bool own(const Vector *vector, Value &value) {
    const bool narrow = vector->type == Z_TYPE_STRINGA, wide = vector->type == Z_TYPE_STRINGW;
    if ((!narrow && !wide) || !value.pointer) return true;
    if (narrow)
        value.pointer = zStrdupA(static_cast<const char *>(value.pointer));
    else
        value.pointer = zStrdupW(static_cast<const zwchar *>(value.pointer));
    if (!value.pointer) return fail_memory();
    return true;
}

// ---- Elements

void release_at(Vector *vector, uint64_t index) {
    const VectorDescriptor &descriptor = *vector->descriptor;
    if (descriptor.release) descriptor.release(element(descriptor, slot_at(vector, index)));
}

// A structure is always there; pointers and strings may be null.
bool is_missing(const Vector *vector, Value value) {
    return vector->type == Z_TYPE_STRUCT && !value.pointer;
}

// A structure that is an element of this very vector.
bool is_inside(const Vector *vector, Value value) {
    if (vector->type != Z_TYPE_STRUCT) return false;
    const auto *byte = static_cast<const uint8_t *>(value.pointer);
    return std::less_equal<>()(slot_at(vector, 0), byte) &&
           std::less<>()(byte, slot_at(vector, vector->size));
}

bool grow_by_one(Vector *vector, Value &value) {
    if (vector->size < vector->capacity) return true;
    const bool inside = is_inside(vector, value);
    const uint64_t offset =
        inside ? static_cast<uint64_t>(static_cast<const uint8_t *>(value.pointer) -
                                       slot_at(vector, 0))
               : 0;
    if (!zVectorReserve(vector, vector->size + 1)) return false;
    if (inside) value.pointer = slot_at(vector, 0) + offset;
    return true;
}

bool insert(Vector *vector, uint64_t index, Value value) {
    const VectorDescriptor &descriptor = *vector->descriptor;
    if (is_missing(vector, value)) return fail_args();
    if (!grow_by_one(vector, value) || !own(vector, value)) return false;
    uint8_t *slot = slot_at(vector, index);
    if (uint64_t behind = vector->size - index) {
        if (is_inside(vector, value) && value.pointer >= slot)
            value.pointer = static_cast<const uint8_t *>(value.pointer) + descriptor.element_size;
        memmove(slot + descriptor.element_size, slot, behind * descriptor.element_size);
    }
    descriptor.set(slot, descriptor.element_size, value);
    ++vector->size;
    vector->sorted = false;
    return true;
}

// What is set to itself stays, nothing is released.
bool is_same(const Vector *vector, uint64_t index, Value value) {
    if (vector->type == Z_TYPE_STRUCT) return value.pointer == slot_at(vector, index);
    if (vector->type != Z_TYPE_POINTER) return false;
    return value.pointer == *reinterpret_cast<void **>(slot_at(vector, index));
}

// ---- Sorting

int compare_slots(const void *a, const void *b, void *vector) {
    const VectorDescriptor &descriptor = *static_cast<Vector *>(vector)->descriptor;
    return descriptor.compare(element(descriptor, const_cast<void *>(a)),
                              element(descriptor, const_cast<void *>(b)));
}

bool is_in_order(Vector *vector) {
    for (uint64_t i = 1; i < vector->size; ++i)
        if (compare_slots(slot_at(vector, i - 1), slot_at(vector, i), vector) > 0) return false;
    return true;
}

// A merge sort moves whole slots and, unlike an unguarded partition, stays within its bounds
// under a comparator that contradicts itself.
template <uint64_t size> void merge_sort(Vector *vector) {
    struct alignas(size) Slot {
        std::byte bytes[size];
    };
    auto *first = static_cast<Slot *>(vector->data);
    std::stable_sort(first, first + vector->size, [vector](const Slot &a, const Slot &b) {
        return compare_slots(&a, &b, vector) < 0;
    });
}

void sort(Vector *vector) {
    if (is_in_order(vector)) return;
    const uint64_t size = vector->descriptor->element_size;
    if (size == 8) return merge_sort<8>(vector);
    if (size == 16) return merge_sort<16>(vector);
    qsort_r(vector->data, vector->size, size, compare_slots, vector);
}

// ---- Records

bool init(Vector *vector, int32_t type, const VectorDescriptor *descriptor, uint64_t capacity) {
    capacity = std::max(capacity, kLeast);
    if (capacity > INT64_MAX / descriptor->element_size) return fail_memory();
    void *data = calloc(capacity, descriptor->element_size);
    if (!data) return fail_memory();
    *vector = {data, 0, capacity, false, type, descriptor, kSentinel};
    return true;
}

// With a descriptor of the vector's own.
bool init_private(Vector *vector, int32_t type, VectorDescriptor descriptor, uint64_t capacity) {
    *vector = {};
    descriptor.is_static = false;
    Malloced<VectorDescriptor> copy(static_cast<VectorDescriptor *>(malloc(sizeof descriptor)));
    if (!copy) return fail_memory();
    *copy = descriptor;
    return init(vector, type, copy.get(), capacity) && copy.release();
}

template <class Init> Vector *make(Init init) {
    Malloced<Vector> vector(static_cast<Vector *>(calloc(1, sizeof(Vector))));
    if (!vector) return fail_memory();
    return init(vector.get()) ? vector.release() : nullptr;
}

} // namespace
} // namespace zev

using namespace zev;

Vector *zVectorNewPrim(int32_t type, uint64_t capacity) {
    return make([=](Vector *vector) { return zVectorInitPrim(vector, type, capacity); });
}

Vector *zVectorNewStru(uint64_t capacity, uint64_t element_size, VectorComp compare,
                       ReleaseFn release) {
    return make([=](Vector *vector) {
        return zVectorInitStru(vector, capacity, element_size, compare, release);
    });
}

Vector *zVectorNewPtr(uint64_t capacity, VectorComp compare, ReleaseFn release) {
    return make([=](Vector *vector) { return zVectorInitPtr(vector, capacity, compare, release); });
}

bool zVectorInitPrim(Vector *vector, int32_t type, uint64_t capacity) {
    if (!vector) return fail_args();
    *vector = {};
    if (type < 0 || type >= Z_TYPE_STRUCT) return fail_args();
    return init(vector, type, &kShared[type], capacity);
}

bool zVectorInitStru(Vector *vector, uint64_t capacity, uint64_t element_size, VectorComp compare,
                     ReleaseFn release) {
    if (!vector || !element_size) return fail_args();
    VectorDescriptor descriptor = kStructure;
    descriptor.element_size = element_size;
    descriptor.compare = compare;
    descriptor.release = release;
    return init_private(vector, Z_TYPE_STRUCT, descriptor, capacity);
}

bool zVectorInitPtr(Vector *vector, uint64_t capacity, VectorComp compare, ReleaseFn release) {
    if (!vector) return fail_args();
    return init_private(vector, Z_TYPE_POINTER, pointers(compare, release), capacity);
}

void zVectorFree(Vector *vector) {
    if (!valid(vector)) return;
    zVectorCleanup(vector);
    free(vector);
}

void zVectorCleanup(Vector *vector) {
    if (!valid(vector)) return;
    zVectorRemoveAll(vector);
    free(vector->data);
    if (!vector->descriptor->is_static) free(const_cast<VectorDescriptor *>(vector->descriptor));
    *vector = {};
}

bool zVectorReserve(Vector *vector, uint64_t count) {
    if (!valid(vector)) return fail_args();
    if (vector->capacity >= count) return true;
    const uint64_t size = vector->descriptor->element_size;
    const uint64_t capacity = std::max(count, vector->size + vector->size / 2);
    if (capacity > INT64_MAX / size) return fail_args();
    void *data = realloc(vector->data, capacity * size);
    if (!data) return fail_args();
    vector->data = data;
    vector->capacity = capacity;
    return true;
}

bool zVectorGrow(Vector *vector, uint64_t count) {
    if (!valid(vector)) return fail_args();
    if (vector->capacity - vector->size >= count) return true;
    if (count > UINT64_MAX - vector->size) return fail_args();
    return zVectorReserve(vector, vector->size + count);
}

bool zVectorSetComp(Vector *vector, VectorComp compare) {
    if (!valid(vector) || vector->descriptor->is_static) return fail_args();
    const_cast<VectorDescriptor *>(vector->descriptor)->compare = compare;
    vector->sorted = false;
    return true;
}

int32_t zVectorType(const Vector *vector) {
    if (!valid(vector)) return fail_args(), -1;
    return vector->type;
}

bool zVectorIsValid(const Vector *vector) { return valid(vector); }

bool zVectorIsEmpty(const Vector *vector) {
    if (!valid(vector)) return fail_args(), true;
    return !vector->size;
}

uint64_t zVectorSize(const Vector *vector) {
    if (!valid(vector)) return fail_args(), 0;
    return vector->size;
}

uint64_t zVectorCapacity(const Vector *vector) {
    if (!valid(vector)) return fail_args(), 0;
    return vector->capacity;
}

uint64_t zVectorAvailable(const Vector *vector) {
    if (!valid(vector)) return fail_args(), 0;
    return vector->capacity - vector->size;
}

void *zVectorAddrAt(const Vector *vector, uint64_t index) {
    if (!valid(vector)) return fail_args();
    return slot_at(vector, index);
}

void *zVectorData(Vector *vector) {
    if (!valid(vector)) return fail_args();
    return vector->data;
}

const void *zVectorDataConst(const Vector *vector) {
    if (!valid(vector)) return fail_args();
    return vector->data;
}

bool zVectorPush(Vector *vector, ...) {
    if (!valid(vector)) return fail_args();
    va_list arguments;
    va_start(arguments, vector);
    const Value value = read_argument(vector, arguments);
    va_end(arguments);
    return insert(vector, vector->size, value);
}

bool zVectorPop(Vector *vector) {
    if (!valid(vector)) return fail_args();
    if (!vector->size) return raise_args();
    return zVectorRemove(vector, vector->size - 1);
}

bool zVectorLast(const Vector *vector, void *out) {
    if (!valid(vector)) return fail_args();
    if (!vector->size) return raise_args();
    return zVectorAt(vector, vector->size - 1, out);
}

bool zVectorAt(const Vector *vector, uint64_t index, void *out) {
    if (!valid(vector) || (!out && vector->type < Z_TYPE_POINTER)) return fail_args();
    if (index >= vector->size) return raise_args();
    vector->descriptor->get(slot_at(vector, index), out);
    return true;
}

bool zVectorInsert(Vector *vector, uint64_t index, ...) {
    if (!valid(vector)) return fail_args();
    va_list arguments;
    va_start(arguments, index);
    const Value value = read_argument(vector, arguments);
    va_end(arguments);
    return insert(vector, std::min(index, vector->size), value);
}

bool zVectorSet(Vector *vector, uint64_t index, ...) {
    if (!valid(vector)) return fail_args();
    if (index >= vector->size) return raise_args();
    va_list arguments;
    va_start(arguments, index);
    Value value = read_argument(vector, arguments);
    va_end(arguments);
    if (is_missing(vector, value)) return fail_args();
    if (!own(vector, value)) return false;
    vector->sorted = false;
    if (is_same(vector, index, value)) return true;
    release_at(vector, index);
    vector->descriptor->set(slot_at(vector, index), vector->descriptor->element_size, value);
    return true;
}

bool zVectorRemove(Vector *vector, uint64_t index) {
    if (!valid(vector)) return fail_args();
    if (index >= vector->size) return raise_args();
    release_at(vector, index);
    const uint64_t size = vector->descriptor->element_size;
    if (uint64_t behind = --vector->size - index)
        memmove(slot_at(vector, index), slot_at(vector, index + 1), behind * size);
    return true;
}

bool zVectorRemoveAll(Vector *vector) {
    if (!valid(vector)) return fail_args();
    if (vector->descriptor->release)
        for (uint64_t i = 0; i < vector->size; ++i) release_at(vector, i);
    vector->size = 0;
    return true;
}

bool zVectorSort(Vector *vector) {
    if (!valid(vector)) return fail_args();
    if (!vector->descriptor->compare) return fail_os(ENOTSUP);
    sort(vector);
    vector->sorted = true;
    return true;
}

int64_t zVectorSearch(Vector *vector, ...) {
    if (!valid(vector)) return fail_args(), -1;
    if (!vector->descriptor->compare) return fail_os(ENOTSUP), -1;
    va_list arguments;
    va_start(arguments, vector);
    Value key = read_argument(vector, arguments);
    va_end(arguments);
    if (is_missing(vector, key)) return fail_args(), -1;
    Malloced<void> copy; // of a key that the sort would move
    if (!vector->sorted) {
        const uint64_t size = vector->descriptor->element_size;
        if (is_inside(vector, key)) {
            copy.reset(malloc(size));
            if (!copy) return fail_memory(), -1;
            key.pointer = memcpy(copy.get(), key.pointer, size);
        }
        zVectorSort(vector);
    }
    return vector->descriptor->search(vector, key);
}
