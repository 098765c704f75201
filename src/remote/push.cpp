// The push of a commit, in this order:
//   1. the server is asked which of the new objects it lacks
//   2. these go up: files in a pack, large ones alone, drawings as rows of their tables
//   3. the server makes a tree of its own by the list of changes, then a commit of that
//   4. the commit comes here, and the tracking branch moves to it
// Of what the server makes the tree is held against ours before there is a commit of it, the commit
// against tree and parent before the branch moves: else an update would bring here, as news, what
// nobody has done. What fails before 3 leaves on the server what nothing names. All requests go
// over one connection.
#include "remote/push.hpp"

#include "common/error_class.hpp"
#include "common/text.hpp"
#include "network/rest/repos/pack_stream.hpp"
#include "objects/notify/left.hpp"
#include "objects/store/diff.hpp"
#include "objects/store/object.hpp"
#include "objects/store/odb.hpp"
#include "objects/store/reference.hpp"
#include "objects/store/strict.hpp"
#include "objects/work/treebuilder.hpp"
#include "remote/changes.hpp"
#include "remote/push_drawings.hpp"
#include "stream/stream.hpp"
#include "system/os.hpp"
#include "zev/commit.h"
#include "zev/odb.h"
#include "zev/pack.h"
#include "zev/reference.h"
#include "zev/repository.h"
#include "zev/status.h"
#include "zev/tree.h"

#include <algorithm>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zev {

namespace {

using PackPtr = Owned<PackBuilder, zPackBuilderFree>;
using BuilderPtr = Owned<TreeBuilder, zTreeBuilderFree>;

// What one request carries; the server takes twice that, and a larger commit goes by several. Bytes
// and objects of a pack; ids in a question, a node of JSON and 43 bytes each; changes of a tree,
// six nodes each, and as many bytes as their paths take.
constexpr uint64_t kPack = limits::http_body / 2, kPackObjects = limits::sent_objects / 2;
constexpr uint64_t kIds = limits::http_nodes / 2;
constexpr uint64_t kChanges = limits::http_nodes / 10, kChangeBytes = limits::http_json / 2;

constexpr int32_t kBadRequest = 400, kConflict = 409;

using Changes = std::span<const DiffEntry *const>;

class Pushing {
  public:
    explicit Pushing(Push &push) : push_(push), owner_(push.remote->owner) {}
    bool run() {
        return find_commits() && find_changes() && ask() && sort_out() && send_files() &&
               push_drawings(push_, drawings_) && send_tree() && send_commit() && move_branch();
    }

  private:
    bool find_commits();
    bool find_changes();
    bool ask();
    bool ask_for(JsonGuard ids);
    bool sort_out();
    bool sort_out(const Json *answer);
    bool send_files();
    bool send_pack(PackBuilder *builder);
    bool send_alone(const DiffEntry *entry);
    Failure fail_packing(const DiffEntry *entry) const;
    bool send_tree();
    bool send_changes(Changes changes, const Oid *base);
    bool check_tree() const;
    bool is_made_of_changes() const;
    bool send_commit();
    Failure fail_first(const RemoteCall &sent, HttpResponse *response, const zwchar *branch);
    bool is_as_sent(const Commit *made) const;
    bool move_branch();

    RemoteCall call(const zwchar *summary = u"odb.eFailedToPushLocalChanages") const {
        return {push_.remote, push_.notify, summary, u"net.eFailedToCreatePushRequest"};
    }
    Failure fail(const zwchar *key, const zwchar *argument = nullptr) const {
        return notify_error(push_.notify, key, argument);
    }
    const zwchar *branch() const { return zBranchName(push_.upstream); }
    bool tell_refused(HttpResponse *response) const;

