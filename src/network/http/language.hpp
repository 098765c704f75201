// The language of a request's answers.
#pragma once

#include "zev/http_request.h"

#include <string>

namespace zev {

// Its "Accept-Language" where that is the name of one, whether there are texts in it or not. Of a
// list as browsers send it, "de-AT,de;q=0.9,en;q=0.5", the one that is wanted most and that there
// are texts in, or in a language of the same family. Else the product's. May throw.
std::u16string language_of(HttpRequest *request);

} // namespace zev
