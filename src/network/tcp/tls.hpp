// TLS as a kind of transport: the one over TCP, with an end between it and the messages that
// turns bytes into records and back.
#pragma once

#include "zev/transfer.h"

namespace zev {

// A client's checks who answers, see tls_context.hpp; a server's has to be given its identity.
const LoopClass *tls_class();
// A server's, before it listens: files of PEM, the chain and its key. Later on, from any thread, it
// is shown to the connections that begin from then on; false, logged, leaves the one that there is.
bool tls_set_identity(Loop *loop, const zwchar *certificate, const zwchar *key);

} // namespace zev
