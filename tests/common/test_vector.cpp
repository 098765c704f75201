// Vector: element types, ownership, its own elements as arguments, sorting.
#include "support.hpp"

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

namespace {

using test::guard;
using Vec = test::Guard<Vector>;

Vec prim(int32_t type) { return guard(zVectorNewPrim(type, 0), zVectorFree); }

struct Pair {
    uint64_t key, value;
};
int32_t by_key(const void *a, const void *b) {
    const auto *left = static_cast<const Pair *>(a), *right = static_cast<const Pair *>(b);
    return left->key < right->key ? -1 : left->key > right->key;
}

// Growing and moving up must not lose sight of the element that was handed in.
TEST(Vector, TakesItsOwnElements) {
    Vec pairs = guard(zVectorNewStru(0, sizeof(Pair), by_key, nullptr), zVectorFree);
    for (uint64_t i = 0; i < 8; ++i) {
        Pair pair{i, 10 * i};
        ASSERT_TRUE(zVectorPush(pairs.get(), &pair));
    }
    auto value = [&](uint64_t index) {
        Pair *pair = nullptr;
        EXPECT_TRUE(zVectorAt(pairs.get(), index, &pair));
        return pair->value;
    };
    ASSERT_TRUE(zVectorPush(pairs.get(), zVectorAddrAt(pairs.get(), 7))); // full: the block moves
    EXPECT_EQ(value(8), 70u);
    EXPECT_EQ(zVectorCapacity(pairs.get()), 12u); // half as much again
    ASSERT_TRUE(zVectorInsert(pairs.get(), uint64_t{2}, zVectorAddrAt(pairs.get(), 5)));
    EXPECT_EQ(value(2), 50u);
    EXPECT_EQ(value(6), 50u);
    Pair none{9, 0};
    ASSERT_TRUE(zVectorInsert(pairs.get(), uint64_t{0}, &none)); // unsorted from here
    EXPECT_GT(zVectorSearch(pairs.get(), zVectorAddrAt(pairs.get(), 0)), 0);

    Vec texts = prim(Z_TYPE_STRINGA);
    char *own = nullptr;
    ASSERT_TRUE(zVectorPush(texts.get(), "kept") && zVectorAt(texts.get(), 0, &own));
    ASSERT_TRUE(zVectorSet(texts.get(), uint64_t{0}, own) && zVectorAt(texts.get(), 0, &own));
    EXPECT_STREQ(own, "kept");
}

int released;
void release(void *pointer) { released += *static_cast<int *>(pointer); }

TEST(Vector, ReleasesEachElementOnce) {
    int one = 1, ten = 10, hundred = 100;
    Vec pointers = guard(zVectorNewPtr(0, nullptr, release), zVectorFree);
    released = 0;
    for (int *number : {&one, &ten, &hundred}) ASSERT_TRUE(zVectorPush(pointers.get(), number));
    ASSERT_TRUE(zVectorSet(pointers.get(), uint64_t{0}, &one)); // set to itself: still in use
    EXPECT_EQ(released, 0);
    ASSERT_TRUE(zVectorSet(pointers.get(), uint64_t{0}, &hundred));
    EXPECT_EQ(released, 1);
    ASSERT_TRUE(zVectorRemoveAll(pointers.get()));
    EXPECT_EQ(released, 211);

    released = 0;
    Vector numbers; // structures hand over their address
    ASSERT_TRUE(zVectorInitStru(&numbers, 0, sizeof(int), nullptr, release));
    ASSERT_TRUE(zVectorPush(&numbers, &ten) && zVectorPush(&numbers, &one));
    ASSERT_TRUE(zVectorPop(&numbers));
    zVectorCleanup(&numbers);
    EXPECT_EQ(released, 11);
    EXPECT_FALSE(zVectorIsValid(&numbers));
    zVectorCleanup(&numbers);
    zVectorFree(&numbers); // no vector: neither released nor freed
}

int32_t by_first_half(const void *a, const void *b) {
    const int32_t left = *static_cast<const int32_t *>(a), right = *static_cast<const int32_t *>(b);
    return left < right ? -1 : left > right;
}

TEST(Vector, SortsLikeTheStandardLibrary) {
    std::mt19937_64 random(7);
    for (uint64_t size : {4u, 8u, 16u, 24u}) { // each has its own way of being sorted
        const VectorComp compare = size == 4 ? by_first_half : by_key;
        Vec vector = guard(zVectorNewStru(0, size, compare, nullptr), zVectorFree);
        std::vector<uint64_t> keys;
        for (int i = 0; i < 1000; ++i) {
            uint64_t element[3] = {random() % 500, 0, 0};
            keys.push_back(element[0]);
            ASSERT_TRUE(zVectorPush(vector.get(), element));
        }
        ASSERT_TRUE(zVectorSort(vector.get()));
        std::sort(keys.begin(), keys.end());
        for (uint64_t i = 0; i < keys.size(); ++i) {
            uint64_t key = 0;
            memcpy(&key, zVectorAddrAt(vector.get(), i), std::min<uint64_t>(size, 8));
            ASSERT_EQ(key, keys[i]) << "size " << size << " at " << i;
        }
        uint64_t wanted[3] = {keys[500], 0, 0}, missing[3] = {1000, 0, 0};
        EXPECT_EQ(keys.at(static_cast<size_t>(zVectorSearch(vector.get(), wanted))), keys[500]);
        EXPECT_EQ(zVectorSearch(vector.get(), missing), -1);
    }
}

TEST(Vector, AnotherOrderIsSortedAnew) {
    const VectorComp downwards = [](const void *a, const void *b) { return by_key(b, a); };
    Vec pairs = guard(zVectorNewStru(0, sizeof(Pair), by_key, nullptr), zVectorFree);
    for (Pair pair{0, 0}; pair.key < 9; ++pair.key) ASSERT_TRUE(zVectorPush(pairs.get(), &pair));
    ASSERT_TRUE(zVectorSort(pairs.get()) && zVectorSetComp(pairs.get(), downwards));
    const Pair wanted{0, 0};
    EXPECT_EQ(zVectorSearch(pairs.get(), &wanted), 8);
}

TEST(Vector, Refuses) {
    int out = 7;
    Vec vector = prim(Z_TYPE_INT32);
    EXPECT_FALSE(zVectorPop(vector.get()) || zVectorLast(vector.get(), &out));
    EXPECT_FALSE(zVectorGrow(vector.get(), UINT64_MAX)); // sizes that wrap
    EXPECT_FALSE(zVectorReserve(vector.get(), UINT64_MAX / 4) || zVectorNewPrim(0, UINT64_MAX));
    EXPECT_TRUE(!zVectorAt(vector.get(), 0, &out) && out == 7);
    EXPECT_FALSE(zVectorSetComp(vector.get(), by_key)); // the shared descriptor

    Vec pointers = guard(zVectorNewPtr(0, nullptr, nullptr), zVectorFree);
    EXPECT_TRUE(zVectorSearch(pointers.get(), &out) == -1 && !zVectorSort(pointers.get()));
}

} // namespace
