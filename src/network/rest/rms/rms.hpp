// What the commands of both rms routes share: their arguments, and the one form of their answers,
// {"data": {"type": "auth", "status": N, "result": ...}}, 200 for a status of 100 and 500 for any
// other. The module's statuses go to the client as they are.
#pragma once

#include "network/rest/operations.hpp"
#include "zev/auth.h"

namespace zev::rest {

// ---- Arguments, by name; the object may be null. What is missing, or null, is a null text, 0 or
// false; a number beyond 32 bits is the nearest that fits.
const zwchar *text_of(Json *arguments, const zwchar *name);
int32_t number_of(Json *arguments, const zwchar *name);
// Of a number that is bits only the low ones count: the nearest that fits would have them all.
int32_t bits_of(Json *arguments, const zwchar *name);
bool flag_of(Json *arguments, const zwchar *name);

// ---- Answers
HttpResponse *answer_status(int32_t status, Tree result = {});
// 400 "srv.eBadRequest".
HttpResponse *refuse_request(const Call &call, Here at = {});

// Asks the module for a tree, which moves into the answer.
template <class F> HttpResponse *answer_tree(F ask) {
    Json *tree = nullptr;
    const int32_t status = ask(&tree);
    Tree owned(tree);
    return answer_status(status, status == Z_AUTH_DONE ? std::move(owned) : Tree());
}

// There is one: the common path has looked.
inline const AuthTable &auth_of(const Call &call) { return *zHttpServerAuth(call.server); }

// ---- Commands of a file of their own
HttpResponse *list_directories(Call &call, Json *arguments);
HttpResponse *create_directory(Call &call, Json *arguments);
HttpResponse *delete_directory(Call &call, Json *arguments);
HttpResponse *rename_directory(Call &call, Json *arguments);

} // namespace zev::rest