    Push &push_;
    Repository *owner_;
    CommitPtr commit_, parent_; // ours, and the server's; null where it has none
    Oid base_{};                // the server's tree
    DiffListPtr changes_;
    std::vector<JsonGuard> missing_; // the server's answers
    struct Offer {
        const DiffEntry *entry = nullptr;
        bool taken = false;
    };
    std::unordered_map<Oid, Offer, IdHash, IdEqual> offers_;
    std::vector<const DiffEntry *> files_, drawings_;
    Oid tree_{}, made_{}; // the server's, new
};

// ---- What changed

bool Pushing::find_commits() {
    commit_.reset(zBranchCommit(push_.upstream));
    if (!commit_) return fail(u"odb.eFailedToResolveCommit_s", branch());
    if (!zCommitParentCount(commit_.get())) return true;
    parent_.reset(zCommitParent(commit_.get()));
    const TreePtr tree(parent_ ? zCommitTree(parent_.get()) : nullptr);
    if (!tree) return fail(u"odb.eFailedToResolveTree_s", branch());
    base_ = *zTreeId(tree.get());
    return true;
}

bool Pushing::find_changes() {
    changes_ = changes_of_commit(commit_.get());
    return changes_ || fail(u"odb.eFailedToPushLocalChanages");
}

template <class F> void each(const DiffList *changes, F visit) {
    const uint64_t count = zDiffListLength(changes);
    for (uint64_t n = 0; n < count; ++n) visit(zDiffListEntry(changes, n));
}

bool brings_object(const DiffEntry *entry) {
    const int32_t status = zDiffEntryStatus(entry);
    return status == Z_KIND_ADDED || status == Z_KIND_MODIFIED;
}

// ---- What the server lacks

bool Pushing::ask() {
    const uint64_t count = zDiffListLength(changes_.get());
    for (uint64_t n = 0; n < count || missing_.empty();) {
        JsonGuard ids(zJsonNew(Z_JSON_ARRAY));
        for (uint64_t held = 0; n < count && held < kIds; ++n) {
            const DiffEntry *entry = zDiffListEntry(changes_.get(), n);
            if (!brings_object(entry)) continue;
            push(ids.get(), zJsonNewId(zDiffEntryNewId(entry)));
            ++held;
        }
        if (!ask_for(std::move(ids))) return false;
    }
    return true;
}

bool Pushing::ask_for(JsonGuard ids) {
    const RemoteCall asked = call();
    const JsonGuard query = entries_query(std::move(ids));
    JsonGuard &answer = missing_.emplace_back(json_of(
        asked, send(asked, make_request(asked, Z_HTTP_POST, u"/objects/diff", query.get()))));
    if (!answer) return false;
    return json_find(answer.get(), u"data.entries") || wrong_data(asked);
}

// Of one content at several paths that one counts where it is a drawing, whose rows must go, too.
int rank(const DiffEntry *entry) {
    return 2 * brings_object(entry) + has_drawing_name(zDiffEntryNewPath(entry));
}

bool Pushing::sort_out() {
    each(changes_.get(), [&](const DiffEntry *entry) {
        Offer &offer = offers_[*zDiffEntryNewId(entry)];
        if (!offer.entry || rank(entry) >= rank(offer.entry)) offer.entry = entry;
    });
    for (const JsonGuard &answer : missing_)
        if (!sort_out(json_find(answer.get(), u"data.entries"))) return false;
    missing_.clear();
    offers_.clear();
    return true;
}

// In the order of the answer; an id counts once, and only one that was offered.
bool Pushing::sort_out(const Json *entries) {
    const uint64_t count = zJsonIsArray(entries) ? zJsonArraySize(entries) : 0;
    for (uint64_t n = 0; n < count; ++n) {
        Oid id;
        const auto offer =
            read_id(&id, zJsonArrayAt(entries, n)) ? offers_.find(id) : offers_.end();
        if (offer == offers_.end()) return raise_args(), fail(u"odb.eFailedToPushLocalChanages");
        if (std::exchange(offer->second.taken, true)) continue;
        const DiffEntry *entry = offer->second.entry;
        const auto drawn = is_drawing(owner_, zDiffEntryNewPath(entry), *zDiffEntryNewId(entry));
        if (!drawn) return fail_packing(entry);
        (*drawn ? drawings_ : files_).push_back(entry);
    }
    return true;
}

// ---- Files

bool Pushing::send_files() {
    const OdbPtr odb(files_.empty() ? nullptr : zOdbOpen(owner_));
    PackPtr builder;
    uint64_t bytes = 0, objects = 0;
    for (const DiffEntry *entry : files_) {
        const Oid *id = zDiffEntryNewId(entry);
        const uint64_t size = odb ? zOdbSize(odb.get(), id) : 0;
        if (size > kAlone) {
            if (!send_alone(entry)) return false;
            continue;
        }
        if (!builder) builder.reset(zPackBuilderNew(owner_));
        if (!builder || !zPackBuilderInsert(builder.get(), id)) return fail_packing(entry);
        bytes += size;
        if (++objects < kPackObjects && bytes < kPack) continue;
        if (!send_pack(builder.get())) return false;
        builder.reset();
        bytes = objects = 0;
    }
    return !builder || send_pack(builder.get());
}

bool Pushing::send_alone(const DiffEntry *entry) {
    if (zRemoteUploadObject(push_.remote, zDiffEntryNewId(entry), push_.notify)) return true;
    if (is_broken_off(push_)) return false;
    return zErrorClass() == error_class::kNet ? notify_raised(push_.notify) : fail_packing(entry);
}

// What can't be read here is not the server's fault, and its path tells the user what to mend.
Failure Pushing::fail_packing(const DiffEntry *entry) const {
    notify_left(push_.notify, u"action.sFailed", zDiffEntryNewPath(entry));
    return fail(u"odb.eFailedToBuildPack");
}

bool Pushing::send_pack(PackBuilder *builder) {
    struct Spool {
        Push &push;
        StreamPtr stream{spill_stream()};
    } spool{push_};
    const auto put = [](const void *bytes, uint64_t size, void *context) -> int32_t {
        auto *spool = static_cast<Spool *>(context);
        spool->push.canceled = zNotifyIsUsrbrk(spool->push.notify);
        if (spool->push.canceled) return -1;
        return rest::write_piece(spool->stream.get(), bytes, size) ? 0 : -1;
    };
    if (!spool.stream || !zPackBuilderForeach(builder, put, &spool))
        return push_.canceled ? raise_canceled() : fail(u"odb.eFailedToBuildPack");
    const RemoteCall sent = call();
    HttpRequest *request = make_request(sent, Z_HTTP_POST, u"/packs");
    if (!request) return false;
    if (!zHttpRequestSetOctet(request, spool.stream.release())) return fail(sent.unready);
    return send(sent, request) != nullptr;
}

// ---- Tree and commit, as the server makes them

bool is_gone(const DiffEntry *entry) { return zDiffEntryStatus(entry) == Z_KIND_DELETED; }

// What a server makes of a file that is not like all others; null for those.
const zwchar *kind_of(uint32_t mode) {
    if (mode == GIT_FILEMODE_LINK) return u"link";
    return mode == GIT_FILEMODE_BLOB_EXECUTABLE ? u"program" : nullptr;
}

// {"oper": "add", "modify" or "delete", "id": ID, "path": PATH, "mode": MODE}, and a "kind"
Json *told(const DiffEntry *entry) {
    const bool gone = is_gone(entry);
    const bool added = zDiffEntryStatus(entry) == Z_KIND_ADDED;
    const auto side = [&](auto old_side, auto new_side) {
        return gone ? old_side(entry) : new_side(entry);
    };
    JsonGuard change(
        zJsonNewObject(u"oper",
                       zJsonNewString(gone    ? u"delete"
                                      : added ? u"add"
                                              : u"modify"),
                       u"id", zJsonNewId(side(zDiffEntryOldId, zDiffEntryNewId)), u"path",
                       zJsonNewString(side(zDiffEntryOldPath, zDiffEntryNewPath)), u"mode",
                       zJsonNewInt(side(zDiffEntryOldMode, zDiffEntryNewMode)), nullptr));
    const zwchar *kind = gone ? nullptr : kind_of(zDiffEntryNewMode(entry));
    if (kind) put(change.get(), u"kind", zJsonNewString(kind));
    return change.release();
}

// How many of the changes go with the next request.
size_t fitting(Changes changes) {
    constexpr uint64_t kFixed = 128, kUnit = 6; // bytes of all but a path, and of a unit of it
    size_t count = 0;
    for (uint64_t bytes = 0; count < changes.size() && count < kChanges; ++count) {
        bytes += kFixed + kUnit * zStrlenW(zDiffEntryNewPath(changes[count]));
        if (count && bytes > kChangeBytes) break;
    }
    return count;
}

// Paths where the user may not write: {"error": [{"path": PATH}, ...]}. He is told of each.
bool Pushing::tell_refused(HttpResponse *response) const {
    Stream *body = zHttpResponseBody(response);
    if (!body) return false;
    JsonBounds bounds{limits::answer_bytes, limits::answer_nodes};
    const JsonGuard answer(json_read_bounded(body, bounds));
    const Json *paths = answer ? json_find(answer.get(), u"error") : nullptr;
    if (!paths || !zJsonIsArray(paths)) return false;
    const uint64_t count = zJsonArraySize(paths);
    for (uint64_t n = 0; n < count; ++n) {
        const zwchar *path = text_in(zJsonArrayAt(paths, n), u"path");
        notify_action(push_.notify, u"action.sUnauthorized", path ? path : u"");
    }
    const RemoteCall silent{push_.remote, nullptr, u"odb.eFailedToPushLocalChanages"};
    judge(silent, response);
    return true;
}

// In the order of the list. Of a request the server deletes first: where there are several, those
// come first that delete, so that a file makes room for a directory and the other way round.
bool Pushing::send_tree() {
    std::vector<const DiffEntry *> changes;
    bool known = true;
    each(changes_.get(), [&](const DiffEntry *entry) {
        changes.push_back(entry);
        known = known && (is_gone(entry) || brings_object(entry));
    });
    if (!known) return raise_args(), fail(u"odb.eFailedToPushLocalChanages");
    if (fitting(changes) < changes.size())
        std::stable_partition(changes.begin(), changes.end(), is_gone);
    const Oid *base = parent_ ? &base_ : nullptr;
    for (Changes left = changes; !left.empty(); base = &base_) {
        const size_t count = fitting(left);
        if (!send_changes(left.first(count), base)) return false;
        base_ = tree_;
        left = left.subspan(count);
    }
    return check_tree();
}

// A tree that is not ours is nobody's to commit. An older server makes plain files of links and of
// files to run, which everybody would get.
bool Pushing::check_tree() const {
    if (zOidIsEqual(&tree_, zCommitTreeId(commit_.get())) || is_made_of_changes()) return true;
    const DiffEntry *special = nullptr;
    each(changes_.get(), [&](const DiffEntry *entry) {
        if (!is_gone(entry) && zDiffEntryNewMode(entry) != GIT_FILEMODE_BLOB) special = entry;
    });
    if (!special) return wrong_data(call());
    raise_args();
    notify_action(push_.notify, u"action.sFailed", zDiffEntryNewPath(special));
    return fail(u"odb.eModeNotKept_s", zDiffEntryNewPath(special));
}

// Other programs make directories without a file, which a server leaves out where it makes a
// directory anew; ours may still have them. What it made of the changes is made here in the same
// way, and so is here when the branch comes to name it.
bool Pushing::is_made_of_changes() const {
    const KeptFailure kept;
    const StrictOff partial; // not all files are here
    const TreePtr base(parent_ ? zCommitTree(parent_.get()) : nullptr);
    const BuilderPtr builder(zTreeBuilderNew(owner_, base.get()));
    bool done = builder && (base || !parent_);
    for (const bool deletes : {true, false})
        each(changes_.get(), [&](const DiffEntry *entry) {
            if (!done || is_gone(entry) != deletes) return;
            const zwchar *path = zDiffEntryNewPath(entry);
            done = deletes ? zTreeBuilderRemove(builder.get(), path)
                           : builder_insert(builder.get(), to_utf8(path),
                                            *git::oid(zDiffEntryNewId(entry)),
                                            git_filemode_t(zDiffEntryNewMode(entry)));
        });
    const TreePtr made(done ? zTreeBuilderWrite(builder.get(), owner_) : nullptr);
    return made && zOidIsEqual(&tree_, zTreeId(made.get()));
}

bool Pushing::send_changes(Changes changes, const Oid *base) {
    JsonGuard entries(zJsonNew(Z_JSON_ARRAY));
    for (const DiffEntry *entry : changes) push(entries.get(), told(entry));
    const JsonGuard query = entries_query(std::move(entries));
    if (base) put(json_find(query.get(), u"query"), u"base", zJsonNewId(base));
    const RemoteCall sent = call();
    HttpRequest *request = make_request(sent, Z_HTTP_POST, u"/trees", query.get());
    if (!request) return false;
    HttpResponse *response = exchange(request);
    if (response && !zHttpResponseOk(response) && tell_refused(response)) return false;
    const JsonGuard body = json_of(sent, judge(sent, response));
    if (!body) return false;
    return id_in(&tree_, json_find(body.get(), u"data"), u"id") || wrong_data(sent);
}

// A first commit names no parent, and where somebody was faster with his the server says that it
// lacks one. That is a race lost as any other; whether it was, the server's branch tells.
Failure Pushing::fail_first(const RemoteCall &sent, HttpResponse *response, const zwchar *branch) {
    std::u16string reason = zStrsafeW(zHttpResponseStrerr(response));
    const RemoteCall silent{push_.remote, nullptr, sent.summary};
    HttpRequest *request =
        make_request(silent, Z_HTTP_GET, std::u16string(u"/refs/").append(branch));
    HttpResponse *there = request ? exchange(request) : nullptr;
    if (there && zHttpResponseUsrbrk(there)) return raise_canceled();
    const bool lost = there && zHttpResponseOk(there);
    if (lost)
        reason = to_wide(std::to_string(kConflict) + ": ") + word(u"srv.eWorktreeNeedsUpdate");
    return notify_net(push_.notify, lost ? kConflict : kBadRequest, reason.c_str(), sent.summary);
}

bool Pushing::send_commit() {
    const RemoteCall sent = call(u"net.eFailedToPushLocalChanages");
    zwchar update[Z_PATH_MAX];
    if (!zReferenceXform(update, Z_PATH_MAX, push_.remote->handle.get(),
                         zBranchMerge(push_.upstream)))
        return raise_not_found(zBranchMerge(push_.upstream)), fail(sent.summary);
    JsonGuard query(zJsonNewObject(u"tree", zJsonNewId(&tree_), u"author",
                                   zJsonNewString(without_controls(push_.author).c_str()),
                                   u"message",
                                   zJsonNewString(without_controls(push_.message).c_str()),
                                   u"update", zJsonNewString(update), nullptr));
    if (!query) return fail(sent.summary);
    if (parent_) put(query.get(), u"parent", zJsonNewId(zCommitId(parent_.get())));
    const JsonGuard whole(zJsonNewObject(u"query", query.release(), nullptr));
    HttpRequest *request = make_request(sent, Z_HTTP_POST, u"/commits", whole.get());
    if (!request) return false;
    HttpResponse *response = exchange(request);
    if (!parent_ && response && zHttpResponseCode(response) == kBadRequest)
        return fail_first(sent, response, update);
    const JsonGuard body = json_of(sent, judge(sent, response));
    if (!body) return false;
    return id_in(&made_, json_find(body.get(), u"data"), u"id") || wrong_data(sent);
}

bool Pushing::is_as_sent(const Commit *made) const {
    if (!zOidIsEqual(zCommitTreeId(made), &tree_)) return false;
    const uint64_t parents = zCommitParentCount(made);
    if (!parent_) return !parents;
    return parents == 1 && zOidIsEqual(zCommitParentId(made), zCommitId(parent_.get()));
}

// Its trees are here: they are those of the commit that was replayed. It is on the disk before
// anything names it.
bool Pushing::move_branch() {
    if (!zRemoteDownloadObject(push_.remote, &made_, push_.notify)) return false;
    const CommitPtr made(by_id<Commit>(owner_, &made_));
    if (!made || !is_as_sent(made.get()))
        return wrong_data(call(u"net.eFailedToPushLocalChanages"));
    const zwchar *place = zRepositoryPath(owner_);
    const bool synced = place && (os::sync_tree(place) || fail_os(errno, place));
    const ReferencePtr reference(synced ? zBranchReference(push_.upstream) : nullptr);
    return (reference && zReferenceSetTarget(reference.get(), &made_)) ||
           fail(u"odb.eFailedToUpdateRef_s", zBranchMerge(push_.upstream));
}

} // namespace

bool is_broken_off(Push &push) {
    const HttpRequest *request = push.remote->request.get();
    return push.canceled = push.canceled || (request && zHttpRequestUsrbrk(request));
}

bool push_commit(Push &push) {
    const bool done = Pushing(push).run();
    if (!done) is_broken_off(push);
    return done;
}

} // namespace zev
