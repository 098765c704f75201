// JSON text: what is accepted, what is written, and the limits of both.
#include "support.hpp"

#include <clocale>
#include <cmath>
#include <fstream>

namespace {

using test::guard;

std::string nested(size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

Json *read_bytes(const std::string &text) {
    auto stream = guard(zMemStream(0, 0), zStreamFree);
    if (!text.empty()) zStreamWrite(stream.get(), text.data(), text.size());
    zStreamRewind(stream.get());
    return zJsonReadStream(stream.get());
}

std::string written(const Json *tree) {
    auto stream = guard(zMemStream(1, 0), zStreamFree);
    if (!zJsonWriteStream(tree, stream.get())) return "(failed)";
    std::string text(zStreamSize(stream.get()), '\0');
    zStreamRewind(stream.get());
    zStreamRead(stream.get(), text.data(), text.size());
    return text;
}

std::string written_wide(const Json *tree) {
    auto text = guard(zJsonWriteTextual(tree), zStrfreeW);
    return text ? test::narrow(text.get()) : "(failed)";
}

const struct {
    std::string text;
    const char *printed; // null: refused
} kTexts[] = {
    {"{}", "{}"},
    {"[]", "[]"},
    {" \t\r\n[ 1 , 2 ] \n", "[1,2]"},
    {"", nullptr},
    {"  ", nullptr},
    {"1", nullptr}, // a scalar on top
    {"\"x\"", nullptr},
    {"true", nullptr},
    {"{\"a\":1} x", nullptr}, // something behind the end
    {"{\"a\":1}{", nullptr},
    {"[[1,2],[3]]", "[[1,2],[3]]"},
    {"{\"b\":1,\"a\":2}", "{\"a\":2,\"b\":1}"},         // in key order
    {"{\"a\":1,\"b\":3,\"a\":2}", "{\"a\":2,\"b\":3}"}, // the later twin
    {"{\"a\":{\"x\":[]},\"a\":[{}]}", "{\"a\":[{}]}"},
    {"{\"\":0}", "{\"\":0}"},
    {"[1,]", nullptr},
    {"{\"a\":1,}", nullptr},
    {"[,1]", nullptr},
    {"[1 2]", nullptr},
    {"{\"a\" 1}", nullptr},
    {"{\"a\":}", nullptr},
    {"{a:1}", nullptr},
    {"[\"a\":1]", nullptr},
    {"[1}", nullptr},
    {"{]", nullptr},
    {"[", nullptr},
    {"[\"abc", nullptr},
    {"{\"a\":[1,2}", nullptr},
    {"[true,false,null]", "[true,false,null]"},
    {"[True]", nullptr},
    {"[truex]", nullptr},
    {"[nul]", nullptr},
    {"[0,-0,10,-12]", "[0,0,10,-12]"},
    {"[01]", nullptr},
    {"[-]", nullptr},
    {"[+1]", nullptr},
    {"[.5]", nullptr},
    {"[1.]", "[1]"},
    {"[0e1]", nullptr}, // a whole number with a leading 0 takes no exponent
    {"[0.e1,10e1,1E+2,25e-1]", "[0,100,100,2.5]"},
    {"[1e]", nullptr},
    {"[1e+]", nullptr},
    {"[1.5.2]", nullptr},
    {"[1234567.0]", "[1.23457e+06]"},
    {"[9223372036854775807,9223372036854775808]", "[9223372036854775807,9223372036854775807]"},
    {"[-9223372036854775809]", "[-9223372036854775808]"},
    {"[\"\\\"\\\\\\b\\f\\n\\r\\t\"]", "[\"\\\"\\\\\\b\\f\\n\\r\\t\"]"},
    {"[\"\\u0041\\/\"]", "[\"\\\\u0041\\\\/\"]"}, // not unescaped, so doubled
    {"[\"\\u00g1\"]", nullptr},
    {"[\"\\u00\"]", nullptr},
    {"[\"\\x\"]", nullptr},
    {"[\"\\\\\"]", "[\"\\\\\"]"},
    {"[\"a\tb\"]", nullptr}, // controls in a string
    {"[\"a\nb\"]", nullptr},
    {"[\"a\x01"
     "b\"]",
     nullptr},
    {"[\v1]", nullptr},
    {"[\"\x7f\"]", "[\"\x7f\"]"},
    {"[\"\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80\"]", "[\"\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80\"]"},
    {"{\"\xc3\xa4\":\"0123456789abcdef\xc3\xa4\"}", "{\"\xc3\xa4\":\"0123456789abcdef\xc3\xa4\"}"},
    {"[\xc3\xa4]", nullptr}, // above 127 outside a string
    {nested(255), nested(255).c_str()},
    {nested(256), nullptr},
};

TEST(JsonText, AcceptsAndPrints) {
    const std::string deep = nested(255);
    for (const auto &row : kTexts) {
        zRaiseCanceled(nullptr);
        auto bytes = guard(read_bytes(row.text), zJsonFree);
        auto wide = guard(zJsonReadTextual(test::wide(row.text).c_str()), zJsonFree);
        EXPECT_EQ(zErrorClass(), 6) << row.text; // refusing raises nothing of its own
        const bool accepted = row.printed;
        EXPECT_EQ(bytes != nullptr, accepted) << row.text;
        EXPECT_EQ(wide != nullptr, accepted) << row.text;
        if (!bytes || !wide || !accepted) continue;
        const std::string printed = row.text == deep ? deep : row.printed;
        EXPECT_EQ(written(bytes.get()), printed);
        EXPECT_EQ(written_wide(bytes.get()), printed);
        EXPECT_EQ(written(wide.get()), printed);
    }
}

TEST(JsonText, ByteOrderMark) {
    // In a stream the first byte alone decides about three; in wide text it is no blank.
    for (const char *text : {"\xef\xbb\xbf[1]", "\xefxy[1]"}) {
        auto tree = guard(read_bytes(text), zJsonFree);
        ASSERT_TRUE(tree) << text;
        EXPECT_EQ(written(tree.get()), "[1]");
    }
    EXPECT_FALSE(read_bytes("\xef\xbb"));
    EXPECT_FALSE(zJsonReadTextual(u"\xfeff[1]"));
}

TEST(JsonText, BrokenUtf8InAStringIsReplaced) {
    auto tree = guard(read_bytes("[\"a\xff"
                                 "b\xc3\"]"),
                      zJsonFree);
    ASSERT_TRUE(tree);
    EXPECT_EQ(std::u16string(zJsonGetString(zJsonArrayAt(tree.get(), 0))), u"a\xfffd"
                                                                           u"b\xfffd");
}

// Blocks end within names, numbers, words, escapes and characters; a string is longer than all of
// them.
TEST(JsonText, TokensAcrossBlocks) {
    std::string text = "{";
    for (int i = 0; i < 9000; ++i)
        text += "\"n\xc3\xa4me" + std::to_string(100000 + i) + "\":[" + std::to_string(i * 7919) +
                ",1.5e1,true,\"\\\"\xe2\x82\xac\"],";
    text += "\"z\":\"" + std::string(300000, 'x') + "\"}";
    auto bytes = guard(read_bytes(text), zJsonFree);
    auto wide = guard(zJsonReadTextual(test::wide(text).c_str()), zJsonFree);
    ASSERT_TRUE(bytes && wide);
    const std::string printed = written(bytes.get());
    EXPECT_EQ(printed, written(wide.get()));
    EXPECT_EQ(printed.size(), text.size() - 9000 * (sizeof "1.5e1" - sizeof "15"));
    EXPECT_EQ(printed.substr(0, 39),
              "{\"n\xc3\xa4me100000\":[0,15,true,\"\\\"\xe2\x82\xac\"],\"n\xc3\xa4");
}

TEST(JsonText, UnorderedTwinsInALargeObject) {
    std::string text = "{";
    for (int i = 0; i < 5000; ++i)
        text += "\"" + std::to_string(i * 7919 % 2500) + "\":" + std::to_string(i) + ",";
    text.back() = '}';
    auto tree = guard(read_bytes(text), zJsonFree);
    ASSERT_TRUE(tree);
    EXPECT_EQ(zJsonGetInt(tree.get()), 2500);
    for (int i = 0; i < 2500; ++i)
        EXPECT_EQ(zJsonPathGetInt(tree.get(), test::wide(std::to_string(i * 7919 % 2500)).c_str()),
                  i + 2500);
}

TEST(JsonText, Escapes) {
    const struct {
        const zwchar *plain, *escaped;
    } rows[] = {
        {u"", u""},
        {u"a\b\t\n\f\r\"\\z", u"a\\b\\t\\n\\f\\r\\\"\\\\z"},
        {u"\x01/\x20ac\xd83d\xde00", u"\x01/\x20ac\xd83d\xde00"}, // only what must be
    };
    for (const auto &row : rows) {
        auto escaped = guard(zJsonEscapeString(row.plain), zStrfreeW);
        auto plain = guard(zJsonUnescapeString(row.escaped), zStrfreeW);
        EXPECT_EQ(std::u16string(escaped.get()), row.escaped);
        EXPECT_EQ(std::u16string(plain.get()), row.plain);
    }
    auto kept = guard(zJsonUnescapeString(u"\\/\\u0041\\q\\"), zStrfreeW);
    EXPECT_EQ(std::u16string(kept.get()), u"\\/\\u0041\\q\\");
    EXPECT_FALSE(zJsonEscapeString(nullptr));
    EXPECT_EQ(zErrorClass(), 2);
}

TEST(JsonText, WhatCannotBeWritten) {
    auto text = guard(zJsonNewString(u"x"), zJsonFree);
    EXPECT_EQ(written(text.get()), "(failed)");
    EXPECT_EQ(written_wide(text.get()), "(failed)");
    for (double value : {HUGE_VAL, -HUGE_VAL, std::nan("")}) {
        auto array = guard(zJsonNewArray(zJsonNewReal(value), nullptr), zJsonFree);
        EXPECT_EQ(written(array.get()), "(failed)");
        EXPECT_EQ(written_wide(array.get()), "(failed)");
    }
}

TEST(JsonText, NumbersIgnoreTheHostsLocale) {
    test::CommaLocale comma;
    auto tree = guard(read_bytes("[1.5,2.25e0]"), zJsonFree);
    ASSERT_TRUE(tree);
    EXPECT_EQ(written(tree.get()), "[1.5,2.25]");
    EXPECT_EQ(test::narrow(zJsonGetString(zJsonArrayAt(tree.get(), 0))), "1.5");
    auto text = guard(zJsonNewString(u"3.5"), zJsonFree);
    EXPECT_EQ(zJsonGetReal(text.get()), 3.5);
}

TEST(JsonText, Files) {
    test::TempDir dir;
    const std::u16string path = dir / u"a.json";
    auto tree = guard(zJsonNewPath(u"a.b", zJsonNewInt(7)), zJsonFree);
    ASSERT_OK(zJsonWriteFile(tree.get(), path.c_str()));
    EXPECT_EQ(test::read(dir.path() / "a.json"), "{\"a\":{\"b\":7}}");
    auto read = guard(zJsonReadFile(path.c_str()), zJsonFree);
    ASSERT_TRUE(read);
    EXPECT_EQ(zJsonPathGetInt(read.get(), u"a.b"), 7);
    // A tree that can't be written leaves the file alone.
    auto scalar = guard(zJsonNewInt(1), zJsonFree);
    EXPECT_FALSE(zJsonWriteFile(scalar.get(), path.c_str()));
    EXPECT_EQ(test::read(dir.path() / "a.json"), "{\"a\":{\"b\":7}}");
    EXPECT_FALSE(zJsonReadFile((dir / u"none.json").c_str()));
    EXPECT_EQ(zErrorClass(), 3);
}

} // namespace
