// The words of HTTP: versions, methods, and the texts of statuses.
#include "common/errno.hpp"
#include "common/failure.hpp"
#include "zev/http_header.h"
#include "zev/str.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

using namespace zev;

namespace {

struct Method {
    uint32_t code;
    const zwchar *name;
    bool by_name; // found by its text
};
constexpr Method kMethods[] = {
    {Z_HTTP_DELETE, u"DELETE", true}, {Z_HTTP_GET, u"GET", true}, {Z_HTTP_HEAD, u"HEAD", true},
    {Z_HTTP_POST, u"POST", true},     {Z_HTTP_PUT, u"PUT", true}, {Z_HTTP_PATCH, u"PATCH", false},
};

struct Status {
    int32_t code;
    const zwchar *text;
};
constexpr Status kStatuses[] = {
    // by code
    {100, u"Continue"},
    {101, u"Switching Protocols"},
    {102, u"Processing"},
    {200, u"OK"},
    {201, u"Created"},
    {202, u"Accepted"},
    {203, u"Non-Authoritative Information"},
    {204, u"No Content"},
    {205, u"Reset Content"},
    {206, u"Partial Content"},
    {207, u"Multi Status"},
    {208, u"Already Reported"},
    {226, u"Im Used"},
    {300, u"Multiple Choices"},
    {301, u"Moved Permanently"},
    {302, u"Found"},
    {303, u"See Other"},
    {304, u"Not Modified"},
    {305, u"Use Proxy"},
    {306, u"Unused"},
    {307, u"Temporary Redirect"},
    {308, u"Permanent Redirect"},
    {400, u"Bad Request"},
    {401, u"Unauthorized"},
    {402, u"Payment Required"},
    {403, u"Forbidden"},
    {404, u"Not Found"},
    {405, u"Method Not Allowed"},
    {406, u"Not Acceptable"},
    {407, u"Proxy Authentication Required"},
    {408, u"Request Timeout"},
    {409, u"Conflict"},
    {410, u"Gone"},
    {411, u"Length Required"},
    {412, u"Precondition Failed"},
    {413, u"Request Entity Too Large"},
    {414, u"Request URI Too Long"},
    {415, u"Unsupported Media Type"},
    {416, u"Requested Range Not Satisfiable"},
    {417, u"Expectation Failed"},
    {421, u"Misdirected Request"},
    {422, u"Unprocessable Entity"},
    {423, u"Locked"},
    {424, u"Failed Dependency"},
    {426, u"Upgrade Required"},
    {428, u"Precondition Required"},
    {429, u"Too Many Requests"},
    {431, u"Request Header Fields Too Large"},
    {451, u"Unavailable For Legal Reasons"},
    {500, u"Internal Server Error"},
    {501, u"Not Implemented"},
    {502, u"Bad Gateway"},
    {503, u"Service Unavailable"},
    {504, u"Gateway Timeout"},
    {505, u"Http Version Not Supported"},
    {506, u"Variant Also Negotiates"},
    {507, u"Insufficient Storage"},
    {508, u"Loop Detected"},
    {510, u"Not Extended"},
    {511, u"Network Authentication Require"},
};

} // namespace

const zwchar *zHttpVersionName(uint32_t code) {
    if (code == Z_HTTP_1_1) return u"HTTP/1.1";
    return code == Z_HTTP_1_OTHER ? u"HTTP/1.2" : fail_args();
}

const zwchar *zHttpMethodName(uint32_t code) {
    const auto *found = std::ranges::find(kMethods, code, &Method::code);
    return found != std::end(kMethods) ? found->name : fail_args();
}

uint32_t zHttpMethodCode(const zwchar *text) {
    if (!text) return fail_args(), UINT32_MAX;
    for (const Method &method : kMethods)
        if (method.by_name && zStrcasesameW(method.name, text)) return method.code;
    return fail_os(EPROTONOSUPPORT), UINT32_MAX;
}

const zwchar *zHttpStatusMessage(int32_t code) {
    const auto *found = std::ranges::lower_bound(kStatuses, code, {}, &Status::code);
    if (found != std::end(kStatuses) && found->code == code) return found->text;
    fail_args();
    return code < 100 || code > 511 ? nullptr : u"Internal Error";
}
