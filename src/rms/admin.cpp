// The exchange. The command, {"query": {"target", "name", "args": {...}}}, goes to <url>/rms or to
// <url>/repos/<owner>/<name>/rms; the answer is {"data": {"status", "result"}} whatever its HTTP
// status is, unless the service itself refuses: then it has no status, and its text is raised.
#include "rms/admin.hpp"

#include "common/limits.hpp"
#include "common/text.hpp"
#include "objects/notify/notify.hpp"
#include "zev/http_response.h"
#include "zev/server.h"
#include "zev/uri.h"

#include <algorithm>
#include <new>
#include <string_view>

using namespace zev;

namespace zev {

namespace {

constexpr size_t kNameMax = 64; // units
constexpr size_t kTextMax = 511;
constexpr std::u16string_view kNeverInNames = u"<>/\\\":;?*|,=`@&#$^~% \t\r\n";

constexpr int32_t kBadRequest = 400, kUnavailable = 503, kCanceled = -2;

bool is_name(std::u16string_view text) {
    return !text.empty() && text.size() <= kNameMax &&
           text.find_first_of(kNeverInNames) == text.npos &&
           std::ranges::none_of(text, [](zwchar unit) { return unit < u' '; });
}

} // namespace

Session open_session(const zwchar *url) {
    if (!url || zStrnlenW(url, Z_URL_MAX) == Z_URL_MAX) return Session(fail_args());
    Session session(new Admin{});
    session->url = url;
    session->request.reset(zHttpRequestNew(url));
    return session->request ? std::move(session) : nullptr;
}

bool resource_url(zwchar *out, const Admin &admin, std::initializer_list<const zwchar *> parts) {
    size_t length = admin.url.size();
    for (const zwchar *part : parts) length += 1 + zStrlenW(part);
    if (length >= Z_URL_MAX || !zUrlCopy(out, admin.url.c_str())) return raise_args(admin.url);
    for (const zwchar *part : parts)
        if (!zUrlAppend(out, part)) return false;
    return true;
}

HttpResponse *send(Admin &admin, uint32_t method, const zwchar *url, const Json *body) {
    HttpRequest *request = admin.request.get();
    if (!zHttpRequestReset(request) || !zHttpRequestSetUrl(request, url) ||
        !zHttpRequestSetMethod(request, method) ||
        !zHttpRequestSetAccepts(request, u"application/json", u"UTF-8", zLangProduct()) ||
        (body && !zHttpRequestSetJson(request, body)))
        return nullptr;
    HttpResponse *response = zHttpRequestSend(request);
    const int32_t code = response ? zHttpResponseCode(response) : kUnavailable;
    if (code == kUnavailable || code == kCanceled) return nullptr; // the transport raised why
    return code == kBadRequest ? raise_refusal(response) : response;
}

Failure raise_refusal(HttpResponse *response) {
    if (zHttpResponseOk(response)) return raise_net(-1, word(u"net.eWrongDataFromServer"));
    return raise_net(zHttpResponseCode(response), zHttpResponseStrerr(response));
}

JsonGuard body_of(HttpResponse *response) {
    Stream *stream = zHttpResponseBody(response);
    JsonBounds bounds{limits::http_json, limits::http_nodes};
    return JsonGuard(stream ? json_read_bounded(stream, bounds) : nullptr);
}

bool check_segment(const zwchar *name) { return name && zSNValid(name, true); }

bool is_short(const zwchar *text) { return zStrnlenW(text, kTextMax + 1) <= kTextMax; }

// ---- Filling

Command::Command(Admin *admin, const zwchar *target, const zwchar *action, Here at)
    : admin_(admin), at_(at), tree_(zJsonNew(Z_JSON_OBJECT)) {
    if (!admin) fail(Z_AUTH_BAD_ARGUMENT);
    if (!tree_ || !zJsonPathSetString(tree_.get(), u"query.target", target) ||
        !zJsonPathSetString(tree_.get(), u"query.name", action))
        fail(Z_AUTH_NO_ANSWER);
}

void Command::put(const zwchar *key, Json *value) {
    JsonGuard node(value);
    Json *query = tree_ ? json_find(tree_.get(), u"query") : nullptr;
    if (!query || !node) return fail(Z_AUTH_NO_ANSWER);
    if (!zJsonObjectHas(query, u"args")) {
        JsonGuard args(zJsonNew(Z_JSON_OBJECT));
        if (!args || !zJsonObjectPut(query, u"args", args.get())) return fail(Z_AUTH_NO_ANSWER);
        static_cast<void>(args.release());
    }
    if (!zJsonObjectPut(zJsonObjectAt(query, u"args"), key, node.get()))
        return fail(Z_AUTH_NO_ANSWER);
    static_cast<void>(node.release());
}

Command &Command::in(const zwchar *owner, const zwchar *project) {
    owner_ = owner, project_ = project;
    if (!check_segment(owner) || !check_segment(project)) fail(Z_AUTH_BAD_ARGUMENT);
    return *this;
}

Command &Command::name(const zwchar *key, const zwchar *value) {
    if (!value) return fail(Z_AUTH_BAD_ARGUMENT), *this;
    if (!is_name(value)) return fail(Z_AUTH_BAD_NAME), *this;
    Json *node = zJsonNewString(value);
    if (node) zStrlwrW(node->value.string);
    return put(key, node), *this;
}

Command &Command::text(const zwchar *key, const zwchar *value) {
    if (!value || !is_short(value)) return fail(Z_AUTH_BAD_ARGUMENT), *this;
    return put(key, zJsonNewString(without_controls(value).c_str())), *this;
}

Command &Command::number(const zwchar *key, int32_t value) {
    return put(key, zJsonNewInt(value)), *this;
}

Command &Command::flag(const zwchar *key, bool value) {
    return put(key, zJsonNewBoolean(value)), *this;
}

Command &Command::refuse_own(const zwchar *login) {
    const zwchar *own = admin_ ? zHttpRequestUser(admin_->request.get()) : nullptr;
    if (own && login && zStrcasesameW(own, login)) fail(Z_AUTH_OWN_LOGIN);
    return *this;
}

Command &Command::needs(const void *out) {
    if (!out) fail(Z_AUTH_BAD_ARGUMENT);
    return *this;
}

// ---- Running

int32_t Command::run() try {
    zwchar url[Z_URL_MAX] = {};
    if (status_ == Z_AUTH_BAD_ARGUMENT) return fail_args(at_), status_;
    if (status_) return status_;
    const bool built = owner_ ? resource_url(url, *admin_, {u"repos", owner_, project_, u"rms"})
                              : resource_url(url, *admin_, {u"rms"});
    if (!built) return fail_raised(at_), Z_AUTH_BAD_ARGUMENT;
    HttpResponse *response = send(*admin_, Z_HTTP_POST, url, tree_.get());
    if (!response) return Z_AUTH_NO_ANSWER;
    answer_ = body_of(response);
    const Json *status = answer_ ? json_find(answer_.get(), u"data.status") : nullptr;
    if (status) return static_cast<int32_t>(zJsonGetInt(status));
    return raise_refusal(response), 0;
} catch (...) {
    return fail_thrown(at_), Z_AUTH_NO_ANSWER;
}

int32_t Command::run_for(Json **out) {
    const int32_t status = needs(out).run();
    Json *data = status == Z_AUTH_DONE ? json_find(answer_.get(), u"data") : nullptr;
    if (data && zJsonObjectHas(data, u"result")) *out = zJsonObjectDetach(data, u"result");
    return status;
}

int32_t Command::run_for(const zwchar *path, zwchar **out) {
    const int32_t status = needs(out).run();
    const Json *node = status == Z_AUTH_DONE && result() ? json_find(result(), path) : nullptr;
    if (!node) return status;
    zwchar *copy = zStrdupW(zJsonGetString(node));
    if (!copy) return fail_memory(at_), Z_AUTH_NO_ANSWER;
    return *out = copy, status;
}

int32_t Command::run_for(const zwchar *path, int32_t *out) {
    int32_t number = out ? *out : 0;
    const int32_t status = needs(out).run_for_any(path, &number);
    if (status == Z_AUTH_DONE) *out = number;
    return status;
}

int32_t Command::run_for_any(const zwchar *path, int32_t *out) {
    const int32_t status = run();
    const Json *node = result() ? json_find(result(), path) : nullptr;
    if (node && out) *out = static_cast<int32_t>(zJsonGetInt(node));
    return status;
}

} // namespace zev

void zAdminLogoutRms(Admin *admin) { delete admin; }
