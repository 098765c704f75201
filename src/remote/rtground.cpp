// What the user committed here and never sent, and what the server had and lost, would be taken off
// the disk by an update: the checkout takes the branch's commit for what both sides had. So before
// it the branch gets a commit without either, the ground, which the checkout goes out from. It
// stands in the history behind the commits that it leaves out: these stay where git finds them, and
// no collection of garbage takes them.
//
// Index and files are not touched. A crash before the checkout's own commit leads back to where the
// branch was, as ever; one behind it, before the note is written, takes for unsent what the server
// has: the next ground leaves it out, and both sides turn out equal.
#include "remote/update_context.hpp"

#include "objects/store/commit.hpp"
#include "objects/work/index.hpp"
#include "zev/index.h"
#include "zev/oid.h"
#include "zev/reference.h"

#include <algorithm>
#include <string>

namespace zev {

namespace {

// How much of a history is asked for, a step after the other; 0 is all.
constexpr uint64_t kSteps[] = {64, 1024, 0};
constexpr size_t kDigits = 8;  // of an id, for a reader
constexpr uint64_t kNamed = 9; // commits that are told by their words

std::u16string short_text(const Oid &id) { return id_text(id).substr(0, kDigits); }

std::u16string text_of(Repository *repository, const Oid &id) {
    const CommitPtr commit(zCommitByid(repository, &id));
    const std::u16string message = zStrsafeW(commit ? zCommitMessage(commit.get()) : nullptr);
    return u"  " + short_text(id) + u" " + message.substr(0, message.find_first_of(u"\r\n"));
}

std::u16string message_of(const Standing &standing) {
    std::u16string text;
    if (!standing.unsent.empty()) text = u"NOT SENT: " + short_text(standing.unsent.front());
    if (!standing.went_back) return text;
    if (!text.empty()) text += u"; ";
    return text + u"WENT BACK: " + short_text(standing.from) + u" " + short_text(standing.to);
}

// With conflicts the index doesn't say what the user wants to keep.
bool is_settled(UpdateContext &context, const Index *index) {
    if (!zIndexHasConflicts(index)) return true;
    raise_other(word(u"odb.eNeedResolveConflicts"), zBranchName(context.head.get()));
    return context.tell(u"odb.eNeedResolveConflicts");
}

// HEAD moves by it, and the index is as good as it was: the checkout is not to take the move for
// somebody else's.
bool commit_ground(UpdateContext &context, const Standing &standing, Tree *ground) {
    const IndexPtr index(zIndexHead(context.repository, false));
    if (!index) return context.tell(u"odb.eUnableToOpenIndex");
    if (!is_settled(context, index.get())) return false;
    const CommitPtr made(commit_create(zBranchMerge(context.head.get()), u"remote",
                                       message_of(standing).c_str(), ground,
                                       [&] { return index_stands(index.get()); }));
    if (!made) return context.tell(u"odb.eFailedToWriteCommit");
    index_committed(index.get(), zCommitId(made.get()));
    return true;
}

} // namespace

bool fetch_history(UpdateContext &context, const Oid &tip, int32_t type) {
    const Branch *head = context.head.get(), *upstream = context.upstream.get();
    for (const uint64_t limit : kSteps) {
        if (!lacks_history(context.repository, head, upstream, tip)) break;
        if (!context.asked(zRemoteDownloadCommits(context.remote, &tip, limit, context.notify)))
            return false;
    }
    const Standing standing = find_standing(context.repository, head, upstream, tip);
    return !standing.fork || context.asked(zRemoteDownloadMatches(context.remote, &*standing.fork,
                                                                  type, context.paths()));
}

void tell_standing(const UpdateContext &context, const Standing &standing) {
    const KeptFailure kept;
    Json *lang = zI18nCurrentLang();
    const uint64_t count = standing.unsent.size();
    if (standing.went_back)
        zNotifyInfo(context.notify, u"%s",
                    zI18nTextFormat(lang, u"odb.sServerWentBack_s_s",
                                    short_text(standing.from).c_str(),
                                    short_text(standing.to).c_str()));
    if (!count) return;
    zNotifyInfo(context.notify, u"%s",
                count == 1
                    ? word(u"odb.sUnsentCommit")
                    : zI18nTextFormat(lang, u"odb.sUnsentCommits_d", static_cast<int>(count)));
    for (uint64_t n = 0; n < std::min(count, kNamed); ++n)
        zNotifyInfo(context.notify, u"%s", text_of(context.repository, standing.unsent[n]).c_str());
    if (count > kNamed) zNotifyInfo(context.notify, u"%s", u"  ...");
}

bool lay_ground(UpdateContext &context, Losses losses) {
    Standing standing;
    if (!look_at_standing(context.repository, context.head.get(), context.upstream.get(), losses,
                          standing))
        return context.tell(u"odb.eFailedToResolveTree_s", zBranchName(context.head.get()));
    if (standing.is_plain()) return true;
    const TreePtr ours(zBranchTree(context.head.get()));
    const TreePtr ground = take_ground(context.repository, standing);
    if (!ours || !ground)
        return context.tell(u"odb.eFailedToResolveTree_s", zBranchName(context.head.get()));
    const bool is_same = zOidIsEqual(zTreeId(ours.get()), zTreeId(ground.get()));
    if (!is_same && !commit_ground(context, standing, ground.get())) return false;
    tell_standing(context, standing);
    return true;
}

void agree(UpdateContext &context) try {
    const KeptFailure kept;
    const bool follows = !context.empty_upstream;
    note_agreed(context.repository, context.head.get(), zBranchResolve(context.head.get()),
                follows ? zBranchResolve(context.upstream.get()) : nullptr);
} catch (...) {
    fail_thrown(); // what is not noted is found out
}

} // namespace zev
