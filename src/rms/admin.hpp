// A session with a server's rights management, and the one exchange that nearly all of its
// operations are: a command goes out by POST, a status comes back.
#pragma once

#include "common/failure.hpp"
#include "common/json.hpp"
#include "zev/admin.h"
#include "zev/http_request.h"

#include <initializer_list>
#include <string>

// The request has the account, once that is known.
struct Admin {
    zev::Owned<HttpRequest, zHttpRequestFree> request;
    std::u16string url; // the server's
};

namespace zev {

using Session = Owned<Admin, zAdminLogoutRms>;
// Null, class 2, for a URL that is none.
Session open_session(const zwchar *url);

// What a request is about: a text of `Z_URL_MAX` units, "<url>/part/part". False, class 2, where it
// would be cut: that is the address of something else.
bool resource_url(zwchar *out, const Admin &admin, std::initializer_list<const zwchar *> parts);
// Sends; the body may be null. Null where there was no answer, or HTTP 400, with the reason raised.
HttpResponse *send(Admin &admin, uint32_t method, const zwchar *url, const Json *body);
// Class 15: the HTTP code and the server's text; -1 for an answer that is none.
Failure raise_refusal(HttpResponse *response);
// The answer's body; null for one that can't be read.
JsonGuard body_of(HttpResponse *response);

// An owner, or the name of a project, as a segment of an address. Raised.
bool check_segment(const zwchar *name);
// No longer than 511 units.
bool is_short(const zwchar *text);

// Is filled, then run once. The first argument that is no good decides: nothing is sent then, and
// a bad argument comes before a bad name, wherever they stand.
class Command {
  public:
    Command(Admin *admin, const zwchar *target, const zwchar *action, Here at = {});
    Command &in(const zwchar *owner, const zwchar *project); // a project's; else the server's
    Command &name(const zwchar *key, const zwchar *value);   // of a user, group or role: lower case
    Command &text(const zwchar *key, const zwchar *value);
    Command &given(const zwchar *key, const zwchar *value) { // may be null
        return value ? text(key, value) : *this;
    }
    Command &maybe_name(const zwchar *key, const zwchar *value) {
        return value ? name(key, value) : *this;
    }
    Command &number(const zwchar *key, int32_t value);
    Command &flag(const zwchar *key, bool value);
    Command &refuse_own(const zwchar *login); // the session's own login is Z_AUTH_OWN_LOGIN
    Command &needs(const void *out);          // an out argument

    int32_t run();
    int32_t run_for(Json **result);
    int32_t run_for(const zwchar *path, zwchar **text);
    int32_t run_for(const zwchar *path, int32_t *number);
    // Whatever the status; the pointer may be null.
    int32_t run_for_any(const zwchar *path, int32_t *number);

    Json *result() const { return answer_ ? json_find(answer_.get(), u"data.result") : nullptr; }

  private:
    void put(const zwchar *key, Json *value);
    void fail(int32_t status) {
        if (!status_ || status == Z_AUTH_BAD_ARGUMENT) status_ = status;
    }

    Admin *admin_;
    const Here at_;
    int32_t status_ = 0; // why it can't be sent
    JsonGuard tree_, answer_;
    const zwchar *owner_ = nullptr, *project_ = nullptr;
};

} // namespace zev
