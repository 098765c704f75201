// The gate where rights are required ("http.auth": "required"): who a caller is, and whether he may
// do what he asks. Elsewhere it lets everybody pass.
//
// 401 for a caller who doesn't prove who he is, 403 for one who lacks the right; 429, with no
// password looked at, for a login or an address that failed too often within a minute. A project is
// looked for only behind a valid login.
#pragma once

#include "network/rest/operations.hpp"

namespace zev::rest {

// Null when the caller has what the call's operation needs, else the refusal. What a command needs
// is judged by admit_command; here, that of a project needs a valid login.
HttpResponse *admit(Call &call);

// The same for a command. A need of `login` is met by the caller whose login is the first of the
// needed arguments; else it is power on the server's route, administration on the project's.
HttpResponse *admit_command(Call &call, const Command &command, Json *arguments);

// Counts a password that was found wrong, the module's status of it given, against the login and
// the address that it came from.
void count_attempt(Call &call, const zwchar *login, int32_t status);

} // namespace zev::rest
