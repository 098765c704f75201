// Hashmap: in which order it is walked.
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

} // namespace
