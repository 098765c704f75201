// log: the commits that pass the user's filters, newest first.
//
// Without paths and changes to show the commits themselves are walked. Else each step asks the
// library for the next commit that has a path, by its records of changes: one commit a step, so
// that a rename changes what is asked for from there on, and nothing is held but one commit.

#include "dxf/history.hpp"
#include "object_names.hpp"
#include "server_history.hpp"
#include "show.hpp"
#include "when.hpp"

#include <set>

namespace host {

namespace {

struct Options {
    Paths words; // a revision, paths
    Paths authors, not_authors, texts;
    std::string since, until;
    std::string object; // handle of one in the drawing that is the only path
    uint64_t count = UINT64_MAX;
    bool changes = false;
    std::string never; // see below
};

void declare(Command &verb, Options &options) {
    verb.description("Show the commits, newest first");
    verb.footer(
        "Words are a commit to begin with and paths; behind \"--\" all are paths. The names that\n"
        "they had before they were renamed are followed. An author is given as a whole, a part\n"
        "with wildcards; a text may stand anywhere in the message. A time is 2024-05-17,\n"
        "\"2024-05-17 09:30\", today, yesterday, or \"3 days ago\" (minutes to years).\n"
        "Examples:\n  zev log -n 3 HEAD~2\n  zev log --changes plans\n"
        "  zev log --author 'ann*' --since \"2 weeks ago\" --text door -- gone.dwx\n"
        "  zev log --object 3F plan.dwx");
    verb.add_option("revision", options.words, "Where to begin")->type_name("REV");
    // The one above takes paths, too, which only the verb can tell apart. This one is never
    // filled: while it may be, "--" ends the options of the verb and not the verb itself.
    verb.add_option("paths", options.never, "Only what changed these files")
        ->type_name("[--] PATH ...");
    for (const auto &[name, list, about] :
         {std::tuple("--author", &options.authors, "Only what this author did; may be given again"),
          std::tuple("--not-author", &options.not_authors,
                     "Not what this author did; may be given again"),
          std::tuple("--text", &options.texts,
                     "Only with this text in the message; may be given again")})
        verb.add_option(name, *list, about)->type_name("TEXT")->one_each();
    verb.add_option("--since", options.since, "Not before that")->type_name("TIME");
    verb.add_option("--until", options.until, "Not after that")->type_name("TIME");
    verb.add_option("-n,--limit,--max-count", options.count, "So many commits at most")
        ->unsigned_only("a count can't be negative");
    verb.add_flag("--changes", options.changes, "With the paths that each commit changed");
    verb.add_option("--object", options.object,
                    "What happened to this object of a drawing, by its handle")
        ->type_name("HANDLE");
}

using OwnedList = Owned<RevList, zRevListFree>;
using OwnedRevSpec = Owned<RevSpec, zRevSpecFree>;

OwnedSpec patterns(const Paths &texts, const std::string &around = {}) {
    OwnedSpec spec(check(zPathSpecNew(nullptr, 0)));
    for (const std::string &text : texts)
        if (!text.empty()) check(zPathSpecAdd(spec.get(), wide(around + text + around).c_str()));
    return spec;
}

bool matches(const OwnedSpec &spec, const zwchar *text) {
    return zPathSpecMatched(spec.get(), text);
}

// Which commits are shown, apart from their paths.
class CommitFilter {
  public:
    explicit CommitFilter(const Options &options)
        : authors_(patterns(options.authors)), not_authors_(patterns(options.not_authors)),
          texts_(patterns(options.texts, "*")) {
        if (!options.since.empty()) since_ = parse_when(options.since, DayEnd::first);
        if (!options.until.empty()) until_ = parse_when(options.until, DayEnd::last);
    }

    bool passes(const Commit *commit) const {
        const int64_t seconds = seconds_of(commit);
        if (seconds < since_ || seconds > until_) return false;
        const auto in = [](const OwnedSpec &spec) { return zPathSpecCount(spec.get()) > 0; };
        if (in(authors_) && !matches(authors_, zCommitAuthor(commit))) return false;
        if (in(not_authors_) && matches(not_authors_, zCommitAuthor(commit))) return false;
        return !in(texts_) || matches(texts_, zCommitMessage(commit));
    }

