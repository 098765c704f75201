// Every operation of the service in one table: by which method and which form of a path it is
// asked for, who may ask when rights are required, and the procedure that answers. Dispatch reads
// it, and so do the tests of rights and of the documentation.
#pragma once

#include "network/rest/rest.hpp"

#include <cstdint>
#include <span>

namespace zev::rest {

// The routes, in the order of matching; the path of each in `kRoutes`.
enum class Route : uint8_t {
    blobs,
    commits,
    refs,
    trees,
    tables,
    packs,
    objects,
    revisions,
    project_rms,
    projects,
    server_rms,
    health
};

// What stands behind the route's pattern.
enum class Form : uint8_t {
    all,     // neither owner nor name: /repos
    owner,   // no name: /repos/:owner
    project, // both, and whatever follows
    named,   // an owner or a name, and whatever follows
    bare,    // nothing
    item,    // something
    diff,    // "diff" in any case
    any
};

// Who may ask where rights are required. What lies in the body is judged by the procedure.
enum class Need : uint8_t {
    nobody,
    login,         // a valid one
    read,          // the bit on some path of the project
    write,         // likewise
    power,         // over the server
    administrator, // of the project, or power
    command        // by the table of commands
};

using Procedure = HttpResponse *(*)(Call &call);

// Looks at the first bytes of a large body, which the request still has; null where it is to come
// whole. May throw.
using BeginIntake = std::unique_ptr<Intake> (*)(Call &call);

struct Operation {
    Route route;
    uint32_t method; // Z_HTTP_...
    Form form;
    Procedure procedure;
    Need need;
    const char *told; // method and path as they are documented
    BeginIntake intake = nullptr;
};

extern const std::span<const char16_t *const> kRoutes;
// The first that fits answers; where none does, it is 400.
extern const std::span<const Operation> kOperations;

// The commands of the two rms routes, each of which comes as POST with its target and name in the
// body. `needs` names the arguments that must be there, between blanks.
struct Command {
    const char16_t *target, *name;
    const char16_t *needs;
    HttpResponse *(*procedure)(Call &call, Json *arguments);
    Need need; // administrator, power, nobody; login for one's own
};
extern const std::span<const Command> kServerCommands, kProjectCommands;

// Puts the service's routes behind each other into a server.
bool add_routes(HttpServer *server);

// ---- Procedures, a file a resource.
HttpResponse *list_projects(Call &call); // /repos and /repos/:owner
HttpResponse *read_project(Call &call);
HttpResponse *create_project(Call &call);
HttpResponse *rename_project(Call &call);
HttpResponse *delete_project(Call &call);

HttpResponse *list_commits(Call &call);
HttpResponse *read_commit(Call &call);
HttpResponse *create_commit(Call &call);

HttpResponse *list_tree(Call &call);
HttpResponse *create_tree(Call &call);
HttpResponse *refuse_blob(Call &call); // 404
HttpResponse *refuse_bad(Call &call);  // 400

HttpResponse *read_object(Call &call);
HttpResponse *write_object(Call &call);
std::unique_ptr<Intake> take_object(Call &call);
HttpResponse *find_missing_objects(Call &call);
HttpResponse *upload_pack(Call &call);
std::unique_ptr<Intake> take_pack(Call &call);
HttpResponse *build_pack(Call &call);

HttpResponse *list_references(Call &call);
HttpResponse *read_reference(Call &call);
HttpResponse *refuse_reference(Call &call); // they move by commits alone

HttpResponse *list_revisions(Call &call);
HttpResponse *read_revision(Call &call);
HttpResponse *read_revisions(Call &call);

HttpResponse *open_table(Call &call);
HttpResponse *store_rows(Call &call);
HttpResponse *read_rows(Call &call);

HttpResponse *report_health(Call &call);

HttpResponse *run_server_command(Call &call);
HttpResponse *run_project_command(Call &call);

} // namespace zev::rest
