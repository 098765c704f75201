#include "served.hpp"

#include <git2.h>

#include <algorithm>
#include <memory>
#include <span>
#include <stdexcept>

namespace torture {

namespace {

template <auto Fn> struct Free {
    void operator()(auto *pointer) const noexcept { Fn(pointer); }
};
template <class T, auto Fn> using Owned = std::unique_ptr<T, Free<Fn>>;

void check(int code) {
    if (code < 0) throw std::runtime_error(git_error_last() ? git_error_last()->message : "git");
}

// Calls what gives its result through a first parameter.
template <auto Fn, class T, class... Args>
Owned<T, Fn> take(int (*make)(T **, Args...), std::type_identity_t<Args>... args) {
    T *made = nullptr;
    check(make(&made, args...));
    return Owned<T, Fn>(made);
}

auto open(const Play &play) {
    return take<git_repository_free>(git_repository_open, play.copy().c_str());
}

std::string hex(const git_oid &id) { return git_oid_tostr_s(&id); }

std::string content(const fs::path &path) {
    const std::string bytes = read(path);
    git_oid id;
    check(git_odb_hash(&id, bytes.data(), bytes.size(), GIT_OBJECT_BLOB));
    return hex(id);
}

// What a trash writes of its own.
bool is_description(const fs::path &path) {
    return path.filename() == "info.$$$" || path.extension() == ".trashinfo";
}

void look_at_files(State &state, const Play &play) {
    const fs::path git = play.copy() / ".git";
    for (auto at = fs::recursive_directory_iterator(play.copy()); at != end(at); ++at) {
        if (at->path() == git) at.disable_recursion_pending();
        if (at->is_regular_file() && !at->is_symlink())
            state.work[at->path().lexically_relative(play.copy())] = content(at->path());
    }
    for (const fs::path &place : {git / "trash", play.root / "home"}) {
        if (!fs::exists(place)) continue;
        for (const auto &entry : fs::recursive_directory_iterator(place))
            if (entry.is_regular_file() && !is_description(entry.path()))
                state.kept.insert(content(entry.path()));
    }
}

// Names and contents of what the store and the tables of the drawings hold.
void look_at_store(State &state, const Play &play) {
    for (const char *part : {"objects", "tables"}) {
        if (!fs::exists(play.copy() / ".git" / part)) continue;
        for (const auto &entry : fs::recursive_directory_iterator(play.copy() / ".git" / part)) {
            const std::string name = entry.path().filename();
            if (entry.is_regular_file() && !name.starts_with("LOG"))
                state.store.insert(entry.path().lexically_relative(play.copy()).string() + " " +
                                   content(entry.path()));
        }
    }
}

int note_committed(const char *root, const git_tree_entry *entry, void *files) {
    if (git_tree_entry_type(entry) == GIT_OBJECT_BLOB)
        (*static_cast<Files *>(files))[std::string(root) + git_tree_entry_name(entry)] =
            hex(*git_tree_entry_id(entry));
    return 0;
}

auto look_at_head(State &state, git_repository *repo) {
    const auto name = take<git_reference_free>(git_reference_lookup, repo, "HEAD");
    if (const char *branch = git_reference_symbolic_target(name.get())) state.branch = branch;
    git_oid id;
    check(git_reference_name_to_id(&id, repo, "HEAD"));
    const auto commit = take<git_commit_free>(git_commit_lookup, repo, &id);
    state.head = hex(id);
    state.tree = hex(*git_commit_tree_id(commit.get()));
    for (unsigned i = 0; i < git_commit_parentcount(commit.get()); ++i)
        state.parents.insert(hex(*git_commit_parent_id(commit.get(), i)));
    auto tree = take<git_tree_free>(git_commit_tree, commit.get());
    check(git_tree_walk(tree.get(), GIT_TREEWALK_PRE, note_committed, &state.committed));
    return tree;
}

void look_at_names(State &state, git_repository *repo) {
    git_strarray list{};
    check(git_reference_list(&list, repo));
    const Owned<git_strarray, git_strarray_dispose> list_guard(&list);
    for (size_t i = 0; i < list.count; ++i) {
        // A lock's copy of a reference, which libgit2 takes for one, goes with the next locker.
        const std::string_view name = list.strings[i];
        if (name.ends_with(".zlck") || name.ends_with(".zlck.new")) continue;
        git_oid id;
        const bool leads = git_reference_name_to_id(&id, repo, list.strings[i]) == 0;
        state.names[list.strings[i]] = leads ? hex(id) : "nowhere";
    }
    const std::string path = std::string(git_repository_commondir(repo)) + "config";
    const auto config = take<git_config_free>(git_config_open_ondisk, path.c_str());
    check(git_config_foreach(
        config.get(),
        [](const git_config_entry *entry, void *names) {
            // Each play follows a project of its own.
            if (std::string_view(entry->name) != "remote.origin.url")
                (*static_cast<Files *>(names))[entry->name] = entry->value ? entry->value : "";
            return 0;
        },
        &state.names));
}

void look_at_index(State &state, git_repository *repo, git_tree *tree) {
    const auto index = take<git_index_free>(git_repository_index, repo);
    state.conflicts = git_index_has_conflicts(index.get());
    for (size_t i = 0; i < git_index_entrycount(index.get()); ++i) {
        const git_index_entry *entry = git_index_get_byindex(index.get(), i);
        state.index[entry->path] = hex(entry->id);
    }
    const auto diff = take<git_diff_free>(git_diff_tree_to_index, repo, tree, index.get(), nullptr);
    for (size_t i = 0; i < git_diff_num_deltas(diff.get()); ++i) {
        const git_diff_delta *delta = git_diff_get_delta(diff.get(), i);
        state.staged[delta->new_file.path] = hex(delta->new_file.id);
    }
}

// ---- The rules, each of which gives what is wrong or an empty text

struct Case {
    const Play &play;
    const Expected &expected;
    const Strike &strike;
    State now;

