// get: a working copy of a server's project.

#include "incoming.hpp"
#include "plain_words.hpp"
#include "refs.hpp"
#include "server.hpp"
#include "verb.hpp"

namespace host {

namespace fs = std::filesystem;

namespace {

struct Options {
    std::string url, directory, branch;
};

void declare(Command &verb, Options &options) {
    verb.alias("co");
    verb.description("Make a working copy of a project on a server");
    verb.footer(
        "The directory is to be new or empty; without one it is named as the project. Log in\n"
        "first. When the line breaks the same command goes on from what has come.\n"
        "A project on the server of the last login goes without its address.\n"
        "Examples:\n  zev get http://plant:3001/team/house\n  zev get team/house ~/house");
    verb.add_option("url", options.url, "The project: its address, or owner/name")
        ->type_name("URL")
        ->required();
    verb.add_option("directory", options.directory, "Where; else here, under the project's name")
        ->type_name("DIR");
    verb.add_option("--branch", options.branch, "Follow this branch; else master")
        ->type_name("NAME");
}

// A copy that is there already: of this project the same command goes on, another's is in the way.
bool is_there(const fs::path &place, const std::string &url, const std::string &branch) {
    const OwnedRepository repository(zRepositoryOpen(place.u16string().c_str()));
    if (!repository || zRepositoryIsBare(repository.get())) return false;
    const Owned<zwchar, zStrfreeW> own(zRepositoryRemoteUrl(repository.get()));
    const std::string origin = narrow(own.get());
    if (origin != url)
        throw Failed(kExists,
                     say(origin.empty() ? "%s: is a working copy without a server already; choose "
                                          "another directory"
                                        : "%s: is a working copy of %s already; choose another "
                                          "directory",
                         place.string(), origin));
    const Owned<Branch, zBranchFree> head(zBranchHead(repository.get()));
    const std::string name = head ? narrow(zBranchMerge(head.get())) : "";
    if (!branch.empty() && name != branch)
        throw Failed(kExists, say("%s: is a working copy on %s already; choose another directory",
                                  place.string(), name));
    return true;
}

// With the work directory as the place to be.
int go_on(Host &host, const fs::path &place) {
    fs::current_path(place);
    const WorkingCopy copy;
    return take_update(host, copy, "get", nullptr, nullptr, false);
}

int run(Host &host, const Options &options) {
    const std::string url = project_url(options.url);
    log_on(url);
    const std::string given = options.directory.empty() ? project_name(url) : options.directory;
    fs::path place = fs::absolute(given).lexically_normal();
    if (!place.has_filename()) place = place.parent_path();
    const std::string branch = options.branch.empty() ? "" : full_branch(options.branch);
    if (is_there(place, url, branch)) return go_on(host, place);
    require_project(host, url);
    const std::u16string name = wide(branch);
    const Owned<CheckSpec, zCheckSpecFree> spec(
        check(zCheckSpecByref(branch.empty() ? nullptr : name.c_str(), nullptr)));
    check(zCheckSpecSetNotify(spec.get(), host.notify));
    Reception reception(host, place / ".git", "get", false);
    if (!zShellCheckout(wide(url).c_str(), wide_path(place.string()).c_str(), spec.get())) {
        if (!broken() && is_no_space(raised())) {
            host.out.drop_reason();
            throw no_space_for(place);
        }
        fail_remote(host, url);
    }
    host.out.line(say("a working copy of %s in %s", url, place.string()));
    host.out.record(Record("get").set(u"url", url).set(u"path", place.string()));
    fs::current_path(place);
    const WorkingCopy copy;
    if (!branch.empty() && !server_commit(copy))
        host.out.warn(
            say("the server has no branch %s so far; the first commit makes it", options.branch));
    return tell_update(host, copy, nullptr, true, reception);
}

} // namespace

extern const Verb kGetVerb{"get", Group::server, Nature::plain, bind<Options, declare, run>};

} // namespace host
