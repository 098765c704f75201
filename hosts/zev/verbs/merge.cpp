// merge: what another branch did, into the current one.
//
// A branch that the current commit leads to is one checkout, on a reference of its own, and then
// the current branch moves there. Of branches that went apart, the checkout goes from their common
// commit to the other's tip: it compares the index with the common commit, so that what we did
// since counts as local work, and the index comes out with both. That is committed on HEAD, with
// the other's tip as second parent; the checkout's own commit goes with its reference.
//
// A merge that left out files has no second parent: the next one still has them to bring.
//
// The index lock is held from before the first look until the commit stands. A crash leaves the
// old commit, and files or an index that have what came in: that is no obstacle to merging again.
// What it left in conflict is then no whole merge: were it committed as one without theirs as a
// parent, the next would bring what they added to a drawing once more.

#include "author.hpp"
#include "bytes.hpp"
#include "detached.hpp"
#include "drawing_merge.hpp"
#include "dxf/check.hpp"
#include "dxf/rows.hpp"
#include "graph.hpp"
#include "merge_abort.hpp"
#include "merge_forecast.hpp"
#include "merge_state.hpp"
#include "refs.hpp"
#include "show.hpp"
#include "transfer.hpp"

#include <map>

namespace host {

namespace fs = std::filesystem;

namespace {

struct Options {
    std::string branch;  // or any commit
    std::string message; // of the commit; empty: "Merge BRANCH"
    bool force = false;  // local changes go to the trash, after a question
    bool abort = false;
    bool dry = false;
    bool no_drawings = false; // that both sides changed are left as conflicts
};

void declare(Command &verb, Options &options) {
    verb.description("Bring what another branch did into the current one");
    verb.footer(
        "The result is committed, unless both changed the same file: then \"zev conflicts\"\n"
        "shows what there is to decide, \"zev resolve\" decides, and \"zev commit\" keeps it.\n"
        "A drawing that both changed is brought together object by object, unless both changed\n"
        "the same object; what that displaces is in the trash. --no-merge-drawings leaves such\n"
        "drawings as conflicts, and --dry-run tells what would come together.\n"
        "Files that the merge changes must have no changes of your own that aren't committed,\n"
        "and nothing may be staged; --force moves them to the trash, and asks first.\n"
        "--abort takes back a merge that isn't committed yet; what you did to its files\n"
        "meanwhile goes to the trash.\n"
        "Examples:\n  zev merge details -m \"Details of the stairs\"\n"
        "  zev merge details --dry-run\n  zev merge details --force --yes\n  zev merge --abort");
    const Argument branch = verb.add_option("branch", options.branch, "A branch, or any commit");
    const Argument message = verb.add_option("-m,--message", options.message,
                                             "What the commit says, where the merge makes one");
    const Argument force = verb.add_flag("--force", options.force, "Local changes go to the trash");
    const Argument dry =
        verb.add_flag("--dry-run", options.dry, "Only tell what would come of it; nothing changes");
    dry->excludes(force)->excludes(message);
    verb.add_flag("--no-merge-drawings", options.no_drawings,
                  "Leave a drawing that both changed as a conflict");
    verb.add_flag("--abort", options.abort, "Take back the merge that is not committed yet")
        ->excludes(branch)
        ->excludes(message)
        ->excludes(dry)
        ->excludes(force);
}

// What comes in, by path; nothing for a file that they deleted.
using Incoming = std::map<std::string, std::optional<Oid>>;

Incoming incoming_files(const WorkingCopy &copy, const Oid &base, Commit *theirs) {
    OwnedCommit from(check(zCommitByid(copy.repository(), &base)));
    OwnedSpec spec(check(zPathSpecNew(nullptr, Z_SPEC_NO_RENAMED | Z_SPEC_NO_UNCHANGED)));
    OwnedDiff changes(check(zCommitDiff(from.get(), theirs, spec.get(), nullptr)));
    Incoming files;
    for (uint64_t i = 0; i < zDiffListLength(changes.get()); ++i) {
        const DiffEntry *entry = zDiffListEntry(changes.get(), i);
        std::optional<Oid> id;
        if (zDiffEntryStatus(entry) != Z_KIND_DELETED) id = *zDiffEntryNewId(entry);
        files[narrow(zDiffEntryNewPath(entry))] = id;
    }
    return files;
}

bool same(const std::optional<Oid> &a, const std::optional<Oid> &b) {
    return a ? b && zOidIsEqual(&*a, &*b) : !b;
}

// The commit takes the whole index, and the checkout stages what the user did to files that come
// in: both must be as in HEAD, or as what comes in.
class LocalWork {
  public:
    LocalWork(const WorkingCopy &copy, Index *index, const Incoming &incoming)
        : copy_(copy), index_(index), incoming_(incoming) {}

