// Bodies of messages. One that is small stays in memory, a larger one goes on in a file without a
// name, which leaves nothing behind whatever becomes of the process.
#include "network/http/message.hpp"

#include "common/guard.hpp"
#include "common/utf.hpp"
#include "stream/stream.hpp"
#include "zev/lang.h"
#include "zev/str.h"
#include "zev/zip.h"

#include <string>

namespace zev {

bool set_body(Stream *&body, Stream *stream) {
    zStreamFree(std::exchange(body, stream));
    return !stream || zStreamRewind(stream);
}

bool set_contents(HttpHeader *header, Stream *&body, const zwchar *type, const zwchar *charset,
                  const zwchar *language, Stream *stream) {
    const bool described = (!type || zHttpHeaderSetContentType(header, type)) &&
                           (!charset || zHttpHeaderSetContentCharset(header, charset)) &&
                           (!language || zHttpHeaderSetContentLanguage(header, language));
    set_body(body, stream);
    return zHttpHeaderRemove(header, u"Content-Encoding") && described;
}

bool set_octet(HttpHeader *header, Stream *&body, Stream *stream) {
    return set_contents(header, body, u"application/octet-stream", nullptr, nullptr, stream);
}

Stream *json_body(const Json *json) {
    Owned<Stream, zStreamFree> stream(spill_stream());
    return stream && zJsonWriteStream(json, stream.get()) ? stream.release() : nullptr;
}

Stream *file_body(const zwchar *path) { return zFileStream(path, u"rb"); }

bool zip_body(HttpHeader *header, Stream *&body, const zwchar *encoding) {
    if (!body || zHttpHeaderContentEncoding(header)) return true;
    zStreamRewind(body);
    Owned<Stream, zStreamFree> zipped(zStreamCompress(body, encoding));
    if (!zipped || !zHttpHeaderSetContentEncoding(header, encoding)) return false;
    return set_body(body, zipped.release());
}

bool unzip_body(HttpHeader *header, Stream *&body) {
    const zwchar *encoding = body ? zHttpHeaderContentEncoding(header) : nullptr;
    if (!encoding) return true;
    zStreamRewind(body);
    Owned<Stream, zStreamFree> plain(uncompress_stream(body, encoding, limits::http_body));
    if (!plain || !zHttpHeaderRemove(header, u"Content-Encoding")) return false;
    return set_body(body, plain.release());
}

bool append_body(Stream *&body, const void *bytes, uint64_t length) {
    if (!body && !(body = spill_stream())) return false;
    if (zStreamWrite(body, bytes, length) == length) return true;
    zSetErrorMsg(u"%s", zI18nTextLookup(zI18nCurrentLang(), u"zev.eFailedToWriteStream"));
    return fail_raised();
}

bool complete_body(Stream *body) {
    return !body || (zStreamFlush(body) && zStreamRewind(body)) || fail_raised();
}

uint64_t body_size(Stream *body) { return body ? zStreamSize(body) : 0; }

bool put_length(HttpHeader *header, Stream *body) {
    const std::string digits = std::to_string(body_size(body));
    return zHttpHeaderPut(header, u"Content-Length", to_wide(digits).c_str());
}

bool is_connection_field(const zwchar *name) { return zStrcasesameW(name, u"Connection"); }

} // namespace zev
