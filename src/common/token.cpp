// Token: a copied text, cut in place. `rest` is null before the first token only.
#include "zev/token.h"

#include "common/failure.hpp"
#include "common/fold.hpp"
#include "common/guard.hpp"

#include <cstdlib>
#include <utility>

using namespace zev;

Token *zTokenNew(const zwchar *text, const zwchar *delimiters) {
    Malloced<Token> token(static_cast<Token *>(malloc(sizeof(Token))));
    if (!token) return fail_memory();
    return zTokenInit(token.get(), text, delimiters) ? token.release() : nullptr;
}

bool zTokenInit(Token *token, const zwchar *text, const zwchar *delimiters) {
    if (!token || !text || !delimiters) return fail_args();
    Wide text_copy(zStrdupW(text)), delimiters_copy(zStrdupW(delimiters));
    *token = {};
    if (!text_copy || !delimiters_copy) return fail_memory();
    token->text = text_copy.release();
    token->delimiters = delimiters_copy.release();
    return true;
}

bool zTokenReinit(Token *token, const zwchar *text, const zwchar *delimiters) {
    if (!token) return fail_args();
    Token fresh;
    if (!zTokenInit(&fresh, text, delimiters)) return false;
    zTokenCleanup(token); // only now: what was handed in may lie in it
    *token = fresh;
    return true;
}

void zTokenCleanup(Token *token) {
    if (!token) return;
    const Wide text(token->text), delimiters(token->delimiters);
    *token = {};
}

void zTokenFree(Token *token) {
    zTokenCleanup(token);
    free(token);
}

const zwchar *zTokenStart(Token *token) {
    if (!token || !token->text || token->rest) return fail_args();
    return token->current = zStrtokW(token->text, token->delimiters, &token->rest);
}

const zwchar *zTokenStep(Token *token) {
    if (!token || !token->rest) return fail_args();
    return token->current = zStrtokW(nullptr, token->delimiters, &token->rest);
}

bool zTokenDone(const Token *token) {
    if (!token) return fail_args();
    return !token->current;
}

const zwchar *zTokenString(const Token *token) {
    if (!token || !token->current) return fail_args();
    return token->current;
}

const zwchar *zTokenRemain(const Token *token) {
    if (!token) return fail_args();
    return token->rest;
}

bool zTokenSeek(Token *token, const zwchar *text) {
    if (!token || !text) return fail_args();
    while (token->current && !same_folded(token->current, text)) zTokenStep(token);
    return token->current != nullptr;
}
