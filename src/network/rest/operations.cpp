// The table of operations, and its dispatch: the route has been matched, method and what stands
// behind the pattern choose the row. That, and whether the caller may ask, is known with the head
// of a request; its procedure is called when the body is there.
#include "network/rest/operations.hpp"

#include "common/guard.hpp"
#include "common/json.hpp"
#include "common/told_errno.hpp"
#include "network/http/message.hpp"
#include "network/http/server.hpp"
#include "network/rest/access.hpp"
#include "rms/privilege.hpp"
#include "zev/str.h"

#include <algorithm>
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
    {Route::packs, Z_HTTP_POST, Form::any, upload_pack, write, "POST /repos/:owner/:name/packs",
     take_pack},

    {Route::objects, Z_HTTP_GET, Form::any, read_object, read,
     "GET /repos/:owner/:name/objects/:id"},
    {Route::objects, Z_HTTP_PUT, Form::any, write_object, write,
     "PUT /repos/:owner/:name/objects/:id", take_object},
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

// ---- From the head of a request to its answer

// A body that ends within the block behind so many bytes is the request's own in any case.
constexpr uint64_t kSmallBody = 1u << 15;

class Visit : public Exchange {
  public:
    Visit(Route route, HttpServer *server, HttpRequest *request);

    Taken take(std::string_view bytes) override;
    void wait() override;
    // The answer, when the body is there.
    HttpResponse *answer();

  private:
    bool begin_intake();
    bool add(std::string_view bytes);
    HttpResponse *look_again();

    Call call_;
    bool whole_ = false;     // the procedure wants the body as it is
    bool waited_ = false;    // with a project that was open
    struct stat project_ {}; // the directory of that
};

// An object's head before its contents.
constexpr uint64_t kObjectHead = 64;

uint64_t body_bound(const HttpLimits &limits, const Operation &operation) {
    const bool diff = operation.form == Form::diff;
    if (operation.route == Route::objects && !diff) return limits.object + kObjectHead;
    const bool octets = operation.route == Route::tables || operation.route == Route::packs;
    return octets && !diff ? limits.inflated : limits.json;
}

Visit::Visit(Route route, HttpServer *server, HttpRequest *request) : call_(server, request) {
    for (const Operation &operation : kOperations) {
        if (operation.route != route || operation.method != zHttpRequestMethod(request)) continue;
        if (!fits(call_, operation.form)) continue;
        call_.operation = &operation;
        most = body_bound(server->limits, operation);
        refusal = admit(call_);
        return;
    }
    refusal = refuse(call_, 400);
}

// Small bodies, and what an intake declines, are the request's own.
Exchange::Taken Visit::take(std::string_view bytes) {
    if (whole_ || !call_.operation || !call_.operation->intake) return Taken::no;
    if (!call_.intake) {
        if (body_size(call_.request->body) < kSmallBody) return Taken::no;
        whole_ = !(call_.intake = call_.operation->intake(call_));
        if (whole_) return Taken::no;
        if (!begin_intake()) return Taken::enough;
    }
    return add(bytes) ? Taken::yes : Taken::enough;
}

// What went wrong counts at the end, when the record is of others.
bool Visit::add(std::string_view bytes) {
    const bool added = call_.intake->add(bytes);
    call_.is_full = call_.is_full || raised_no_space();
    return added;
}

// With what came before it was known how much there is.
bool Visit::begin_intake() {
    const Owned<Stream, zStreamFree> first(std::exchange(call_.request->body, nullptr));
    if (!first) return true;
    zStreamRewind(first.get());
    std::string bytes(zStreamSize(first.get()), '\0');
    return zStreamRead(first.get(), bytes.data(), bytes.size()) == bytes.size() && add(bytes);
}

// Whoever sends slowly keeps no project open.
void Visit::wait() {
    if (!call_.repository) return;
    if (!std::exchange(waited_, true)) project_ = call_.place.directory;
    call_.server->kept->give_back(std::move(call_.place), std::move(call_.repository));
    call_.repository.reset();
}

// The rights that were asked for are those in the project that had the name then.
HttpResponse *Visit::look_again() {
    if (HttpResponse *refused = open_project(call_)) return refused;
    const struct stat &now = call_.place.directory;
    if (now.st_dev == project_.st_dev && now.st_ino == project_.st_ino) return nullptr;
    call_.rights.reset();
    return admit(call_);
}

HttpResponse *Visit::answer() {
    if (!call_.operation) return nullptr; // no memory even for the refusal
    if (waited_ && call_.guarded)
        if (HttpResponse *refused = look_again()) return refused;
    HttpResponse *response = call_.operation->procedure(call_);
    note_act(call_, response);
    return response;
}

// ---- Dispatch

// A request that came without a look at its head, from a host, gets both here.
HttpResponse *dispatch(Route route, HttpServer *server, HttpRequest *request) try {
    const HttpEcho *echo = server->at_work;
    if (echo && echo->request == request)
        if (auto *begun = dynamic_cast<Visit *>(echo->exchange.get())) return begun->answer();
    Visit visit(route, server, request);
    if (visit.refusal) return std::exchange(visit.refusal, nullptr);
    return visit.answer();
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

// Null for what is no route of the service.
std::unique_ptr<Exchange> begin(HttpServer *server, const HttpHandle &handle,
                                HttpRequest *request) {
    const auto found = std::ranges::find(kProcedures, handle.proc);
    if (found == kProcedures.end()) return nullptr;
    return std::make_unique<Visit>(static_cast<Route>(found - kProcedures.begin()), server,
                                   request);
}

} // namespace

const std::span<const char16_t *const> kRoutes = kPatterns;
const std::span<const Operation> kOperations = kTable;

bool add_routes(HttpServer *server) {
    server->begin = begin;
    for (size_t i = 0; i < std::size(kPatterns); ++i) {
        Owned<HttpHandle, zHttpHandleFree> handle(zHttpHandleNew(kPatterns[i], kProcedures[i]));
        if (!handle || !zHttpServerAddHandle(server, handle.get())) return false;
    }
    return true;
}

HttpResponse *refuse_blob(Call &call) { return refuse(call, 404); }
HttpResponse *refuse_bad(Call &call) { return refuse(call, 400); }

} // namespace zev::rest
