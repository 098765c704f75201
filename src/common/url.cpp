// Texts of URIs: escaped and unescaped, taken apart, and joined in buffers.
#include "common/failure.hpp"
#include "common/limits.hpp"
#include "common/uri.hpp"
#include "common/utf.hpp"

#include <http_parser.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>

namespace zev {
namespace {

// Bytes that unescaped text may have.
constexpr size_t kUnescaped = Z_URL_MAX;

bool stays(char byte) {
    if ((byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z')) return true;
    constexpr std::string_view kKept = "0123456789/:.%?#&<>@=_-";
    return kKept.find(byte) != kKept.npos;
}

int digit(char byte) {
    if (byte >= '0' && byte <= '9') return byte - '0';
    const char lower = static_cast<char>(byte | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// The byte that an escape at the start of a text stands for; 0 where there is none, as of "%00",
// which no text can hold.
char escape_at(std::string_view text) {
    if (text.size() < 3 || text[0] != '%') return 0;
    const int high = digit(text[1]), low = digit(text[2]);
    return high < 0 || low < 0 ? '\0' : static_cast<char>(high << 4 | low);
}

// The brackets of an IPv6 host belong to the host's syntax, which knows no escapes: "%5B" and
// "%5D" behind "://", and behind the user's "@" if there is one, become brackets again.
void restore_brackets(std::string &url) {
    size_t start = url.find("://");
    if (start == url.npos || url.find_first_of("/?#") < start) return;
    start += 3;
    const size_t end = std::min(url.find_first_of("/?#", start), url.size());
    const size_t at = url.substr(start, end - start).rfind('@');
    if (at != url.npos) start += at + 1;
    if (url.compare(start, 3, "%5B") != 0) return;
    const size_t close = url.find("%5D", start);
    if (close >= end) return;
    url.replace(close, 3, "]");
    url.replace(start, 3, "[");
}

struct Fields {
    std::string text;
    http_parser_url parts;

    bool has(int field) const { return parts.field_set >> field & 1; }
    std::string_view operator[](int field) const {
        if (!has(field)) return {};
        return std::string_view(text).substr(parts.field_data[field].off,
                                             parts.field_data[field].len);
    }
    std::u16string unescaped(int field) const { return to_wide(url_unescape((*this)[field])); }
};

bool split(UrlView text, Fields *fields) {
    auto escaped = url_escape(text);
    if (!escaped) return false;
    fields->text = std::move(*escaped);
    restore_brackets(fields->text);
    http_parser_url_init(&fields->parts);
    return !http_parser_parse_url(fields->text.data(), fields->text.size(), 0, &fields->parts);
}

// The normal form of a URL, or nothing where it is none.
std::optional<std::u16string> normal(UrlView text) {
    ScopedUri uri;
    if (!uri_read(&uri, text)) return std::nullopt;
    const zwchar *result = zUriStringfy(&uri);
    if (!result) throw std::bad_alloc();
    return result;
}

// A buffer takes what UrlText holds: that is never longer than it.
void put(zwchar *target, const std::u16string &text) {
    memcpy(target, text.c_str(), (text.size() + 1) * sizeof(zwchar));
}

bool replace_text(zwchar **text, std::string_view utf8) {
    Wide result(wide_dup(utf8.data(), utf8.size()));
    if (!result) return fail_memory();
    result.reset(std::exchange(*text, result.release()));
    return true;
}

} // namespace

std::optional<std::string> url_escape(UrlView text) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string escaped;
    if (text.size() > limits::uri_bytes) return std::nullopt;
    for (char byte : to_utf8(text)) {
        const auto value = static_cast<uint8_t>(byte);
        if (stays(byte))
            escaped += byte;
        else
            escaped.append({'%', kDigits[value >> 4], kDigits[value & 15]});
    }
    if (escaped.size() > limits::uri_bytes) return std::nullopt;
    return escaped;
}

std::string url_unescape(std::string_view text) {
    std::string result;
    result.reserve(std::min(text.size(), kUnescaped));
    while (!text.empty() && result.size() < kUnescaped) {
        const char byte = escape_at(text);
        result += byte ? byte : text.front();
        text.remove_prefix(byte ? 3 : 1);
    }
    if (!text.empty()) {
        result.resize(whole(result.data(), result.size()));
        logged(raise_range());
    }
    return result;
}

// A byte that comes out may itself be the end of an escape.
std::string url_unescape_all(std::string_view text) {
    std::string result;
    for (char next : text) {
        result += next;
        while (result.size() >= 3) {
            const size_t tail = result.size() - 3;
            const char byte = escape_at(std::string_view(result).substr(tail));
            if (!byte) break;
            result.resize(tail);
            result += byte;
        }
    }
    return result;
}

bool uri_read(Uri *uri, UrlView text) {
    Fields fields;
    if (!split(text, &fields)) return false;
    if (fields.has(UF_SCHEMA)) {
        uri_store(uri, uri->schema, to_wide(fields[UF_SCHEMA]));
        uri->port = zUriDefaultPort(uri->schema);
    }
    if (fields.has(UF_PORT)) uri->port = fields.parts.port;
    if (fields.has(UF_HOST)) uri_store(uri, uri->host, to_wide(fields[UF_HOST]));
    uri_set_path(uri, fields.unescaped(UF_PATH));
    if (fields.has(UF_QUERY)) uri_parse_query(uri, fields.unescaped(UF_QUERY));
    if (fields.has(UF_FRAGMENT)) uri_store(uri, uri->fragment, fields.unescaped(UF_FRAGMENT));
    if (fields.has(UF_USERINFO)) uri_store(uri, uri->userinfo, fields.unescaped(UF_USERINFO));
    return true;
}

} // namespace zev

using namespace zev;

bool zUriParse(Uri *uri, const zwchar *text) try {
    if (!uri || !text) return fail_args();
    ScopedUri fresh;
    const bool read = uri_read(&fresh, text);
    if (!read) raise_args(text);
    zUriCleanup(uri); // only now: the text may be one of its own
    if (read) std::swap<Uri>(*uri, fresh);
    return read;
} catch (...) {
    return fail_thrown();
}

bool zUriEscape(zwchar **text) try {
    if (!text || !*text) return fail_args();
    const auto escaped = url_escape(*text);
    if (escaped) return replace_text(text, *escaped);
    raise_range();
    return fail_raised();
} catch (...) {
    return fail_thrown();
}

bool zUriUnescape(zwchar **text) try {
    if (!text || !*text) return fail_args();
    return replace_text(text, url_unescape(to_utf8(*text)));
} catch (...) {
    return fail_thrown();
}

bool zUrlCopy(zwchar *target, const zwchar *source) {
    if (!target || !source) return fail_args();
    uint64_t length = zStrnlenW(source, Z_URL_MAX);
    if (length == Z_URL_MAX) length = whole(source, Z_URL_MAX - 1);
    memmove(target, source, length * sizeof(zwchar));
    target[length] = 0;
    return true;
}

bool zUrlAppend(zwchar *target, const zwchar *part) try {
    if (!target || !part) return fail_args();
    std::optional<std::u16string> joined;
    if (!*target) joined = normal(part);
    if (!joined) {
        UrlText text(target);
        text.add({*target && *part == u'/' ? u"" : u"/", part});
        put(target, text.text());
        joined = normal(text.text());
    }
    if (!joined) return raise_args(target);
    put(target, *joined);
    return true;
} catch (...) {
    return fail_thrown();
}

bool zUrlBuild(zwchar *target, const zwchar *first, ...) {
    if (!zUrlCopy(target, first)) return false;
    va_list parts;
    va_start(parts, first);
    bool fine = true;
    for (const zwchar *part; fine && (part = va_arg(parts, const zwchar *));)
        fine = zUrlAppend(target, part);
    va_end(parts);
    return fine;
}