    void require_none() {
        look_at_index();
        if (!found_.empty())
            throw Failed(kOther, say("these changes are staged: %s; commit or revert them before "
                                     "the merge",
                                     some_of(found_)));
        look_at_files();
        if (!found_.empty())
            throw Failed(kOther, say("the merge would change files that are not committed: %s; "
                                     "commit, revert or move them first",
                                     some_of(found_)));
    }

  private:
    void look_at_index() {
        OwnedTree head(check(zCommitTree(copy_.head().get())));
        OwnedSpec spec(check(zPathSpecNew(nullptr, Z_SPEC_NO_RENAMED | Z_SPEC_NO_UNCHANGED)));
        OwnedDiff staged(
            check(zDiffTreeToIndex(copy_.repository(), head.get(), index_, spec.get(), nullptr)));
        for (uint64_t i = 0; i < zDiffListLength(staged.get()); ++i) {
            const DiffEntry *entry = zDiffListEntry(staged.get(), i);
            std::optional<Oid> id;
            if (zDiffEntryStatus(entry) != Z_KIND_DELETED) id = *zDiffEntryNewId(entry);
            refuse_unless_same(narrow(zDiffEntryNewPath(entry)), id);
        }
    }

    void refuse_unless_same(const std::string &path, const std::optional<Oid> &id) {
        const auto file = incoming_.find(path);
        if (file == incoming_.end() || !same(file->second, id)) found_.push_back(path);
    }

    // A file that is gone from the disk, but not from the index, has nothing to lose.
    void look_at_files() {
        if (incoming_.empty()) return;
        OwnedSpec spec(
            check(zPathSpecNew(nullptr, Z_SPEC_LITERAL | Z_SPEC_NO_RENAMED | Z_SPEC_NO_UNCHANGED)));
        for (const auto &[path, id] : incoming_)
            check(zPathSpecAdd(spec.get(), wide(path).c_str()));
        OwnedStatus list(check(zStatusListBuild(index_, spec.get())));
        for (uint64_t i = 0; i < zStatusListLength(list.get()); ++i) {
            const std::string path = narrow(zStatusEntryPath(zStatusListEntry(list.get(), i)));
            const fs::file_status status = fs::symlink_status(copy_.absolute(path));
            if (!fs::exists(status)) continue;
            Oid id{};
            if (fs::is_regular_file(status))
                check(zOidFromFile(&id, copy_.absolute(path).u16string().c_str()), path);
            refuse_unless_same(path, id);
        }
    }

    const WorkingCopy &copy_;
    Index *index_;
    const Incoming &incoming_;
    std::vector<std::string> found_;
};

// Drawings that came in, and whose rows are not those that were imported: rows come by another way
// than commits.
void warn_of_mixed(Host &host, const WorkingCopy &copy, const Commit *ours,
                   const Incoming &incoming) {
    const OwnedOdb odb(check(zOdbOpen(copy.repository())));
    Bytes older, newer;
    for (const auto &[path, id] : incoming) {
        if (!id || !is_drawing_name(path) || !zOdbExists(odb.get(), &*id)) continue;
        stop_on_break(host.notify);
        read_object(odb.get(), &*id, newer, path);
        const auto to = dxf::Manifest::read(newer.data);
        const OwnedTreeEntry entry = copy.entry(ours, path);
        if (entry) read_object(odb.get(), zTreeEntryId(entry.get()), older, path);
        const auto from = entry ? dxf::Manifest::read(older.data) : std::nullopt;
        if (to && dxf::is_mixed(copy.repository(), from ? &*from : nullptr, *to, host.notify))
            host.out.warn(dxf::mixed_text(path));
    }
}

class Merge {
  public:
    Merge(Host &host, const WorkingCopy &copy, const Options &options)
        : host_(host), copy_(copy), options_(options) {}

