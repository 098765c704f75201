// Lang: message catalogues, JSON trees whose dotted keys name texts.
//
// A key's tail says what its text takes: `_s` a wide string, `_d` a 32-bit integer, `_4d` four of
// them, in that order. A text whose conversions differ counts as missing, and a key without a
// text stands for itself. Catalogues belong to the library until zI18nDeinit and never change.
#ifndef ZEV_LANG_H
#define ZEV_LANG_H

#include "zev/base.h"
#include <stdarg.h>

ZEV_BEGIN

// Called by zGlobalInit and zGlobalCleanup. A second zI18nInit changes nothing.
ZEV_API bool zI18nInit(void);
ZEV_API void zI18nDeinit(void);

// The catalogue of a language such as "de-DE", read at its first use; null means the product's
// language. A language without a file gets the en-US catalogue; null if there is none either.
ZEV_API Json *zI18nLangLookup(const zwchar *language);

// The catalogue of the process; the product's language unless zI18nSetCurrentLang chose another
// before. The first choice stays: later ones change nothing and give true. Where no file is found
// it is empty, and keys stand for themselves. Before zI18nInit null, and false.
ZEV_API Json *zI18nCurrentLang(void);
ZEV_API bool zI18nSetCurrentLang(const zwchar *language);

// The node of a dotted key, in a catalogue or any subtree of one; null if there is none. Null
// arguments raise class 2, here and below.
ZEV_API Json *zI18nNodeLookup(Json *catalogue, const zwchar *key);
ZEV_API bool zI18nNodeExists(Json *catalogue, const zwchar *key);

// The text of a key, lent by the catalogue, or the key itself. errno stays as it was, so that
// the text can go straight into a raise.
ZEV_API const zwchar *zI18nTextLookup(Json *catalogue, const zwchar *key);

// The same with its arguments put in, parked in the thread's ring.
ZEV_API const zwchar *zI18nTextFormat(Json *catalogue, const zwchar *key, ...);
ZEV_API const zwchar *zI18nTextFormatV(Json *catalogue, const zwchar *key, va_list arguments);

// Names of languages: the one that every catalogue falls back to ("en-US"), the user's own by the
// environment, and the product's by conf/lang.conf, which is "en-US" where that names none, or the
// user's if zGlobalInit was asked for it. Static, asked for once.
ZEV_API const zwchar *zLangGlobal(void);
ZEV_API const zwchar *zLangLocal(void);
ZEV_API const zwchar *zLangProduct(void);

ZEV_END
#endif
