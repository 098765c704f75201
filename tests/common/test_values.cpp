// Hashmap: in which order it is walked. Variant and Binary: what they own.
#include "support.hpp"

namespace {

// The keys as an iterator gives them.
std::u16string walk(HashmapIter *iter) {
    std::u16string keys;
    for (iter->first(iter); !iter->done(iter); iter->next(iter))
        keys.append(iter->current(iter)->value.wide).append(u" ");
    iter->free(iter);
    return keys;
}

TEST(Hashmap, WalksInKeyOrder) {
    const auto map = test::guard(zHashmapNew(), zHashmapFree);
    Hashmap *m = map.get();
    EXPECT_EQ(walk(zHashmapNewiter(m)) + walk(zHashmapNewriter(m)), u"");
    int values[5] = {};
    zwchar key[] = u"aa"; // is copied
    const zwchar *keys[] = {key, u"B", u"\xFFEE", u"a", u"\xD83D\xDE00"};
    for (int i = 0; i < 5; ++i) ASSERT_TRUE(zHashmapInsert(m, keys[i], &values[i]));
    key[0] = u'x';
    // Units are unsigned, so the surrogates of an emoji come before U+FFEE.
    EXPECT_EQ(walk(zHashmapNewiter(m)), u"B a aa \xD83D\xDE00 \xFFEE ");
    EXPECT_EQ(walk(zHashmapNewriter(m)), u"\xFFEE \xD83D\xDE00 aa a B ");
    ASSERT_TRUE(zHashmapInsert(m, u"B", &values[2]) && zHashmapAt(m, u"B") == &values[2]);
    ASSERT_TRUE(zHashmapRemove(m, u"B") && zHashmapRemove(m, u"B"));
    EXPECT_EQ(zHashmapSize(m), 4u);
}

// What a value is set to may lie within the one that it has.
TEST(Variant, TakesItsOwnTextsAndBytes) {
    Variant value, copy;
    ASSERT_TRUE(zVariantInit(&value) && zVariantInit(&copy));
    ASSERT_TRUE(zVariantSet(&value, 20, u"drawing"));
    ASSERT_TRUE(zVariantSet(&value, 20, value.value.wide + 4));
    EXPECT_EQ(std::u16string(value.value.wide), u"ing");
    ASSERT_TRUE(zVariantCopy(&value, &value) && zVariantCopy(&copy, &value));
    ASSERT_TRUE(zVariantSet(&value, 21, "\0\1\2", uint64_t{3}));
    ASSERT_TRUE(
        zVariantSet(&value, 21, static_cast<char *>(value.value.binary.data) + 1, uint64_t{2}));
    EXPECT_EQ(std::string(static_cast<char *>(value.value.binary.data), 2), "\1\2");
    EXPECT_FALSE(zVariantSet(&value, 22, u"none")); // what it had stays
    EXPECT_EQ(value.value.binary.size, 2u);
    ASSERT_TRUE(zVariantSet(&value, 19, nullptr));
    EXPECT_EQ(value.value.narrow, nullptr);
    ASSERT_TRUE(zVariantSet(&value, 9, 7u) && zVariantSet(&value, 13, 0.5));
    EXPECT_EQ(value.value.f64, 0.5);
    EXPECT_EQ(std::u16string(copy.value.wide), u"ing");
    EXPECT_TRUE(zVariantCleanup(&value) && zVariantCleanup(&copy));
    EXPECT_EQ(zVariantType(&copy), 0u);
}

TEST(Binary, TakesItsOwnBytes) {
    const auto binary = test::guard(zBinaryNew("drawing", 7), zBinaryFree);
    ASSERT_TRUE(zBinarySet(binary.get(), static_cast<char *>(binary->data) + 4, 3));
    ASSERT_TRUE(zBinaryCopy(binary.get(), binary.get()));
    EXPECT_EQ(std::string(static_cast<char *>(binary->data), binary->size), "ing");
    ASSERT_TRUE(zBinaryAttach(binary.get(), binary->data, 2)); // its own block, shorter
    void *const block = zBinaryDeatch(binary.get());
    EXPECT_TRUE(block && !binary->data && !binary->size);
    free(block);
}

} // namespace
