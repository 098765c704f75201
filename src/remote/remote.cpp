// A session: the remote "origin" of the repository's configuration and one request, used again by
// each step, so that one connection serves a whole operation.
#include "remote/remote.hpp"

#include "common/errno.hpp"
#include "common/told_errno.hpp"
#include "objects/store/repository.hpp"
#include "zev/authdb.h"
#include "zev/lang.h"
#include "zev/login.h"
#include "zev/repository.h"

#include <cerrno>
#include <new>

using namespace zev;

namespace {

constexpr const char *kOrigin = "origin";
constexpr uint64_t kTimeout = 30000;
constexpr int32_t kUnavailable = 503; // what a request without an answer counts as

Remote *wrap_remote(git::Remote handle, Repository *repository) {
    const zwchar *name = zStrfromutf8(git_remote_name(handle.get()));
    Wide name_copy(name ? zStrdupW(name) : nullptr);
    const zwchar *url = zStrfromutf8(git_remote_url(handle.get()));
    Wide url_copy(url ? zStrdupW(url) : nullptr);
    if (!name_copy || !url_copy) return nullptr;
    return new Remote{std::move(handle),   repository, std::move(name_copy),
                      std::move(url_copy), kTimeout,   {}};
}

// The account of the process, where there is one.
bool set_account(HttpRequest *request) {
    zwchar user[Z_LOGIN_MAX], password[Z_LOGIN_MAX];
    if (!zLoginInfoGet(user, nullptr, password) || !*user) return true;
    return zHttpRequestSetUser(request, user) && zHttpRequestSetPassword(request, password);
}

} // namespace

namespace zev {

HttpRequest *make_request(const RemoteCall &call, uint32_t method, std::u16string_view tail,
                          const zwchar *accepted) {
    HttpRequest *request = zRemoteConnect(call.remote, call.notify);
    const std::u16string url = std::u16string(call.remote->url.get()).append(tail);
    if (request && zHttpRequestSetUrl(request, url.c_str()) &&
        zHttpRequestSetMethod(request, method) &&
        zHttpRequestSetAccepts(request, accepted, u"UTF-8", zLangProduct()))
        return request;
    return notify_error(call.notify, call.unready);
}

HttpRequest *make_request(const RemoteCall &call, uint32_t method, std::u16string_view tail,
                          const Json *body, const zwchar *accepted) {
    HttpRequest *request = make_request(call, method, tail, accepted);
    if (!request || zHttpRequestSetJson(request, body)) return request;
    return notify_error(call.notify, call.unready);
}

HttpResponse *exchange(HttpRequest *request) {
    zRaiseError(0, 0, nullptr, nullptr);
    return zHttpRequestSend(request);
}

HttpResponse *send(const RemoteCall &call, HttpRequest *request, Here at) {
    return request ? judge(call, exchange(request), at) : nullptr;
}

// A body that found no room on this machine is no failure of the server's, although its answer
// counts as one that never came.
HttpResponse *judge(const RemoteCall &call, HttpResponse *response, Here at) {
    if (response && zHttpResponseOk(response)) return response;
    if (response && zHttpResponseUsrbrk(response)) return raise_canceled();
    const int32_t code = response ? zHttpResponseCode(response) : kUnavailable;
    if (code == kUnavailable && raised_no_space())
        return fail_os(ENOSPC), notify_error(call.notify, call.summary);
    return notify_net(call.notify, code, zHttpResponseStrerr(response), call.summary, at);
}

Failure wrong_data(const RemoteCall &call, Here at) {
    return notify_net(call.notify, -1, word(u"net.eWrongDataFromServer"), call.summary, at);
}

Stream *body_of(const RemoteCall &call, HttpResponse *response, Here at) {
    Stream *body = response ? zHttpResponseBody(response) : nullptr;
    return body || !response ? body : wrong_data(call, at);
}

JsonGuard json_of(const RemoteCall &call, HttpResponse *response, Here at) {
    Stream *body = body_of(call, response, at);
    if (!body) return {};
    JsonBounds bounds{limits::answer_bytes, limits::answer_nodes};
    JsonGuard tree(json_read_bounded(body, bounds));
    if (!tree) wrong_data(call, at);
    return tree;
}

Json *entries_of(const RemoteCall &call, const JsonGuard &body, Here at) {
    if (!body) return nullptr;
    Json *entries = json_find(body.get(), u"data.entries");
    return entries && zJsonIsArray(entries) ? entries : wrong_data(call, at);
}

const zwchar *text_in(const Json *object, const zwchar *name) {
    const Json *node = object && zJsonIsObject(object) ? zJsonObjectAt(object, name) : nullptr;
    return node && zJsonIsString(node) ? zJsonGetString(node) : nullptr;
}

bool read_id(Oid *id, const Json *node) {
    return node && zJsonIsString(node) && parse_id(id, zJsonGetString(node));
}

bool id_in(Oid *id, const Json *object, const zwchar *name) {
    return object && zJsonIsObject(object) && read_id(id, zJsonObjectAt(object, name));
}

void push(Json *array, Json *node) {
    JsonGuard guard(node);
    if (!node || !zJsonArrayPush(array, node)) throw std::bad_alloc();
    static_cast<void>(guard.release());
}

void put(Json *object, const zwchar *name, Json *node) {
    JsonGuard guard(node);
    if (!node || !zJsonObjectPut(object, name, node)) throw std::bad_alloc();
    static_cast<void>(guard.release());
}

JsonGuard entries_query(JsonGuard entries) {
    JsonGuard query(zJsonNewPath(u"query.entries", entries.get()));
    if (!query) throw std::bad_alloc();
    static_cast<void>(entries.release());
    return query;
}

} // namespace zev

