// conflicts: what a merge left to decide.

#include "detached.hpp"
#include "drawing_merge.hpp"
#include "kinds.hpp"
#include "merge_report.hpp"
#include "merge_state.hpp"
#include "server_history.hpp"
#include "verb.hpp"
#include "when.hpp"

namespace host {

namespace {

struct Options {
    Paths paths;
};

void declare(Command &verb, Options &options) {
    verb.description("Show what a merge left to decide");
    verb.footer(
        "For each conflict what either side did, and the commit, time and author of it; for\n"
        "a drawing also how many of its objects are in conflict. A drawing that is named\n"
        "shows these objects, and which fields either side changed: old and new, by group\n"
        "code. \"zev resolve --merge\" brings the others together, and decides these.\n"
        "Examples:\n  zev conflicts\n  zev conflicts plan.dwx\n  zev conflicts plans --json");
    verb.add_option("paths", options.paths, "Only these");
}

// ---- Who and when

// The commit that last touched a path.
struct Origin {
    std::string commit, author;
    int64_t seconds;
};
using Origins = std::map<std::string, Origin>;

Origin origin_of(const Commit *commit) {
    Time time{};
    check(zCommitTime(&time, commit));
    return {hex(zCommitId(commit)), narrow(zCommitAuthor(commit)), time.seconds};
}

// By the record of a server's commit, of which the trees may not be here.
OwnedDiff changes_of(const Host &host, Revdb *records, Commit *commit, PathSpec *spec) {
    stop_on_break(host.notify);
    OwnedDiff changes(records ? zRevdbChanges(records, zCommitId(commit)) : nullptr);
    return changes ? std::move(changes) : OwnedDiff(zCommitChanges(commit, spec, nullptr));
}

// One walk for all paths, along first parents, as far back as it takes. Where the history ends
// early, as in a client that holds a part of it, the rest stays unknown.
Origins last_changes(const Host &host, OwnedCommit tip, std::set<std::string> wanted,
                     Revdb *records = nullptr) {
    constexpr uint32_t options = Z_SPEC_LITERAL | Z_SPEC_NO_RENAMED | Z_SPEC_NO_UNCHANGED;
    OwnedSpec spec(check(zPathSpecNew(nullptr, options)));
    for (const std::string &path : wanted) check(zPathSpecAdd(spec.get(), wide(path).c_str()));
    Origins found;
    for (; tip && !wanted.empty(); tip.reset(zCommitParent(tip.get()))) {
        const OwnedDiff changes = changes_of(host, records, tip.get(), spec.get());
        if (!changes) break;
        for (uint64_t i = 0; i < zDiffListLength(changes.get()); ++i) {
            const DiffEntry *entry = zDiffListEntry(changes.get(), i);
            for (const zwchar *side : {zDiffEntryNewPath(entry), zDiffEntryOldPath(entry)})
                if (const std::string path = narrow(side); wanted.erase(path))
                    found.emplace(path, origin_of(tip.get())); // of a move, either name
        }
    }
    return found;
}

// What is being merged: a branch, a commit, the state before one, or one that is moved.
OwnedCommit their_tip(const WorkingCopy &copy) {
    constexpr const zwchar *kHeads[] = {kMergeHead, kPartHead, u"CHERRY_PICK_HEAD", u"REVERT_HEAD",
                                        u"REBASE_HEAD"};
    for (const zwchar *name : kHeads) {
        if (!zReferenceExists(copy.repository(), name)) continue;
        OwnedCommit commit(zCommitByref(copy.repository(), name));
        if (commit && zStrsameW(name, u"REVERT_HEAD")) commit.reset(zCommitParent(commit.get()));
        return commit;
    }
    return {};
}

std::set<std::string> committed_paths(const Nodes &nodes, const Side &side) {
    std::set<std::string> paths;
    for (ConflictNode *node : nodes.all())
        for (uint64_t i = 0; nodes.is_picked(node) && i < side.count(node); ++i)
            if (side.status(node, i) != Z_KIND_UNTRACKED) paths.insert(side.path(node, i));
    return paths;
}

// Of both sides. After an update ours is what nobody has committed, and theirs is the server's.
std::pair<Origins, Origins> origins_of(const Host &host, const WorkingCopy &copy,
                                       const Nodes &nodes) {
    OwnedCommit theirs = their_tip(copy);
    if (!theirs && !origin_of(copy).empty()) {
        bring_history(host, copy);
        const Owned<Revdb, zRevdbFree> records(check(zRevdbOpen(copy.repository())));
        return {{},
                last_changes(host, is_detached(copy) ? OwnedCommit() : server_commit(copy),
                             committed_paths(nodes, kTheirs), records.get())};
    }
    OwnedCommit ours(copy.born() ? zCommitHead(copy.repository()) : nullptr);
    return {last_changes(host, std::move(ours), committed_paths(nodes, kOurs)),
            last_changes(host, std::move(theirs), committed_paths(nodes, kTheirs))};
}

// ---- Telling of conflicts

// One side of a node on its way out, with what is known of its paths.
class SideView {
  public:
    SideView(const ConflictNode *node, const Side &side, const Origins &origins)
        : node_(node), side_(side), origins_(origins), count_(side.count(node)) {}

