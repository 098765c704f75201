// rights: what the roles of a project may do with its paths.

#include "admin/admin.hpp"

#include <algorithm>
#include <set>

namespace host {

namespace {

constexpr int32_t kAllRights = Z_PRIVILEGE_READ | Z_PRIVILEGE_WRITE | Z_PRIVILEGE_EXPORT;

// As the server keeps it: relative, "/" for all.
std::string kept_path(const std::string &given) {
    zwchar path[Z_PATH_MAX] = {};
    if (given.size() >= Z_PATH_MAX) throw Failed(kInvalid, "the path is too long");
    check(zPathCanonicalized(path, wide(given).c_str()), given);
    std::string text = narrow(path);
    while (text.ends_with('/')) text.pop_back();
    text.erase(0, text.find_first_not_of('/'));
    return text.empty() ? "/" : text;
}

struct Rule {
    std::string path, role;
    int32_t bits;
};

std::vector<Rule> rules_in(const Json *list) {
    std::vector<Rule> rules;
    each(list, [&](const Json *element) {
        const Json *setting = zJsonObjectAt(element, u"setting");
        if (setting && zJsonIsObject(setting))
            rules.push_back({member(setting, u"path"), member(setting, u"role"),
                             number(setting, u"privilege")});
    });
    return rules;
}

// A list of rules, by one of the calls that give one.
template <class Ask> std::vector<Rule> ask_rules(const std::string &what, Ask ask) {
    Json *tree = nullptr;
    const int32_t status = ask(&tree);
    const OwnedJson list(tree);
    require_status(status, what);
    return rules_in(tree);
}

std::vector<Rule> rules_of_role(const AdminCall &call, const ProjectName &project,
                                const std::string &role) {
    return ask_rules(role, [&](Json **list) {
        return zAdminRolePrivileges(call.admin(), project.owner.c_str(), project.name.c_str(),
                                    wide(role).c_str(), list);
    });
}

std::vector<Rule> all_rules(const AdminCall &call, const ProjectName &project) {
    Json *tree = nullptr;
    const int32_t status =
        zAdminRoleList(call.admin(), project.owner.c_str(), project.name.c_str(), &tree);
    const OwnedJson roles(tree);
    require_status(status, call.text("PROJECT"));
    std::vector<Rule> all;
    each(tree, [&](const Json *element) {
        for (Rule &rule : rules_of_role(call, project, member(element, u"name")))
            all.push_back(std::move(rule));
    });
    std::stable_sort(all.begin(), all.end(),
                     [](const Rule &a, const Rule &b) { return a.path < b.path; });
    return all;
}

// Nothing where none was ever set.
std::optional<int32_t> fallback_of(const AdminCall &call, const ProjectName &project) {
    int32_t bits = 0;
    const int32_t status =
        zAdminDefaultPrivilege(call.admin(), project.owner.c_str(), project.name.c_str(), &bits);
    if (status == Z_AUTH_NOT_FOUND) return {};
    require_status(status, call.text("PROJECT"));
    return bits;
}

// ---- Verbs

void set(AdminCall &call) {
    const ProjectName project(call.text("PROJECT"));
    const std::string path = kept_path(call.text("PATH")), role = call.text("ROLE");
    const int32_t bits = bits_of(call.text("RIGHTS"));
    require_status(zAdminSetPrivilege(call.admin(), project.owner.c_str(), project.name.c_str(),
                                      wide(path).c_str(), wide(role).c_str(), bits),
                   say("%s of %s", role, call.text("PROJECT")));
    call.tell("rights set", path, say("%s has %s on %s", role, letters(bits), path));
}

void unset(AdminCall &call) {
    const ProjectName project(call.text("PROJECT"));
    const std::string path = kept_path(call.text("PATH")), role = call.text("ROLE");
    const int32_t status =
        zAdminRemovePrivilege(call.admin(), project.owner.c_str(), project.name.c_str(),
                              wide(path).c_str(), wide(role).c_str());
    const bool gone = call.done(status, say("%s on %s", role, path));
    call.tell("rights unset", path, say("%s has no rule of its own on %s", role, path), gone);
}

void clear(AdminCall &call) {
    const ProjectName project(call.text("PROJECT"));
    const std::string path = kept_path(call.text("PATH"));
    require_status(zAdminClearPrivilege(call.admin(), project.owner.c_str(), project.name.c_str(),
                                        wide(path).c_str()),
                   path);
    call.tell("rights clear", path, say("no role has a rule of its own on %s", path));
}

void fallback(AdminCall &call) {
    const ProjectName project(call.text("PROJECT"));
    if (call.has("RIGHTS")) {
        const int32_t bits = bits_of(call.text("RIGHTS"));
        require_status(zAdminSetDefaultPrivilege(call.admin(), project.owner.c_str(),
                                                 project.name.c_str(), bits),
                       call.text("PROJECT"));
        return call.tell("rights default", call.text("RIGHTS"),
                         say("where no rule says anything: %s", letters(bits)));
    }
    const std::string shown = letters(fallback_of(call, project).value_or(0));
    call.host.out.line(say("where no rule says anything: %s", shown));
    call.host.out.record(
        Record("default").set(u"project", call.text("PROJECT")).set(u"rights", shown));
}

void list(AdminCall &call) {
    const ProjectName project(call.text("PROJECT"));
    const std::string path = call.has("PATH") ? kept_path(call.text("PATH")) : "";
    std::vector<Rule> rules;
    if (call.has("--user"))
        rules = ask_rules(call.text("--user"), [&](Json **tree) {
            return zAdminUserPrivileges(call.admin(), project.owner.c_str(), project.name.c_str(),
                                        call.wide_text("--user").c_str(), tree);
        });
    else if (call.has("--role"))
        rules = rules_of_role(call, project, call.text("--role"));
    else
        rules = all_rules(call, project);
    for (const Rule &rule : rules) {
        if (!path.empty() && !zStrcasesameW(wide(path).c_str(), wide(rule.path).c_str())) continue;
        call.host.out.line(padded(letters(rule.bits), 5) + padded(rule.path, 32) + rule.role);
        Record record("right");
        record.set(u"project", call.text("PROJECT")).set(u"path", rule.path);
        record.set(u"rights", letters(rule.bits));
        if (!rule.role.empty()) record.set(u"role", rule.role);
        call.host.out.record(record);
    }
}

// ---- Why a user has what he has

// The groups that a user is in, by himself or through one below.
std::set<int32_t> groups_of(const AdminCall &call, const std::string &user) {
    std::map<int32_t, int32_t> parents;
    std::vector<int32_t> own;
    for (const GroupPlace &group : list_groups(call)) {
        parents[group.id] = group.parent;
        for (const std::string &each : group.users)
            if (zStrcasesameW(wide(each).c_str(), wide(user).c_str())) own.push_back(group.id);
    }
    std::set<int32_t> all;
    for (int32_t id : own)
        while (parents.contains(id) && all.insert(id).second) id = parents[id];
    return all;
}

bool has_role(const AdminCall &call, const ProjectName &project, const std::string &role,
              const std::string &user, const std::set<int32_t> &groups) {
    Json *tree = nullptr;
    const int32_t status = zAdminRoleMembers(call.admin(), project.owner.c_str(),
                                             project.name.c_str(), wide(role).c_str(), &tree);
    const OwnedJson members(tree);
    require_status(status, role);
    bool found = false;
    each(tree, [&](const Json *element) {
        found = found || (flag(element, u"isgroup")
                              ? groups.contains(number(element, u"id"))
                              : zStrcasesameW(wide(member(element, u"username")).c_str(),
                                              wide(user).c_str()));
    });
    return found;
}

// Those of the roles with a rule on this path that the user has.
std::vector<Rule> grants(const AdminCall &call, const ProjectName &project, const std::string &path,
                         const std::string &user) {
    std::vector<Rule> rules = ask_rules(path, [&](Json **tree) {
        return zAdminPrivilegeList(call.admin(), project.owner.c_str(), project.name.c_str(),
                                   wide(path).c_str(), tree);
    });
    const std::set<int32_t> groups = groups_of(call, user);
    std::erase_if(
        rules, [&](const Rule &rule) { return !has_role(call, project, rule.role, user, groups); });
    return rules;
}

// The user's rule that decides on a path, as the server finds it; null for none.
const Rule *nearest(const std::vector<Rule> &rules, const std::string &path) {
    for (std::string at = path; !at.empty();) {
        for (const Rule &rule : rules)
            if (rule.path == at) return &rule;
        if (at == "/") break;
        const size_t slash = at.rfind('/');
        at = slash == at.npos ? "/" : at.substr(0, slash);
    }
    return nullptr;
}

struct Reason {
    int32_t bits = 0;
    std::string rule;          // its path; empty for none
    std::string text;          // for people
    std::vector<Rule> granted; // by which roles
};

Reason reason_for(const AdminCall &call, const ProjectName &project, const std::string &user,
                  const std::string &path) {
    if (zStrcasesameW(wide(user).c_str(), u"admin"))
        return {kAllRights, "", say("admin has all rights"), {}};
    const std::vector<Rule> rules = ask_rules(user, [&](Json **tree) {
        return zAdminUserPrivileges(call.admin(), project.owner.c_str(), project.name.c_str(),
                                    wide(user).c_str(), tree);
    });
    if (const Rule *rule = nearest(rules, path)) {
        Reason reason{rule->bits, rule->path, say("by the rule on %s", rule->path), {}};
        reason.granted = grants(call, project, rule->path, user);
        return reason;
    }
    const std::optional<int32_t> fallback = fallback_of(call, project);
    return {fallback.value_or(0),
            "",
            say(fallback ? "by the project's default" : "no rule says anything"),
            {}};
}

void explain(AdminCall &call) {
    const ProjectName project(call.text("PROJECT"));
    const std::string user = call.text("USER"), path = kept_path(call.text("PATH"));
    const Reason reason = reason_for(call, project, user, path);
    std::string roles;
    std::vector<std::string> names;
    for (const Rule &rule : reason.granted) {
        roles +=
            (roles.empty() ? ": " : ", ") + say("role %s", rule.role) + " " + letters(rule.bits);
        names.push_back(rule.role);
    }
    call.host.out.line(say("%s has %s on %s, %s", user, letters(reason.bits), path, reason.text) +
                       roles);
    Record record("explanation");
    record.set(u"project", call.text("PROJECT")).set(u"user", user).set(u"path", path);
    record.set(u"rights", letters(reason.bits)).set(u"roles", names).set(u"text", reason.text);
    if (!reason.rule.empty()) record.set(u"rule", reason.rule);
    call.host.out.record(record);
}

constexpr AdminVerb kVerbs[] = {
    {"set", "Give a role rights on a path and all below it", "PROJECT PATH ROLE RIGHTS", "", set},
    {"unset", "Take a role's rule on a path away", "PROJECT PATH ROLE", "--if-exists", unset},
    {"clear", "Take the rules of all roles on a path away", "PROJECT PATH", "", clear},
    {"list", "Show the rules of a project, or those on one path", "PROJECT [PATH]",
     "--role ROLE --user USER", list},
    {"default", "Show or set what holds where no rule does", "PROJECT [RIGHTS]", "", fallback},
    {"explain", "Show what a user may do with a path, and why", "PROJECT USER PATH", "", explain},
};

} // namespace

extern const AdminNoun kRightsNoun{
    "rights", "What the roles of a project may do with its paths",
    "The nearest rule counts: that of a path itself, else of the directories above it, / last.\n"
    "Who has several roles has the rights of all of them.\n"
    "Examples:\n  zev admin rights set team/plant / drawers rw\n"
    "  zev admin rights set team/plant /standards drawers r\n"
    "  zev admin rights set team/plant /closed drawers -\n"
    "  zev admin rights explain team/plant anna standards/door.dwx",
    kVerbs};

} // namespace host