    int run() {
        theirs_ = copy_.commit(options_.branch);
        if (!copy_.born()) return options_.dry ? foresee(nullptr) : move_forward();
        if (options_.force) clear_away();
        require_settled(copy_);
        require_no_other_merge(copy_, *zCommitId(theirs_.get()));
        Graph graph(copy_, host_.notify);
        ours_ = copy_.head();
        const Oid ours = *zCommitId(ours_.get()), theirs = *zCommitId(theirs_.get());
        const std::optional<Oid> base = graph.common(ours, theirs);
        if (!base)
            throw Failed(kOther, say("%s: has no commit in common with HEAD", options_.branch));
        if (zOidIsEqual(&*base, &theirs)) return nothing_to_do();
        if (options_.dry) return foresee(&*base);
        return zOidIsEqual(&*base, &ours) ? move_forward() : bring_together(*base);
    }

  private:
    int nothing_to_do() const {
        host_.out.line("nothing to do; the branch is contained already");
        return summary("nothing", {});
    }

    // `base`: null before the first commit.
    int foresee(const Oid *base) const {
        Outlook outlook;
        if (base) {
            const OwnedIndex index(check(zIndexHead(copy_.repository(), false)));
            if (!zOidIsEqual(base, zCommitId(ours_.get())))
                LocalWork(copy_, index.get(), incoming_files(copy_, *base, theirs_.get()))
                    .require_none();
            outlook = foresee_merge(host_, copy_, *base, theirs_.get(), !options_.no_drawings);
        }
        host_.out.line(outlook.conflicts
                           ? say("%s would be in conflict; nothing was changed",
                                 count_of(outlook.conflicts, "file"))
                           : say("nothing would be in conflict, nothing was changed"));
        Record record("merge");
        record.set(u"branch", options_.branch).set(u"dry_run", true);
        record.set(u"result", outlook.conflicts ? "conflicts" : "merged");
        host_.out.record(record.set(u"theirs", zCommitId(theirs_.get())));
        return outlook.conflicts ? kConflicts : kDone;
    }

    // With the question answered, HEAD's own state takes the place of the local work.
    void clear_away() {
        confirm_trash(host_, local_work(copy_));
        const OwnedIndex lock = copy_.lock_index();
        const OwnedCommit head = copy_.head();
        const TempBranch temporary(copy_, zCommitId(head.get()));
        const Transfer cleared = transfer(host_, copy_, wide(temporary.name()).c_str(),
                                          zCommitId(head.get()), Z_CHECK_FORCE | Z_CHECK_NO_LOCKS);
        if (!cleared.whole()) throw Failed(kOther, "not all local changes could be taken away");
        finish_merge(copy_);
    }

    int move_forward() {
        const OwnedIndex index = copy_.lock_index();
        const std::optional<HeldDrawings> held = hold();
        const BranchTip tip(copy_);
        const OwnedCommit head(copy_.born() ? copy_.head() : OwnedCommit());
        Passage passage(host_, copy_, index.get(), head.get(), theirs_.get());
        if (const Transfer taken = passage.run(0); !taken.whole()) {
            summary("incomplete", nullptr, taken.missed);
            passage.fail(taken);
        }
        tip.move(zCommitId(theirs_.get()));
        if (head)
            warn_of_mixed(host_, copy_, head.get(),
                          incoming_files(copy_, *zCommitId(head.get()), theirs_.get()));
        if (!options_.no_drawings && zIndexHasConflicts(index.get()))
            merge_by_itself(host_, copy_, index.get());
        host_.notify->let_drawings_go();
        if (!has_conflicts(copy_)) return done(theirs_.get());
        summary("conflicts", zCommitId(theirs_.get()));
        return tell_conflicts(host_);
    }

