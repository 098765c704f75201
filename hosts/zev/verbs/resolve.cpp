// resolve: the decisions about what a merge left, carried out.

#include "conflict_nodes.hpp"
#include "index_change.hpp"
#include "resolve_merge.hpp"
#include "verb.hpp"
#include "walks.hpp"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

namespace host {

namespace fs = std::filesystem;

namespace {

struct Options {
    bool mine = false, theirs = false, both = false; // one of them, or
    bool merge = false;                              // object by object, whose they tell
    bool all = false;                                // in place of paths
    bool dry = false;
    Paths paths;                    // and with "merge" the objects behind whose they are
    std::optional<Command> command; // that knows how they stand among the options
};

void declare(Command &verb, Options &options) {
    verb.description("Decide conflicts");
    verb.footer(
        "--mine keeps what stands in the work directory. --theirs takes what came in; what it\n"
        "displaces goes to the trash. --both keeps yours where it is and puts theirs beside\n"
        "it, as \"plan (theirs).dwx\". \"zev commit\" keeps the result.\n"
        "--merge brings both sides of a drawing together, object by object. Where both changed\n"
        "the same object it is left, and these objects are listed: decide them by handle behind\n"
        "--ours and --theirs, as \"zev conflicts DRAWING\" shows them; \"header\", \"classes\" "
        "and\n"
        "\"layout\" stand for what is no object. Without handles behind it, a side has all that\n"
        "is in conflict.\n"
        "Examples:\n  zev resolve --theirs plan.dwx\n  zev resolve --both plans\n"
        "  zev resolve --mine --all\n  zev resolve --merge plan.dwx\n"
        "  zev resolve --merge plan.dwx --ours 3F 40 --theirs 51 header\n"
        "  zev resolve --merge --all --dry-run");
    verb.add_flag("--mine,--ours", options.mine, "Keep yours; with --merge, of these objects");
    verb.add_flag("--theirs", options.theirs, "Take theirs; with --merge, of these objects");
    const Argument both = verb.add_flag("--both", options.both, "Keep both");
    verb.add_flag("--merge", options.merge, "Bring drawings together, object by object")
        ->excludes(both);
    verb.add_flag("--all", options.all, "All conflicts, in place of paths");
    verb.add_flag("--dry-run", options.dry, "With --merge: only tell what would come of it");
    verb.add_option("paths", options.paths, "Files, directories, patterns");
    options.command.emplace(verb);
}

// A merge writes both sides into a text file of ours, between marks.
bool has_marks(const WorkingCopy &copy, const std::string &path) {
    constexpr uintmax_t kMostText = 1 << 20; // drawings and the like are no text
    const fs::path file = copy.absolute(path);
    if (!zWorkdirFileExists(copy.repository(), wide(path).c_str())) return false;
    if (fs::file_size(file) > kMostText) return false;
    std::ifstream in(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    return (text.starts_with("<<<<<<< ") || text.find("\n<<<<<<< ") != text.npos) &&
           text.find("\n>>>>>>> ") != text.npos;
}

// ---- Both: theirs stands beside ours, under a name of its own

class Beside {
  public:
    explicit Beside(const WorkingCopy &copy) : copy_(copy) {
        OwnedIndex index(check(zIndexHead(copy.repository(), false)));
        each_entry_of(index.get(),
                      [this](const IndexEntry *entry) { take(zIndexEntryPath(entry)); });
    }
    Beside(const Beside &) = delete;
    Beside &operator=(const Beside &) = delete;
    // Of a node that stays in conflict the index still has what was written.
    ~Beside() {
        std::error_code ignored;
        for (const Copy &copy : copies_)
            if (!copy.kept) fs::remove(copy_.absolute(copy.path), ignored);
    }

    // Writes what they have at the node's path and below it; throws when it can't be had.
    void write(const ConflictNode *node) {
        const std::string path = narrow(zConflictNodePath(node));
        const auto depth = std::count(path.begin(), path.end(), '/');
        const bool is_file =
            kTheirs.count(node) == 1 && below(kTheirs.path(node, 0), depth).empty();
        const std::string base = free_path(path, is_file);
        for (uint64_t i = 0; i < kTheirs.count(node); ++i) {
            const IndexEntry *entry = kTheirs.entry(node, i);
            if (!entry || !kTheirs.keeps(node, i)) continue;
            const std::string from = kTheirs.path(node, i), to = base + below(from, depth);
            OwnedBlob blob(check(zBlobByid(copy_.repository(), zIndexEntryID(entry)), from));
            check(zBlobCheckout(blob.get(), wide(to).c_str()), to);
            copies_.push_back({node, from, to});
        }
    }

    void keep_resolved() {
        for (Copy &copy : copies_) copy.kept = zConflictNodeIsResolved(copy.node);
    }

    // A drawing that is added under a second name gets a table of its own.
    void stage(Host &host) {
        OwnedSpec spec(check(zPathSpecNew(nullptr, Z_SPEC_LITERAL)));
        std::map<std::string, std::string> directories; // with a file in each
        for (const Copy &copy : copies_) {
            if (!copy.kept) continue;
            check(zPathSpecAdd(spec.get(), wide(copy.path).c_str()));
            directories.emplace(fs::path(copy.path).parent_path().string(), copy.path);
        }
        if (!zPathSpecCount(spec.get())) return;
        const OwnedIndex index = change_index(copy_, [&](Index *changed, bool) {
            check(zIndexAdd(changed, spec.get()));
            for (const auto &[directory, file] : directories)
                if (!directory.empty()) check(zIndexFixupGitkeep(changed, wide(file).c_str()));
        });
        for (const Copy &copy : copies_)
            if (copy.kept) tell(host, index.get(), copy);
    }

  private:
    struct Copy {
        const ConflictNode *node;
        std::string from, path;
        bool kept = false;
    };
    struct CaseLess {
        bool operator()(const std::u16string &a, const std::u16string &b) const {
            return zStrcasecmpW(a.c_str(), b.c_str()) < 0;
        }
    };

    // A name in the index, and the directories that it lies in.
    void take(std::u16string path) {
        while (taken_.insert(path).second && path.find(u'/') != path.npos)
            path.resize(path.rfind(u'/'));
    }

    // The part of a path behind its first `depth` slashes and a name; a node's path and those of
    // its sides may be spelled in different cases, of different lengths.
    static std::string below(const std::string &path, std::ptrdiff_t depth) {
        size_t slash = path.find('/');
        for (; depth > 0 && slash != path.npos; --depth) slash = path.find('/', slash + 1);
        return slash == path.npos ? "" : path.substr(slash);
    }

    // "plan.dwx" gives "plan (theirs).dwx", then "plan (theirs 2).dwx"; a base that leaves no
    // room loses its end.
    std::string free_path(const std::string &path, bool is_file) {
        constexpr size_t kLongestName = 255;
        const size_t start = path.rfind('/') + 1; // 0 without a slash
        const std::string name = path.substr(start);
        const size_t last = is_file ? name.rfind('.') : name.npos;
        const size_t dot = last == 0 ? name.size() : std::min(last, name.size());
        for (int number = 1;; ++number) {
            const std::string mark =
                number == 1 ? " (theirs)" : " (theirs " + std::to_string(number) + ")";
            const std::string tail = mark + name.substr(dot);
            size_t end = std::min(dot, kLongestName - std::min(kLongestName, tail.size()));
            while (end < name.size() && (name[end] & 0xC0) == 0x80) --end;
            const std::string candidate = path.substr(0, start) + name.substr(0, end) + tail;
            if (is_there(copy_, candidate) || taken_.contains(wide(candidate))) continue;
            return take(wide(candidate)), candidate;
        }
    }

    // What the user's rules ignore was passed over by adding; it is to be kept all the same.
    static void tell(Host &host, Index *index, const Copy &copy) {
        if (!zIndexEntryBypath(index, wide(copy.path).c_str()))
            check(zIndexAddBypath(index, wide(copy.path).c_str()));
        host.out.line(host.out.paint(Colour::green, action_column(say("Kept"))) +
                      typed_path(copy.path));
        host.out.record(Record("action")
                            .set(u"action", "kept")
                            .set(u"path", copy.path)
                            .set(u"from", copy.from));
    }

    const WorkingCopy &copy_;
    std::set<std::u16string, CaseLess> taken_;
    std::vector<Copy> copies_;
};

// ---- Carrying out

class Resolution {
  public:
    Resolution(Host &host, const WorkingCopy &copy, Nodes &nodes, const Options &options)
        : host_(host), copy_(copy), nodes_(nodes), options_(options) {
        if (options.both) beside_.emplace(copy);
    }

    int run() {
        for (ConflictNode *node : nodes_.all()) decide(node);
        stop_on_break(host_.notify);
        check(zConflictAnalysisSetNotify(nodes_.analysis(), host_.notify));
        check(zShellResolve(copy_.repository(), nodes_.analysis()));
        if (beside_) beside_->keep_resolved();
        tell_displaced();
        if (beside_) beside_->stage(host_);
        return summary();
    }

  private:
    void decide(ConflictNode *node) {
        stop_on_break(host_.notify);
        uint32_t solution = Z_CONFLICT_UNDECIDED;
        if (nodes_.is_picked(node)) solution = options_.both ? keep_both(node) : one_side();
        check(zConflictNodeSetSolution(node, solution));
        if (solution == Z_CONFLICT_USE_THEIRS) note_displaced(node);
        if (solution == Z_CONFLICT_USE_OURS) warn_of_marks(node);
    }

    uint32_t one_side() const {
        return options_.theirs ? Z_CONFLICT_USE_THEIRS : Z_CONFLICT_USE_OURS;
    }

    // Where one side has nothing, the other is all there is to keep.
    uint32_t keep_both(ConflictNode *node) {
        if (!kTheirs.keeps_any(node)) return Z_CONFLICT_USE_OURS;
        if (!kOurs.keeps_any(node)) return Z_CONFLICT_USE_THEIRS;
        try {
            beside_->write(node);
            return Z_CONFLICT_USE_OURS;
        } catch (const Failed &failed) {
            host_.out.warn(typed_path(zConflictNodePath(node)) + ": " + failed.what());
            return Z_CONFLICT_UNDECIDED;
        }
    }

    void warn_of_marks(const ConflictNode *node) const {
        for (uint64_t i = 0; i < kOurs.count(node); ++i)
            if (std::string path = kOurs.path(node, i); has_marks(copy_, path))
                host_.out.warn(say("%s: has both sides between marks; edit it, then add it",
                                   typed_path(path)));
    }

    void note_displaced(const ConflictNode *node) {
        for (uint64_t i = 0; i < kOurs.count(node); ++i)
            if (std::string path = kOurs.path(node, i); is_there(copy_, path))
                displaced_.emplace_back(node, path);
    }

    void tell_displaced() const {
        for (const auto &[node, path] : displaced_) {
            if (!zConflictNodeIsResolved(node)) continue;
            host_.out.line(host_.out.paint(Colour::dim, action_column(say("In trash"))) +
                           typed_path(path));
            host_.out.record(Record("action").set(u"action", "trashed").set(u"path", path));
        }
    }

    int summary() const {
        uint64_t resolved = 0, failed = 0;
        for (ConflictNode *node : nodes_.all()) {
            const bool done = zConflictNodeIsResolved(node);
            resolved += done;
            failed += !done && nodes_.is_picked(node);
        }
        const uint64_t remain = nodes_.all().size() - resolved;
        host_.out.line(say("%s resolved, %s remain", resolved, remain));
        host_.out.record(Record("summary")
                             .set(u"resolved", resolved)
                             .set(u"remain", remain)
                             .set(u"failed", failed));
        return failed ? kConflicts : kDone;
    }

    Host &host_;
    const WorkingCopy &copy_;
    Nodes &nodes_;
    const Options &options_;
    std::optional<Beside> beside_;
    std::vector<std::pair<const ConflictNode *, std::string>> displaced_;
};

void check_paths(const Options &options, const Paths &paths) {
    if (options.all == !paths.empty())
        throw Failed(kInvalid, options.all ? "--all goes without paths"
                                           : "name the conflicts, or give --all");
}

int merge(Host &host, const Options &options) {
    MergeWish wish =
        parse_wish(options.command->order(), options.paths, host.behind_mark.value_or(0));
    check_paths(options, wish.paths);
    wish.dry = options.dry;
    const WorkingCopy copy;
    return resolve_by_merging(host, copy, wish);
}

int run(Host &host, const Options &options) {
    if (options.merge) return merge(host, options);
    if (options.dry) throw Failed(kInvalid, "--dry-run goes with --merge");
    if (options.mine + options.theirs + options.both != 1)
        throw Failed(kInvalid,
                     "whose is it to be? Give one of --mine, --theirs, --both and --merge");
    check_paths(options, options.paths);
    WorkingCopy copy;
    Nodes nodes = analyse(copy);
    if (options.all) nodes.pick_all();
    for (const std::string &path : options.paths)
        if (!nodes.pick(copy, copy.relative(path)))
            throw Failed(kNotFound, say("%s: has no conflict; \"zev conflicts\" lists them", path));
    return Resolution(host, copy, nodes, options).run();
}

} // namespace

extern const Verb kResolveVerb{"resolve", Group::rescue, Nature::displaces,
                               bind<Options, declare, run>};

} // namespace host
