// Token.
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
        EXPECT_EQ(all_of(token.get()), row.tokens) << test::narrow(row.text);
        EXPECT_FALSE(zTokenStep(token.get()) || zTokenString(token.get())); // the end stays
        EXPECT_EQ(zErrorClass(), 2);
    }
}

TEST(Token, StartsOnceAndSeeksFromThereOn) {
    auto token = test::guard(zTokenNew(u"x//Repos/ann/repos", u"/"), zTokenFree);
    Token *t = token.get();
    EXPECT_FALSE(zTokenStep(t) || zTokenRemain(t) || zTokenSeek(t, u"x"));
    EXPECT_EQ(std::u16string(zTokenStart(t)), u"x");
    EXPECT_FALSE(zTokenStart(t));
    EXPECT_TRUE(zTokenSeek(t, u"x") && zTokenSeek(t, u"REPOS"));
    EXPECT_EQ(std::u16string(zTokenRemain(t)), u"ann/repos");
    ASSERT_OK(zTokenReinit(t, zTokenRemain(t), u"/")); // its own text
    EXPECT_EQ(all_of(t), u"ann|repos|");
}

} // namespace
