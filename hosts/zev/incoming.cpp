// The library's result alone doesn't tell what was left out, nor that the user broke off while
// files came in: what it told by the way does.
#include "incoming.hpp"

#include "drawing_merge.hpp"
#include "front.hpp"
#include "refs.hpp"
#include "server_note.hpp"
#include "show.hpp"
#include "transfer.hpp"

namespace host {

namespace {

std::optional<Oid> head_tree(const WorkingCopy &copy) {
    if (!copy.born()) return {};
    return *zCommitTreeId(copy.head().get());
}

struct Result {
    const char *name;
    uint64_t files, missed;
    Stock came;
    OwnedCommit commit; // the server's, null where it has none
};

std::string sentence(const Result &result) {
    const std::string id = short_id(zCommitId(result.commit.get()));
    if (!result.files && !result.missed) return say("up to date at %s", id);
    const std::string files = count_of(result.files, "file");
    if (!result.came.objects) return say("updated to %s: %s", id, files);
    return say("updated to %s: %s; %s came", id, files, stock_text(result.came));
}

void tell(Host &host, const Result &result, const Reception &reception) {
    if (result.commit) host.out.line(sentence(result)); // else the library has told it
    Record record("update");
    record.set(u"result", result.name).set(u"files", result.files);
    record.set(u"objects", result.came.objects).set(u"bytes", result.came.bytes);
    record.set(u"resumed", reception.is_resumed());
    if (result.commit) record.set(u"commit", zCommitId(result.commit.get()));
    if (result.missed) record.set(u"left", result.missed);
    host.out.record(record);
}

} // namespace

int tell_update(Host &host, const WorkingCopy &copy, const Oid *before, bool whole,
                Reception &reception) {
    const Outcome outcome = host.notify->outcome();
    const bool conflicts = has_conflicts(copy);
    const std::optional<Oid> after = head_tree(copy);
    const bool moved = after && !(before && zOidIsEqual(before, &*after));
    const uint64_t missed = outcome.failed + outcome.skipped;
    Result result{"nothing", outcome.done, missed, reception.stock(), server_commit(copy)};
    if (outcome.done || moved) result.name = "updated";
    if (conflicts) result.name = "conflicts";
    if (missed || broken() || outcome.aborted) result.name = "incomplete";
    tell(host, result, reception);
    if (broken() || outcome.aborted)
        throw Failed(kCanceled, "cancelled; what came in stays, and \"zev update\" goes on");
    reception.finish();
    note_answer(copy, whole && !missed && result.commit ? zCommitId(result.commit.get()) : nullptr);
    if (missed)
        throw Failed(kOther,
                     say(missed == 1 ? "%s file was left out, for the reasons above; update again "
                                       "when they are gone"
                                     : "%s files were left out, for the reasons above; update "
                                       "again when they are gone",
                         missed));
    return conflicts ? tell_conflicts(host) : kDone;
}

// Also those of an earlier update that was cut short. All has come by now; what can't be done here
// stays as conflicts.
static void merge_drawings(Host &host, const WorkingCopy &copy, PathSpec *paths) try {
    if (broken() || host.notify->outcome().aborted || !has_conflicts(copy)) return;
    const OwnedIndex index = copy.lock_index();
    merge_by_itself(host, copy, index.get(), paths);
} catch (const Failed &failed) {
    if (failed.error_class != kCanceled) host.out.warn(failed.what());
}

int take_update(Host &host, const WorkingCopy &copy, const char *verb, const Oid *target,
                PathSpec *paths, bool merges) {
    const OwnedRemote remote = open_remote(copy);
    const Owned<CheckSpec, zCheckSpecFree> spec(check(zCheckSpecByid(target, paths)));
    check(zCheckSpecSetNotify(spec.get(), host.notify));
    const std::optional<Oid> before = head_tree(copy);
    Reception reception(host, own_directory(copy), verb, copy.born());
    std::optional<HeldDrawings> held;
    if (merges) held.emplace(host.notify);
    host.notify->forget();
    if (!zRemoteUpdate(remote.get(), spec.get())) {
        reception.fail();
        fail_remote(host, origin_of(copy));
    }
    if (merges) merge_drawings(host, copy, paths);
    held.reset();
    return tell_update(host, copy, before ? &*before : nullptr, !paths, reception);
}

} // namespace host
