// add: files marked for the next commit, and the mark taken back.

#include "foreign_rows.hpp"
#include "front.hpp"
#include "index_change.hpp"
#include "keep_files.hpp"
#include "moved.hpp"
#include "sending.hpp"
#include "unstage.hpp"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace host {

namespace {

struct Options {
    Paths paths;
    bool undo = false; // out of the next commit again; none: all of it
};

void declare(Command &verb, Options &options) {
    verb.description("Mark files for the next commit");
    verb.footer("Directories are taken with all they hold; * and ? are wild. --undo takes out of\n"
                "the next commit what was added, moved or removed, or with paths only that; the\n"
                "files stay as they are.\n"
                "Examples:\n  zev add plan.dwx\n  zev add details 'plans/*.dwx'\n"
                "  zev add --undo plan.dwx");
    verb.add_option("paths", options.paths, "Files, directories, patterns");
    verb.add_flag("--undo", options.undo, "The next commit won't hold it; the file stays");
}

// With what helps where a file isn't there any more.
[[noreturn]] void fail_missing(const WorkingCopy &copy, const std::string &path,
                               const std::string &given) {
    OwnedIndex index(zIndexHead(copy.repository(), false));
    bool tracked = index && zIndexEntryBypath(index.get(), wide(path).c_str());
    throw Failed(kNotFound, say(tracked ? "%s: no such file or directory; \"zev commit\" with its "
                                          "name keeps that it is gone"
                                        : "%s: no such file or directory",
                                given));
}

// Why a file that was named is not in the index.
std::string told_left_out(const WorkingCopy &copy, Index *index, const std::string &path) {
    const std::filesystem::path place = copy.absolute(path);
    std::error_code gone;
    if (std::filesystem::is_directory(place, gone) && access(place.c_str(), R_OK | X_OK))
        return say("%s: was not added: it can't be read: %s", typed_path(path), strerror(errno));
    const OwnedSpec spec = copy.spec({copy.absolute(path).string()}, 0, nullptr);
    const OwnedStatus list(check(zStatusListBuild(index, spec.get())));
    bool ignored = false;
    for (uint64_t i = 0; i < zStatusListLength(list.get()); ++i)
        ignored |= zStatusEntryStatus(zStatusListEntry(list.get(), i)) == Z_KIND_IGNORED;
    return say(
        ignored ? "%s: was not added: it is ignored, by a rule of .gitignore or of the repository"
                : "%s: was not added: it is no file or directory that a commit can hold",
        typed_path(path));
}

// Each of them is told; gives how many there are.
uint64_t tell_left_out(Host &host, const WorkingCopy &copy, const std::vector<std::string> &named) {
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    uint64_t count = 0;
    for (const std::string &path : named) {
        if (path.empty() || is_tracked(index.get(), path)) continue;
        host.out.warn(told_left_out(copy, index.get(), path));
        ++count;
    }
    return count;
}

// A pattern that nothing has.
void require_match(const WorkingCopy &copy, const std::string &pattern) {
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    const OwnedSpec spec = copy.spec({pattern}, 0, nullptr);
    const OwnedStatus list(check(zStatusListBuild(index.get(), spec.get())));
    if (!zStatusListLength(list.get()))
        throw Failed(kNotFound, say("%s: nothing matches", pattern));
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    if (options.undo) return unstage(host, copy, options.paths);
    if (options.paths.empty())
        throw Failed(kInvalid, "what is to be added? Name files; \"zev add .\" takes everything");
    std::vector<std::string> present;
    for (const std::string &path : options.paths) {
        std::string below = copy.relative(path);
        if (copy.is_on_disk(below))
            present.push_back(below);
        else if (!is_wild(path))
            fail_missing(copy, below, path);
        else
            require_match(copy, path);
    }
    const uint32_t left_out = Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_IGNORED;
    const Paths untracked =
        prepare_drawings(host, copy, copy.spec(options.paths, left_out, host.notify).get());
    change_index(copy, [&](Index *index, bool is_first) { // each file is told of once
        const OwnedSpec spec = copy.spec(options.paths, 0, is_first ? host.notify : nullptr);
        keep_directories(copy, index, present);
        drop_old_cases(copy, index, untracked);
        check(zIndexAdd(index, spec.get()));
        stop_on_break(host.notify);
    });
    constexpr uint32_t kStaged = Z_SPEC_INDEX_ONLY | Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_IGNORED;
    warn_of_read_only(host, copy, copy.spec(options.paths, kStaged, nullptr).get());
    if (tell_left_out(host, copy, present)) throw Failed(kOther, "not all was added");
    return kDone;
}

} // namespace

extern const Verb kAddVerb{"add", Group::work, Nature::changes, bind<Options, declare, run>};

} // namespace host
