// The JSON tree: values, ownership, members, elements, paths.
#include "support.hpp"

#include <algorithm>
#include <functional>
#include <map>

namespace {

using test::guard;
using Tree = test::Guard<Json>;

Tree tree(const zwchar *text) { return guard(zJsonReadTextual(text), zJsonFree); }

std::string text(const Json *node) {
    auto written = guard(zJsonWriteTextual(node), zStrfreeW);
    return test::narrow(written.get());
}

TEST(Json, ChangesOfTypeReleaseTheOldValue) {
    auto node = tree(u"{\"a\":[1,{\"b\":\"x\"}]}");
    ASSERT_OK(zJsonSetType(node.get(), Z_JSON_ARRAY));
    ASSERT_OK(zJsonSetString(node.get(), u"text"));
    ASSERT_OK(zJsonSetString(node.get(), zJsonGetString(node.get()) + 1)); // its own text
    EXPECT_EQ(test::narrow(zJsonGetString(node.get())), "ext");
}

TEST(Json, ANodeHasOneParent) {
    auto a = tree(u"{}"), b = tree(u"[]");
    Json *node = zJsonNewInt(1);
    ASSERT_OK(zJsonObjectPut(a.get(), u"x", node));
    EXPECT_FALSE(zJsonObjectPut(a.get(), u"y", node));
    EXPECT_FALSE(zJsonArrayPush(b.get(), node));
    EXPECT_EQ(text(a.get()) + text(b.get()), "{\"x\":1}[]");
    ASSERT_EQ(zJsonObjectDetach(a.get(), u"x"), node);
    ASSERT_OK(zJsonArrayPush(b.get(), node));

    auto top = tree(u"{\"a\":{\"b\":[]}}"); // and is never below itself
    EXPECT_FALSE(zJsonArrayPush(zJsonPathGet(top.get(), u"a.b"), top.get()));
    EXPECT_FALSE(zJsonObjectPut(top.get(), u"me", top.get()));
    EXPECT_EQ(text(top.get()), "{\"a\":{\"b\":[]}}");
}

// The names of an object, as its iterator gives them; `at` is told of each.
std::vector<std::u16string> names(
    Json *object, const std::function<void(const std::u16string &)> &at = [](auto &) {}) {
    std::vector<std::u16string> all;
    const auto iter = guard(
        zJsonObjectNewiter(object), +[](HashmapIter *it) { it->free(it); });
    for (iter->first(iter.get()); !iter->done(iter.get()); iter->next(iter.get())) {
        all.emplace_back(*static_cast<zwchar **>(zVariantValue(iter->current(iter.get()))));
        at(all.back());
    }
    return all;
}

// Puts, replaces, removes and looks up in an order without pattern, against a plain map.
TEST(Json, MembersKeepTheirOrder) {
    auto object = tree(u"{}");
    std::map<std::u16string, int> expected;
    uint32_t random = 1;
    for (int i = 0; i < 20000; ++i) {
        random = random * 1664525 + 1013904223;
        const std::u16string name = test::wide("n" + std::to_string((random >> 8) % 700)) +
                                    (random & 64 ? u" and more than fits in place" : u"");
        Json *found = zJsonObjectAt(object.get(), name.c_str());
        ASSERT_EQ(found != nullptr, expected.contains(name));
        ASSERT_TRUE(!found || zJsonGetInt(found) == expected[name]);
        if (!found || random >> 30 > 1) {
            ASSERT_OK(zJsonObjectPut(object.get(), name.c_str(), zJsonNewInt(i)));
            expected[name] = i;
            continue;
        }
        random >> 30 ? (void)zJsonObjectRemove(object.get(), name.c_str()) : zJsonFree(found);
        expected.erase(name);
    }
    const auto all = names(object.get());
    EXPECT_TRUE(std::ranges::equal(all, expected, {}, {}, [](auto &pair) { return pair.first; }));
}

TEST(Json, AWalkSurvivesPuts) {
    auto object = tree(u"{\"b\":1,\"d\":2,\"f\":3}");
    const auto walked = names(object.get(), [&](const std::u16string &name) {
        for (const zwchar *other : {u"a", u"c", u"e"})
            EXPECT_TRUE(name != u"d" || zJsonObjectPut(object.get(), other, zJsonNewNull()));
    });
    EXPECT_EQ(walked, (std::vector<std::u16string>{u"b", u"d", u"e", u"f"}));
    // So does the name that was given, before which others come to stand.
    const auto iter = guard(
        zJsonObjectNewiter(object.get()), +[](HashmapIter *it) { it->free(it); });
    const zwchar *name = *static_cast<zwchar **>(zVariantValue(iter->current(iter.get())));
    for (char16_t c = u'z'; c >= u'A'; --c)
        ASSERT_OK(zJsonObjectPut(object.get(), std::u16string({u'A', c}).c_str(), zJsonNewNull()));
    EXPECT_EQ(name, std::u16string(u"a"));
}

// A tree deeper than the stack.
TEST(Json, Deep) {
    auto deep = guard(zJsonNew(Z_JSON_ARRAY), zJsonFree);
    for (int i = 0; i < 200000; ++i) deep.reset(zJsonNewArray(deep.release(), nullptr));
    auto copy = guard(zJsonDup(deep.get()), zJsonFree);
    auto written = guard(zJsonWriteTextual(copy.get()), zStrfreeW);
    EXPECT_EQ(zStrlenW(written.get()), 400002u);
}

// What a text was read into is shared among its nodes; one that is taken out outlives the rest.
TEST(Json, APartOutlivesItsTree) {
    auto whole = tree(u"{\"a\":\"first\",\"b\":{\"c\":\"second\"},\"d\":[1,2.5]}");
    auto part = guard(zJsonObjectDetach(whole.get(), u"b"), zJsonFree);
    auto copy = guard(zJsonDup(whole.get()), zJsonFree);
    ASSERT_OK(zJsonPathSetString(whole.get(), u"a", u"a text that is longer than the first was"));
    ASSERT_OK(zJsonPathSetInt(whole.get(), u"a", 3));
    EXPECT_EQ(text(whole.get()), "{\"a\":3,\"d\":[1,2.5]}");
    whole.reset();
    ASSERT_OK(zJsonPathSetString(part.get(), u"d", zJsonPathGetString(part.get(), u"c")));
    EXPECT_EQ(text(part.get()), "{\"c\":\"second\",\"d\":\"second\"}");
    EXPECT_EQ(text(copy.get()), "{\"a\":\"first\",\"d\":[1,2.5]}");
}

TEST(Json, Paths) {
    auto root = tree(u"{\"a\":{\"b\":1,\"list[0]\":\"x\"},\"s\":\"text\"}");
    const struct {
        const zwchar *path;
        const char *found; // null: missing
        int error;         // what the missing one raises
    } rows[] = {
        {u"a.b", "1", 0},       {u"$.a.b", "1", 0},   {u".a..b.", "1", 0},  {u"a.$.b", "1", 0},
        {u"a.list[0]", "x", 0}, // an ordinary name
        {u"a.$b", nullptr, 6},  {u"a.c", nullptr, 6}, {u"x.y", nullptr, 6}, {u"$", nullptr, 6},
        {u"", nullptr, 6},      {u"s.t", nullptr, 2}, // a step through what is no object
    };
    for (const auto &row : rows) {
        zRaiseCanceled(nullptr);
        const zwchar *found = zJsonPathGetString(root.get(), row.path);
        EXPECT_EQ(found ? test::narrow(found) : "-", row.found ? row.found : "-")
            << test::narrow(row.path);
        EXPECT_EQ(zErrorClass(), row.found ? 6 : row.error) << test::narrow(row.path);
    }
}

} // namespace
