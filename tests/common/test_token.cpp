#include "support.hpp"

#include "zev/token.h"

namespace {

std::u16string all_of(Token *token) {
    std::u16string tokens;
    for (zTokenStart(token); !zTokenDone(token); zTokenStep(token))
        tokens.append(zTokenString(token)).append(u"|");
    return tokens;
}

TEST(Token, TakesTokensBetweenRunsOfDelimiters) {
    const struct {
        const zwchar *text, *delimiters, *tokens;
    } rows[] = {
        {u"//a/b//c/", u"/", u"a|b|c|"},
        {u"a;b,c", u",;", u"a|b|c|"},
        {u"", u"/", u""},
        {u"///", u"/", u""},
        {u"a/b", u"", u"a/b|"},
    };
    for (const auto &row : rows) {
        auto token = test::guard(zTokenNew(row.text, row.delimiters), zTokenFree);
        ASSERT_OK(token);
        EXPECT_EQ(all_of(token.get()), row.tokens) << test::narrow(row.text);
        EXPECT_FALSE(zTokenString(token.get()));
        EXPECT_EQ(zErrorClass(), 2);
        EXPECT_FALSE(zTokenStep(token.get())); // beyond the end it stays there
    }
}

TEST(Token, StartsOnceForEachText) {
    auto token = test::guard(zTokenNew(u"a//b/c", u"/"), zTokenFree);
    zRaiseNotFound(nullptr);
    EXPECT_FALSE(zTokenStep(token.get()));
    EXPECT_EQ(zErrorClass(), 2);
    EXPECT_FALSE(zTokenRemain(token.get()));
    EXPECT_EQ(std::u16string(zTokenStart(token.get())), u"a");
    EXPECT_EQ(std::u16string(zTokenRemain(token.get())), u"/b/c");
    zRaiseNotFound(nullptr);
    EXPECT_FALSE(zTokenStart(token.get()));
    EXPECT_EQ(zErrorClass(), 2);
    EXPECT_EQ(std::u16string(zTokenString(token.get())), u"a");
    ASSERT_OK(zTokenReinit(token.get(), zTokenRemain(token.get()), u"/")); // its own text
    EXPECT_EQ(all_of(token.get()), u"b|c|");
    EXPECT_FALSE(zTokenReinit(token.get(), nullptr, u"/"));
}

TEST(Token, SeeksFromTheCurrentTokenOn) {
    auto token = test::guard(zTokenNew(u"x/Repos/ann/repos", u"/"), zTokenFree);
    EXPECT_FALSE(zTokenSeek(token.get(), u"x")); // no current token yet
    zTokenStart(token.get());
    EXPECT_TRUE(zTokenSeek(token.get(), u"x"));
    EXPECT_TRUE(zTokenSeek(token.get(), u"REPOS"));
    EXPECT_EQ(std::u16string(zTokenRemain(token.get())), u"ann/repos");
    EXPECT_FALSE(zTokenSeek(token.get(), u"x"));
    EXPECT_TRUE(zTokenDone(token.get()));
}

} // namespace
