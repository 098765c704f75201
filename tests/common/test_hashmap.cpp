// Hashmap: order of the walks, ownership.
#include "support.hpp"

namespace {

using Map = test::Guard<Hashmap>;

Map new_map() { return test::guard(zHashmapNew(), zHashmapFree); }

// The keys as an iterator gives them, and each value with its key.
std::u16string walk(const Map &map, HashmapIter *iter) {
    std::u16string keys;
    for (iter->first(iter); !iter->done(iter); iter->next(iter)) {
        Variant *key = iter->current(iter);
        EXPECT_EQ(key->type, 20u);
        EXPECT_EQ(key->next->type, 18u);
        EXPECT_EQ(key->next->value.pointer, zHashmapAt(map.get(), key->value.wide));
        keys.append(key->value.wide).append(u" ");
    }
    iter->free(iter);
    return keys;
}

TEST(Hashmap, WalksInKeyOrder) {
    Map map = new_map();
    EXPECT_EQ(walk(map, zHashmapNewiter(map.get())), u"");
    EXPECT_EQ(walk(map, zHashmapNewriter(map.get())), u"");
    int values[5] = {};
    const zwchar *keys[] = {u"aa", u"B", u"\xFFEE", u"a", u"\xD83D\xDE00"};
    for (int i = 0; i < 5; ++i) ASSERT_TRUE(zHashmapInsert(map.get(), keys[i], &values[i]));
    // Units are unsigned, so the surrogates of an emoji come before U+FFEE.
    EXPECT_EQ(walk(map, zHashmapNewiter(map.get())), u"B a aa \xD83D\xDE00 \xFFEE ");
    EXPECT_EQ(walk(map, zHashmapNewriter(map.get())), u"\xFFEE \xD83D\xDE00 aa a B ");
}

TEST(Hashmap, OwnsKeysAndOverwritesValues) {
    Map map = new_map();
    int first = 0, second = 0;
    zwchar key[] = u"key";
    ASSERT_TRUE(zHashmapInsert(map.get(), key, &first));
    key[0] = u'K';
    ASSERT_TRUE(zHashmapInsert(map.get(), u"key", &second) &&
                zHashmapInsert(map.get(), u"null", nullptr));
    EXPECT_EQ(zHashmapSize(map.get()), 2u);
    EXPECT_EQ(zHashmapAt(map.get(), u"key"), &second);
    EXPECT_FALSE(zHashmapExist(map.get(), u"Key"));
    EXPECT_TRUE(zHashmapExist(map.get(), u"null"));
    ASSERT_TRUE(zHashmapRemove(map.get(), u"key") && zHashmapRemove(map.get(), u"key"));
    zHashmapClear(map.get());
    EXPECT_TRUE(zHashmapIsEmpty(map.get()));
    EXPECT_TRUE(zHashmapInsert(map.get(), u"again", &first));
}

} // namespace
