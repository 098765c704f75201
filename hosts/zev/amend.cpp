// The commit is made on a reference of its own, which begins at the old one's first parent; then
// the branch moves, if it still is where it was. A crash in between leaves the old commit, with
// what was to come staged.
#include "amend.hpp"

#include "index_change.hpp"
#include "merge_state.hpp"
#include "refs.hpp"
#include "remote_copy.hpp"
#include "sending.hpp"
#include "show.hpp"

namespace host {

namespace {

class Amend {
  public:
    Amend(Host &host, const WorkingCopy &copy, const Amendment &amendment)
        : host_(host), copy_(copy), given_(amendment) {}

    int run() {
        const bool made =
            make_unless_conflicts(copy_, [this](Index *index) { return make(index); });
        return made ? tell() : fail_conflicts(host_);
    }

  private:
    // False where another program came in between.
    bool make(Index *index) {
        old_ = copy_.head();
        author_ = given_.author.empty() ? narrow(zCommitAuthor(old_.get())) : given_.author;
        message_ = given_.message.empty() ? narrow(zCommitMessage(old_.get())) : given_.message;
        require_change(index);
        keep_named(copy_, index, given_.paths);
        stop_on_break(host_.notify);
        const BranchTip tip(copy_);
        const Oid *first = zCommitParentIdAt(old_.get(), 0);
        const TempBranch temporary(copy_, first);
        made_ = commit(index, given_.spec, temporary.name());
        if (!made_ && given_.spec && zErrorClass() == kNotFound) made_ = reword(index, temporary);
        if (made_) tip.move(zCommitId(made_.get()));
        return made_ != nullptr;
    }

    bool says_more() const { return !given_.author.empty() || !given_.message.empty(); }

    void require_change(Index *index) const {
        if (!says_more() && !given_.spec && is_as_head(copy_, index))
            throw Failed(kNotFound, "nothing to amend; \"zev add\" files, name them, or give "
                                    "another message");
    }

    OwnedCommit commit(Index *index, PathSpec *spec, const std::string &reference) const {
        std::vector<Oid> others; // of a merge
        for (uint64_t i = 1; i < zCommitParentCount(old_.get()); ++i)
            others.push_back(*check(zCommitParentIdAt(old_.get(), i)));
        return OwnedCommit(zIndexCommitWith(index, spec, wide(reference).c_str(),
                                            wide(author_).c_str(), wide(message_).c_str(),
                                            others.data(), others.size()));
    }

    // All that is tracked is as it was: what is left are the words.
    OwnedCommit reword(Index *index, const TempBranch &temporary) const {
        if (!given_.paths.empty() || !says_more()) throw Failed(kNotFound, narrow(zErrorMsg()));
        return commit(index, nullptr, temporary.name());
    }

    int tell() const {
        const std::string id = hex(zCommitId(made_.get()));
        host_.out.line(
            host_.out.paint(Colour::yellow, id.substr(0, 8)) + " " +
            say("%s, in place of %s", first_line(message_), short_id(zCommitId(old_.get()))));
        host_.out.record(Record("commit")
                             .set(u"id", id)
                             .set(u"tree", zCommitTreeId(made_.get()))
                             .set(u"author", author_)
                             .set(u"message", message_)
                             .set(u"amended", zCommitId(old_.get())));
        return kDone;
    }

    Host &host_;
    const WorkingCopy &copy_;
    const Amendment &given_;
    OwnedCommit old_, made_;
    std::string author_, message_;
};

} // namespace

int amend(Host &host, const WorkingCopy &copy, const Amendment &amendment) {
    if (!origin_of(copy).empty())
        throw Failed(kOther, "the server has the last commit, and others may have it from there; "
                             "make another one");
    if (unsettled_merge(copy))
        throw Failed(kOther, "a merge is not committed yet; commit it, or \"zev merge --abort\" "
                             "takes it back");
    return Amend(host, copy, amendment).run();
}

} // namespace host
