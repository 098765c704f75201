// Projects: bare repositories <path.repos>/<owner>/<name>. What always holds: a name stands for a
// whole project or for none. A new one is made aside, with its first commit and its rights, and
// takes its name by one rename, as one that is removed loses it; what a killed server leaves aside
// shows in no list.
#include "common/errno.hpp"
#include "common/error_class.hpp"
#include "network/rest/operations.hpp"
#include "network/rest/places.hpp"
#include "network/rest/repos/content.hpp"
#include "objects/store/removal.hpp"
#include "objects/store/repository.hpp"
#include "rms/privilege.hpp"
#include "system/os.hpp"
#include "zev/flock.h"
#include "zev/path.h"
#include "zev/str.h"

#include <algorithm>
#include <string>
#include <vector>

namespace zev::rest {

namespace {

constexpr const zwchar *kAdministrator = u"administrator";
constexpr int32_t kAllBits = Z_PRIVILEGE_READ | Z_PRIVILEGE_WRITE | Z_PRIVILEGE_EXPORT;

HttpResponse *refuse_config(const Call &call, Place place, Here at = {}) {
    const bool whole = place == Place::no_config;
    return refuse(call, 500, u"srv.eInvalidConfig_s", whole ? u"server.conf" : u"server.path.repos",
                  at);
}

// With what was raised in the log, since the answer keeps silent about it.
HttpResponse *fail_inside(const Call &call, Here at = {}) {
    log_raised(kError, at, kFacilitySrv);
    return refuse(call, 500, u"srv.eInternalError", nullptr, at);
}

HttpResponse *check_name(const Call &call, const zwchar *name, const zwchar *field, Here at = {}) {
    if (!name) return refuse(call, 400, u"srv.eFieldRequired_s", field, at);
    if (!is_project_name(name)) return refuse(call, 400, u"srv.eFieldInvalid_s", field, at);
    return nullptr;
}

// The tests that rename and delete begin with.
HttpResponse *check_captures(const Call &call) {
    if (!capture(call, u":base")) return refuse(call, 400, u"srv.eFieldRequired_s", u"base");
    if (HttpResponse *refusal = check_name(call, capture(call, u":owner"), u"owner"))
        return refusal;
    return check_name(call, capture(call, u":name"), u"name");
}

// Where a project lies; a path that is too long is a failure of the server's here.
HttpResponse *find_place(const Call &call, const zwchar *owner, const zwchar *name, zwchar *out) {
    switch (const Place place = project_place(call, owner, name, out)) {
    case Place::found:
        return nullptr;
    case Place::too_long:
        fail_os(ENAMETOOLONG, name);
        return fail_inside(call);
    default:
        return refuse_config(call, place);
    }
}

// The body's JSON, which is kept for whoever notes what was done; null without one, or for a text
// that is none: the field that is missing then says so. The refusal is that of a body beyond the
// limits.
HttpResponse *read_fields(Call &call) {
    if (!zHttpRequestBody(call.request)) return nullptr;
    Owned<HttpResponse, zHttpResponseFree> refusal(read_json(call, call.fields));
    return refusal && zHttpResponseCode(refusal.get()) != 400 ? refusal.release() : nullptr;
}

bool is_repository(const zwchar *path) {
    return RepositoryPtr(zRepositoryOpenBare(path)) != nullptr;
}

// ---- Lists

struct Listing {
    Call &call;
    Tree entries{zJsonNew(Z_JSON_ARRAY)};
    bool sees_all = !call.guarded || has_power(call);

