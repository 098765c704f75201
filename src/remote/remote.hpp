// The record of a session, and what all its steps do alike: a request is made, its answer judged, a
// body read. Each of these tells what went wrong, in one form, so that a step ends with `false`.
#pragma once

#include "common/json.hpp"
#include "common/limits.hpp"
#include "common/oid.hpp"
#include "objects/notify/notify.hpp"
#include "objects/store/git.hpp"
#include "zev/http_request.h"
#include "zev/http_response.h"
#include "zev/oid.h"
#include "zev/remote.h"
#include "zev/stream.h"

#include <cstring>
#include <string>

struct Remote {
    zev::git::Remote handle;
    Repository *owner; // lent
    zev::Wide name, url;
    uint64_t timeout; // milliseconds
    zev::Owned<HttpRequest, zHttpRequestFree> request;
};

namespace zev {

using RemotePtr = Owned<Remote, zRemoteFree>;
using StreamPtr = Owned<Stream, zStreamFree>;

inline constexpr const zwchar *kJsonType = u"application/json";
inline constexpr const zwchar *kOctetType = u"application/octet-stream";

// Bytes above which an object travels alone: one of a pack would be held in memory.
inline constexpr uint64_t kAlone = 0x200000;

// Tags of tables that a server may give: beyond them there would soon be none left, and a tag never
// falls.
inline constexpr uint64_t kHighestTag = uint64_t{1} << 62;

// One call of the server, and by which texts of the catalogue it tells a failure: of the
// answer, and of the request that could not be made.
struct RemoteCall {
    Remote *remote;
    const Notify *notify;
    const zwchar *summary;
    const zwchar *unready = u"net.eFailedToCreatePullRequest";
};

// A request to the repository's address with `tail` behind it, to be sent with a body or without;
// null, told. May throw.
HttpRequest *make_request(const RemoteCall &call, uint32_t method, std::u16string_view tail,
                          const zwchar *accepted = kJsonType);
// The same with a tree as the body.
HttpRequest *make_request(const RemoteCall &call, uint32_t method, std::u16string_view tail,
                          const Json *body, const zwchar *accepted = kJsonType);

// Sends it, as zHttpRequestSend does: what the error record holds behind it was raised by that.
HttpResponse *exchange(HttpRequest *request);

// The answer of a success, lent until the next request; else null: a break is raised, all others
// are told. A null request is null, too.
HttpResponse *send(const RemoteCall &call, HttpRequest *request, Here at = {});
HttpResponse *judge(const RemoteCall &call, HttpResponse *response, Here at = {});

// What the server said makes no sense: raised, logged, told.
Failure wrong_data(const RemoteCall &call, Here at = {});

// The body of an answer: null, told, where there is none, or where it is no JSON.
Stream *body_of(const RemoteCall &call, HttpResponse *response, Here at = {});
JsonGuard json_of(const RemoteCall &call, HttpResponse *response, Here at = {});
// `data.entries` of a body, lent by it; null, told, where that is no array.
Json *entries_of(const RemoteCall &call, const JsonGuard &body, Here at = {});

// What an answer holds: false for what is no text, no id. Nothing is raised.
const zwchar *text_in(const Json *object, const zwchar *name);
bool read_id(Oid *id, const Json *node);
bool id_in(Oid *id, const Json *object, const zwchar *name);

// Puts a node where it belongs, or throws for want of memory.
void push(Json *array, Json *node);
void put(Json *object, const zwchar *name, Json *node);
// {"query": {"entries": entries}}
JsonGuard entries_query(JsonGuard entries);

} // namespace zev
