// Whether a service could listen where its settings say.
#pragma once

#include <cstdint>
#include <string>

namespace host {

// What keeps it from that, with the address; empty for nothing. A server that listens there already
// is nothing, it may be this service.
std::string listening_problem(const std::string &host, uint16_t port);

} // namespace host
