// Responses, for the files of HTTP.
#pragma once

#include "network/http/message.hpp"
#include "zev/http_response.h"

namespace zev {

// What a server tells of its connections: the silence after which one is cut, in milliseconds, and
// its backlog.
struct KeepAlive {
    uint32_t timeout;
    uint32_t maximum;
};

// The head as it goes out, in UTF-8. May throw.
std::string response_head(const HttpResponse &response, const KeepAlive &keep);

// "http.404" of a catalogue, or the key itself.
const zwchar *status_text(Json *catalogue, int32_t code);

} // namespace zev
