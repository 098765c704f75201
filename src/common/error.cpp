// The error record of each thread, and the raisers that fill it. The texts of a raise are made
// before the record is touched, since its arguments may point into that.
#include "zev/error.h"

#include "common/errno.hpp"
#include "common/error_class.hpp"
#include "common/format.hpp"
#include "common/global.hpp"
#include "common/guard.hpp"
#include "common/per_thread.hpp"
#include "common/utf.hpp"
#include "zev/json.h"
#include "zev/lang.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

#include <git2.h>
#include <netdb.h>
#include <uv.h>

using namespace zev;
using namespace zev::error_class;

namespace {

constexpr size_t kText = 1024; // units of a text with its terminator

struct ErrorRecord {
    int32_t error_class;
    int32_t code;
    zwchar msg[kText];
    zwchar reason[kText];
    zwchar detail[kText]; // composed by zErrorDetail, emptied by every raise
};

// What a thread reads that has no record because memory ran out.
constexpr ErrorRecord kNoRecord = {kNoMemory, kNoMemory, u"", u"Cannot allocate memory",
                                   u"Cannot allocate memory"};

ErrorRecord *make_record() { return static_cast<ErrorRecord *>(calloc(1, sizeof(ErrorRecord))); }

ErrorRecord *record() { return PerThread<ErrorRecord, make_record, free>::get(); }

const ErrorRecord &readable() {
    const ErrorRecord *own = record();
    return own ? *own : kNoRecord;
}

// A text of a record while it is made, outside the record because the arguments of a raise may
// point into that. What doesn't fit is cut.
class RecordText {
  public:
    RecordText() = default;
    RecordText(const zwchar *format, va_list arguments) {
        if (!format) return;
        int32_t length = format_wide(units_, kText - 1, format, arguments);
        // -1 stands for a text that was cut, which fills the buffer, and for a format that can't
        // be read, which gives no text.
        if (length < 0 && !units_[kText - 2]) units_[0] = 0;
        length_ = std::char_traits<zwchar>::length(units_);
    }

    RecordText &append(const zwchar *text) {
        while (text && *text && length_ < kText - 1) units_[length_++] = *text++;
        return *this;
    }

    // Text of a layer below: UTF-8 without the blanks and line ends around it.
    RecordText &append_utf8(const char *text) {
        constexpr std::string_view kBlank = "\t\r\n ";
        std::string_view left = text ? text : "";
        left.remove_prefix(std::min(left.find_first_not_of(kBlank), left.size()));
        left = left.substr(0, left.find_last_not_of(kBlank) + 1);
        // No character has more bytes than three times its units.
        zwchar wide[3 * kText];
        wide[wide_from_utf8(left.data(), std::min(left.size(), 3 * kText - 1), wide)] = 0;
        return append(wide);
    }

    operator const zwchar *() const { return units_; }
    uint64_t size() const { return (length_ + 1) * sizeof(zwchar); }

