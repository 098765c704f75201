// Bodies of messages. One that is small stays in memory, a larger one goes on in a file without a
// name, which leaves nothing behind whatever becomes of the process.
#include "network/http/message.hpp"

#include "common/errno.hpp"
#include "common/guard.hpp"
#include "common/utf.hpp"
#include "stream/stream.hpp"
#include "zev/lang.h"
#include "zev/str.h"
#include "zev/zip.h"

#include <algorithm>
#include <cerrno>
#include <string>

namespace zev {

bool set_body(Message message, Stream *stream, Here at) {
    if (!message) return fail_args(at);
    Stream *former = std::exchange(*message.body, stream);
    if (former != stream) zStreamFree(former);
    return !stream || zStreamRewind(stream);
}

bool set_contents(Message message, const zwchar *type, const zwchar *charset,
                  const zwchar *language, Stream *stream, Here at) {
    if (!message) return fail_args(at);
    HttpHeader *header = message.header;
    const bool described = (!type || zHttpHeaderSetContentType(header, type)) &&
                           (!charset || zHttpHeaderSetContentCharset(header, charset)) &&
                           (!language || zHttpHeaderSetContentLanguage(header, language));
    set_body(message, stream);
    return zHttpHeaderRemove(header, u"Content-Encoding") && described;
}

bool set_json(Message message, const Json *json, Here at) {
    if (!message || !json) return fail_args(at);
    Owned<Stream, zStreamFree> stream(spill_stream());
    if (!stream || !zJsonWriteStream(json, stream.get())) return false;
    return set_contents(message, u"application/json", u"UTF-8", nullptr, stream.release());
}

bool set_octet(Message message, Stream *stream, Here at) {
    if (!message || !stream) return fail_args(at);
    return set_contents(message, u"application/octet-stream", nullptr, nullptr, stream);
}

bool set_file(Message message, const zwchar *path, Here at) {
    if (!message || !path) return fail_args(at);
    Stream *body = zFileStream(path, u"rb");
    return body && set_octet(message, body);
}

bool zip_body(Message message, const zwchar *encoding, Here at) {
    if (!message) return fail_args(at);
    if (!*message.body || zHttpHeaderContentEncoding(message.header)) return true;
    if (!rewind_whole(*message.body)) return false;
    Owned<Stream, zStreamFree> zipped(zStreamCompress(*message.body, encoding));
    if (!zipped || !zHttpHeaderSetContentEncoding(message.header, encoding)) return false;
    return set_body(message, zipped.release());
}

bool unzip_body(Message message, uint64_t most, Here at) {
    if (!message) return fail_args(at);
    Stream *body = *message.body;
    const zwchar *encoding = body ? zHttpHeaderContentEncoding(message.header) : nullptr;
    if (!encoding) return body_size(body) <= most || logged(raise_range(), at);
    if (!rewind_whole(body)) return false;
    Owned<Stream, zStreamFree> plain(uncompress_stream(body, encoding, most));
    if (!plain || !zHttpHeaderRemove(message.header, u"Content-Encoding")) return false;
    return set_body(message, plain.release());
}

bool append_body(Stream *&body, const void *bytes, uint64_t length) {
    if (!body && !(body = spill_stream())) return false;
    if (zStreamWrite(body, bytes, length) == length) return true;
    zSetErrorMsg(u"%s", zI18nTextLookup(zI18nCurrentLang(), u"zev.eFailedToWriteStream"));
    return log_raised(kError, {}, kFacilityNet), false;
}

bool complete_body(Stream *body) {
    if (!body || (zStreamFlush(body) && zStreamRewind(body))) return true;
    return log_raised(kError, {}, kFacilityNet), false;
}

uint64_t body_size(Stream *body) { return body ? zStreamSize(body) : 0; }

bool rewind_whole(Stream *body) {
    return !body || ((!body->rewind || zStreamRewind(body)) && !zStreamError(body));
}

uint64_t read_piece(Stream *body, char *out, uint64_t *left) {
    const uint64_t count = zStreamRead(body, out, std::min(*left, kBodyPiece));
    if (zStreamError(body)) return 0;
    if (!count) return fail_os(EIO), 0;
    *left -= count;
    return count;
}

bool put_length(HttpHeader *header, Stream *body) {
    const std::string digits = std::to_string(body_size(body));
    return zHttpHeaderPut(header, u"Content-Length", to_wide(digits).c_str());
}

bool is_connection_field(const zwchar *name) { return zStrcasesameW(name, u"Connection"); }

} // namespace zev
