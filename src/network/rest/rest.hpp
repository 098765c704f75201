// What the resources of the service share: a request on its way to its answer, the gate that opens
// its project, and the forms of answers and refusals.
//
// An answer is {"data": ...}, a list {"data": {"entries": [...]}}. Every record that a resource
// gives names its project by `owner`, `name` and a `url`.
#pragma once

#include "common/failure.hpp"
#include "common/guard.hpp"
#include "common/oid.hpp"
#include "network/http/body.hpp"
#include "network/rest/kept_projects.hpp"
#include "zev/http_request.h"
#include "zev/http_response.h"
#include "zev/http_server.h"
#include "zev/json.h"
#include "zev/repository.h"

#include <initializer_list>
#include <optional>
#include <string>

namespace zev {
class Privileges;
}

namespace zev::rest {

struct Call;
struct Operation;

using Tree = Owned<Json, zJsonFree>;

// Takes a large body as it comes, for the procedure that answers when it is whole. It must not keep
// the call's repository, which others use meanwhile.
struct Intake {
    virtual ~Intake() = default;
    virtual bool add(std::string_view bytes) = 0; // false when more would change nothing
};

// One request, from its head to its answer.
struct Call {
    Call(HttpServer *server, HttpRequest *request);
    ~Call();

    HttpServer *server;
    HttpRequest *request;
    const Operation *operation = nullptr;
    bool guarded;                       // every operation needs its right, not the trees alone
    Tree fields{};                      // the body of what changes the list of projects
    OpenedAt place{};                   // of the gate's repository
    RepositoryPtr repository;           // the gate's
    std::unique_ptr<Privileges> rights; // the caller's in it, once they were asked for
    std::unique_ptr<Intake> intake;     // of the body, which the request then has not
    bool is_full = false;               // a device was, while the body came
    // What the authentication module said of the caller's password, and of his power if it was
    // asked: it hashes, so each is asked once a request.
    bool is_proven = false;
    std::optional<bool> power{};
};

// A capture of the route (":base", ":owner", ":name", ":other") or a parameter of the query; null
// where it is absent.
inline const zwchar *capture(const Call &call, const zwchar *name) {
    return zHttpRequestQuery(call.request, name);
}

// ---- Refusals, in the language of the request, raised and logged. Without a key the text is the
// status's own. A 500 of a full device says that, whatever its key.
HttpResponse *refuse(const Call &call, int32_t code, const zwchar *key = nullptr,
                     const zwchar *argument = nullptr, Here at = {});
// The same for what was looked for in the project and can't be had, by what was raised last: where
// the store failed it is 500 with `failed`, and nobody is told that the thing isn't there.
struct Absent {
    int32_t code;
    const zwchar *key, *argument;
    const zwchar *failed = u"srv.eAccessProject";
};
HttpResponse *refuse_absent(const Call &call, const Absent &absent, Here at = {});
// Whether it was the store that failed.
bool has_store_failed(const Call &call);
// An element of the request's array: "entries[3]".
HttpResponse *refuse_entry(const Call &call, uint64_t index, Here at = {});

// ---- The gate: opens the project of the request's captures into `call.repository`, with owner,
// name and URL set; null when it is open, also when it was before, else the refusal.
HttpResponse *open_project(Call &call);
// The place of a project below the directory of all repositories, without a look at the disk; a
// null owner or name leaves that part out. Too long for a path is the result `too_long`.
enum class Place { found, no_config, no_repos, too_long };
Place project_place(const Call &call, const zwchar *owner, const zwchar *name, zwchar *out);
// Owner, name and URL of a repository that lies below that directory.
bool name_project(const Call &call, Repository *repository, const zwchar *owner,
                  const zwchar *name);
// Follows the rules of names, and can be a directory's name: neither "." nor "..".
bool is_project_name(const zwchar *name);

// ---- Bodies
// The JSON of the body; on failure null in `body` and the refusal: 400 "srv.eNoProperContent_s" or
// "srv.eUnresolvableContent", 413 for one beyond the server's limits.
HttpResponse *read_json(const Call &call, Tree &body);
// A text of the body; null where it is absent, or null.
const zwchar *text_at(const Tree &body, const zwchar *path);
// 400 "srv.eNoProperContent_s" ("application/octet-stream") without a body, else null.
HttpResponse *need_octets(const Call &call);

// ---- Answers. A node that is null makes null: the caller has its own refusal for that.
HttpResponse *answer(int32_t code, Tree tree);      // the tree as it is
HttpResponse *answer_data(int32_t code, Tree data); // {"data": data}
HttpResponse *answer_entries(Tree entries);         // 200 {"data": {"entries": entries}}
// A new object with `owner`, `name`, `type` and `url`: that of the project with `parts` behind it.
// Null when there is no memory or the URL has no room.
Tree project_record(const Call &call, const zwchar *type,
                    std::initializer_list<const zwchar *> parts);
// The project's own record, with its `id`.
Tree repository_record(Repository *repository);

// ---- Rights. The caller's in the open project, asked for once a request.
Privileges &rights(Call &call);
// Whether the caller, who has proven who he is, has power.
bool has_power(Call &call);

} // namespace zev::rest