  private:
    zwchar units_[kText] = {};
    size_t length_ = 0;
};

int32_t store(int32_t error_class, int32_t code, const RecordText &msg, const RecordText &reason) {
    if (ErrorRecord *own = record()) {
        own->error_class = error_class;
        own->code = code;
        memcpy(own->msg, msg, msg.size());
        memcpy(own->reason, reason, reason.size());
        own->detail[0] = 0;
    }
    return error_class;
}

RecordText plain(const zwchar *text) { return RecordText().append(text); }

// The system's text of a host errno; English and without a lock.
RecordText host_reason(int host) { return RecordText().append_utf8(strerrordesc_np(host)); }

// The host errno that an interface number stands for. A host errno without a number of its own
// is 131 outside; right after its failure errno still tells which one it was.
int host_of(int32_t code) {
    if (code == static_cast<int32_t>(Err::other) && err_from_host(errno) == Err::other)
        return errno;
    return host_from_err(static_cast<Err>(code));
}

// Text of an interface number, empty for a number that stands for nothing.
RecordText std_reason(int32_t code) {
    const int host = host_of(code);
    const bool known = host != EIO || code == EIO || code == static_cast<int32_t>(Err::other);
    return known ? host_reason(host) : RecordText();
}

RecordText git_reason() {
    const git_error *last = git_error_last();
    return RecordText().append_utf8(last ? last->message : nullptr);
}

RecordText uv_reason(int32_t code) {
    char text[256] = {};
    return RecordText().append_utf8(uv_strerror_r(code, text, sizeof text));
}

// Codes of class 9 are interface numbers; the resolver's own are negative.
RecordText system_reason(int32_t code) {
    return code < 0 ? RecordText().append_utf8(gai_strerror(code)) : std_reason(code);
}

int nearest_errno(int32_t code) {
    switch (code) {
    case EAI_NONAME:
        return ENOENT;
    case EAI_AGAIN:
        return EAGAIN;
    case EAI_MEMORY:
        return ENOMEM;
    case EAI_FAMILY:
        return EAFNOSUPPORT;
    case EAI_SYSTEM:
        return errno;
    default:
        return code < 0 ? EIO : host_of(code);
    }
}

// The catalogue's text of an HTTP status, its key where the node holds no text, nothing where
// there is no node.
RecordText status_reason(int32_t status) {
    Json *catalogue = zI18nCurrentLang();
    if (!catalogue) return {};
    zwchar key[24] = {};
    zSnprintfW(key, std::size(key), u"http.%d", status);
    Json *node = zI18nNodeLookup(catalogue, key);
    if (!node) return {};
    const zwchar *text = zJsonGetString(node);
    return plain(text ? text : key);
}

int32_t class_of_std(int32_t code) {
    switch (static_cast<Err>(code)) {
    case Err::noent:
        return kNotFound;
    case Err::again:
    case Err::wouldblock:
        return kLocked;
    case Err::nomem:
        return kNoMemory;
    case Err::inval:
        return kInvalidArgs;
    case Err::range:
        return kOutOfRange;
    case Err::already:
        return kAlreadyExists; // EALREADY; EEXIST has no class of its own
    case Err::canceled:
        return kCanceled;
    default:
        return kStd;
    }
}

int32_t class_of_git(int32_t code) {
    switch (code) {
    case GIT_ENOTFOUND:
        return kNotFound;
    case GIT_EEXISTS:
        return kAlreadyExists;
    case GIT_ELOCKED:
        return kLocked;
    case GIT_EINVALID:
        return kInvalidArgs;
    default:
        return kGit;
    }
}

int32_t class_of_uv(int32_t code) {
    switch (code) {
    case UV_ENOENT:
        return kNotFound;
    case UV_ENOMEM:
        return kNoMemory;
    case UV_EINVAL:
        return kInvalidArgs;
    case UV_EALREADY:
        return kAlreadyExists;
    case UV_ERANGE:
        return kOutOfRange;
    default:
        return kUv;
    }
}

// A reason on its own, lent until the thread's ring comes round.
const zwchar *lent(const zwchar *reason) { return zStrsafeW(park(reason)); }

} // namespace