    void print(Host &host) const {
        std::string head = "  " + padded(say(side_.name), 8);
        if (count_ == 1) return host.out.line(head + describe(host, 0));
        host.out.line(head + counts());
        for (uint64_t i = 0; i < count_; ++i)
            host.out.line(std::string(10, ' ') + describe(host, i));
    }

    void add_to(std::vector<Record> &records) const {
        for (uint64_t i = 0; i < count_; ++i) {
            Record record;
            record.set(u"side", side_.name).set(u"path", side_.path(node_, i));
            record.set(u"status", kind_name(side_.status(node_, i)));
            if (const IndexEntry *entry = side_.entry(node_, i); entry && tracked(i))
                record.set(u"id", zIndexEntryID(entry));
            if (auto origin = origins_.find(side_.path(node_, i)); origin != origins_.end()) {
                record.set(u"commit", origin->second.commit);
                record.set(u"author", origin->second.author);
                record.set(u"time", iso_time(origin->second.seconds));
            }
            records.push_back(std::move(record));
        }
    }

  private:
    bool tracked(uint64_t i) const { return side_.status(node_, i) != Z_KIND_UNTRACKED; }

    std::string counts() const {
        std::map<int32_t, uint64_t> kinds;
        for (uint64_t i = 0; i < count_; ++i) ++kinds[side_.status(node_, i)];
        std::string text = count_ ? "" : say("nothing");
        for (auto [kind, count] : kinds)
            text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + kind_word(kind);
        return text;
    }

    std::string describe(Host &host, uint64_t i) const {
        const int32_t kind = side_.status(node_, i);
        const std::string path = side_.path(node_, i);
        std::string text = count_ == 1 ? "1 " : "";
        const bool moved = path != narrow(zConflictNodePath(node_));
        const auto origin = origins_.find(path);
        const bool known = origin != origins_.end();
        text += kind_word(kind);
        text = host.out.paint(kind_colour(kind), moved || known ? padded(text, 14) : text);
        if (moved) text += typed_path(path);
        if (!known) return text;
        if (moved) text += "  ";
        const auto &[commit, author, seconds] = origin->second;
        return text + host.out.paint(Colour::yellow, commit.substr(0, 8)) + "  " +
               short_time(seconds) + "  " + author;
    }

    const ConflictNode *node_;
    const Side &side_;
    const Origins &origins_;
    uint64_t count_;
};

// For programs; zConflictNodeType speaks the user's language.
std::string type_name(const ConflictNode *node) {
    if (kTheirs.count(node) > 1) return "directory-obstructed";
    if (kOurs.count(node) > 1) return "file-obstructed";
    return std::string(kind_name(kOurs.status(node, 0))) + "/" + kind_name(kTheirs.status(node, 0));
}

void print_node(Host &host, ConflictNode *node, const Origins &ours, const Origins &theirs) {
    const SideView sides[] = {{node, kOurs, ours}, {node, kTheirs, theirs}};
    const std::string path = narrow(zConflictNodePath(node));
    if (host.out.json()) {
        std::vector<Record> records;
        for (const SideView &side : sides) side.add_to(records);
        Record record("conflict");
        record.set(u"path", path).set(u"kind", type_name(node));
        return host.out.record(record.set(u"sides", std::move(records)));
    }
    host.out.line(host.out.paint(Colour::bold, typed_path(path)) + ": " +
                  narrow(zConflictNodeType(node)));
    for (const SideView &side : sides) side.print(host);
}

// What is in a drawing that both sides changed, as far as it can be told. False where a server that
// is to tell can't be asked.
bool print_drawing(Host &host, const WorkingCopy &copy, const ConflictNode *node, bool is_named) {
    std::string why;
    const auto ways = three_ways(node, why);
    if (!ways) return true;
    try {
        const DrawingMerge merge(host, copy, *ways);
        tell_outlook(host, ways->path, merge.result());
        if (is_named) print_conflicts(host, ways->path, merge.result(), true);
        return true;
    } catch (const Failed &failed) {
        if (failed.error_class == kCanceled) throw;
        tell_no_outlook(host, ways->path, failed.what());
        return failed.error_class != kNetwork;
    }
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    Nodes nodes = look(copy);
    if (options.paths.empty()) nodes.pick_all();
    std::set<std::string> named;
    for (const std::string &path : options.paths) {
        const std::string below = *named.insert(copy.relative(path)).first;
        if (!nodes.pick(copy, below) && !is_wild(path) && !is_known(copy, below))
            throw Failed(kNotFound, say("%s: no such file or directory", path));
    }
    const auto [our_origins, their_origins] = origins_of(host, copy, nodes);
    uint64_t count = 0;
    bool looks = true;
    for (ConflictNode *node : nodes.all()) {
        if (!nodes.is_picked(node)) continue;
        stop_on_break(host.notify);
        print_node(host, node, our_origins, their_origins);
        looks = looks &&
                print_drawing(host, copy, node, named.contains(narrow(zConflictNodePath(node))));
        ++count;
    }
    if (!count) host.out.line("no conflicts");
    host.out.record(Record("summary").set(u"conflicts", count));
    return kDone;
}

} // namespace

extern const Verb kConflictsVerb{"conflicts", Group::rescue, Nature::paged,
                                 bind<Options, declare, run>};

} // namespace host
