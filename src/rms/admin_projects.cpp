// Projects, by the resource that they are, and their directories.
#include "rms/admin.hpp"
#include "zev/http_response.h"

using namespace zev;

namespace {

struct Field {
    const zwchar *path, *value;
};

// The body of a request, {"query": {...}}.
JsonGuard query_of(std::initializer_list<Field> fields) {
    JsonGuard tree(zJsonNew(Z_JSON_OBJECT));
    for (const Field &field : fields)
        if (!tree || !zJsonPathSetString(tree.get(), field.path, field.value)) return nullptr;
    return tree;
}

// The answer to a request that succeeded; null, raised, for any other.
HttpResponse *ask(Admin &admin, uint32_t method, std::initializer_list<const zwchar *> parts,
                  const Json *body, Here at = {}) {
    zwchar url[Z_URL_MAX] = {};
    if (!resource_url(url, admin, parts)) return fail_raised(at);
    HttpResponse *response = send(admin, method, url, body);
    if (!response || zHttpResponseOk(response)) return response;
    return raise_refusal(response);
}

// Names become segments of addresses: one that can't be is refused before anything is asked.
bool are_given(const Admin *admin, std::initializer_list<const zwchar *> names, Here at = {}) {
    if (!admin) return fail_args(at);
    for (const zwchar *name : names)
        if (!check_segment(name)) return logged(raise_args(name ? name : u""), at);
    return true;
}

// A command among those of a project's directories.
Command change(Admin *admin, const zwchar *action, const zwchar *owner, const zwchar *name,
               const zwchar *ref, Here at = {}) {
    Command command(admin, u"directories", action, at);
    command.in(owner, name).text(u"ref", ref ? ref : u"HEAD");
    return command;
}

bool is_done(int32_t status) { return status == Z_AUTH_DONE; }

} // namespace

bool zAdminCreateRepo(Admin *admin, const zwchar *owner, const zwchar *name) try {
    if (!are_given(admin, {owner, name})) return false;
    const JsonGuard body = query_of({{u"query.owner", owner}, {u"query.name", name}});
    return body && ask(*admin, Z_HTTP_POST, {u"repos"}, body.get());
} catch (...) {
    return fail_thrown();
}

bool zAdminCloneRepo(Admin *admin, const zwchar *owner, const zwchar *name,
                     const zwchar *tmpl_owner, const zwchar *tmpl_name) try {
    if (!are_given(admin, {owner, name, tmpl_owner, tmpl_name})) return false;
    const JsonGuard body = query_of({{u"query.owner", owner},
                                     {u"query.name", name},
                                     {u"query.tmpl_owner", tmpl_owner},
                                     {u"query.tmpl_name", tmpl_name}});
    return body && ask(*admin, Z_HTTP_POST, {u"repos"}, body.get());
} catch (...) {
    return fail_thrown();
}

bool zAdminDestroyRepo(Admin *admin, const zwchar *owner, const zwchar *name) try {
    if (!are_given(admin, {owner, name})) return false;
    return ask(*admin, Z_HTTP_DELETE, {u"repos", owner, name}, nullptr);
} catch (...) {
    return fail_thrown();
}

bool zAdminRenameRepo(Admin *admin, const zwchar *owner, const zwchar *name,
                      const zwchar *newname) try {
    if (!are_given(admin, {owner, name, newname})) return false;
    const JsonGuard body = query_of({{u"query.newname", newname}});
    return body && ask(*admin, Z_HTTP_POST, {u"repos", owner, name}, body.get());
} catch (...) {
    return fail_thrown();
}

bool zAdminListRepo(Admin *admin, Json **entries) try {
    if (!admin || !entries) return fail_args();
    HttpResponse *response = ask(*admin, Z_HTTP_GET, {u"repos"}, nullptr);
    if (!response) return false;
    const JsonGuard body = body_of(response);
    Json *data = body ? json_find(body.get(), u"data") : nullptr;
    const Json *list = data ? json_find(data, u"entries") : nullptr;
    if (!list || !zJsonIsArray(list)) return raise_refusal(response);
    *entries = zJsonObjectDetach(data, u"entries");
    return *entries;
} catch (...) {
    return fail_thrown();
}

bool zAdminRepoDirectories(Admin *admin, const zwchar *owner, const zwchar *name, const zwchar *ref,
                           Json **result) {
    return is_done(change(admin, u"list", owner, name, ref).run_for(result));
}

bool zAdminRepoCreateDir(Admin *admin, const zwchar *owner, const zwchar *name, const zwchar *ref,
                         const zwchar *path) {
    return is_done(change(admin, u"create", owner, name, ref).text(u"path", path).run());
}

bool zAdminRepoDeleteDir(Admin *admin, const zwchar *owner, const zwchar *name, const zwchar *ref,
                         const zwchar *path) {
    return is_done(change(admin, u"delete", owner, name, ref).text(u"path", path).run());
}

bool zAdminRepoRenameDir(Admin *admin, const zwchar *owner, const zwchar *name, const zwchar *ref,
                         const zwchar *path, const zwchar *newname) {
    return is_done(change(admin, u"rename", owner, name, ref)
                       .text(u"path", path)
                       .text(u"newname", newname)
                       .run());
}
