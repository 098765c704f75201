// URIs: text both ways, queries, escapes, routes, the limit.
#include "support.hpp"

#include "zev/hashmap.h"
#include "zev/uri.h"

namespace {

using UriPtr = test::Guard<Uri>;

UriPtr parsed(const zwchar *text) { return test::guard(zUriNew(text), zUriFree); }
std::u16string text_of(const UriPtr &uri) { return zUriStringfy(uri.get()); }

template <bool (*Change)(zwchar **)> std::u16string changed(const std::u16string &text) {
    zwchar *held = zStrdupW(text.c_str());
    EXPECT_OK(Change(&held));
    std::u16string result(held);
    zStrfreeW(held);
    return result;
}

TEST(Uri, ReadsAndWrites) {
    const struct {
        const zwchar *text, *written;
    } rows[] = {
        {u"HTTP://h:80/a//b/", u"HTTP://h/a/b"},
        {u"http://ann:p%40ss@h/?b=2&a=1#top", u"http://ann:p@ss@h/?a=1&b=2#top"},
        {u"/repos/ann?x=1", u"/repos/ann?x=1"}, // no host, no port
        {u"///", u"/"},
        {u"/50%/%zz", u"/50%/%zz"},                   // no escapes
        {u"/a%00b", u"/a%00b"},                       // nor is the end of a text
        {u"/?a=1%0Ab=2&x%0Ac=3&d=%0A", u"/?a=1&c=3"}, // a pair is of one line
        {u"http://h/%C3%A4 b", u"http://h/ä b"},
        {u"http://ann@[::1]:3001/a", u"http://ann@[::1]:3001/a"},
    };
    for (const auto &row : rows) {
        const UriPtr uri = parsed(row.text);
        ASSERT_OK(uri) << test::narrow(row.text);
        EXPECT_EQ(text_of(uri), row.written);
        EXPECT_EQ(text_of(test::guard(zUriDup(uri.get()), zUriFree)), row.written);
    }
    for (const zwchar *text : {u"", u"h", u"h:80", u"http://", u"http://h:99999/", u"http://h:/",
                               u"http://[::1/", u"http://a b/", u"://h/"}) {
        zRaiseNotFound(nullptr);
        EXPECT_TRUE(!parsed(text) && zErrorClass() == 2) << test::narrow(text);
    }
    const UriPtr uri = parsed(u"http://h/a"); // is left empty by a length beyond 16 bits
    EXPECT_FALSE(zUriParse(uri.get(), std::u16string(70'000, u'/').c_str()));
    EXPECT_EQ(text_of(uri), u"/");
}

TEST(Uri, Escapes) {
    const std::u16string text = u"/a b%20~ä?k=\U0001F600[";
    const std::u16string escaped = changed<zUriEscape>(text);
    EXPECT_EQ(escaped, u"/a%20b%20%7E%C3%A4?k=%F0%9F%98%80%5B");
    EXPECT_EQ(changed<zUriEscape>(escaped), escaped);
    EXPECT_EQ(changed<zUriUnescape>(u"%c3%A4%e4%2"), u"ä\uFFFD%2");
    const std::u16string longest(2047, u'図');
    EXPECT_EQ(changed<zUriUnescape>(changed<zUriEscape>(longest)), longest.substr(0, 2048 / 3));
    zwchar *held = zStrdupW((longest + u"図").c_str());
    EXPECT_TRUE(!zUriEscape(&held) && zErrorClass() == 5 && zStrlenW(held) == 2048);
    zStrfreeW(held);
}

// What a capture names is used for files, so nothing that leads elsewhere may come through.
TEST(Uri, CapturesAreNames) {
    for (const zwchar *path :
         {u"/repos/../x", u"/repos/%252e%252e/x", u"/repos/%25252e%25252e/x", u"/repos/a/..%2fx",
          u"/repos/a/b/c/%2e%2e", u"/../repos/a/b", u"/%25252e%2e/repos/a", u"/repos/a/x%5c..",
          u"/repos/.GIT/x", u"/repos/.g\u200Cit/x", u"/repos/.gi\u206Ft/x", u"/repos/.git\uFEFF/x",
          u"/repos/a%0d%0ab/x", u"/repos/%25252%2565/a", u"/repos/a/b/.git/x"}) {
        const UriPtr uri = parsed(path);
        ASSERT_TRUE(uri && zUriSetQuery(uri.get(), u":name", u"old"));
        EXPECT_FALSE(zUriCatchPath(uri.get(), u"/repos/:owner/:name")) << test::narrow(path);
        EXPECT_EQ(test::narrow(zUriQuery(uri.get(), u":name")), "old"); // untouched
    }
    // A client's query stands in for no capture of the route.
    const UriPtr uri = parsed(u"/repos/100%25s%25n.dwx?:name=e&:other=e&:base=e&:first=e&:x=1");
    ASSERT_OK(zUriCatchPath(uri.get(), u"/:first/repos/:owner/:name"));
    ASSERT_TRUE(zUriSetPath(uri.get(), nullptr));
    EXPECT_EQ(text_of(uri), u"/?:base=/&:owner=100%s%n.dwx&:x=1");
}

TEST(Url, KeepsWhatFits) {
    const UriPtr uri = parsed(u"http://h");
    const std::u16string name(2037, u'n'), more(11, u'm'); // the last one reaches the limit
    zRaiseNotFound(nullptr);
    ASSERT_TRUE(zUriSetPath(uri.get(), (name + u"/" + more + u"/x").c_str()));
    EXPECT_EQ(zErrorClass(), 5);
    EXPECT_EQ(zUriPath(uri.get()), u"/" + name + u"/x");
    ASSERT_TRUE(zUriSetPath(uri.get(), name.substr(1).c_str())); // 2,045 with "http://h"
    ASSERT_TRUE(zUriSetQuery(uri.get(), u"a", u"b") && zUriSetFragment(uri.get(), u"f"));
    EXPECT_EQ(text_of(uri), u"http://h/" + name.substr(1) + u"#f");

    zwchar buffer[Z_URL_MAX + 1];
    buffer[Z_URL_MAX] = u'#';
    ASSERT_TRUE(zUrlCopy(buffer, (u"/" + std::u16string(2040, u'a')).c_str()));
    ASSERT_TRUE(zUrlAppend(buffer, u"bbbbb"));
    EXPECT_EQ(zStrlenW(buffer), 2047u);
    zRaiseNotFound(nullptr);
    EXPECT_TRUE(zUrlAppend(buffer, u"c") && zErrorClass() == 5);
    EXPECT_EQ(zStrlenW(buffer), 2047u);
    EXPECT_EQ(buffer[Z_URL_MAX], u'#');
}

} // namespace
