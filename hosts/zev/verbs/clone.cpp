// clone: a working copy of another one on this machine, with its history and the rows of its
// drawings.
//
// It is made in a directory beside the one that it is to be, and takes its name when it is whole.
// Tables come after the history: what a commit names was written before it.

#include "foreign_rows.hpp"
#include "refs.hpp"
#include "remote_copy.hpp"
#include "scratch.hpp"
#include "verb.hpp"
#include "walks.hpp"

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kRemote = "refs/remotes/origin/"; // what the store's clone makes

struct Options {
    std::string source, directory;
};

void declare(Command &verb, Options &options) {
    verb.description("Make a working copy of another one, with its history");
    verb.footer("All commits, branches and tags come, and the rows of all drawings; what is not\n"
                "committed there does not. The two know nothing of each other then. A copy of a\n"
                "server's project is made by \"zev get\".\n"
                "Examples:\n  zev clone house /mnt/backup/house\n  zev clone ~/house try");
    verb.add_option("copy", options.source, "The working copy to take")->required();
    verb.add_option("directory", options.directory, "A new or an empty directory")
        ->type_name("DIR")
        ->required();
}

fs::path target_of(const std::string &given) {
    if (given.empty()) throw Failed(kInvalid, "an empty name is no path");
    fs::path target = fs::absolute(given).lexically_normal();
    if (!target.has_filename()) target = target.parent_path();
    const fs::file_status status = fs::symlink_status(target);
    if (fs::exists(status) && !(fs::is_directory(status) && fs::is_empty(target)))
        throw Failed(kExists, say("%s: is there already; a copy needs a new or an empty directory",
                                  target.string()));
    if (!fs::is_directory(target.parent_path()))
        throw Failed(kNotFound, say("%s: no such directory", target.parent_path().string()));
    return target;
}

// The copy around a path, seen from there.
fs::path source_of(const std::string &given) {
    if (given.find("://") != given.npos)
        throw Failed(
            kInvalid,
            say("%s: is an address; \"zev get\" makes a copy of a server's project", given));
    if (!fs::is_directory(given)) throw Failed(kNotFound, say("%s: no such directory", given));
    fs::current_path(given);
    const WorkingCopy source;
    if (const std::string url = origin_of(source); !url.empty())
        throw Failed(kOther, say("%s: is a copy of a server's project, which has but a part of it; "
                                 "\"zev get %s\" makes another one",
                                 source.root().string(), url));
    return source.root();
}

// The other branches become branches here, too; Git has made them those of a remote.
void make_branches(Repository *repository) {
    std::vector<std::pair<std::string, Oid>> branches;
    const auto visit = [&](Reference *reference) {
        const std::string name = narrow(zReferenceName(reference));
        if (name.starts_with(kRemote) && zReferenceType(reference) == 1)
            branches.emplace_back(full_branch(name.substr(kRemote.size())),
                                  *zReferenceTarget(reference));
        return true;
    };
    check(each_reference(repository, visit), say("references"));
    for (const auto &[name, id] : branches)
        if (!zReferenceExists(repository, wide(name).c_str()))
            Owned<Reference, zReferenceFree>(
                check(zReferenceCreate(repository, wide(name).c_str(), &id), name));
}

fs::path tables_of(Repository *repository) {
    const fs::path own(std::u16string(check(zRepositoryPath(repository))));
    return own / "tables";
}

// A table that somebody has open is waited for; what is no table is left.
uint64_t copy_tables(Host &host, const fs::path &from, const fs::path &to) {
    uint64_t count = 0;
    if (!fs::is_directory(from)) return count;
    for (const auto &upper : fs::directory_iterator(from)) {
        if (!upper.is_directory()) continue;
        for (const auto &table : fs::directory_iterator(upper.path())) {
            Oid id;
            const std::string digits =
                upper.path().filename().string() + table.path().filename().string();
            if (digits.size() != 40 || !zOidFromStr(&id, wide(digits).c_str())) continue;
            stop_on_break(host.notify);
            host.out.progress(say("table %s ...", count + 1));
            const fs::path place = to / upper.path().filename() / table.path().filename();
            if (fs::exists(place)) continue; // a worktree's own, which counts before the shared one
            fs::create_directories(place.parent_path());
            copy_table(table.path(), place);
            ++count;
        }
    }
    return count;
}

int run(Host &host, const Options &options) {
    const fs::path target = target_of(options.directory), source = source_of(options.source);
    Scratch aside(target.parent_path(), "clone", "-" + target.filename().string());
    uint64_t tables = 0;
    {
        const WorkingCopy original;
        const OwnedRepository made(
            check(zRepositoryClone(wide_path(source.string()).c_str(),
                                   wide_path(aside.path().string()).c_str(), false),
                  source.string()));
        stop_on_break(host.notify);
        make_branches(made.get());
        for (const fs::path &place : {own_directory(original), shared_directory(original)})
            tables += copy_tables(host, place / "tables", tables_of(made.get()));
    }
    aside.move_to(target);
    host.out.line(say("a working copy of %s in %s, with %s of drawings", source.string(),
                      target.string(), plural(tables, "table")));
    host.out.record(Record("clone")
                        .set(u"source", source.string())
                        .set(u"path", target.string())
                        .set(u"tables", tables));
    return kDone;
}

} // namespace

extern const Verb kCloneVerb{"clone", Group::work, Nature::plain, bind<Options, declare, run>};

} // namespace host
