// Identity: the certificate and the key that a service with TLS shows, looked at before it starts.
#pragma once

#include <string>
#include <vector>

namespace host {

struct Identity {
    std::string told;                  // for whom it is and until when; empty where that is unknown
    std::vector<std::string> problems; // each with the file's name; empty for one that can serve
    std::vector<std::string> warnings; // of what can serve, but not as it should
};

// Both are paths of PEM files. The key is not held longer than the look takes.
Identity look_at_identity(const std::string &certificate, const std::string &key);

} // namespace host
