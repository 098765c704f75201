// switch: to another branch, or the current one to the state of some commit.
//
// To a branch the checkout goes on a reference of its own, which starts at HEAD's commit, and then
// HEAD names the other branch. A crash in between leaves HEAD where it was, with what the other
// branch has staged: switching once more goes on from there.

#include "merge_state.hpp"
#include "refs.hpp"
#include "remote_copy.hpp"
#include "transfer.hpp"

namespace host {

namespace {

struct Options {
    std::string target; // a branch, else a commit
    bool create = false;
    bool force = false;
};

void declare(Command &verb, Options &options) {
    verb.description("Go to another branch, or to the state of a commit");
    verb.footer(
        "Changes that aren't committed come along; what both changed becomes a conflict. With\n"
        "a commit that is no branch, its state becomes the newest commit of the current\n"
        "branch: all that was committed stays in its history.\n"
        "Examples:\n  zev switch details\n  zev switch -c details\n  zev switch HEAD~2\n"
        "  zev switch details --force");
    verb.add_option("target", options.target, "A branch, else a commit")->required();
    const Argument create =
        verb.add_flag("-c,--create", options.create, "Make the branch here, then go to it");
    verb.add_flag("--force", options.force, "Local changes go to the trash; it asks first")
        ->excludes(create);
}

class Switch {
  public:
    Switch(Host &host, const WorkingCopy &copy, const Options &options)
        : host_(host), copy_(copy), options_(options) {}

    int run() {
        require_followed();
        if (options_.create) return create();
        if (!is_branch(copy_, options_.target)) offer_remote();
        return is_branch(copy_, options_.target) ? to_branch() : to_commit();
    }

  private:
    std::u16string full_name() const { return wide(full_branch(options_.target)); }

    // A copy of a server's project sends what is on the branch that it follows. On another nothing
    // would go there, nor come from there: whoever wants it has git.
    void require_followed() const {
        const std::string url = origin_of(copy_), &name = options_.target;
        if (url.empty()) return;
        const bool is_here = is_branch(copy_, name);
        const bool is_other = options_.create || (is_here && !follows(copy_, full_branch(name))) ||
                              (!is_here && !remote_branch(copy_, name).empty());
        if (!is_other || current_branch(copy_) == full_branch(name)) return;
        throw Failed(kOther,
                     say("%s: no branch of the server is followed there, and nothing would "
                         "be sent; \"zev get %s DIR --branch NAME\" makes a copy of another "
                         "one",
                         name, url));
    }

    // What only a remote has as a branch becomes one here, if the user agrees.
    void offer_remote() const {
        const std::string remote = remote_branch(copy_, options_.target);
        if (remote.empty()) return;
        const int32_t answer = ask(
            host_.notify, {.id = "zev.switch.remote",
                           .title = "",
                           .instruction = say("Make branch %s from %s?", options_.target, remote),
                           .content = "There is none of that name here yet.",
                           .buttons = {"Make it", "Stay"}});
        if (answer == 1)
            return make_branch(copy_, options_.target,
                               copy_.commit("refs/remotes/" + remote).get());
        if (!host_.notify->outcome().unanswered) throw Failed(kCanceled, "nothing was changed");
        throw Failed(kNotFound, say("%1$s: no branch here; \"zev branch %1$s %2$s\" makes it",
                                    options_.target, remote));
    }

    int create() {
        if (is_branch(copy_, options_.target))
            throw Failed(kExists, say("%s: there is a branch of that name", options_.target));
        const OwnedIndex lock = copy_.lock_index(); // what a kill leaves goes with the next one
        if (copy_.born()) make_branch(copy_, options_.target, copy_.head().get());
        return move_head(false);
    }

    int to_branch() {
        const bool stays = current_branch(copy_) == full_branch(options_.target);
        if (stays && !options_.force)
            return host_.out.line("nothing to do"), done("nothing", false);
        target_ = copy_.commit(narrow(full_name().c_str()));
        prepare();
        const OwnedIndex index = copy_.lock_index();
        const OwnedCommit head(copy_.born() ? copy_.head() : OwnedCommit());
        Passage passage(host_, copy_, index.get(), head.get(), target_.get());
        if (const Transfer taken = passage.run(options()); !taken.whole()) {
            done("incomplete", has_conflicts(copy_));
            passage.fail(taken);
        }
        if (options_.force) finish_merge(copy_);
        return move_head(has_conflicts(copy_));
    }

    int to_commit() {
        target_ = copy_.commit(options_.target);
        if (current_branch(copy_).empty())
            throw Failed(kOther, "HEAD is on no branch; \"zev switch -c NAME\" makes one of it");
        prepare();
        const Transfer taken = transfer(host_, copy_, nullptr, zCommitId(target_.get()), options());
        const bool conflicts = has_conflicts(copy_);
        if (options_.force && !conflicts) finish_merge(copy_);
        done(taken.whole() ? "commit" : "incomplete", conflicts);
        if (taken.broken_off) throw Failed(kCanceled, "cancelled; what was done until then stays");
        if (taken.missed) throw Failed(kOther, say("%s files could not be changed", taken.missed));
        if (conflicts) return tell_conflicts(host_);
        host_.out.line(say("the newest commit of the branch is as %s", options_.target));
        return kDone;
    }

    void prepare() {
        if (options_.force) return confirm_trash(host_, local_work(copy_));
        require_settled(copy_);
        require_no_merge(copy_);
        stop_on_break(host_.notify);
    }

    uint32_t options() const { return options_.force ? uint32_t{Z_CHECK_FORCE} : 0; }

    int move_head(bool conflicts) {
        Owned<Reference, zReferenceFree>(
            check(zReferenceSymlink(copy_.repository(), u"HEAD", full_name().c_str())));
        host_.out.line(say("on branch %s", options_.target));
        done("branch", conflicts);
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