    bool killed() const { return strike.kills(); }
    bool unpowered() const { return strike.cuts_power(); }

    // Whether the one who was struck stands for one who has told that it is done. Of what comes
    // behind the last sync, a loss of power after the end may leave as much as a kill does.
    bool told() const {
        if (!killed()) return strike.code == expected.terms.code;
        return expected.terms.durable && (!strike.at || strike.at > expected.last_sync);
    }
};

bool is_old(const Case &at) {
    const State &before = at.expected.before, &between = at.expected.between;
    return at.now.branch == before.branch &&
           (at.now.head == before.head || (!between.tree.empty() && at.now.tree == between.tree));
}

bool has(const Files &files, const std::string &path, const std::string &content) {
    const auto found = files.find(path);
    return found != files.end() && found->second == content;
}

// A drawing that was merged has keys of its own each time; it comes out as it has to all the same.
bool comes_out_as(const Case &at, const std::string &path, const std::string &content) {
    const auto known = at.expected.drawings.find(content);
    return known != at.expected.drawings.end() && exported(at.play, path).text == known->second;
}

bool has_new_tree(const Case &at) {
    const State &now = at.now, &after = at.expected.after;
    if (now.tree == after.tree) return true;
    return now.committed.size() == after.committed.size() &&
           std::ranges::all_of(now.committed, [&](auto &file) {
               const auto &[path, content] = file;
               const auto wanted = after.committed.find(path);
               return wanted != after.committed.end() &&
                      (content == wanted->second ||
                       (path.ends_with(".dwx") && has(now.work, path, content) &&
                        comes_out_as(at, path, wanted->second)));
           });
}

bool is_new(const Case &at) {
    const State &after = at.expected.after;
    return at.now.branch == after.branch && has_new_tree(at) &&
           (at.now.head == after.head || at.now.parents.contains(at.expected.before.head) ||
            at.now.parents == after.parents || // in place of the head
            !at.expected.between.tree.empty());
}

std::string said(const Files &names, const std::string &name) {
    const auto found = names.find(name);
    return found == names.end() ? "" : found->second;
}

// An update goes out from a commit without what the server never got, which is staged then, as it
// is on the disk.
bool is_on_its_way(const Case &at) {
    const State &before = at.expected.before;
    return at.expected.terms.unsent && at.now.branch == before.branch &&
           at.now.parents.contains(before.head);
}

// The first name that says neither what it did nor what it was to say; once the operation is
// done, one that doesn't say what it was to. Where a reference moves, each run makes a commit of
// its own.
std::string wrong_name(const Case &at, bool done) {
    const auto passes = [](const std::string &name) { // goes with the next one that locks the copy
        return name.starts_with("refs/zev/checkout-") || name.starts_with("refs/zev/agreed/") ||
               name.starts_with("refs/zev/server/"); // a note, which the next one does without
    };
    Files all = at.expected.before.names;
    for (const Files *names : {&at.expected.after.names, &at.now.names})
        all.insert(names->begin(), names->end());
    for (const auto &[name, value] : all) {
        const std::string old = said(at.expected.before.names, name),
                          now = said(at.now.names, name);
        const std::string wanted = said(at.expected.after.names, name);
        const bool moves = name.starts_with("refs/") && !old.empty() && !wanted.empty();
        const std::string halfway = said(at.expected.between.names, name);
        const bool right =
            now == wanted || (!done && (now == old || now == halfway)) || (moves && old != wanted);
        const bool struck = at.strike.at != 0; // then it may be what could not be taken away
        if (!(right || ((struck || !done) && passes(name))) || (moves && now.empty())) return name;
    }
    return "";
}

std::string names_are_old_or_new(const Case &at) { return wrong_name(at, false); }

bool is_named(const Case &at, const std::string &path) {
    return at.expected.before.work.contains(path) || at.expected.after.work.contains(path) ||
           at.expected.before.index.contains(path) || at.expected.between.work.contains(path);
}

// A merge leaves out a file that can't be written, and fails; the next one brings the rest.
bool is_part(const Case &at) {
    if (at.killed() || at.strike.code == 0) return false;
    if (!at.now.parents.contains(at.expected.before.head)) return false;
    return std::ranges::all_of(at.now.committed, [&](auto &file) {
        const auto &[path, content] = file;
        return has(at.expected.before.committed, path, content) ||
               has(at.expected.after.committed, path, content);
    });
}

std::string head_is_old_or_new(const Case &at) {
    if (!at.now.fault.empty()) return at.now.fault;
    return is_old(at) || is_new(at) || is_part(at) || is_on_its_way(at)
               ? ""
               : at.now.branch + " at " + at.now.head;
}

// The beginning of a program's output, in one line.
std::string first_of(std::string text) {
    text.resize(std::min<size_t>(text.size(), 200));
    std::ranges::replace(text, '\n', ' ');
    return text;
}

bool is_untouched(const Case &at) {
    const State &before = at.expected.before;
    return at.now.store == before.store && at.now.index == before.index && is_old(at);
}

Outcome add_next(const Case &at) {
    write(at.play.copy() / "next.txt", "the next day\n");
    return at.play.run({"zev", "add", "next.txt"});
}

bool names_loose_object(const fs::path &path) {
    return path.filename().string().size() == 38 &&
           path.parent_path().filename().string().size() == 2;
}

// Objects that were never synced may be empty. Our next command takes them away if a lock of ours
// tells it that somebody was struck, else whoever writes them; nothing may need them before.
void pass_empty_objects(const Case &at) {
    const bool tells = fs::exists(at.play.copy() / ".git/.index.zlck");
    add_next(at);
    if (tells) return;
    for (const auto &entry : fs::recursive_directory_iterator(at.play.copy() / ".git/objects"))
        if (names_loose_object(entry.path()) && entry.file_size() == 0) fs::remove(entry.path());
}

// Of a copy that follows a server also where nothing seems to have happened: a log may tell of what
// never came.
std::string objects_are_whole(const Case &at) {
    if (at.play.url.empty() && is_untouched(at)) return "";
    if (at.strike.mode == "hollow" && at.killed() && !at.expected.git) pass_empty_objects(at);
    const Outcome fsck = at.play.run({"git", "fsck", "--strict", "--no-dangling"});
    const bool missing = fsck.text.find("missing") != std::string::npos;
    return fsck.code == 0 && !missing ? "" : first_of(fsck.text);
}

// A drawing may be one of the known ones under a new key.
bool is_known_drawing(const Case &at, const std::string &path) {
    return path.ends_with(".dwx") &&
           std::ranges::any_of(at.expected.drawings,
                               [bytes = exported(at.play, path).text](auto &known) {
                                   return known.second == bytes;
                               });
}

// The same from the other side: a known one may be in the copy under a new key.
bool has_new_key(const Case &at, const std::string &content) {
    const auto known = at.expected.drawings.find(content);
    return known != at.expected.drawings.end() && std::ranges::any_of(at.now.work, [&](auto &file) {
               return file.first.ends_with(".dwx") &&
                      exported(at.play, file.first).text == known->second;
           });
}

// Reading an object compares its bytes with its name.
bool in_store(git_odb *odb, const std::string &content) {
    git_oid id;
    git_odb_object *object = nullptr;
    const bool found =
        git_oid_fromstr(&id, content.c_str()) == 0 && git_odb_read(&object, odb, &id) == 0;
    git_odb_object_free(object);
    return found;
}

std::string no_byte_is_lost(const Case &at) {
    const auto repo = open(at.play);
    const auto odb = take<git_odb_free>(git_repository_odb, repo.get());
    std::set<std::string> held = at.now.kept;
    for (const auto &[path, content] : at.now.work) held.insert(content);
    for (const auto &[path, content] : at.expected.before.work)
        if (!held.contains(content) && !in_store(odb.get(), content) && !has_new_key(at, content))
            return path;
    for (const std::string &content : at.expected.before.kept)
        if (!held.contains(content) && !in_store(odb.get(), content)) return "trash: " + content;
    return "";
}

// A file of the user is as it was or as it was to become, never something in between. Without
// power, what was only just brought out of the store may be anything.
std::string no_file_is_torn(const Case &at) {
    std::set<std::string> known;
    const State &before = at.expected.before, &after = at.expected.after;
    const State &between = at.expected.between;
    for (const Files *files :
         {&before.work, &before.index, &after.work, &after.index, &between.work, &between.index})
        for (const auto &[path, content] : *files) known.insert(content);
    for (const auto &[path, content] : at.now.work)
        if (is_named(at, path) && !at.unpowered() && !known.contains(content) &&
            !is_known_drawing(at, path))
            return path;
    return "";
}

// A file that the next command would have to bring back, as HEAD has it.
std::string no_file_is_away(const Case &at) {
    const Files &after = at.expected.after.work;
    for (const auto &[path, content] : at.expected.before.work)
        if (at.expected.terms.stays && after.contains(path) && !at.now.work.contains(path))
            return path;
    return "";
}

// An index that is ahead of the head is what the killed writer would have committed.
bool is_ahead(const Case &at, const std::string &path, const std::string &content) {
    const State &before = at.expected.before, &after = at.expected.after;
    if (path.ends_with(".dwx") && !has(before.index, path, content)) return true; // a new key
    const bool gone = !at.now.index.contains(path) && !after.index.contains(path);
    return (is_old(at) || is_on_its_way(at)) &&
           (gone || has(after.index, path, content) || has(before.work, path, content));
}

std::string index_is_no_older(const Case &at) {
    const State &before = at.expected.before, &after = at.expected.after;
    for (const auto &[path, content] : at.now.staged)
        if (!has(before.staged, path, content) && !has(after.staged, path, content) &&
            !has(at.expected.between.staged, path, content) && !is_ahead(at, path, content))
            return path + " is " + content;
    return "";
}

// Whether drawings are what they have to be is another rule's.
std::string differing(const Files &a, const Files &b) {
    for (const auto &[path, content] : a) {
        const auto other = b.find(path);
        if (other == b.end() || (content != other->second && !path.ends_with(".dwx"))) return path;
    }
    return a.size() == b.size() ? "" : a.size() < b.size() ? differing(b, a) : "";
}

std::string done_is_done(const Case &at) {
    const State &after = at.expected.after;
    const std::string text = first_of(at.strike.text);
    if (at.strike.mode == "short" && at.strike.code != at.expected.terms.code)
        return "a short write: " + text;
    if (at.strike.code == 124) return "hangs";
    if (!at.killed() && at.strike.code > 128) return "signal: " + text;
    if (!at.told()) return "";
    if (at.killed()) return is_new(at) && wrong_name(at, true).empty() ? "" : "forgotten: " + text;
    if (const std::string name = wrong_name(at, true); !name.empty())
        return "done, but " + name + " is old: " + text;
    if (!is_new(at)) return "done, but the head is old: " + text;
    const std::string staged = differing(at.now.staged, after.staged);
    if (!staged.empty()) return "done, but the index has another " + staged + ": " + text;
    const std::string file = differing(at.now.work, after.work);
    // A file that somebody removed by hand may come back on the way, or not.
    const bool lost =
        at.expected.before.index.contains(file) && !at.expected.before.work.contains(file);
    return file.empty() || lost ? "" : "done, but there is another " + file + ": " + text;
}

// ---- The next day's work

// What a loss of power, or a disk that takes nothing more, leaves beside the head, locks above all,
// must not take it back once the operation was told.
std::string told_outlives(const Case &at) {
    if (at.expected.git || !at.told()) return "";
    const Outcome added = add_next(at);
    State then = look(at.play);
    then.staged.erase("next.txt");
    const bool stands = then.head == at.now.head && then.branch == at.now.branch &&
                        differing(then.staged, at.now.staged).empty();
    return added.code == 0 && stands ? "" : "goes with the next command: " + first_of(added.text);
}

// A commit is there once, whoever heard of it.
std::string server_is_old_or_new(const Case &at) {
    if (at.play.url.empty()) return "";
    const std::string now = served(at.play), old = at.expected.served_before;
    const bool done = now == at.expected.served_after;
    if (!done && at.told()) return "forgotten: " + now;
    return done || now == old ? "" : now;
}

std::string server_goes_along(const Case &at) {
    if (at.play.url.empty()) return "";
    const std::string now = served(at.play), tree = look(at.play).tree;
    if (!now.starts_with(tree)) return "the copy is at " + tree + ", the server at " + now;
    const Outcome fsck =
        at.play.run({"git", "-C", at.play.project, "-c", "safe.directory=*", "fsck", "--strict"});
    return fsck.code ? first_of(fsck.text) : "";
}

std::string is_clean(const Play &play) {
    const Outcome status = play.run({"git", "status", "--porcelain", "-uall"});
    return status.code == 0 && status.text.empty() ? "" : first_of(status.text);
}

std::string next_commit(const Case &at) {
    write(at.play.copy() / "next.txt", "the next day\n");
    std::vector<Words> steps{{"zev", "commit", "-m", "next", "."}};
    if (at.expected.git) steps = {{"git", "add", "-A"}, {"git", "commit", "-qm", "next"}};
    if (at.now.branch.empty()) at.play.run({"zev", "switch", "--create", "next"}); // commits come
    // A resolution that was cut short may be taken back by the next command.
    if (!at.expected.git && (at.now.conflicts || at.expected.before.conflicts))
        at.play.run({"zev", "resolve", "--mine", "--all"});
    for (const Words &step : steps) {
        Outcome done = at.play.run(step);
        const bool meets = at.expected.terms.code == kConflicts || at.expected.terms.meets;
        if (done.code == kConflicts && meets) { // it meets it now
            at.play.run({"zev", "resolve", "--mine", "--all"});
            done = at.play.run(step);
        }
        if (done.code != 0) return step[1] + ": " + first_of(done.text);
    }
    // What came back from the trash before the index knew of it, or stands beside its staged
    // removal, is to be added like any new file.
    if (!at.expected.git && is_clean(at.play).starts_with("?? ")) {
        at.play.run({"zev", "add", "."});
        at.play.run({"zev", "commit", "-m", "next", "."});
    }
    if (const std::string rest = is_clean(at.play); !rest.empty()) return "not clean: " + rest;
    const State then = look(at.play);
    return then.work.contains("next.txt") ? "" : "next.txt is gone";
}

// The log of a branch that was only just begun may reach the disk ahead of the branch.
bool is_only_begun(const Case &at, const std::string &text) {
    return at.unpowered() && text.find(": 1 problem") != text.npos &&
           std::ranges::any_of(at.expected.after.names, [&](auto &name) {
               return !at.expected.before.names.contains(name.first) &&
                      text.find(name.first + ": is gone; by its log") != text.npos;
           });
}

// The locks of whoever was killed are gone by now.
std::string all_verifies(const Case &at) {
    if (at.expected.git || is_untouched(at)) return "";
    const Outcome verify = at.play.run({"zev", "verify"});
    return verify.code == 0 || is_only_begun(at, verify.text) ? "" : first_of(verify.text);
}

std::string drawings_come_out(const Case &at) {
    if (at.now.store == at.expected.before.store) return "";
    for (const auto &[path, content] : at.now.work) {
        const auto known = at.expected.drawings.find(content);
        if (known == at.expected.drawings.end() || !is_named(at, path)) continue;
        const std::string out = exported(at.play, path).text;
        if (out != known->second) return path + " comes out otherwise: " + first_of(out);
    }
    return "";
}

std::string nothing_is_left_about(const Case &at) {
    for (const auto &[path, content] : look(at.play).work)
        if (!at.expected.terms.litters && !is_named(at, path) && path != "next.txt") return path;
    return "";
}

std::string no_byte_is_lost_later(const Case &at) {
    return no_byte_is_lost({at.play, at.expected, at.strike, look(at.play)});
}

struct Rule {
    const char *name;
    std::string (*holds)(const Case &at);
};

constexpr Rule kAtOnce[] = {
    {"head", head_is_old_or_new}, {"names", names_are_old_or_new},  {"bytes", no_byte_is_lost},
    {"torn", no_file_is_torn},    {"away", no_file_is_away},        {"index", index_is_no_older},
    {"claim", done_is_done},      {"server", server_is_old_or_new},
};

constexpr Rule kGoingOn[] = {
    // From here on the copy may be another.
    {"whole", objects_are_whole},
    {"told", told_outlives},
    {"next", next_commit},
    {"verify", all_verifies},
    {"litter", nothing_is_left_about},
    {"drawing", drawings_come_out},
    {"later", no_byte_is_lost_later},
    {"along", server_goes_along},
};

std::string broken_of(const Case &at, std::span<const Rule> rules) {
    for (const Rule &rule : rules) try {
            if (const std::string what = rule.holds(at); !what.empty())
                return std::string(rule.name) + ": " + what;
        } catch (const std::exception &error) {
            return std::string(rule.name) + ": " + error.what();
        }
    return "";
}

std::string broken_of(const Case &at) {
    const std::string what = broken_of(at, kAtOnce);
    return what.empty() ? broken_of(at, kGoingOn) : what;
}

// The same once more, with a server that is well: it ends as if nothing had been.
std::string broken_again(const Case &at, const Words &words) {
    const Outcome again = at.play.run(words);
    const Strike none{"none", 0, again.code, again.text, true};
    const Case then{at.play, at.expected, none, look(at.play)};
    if (!then.told()) return "again: " + first_of(again.text);
    const std::string what = broken_of(then);
    return what.empty() ? "" : "again, " + what;
}

} // namespace

State look(const Play &play) {
    State state;
    try {
        look_at_files(state, play);
        look_at_store(state, play);
        const auto repo = open(play);
        look_at_names(state, repo.get());
        look_at_index(state, repo.get(), look_at_head(state, repo.get()).get());
    } catch (const std::exception &error) {
        state.fault = error.what();
    }
    return state;
}

std::string judge(const Play &play, const Expected &expected, const Strike &strike,
                  const Words &words) {
    const Case at{play, expected, strike, look(play)};
    if (!strike.at_server || at.told()) return broken_of(at);
    const std::string what = broken_of(at, kAtOnce);
    return what.empty() ? broken_again(at, words) : what;
}

} // namespace torture
