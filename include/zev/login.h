// Login: who the user is on his servers. The login information is the one login of this process,
// with which every request to a server goes out; cookies are logins remembered between runs, in a
// file of the user's own.
//
// Each text has 511 units at most, so that a buffer of Z_LOGIN_MAX holds it; a longer one is class
// 2, logged, and changes nothing. What is kept of a password is its wire form: the SHA-1 of its
// UTF-16 units, 40 lower-case hexadecimal digits, which opens the account as the password does.
#ifndef ZEV_LOGIN_H
#define ZEV_LOGIN_H

#include "zev/base.h"

ZEV_BEGIN

enum { Z_LOGIN_MAX = 512 }; // units of a buffer, with the terminator

// ---- Cookies. Two texts of the host's choice, of any length and in their case, name an entry; the
// file holds only their hash. Without one of them every call is false with nothing raised. Of two
// processes that write at the same time one may lose its entry; the file is always whole.

// Store an entry in place of an old one, the second the wire form of a password. False when the
// file can't be written, with the standard error.
ZEV_API bool zCookieWrite(const zwchar *first, const zwchar *second, const zwchar *user,
                          const zwchar *code);
ZEV_API bool zCookieWriteRaw(const zwchar *first, const zwchar *second, const zwchar *user,
                             const zwchar *password);
// Copies both texts; false, with the buffers untouched, where the entry isn't there or lacks one.
ZEV_API bool zCookieRead(const zwchar *first, const zwchar *second, zwchar *user, zwchar *code);
// Takes the entry away; true also where there is none.
ZEV_API bool zCookieClear(const zwchar *first, const zwchar *second);

// ---- Login information. To be set before operations start: one that runs takes what it finds at
// its next request.

// The user and the second text, which may be null for none, are kept in lower case, the password,
// in its wire form, as it is. An empty user is no login.
ZEV_API bool zLoginInfoSet(const zwchar *user, const zwchar *second, const zwchar *password);
// Copies; `second` may be null. False, with nothing raised and nothing copied, without a login.
ZEV_API bool zLoginInfoGet(zwchar *user, zwchar *second, zwchar *password);
ZEV_API bool zLoginInfoClear(void);

ZEV_END
#endif
