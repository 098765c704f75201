// Requests, for the files of HTTP.
#pragma once

#include "network/http/message.hpp"
#include "zev/http_request.h"

namespace zev {

// The head as it goes out, in UTF-8: the whole URL in its line, fields in order. Empty, with class
// 2 raised and logged, when there is no such URL. May throw.
std::string request_head(HttpRequest *request);

} // namespace zev
