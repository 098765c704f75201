// project: what the server keeps drawings in.

#include "admin/admin.hpp"

#include <algorithm>

namespace host {

namespace {

constexpr int kTaken = 409, kNoSuch = 404;

// What a call about a project gave; false for what an option lets pass.
bool passed(const AdminCall &call, bool done, const std::string &what) {
    if (done) return true;
    const bool answered = zErrorClass() == kNetwork;
    if (answered && zErrorCode() == kTaken && call.has("--if-missing")) return false;
    if (answered && zErrorCode() == kNoSuch && call.has("--if-exists")) return false;
    fail_answered(what);
}

void create(AdminCall &call) {
    const std::string text = call.text("PROJECT");
    const ProjectName project(text);
    const bool made = passed(
        call, zAdminCreateRepo(call.admin(), project.owner.c_str(), project.name.c_str()), text);
    call.tell("project create", text, say("made %s", text), made);
}

void clone(AdminCall &call) {
    const std::string from = call.text("PROJECT"), text = call.text("NEW");
    const ProjectName model(from), project(text);
    const bool made =
        passed(call,
               zAdminCloneRepo(call.admin(), project.owner.c_str(), project.name.c_str(),
                               model.owner.c_str(), model.name.c_str()),
               text);
    call.tell("project clone", text, say("made %s from %s", text, from), made);
}

void list(AdminCall &call) {
    Json *tree = nullptr;
    if (!zAdminListRepo(call.admin(), &tree)) fail_answered(say("the projects"));
    const OwnedJson entries(tree);
    uint64_t count = 0;
    each(tree, [&](const Json *entry) {
        const std::string owner = member(entry, u"owner"), name = member(entry, u"name");
        if (call.has("OWNER") && call.text("OWNER") != owner) return;
        ++count;
        call.host.out.line(owner + "/" + name);
        call.host.out.record(Record("project")
                                 .set(u"owner", owner)
                                 .set(u"name", name)
                                 .set(u"id", member(entry, u"id"))
                                 .set(u"url", call.server() + "/repos/" + owner + "/" + name));
    });
    if (!count) call.host.out.line("no projects");
}

void rename(AdminCall &call) {
    const std::string text = call.text("PROJECT"), renamed = call.text("NEWNAME");
    const ProjectName project(text);
    if (!zAdminRenameRepo(call.admin(), project.owner.c_str(), project.name.c_str(),
                          wide(renamed).c_str()))
        fail_answered(text);
    call.tell("project rename", text,
              say("%s is now %s", text, narrow(project.owner.c_str()) + "/" + renamed));
}

// All of its history goes.
void confirm(AdminCall &call, const std::string &text) {
    require_yes(call.host.notify,
                {.id = "zev.admin.project.delete",
                 .title = "",
                 .instruction = say("Delete %s on %s?", text, call.server()),
                 .content = "All of its drawings and their history go, for good.",
                 .buttons = {"Delete", "Keep"}},
                say("%s stays", text));
}

void remove(AdminCall &call) {
    const std::string text = call.text("PROJECT");
    const ProjectName project(text);
    confirm(call, text);
    const bool gone = passed(
        call, zAdminDestroyRepo(call.admin(), project.owner.c_str(), project.name.c_str()), text);
    call.tell("project delete", text, say("deleted %s", text), gone);
}

constexpr AdminVerb kVerbs[] = {
    {"create", "Make an empty project, which you administer", "PROJECT", "--if-missing", create},
    {"clone", "Make a project with the content and the rights of another", "PROJECT NEW",
     "--if-missing", clone},
    {"list", "Show the projects that you may see", "[OWNER]", "", list},
    {"rename", "Give a project another name", "PROJECT NEWNAME", "", rename},
    {"delete", "Delete a project with its history; it asks first", "PROJECT", "--if-exists",
     remove},
};

} // namespace

extern const AdminNoun kProjectNoun{
    "project", "Projects",
    "Examples:\n  zev admin project create team/plant --if-missing\n"
    "  zev admin project clone team/plant team/hall\n  zev admin project list team\n"
    "  zev admin project rename team/hall foyer\n  zev admin project delete team/foyer --yes",
    kVerbs};

} // namespace host
