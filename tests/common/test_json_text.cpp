// JSON text: what is accepted, what is written, and the limits of both.
#include "support.hpp"

#include <cmath>
#include <sstream>
#include <vector>

namespace {

using test::guard;

std::string nested(size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

Json *read_bytes(const std::string &text) {
    auto stream = guard(zMemStream(0, 0), zStreamFree);
    if (!text.empty()) zStreamWrite(stream.get(), text.data(), text.size());
    zStreamRewind(stream.get());
    return zJsonReadStream(stream.get());
}

// To a stream and as wide text, which must agree.
std::string written(const Json *tree) {
    auto stream = guard(zMemStream(1, 0), zStreamFree);
    const auto wide = guard(zJsonWriteTextual(tree), zStrfreeW);
    const bool done = zJsonWriteStream(tree, stream.get());
    EXPECT_EQ(done, wide != nullptr);
    std::string text(zStreamSize(stream.get()), '\0');
    zStreamRewind(stream.get());
    zStreamRead(stream.get(), text.data(), text.size());
    EXPECT_TRUE(!done || test::narrow(wide.get()) == text);
    return done ? text : "(failed)";
}

const struct {
    std::string text, printed;
} kAccepted[] = {
    {"{}", "{}"},
    {" \t\r\n[ 1 , 2 ] \n", "[1,2]"},
    {"{\"b\":1,\"a\":2}", "{\"a\":2,\"b\":1}"},         // in key order
    {"{\"a\":1,\"b\":3,\"a\":2}", "{\"a\":2,\"b\":3}"}, // the later twin
    {"{\"a\":{\"x\":[]},\"a\":[{}]}", "{\"a\":[{}]}"},
    {"{\"\":0}", "{\"\":0}"},
    {"[0,-0,10,-12,1.]", "[0,0,10,-12,1]"},
    {"[0.e1,10e1,1E+2,25e-1]", "[0,100,100,2.5]"},
    {"[1234567.0]", "[1.23457e+06]"},
    {"[9223372036854775807,9223372036854775808]", "[9223372036854775807,9223372036854775807]"},
    {"[-9223372036854775809]", "[-9223372036854775808]"},
    {"[\"\\\"\\\\\\b\\f\\n\\r\\t\"]", "[\"\\\"\\\\\\b\\f\\n\\r\\t\"]"},
    {"[\"\\u0041\\/\"]", "[\"\\\\u0041\\\\/\"]"}, // not unescaped, so doubled
    {"[\"\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80\"]", "[\"\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80\"]"},
    {"{\"\xc3\xa4\":\"0123456789abcdef\xc3\xa4\"}", "{\"\xc3\xa4\":\"0123456789abcdef\xc3\xa4\"}"},
    {nested(255), nested(255)},
};

// Scalars on top, something behind the end, breaks of the grammar; a blank is between two texts.
constexpr char kRefused[] = R"(1 "x" {"a":1}x {"a":1}{ [1,] {"a":1,} [,1] {"a"1} {"a":} {a:1}
    ["a":1] [1} [ ["abc {"a":[1,2} [True] [truex] [nul] [01] [-] [+1] [.5] [0e1] [1e] [1e+]
    [1.5.2] ["\u00g1"] ["\u00"] ["\x"])";

TEST(JsonText, AcceptsAndPrints) {
    for (const auto &[text, printed] : kAccepted) {
        auto bytes = guard(read_bytes(text), zJsonFree);
        auto wide = guard(zJsonReadTextual(test::wide(text).c_str()), zJsonFree);
        ASSERT_TRUE(bytes && wide) << text;
        EXPECT_EQ(written(bytes.get()), printed);
        EXPECT_EQ(written(wide.get()), printed);
    }
    zRaiseCanceled(nullptr);
    std::vector<std::string> refused{"",           "  ",         "[1 2]",
                                     "[\"a\tb\"]", "[\"a\nb\"]", "[\"a\x01z\"]",
                                     "[\v1]",      "[\xc3\xa4]", nested(256)};
    std::istringstream words(kRefused);
    for (std::string text; words >> text;) refused.push_back(text);
    for (const auto &text : refused) {
        EXPECT_FALSE(guard(read_bytes(text), zJsonFree)) << text;
        EXPECT_FALSE(guard(zJsonReadTextual(test::wide(text).c_str()), zJsonFree)) << text;
    }
    EXPECT_EQ(zErrorClass(), 6); // refusing raises nothing of its own
}

// In a stream the first byte alone decides about three; in wide text such a mark is no blank.
TEST(JsonText, MarksAndBrokenUtf8) {
    const std::pair<const char *, const char *> rows[] = {
        {"\xef\xbb\xbf[1]", "[1]"},
        {"\xefxy[1]", "[1]"},
        {"[\"a\xff\\nb\xc3\"]", "[\"a\xef\xbf\xbd\\nb\xef\xbf\xbd\"]"},
    };
    for (auto [bytes, printed] : rows)
        EXPECT_EQ(written(guard(read_bytes(bytes), zJsonFree).get()), printed);
    EXPECT_FALSE(read_bytes("\xef\xbb") || zJsonReadTextual(u"\xfeff[1]"));
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
    EXPECT_TRUE(
        printed.starts_with("{\"n\xc3\xa4me100000\":[0,15,true,\"\\\"\xe2\x82\xac\"],\"n\xc3\xa4"));
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

TEST(JsonText, WhatCannotBeWritten) {
    auto text = guard(zJsonNewString(u"x"), zJsonFree);
    EXPECT_EQ(written(text.get()), "(failed)");
    for (double value : {HUGE_VAL, -HUGE_VAL, std::nan("")}) {
        auto array = guard(zJsonNewArray(zJsonNewReal(value), nullptr), zJsonFree);
        EXPECT_EQ(written(array.get()), "(failed)");
    }
}

TEST(JsonText, NumbersIgnoreTheHostsLocale) {
    test::CommaLocale comma;
    EXPECT_EQ(written(guard(read_bytes("[1.5,2.25e0]"), zJsonFree).get()), "[1.5,2.25]");
    const auto real = guard(zJsonNewReal(1.5), zJsonFree);
    EXPECT_EQ(test::narrow(zJsonGetString(real.get())), "1.5");
    auto text = guard(zJsonNewString(u"3.5"), zJsonFree);
    EXPECT_EQ(zJsonGetReal(text.get()), 3.5);
}

TEST(JsonText, Files) {
    test::TempDir dir;
    const std::u16string path = dir / u"a.json";
    auto tree = guard(zJsonNewPath(u"a.b", zJsonNewInt(7)), zJsonFree);
    ASSERT_OK(zJsonWriteFile(tree.get(), path.c_str()));
    tree = guard(zJsonReadFile(path.c_str()), zJsonFree);
    // A tree that can't be written leaves the file alone.
    auto scalar = guard(zJsonNewInt(1), zJsonFree);
    EXPECT_FALSE(zJsonWriteFile(scalar.get(), path.c_str()));
    EXPECT_EQ(test::read(dir.path() / "a.json"), "{\"a\":{\"b\":7}}");
    EXPECT_TRUE(!zJsonReadFile((dir / u"none.json").c_str()) && zErrorClass() == 3);
}

} // namespace
