// directory: folders of a project, without a working copy.

#include "admin/admin.hpp"

namespace host {

namespace {

// A change of one directory, on the branch that was named.
struct Change {
    explicit Change(const AdminCall &call)
        : project(call.text("PROJECT")), branch(call.wide_text("--branch")),
          path(call.text("PATH")), wide_path(wide(path)) {
        if (path.starts_with('/')) wide_path.erase(0, wide_path.find_first_not_of(u'/'));
    }
    const zwchar *owner() const { return project.owner.c_str(); }
    const zwchar *name() const { return project.name.c_str(); }
    const zwchar *ref() const { return branch.empty() ? nullptr : branch.c_str(); }
    ProjectName project;
    std::u16string branch;
    std::string path;
    std::u16string wide_path;
};

OwnedJson all(const AdminCall &call, const Change &change) {
    Json *tree = nullptr;
    if (!zAdminRepoDirectories(call.admin(), change.owner(), change.name(), change.ref(), &tree))
        fail_answered(call.text("PROJECT"));
    return OwnedJson(tree);
}

template <class Visit> void each_path(const Json *list, Visit visit) {
    if (!list || !zJsonIsArray(list)) return;
    for (uint64_t i = 0; i < zJsonArraySize(list); ++i)
        visit(narrow(zJsonGetString(zJsonArrayAt(list, i))));
}

bool is_there(const AdminCall &call, const Change &change) {
    bool found = false;
    const OwnedJson list = all(call, change);
    each_path(list.get(), [&](const std::string &path) {
        found = found || zStrcasesameW(wide(path).c_str(), change.wide_path.c_str());
    });
    return found;
}

void create(AdminCall &call) {
    const Change change(call);
    if (call.has("--if-missing") && is_there(call, change))
        return call.tell("directory create", change.path, "", false);
    if (!zAdminRepoCreateDir(call.admin(), change.owner(), change.name(), change.ref(),
                             change.wide_path.c_str()))
        fail_answered(change.path);
    call.tell("directory create", change.path, say("made %s", change.path));
}

void remove(AdminCall &call) {
    const Change change(call);
    if (call.has("--if-exists") && !is_there(call, change))
        return call.tell("directory delete", change.path, "", false);
    if (!zAdminRepoDeleteDir(call.admin(), change.owner(), change.name(), change.ref(),
                             change.wide_path.c_str()))
        fail_answered(change.path);
    call.tell("directory delete", change.path, say("deleted %s", change.path));
}

void rename(AdminCall &call) {
    const Change change(call);
    if (!zAdminRepoRenameDir(call.admin(), change.owner(), change.name(), change.ref(),
                             change.wide_path.c_str(), call.wide_text("NEWNAME").c_str()))
        fail_answered(change.path);
    call.tell("directory rename", change.path,
              say("%s is now called %s", change.path, call.text("NEWNAME")));
}

void list(AdminCall &call) {
    const Change change(call);
    const OwnedJson paths = all(call, change);
    each_path(paths.get(), [&](const std::string &path) {
        call.host.out.line(path);
        call.host.out.record(
            Record("directory").set(u"project", call.text("PROJECT")).set(u"path", path));
    });
}

constexpr AdminVerb kVerbs[] = {
    {"create", "Make a directory", "PROJECT PATH", "--branch NAME --if-missing", create},
    {"delete", "Delete a directory with all it holds", "PROJECT PATH", "--branch NAME --if-exists",
     remove},
    {"rename", "Give a directory another name, in its place", "PROJECT PATH NEWNAME",
     "--branch NAME", rename},
    {"list", "Show the directories that are kept as such", "PROJECT", "--branch NAME", list},
};

} // namespace

extern const AdminNoun kDirectoryNoun{
    "directory", "Folders of a project, each change a commit",
    "Examples:\n  zev admin directory create team/plant plans/upper --if-missing\n"
    "  zev admin directory rename team/plant plans/upper roof\n"
    "  zev admin directory list team/plant",
    kVerbs};

} // namespace host