// ---- The record

Remote *zRemoteSetup(Repository *repository, const zwchar *url) try {
    if (!repository || !url) return fail_args();
    git::Remote handle;
    int code =
        git_remote_create(out(handle), repository->handle.get(), kOrigin, to_utf8(url).c_str());
    return code < 0 ? fail_git(code) : wrap_remote(std::move(handle), repository);
} catch (...) {
    return fail_thrown();
}

Remote *zRemoteOpen(Repository *repository) try {
    if (!repository) return fail_args();
    git::Remote handle;
    int code = git_remote_lookup(out(handle), repository->handle.get(), kOrigin);
    if (code < 0) return fail_git(code);
    if (!git_remote_url(handle.get())) { // empty, or one to push to only
        git_error_set_str(GIT_ERROR_CONFIG, "remote 'origin' has no URL");
        return fail_git(GIT_EINVALIDSPEC);
    }
    return wrap_remote(std::move(handle), repository);
} catch (...) {
    return fail_thrown();
}

void zRemoteFree(Remote *remote) { delete remote; }

const zwchar *zRemoteUrl(const Remote *remote) { return remote ? remote->url.get() : fail_args(); }
const zwchar *zRemoteName(const Remote *remote) {
    return remote ? remote->name.get() : fail_args();
}
uint64_t zRemoteTimeout(const Remote *remote) {
    return remote ? remote->timeout : (fail_args(), uint64_t{0});
}
bool zRemoteSetTimeout(Remote *remote, uint64_t milliseconds) {
    if (!remote) return fail_args();
    remote->timeout = milliseconds;
    return true;
}

// ---- The request

HttpRequest *zRemoteConnect(Remote *remote, const Notify *notify) {
    if (!remote) return fail_args();
    // A connection keeps the timeout that it was opened with.
    if (remote->request && zHttpRequestTimeout(remote->request.get()) != remote->timeout)
        remote->request.reset();
    if (!remote->request) remote->request.reset(zHttpRequestNew(remote->url.get()));
    HttpRequest *request = remote->request.get();
    const bool ready = request && zHttpRequestReset(request) &&
                       zHttpRequestSetNotify(request, notify) &&
                       zHttpRequestSetKeepAlive(request, true) &&
                       zHttpRequestSetTimeout(request, remote->timeout) && set_account(request);
    return ready ? request : nullptr;
}

bool zRemoteDisconnect(Remote *remote) {
    if (!remote) return fail_args();
    remote->request.reset();
    return true;
}

bool zRemoteUsrbrk(const Remote *remote) {
    if (!remote || !remote->request) return fail_args();
    return zHttpRequestUsrbrk(remote->request.get());
}

// ---- Which repository it is

namespace {

// A copy takes the identifier of the first server that it meets, and knows it by that afterwards.
bool bind(Remote *remote, const Oid &server, const Notify *notify) {
    const zwchar *summary = u"net.eFailedToFetchSummary";
    const Oid *own = zRepositoryId(remote->owner, false);
    if (!own) return notify_error(notify, summary);
    if (zOidIsZero(own))
        return zRepositorySetId(remote->owner, &server) || notify_error(notify, summary);
    return zOidIsEqual(own, &server) ||
           notify_net(notify, -1, nullptr, u"net.eUnmatchedRepositoryId", {});
}

} // namespace

bool zRemoteVerifyRepo(Remote *remote, const Notify *notify) try {
    if (!remote) return fail_args();
    const RemoteCall call{remote, notify, u"net.eFailedToFetchSummary"};
    const JsonGuard body = json_of(call, send(call, make_request(call, Z_HTTP_GET, u"")));
    if (!body) return false;
    Oid server; // all zero is none: a copy bound to that would be bound to nothing
    if (!id_in(&server, json_find(body.get(), u"data"), u"id") || zOidIsZero(&server))
        return wrong_data(call);
    return bind(remote, server, notify);
} catch (...) {
    return fail_thrown();
}

bool zRemoteUpdateAuth(Remote *remote, const Notify *notify) {
    if (!remote) return fail_args();
    zwchar path[Z_PATH_MAX];
    if (!zAuthdbPath(path, remote->owner)) return false;
    HttpRequest *request = zRemoteConnect(remote, notify);
    if (!request) return notify_error(notify, u"net.eFailedToCreatePullRequest");
    return zAuthUpdateDb(request, notify, remote->url.get(), path);
}