  private:
    OwnedSpec authors_, not_authors_, texts_;
    int64_t since_ = INT64_MIN, until_ = INT64_MAX;
};

// ---- What the user's words mean

struct Wanted {
    OwnedCommit start;
    Paths paths; // the user's
};

bool names_path(const WorkingCopy &copy, const std::string &word) {
    try {
        const std::string path = copy.relative(word);
        if (copy.is_on_disk(path)) return true;
        return copy.born() && copy.entry(copy.head().get(), path);
    } catch (const Failed &) {
        return false; // outside, or no name at all
    }
}

OwnedCommit named_commit(const WorkingCopy &copy, const std::string &word) try {
    return copy.commit(word);
} catch (const Failed &failed) {
    if (failed.error_class != kNotFound && failed.error_class != kInvalid) throw;
    return {};
}

// A word in front of "--", or without one.
void take_word(const WorkingCopy &copy, Wanted &wanted, const std::string &word, bool marked) {
    OwnedCommit commit = named_commit(copy, word);
    const bool is_path = names_path(copy, word);
    if (commit && is_path && !marked)
        throw Failed(kInvalid,
                     say("%s: is a revision and a path; put \"--\" in front of paths", word));
    if (commit && (!is_path || marked)) {
        if (wanted.start || !wanted.paths.empty())
            throw Failed(kInvalid, say("%s: one revision, in front of the paths, is enough", word));
        wanted.start = std::move(commit);
    } else if (is_path || (is_wild(word) && !marked)) {
        wanted.paths.push_back(word);
    } else {
        throw Failed(kNotFound, say(marked ? "\"%s\" names no commit"
                                           : "\"%s\" names no commit and no file; put \"--\" in "
                                             "front of a path that is gone",
                                    word));
    }
}

Wanted read_words(const WorkingCopy &copy, const Host &host, const Options &options) {
    Wanted wanted;
    const size_t count = options.words.size();
    const size_t mark = count - std::min(host.behind_mark.value_or(0), count);
    for (size_t i = 0; i < count; ++i)
        if (i < mark)
            take_word(copy, wanted, options.words[i], host.behind_mark.has_value());
        else
            wanted.paths.push_back(options.words[i]);
    if (!wanted.start) wanted.start = newest_commit(copy);
    return wanted;
}

// ---- Paths

// The paths under their names of a time: going back over a rename they get the older ones.
class Names {
  public:
    Names(const WorkingCopy &copy, const Paths &paths) : copy_(copy) {
        OwnedSpec spec = copy.spec(paths, 0, nullptr);
        literal_ = zPathSpecIsOn(spec.get(), Z_SPEC_LITERAL);
        for (uint64_t i = 0; i < zPathSpecCount(spec.get()); ++i)
            patterns_.push_back(narrow(zPathSpecEntry(spec.get(), i)));
    }
    bool empty() const { return patterns_.empty(); }

    void fill(RevSpec *spec) const {
        // Either side of a rename counts.
        const uint32_t options = Z_REV_LOCAL | Z_REV_NO_RENAMES;
        check(zRevSpecSetOptions(spec, options | (literal_ ? Z_REV_LITERAL : 0)));
        for (const std::string &pattern : patterns_)
            check(zRevSpecAddPath(spec, wide(pattern).c_str()));
    }

    // Whether the changes of a commit gave one of the paths its name.
    bool follow(const Commit *commit, DiffList *changes, PathSpec *selected) {
        const std::vector<std::string> before = patterns_;
        for (uint64_t i = 0; i < zDiffListLength(changes); ++i) {
            const DiffEntry *entry = zDiffListEntry(changes, i);
            if (zDiffEntryStatus(entry) != Z_KIND_RENAMED) continue;
            if (!zPathSpecMatched(selected, zDiffEntryNewPath(entry)) ||
                zPathSpecMatched(selected, zDiffEntryOldPath(entry)))
                continue;
            rename(commit, narrow(zDiffEntryOldPath(entry)), narrow(zDiffEntryNewPath(entry)));
        }
        return patterns_ != before;
    }

  private:
    void rename(const Commit *commit, const std::string &from, const std::string &to) {
        for (std::string &pattern : patterns_) {
            if (pattern == as_pattern(to)) {
                pattern = as_pattern(from);
                return;
            }
            if (literal_ || !to.starts_with(pattern + "/")) continue;
            const std::string rest = to.substr(pattern.size());
            if (!from.ends_with(rest)) continue;
            const std::string directory = from.substr(0, from.size() - rest.size());
            if (!is_moved(commit, directory, pattern)) continue;
            pattern = as_pattern(directory);
            return;
        }
        if (add_.insert(from).second) patterns_.push_back(as_pattern(from));
    }

    // A directory that is gone with the commit, for one that wasn't there before.
    bool is_moved(const Commit *commit, const std::string &from, const std::string &to) const {
        if (from.empty() || copy_.entry(commit, from)) return false;
        OwnedCommit parent(zCommitParent(commit));
        return parent && !copy_.entry(parent.get(), to);
    }

    std::string as_pattern(const std::string &path) const {
        return literal_ ? path : escaped(path);
    }

    const WorkingCopy &copy_;
    std::vector<std::string> patterns_;
    std::set<std::string> add_; // files that came into a directory
    bool literal_ = false;
};

// ---- The walk

class History {
  public:
    History(Host &host, const WorkingCopy &copy, const Options &options, Wanted wanted)
        : host_(host), copy_(copy), options_(options), filter_(options), names_(copy, wanted.paths),
          commit_(std::move(wanted.start)) {}

