// commit and status.

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

// Does a side's status say that something changed there? 7 stands for "nothing" as well as for
// untracked.
bool is_change(int32_t side) {
    return side == Z_KIND_ADDED || side == Z_KIND_DELETED || side == Z_KIND_MODIFIED ||
           side == Z_KIND_RENAMED || side == Z_KIND_TYPECHANGE;
}

void print_entry(Host &host, const StatusEntry *entry) {
    int32_t kind = zStatusEntryStatus(entry);
    bool known = kind != Z_KIND_UNTRACKED;
    bool staged = known && is_change(zStatusEntryIndexStatus(entry));
    bool unstaged = !known || kind == Z_KIND_MISSING || is_change(zStatusEntryWorkdirStatus(entry));
    std::string path = shown_path(zStatusEntryPath(entry));
    std::string from = shown_path(zStatusEntryFrom(entry));
    if (host.out.json()) {
        Record record("status");
        record.set(u"path", path).set(u"status", kind_name(kind));
        record.set(u"staged", staged).set(u"unstaged", unstaged);
        if (from != path) record.set(u"from", from);
        return host.out.record(record);
    }
    const char *mark = staged ? (unstaged ? "! " : "+ ") : "  ";
    host.out.line(mark + host.out.paint(kind_colour(kind), padded(kind_name(kind), 12)) +
                  (from != path ? from + " -> " + path : path));
}

// A path without changes is there, or at least committed; else its name is wrong.
void require_known(const WorkingCopy &copy, Index *index, const Paths &paths,
                   const Notify *notify) {
    for (const std::string &path : paths) {
        if (is_wild(path) || std::filesystem::exists(copy.absolute(copy.relative(path)))) continue;
        OwnedSpec spec = copy.spec({path}, 0, notify);
        OwnedStatus list(check(zStatusListBuild(index, spec.get())));
        if (!zStatusListLength(list.get()))
            throw Failed(kNotFound, path + ": no such file or directory");
    }
}

} // namespace

int commit(Host &host, const CommitOptions &options) {
    WorkingCopy copy;
    std::string message = clean(options.message);
    if (message.find_first_not_of(" \t\r\n\b\f") == message.npos)
        throw Failed(kInvalid, "the message is empty; say what was done");
    std::string author = clean(options.author.empty() ? default_author() : options.author);
    OwnedIndex index = copy.lock_index();
    if (zIndexHasConflicts(index.get())) {
        host.out.fail(Failed(kOther, "conflicts remain; resolve them first"), kConflicts);
        return kConflicts;
    }
    OwnedSpec spec;
    if (options.paths.empty()) {
        require_changes(copy, index.get());
    } else {
        spec = copy.spec(options.paths, Z_SPEC_NO_IGNORED, host.notify);
        keep_named(copy, index.get(), options.paths);
    }
    stop_on_break(host.notify);
    OwnedCommit made(zIndexCommit(index.get(), spec.get(), u"HEAD", wide(author).c_str(),
                                  wide(message).c_str()));
    if (!made && spec && zErrorClass() == kNotFound)
        throw Failed(kNotFound, narrow(zErrorMsg())); // nothing changed at these paths
    check(!!made);
    std::string id = hex(zCommitId(made.get()));
    host.out.line(host.out.paint(Colour::yellow, id.substr(0, 8)) + " " + first_line(message));
    host.out.record(Record("commit")
                        .set(u"id", id)
                        .set(u"tree", zCommitTreeId(made.get()))
                        .set(u"author", author)
                        .set(u"message", message));
    return kDone;
}

int status(Host &host, const Paths &paths) {
    WorkingCopy copy;
    OwnedSpec spec = copy.spec(paths, Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_IGNORED, host.notify);
    // With the lock the times of files that turned out unchanged are remembered; when another
    // process holds it, or the copy can't be written, a look without it does.
    OwnedIndex index(zIndexHead(copy.repository(), true));
    if (!index) index.reset(check(zIndexHead(copy.repository(), false)));
    OwnedStatus list(check(zStatusListBuild(index.get(), spec.get())));
    uint64_t count = zStatusListLength(list.get());
    for (uint64_t i = 0; i < count; ++i) {
        stop_on_break(host.notify);
        print_entry(host, zStatusListEntry(list.get(), i));
    }
    if (!count) require_known(copy, index.get(), paths, host.notify);
    host.out.record(Record("summary").set(u"changes", count));
    if (!count) host.out.line("nothing has changed");
    return kDone;
}

} // namespace host
