// The gate, bodies and answers of the resources. What holds: a project is opened at most once a
// request, and a refusal is raised and logged where it is made.
#include "network/rest/rest.hpp"

#include "common/error_class.hpp"
#include "common/json.hpp"
#include "common/pathname.hpp"
#include "common/told_errno.hpp"
#include "common/utf.hpp"
#include "network/http/server.hpp"
#include "network/rest/operations.hpp"
#include "network/rest/places.hpp"
#include "objects/store/loose_object.hpp"
#include "rms/privilege.hpp"
#include "system/os.hpp"
#include "zev/auth.h"
#include "zev/error.h"
#include "zev/oid.h"
#include "zev/path.h"
#include "zev/str.h"
#include "zev/uri.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>

namespace zev::rest {

namespace {

constexpr const zwchar *kJsonType = u"application/json";
constexpr const zwchar *kOctetType = u"application/octet-stream";

// What every record of a project has.
Tree record_of(Repository *repository, const zwchar *type, const zwchar *url) {
    return Tree(zJsonNewObject(u"owner", zJsonNewString(zRepositoryOwner(repository)), u"name",
                               zJsonNewString(zRepositoryName(repository)), u"type",
                               zJsonNewString(type), u"url", zJsonNewString(url), nullptr));
}

} // namespace

Call::Call(HttpServer *on, HttpRequest *asked)
    : server(on), request(asked), guarded(on && on->guarded) {}

// What was renamed or removed is nobody's any more.
Call::~Call() {
    rights.reset();
    intake.reset();
    if (!server || !server->kept) return;
    const bool moves = operation && operation->route == Route::projects &&
                       zHttpRequestMethod(request) != Z_HTTP_GET;
    if (moves)
        server->kept->clear();
    else
        server->kept->give_back(std::move(place), std::move(repository));
}

// ---- Refusals

HttpResponse *refuse(const Call &call, int32_t code, const zwchar *key, const zwchar *argument,
                     Here at) {
    if (code == 500 && (call.is_full || raised_no_space())) key = u"srv.eNoSpace";
    return zHttpResponseError(at.file, at.line, call.request, code, key, zStrsafeW(argument));
}

// Of libgit2's only the text tells it.
static bool is_too_long_a_name() {
    const std::u16string text = to_wide(strerror(ENAMETOOLONG));
    return std::u16string_view(zErrorReason()).find(text) != std::u16string_view::npos;
}

// libgit2 passes over packs that it can't open, as where there are no descriptors left: what wasn't
// found is missing only if the directory of objects can be looked at.
bool has_store_failed(const Call &call) {
    switch (zErrorClass()) {
    case error_class::kNoMemory:
    case error_class::kSystem:
    case error_class::kStd:
        return true;
    case error_class::kGit:
        return zErrorCode() == GIT_ERROR && !is_too_long_a_name();
    case error_class::kNotFound:
        break;
    default:
        return false;
    }
    git_repository *handle = call.repository ? call.repository->handle.get() : nullptr;
    const std::u16string packs = handle ? objects_directory(handle) + u"pack" : std::u16string();
    return handle && os::dir_empty(packs.c_str()) < 0 && errno != ENOENT;
}

HttpResponse *refuse_absent(const Call &call, const Absent &absent, Here at) {
    if (!has_store_failed(call)) return refuse(call, absent.code, absent.key, absent.argument, at);
    log_raised(kError, at, kFacilitySrv);
    return refuse(call, 500, absent.failed, absent.argument, at);
}

HttpResponse *refuse_entry(const Call &call, uint64_t index, Here at) {
    const std::string entry = "entries[" + std::to_string(index) + "]";
    const std::u16string wide(entry.begin(), entry.end());
    return refuse(call, 400, u"srv.eFieldInvalid_s", wide.c_str(), at);
}

// ---- The gate

// The last is where projects go while they are removed.
bool is_project_name(const zwchar *name) {
    return zSNValid(name, true) && path_can_enter(to_utf8(name)) &&
           !zStrsameW(name, u".zev-removed");
}

Place project_place(const Call &call, const zwchar *owner, const zwchar *name, zwchar *out) {
    Json *config = zHttpServerConfig(call.server);
    if (!config) return Place::no_config;
    const zwchar *repos = zJsonPathGetString(config, u"path.repos");
    if (!repos) return Place::no_repos;
    std::u16string path(repos);
    for (const zwchar *part : {owner, name})
        if (part) path.append(u"/").append(part);
    if (path.size() >= Z_PATH_MAX) return Place::too_long;
    std::fill_n(out, Z_PATH_MAX, u'\0');
    return zPathCanonicalized(out, path.c_str()) ? Place::found : Place::too_long;
}

bool name_project(const Call &call, Repository *repository, const zwchar *owner,
                  const zwchar *name) {
    const zwchar *base = capture(call, u":base");
    zwchar url[Z_URL_MAX] = {};
    return zUrlBuild(url, base ? base : u"/", u"repos", owner, name, nullptr) &&
           zRepositorySetOwner(repository, owner) && zRepositorySetName(repository, name) &&
           zRepositorySetUrl(repository, url);
}

HttpResponse *open_project(Call &call) {
    if (call.repository) return nullptr;
    const zwchar *owner = capture(call, u":owner"), *name = capture(call, u":name");
    if (!capture(call, u":base")) return refuse(call, 400, u"srv.eFieldRequired_s", u":base");
    if (!owner) return refuse(call, 400, u"srv.eFieldRequired_s", u":owner");
    if (!is_project_name(owner)) return refuse(call, 400, u"srv.eFieldInvalid_s", u":owner");
    if (!name) return refuse(call, 400, u"srv.eFieldRequired_s", u":name");
    if (!is_project_name(name)) return refuse(call, 400, u"srv.eFieldInvalid_s", u":name");
    zwchar path[Z_PATH_MAX];
    switch (project_place(call, owner, name, path)) {
    case Place::no_config:
        return refuse(call, 500, u"srv.eInvalidConfig_s", u"server.conf");
    case Place::no_repos:
        return refuse(call, 500, u"srv.eInvalidConfig_s", u"server.path.repos");
    case Place::too_long:
        return refuse(call, 414, u"srv.eUrlTooLong");
    case Place::found:
        break;
    }
    struct stat directory;
    switch (look_at(path, &directory)) {
    case Lies::nowhere:
        return refuse(call, 404, u"srv.eNoSuchProject_s", name);
    case Lies::unknown:
        return log_raised(kError, {}, kFacilitySrv),
               refuse(call, 500, u"srv.eAccessProject_s", name);
    case Lies::there:
        break;
    }
    if (!call.server->kept) call.server->kept = std::make_shared<KeptProjects>();
    call.place = OpenedAt(path, directory);
    call.repository = call.server->kept->take(call.place);
    if (!call.repository) call.repository.reset(zRepositoryOpenBare(path));
    if (!call.repository || !name_project(call, call.repository.get(), owner, name)) {
        call.repository.reset();
        return refuse(call, 500, u"srv.eAccessProject_s", name);
    }
    return nullptr;
}

// ---- Bodies

HttpResponse *read_json(const Call &call, Tree &body) {
    Stream *stream = zHttpRequestBody(call.request);
    if (!stream) return refuse(call, 400, u"srv.eNoProperContent_s", kJsonType);
    JsonBounds bounds{call.server->limits.json, call.server->limits.nodes};
    bounds.plain = true; // or a name with an umlaut, escaped, would be stored as another one
    body.reset(json_read_bounded(stream, bounds));
    if (bounds.exceeded) return refuse(call, 413);
    return body ? nullptr : refuse(call, 400, u"srv.eUnresolvableContent");
}

const zwchar *text_at(const Tree &body, const zwchar *path) {
    Json *node = body ? zJsonPathGet(body.get(), path) : nullptr;
    return node && !zJsonIsNull(node) ? zJsonGetString(node) : nullptr;
}

HttpResponse *need_octets(const Call &call) {
    if (zHttpRequestBody(call.request)) return nullptr;
    return refuse(call, 400, u"srv.eNoProperContent_s", kOctetType);
}

// ---- Answers

HttpResponse *answer(int32_t code, Tree tree) {
    return tree ? zHttpResponseJson(code, tree.get()) : nullptr;
}

HttpResponse *answer_data(int32_t code, Tree data) {
    if (!data) return nullptr;
    Tree whole(zJsonNewPath(u"data", data.get()));
    if (whole) static_cast<void>(data.release());
    return answer(code, std::move(whole));
}

HttpResponse *answer_entries(Tree entries) {
    if (!entries) return nullptr;
    Tree whole(zJsonNewPath(u"data.entries", entries.get()));
    if (whole) static_cast<void>(entries.release());
    return answer(200, std::move(whole));
}

Tree project_record(const Call &call, const zwchar *type,
                    std::initializer_list<const zwchar *> parts) {
    zwchar url[Z_URL_MAX] = {};
    if (!zUrlCopy(url, zRepositoryUrl(call.repository.get()))) return {};
    for (const zwchar *part : parts)
        if (!zUrlAppend(url, part)) return {};
    return record_of(call.repository.get(), type, url);
}

Tree repository_record(Repository *repository) {
    const Oid *id = zRepositoryId(repository, true);
    Tree record = id ? record_of(repository, u"repo", zRepositoryUrl(repository)) : Tree();
    return record && zJsonPathSetId(record.get(), u"id", id) ? std::move(record) : Tree();
}

// ---- Rights

Privileges &rights(Call &call) {
    const AuthTable *auth = zHttpServerAuth(call.server);
    Repository *repository = call.repository.get();
    if (!call.rights && call.is_proven)
        call.rights =
            std::make_unique<Privileges>(auth, zHttpRequestUser(call.request), repository);
    if (!call.rights) call.rights = std::make_unique<Privileges>(auth, call.request, repository);
    return *call.rights;
}

bool has_power(Call &call) {
    const AuthTable *auth = zHttpServerAuth(call.server);
    const auto ask = [&] {
        return auth->CheckUser(zHttpRequestUser(call.request), zHttpRequestPassword(call.request),
                               true) == Z_AUTH_DONE;
    };
    if (!call.power) call.power = call.is_proven && ask();
    return *call.power;
}

} // namespace zev::rest
