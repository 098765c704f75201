// What TLS stands on: whom a client trusts, what a server shows, and words for what goes wrong.
#pragma once

#include "common/guard.hpp"
#include "zev/base.h"

#include <string>

#include <openssl/ssl.h>

namespace zev {

using TlsContext = Owned<SSL_CTX, SSL_CTX_free>;
using TlsSession = Owned<SSL, SSL_free>;

// Trusts the system's authorities and those of the file that ZEV_CA_FILE names; null, with the
// failure logged, where that can't be read: nothing is trusted for want of it.
TlsContext tls_client_context();
// Shows a chain, the server's own certificate first, with its key, each a file of PEM; null, with
// the failure logged, where they are no good.
TlsContext tls_server_context(const zwchar *certificate, const zwchar *key);

// A client's session is refused unless the certificate is for that name or address.
bool tls_expect(SSL *session, const std::string &host);

// Why the last call on a session failed, in the words of the library below.
struct TlsReason {
    int code;
    std::string text;
};
TlsReason tls_reason(const SSL *session);

} // namespace zev
