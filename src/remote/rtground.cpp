// What the user committed here and never sent, and what the server had and lost, would be taken off
// the disk by an update: the checkout takes the branch's commit for what both sides had. So before
// it the branch gets a commit without either, the ground, which the checkout goes out from. It
// stands on the commits that it leaves out: these stay where git finds them, and no collection of
// garbage takes them. Its second parent is the one of which the server has all, so that whoever
// puts the branch back to one of the others meets them as never sent.
//
// Index and files are not touched. A crash before the checkout's own commit leads back to where the
// branch was, as ever; one behind it, before the note is written, takes for unsent what the server
// has: the next ground leaves it out, and both sides turn out equal.
#include "remote/update_context.hpp"

#include "objects/store/commit.hpp"
#include "objects/store/odb.hpp"
#include "objects/store/pathspec.hpp"
#include "objects/store/tree_pairs.hpp"
#include "objects/work/index.hpp"
#include "zev/index.h"
#include "zev/object.h"
#include "zev/oid.h"
#include "zev/reference.h"

#include <algorithm>
#include <span>
#include <string>

namespace zev {

namespace {

// How much of a history is asked for, a step after the other; 0 is all. A step takes one line of
// first parents: of branches that came together there are several.
constexpr uint64_t kSteps[] = {64, 1024, 0, 0, 0, 0, 0, 0};
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
    const std::span<const Oid> base(standing.base ? &*standing.base : nullptr,
                                    standing.base.has_value());
    const IndexPtr index = index_of_holder(context.repository);
    if (!index) return context.tell(u"odb.eUnableToOpenIndex");
    if (!is_settled(context, index.get())) return false;
    const CommitPtr made(commit_create(
        zBranchMerge(context.head.get()), u"remote", message_of(standing).c_str(), ground,
        [&] { return index_stands(index.get()); }, base));
    if (!made) return context.tell(u"odb.eFailedToWriteCommit");
    context.stand = *zCommitId(made.get());
    index_committed(index.get(), zCommitId(made.get()));
    return true;
}

// Of the files that the ground takes from before the loss those that aren't here, by their names;
// null for none.
PathSpecPtr missing_files(UpdateContext &context, const Standing &standing) {
    const KeptFailure kept; // what can't be read is told where the ground is laid
    const TreePtr before = tree_of(context.repository, *standing.fork);
    const TreePtr after = tree_of(context.repository, standing.from);
    const OdbPtr odb(zOdbOpen(context.repository));
    PathSpecPtr names(zPathSpecNew(nullptr, Z_SPEC_LITERAL));
    if (!before || !after || !odb || !names) return nullptr;
    git_odb_refresh(odb->handle.get());
    const auto take = [&](const std::string &path, TreePairs::Entry file, TreePairs::Entry) {
        if (file && git_tree_entry_type(file) == GIT_OBJECT_BLOB &&
            !is_stored(odb->handle.get(), git_tree_entry_id(file)))
            zPathSpecAdd(names.get(), to_wide(path).c_str());
    };
    const bool done = TreePairs(context.repository->handle.get(), false, take)
                          .walk(before->handle.get(), after->handle.get());
    if (!done || !zPathSpecCount(names.get())) return nullptr;
    zPathSpecSetNotify(names.get(), context.notify);
    return names;
}

bool fetch_kept(UpdateContext &context, const Standing &standing, int32_t type) {
    const auto fetch = [&](int32_t wanted, PathSpec *paths) {
        return context.asked(
            zRemoteDownloadMatches(context.remote, &*standing.fork, wanted, paths));
    };
    if (!fetch(Z_OBJECT_TREE, context.paths())) return false;
    const PathSpecPtr names = type == Z_OBJECT_TREE ? nullptr : missing_files(context, standing);
    return !names || fetch(type, names.get());
}

// By steps, as long as one brings something. False, raised, for a break alone.
bool fetch_commits(UpdateContext &context) {
    const Quiet quiet(context.notify);
    std::optional<Oid> missing, last;
    for (const uint64_t limit : kSteps) {
        missing = missing_history(context.repository, context.head.get(), context.upstream.get(),
                                  *context.tip);
        if (!missing || (last && zOidIsEqual(&*last, &*missing))) break;
        last = missing;
        const KeptFailure kept;
        if (!context.asked(zRemoteDownloadCommits(context.remote, &*missing, limit, &quiet))) break;
    }
    context.is_history_known = !missing;
    return context.canceled ? raise_canceled() : true;
}

} // namespace

