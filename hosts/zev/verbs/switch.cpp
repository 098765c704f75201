// switch: to another branch, or to the state of some commit, to look at it.
//
// The checkout goes on a reference of its own, which starts at HEAD's commit, and then HEAD names
// the other branch, or the commit itself. A crash in between leaves HEAD where it was, with what is
// over there staged, or taken back by the next command: switching once more goes on from there.

#include "detached.hpp"
#include "graph.hpp"
#include "in_the_way.hpp"
#include "merge_state.hpp"
#include "refs.hpp"
#include "remote_copy.hpp"
#include "server_history.hpp"
#include "show.hpp"
#include "transfer.hpp"

namespace host {

namespace {

struct Options {
    std::string target; // a branch, else a commit
    bool create = false;
    bool force = false;
};

void declare(Command &verb, Options &options) {
    verb.description("Go to another branch, or look at the state of a commit");
    verb.footer(
        "Changes that aren't committed come along; what both changed becomes a conflict. With a\n"
        "commit that is no branch the copy shows its state, on no branch: nothing is committed\n"
        "there, and \"zev switch BRANCH\" goes back. Files that you changed and that are\n"
        "otherwise over there go to the trash then; it asks first.\n"
        "Examples:\n  zev switch details\n  zev switch -c details\n  zev switch HEAD~2\n"
        "  zev switch details --force");
    verb.add_option("target", options.target, "A branch, else a commit")->required();
    const Argument create =
        verb.add_flag("-c,--create", options.create, "Make the branch here, then go to it");
    verb.add_flag("--force", options.force, "All local changes go to the trash; it asks first")
        ->excludes(create);
}

class Switch {
  public:
    Switch(Host &host, const WorkingCopy &copy, const Options &options)
        : host_(host), copy_(copy), options_(options), left_(current_branch(copy)),
          name_(options.target) {
        const bool is_here = name_ == "HEAD" && !options.create;
        if (is_here && left_.starts_with(kHeads)) name_ = left_.substr(kHeads.size());
    }

    int run() {
        require_followed();
        if (options_.create) return create();
        if (!is_branch(copy_, name_)) offer_remote();
        return is_branch(copy_, name_) ? to_branch() : to_commit();
    }

  private:
    std::u16string full_name() const { return wide(full_branch(name_)); }

    // A copy of a server's project sends what is on the branch that it follows. On another nothing
    // would go there, nor come from there: whoever wants it has git.
    void require_followed() const {
        const std::string url = origin_of(copy_);
        if (url.empty()) return;
        const bool is_here = is_branch(copy_, name_);
        const bool is_other = options_.create || (is_here && !follows(copy_, full_branch(name_))) ||
                              (!is_here && !remote_branch(copy_, name_).empty());
        if (!is_other || left_ == full_branch(name_)) return;
        throw Failed(kOther,
                     say("%s: no branch of the server is followed there, and nothing would "
                         "be sent; \"zev get %s DIR --branch NAME\" makes a copy of another "
                         "one",
                         name_, url));
    }

    // What only a remote has as a branch becomes one here, if the user agrees.
    void offer_remote() const {
        const std::string remote = remote_branch(copy_, name_);
        if (remote.empty()) return;
        require_yes(host_.notify,
                    {.id = "zev.switch.remote",
                     .title = "",
                     .instruction = say("Make branch %s from %s?", name_, remote),
                     .content = "There is none of that name here yet.",
                     .buttons = {"Make it", "Stay"}},
                    say("%s: there is no branch of that name here, and nothing was changed", name_),
                    say("\"zev branch %s %s\" makes it", name_, remote));
        make_branch(copy_, name_, copy_.commit("refs/remotes/" + remote).get());
    }

    int create() {
        if (is_branch(copy_, name_))
            throw Failed(kExists, say("%s: there is a branch of that name", name_));
        const OwnedIndex lock = copy_.lock_index(); // what a kill leaves goes with the next one
        if (copy_.born()) make_branch(copy_, name_, copy_.head().get());
        return name_branch(false);
    }

    int to_branch() {
        if (left_ == full_branch(name_) && !options_.force) return stay();
        target_ = copy_.commit(narrow(full_name().c_str()));
        return go(true);
    }

    int to_commit() {
        target_ = find_commit(host_, copy_, name_);
        const bool stays =
            left_.empty() && zOidIsEqual(zCommitId(target_.get()), zCommitId(copy_.head().get()));
        if (stays && !options_.force) return stay();
        require_whole();
        return go(false);
    }

    int stay() {
        host_.out.line("nothing to do");
        return done("nothing", false);
    }

    int go(bool names_branch) {
        prepare();
        clear(names_branch);
        const OwnedIndex index = copy_.lock_index();
        const OwnedCommit head = own_head();
        Passage passage(host_, copy_, index.get(), head.get(), target_.get());
        if (const Transfer taken = passage.run(options()); !taken.whole()) {
            done("incomplete", has_conflicts(copy_));
            passage.fail(taken);
        }
        if (options_.force) finish_merge(copy_);
        const bool conflicts = has_conflicts(copy_);
        return names_branch ? name_branch(conflicts) : name_commit(conflicts);
    }

