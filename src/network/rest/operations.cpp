// The table of operations, and its dispatch: the route has been matched, method and what stands
// behind the pattern choose the row.
#include "network/rest/operations.hpp"

#include "common/guard.hpp"
#include "common/json.hpp"
#include "network/http/server.hpp"
#include "network/rest/access.hpp"
#include "zev/str.h"

#include <array>
#include <utility>

namespace zev::rest {

namespace {

constexpr const char16_t *kPatterns[] = {
    u"/repos/:owner/:name/blobs",
    u"/repos/:owner/:name/commits",
    u"/repos/:owner/:name/refs",
    u"/repos/:owner/:name/trees",
    u"/repos/:owner/:name/tables",
    u"/repos/:owner/:name/packs",
    u"/repos/:owner/:name/objects",
    u"/repos/:owner/:name/revisions",
    u"/repos/:owner/:name/rms",
    u"/repos/:owner/:name",
    u"/rms",
    u"/health",
};

using enum Need;

constexpr Operation kTable[] = {
    {Route::projects, Z_HTTP_GET, Form::all, list_projects, login, "GET /repos"},
    {Route::projects, Z_HTTP_GET, Form::owner, list_projects, login, "GET /repos/:owner"},
    {Route::projects, Z_HTTP_GET, Form::project, read_project, read, "GET /repos/:owner/:name"},
    {Route::projects, Z_HTTP_POST, Form::all, create_project, power, "POST /repos"},
    {Route::projects, Z_HTTP_POST, Form::named, rename_project, administrator,
     "POST /repos/:owner/:name"},
    {Route::projects, Z_HTTP_DELETE, Form::project, delete_project, administrator,
     "DELETE /repos/:owner/:name"},

    {Route::commits, Z_HTTP_GET, Form::bare, list_commits, read, "GET /repos/:owner/:name/commits"},
    {Route::commits, Z_HTTP_GET, Form::item, read_commit, read,
     "GET /repos/:owner/:name/commits/:id"},
    {Route::commits, Z_HTTP_POST, Form::bare, create_commit, write,
     "POST /repos/:owner/:name/commits"},

    {Route::trees, Z_HTTP_GET, Form::item, list_tree, read, "GET /repos/:owner/:name/trees/:id"},
    {Route::trees, Z_HTTP_POST, Form::bare, create_tree, login, "POST /repos/:owner/:name/trees"},

    {Route::blobs, Z_HTTP_GET, Form::item, refuse_blob, nobody,
     "GET /repos/:owner/:name/blobs/:id"},
    {Route::blobs, Z_HTTP_GET, Form::bare, refuse_bad, nobody, "GET /repos/:owner/:name/blobs"},
    {Route::blobs, Z_HTTP_POST, Form::bare, refuse_blob, nobody, "POST /repos/:owner/:name/blobs"},
    {Route::blobs, Z_HTTP_POST, Form::item, refuse_bad, nobody,
     "POST /repos/:owner/:name/blobs/:id"},

    {Route::refs, Z_HTTP_GET, Form::bare, list_references, read, "GET /repos/:owner/:name/refs"},
    {Route::refs, Z_HTTP_GET, Form::item, read_reference, read,
     "GET /repos/:owner/:name/refs/:ref"},
    {Route::refs, Z_HTTP_POST, Form::bare, refuse_reference, nobody,
     "POST /repos/:owner/:name/refs"},
    {Route::refs, Z_HTTP_PUT, Form::item, refuse_reference, nobody,
     "PUT /repos/:owner/:name/refs/:ref"},
    {Route::refs, Z_HTTP_DELETE, Form::item, refuse_reference, nobody,
     "DELETE /repos/:owner/:name/refs/:ref"},

    {Route::tables, Z_HTTP_POST, Form::bare, open_table, write, "POST /repos/:owner/:name/tables"},
    {Route::tables, Z_HTTP_POST, Form::item, store_rows, write,
     "POST /repos/:owner/:name/tables/:id"},
    {Route::tables, Z_HTTP_PUT, Form::any, store_rows, write, "PUT /repos/:owner/:name/tables/:id"},
    {Route::tables, Z_HTTP_PATCH, Form::any, read_rows, read,
     "PATCH /repos/:owner/:name/tables/:id"},

    {Route::packs, Z_HTTP_POST, Form::diff, build_pack, read,
     "POST /repos/:owner/:name/packs/diff"},
    {Route::packs, Z_HTTP_POST, Form::any, upload_pack, write, "POST /repos/:owner/:name/packs"},

    {Route::objects, Z_HTTP_GET, Form::any, read_object, read,
     "GET /repos/:owner/:name/objects/:id"},
    {Route::objects, Z_HTTP_PUT, Form::any, write_object, write,
     "PUT /repos/:owner/:name/objects/:id"},
    {Route::objects, Z_HTTP_POST, Form::diff, find_missing_objects, read,
     "POST /repos/:owner/:name/objects/diff"},

    {Route::revisions, Z_HTTP_GET, Form::bare, list_revisions, read,
     "GET /repos/:owner/:name/revisions"},
    {Route::revisions, Z_HTTP_GET, Form::item, read_revision, read,
     "GET /repos/:owner/:name/revisions/:id"},
    {Route::revisions, Z_HTTP_PATCH, Form::any, read_revisions, read,
     "PATCH /repos/:owner/:name/revisions"},

    {Route::project_rms, Z_HTTP_POST, Form::bare, run_project_command, command,
     "POST /repos/:owner/:name/rms"},
    {Route::server_rms, Z_HTTP_POST, Form::bare, run_server_command, command, "POST /rms"},

    {Route::health, Z_HTTP_GET, Form::bare, report_health, nobody, "GET /health"},
};

bool fits(const Call &call, Form form) {
    const zwchar *other = capture(call, u":other");
    const bool owner = capture(call, u":owner"), name = capture(call, u":name");
    switch (form) {
    case Form::all:
        return !owner && !name;
    case Form::owner:
        return owner && !name;
    case Form::project:
        return owner && name;
    case Form::named:
        return owner || name;
    case Form::bare:
        return !other || !*other;
    case Form::item:
        return other && *other;
    case Form::diff:
        return other && zStrcasesameW(other, u"diff");
    case Form::any:
        return true;
    }
    return false;
}

// What changes the list of projects is an administrator's act, done or failed; refusals are written
// down with all others.
void note_act(const Call &call, HttpResponse *response) {
    const uint32_t method = zHttpRequestMethod(call.request);
    if (call.operation->route != Route::projects || method == Z_HTTP_GET) return;
    if (!call.server->logs.audit.is_on()) return;
    const auto text = [&](const zwchar *captured, const zwchar *path) {
        const Json *node = captured || !call.fields ? nullptr : json_find(call.fields.get(), path);
        return node && zJsonIsString(node) ? zJsonGetString(node) : zStrsafeW(captured);
    };
    const zwchar *owner = capture(call, u":owner");
    const zwchar *changed = owner ? u"rename" : u"create";
    audit(call.server, {.target = u"project",
                        .act = method == Z_HTTP_DELETE ? u"delete" : changed,
                        .name = text(nullptr, u"query.newname"),
                        .owner = text(owner, u"query.owner"),
                        .project = text(capture(call, u":name"), u"query.name"),
                        .status = response ? zHttpResponseCode(response) : 500});
}

HttpResponse *dispatch(Route route, HttpServer *server, HttpRequest *request) try {
    Call call(server, request);
    for (const Operation &operation : kOperations) {
        if (operation.route != route || operation.method != zHttpRequestMethod(request)) continue;
        if (!fits(call, operation.form)) continue;
        call.operation = &operation;
        if (HttpResponse *refusal = admit(call)) return refusal;
        HttpResponse *response = operation.procedure(call);
        note_act(call, response);
        return response;
    }
    return refuse(call, 400);
} catch (...) {
    return fail_thrown();
}

template <size_t route> HttpResponse *answer_route(HttpServer *server, HttpRequest *request) {
    return dispatch(static_cast<Route>(route), server, request);
}

template <size_t... routes> constexpr auto procedures_of(std::index_sequence<routes...>) {
    return std::array<HttpProc, sizeof...(routes)>{answer_route<routes>...};
}
constexpr auto kProcedures = procedures_of(std::make_index_sequence<std::size(kPatterns)>());

// An object's head before its contents.
constexpr uint64_t kObjectHead = 64;

uint64_t body_bound(const HttpServer &server, const HttpHandle &handle,
                    const HttpRequest *request) {
    const auto is = [&](Route route) { return handle.proc == kProcedures[size_t(route)]; };
    const zwchar *other = zHttpRequestQuery(request, u":other");
    const bool diff = other && zStrcasesameW(other, u"diff");
    if (is(Route::objects) && !diff) return server.limits.object + kObjectHead;
    if (is(Route::tables) || (is(Route::packs) && !diff)) return server.limits.inflated;
    return server.limits.json;
}

} // namespace

const std::span<const char16_t *const> kRoutes = kPatterns;
const std::span<const Operation> kOperations = kTable;

bool add_routes(HttpServer *server) {
    server->body_bound = body_bound;
    for (size_t i = 0; i < std::size(kPatterns); ++i) {
        Owned<HttpHandle, zHttpHandleFree> handle(zHttpHandleNew(kPatterns[i], kProcedures[i]));
        if (!handle || !zHttpServerAddHandle(server, handle.get())) return false;
    }
    return true;
}

HttpResponse *refuse_blob(Call &call) { return refuse(call, 404); }
HttpResponse *refuse_bad(Call &call) { return refuse(call, 400); }

} // namespace zev::rest
