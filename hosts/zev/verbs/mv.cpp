// mv: files and directories under another name, drawings with their tables. What was moved outside
// before is put back first, and then moved as if it had not been.

#include "front.hpp"
#include "index_change.hpp"
#include "keep_files.hpp"
#include "moved.hpp"
#include "odd_names.hpp"
#include "sending.hpp"
#include "walks.hpp"

namespace host {

namespace fs = std::filesystem;

namespace {

struct Options {
    std::string from, to;
};

void declare(Command &verb, Options &options) {
    verb.description("Move or rename a file or a directory");
    verb.footer("What another program has moved already is taken as moved.\n"
                "Examples:\n  zev mv plan.dwx ground.dwx\n  zev mv plan.dwx plans");
    verb.add_option("from", options.from, "What to move")->required();
    verb.add_option("to", options.to, "New name, or a directory to move into")->required();
}

// The tables of moved drawings follow, so that the next add doesn't take these for copies.
void move_tables(const WorkingCopy &copy, Index *index, const std::string &from,
                 const std::string &to) {
    Paths drawings;
    each_entry_of(index, [&](const IndexEntry *entry) {
        std::string path = narrow(zIndexEntryPath(entry));
        if (is_drawing_name(path) && same_or_below(path, to)) drawings.push_back(std::move(path));
    });
    for (const std::string &path : drawings) move_table(copy, from + path.substr(to.size()), path);
}

class Mover {
  public:
    Mover(const WorkingCopy &copy, const std::string &from, const std::string &to)
        : copy_(copy), from_(from), to_(to), in_case_(zStrcasesameA(from.c_str(), to.c_str())) {}

    // Throws for what can't be moved.
    void look(const std::string &given) {
        const OwnedIndex index(check(zIndexHead(copy_.repository(), false)));
        happened_ = !copy_.is_on_disk(from_) && copy_.is_on_disk(to_) &&
                    is_tracked(index.get(), from_) && !is_tracked(index.get(), to_);
        if (happened_) return;
        if (!copy_.is_on_disk(from_))
            throw Failed(kNotFound, say("%s: no such file or directory", given));
        if (same_or_below(to_, from_))
            throw Failed(kInvalid, say("%s: can't move into itself", given));
        if (copy_.is_on_disk(to_) && !is_one_file())
            throw Failed(kExists, say("%s: is there already", typed_path(to_)));
    }

    OwnedIndex run(const std::string &given) {
        if (happened_) check(shift(to_, from_), to_);
        try {
            return change_index(
                copy_,
                [&](Index *index, bool) {
                    if (in_case_) rename(index, from_, aside(), given);
                    rename(index, in_case_ ? aside() : from_, to_, given);
                    keep_directories(copy_, index, {to_});
                },
                [&] { undo(); }); // what the index doesn't say did not happen
        } catch (...) {
            undo();
            if (happened_) shift(from_, to_);
            throw;
        }
    }

  private:
    // A disk that doesn't tell the two names apart.
    bool is_one_file() const {
        std::error_code error;
        return in_case_ && fs::equivalent(copy_.absolute(from_), copy_.absolute(to_), error);
    }

    // No index holds two names that differ in case only, not even on the way from one to the other.
    std::string aside() const {
        const fs::path to(to_);
        return (to.parent_path() / (".zev-" + to.filename().string())).generic_string();
    }

    void rename(Index *index, const std::string &from, const std::string &to,
                const std::string &given) const {
        check(zIndexRename(index, wide(from).c_str(), wide(to).c_str()), given);
    }
    bool move(const std::string &from, const std::string &to) const {
        return zWorkdirRename(zRepositoryWorkdir(copy_.repository()), wide(from).c_str(),
                              wide(to).c_str(), false);
    }

    // Two names that differ in case only are one to the library, which moves nothing then.
    bool shift(const std::string &from, const std::string &to) const {
        return in_case_ ? move(from, aside()) && move(aside(), to) : move(from, to);
    }

    // To where it lay when we began, as far as it has left there.
    void undo() const {
        if (in_case_ && copy_.is_on_disk(aside())) move(aside(), from_);
        if (copy_.is_on_disk(to_) && !copy_.is_on_disk(from_)) shift(to_, from_);
    }

    const WorkingCopy &copy_;
    const std::string from_, to_;
    const bool in_case_;
    bool happened_ = false;
};

// What no commit holds is moved on the disk only.
int move_odd_file(Host &host, const WorkingCopy &copy, const Options &options) {
    std::string target = copy.relative(options.to);
    if (fs::is_directory(copy.absolute(target)))
        throw Failed(kInvalid, say("%s: is a directory; give a new name, too", options.to));
    move_odd(copy, options.from, copy.absolute(target).string());
    host.out.line(host.out.paint(Colour::cyan, action_column(say("Renamed"))) + options.from +
                  " -> " + typed_path(target));
    host.out.record(Record("action")
                        .set(u"action", "renamed")
                        .set(u"from", visible(options.from))
                        .set(u"path", target));
    return kDone;
}

// A directory is moved into, unless it is what was moved, or is to be but spelled anew.
std::string place_of(const WorkingCopy &copy, const std::string &from, const std::string &to) {
    if (!fs::is_directory(copy.absolute(to)) || zStrcasesameA(from.c_str(), to.c_str())) return to;
    const std::string name = fs::path(from).filename().string();
    const std::string within = to.empty() ? name : to + "/" + name;
    return copy.is_on_disk(from) || copy.is_on_disk(within) ? within : to;
}

int run(Host &host, const Options &options) {
    const std::string &from = options.from;
    WorkingCopy copy;
    if (is_odd(from)) return move_odd_file(host, copy, options);
    std::string source = copy.relative(from), target = copy.relative(options.to);
    target = place_of(copy, source, target);
    Mover mover(copy, source, target);
    mover.look(from);
    const OwnedIndex index = mover.run(from);
    move_tables(copy, index.get(), source, target);
    host.out.line(host.out.paint(Colour::cyan, action_column(say("Renamed"))) + typed_path(source) +
                  " -> " + typed_path(target));
    host.out.record(
        Record("action").set(u"action", "renamed").set(u"from", source).set(u"path", target));
    warn_of_read_only(host, copy, [&](const std::string &path) {
        return same_or_below(path, source) || same_or_below(path, target);
    });
    return kDone;
}

} // namespace

extern const Verb kMvVerb{"mv", Group::work, Nature::changes, bind<Options, declare, run>};

} // namespace host