    void run() {
        const bool by_records = options_.changes || !names_.empty();
        if (by_records) ask();
        for (uint64_t left = options_.count; left && commit_;) {
            stop_on_break(host_.notify);
            if (by_records && !find()) return;
            if (filter_.passes(commit_.get())) {
                print();
                --left;
            }
            advance();
        }
    }

  private:
    // The question to the library.
    void ask() {
        spec_.reset(check(zRevSpecNew()));
        names_.fill(spec_.get());
        check(zRevSpecSetLimit(spec_.get(), 1));
        check(zRevSpecSetNotify(spec_.get(), host_.notify));
    }

    // Goes on to the next commit that has one of the paths. False when there is none.
    bool find() {
        check(zRevBaseSetByid(zRevSpecBase(spec_.get()), zCommitId(commit_.get())));
        list_.reset(check(zRevListBuild(copy_.repository(), spec_.get())));
        if (!zRevListLength(list_.get())) return false;
        const Oid *id = zRevisionId(zRevListEntry(list_.get(), 0));
        if (!zOidIsEqual(id, zCommitId(commit_.get())))
            commit_.reset(check(zCommitByid(copy_.repository(), id)));
        return true;
    }

    void print() {
        print_commit(host_, commit_.get());
        if (!options_.changes) return;
        DiffList *changes = check(zRevisionChanges(zRevListEntry(list_.get(), 0)));
        PathSpec *paths = zRevSpecPaths(spec_.get()); // without any, all pass
        for (uint64_t i = 0; i < zDiffListLength(changes); ++i) {
            const DiffEntry *entry = zDiffListEntry(changes, i);
            if (zPathSpecMatched(paths, zDiffEntryNewPath(entry)) ||
                zPathSpecMatched(paths, zDiffEntryOldPath(entry)))
                print_change(host_, entry);
        }
        host_.out.line("");
    }

    void advance() {
        if (!names_.empty()) {
            DiffList *changes = check(zRevisionChanges(zRevListEntry(list_.get(), 0)));
            if (names_.follow(commit_.get(), changes, zRevSpecPaths(spec_.get()))) ask();
        }
        commit_.reset(zCommitParent(commit_.get()));
        if (!commit_ && zErrorClass() != kNotFound) fail_raised();
    }

    Host &host_;
    const WorkingCopy &copy_;
    const Options &options_;
    CommitFilter filter_;
    Names names_;
    OwnedCommit commit_;
    OwnedRevSpec spec_;
    OwnedList list_; // of the commit at hand
};

// ---- One object

constexpr struct {
    const char *name;
    Colour colour;
} kEvents[] = {{"added", Colour::green}, {"modified", Colour::yellow}, {"removed", Colour::red}};

void print_event(Host &host, const dxf::ObjectEvent &event, const Commit *commit) {
    const auto &kind = kEvents[event.kind];
    const std::string author = clean(narrow(zCommitAuthor(commit)));
    const std::string message = narrow(zCommitMessage(commit));
    if (host.out.json())
        return host.out.record(Record("event")
                                   .set(u"change", kind.name)
                                   .set(u"commit", &event.commit)
                                   .set(u"author", author)
                                   .set(u"time", iso_time(seconds_of(commit)))
                                   .set(u"seconds", seconds_of(commit))
                                   .set(u"path", event.path)
                                   .set(u"message", message));
    host.out.line(host.out.paint(Colour::yellow, padded(short_id(&event.commit), 10)) +
                  host.out.paint(kind.colour, padded(say(kind.name), 10)) +
                  padded(short_time(seconds_of(commit)), 18) + padded(author, 16) +
                  clean(message.substr(0, message.find('\n'))));
}

int log_object(Host &host, const WorkingCopy &copy, const Commit *start, const std::string &path,
               const Options &options) {
    const uint64_t number = parse_object(options.object);
    const CommitFilter filter(options);
    uint64_t left = options.count;
    if (!left) return kDone;
    const bool found = dxf::object_events(
        copy.repository(), start, path, number, host.notify, [&](const dxf::ObjectEvent &event) {
            OwnedCommit commit(check(zCommitByid(copy.repository(), &event.commit)));
            if (!filter.passes(commit.get())) return true;
            print_event(host, event, commit.get());
            return --left > 0;
        });
    if (!found)
        throw Failed(kNotFound, say("%s: has never had an object %s", path, object_name(number)));
    return kDone;
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    bring_history(host, copy);
    Wanted wanted = read_words(copy, host, options);
    if (options.object.empty()) {
        History(host, copy, options, std::move(wanted)).run();
        return kDone;
    }
    if (wanted.paths.size() != 1 || !is_drawing_name(wanted.paths[0]))
        throw Failed(kInvalid, "--object needs one drawing, a .dwx file");
    return log_object(host, copy, wanted.start.get(), copy.relative(wanted.paths[0]), options);
}

} // namespace

extern const Verb kLogVerb{"log", Group::history, Nature::paged, bind<Options, declare, run>};

} // namespace host