    OwnedCommit own_head() const { return copy_.born() ? copy_.head() : OwnedCommit(); }

    // Whoever only looks is to come back to what he left: no conflict, and no commit without a
    // name.
    void clear(bool names_branch) const {
        const OwnedCommit head = own_head();
        if (left_.empty()) confirm_leaving(head.get());
        if ((left_.empty() || !names_branch) && !options_.force)
            clear_way(host_, copy_, head.get(), target_.get());
    }

    void prepare() {
        if (options_.force) return confirm_trash(host_, local_work(copy_));
        require_settled(copy_);
        require_no_merge(copy_);
        stop_on_break(host_.notify);
    }

    uint32_t options() const { return options_.force ? uint32_t{Z_CHECK_FORCE} : 0; }

    // A commit that was made on no branch, by git, would be found by its id alone.
    void confirm_leaving(const Commit *head) const {
        const Oid id = *zCommitId(head);
        if (is_kept(copy_, host_.notify, id) ||
            Graph(copy_, host_.notify).contains(*zCommitId(target_.get()), id))
            return;
        require_yes(host_.notify,
                    {.id = "zev.switch.leave",
                     .title = "",
                     .instruction = say("Leave commit %s, which is on no branch?", short_id(&id)),
                     .content =
                         "Nothing names it any more then; \"zev switch --create NAME\" makes "
                         "a branch of it.",
                     .buttons = {"Leave it", "Stay"}},
                    "nothing was changed");
    }

    // A copy of a server's project has few states whole, and its user may not read all of each.
    void require_whole() const {
        if (origin_of(copy_).empty()) return;
        if (!is_here()) commit_with(host_, copy_, name_, "");
        const OwnedTree tree(zCommitTree(target_.get()));
        const OwnedSpec all(check(zPathSpecNew(nullptr, 0)));
        const Owned<Authdb, zAuthdbFree> rules(check(zAuthdbOpen(copy_.repository())));
        const Owned<Vector, zPathListFree> files(tree ? zTreeMatch(tree.get(), all.get())
                                                      : nullptr);
        bool is_whole = files != nullptr;
        for (uint64_t i = 0; is_whole && i < zPathListLength(files.get()); ++i)
            is_whole = zAuthdbEntryReadable(rules.get(), zPathListEntry(files.get(), i));
        if (!is_whole)
            throw Failed(kNotFound,
                         say("%1$s: not all of it is here, or for you to read; \"zev reset %1$s\" "
                             "brings what there is, as a change of yours",
                             name_));
    }

    // What differs from HEAD over there.
    bool is_here() const {
        const OwnedCommit head = own_head();
        const OwnedSpec spec(check(zPathSpecNew(nullptr, Z_SPEC_NO_RENAMED | Z_SPEC_NO_UNCHANGED)));
        const OwnedDiff changes(zCommitDiff(head.get(), target_.get(), spec.get(), nullptr));
        const OwnedOdb odb(check(zOdbOpen(copy_.repository())));
        bool here = changes != nullptr;
        for (uint64_t i = 0; here && i < zDiffListLength(changes.get()); ++i) {
            const DiffEntry *entry = zDiffListEntry(changes.get(), i);
            here = zDiffEntryStatus(entry) == Z_KIND_DELETED ||
                   zOdbExists(odb.get(), zDiffEntryNewId(entry));
        }
        return here;
    }

    int name_branch(bool conflicts) {
        Owned<Reference, zReferenceFree>(
            check(zReferenceSymlink(copy_.repository(), u"HEAD", full_name().c_str())));
        host_.out.line(say("on branch %s", name_));
        done("branch", conflicts);
        return conflicts ? tell_conflicts(host_) : kDone;
    }

    int name_commit(bool conflicts) {
        const Oid *id = zCommitId(target_.get());
        Owned<Reference, zReferenceFree>(check(zReferenceCreate(copy_.repository(), u"HEAD", id)));
        const std::string back =
            left_.starts_with(kHeads) ? left_.substr(kHeads.size()) : way_back(copy_);
        host_.out.line(say("at %s %s, to look at: \"zev switch %s\" goes back", short_id(id),
                           first_line(clean(narrow(zCommitMessage(target_.get())))), back));
        done("commit", conflicts);
        return conflicts ? tell_conflicts(host_) : kDone;
    }

    int done(const char *result, bool conflicts) {
        Record record("switch");
        record.set(u"target", options_.target).set(u"result", result);
        if (copy_.born()) record.set(u"commit", zCommitId(copy_.head().get()));
        host_.out.record(record.set(u"conflicts", conflicts));
        return kDone;
    }

    Host &host_;
    const WorkingCopy &copy_;
    const Options &options_;
    const std::string left_; // the full name of the branch that it is on; empty for none
    std::string name_;       // of where it goes
    OwnedCommit target_;
};

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    return Switch(host, copy, options).run();
}

} // namespace

extern const Verb kSwitchVerb{"switch", Group::upkeep, Nature::displaces,
                              bind<Options, declare, run>};

} // namespace host
