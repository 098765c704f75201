// Readiness: what the manager of services is told, where one started this process and listens.
#pragma once

namespace host {

// "READY=1", "STOPPING=1"; without such a manager nothing happens.
void tell_manager(const char *state);

} // namespace host
