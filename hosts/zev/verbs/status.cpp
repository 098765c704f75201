// status: what differs between the last commit, the index and the disk.

#include "detached.hpp"
#include "kinds.hpp"
#include "merge_state.hpp"
#include "moved.hpp"
#include "reception.hpp"
#include "server_note.hpp"
#include "transfer.hpp"
#include "verb.hpp"
#include "when.hpp"

#include <algorithm>
#include <cstring>

namespace host {

namespace fs = std::filesystem;

namespace {

struct Options {
    Paths paths; // none: everything
    bool brief = false;
    bool ignored = false;
};

void declare(Command &verb, Options &options) {
    verb.alias("st");
    verb.description("Show what differs from the last commit");
    verb.footer(
        "+ marks what the next commit holds, ! what was changed again since. With --short one\n"
        "line a file: what changed between commit and index, and between index and disk, by\n"
        "the letters A added, M modified, D deleted, R renamed, T another type; ?? untracked,\n"
        "!! ignored; in a conflict UU, AA, DD, UD, DU, AU, UA for ours and theirs.\n"
        "Examples:\n  zev status\n  zev status plans --json\n  zev status --short --ignored");
    verb.add_option("paths", options.paths, "Only these files");
    verb.add_flag("-s,--short", options.brief, "One line a file: XY path");
    verb.add_flag("--ignored", options.ignored, "Ignored files, too");
}

// ---- Letters, as git has them

struct ConflictWords {
    const char *letters, *words;
};

// By what there is of the ancestor, ours and theirs: bits 4, 2, 1.
constexpr ConflictWords kConflicts[] = {
    {"UU", ""},
    {"UA", "added by them"},
    {"AU", "added by us"},
    {"AA", "both added"},
    {"DD", "both deleted"},
    {"DU", "deleted by us"},
    {"UD", "deleted by them"},
    {"UU", "both modified"},
};

class Conflicts {
  public:
    explicit Conflicts(const WorkingCopy &copy) : copy_(copy) {}

    const ConflictWords &of(const zwchar *path) {
        if (!index_) index_.reset(check(zIndexHead(copy_.repository(), false)));
        const Owned<Conflict, zConflictFree> found(zConflictGet(index_.get(), path));
        if (!found) return kConflicts[0]; // settled in the meantime
        return kConflicts[(zConflictAncestorEntry(found.get()) ? 4 : 0) |
                          (zConflictOurEntry(found.get()) ? 2 : 0) |
                          (zConflictTheirEntry(found.get()) ? 1 : 0)];
    }

    bool on_disk(const zwchar *path) const {
        std::error_code ignored;
        const fs::file_status status = fs::symlink_status(copy_.absolute(narrow(path)), ignored);
        return fs::exists(status) && !fs::is_directory(status);
    }

  private:
    const WorkingCopy &copy_;
    OwnedIndex index_;
};

char letter(int32_t side) {
    switch (side) {
    case Z_KIND_ADDED:
        return 'A';
    case Z_KIND_DELETED:
        return 'D';
    case Z_KIND_MODIFIED:
        return 'M';
    case Z_KIND_RENAMED:
        return 'R';
    case Z_KIND_TYPECHANGE:
        return 'T';
    default:
        return ' ';
    }
}

// ---- One file

struct File {
    const StatusEntry *entry;
    int32_t kind, staged, unstaged; // of the file; of each side alone
    std::string letters;            // XY
    bool twice = false;             // out of the index and still on disk
    const char *conflict = "";

    File(const StatusEntry *of, Conflicts &conflicts)
        : entry(of), kind(zStatusEntryStatus(of)), staged(zStatusEntryIndexStatus(of)),
          unstaged(zStatusEntryWorkdirStatus(of)) {
        const bool known =
            kind != Z_KIND_UNTRACKED && kind != Z_KIND_IGNORED && kind != Z_KIND_UNREADABLE;
        if (kind == Z_KIND_CONFLICTED) {
            const ConflictWords &words = conflicts.of(zStatusEntryPath(entry));
            letters = words.letters;
            conflict = words.words;
        } else if (staged == Z_KIND_DELETED && unstaged != Z_KIND_DELETED) {
            twice = conflicts.on_disk(zStatusEntryPath(entry));
            letters = "D ";
        } else if (!known) {
            letters = lone();
        } else {
            letters = {letter(staged), letter(unstaged)};
        }
    }