bool fetch_history(UpdateContext &context, int32_t type) {
    if (!fetch_commits(context)) return false;
    const Standing standing =
        find_standing(context.repository, context.head.get(), context.upstream.get(), context.tip);
    return !standing.fork || fetch_kept(context, standing, type);
}

void tell_standing(const UpdateContext &context, const Standing &standing) {
    const KeptFailure kept;
    Json *lang = zI18nCurrentLang();
    const uint64_t count = standing.unsent.size();
    if (standing.went_back && !context.tip)
        zNotifyInfo(
            context.notify, u"%s",
            zI18nTextFormat(lang, u"odb.sServerLostBranch_s", zBranchName(context.head.get())));
    else if (standing.went_back)
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

namespace {

// Git knows no lock of ours: what it committed since the branch was locked lies behind the copy
// that a failure and a crash put back.
bool stands_as_locked(const UpdateContext &context, const std::optional<Oid> &head) {
    if (head && context.stand && zOidIsEqual(&*head, &*context.stand)) return true;
    return is_as_locked(context.transaction.get(), zBranchMerge(context.head.get())) ||
           fail_moved();
}

} // namespace

bool lay_ground(UpdateContext &context, Losses losses) {
    const zwchar *name = zBranchName(context.head.get());
    Standing standing;
    if (!look_at_standing(context.repository, context.head.get(), context.upstream.get(),
                          context.tip, losses, standing))
        return context.tell(u"odb.eFailedToResolveTree_s", name);
    if (!stands_as_locked(context, standing.head)) return context.tell(kUnmoved, name);
    context.stand = context.ground = standing.head;
    context.goes_to_own = std::ranges::any_of(standing.unsent, [&](const Oid &id) {
        return context.goal && zOidIsEqual(&*context.goal, &id);
    });
    if (standing.is_plain()) return true;
    const TreePtr ours = standing.head ? tree_of(context.repository, *standing.head) : nullptr;
    const TreePtr ground = take_ground(context.repository, standing);
    if (!ours || !ground) return context.tell(u"odb.eFailedToResolveTree_s", name);
    const bool is_same = zOidIsEqual(zTreeId(ours.get()), zTreeId(ground.get()));
    if (!is_same && !commit_ground(context, standing, ground.get())) return false;
    context.ground = context.stand;
    if (context.told_unsent) standing.unsent.clear(); // by the step before
    context.told_unsent = context.told_unsent || !standing.unsent.empty();
    tell_standing(context, standing);
    return true;
}

namespace {

// The commit that the next update asks the server's branch for. Beside its line there is none.
std::optional<Oid> server_commit(const UpdateContext &context) {
    if (context.losses == Losses::count || !context.tip) return context.tip;
    const bool is_on_line = is_led_to(context.repository, *context.tip, *context.goal);
    return is_on_line ? context.goal : std::nullopt;
}

} // namespace

// What is not noted is found out.
void agree(UpdateContext &context) try {
    const KeptFailure kept;
    const std::optional<Oid> &agreed = context.goes_to_own ? context.ground : context.stand;
    if (agreed) note_agreed(context.repository, context.head.get(), *agreed);
    if (!context.is_history_known) return; // else the note would hide what the server lost
    note_server(context.repository, context.head.get(), server_commit(context));
} catch (...) {
    fail_thrown();
}

} // namespace zev
