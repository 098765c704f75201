// Token: wide text taken apart at delimiter characters.
//
// Runs of delimiters count as one, and neither leading nor trailing ones give an empty token:
//   Token *token = zTokenNew(u"a//b/", u"/");
//   for (zTokenStart(token); !zTokenDone(token); zTokenStep(token)) use(zTokenString(token));
//   zTokenFree(token);
// Tokens lie in the record's own copy of the text and live until it is cleaned up. A null record
// or text raises class 2 and logs it.
#ifndef ZEV_TOKEN_H
#define ZEV_TOKEN_H

#include "zev/base.h"

ZEV_BEGIN

// Its fields are read by calls only.
struct Token {
    zwchar *text; // cut up in place as tokens are taken
    zwchar *delimiters;
    zwchar *current; // null when there is none
    zwchar *rest;    // null before the first token
};

// Init takes a record of the caller's, whose content doesn't matter, and Cleanup ends it. Reinit
// puts new text into a record that is in use; both texts may be its own, and a failure leaves it
// as it was.
ZEV_API Token *zTokenNew(const zwchar *text, const zwchar *delimiters);
ZEV_API bool zTokenInit(Token *token, const zwchar *text, const zwchar *delimiters);
ZEV_API bool zTokenReinit(Token *token, const zwchar *text, const zwchar *delimiters);
ZEV_API void zTokenCleanup(Token *token);
ZEV_API void zTokenFree(Token *token);

// Start takes the first token, once for each text; Step the next one. They give it, or null at the
// end. A second Start and a Step before it are class 2.
ZEV_API const zwchar *zTokenStart(Token *token);
ZEV_API const zwchar *zTokenStep(Token *token);

// The current token: Done is true when there is none, String is then null with class 2.
ZEV_API bool zTokenDone(const Token *token);
ZEV_API const zwchar *zTokenString(const Token *token);

// The text behind the current token and its delimiter; null before the first token.
ZEV_API const zwchar *zTokenRemain(const Token *token);

// Steps from the current token on until one equals `text`, case aside. False when the tokens run
// out, which raises nothing.
ZEV_API bool zTokenSeek(Token *token, const zwchar *text);

ZEV_END
#endif