    // Of what the index doesn't have.
    const char *lone() const { return kind == Z_KIND_IGNORED ? "!!" : "??"; }
    bool renamed() const { return staged == Z_KIND_RENAMED; }
    bool is_staged() const { return kind != Z_KIND_CONFLICTED && strchr("ADMRT", letters[0]); }
    bool is_unstaged() const { return twice || (letters[1] != ' ' && letters[1] != '!'); }
};

void print_json(Host &host, const File &file) {
    const std::string path = shown_path(zStatusEntryPath(file.entry));
    Record record("status");
    record.set(u"path", path).set(u"status", kind_name(file.kind)).set(u"letters", file.letters);
    record.set(u"staged", file.is_staged()).set(u"unstaged", file.is_unstaged());
    if (file.renamed()) record.set(u"from", shown_path(zStatusEntryFrom(file.entry)));
    if (*file.conflict) record.set(u"conflict", file.conflict);
    host.out.record(record);
}

void print_long(Host &host, const File &file) {
    const char *mark = file.is_staged() ? (file.is_unstaged() ? "! " : "+ ") : "  ";
    const std::string path = typed_path(zStatusEntryPath(file.entry));
    const std::string from = typed_path(zStatusEntryFrom(file.entry));
    host.out.line(mark + host.out.paint(kind_colour(file.kind), kind_column(file.kind)) +
                  (file.renamed() ? from + " -> " : "") + path +
                  (*file.conflict ? "  (" + say(file.conflict) + ")" : ""));
}

// Names as they are, with keep-files: as a program compares them with what else looks at the copy.
void print_short(Host &host, const File &file) {
    const std::string path = narrow(zStatusEntryPath(file.entry));
    const std::string from = file.renamed() ? narrow(zStatusEntryFrom(file.entry)) + " -> " : "";
    host.out.line(host.out.paint(kind_colour(file.kind), file.letters) + " " + from + path);
}

// ---- All of them

// Without the lock: whoever looks writes nothing, and holds up nobody.
OwnedStatus look(const WorkingCopy &copy, PathSpec *spec) {
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    return OwnedStatus(check(zStatusListBuild(index.get(), spec)));
}

// A path without changes is there, or at least committed; else its name is wrong.
void require_known(const WorkingCopy &copy, const Paths &paths, const Notify *notify) {
    for (const std::string &path : paths) {
        if (is_wild(path) || copy.is_on_disk(copy.relative(path))) continue;
        OwnedSpec spec = copy.spec({path}, 0, notify);
        if (!zStatusListLength(look(copy, spec.get()).get()))
            throw Failed(kNotFound, say("%s: no such file or directory", path));
    }
}

// Tracked files, then untracked ones, then ignored ones, each in the order of paths.
void print_sections(Host &host, const std::vector<File> &files) {
    for (const File &file : files)
        if (file.letters[0] != '?' && file.letters[0] != '!') print_short(host, file);
    for (const char *section : {"??", "!!"})
        for (const File &file : files) {
            if (file.letters != section && !(file.twice && section == std::string(file.lone())))
                continue;
            stop_on_break(host.notify);
            host.out.line(host.out.paint(Colour::dim, section) + " " +
                          narrow(zStatusEntryPath(file.entry)));
        }
}

// What was known of the server when it was asked last; nobody is asked.
void tell_server(Host &host, const WorkingCopy &copy) {
    const std::string url = origin_of(copy);
    if (url.empty()) return;
    const ServerNote note = read_note(copy);
    const std::optional<uint64_t> updates = known_updates(copy);
    std::string text =
        note.seconds ? say("as of %s", short_time(note.seconds)) : say("never asked");
    if (updates)
        text = !*updates
                   ? say("%s: nothing is new there", text)
                   : say("%s: %s would come by \"zev update\"", text, count_of(*updates, "file"));
    host.out.line(host.out.paint(Colour::dim, url + ", " + text));
    const ServerStanding standing = known_standing(copy);
    for (const std::string &line : standing_lines(standing)) host.out.line(line);
    Record record("server");
    record.set(u"url", url);
    set_standing(record, standing);
    if (updates) record.set(u"updates", *updates);
    if (note.seconds) record.set(u"asked", iso_time(note.seconds)).set(u"seconds", note.seconds);
    host.out.record(record);
}

// Who names a file wants to know of it; who names a directory, of what counts in it.
bool names_files_only(const WorkingCopy &copy, const Paths &paths) {
    const auto is_file = [&copy](const std::string &path) {
        std::error_code ignored;
        return !is_wild(path) &&
               !fs::is_directory(fs::symlink_status(copy.absolute(copy.relative(path)), ignored));
    };
    return !paths.empty() && std::all_of(paths.begin(), paths.end(), is_file);
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    tell_unfinished(host, copy);
    const bool with_ignored = options.ignored || names_files_only(copy, options.paths);
    const uint32_t left_out =
        Z_SPEC_NO_UNCHANGED | (with_ignored ? 0u : uint32_t{Z_SPEC_NO_IGNORED});
    OwnedSpec spec = copy.spec(options.paths, left_out, host.notify);
    const OwnedStatus list = look(copy, spec.get());
    Conflicts conflicts(copy);
    std::vector<File> files;
    for (uint64_t i = 0; i < zStatusListLength(list.get()); ++i)
        files.emplace_back(zStatusListEntry(list.get(), i), conflicts);
    if (files.empty()) require_known(copy, options.paths, host.notify);
    const bool beside = options.brief && !host.out.json();
    tell_detached(host, copy, beside);
    if (beside) {
        print_sections(host, files);
        tell_merge(host, copy, has_conflicts(copy), beside);
        return kDone;
    }
    bool conflicted = false, missing = false;
    for (const File &file : files) {
        stop_on_break(host.notify);
        conflicted |= file.kind == Z_KIND_CONFLICTED;
        missing |= file.kind == Z_KIND_MISSING;
        host.out.json() ? print_json(host, file) : print_long(host, file);
    }
    if (host.out.json()) tell_server(host, copy);
    tell_moves(host, copy, list.get());
    if (host.out.json()) tell_merge(host, copy, has_conflicts(copy));
    host.out.record(Record("summary").set(u"changes", uint64_t{files.size()}));
    if (files.empty()) host.out.line("nothing has changed");
    if (missing) host.out.line("\"zev revert\" brings back what is missing, \"zev rm\" drops it");
    if (conflicted) host.out.line("\"zev conflicts\" tells more, \"zev resolve\" settles them");
    if (host.out.json()) return kDone;
    tell_merge(host, copy, has_conflicts(copy));
    tell_server(host, copy);
    return kDone;
}

} // namespace

extern const Verb kStatusVerb{"status", Group::work, Nature::paged, bind<Options, declare, run>};

} // namespace host
