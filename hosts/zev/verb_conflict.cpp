// conflicts, resolve: what a merge left to decide, and the decisions.

#include "verbs.hpp"
#include "when.hpp"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <utility>

namespace host {

namespace fs = std::filesystem;

namespace {

using OwnedAnalysis = Owned<ConflictAnalysis, zConflictAnalysisFree>;

// The two sides of a node have the same getters under different names.
struct Side {
    const char *name;
    uint64_t (*count)(const ConflictNode *);
    const IndexEntry *(*entry)(const ConflictNode *, uint64_t);
    int32_t (*status)(const ConflictNode *, uint64_t);
    const zwchar *(*wide_path)(const ConflictNode *, uint64_t);

    std::string path(const ConflictNode *node, uint64_t i) const {
        return narrow(wide_path(node, i));
    }
    // Does the side keep anything, or did it only delete?
    bool keeps(const ConflictNode *node, uint64_t i) const {
        return status(node, i) != Z_KIND_DELETED;
    }
    bool keeps_any(const ConflictNode *node) const {
        for (uint64_t i = 0; i < count(node); ++i)
            if (keeps(node, i)) return true;
        return false;
    }
};

constexpr Side kOurs = {"ours", zConflictNodeOurCount, zConflictNodeOurEntry,
                        zConflictNodeOurStatus, zConflictNodeOurPath};
constexpr Side kTheirs = {"theirs", zConflictNodeTheirCount, zConflictNodeTheirEntry,
                          zConflictNodeTheirStatus, zConflictNodeTheirPath};

// Never by way of a link in the work directory.
bool is_there(const WorkingCopy &copy, const std::string &path) {
    return path.empty() || zWorkdirPathExists(copy.repository(), wide(path).c_str());
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

bool is_known(const WorkingCopy &copy, const std::string &path) {
    if (is_there(copy, path)) return true;
    OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    return zIndexEntryBypath(index.get(), wide(path).c_str());
}

// ---- All nodes of the working copy, and those that the user's paths name

class Nodes {
  public:
    explicit Nodes(OwnedAnalysis analysis) : analysis_(std::move(analysis)) {
        for (uint64_t i = 0; i < zConflictAnalysisLength(analysis_.get()); ++i) {
            ConflictNode *node = zConflictAnalysisEntry(analysis_.get(), i);
            nodes_.push_back(node);
            by_path_.emplace(narrow(zConflictNodePath(node)), node);
            for (const Side *side : {&kOurs, &kTheirs})
                for (uint64_t n = 0; n < side->count(node); ++n)
                    by_path_.emplace(side->path(node, n), node);
        }
    }

    ConflictAnalysis *analysis() const { return analysis_.get(); }
    const std::vector<ConflictNode *> &all() const { return nodes_; }
    bool is_picked(ConflictNode *node) const { return picked_.contains(node); }
    void pick_all() { picked_.insert(nodes_.begin(), nodes_.end()); }

    // What something has as its name is no pattern. False when there is no conflict of that name.
    bool pick(const WorkingCopy &copy, const std::string &path) {
        return pick_named(path) || (!is_known(copy, path) && pick_matching(path));
    }

  private:
    // The nodes with that very path, or with one below it.
    bool pick_named(const std::string &path) {
        if (path.empty()) return pick_all(), !nodes_.empty();
        auto [at, end] = by_path_.equal_range(path);
        bool found = at != end;
        for (; at != end; ++at) picked_.insert(at->second);
        for (at = by_path_.lower_bound(path + "/");
             at != by_path_.end() && at->first.starts_with(path + "/"); ++at) {
            picked_.insert(at->second);
            found = true;
        }
        return found;
    }

    bool pick_matching(const std::string &pattern) {
        OwnedSpec spec(check(zPathSpecNew(wide(pattern).c_str(), 0)));
        bool found = false;
        for (const auto &[path, node] : by_path_) {
            if (!zPathSpecMatched(spec.get(), wide(path).c_str())) continue;
            picked_.insert(node);
            found = true;
        }
        return found;
    }

    OwnedAnalysis analysis_;
    std::vector<ConflictNode *> nodes_; // in the order of the analysis
    std::multimap<std::string, ConflictNode *> by_path_;
    std::set<ConflictNode *> picked_;
};

Nodes analyse(const WorkingCopy &copy) {
    OwnedSpec everything(check(zPathSpecNew(nullptr, 0)));
    return Nodes(OwnedAnalysis(check(zShellConflict(copy.repository(), everything.get()))));
}

// To look on does without the lock when another process has it.
Nodes look(const WorkingCopy &copy) {
    OwnedSpec everything(check(zPathSpecNew(nullptr, 0)));
    OwnedAnalysis analysis(zShellConflict(copy.repository(), everything.get()));
    if (analysis || zErrorClass() != kLocked)
        return Nodes(OwnedAnalysis(check(analysis.release())));
    OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    return Nodes(OwnedAnalysis(check(zConflictAnalyze(index.get(), everything.get()))));
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

// One walk for all paths, along first parents, as far back as it takes. Where the history ends
// early, as in a client that holds a part of it, the rest stays unknown.
Origins last_changes(Host &host, OwnedCommit tip, std::set<std::string> wanted) {
    constexpr uint32_t options = Z_SPEC_LITERAL | Z_SPEC_NO_RENAMED | Z_SPEC_NO_UNCHANGED;
    OwnedSpec spec(check(zPathSpecNew(nullptr, options)));
    for (const std::string &path : wanted) check(zPathSpecAdd(spec.get(), wide(path).c_str()));
    Origins found;
    for (; tip && !wanted.empty(); tip.reset(zCommitParent(tip.get()))) {
        stop_on_break(host.notify);
        OwnedDiff changes(zCommitChanges(tip.get(), spec.get(), nullptr));
        if (!changes) break;
        for (uint64_t i = 0; i < zDiffListLength(changes.get()); ++i) {
            std::string path = narrow(zDiffEntryNewPath(zDiffListEntry(changes.get(), i)));
            if (wanted.erase(path)) found.emplace(path, origin_of(tip.get()));
        }
    }
    return found;
}

// What is being merged: a branch, a commit, the state before one, or one that is moved.
OwnedCommit their_tip(const WorkingCopy &copy) {
    constexpr const zwchar *kHeads[] = {u"MERGE_HEAD", u"CHERRY_PICK_HEAD", u"REVERT_HEAD",
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

// ---- Telling of conflicts

// One side of a node on its way out, with what is known of its paths.
class SideView {
  public:
    SideView(const ConflictNode *node, const Side &side, const Origins &origins)
        : node_(node), side_(side), origins_(origins), count_(side.count(node)) {}

    void print(Host &host) const {
        std::string head = "  " + padded(side_.name, 8);
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
        std::string text = count_ ? "" : "nothing";
        for (auto [kind, count] : kinds)
            text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + kind_name(kind);
        return text;
    }

    std::string describe(Host &host, uint64_t i) const {
        const int32_t kind = side_.status(node_, i);
        const std::string path = side_.path(node_, i);
        std::string text = count_ == 1 ? "1 " : "";
        text = host.out.paint(kind_colour(kind), padded(text + kind_name(kind), 14));
        if (path != narrow(zConflictNodePath(node_))) text += path + "  ";
        auto origin = origins_.find(path);
        if (origin == origins_.end()) return text;
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
    host.out.line(host.out.paint(Colour::bold, path) + ": " + narrow(zConflictNodeType(node)));
    for (const SideView &side : sides) side.print(host);
}

// ---- Both: theirs stands beside ours, under a name of its own

class Beside {
  public:
    explicit Beside(const WorkingCopy &copy) : copy_(copy) {
        OwnedIndex index(check(zIndexHead(copy.repository(), false)));
        check(zIndexWalk(
            index.get(),
            [](const IndexEntry *entry, void *self) -> int32_t {
                try {
                    return static_cast<Beside *>(self)->take(zIndexEntryPath(entry)), 0;
                } catch (...) {
                    return -1;
                }
            },
            this));
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
        OwnedIndex index = copy_.lock_index();
        check(zIndexAdd(index.get(), spec.get()));
        for (const auto &[directory, file] : directories)
            if (!directory.empty()) check(zIndexFixupGitkeep(index.get(), wide(file).c_str()));
        for (const Copy &copy : copies_)
            if (copy.kept) tell(host, index.get(), copy);
        check(zIndexWrite(index.get()));
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
        host.out.line(host.out.paint(Colour::green, padded("Kept", 11)) + copy.path);
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
    Resolution(Host &host, const WorkingCopy &copy, Nodes &nodes, const ResolveOptions &options)
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
            host_.out.warn(narrow(zConflictNodePath(node)) + ": " + failed.what());
            return Z_CONFLICT_UNDECIDED;
        }
    }

    void warn_of_marks(const ConflictNode *node) const {
        for (uint64_t i = 0; i < kOurs.count(node); ++i)
            if (std::string path = kOurs.path(node, i); has_marks(copy_, path))
                host_.out.warn(path + ": has both sides between marks; edit it, then add it");
    }

    void note_displaced(const ConflictNode *node) {
        for (uint64_t i = 0; i < kOurs.count(node); ++i)
            if (std::string path = kOurs.path(node, i); is_there(copy_, path))
                displaced_.emplace_back(node, path);
    }

    void tell_displaced() const {
        for (const auto &[node, path] : displaced_) {
            if (!zConflictNodeIsResolved(node)) continue;
            host_.out.line(host_.out.paint(Colour::dim, padded("In trash", 11)) + path);
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
        host_.out.line(std::to_string(resolved) + " resolved, " + std::to_string(remain) +
                       " remain");
        host_.out.record(Record("summary")
                             .set(u"resolved", resolved)
                             .set(u"remain", remain)
                             .set(u"failed", failed));
        return failed ? kConflicts : kDone;
    }

    Host &host_;
    const WorkingCopy &copy_;
    Nodes &nodes_;
    const ResolveOptions &options_;
    std::optional<Beside> beside_;
    std::vector<std::pair<const ConflictNode *, std::string>> displaced_;
};

void check_usage(const ResolveOptions &options) {
    if (options.mine + options.theirs + options.both != 1)
        throw Failed(kInvalid, "whose is it to be? Give one of --mine, --theirs and --both");
    if (options.all == !options.paths.empty())
        throw Failed(kInvalid, options.all ? "--all goes without paths"
                                           : "name the conflicts, or give --all");
}

} // namespace

int conflicts(Host &host, const Paths &paths) {
    WorkingCopy copy;
    Nodes nodes = look(copy);
    if (paths.empty()) nodes.pick_all();
    for (const std::string &path : paths) {
        const std::string below = copy.relative(path);
        if (!nodes.pick(copy, below) && !is_wild(path) && !is_known(copy, below))
            throw Failed(kNotFound, path + ": no such file or directory");
    }
    OwnedCommit ours(copy.born() ? zCommitHead(copy.repository()) : nullptr);
    const Origins our_origins = last_changes(host, std::move(ours), committed_paths(nodes, kOurs));
    const Origins their_origins =
        last_changes(host, their_tip(copy), committed_paths(nodes, kTheirs));
    uint64_t count = 0;
    for (ConflictNode *node : nodes.all()) {
        if (!nodes.is_picked(node)) continue;
        stop_on_break(host.notify);
        print_node(host, node, our_origins, their_origins);
        ++count;
    }
    if (!count) host.out.line("no conflicts");
    host.out.record(Record("summary").set(u"conflicts", count));
    return kDone;
}

int resolve(Host &host, const ResolveOptions &options) {
    check_usage(options);
    WorkingCopy copy;
    Nodes nodes = analyse(copy);
    if (options.all) nodes.pick_all();
    for (const std::string &path : options.paths)
        if (!nodes.pick(copy, copy.relative(path)))
            throw Failed(kNotFound, path + ": has no conflict; \"zev conflicts\" lists them");
    return Resolution(host, copy, nodes, options).run();
}

} // namespace host
