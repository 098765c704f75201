// commit: a state of the files, kept for good.

#include "verbs.hpp"

#include <pwd.h>
#include <unistd.h>

namespace host {

namespace {

std::string default_author() {
    for (const char *name : {"ZEV_AUTHOR", "LOGNAME", "USER"})
        if (const char *value = getenv(name); value && *value) return value;
    if (const passwd *user = getpwuid(geteuid())) return user->pw_name;
    throw Failed(kInvalid, "who is it? Give --author NAME or set ZEV_AUTHOR");
}

// Without paths the commit takes the index as it is: does it differ from HEAD at all?
void require_changes(const WorkingCopy &copy, Index *index) {
    bool same = zIndexEntryCount(index) == 0;
    if (copy.born()) {
        OwnedTree tree(check(zIndexWriteTree(index)));
        same = zOidIsEqual(zTreeId(tree.get()), zCommitTreeId(copy.head().get()));
    }
    if (same) throw Failed(kNotFound, "nothing to commit; \"zev add\" files or name them");
}

// The keep-files of named directories are part of them.
void keep_named(const WorkingCopy &copy, Index *index, const Paths &paths) {
    for (const std::string &path : paths) {
        std::string below = copy.relative(path);
        if (!below.empty() && std::filesystem::is_directory(copy.absolute(below)))
            check(zIndexFixupGitkeep(index, wide(below).c_str()));
    }
}

std::string first_line(const std::string &text) { return text.substr(0, text.find('\n')); }

} // namespace

std::string author_of(const std::string &given) {
    return clean(given.empty() ? default_author() : given);
}

int commit(Host &host, const CommitOptions &options) {
    WorkingCopy copy;
    std::string message = clean(options.message);
    if (message.find_first_not_of(" \t\r\n\b\f") == message.npos)
        throw Failed(kInvalid, "the message is empty; say what was done");
    std::string author = author_of(options.author);
    OwnedIndex index = copy.lock_index();
    if (zIndexHasConflicts(index.get())) {
        const char *what = "conflicts remain; \"zev conflicts\" lists them";
        host.out.fail(Failed(kOther, what), kConflicts);
        return kConflicts;
    }
    OwnedSpec spec;
    // Of paths only, it doesn't settle a merge.
    const std::string note = options.paths.empty() ? unfinished_merge(copy) : "";
    if (options.paths.empty()) {
        if (note.empty()) require_changes(copy, index.get());
    } else {
        spec = copy.spec(options.paths, Z_SPEC_NO_IGNORED, host.notify);
        keep_named(copy, index.get(), options.paths);
    }
    if (!note.empty()) message += "\n\n" + note;
    stop_on_break(host.notify);
    OwnedCommit made(zIndexCommit(index.get(), spec.get(), u"HEAD", wide(author).c_str(),
                                  wide(message).c_str()));
    if (!made && spec && zErrorClass() == kNotFound)
        throw Failed(kNotFound, narrow(zErrorMsg())); // nothing changed at these paths
    check(!!made);
    if (!note.empty()) finish_merge(copy);
    std::string id = hex(zCommitId(made.get()));
    host.out.line(host.out.paint(Colour::yellow, id.substr(0, 8)) + " " + first_line(message));
    host.out.record(Record("commit")
                        .set(u"id", id)
                        .set(u"tree", zCommitTreeId(made.get()))
                        .set(u"author", author)
                        .set(u"message", message));
    return kDone;
}

} // namespace host