// The arguments of a raiser as text. A macro, since only the variadic function itself can start
// its list.
#define ZEV_FORMATTED(text, format)                                                                \
    va_list text##_arguments;                                                                      \
    va_start(text##_arguments, format);                                                            \
    const RecordText text(format, text##_arguments);                                               \
    va_end(text##_arguments)

bool zev::prepare_error_record() { return record(); }

int32_t zErrorClass() { return readable().error_class; }
int32_t zErrorCode() { return readable().code; }
const zwchar *zErrorMsg() { return readable().msg; }
const zwchar *zErrorReason() { return readable().reason; }

const zwchar *zErrorDetail() {
    ErrorRecord *own = record();
    if (!own) return kNoRecord.detail;
    if (own->detail[0]) return own->detail;
    RecordText detail = plain(own->msg);
    if (own->msg[0] && own->reason[0]) detail.append(u": ");
    detail.append(own->reason);
    if (!detail[0]) detail.append(u"Unknown error");
    memcpy(own->detail, detail, detail.size());
    return own->detail;
}

const zwchar *zSetErrorMsg(const zwchar *format, ...) {
    ZEV_FORMATTED(msg, format);
    ErrorRecord *own = record();
    if (!own) return kNoRecord.msg;
    if (format) memcpy(own->msg, msg, msg.size());
    return own->msg;
}

const zwchar *zSetErrorReason(const zwchar *format, ...) {
    ZEV_FORMATTED(reason, format);
    ErrorRecord *own = record();
    if (!own) return kNoRecord.reason;
    if (format) memcpy(own->reason, reason, reason.size());
    return own->reason;
}

int32_t zRaiseError(int32_t error_class, int32_t code, const zwchar *msg, const zwchar *reason) {
    return store(error_class, code, plain(msg), plain(reason));
}

int32_t zRaiseNoMemory(const zwchar *format, ...) {
    ZEV_FORMATTED(msg, format);
    return store(kNoMemory, kNoMemory, msg, host_reason(ENOMEM));
}

int32_t zRaiseInvalidArgs(const zwchar *format, ...) {
    ZEV_FORMATTED(msg, format);
    return store(kInvalidArgs, kInvalidArgs, msg, host_reason(EINVAL));
}

int32_t zRaiseNotFound(const zwchar *format, ...) {
    ZEV_FORMATTED(msg, format);
    return store(kNotFound, kNotFound, msg, host_reason(ENOENT));
}

int32_t zRaiseAlreadyExists(const zwchar *format, ...) {
    ZEV_FORMATTED(msg, format);
    return store(kAlreadyExists, kAlreadyExists, msg, host_reason(EEXIST));
}

int32_t zRaiseOutOfRange(const zwchar *format, ...) {
    ZEV_FORMATTED(msg, format);
    return store(kOutOfRange, kOutOfRange, msg, host_reason(EINVAL));
}

int32_t zRaiseCanceled(const zwchar *format, ...) {
    ZEV_FORMATTED(msg, format);
    return store(kCanceled, kCanceled, msg, host_reason(ECANCELED));
}

int32_t zRaiseLocked(const zwchar *format, ...) {
    ZEV_FORMATTED(msg, format);
    return store(kLocked, kLocked, msg, host_reason(EACCES));
}

int32_t zRaiseKvdbErr(const zwchar *format, ...) {
    ZEV_FORMATTED(msg, format);
    static constexpr zwchar kDefault[] = u"An error occurred in the KV storage module";
    return store(kKvdb, kKvdb, format ? msg : plain(kDefault), RecordText());
}

int32_t zRaiseStdErr(int32_t code, const zwchar *format, ...) {
    const int host = host_of(code); // before anything below can touch errno
    const RecordText reason = std_reason(code);
    ZEV_FORMATTED(msg, format);
    store(class_of_std(code), code, msg, reason);
    errno = host;
    return class_of_std(code);
}

int32_t zRaiseGitErr(int32_t code, const zwchar *format, ...) {
    ZEV_FORMATTED(msg, format);
    return store(class_of_git(code), code, msg, git_reason());
}

int32_t zRaiseUvErr(int32_t code, const zwchar *format, ...) {
    ZEV_FORMATTED(msg, format);
    return store(class_of_uv(code), code, msg, uv_reason(code));
}

int32_t zRaiseWinErr(int32_t code, const zwchar *format, ...) {
    const int host = nearest_errno(code);
    const RecordText reason = system_reason(code);
    ZEV_FORMATTED(msg, format);
    store(kSystem, code, msg, reason);
    errno = host;
    return kSystem;
}

int32_t zRaiseWsaErr(int32_t code, const zwchar *format, ...) {
    const int host = nearest_errno(code);
    const RecordText reason = system_reason(code);
    ZEV_FORMATTED(msg, format);
    store(kSystem, code, msg, reason);
    errno = host;
    return kSystem;
}

int32_t zRaiseSrvErr(int32_t status, const zwchar *reason, const zwchar *format, ...) {
    ZEV_FORMATTED(msg, format);
    return store(kSrv, status, msg, reason ? plain(reason) : status_reason(status));
}

int32_t zRaiseNetErr(int32_t code, const zwchar *reason, const zwchar *format, ...) {
    ZEV_FORMATTED(msg, format);
    return store(kNet, code, msg, plain(reason));
}

int32_t zRaiseOtherErr(const zwchar *reason, const zwchar *format, ...) {
    ZEV_FORMATTED(msg, format);
    return store(kOther, kOther, msg, plain(reason));
}

const zwchar *zStdErrReason(int32_t code) { return lent(std_reason(code)); }

const zwchar *zGitErrLast() {
    const git_error *last = git_error_last();
    return zStrsafeW(last ? zStrfromutf8(last->message) : nullptr);
}

const zwchar *zUvErrReason(int32_t code) { return lent(uv_reason(code)); }
const zwchar *zWinErrStr(int32_t code) { return lent(system_reason(code)); }
const zwchar *zWsaErrStr(int32_t code) { return lent(system_reason(code)); }