    bool may_see(Repository *repository) const;
    bool add_owner(const zwchar *path, const zwchar *owner);
    bool add_project(const zwchar *path, const zwchar *owner, const zwchar *name);
};

bool Listing::may_see(Repository *repository) const {
    if (sees_all) return true;
    const Privileges rights(zHttpServerAuth(call.server), zHttpRequestUser(call.request),
                            repository);
    return rights.anywhere(Z_PRIVILEGE_READ) || rights.anywhere(Z_PRIVILEGE_WRITE) ||
           rights.anywhere(Z_PRIVILEGE_EXPORT);
}

bool Listing::add_owner(const zwchar *path, const zwchar *owner) {
    std::vector<std::u16string> names;
    if (!names_in(path, &names)) return fail_errno(path);
    return std::ranges::all_of(
        names, [&](const std::u16string &name) { return add_project(path, owner, name.c_str()); });
}

// What can't be opened, or given an id, is no project. False only where there is no memory for a
// record.
bool Listing::add_project(const zwchar *path, const zwchar *owner, const zwchar *name) {
    const std::u16string place = std::u16string(path) + u"/" + name;
    const RepositoryPtr repository(place.size() < Z_PATH_MAX ? zRepositoryOpenBare(place.c_str())
                                                             : nullptr);
    if (!repository || !name_project(call, repository.get(), owner, name)) return true;
    if (!may_see(repository.get()) || !zRepositoryId(repository.get(), true)) return true;
    return push(entries.get(), repository_record(repository.get()));
}

bool list_owners(Listing &listing, const zwchar *path) {
    std::vector<std::u16string> owners;
    if (!names_in(path, &owners)) return fail_errno(path);
    return std::ranges::all_of(owners, [&](const std::u16string &owner) {
        const std::u16string place = std::u16string(path) + u"/" + owner;
        return place.size() >= Z_PATH_MAX || listing.add_owner(place.c_str(), owner.c_str());
    });
}

// ---- Making one

struct NewProject {
    Call &call;
    const zwchar *owner, *name;
    zwchar place[Z_PATH_MAX]{};
    std::u16string directory{}, room{}; // the owner's; where it is made
    std::u16string at{};                // where its files are now
    bool made_directory = false;
    bool lost = false; // another process gave the name meanwhile
    bool done = false;
    Owned<Flock, zFlockClose> lock{};
    RepositoryPtr repository{};

