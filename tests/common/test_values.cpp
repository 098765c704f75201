// Buffer, Hashmap, Binary, Variant: who owns what is held, and in which order it is walked.
#include "support.hpp"

#include <cstring>

namespace {

// The keys as an iterator gives them, and each value with its key.
std::u16string walk(const Hashmap *map, HashmapIter *iter) {
    std::u16string keys;
    for (iter->first(iter); !iter->done(iter); iter->next(iter)) {
        Variant *key = iter->current(iter);
        EXPECT_TRUE(key->type == 20 && key->next->type == 18);
        EXPECT_EQ(key->next->value.pointer, zHashmapAt(map, key->value.wide));
        keys.append(key->value.wide).append(u" ");
    }
    iter->free(iter);
    return keys;
}

TEST(Hashmap, WalksInKeyOrder) {
    const auto map = test::guard(zHashmapNew(), zHashmapFree);
    Hashmap *m = map.get();
    EXPECT_EQ(walk(m, zHashmapNewiter(m)) + walk(m, zHashmapNewriter(m)), u"");
    int values[5] = {};
    zwchar key[] = u"aa"; // is copied
    const zwchar *keys[] = {key, u"B", u"\xFFEE", u"a", u"\xD83D\xDE00"};
    for (int i = 0; i < 5; ++i) ASSERT_TRUE(zHashmapInsert(m, keys[i], &values[i]));
    key[0] = u'x';
    // Units are unsigned, so the surrogates of an emoji come before U+FFEE.
    EXPECT_EQ(walk(m, zHashmapNewiter(m)), u"B a aa \xD83D\xDE00 \xFFEE ");
    EXPECT_EQ(walk(m, zHashmapNewriter(m)), u"\xFFEE \xD83D\xDE00 aa a B ");
    ASSERT_TRUE(zHashmapInsert(m, u"B", &values[2]) && zHashmapAt(m, u"B") == &values[2]);
    ASSERT_TRUE(zHashmapRemove(m, u"B") && zHashmapRemove(m, u"B"));
    EXPECT_EQ(zHashmapSize(m), 4u);
}

TEST(Values, OwnTheirCopies) {
    Binary binary, other;
    ASSERT_OK(zBinaryInit(&binary, "bytes", 5) && zBinaryInit(&other, nullptr, 7));
    ASSERT_TRUE(zBinarySet(&binary, static_cast<char *>(binary.data) + 1, 3)); // of itself
    ASSERT_TRUE(zBinaryCopy(&other, &binary));
    EXPECT_EQ(std::string(static_cast<char *>(other.data), other.size), "yte");
    void *block = zBinaryDeatch(&binary);
    ASSERT_TRUE(zBinaryCopy(&other, &binary)); // an empty one empties
    EXPECT_FALSE(other.data || other.size);
    ASSERT_TRUE(zBinaryAttach(&other, block, 3) && zBinaryAttach(&other, block, 2));
    zBinaryCleanup(&other);

    Variant variant, copy;
    ASSERT_TRUE(zVariantInit(&variant) && zVariantInit(&copy) &&
                zVariantSet(&variant, 20, u"wide"));
    ASSERT_TRUE(zVariantSet(&variant, 20, variant.value.wide)); // its own text
    ASSERT_TRUE(zVariantCopy(&copy, &variant) && zVariantCopy(&copy, &copy));
    EXPECT_EQ(std::u16string(copy.value.wide), u"wide");
    ASSERT_TRUE(zVariantSet(&variant, 21, "bytes", uint64_t{5}));
    ASSERT_TRUE(zVariantCopy(&copy, &variant) && zVariantCleanup(&variant));
    EXPECT_EQ(memcmp(copy.value.binary.data, "bytes", 5), 0);
    ASSERT_TRUE(zVariantCleanup(&copy));
}

} // namespace
