// init: a new working copy, in a new directory or around files that are there.

#include "scratch.hpp"
#include "verb.hpp"

namespace host {

namespace fs = std::filesystem;

namespace {

struct Options {
    std::string directory = ".";
};

void declare(Command &verb, Options &options) {
    verb.description("Make a new working copy");
    verb.footer("Files that are in the directory stay as they are; \"zev add\" takes them.\n"
                "Examples:\n  zev init project\n  zev init");
    verb.add_option("directory", options.directory, "A directory, new or not; else this one")
        ->type_name("DIR");
}

void make(const fs::path &directory) {
    OwnedRepository(
        check(zRepositoryInit(wide_path(directory.string()).c_str(), false), directory.string()));
}

void require_no_copy(const fs::path &directory) {
    if (fs::exists(fs::symlink_status(directory / ".git")))
        throw Failed(kInvalid, say("%s: is a working copy already", directory.string()));
}

// The repository is made aside, on the same disk, and takes its place as a whole: what fails on its
// way there leaves nothing that looks like a working copy.
void make_in(const fs::path &directory) {
    const Scratch aside(directory, "init");
    make(aside.path());
    std::error_code error;
    fs::rename(aside.path() / ".git", directory / ".git", error);
    if (!error) return;
    require_no_copy(directory); // made by another process meanwhile
    throw fs::filesystem_error({}, directory, error);
}

// A directory that another process fills meanwhile is not empty, and stays.
void make_directory_and_in(const fs::path &directory) try {
    fs::create_directories(directory);
    make_in(directory);
} catch (...) {
    std::error_code ignored;
    fs::remove(directory, ignored);
    throw;
}

int run(Host &host, const Options &options) {
    if (options.directory.empty()) throw Failed(kInvalid, "an empty name is no path");
    fs::path full = fs::absolute(options.directory).lexically_normal();
    if (!full.has_filename()) full = full.parent_path();
    const std::string path = full.string();
    require_no_copy(full);
    if (fs::exists(fs::symlink_status(full)) && !fs::is_directory(full))
        throw Failed(kInvalid, say("%s: is no directory", path));
    const bool is_there = fs::exists(full), has_files = is_there && !fs::is_empty(full);
    is_there ? make_in(full) : make_directory_and_in(full);
    host.out.line(say("a new working copy in %s", path));
    if (has_files)
        host.out.line("what is in it is as it was: \"zev add .\" takes it, \"zev import .\" makes "
                      "drawings of DXF files");
    host.out.record(Record("init").set(u"path", path));
    return kDone;
}

} // namespace

extern const Verb kInitVerb{"init", Group::work, Nature::plain, bind<Options, declare, run>};

} // namespace host