    int bring_together(const Oid &base) {
        const std::string author = author_of(host_, copy_, "");
        const Incoming incoming = incoming_files(copy_, base, theirs_.get());
        const OwnedIndex index = copy_.lock_index();
        LocalWork(copy_, index.get(), incoming).require_none();
        stop_on_break(host_.notify);
        const std::optional<HeldDrawings> held = hold();
        const BegunMerge begun(copy_, index.get(), *zCommitId(theirs_.get()));
        Transfer taken;
        {
            const TempBranch temporary(copy_, &base);
            taken = transfer(host_, copy_, wide(temporary.name()).c_str(), zCommitId(theirs_.get()),
                             Z_CHECK_NO_LOCKS);
        }
        warn_of_mixed(host_, copy_, ours_.get(), incoming);
        left_ = taken.broken_off ? incoming.size() - std::min(incoming.size(), taken.handled)
                                 : taken.missed;
        if (zIndexHasConflicts(index.get())) meet(index.get(), taken);
        host_.notify->let_drawings_go();
        const bool conflicts = zIndexHasConflicts(index.get());
        if (taken.broken_off && !conflicts && is_as_head(copy_, index.get()))
            throw Failed(kCanceled, "cancelled");
        if (conflicts) return conflicted();
        if (!is_noted_) begun.end();
        return commit(index.get(), author, taken);
    }

    // Where drawings may come together by themselves, what is told of them waits for that.
    std::optional<HeldDrawings> hold() const {
        if (options_.no_drawings) return {};
        return std::make_optional<HeldDrawings>(host_.notify);
    }

    // Whoever resolves conflicts is told whose they are, also where this is cut short; the commit
    // then has theirs as a parent, unless something is left.
    void meet(Index *index, const Transfer &taken) {
        note_merge(copy_, {*zCommitId(theirs_.get()), !left_}, message());
        is_noted_ = true;
        // The next merge, for the rest, would bring what they added once more.
        if (!options_.no_drawings && taken.whole()) merge_by_itself(host_, copy_, index);
    }

    int conflicted() const {
        summary("conflicts", nullptr, left_);
        if (left_)
            host_.out.warn(say("%s; merge again for the rest when this is committed", left_out()));
        return tell_conflicts(host_);
    }

    int commit(Index *index, const std::string &author, const Transfer &taken) {
        const Oid *theirs = zCommitId(theirs_.get());
        const std::string words = taken.whole() ? message() : part_note(*theirs);
        const OwnedCommit made(
            check(zIndexCommitWith(index, nullptr, u"HEAD", wide(author).c_str(),
                                   wide(words).c_str(), theirs, taken.whole() ? 1 : 0)));
        if (is_noted_) finish_merge(copy_);
        if (taken.whole()) return done(made.get());
        summary("incomplete", zCommitId(made.get()), left_);
        if (taken.broken_off)
            throw Failed(kCanceled, say("cancelled, %s; merge again for the rest", left_out()));
        throw Failed(kOther, say("%s; close what uses them, and merge again", left_out()));
    }

    std::string message() const {
        const std::string words = clean(options_.message);
        return words.empty() ? "Merge " + options_.branch : words;
    }

    std::string left_out() const {
        return say(left_ == 1 ? "%s file was left out" : "%s files were left out", left_);
    }

    int done(const Commit *commit) const {
        host_.out.line(host_.out.paint(Colour::yellow, short_id(zCommitId(commit))) + " " +
                       first_line(narrow(zCommitMessage(commit))));
        return summary("merged", zCommitId(commit));
    }

    int summary(const char *result, const Oid *commit, uint64_t left = 0) const {
        Record record("merge");
        record.set(u"branch", options_.branch).set(u"result", result);
        record.set(u"theirs", zCommitId(theirs_.get()));
        if (commit) record.set(u"commit", commit);
        if (options_.dry) record.set(u"dry_run", true);
        if (left) record.set(u"left", left);
        host_.out.record(record);
        return kDone;
    }

    Host &host_;
    const WorkingCopy &copy_;
    const Options &options_;
    OwnedCommit ours_, theirs_; // ours: null before the first commit
    uint64_t left_ = 0;         // files of theirs that did not come in
    bool is_noted_ = false;     // as one that isn't committed yet
};

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    if (options.abort) return abort_merge(host, copy);
    if (options.branch.empty()) throw Failed(kInvalid, "which branch is to be merged?");
    require_branch(copy);
    return Merge(host, copy, options).run();
}

} // namespace

extern const Verb kMergeVerb{"merge", Group::upkeep, Nature::displaces,
                             bind<Options, declare, run>};

} // namespace host