    ~NewProject();
    std::u16string repos() const { return directory_of(directory); }
    bool is_taken() const;
    bool find_room();
    bool init();
    bool take_template(const zwchar *from_owner, const zwchar *from_name);
    bool take_over(Repository *from);
    void grant();
    void clear_members(const AuthTable &auth);
    bool publish();
};

// What was not finished goes, the owner's directory too if it was made for this. A full disk has no
// room for the lock on the names: then nobody else can take it either, but who has it already.
NewProject::~NewProject() {
    const KeptFailure kept;
    repository.reset();
    if (!done && !at.empty()) os::remove_tree(at.c_str(), false);
    lock.reset();
    if (!room.empty()) os::remove_dir(room.c_str());
    if (done || !made_directory) return;
    const NamesLock names = lock_names(repos());
    if (names || zErrorClass() != error_class::kLocked) os::remove_dir(directory.c_str());
}

// Owners and projects are directories, and on some systems a name in another case is the same one.
bool NewProject::is_taken() const {
    return is_repository(place) || has_twin(place) || has_twin(directory);
}

// What is held in it keeps the owner's directory.
bool NewProject::find_room() {
    sweep_aside(place);
    const NamesLock names = lock_names(repos());
    if (!names) return false;
    made_directory = !zPathDirExists(directory.c_str());
    at = place_aside(place);
    room = at.empty() ? at : directory_of(at);
    lock.reset(at.empty() ? nullptr : zFlockOpen(at.c_str(), false));
    return lock != nullptr;
}

// The id is drawn here, so that it is on the disk when the project is.
bool NewProject::init() {
    if (!find_room()) return false;
    repository.reset(zRepositoryInit(at.c_str(), true));
    return repository && zRepositoryId(repository.get(), true);
}

// One that can't be opened, or has no commit, is passed over.
bool NewProject::take_template(const zwchar *from_owner, const zwchar *from_name) {
    zwchar path[Z_PATH_MAX];
    if (!from_owner || !from_name || !is_project_name(from_owner) || !is_project_name(from_name))
        return true;
    if (project_place(call, from_owner, from_name, path) != Place::found) return true;
    const RepositoryPtr from(zRepositoryOpenBare(path));
    const int unborn = from ? git_repository_head_unborn(from->handle.get()) : 1;
    if (unborn < 0) return fail_git(unborn);
    return unborn || take_over(from.get());
}

// Half of one would pass for a project that has its directories, or its rights. Whether the commit
// could be made isn't told; that rights couldn't be copied is, also where there are none.
bool NewProject::take_over(Repository *from) {
    const bool copied = zRepositoryInitFrom(repository.get(), from);
    const std::u16string rights = std::u16string(zRepositoryPath(from)) + u"/AUTHZ";
    struct stat status;
    if (!copied && (os::lstat(rights.c_str(), &status) || errno != ENOENT)) return false;
    return !zRepositoryHeadUnborn(repository.get());
}

void NewProject::clear_members(const AuthTable &auth) {
    Json *found = nullptr;
    if (auth.RoleMembers(repository.get(), kAdministrator, &found) != Z_AUTH_DONE) return;
    const Tree members(found);
    if (!members || !zJsonIsArray(members.get())) return;
    for (uint64_t i = 0; i < zJsonArraySize(members.get()); ++i) {
        Json *member = zJsonArrayAt(members.get(), i);
        if (!zJsonIsObject(member)) continue;
        const Json *group = zJsonObjectAt(member, u"isgroup");
        if (group && zJsonGetBoolean(group)) {
            const auto id = static_cast<int32_t>(zJsonPathGetInt(member, u"id"));
            auth.RoleRemoveGroup(repository.get(), kAdministrator, id);
        } else if (const zwchar *user = zJsonPathGetString(member, u"username")) {
            auth.RoleRemoveUser(repository.get(), kAdministrator, user);
        }
    }
}

// Who makes a project administers it, alone. The statuses decide nothing: the project stands
// without an administrator, too.
void NewProject::grant() {
    const AuthTable *auth = zHttpServerAuth(call.server);
    const zwchar *user = zHttpRequestUser(call.request);
    if (!auth || !user || !*user) return;
    if (auth->CreateRole(repository.get(), kAdministrator) == Z_AUTH_EXISTS) clear_members(*auth);
    auth->RoleAddUser(repository.get(), kAdministrator, user);
    auth->AddSetting(repository.get(), u"/", kAdministrator, kAllBits);
}

// Everything is on the disk before the name is, and the name before the answer leaves.
bool NewProject::publish() {
    repository.reset();
    if (!os::sync_tree(at.c_str())) return fail_errno(at);
    const NamesLock names = lock_names(repos());
    if (!names || (lost = is_taken())) return false;
    os::remove_dir(place); // an empty one may stand there
    if (!give_name(at, place, true)) return false;
    at = place;
    repository.reset(zRepositoryOpenBare(place));
    return done = repository && name_project(call, repository.get(), owner, name);
}

bool move_project(const std::u16string &from, const std::u16string &to) {
    const NamesLock names = lock_names(directory_of(directory_of(from)));
    if (!names) return false;
    if (has_twin(to, from.substr(from.rfind(u'/') + 1))) return raise_exists(to);
    return give_name(from, to, false);
}

} // namespace

HttpResponse *list_projects(Call &call) {
    zwchar path[Z_PATH_MAX];
    const zwchar *owner = capture(call, u":owner");
    if (const Place place = project_place(call, nullptr, nullptr, path);
        place == Place::no_config || place == Place::no_repos)
        return refuse_config(call, place);
    if (owner && !is_project_name(owner)) return refuse(call, 404, u"srv.eNoSuchOwner_s", owner);
    if (project_place(call, owner, nullptr, path) == Place::too_long)
        return refuse(call, 414, u"srv.eUrlTooLong");
    const Lies lies = look_at(path);
    if (lies == Lies::nowhere) return refuse(call, 404, u"srv.eNoSuchOwner_s", owner);
    if (lies == Lies::unknown) return fail_inside(call);
    Listing listing{call};
    if (!listing.entries || !(owner ? listing.add_owner(path, owner) : list_owners(listing, path)))
        return fail_inside(call);
    HttpResponse *response = answer_entries(std::move(listing.entries));
    return response ? response : fail_inside(call);
}

HttpResponse *read_project(Call &call) {
    if (HttpResponse *refusal = open_project(call)) return refusal;
    HttpResponse *response = answer_data(200, repository_record(call.repository.get()));
    return response ? response : fail_inside(call);
}

HttpResponse *create_project(Call &call) {
    if (!capture(call, u":base")) return refuse(call, 400, u"srv.eFieldRequired_s", u"base");
    if (HttpResponse *refusal = read_fields(call)) return refusal;
    NewProject made{call, text_at(call.fields, u"query.owner"),
                    text_at(call.fields, u"query.name")};
    if (HttpResponse *refusal = check_name(call, made.owner, u"owner")) return refusal;
    if (HttpResponse *refusal = check_name(call, made.name, u"name")) return refusal;
    if (HttpResponse *refusal = find_place(call, made.owner, made.name, made.place)) return refusal;
    made.directory = directory_of(made.place);
    if (made.is_taken()) return refuse(call, 409, u"srv.eExistProject_s", made.name);
    if (!made.init()) return fail_inside(call);
    if (!made.take_template(text_at(call.fields, u"query.tmpl_owner"),
                            text_at(call.fields, u"query.tmpl_name")))
        return fail_inside(call);
    made.grant();
    if (!made.publish() && made.lost) return refuse(call, 409, u"srv.eExistProject_s", made.name);
    if (!made.done) return fail_inside(call);
    call.repository = std::move(made.repository); // for whoever notes what was made
    HttpResponse *response = answer(200, repository_record(call.repository.get()));
    return response ? response : fail_inside(call);
}

HttpResponse *rename_project(Call &call) {
    if (HttpResponse *refusal = check_captures(call)) return refusal;
    if (HttpResponse *refusal = read_fields(call)) return refusal;
    const zwchar *owner = capture(call, u":owner"), *name = capture(call, u":name");
    const zwchar *renamed = text_at(call.fields, u"query.newname");
    if (HttpResponse *refusal = check_name(call, renamed, u"newname")) return refusal;
    zwchar from[Z_PATH_MAX], to[Z_PATH_MAX];
    if (HttpResponse *refusal = find_place(call, owner, name, from)) return refusal;
    if (HttpResponse *refusal = find_place(call, owner, renamed, to)) return refusal;
    if (!is_repository(from)) return fail_inside(call);
    if (!move_project(from, to)) return fail_inside(call);
    const RepositoryPtr repository(zRepositoryOpenBare(to));
    if (!repository || !name_project(call, repository.get(), owner, renamed))
        return fail_inside(call);
    HttpResponse *response = answer(200, repository_record(repository.get()));
    return response ? response : fail_inside(call);
}

HttpResponse *delete_project(Call &call) {
    if (HttpResponse *refusal = check_captures(call)) return refusal;
    const zwchar *owner = capture(call, u":owner"), *name = capture(call, u":name");
    zwchar path[Z_PATH_MAX];
    if (HttpResponse *refusal = find_place(call, owner, name, path)) return refusal;
    const Lies lies = look_at(path);
    if (lies == Lies::nowhere) return refuse(call, 404, u"srv.eNoSuchProject_s", name);
    if (lies == Lies::unknown) return fail_inside(call);
    if (!is_repository(path) && !RepositoryPtr(zRepositoryOpen(path))) return fail_inside(call);
    return remove_project(path) ? zHttpResponseBlank(204) : fail_inside(call);
}

} // namespace zev::rest
