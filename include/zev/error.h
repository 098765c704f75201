// Error: start and stop of the library, and the error record of each thread.
//
// A function that fails leaves class, code, message and reason in the calling thread's record;
// read it before the next call. A success changes nothing: what was raised last stays.
#ifndef ZEV_ERROR_H
#define ZEV_ERROR_H

#include "zev/base.h"

ZEV_BEGIN

// ---- Start and stop

// zGlobalInit makes the library usable; calls nest, and only the first one works. It reads
// zev.conf beside the library's file, whose `appdata` names the directory that holds conf and
// logs (".." without one), and the catalogue of `lang`, or of the product's language if that is
// null. An empty `lang` asks for the user's: where conf/lang.conf names no language, the one of
// LC_ALL, LC_MESSAGES or LANG becomes the product's, if there is a catalogue for it. `locale`, if
// given, becomes the process's locale; one that the system lacks is ignored. False: not started,
// the record tells why; a missing conf directory is class 3.
ZEV_API bool zGlobalInit(const zwchar *lang, const zwchar *locale);

// zGlobalCleanup undoes one zGlobalInit, the last one for all. It is always true.
ZEV_API bool zGlobalCleanup(void);

// zGlobalRecyclePut hands a temporary allocation to the calling thread's ring, which releases it
// at the 1024th further one or when the thread ends. A null release means free. False if there
// is no memory for the ring: the pointer is still the caller's.
ZEV_API bool zGlobalRecyclePut(void *pointer, ReleaseFn release);

// ---- Reading the record of the calling thread

// Class 0 means that nothing was raised on this thread yet. Classes: 1 no memory, 2 bad argument,
// 3 not found, 4 exists already, 5 out of range, 6 cancelled, 7 locked, 9 system or socket,
// 10 other standard error, 11 other libgit2 error, 12 other libuv error, 13 key-value store,
// 15 network, 16 answered by the server, -1 anything else.
ZEV_API int32_t zErrorClass(void);

// The number of the layer that failed, else the class.
ZEV_API int32_t zErrorCode(void);

// Texts, at most 1023 characters, lent until the next raise on this thread. The message says what
// was being done, the reason what the layer below says; either may be empty.
ZEV_API const zwchar *zErrorMsg(void);
ZEV_API const zwchar *zErrorReason(void);

// Both in one, "message: reason", or "Unknown error"; composed once for each raise.
ZEV_API const zwchar *zErrorDetail(void);

// Replace one text and give its address. A null format changes nothing; neither does any call
// touch class, code or a detail that was already composed.
ZEV_API const zwchar *zSetErrorMsg(const zwchar *format, ...);
ZEV_API const zwchar *zSetErrorReason(const zwchar *format, ...);

// ---- Raising. Each fills the record anew and gives the class stored. A null format leaves the
// message empty; longer texts are cut.

ZEV_API int32_t zRaiseError(int32_t error_class, int32_t code, const zwchar *msg,
                            const zwchar *reason);

// Classes 1 to 7 with the same code; the reason is the system's text for such a failure.
ZEV_API int32_t zRaiseNoMemory(const zwchar *format, ...);
ZEV_API int32_t zRaiseInvalidArgs(const zwchar *format, ...);
ZEV_API int32_t zRaiseNotFound(const zwchar *format, ...);
ZEV_API int32_t zRaiseAlreadyExists(const zwchar *format, ...);
ZEV_API int32_t zRaiseOutOfRange(const zwchar *format, ...);
ZEV_API int32_t zRaiseCanceled(const zwchar *format, ...);
ZEV_API int32_t zRaiseLocked(const zwchar *format, ...);

// Class 13, no reason; a null format gives a general message.
ZEV_API int32_t zRaiseKvdbErr(const zwchar *format, ...);

// The class by the code, else 10, 11 or 12. Codes of zRaiseStdErr are the interface's numbers,
// the same on every host (17 exists, 38 name too long, 131 other ...); the C variable errno is
// left with the host's number for it. zRaiseGitErr takes libgit2's last text as the reason.
ZEV_API int32_t zRaiseStdErr(int32_t code, const zwchar *format, ...);
ZEV_API int32_t zRaiseGitErr(int32_t code, const zwchar *format, ...);
ZEV_API int32_t zRaiseUvErr(int32_t code, const zwchar *format, ...);

// Class 9, a failure of the system or of a socket. Codes as of zRaiseStdErr, or the resolver's
// own negative ones; errno is left with the nearest host number.
ZEV_API int32_t zRaiseWinErr(int32_t code, const zwchar *format, ...);
ZEV_API int32_t zRaiseWsaErr(int32_t code, const zwchar *format, ...);

// Class 16 with the HTTP status as code; a null reason means the catalogue's text of the status.
ZEV_API int32_t zRaiseSrvErr(int32_t status, const zwchar *reason, const zwchar *format, ...);
ZEV_API int32_t zRaiseNetErr(int32_t code, const zwchar *reason, const zwchar *format, ...);
ZEV_API int32_t zRaiseOtherErr(const zwchar *reason, const zwchar *format, ...);

// ---- Reasons without a raise, parked in the thread's ring. Empty when there is no text.
ZEV_API const zwchar *zStdErrReason(int32_t code);
ZEV_API const zwchar *zGitErrLast(void);
ZEV_API const zwchar *zUvErrReason(int32_t code);
ZEV_API const zwchar *zWinErrStr(int32_t code);
ZEV_API const zwchar *zWsaErrStr(int32_t code);

ZEV_END
#endif
