// Revisions: ids of a branch's history, and what each changed, from its record or with a new one.
// What holds: a bad element ends the whole request.
#include "common/error_class.hpp"
#include "network/rest/operations.hpp"
#include "network/rest/repos/content.hpp"
#include "objects/history/revision.hpp"
#include "objects/store/object.hpp"
#include "objects/store/tree_extent.hpp"
#include "zev/revdb.h"
#include "zev/revision.h"
#include "zev/time.h"

#include <cerrno>
#include <vector>

namespace zev::rest {

namespace {

using SpecPtr = Owned<RevSpec, zRevSpecFree>;

// ---- The list

bool set_base(const Call &call, RevSpec *spec) {
    const zwchar *head = capture(call, u"head");
    RevBase *base = zRevSpecBase(spec);
    Oid id;
    if (!head) return zRevBaseSetByhead(base);
    return parse_id(&id, head) ? zRevBaseSetByid(base, &id) : zRevBaseSetByref(base, head);
}

// False for a text that is no date.
bool set_time(const Call &call, RevSpec *spec, const zwchar *name,
              bool (*set)(RevSpec *, const Time *)) {
    const std::optional<Time> time = query_date(call, name);
    return time ? set(spec, &*time) : !capture(call, name);
}

HttpResponse *fill_spec(const Call &call, RevSpec *spec) {
    if (!spec || !zRevSpecSetOptions(spec, spec->options | Z_REV_STAY | Z_REV_LOCAL) ||
        !set_base(call, spec))
        return refuse(call, 500);
    if (const zwchar *limit = capture(call, u"limit"))
        zRevSpecSetLimit(spec, zStrtollW(limit, nullptr, 10));
    if (!set_time(call, spec, u"since", zRevSpecSetSince))
        return refuse(call, 400, u"srv.eFieldInvalid_s", u"?since");
    if (!set_time(call, spec, u"until", zRevSpecSetUntil))
        return refuse(call, 400, u"srv.eFieldInvalid_s", u"?until");
    return nullptr;
}

// A list that is shorter than its limit goes to the beginning of history, or to `since`: from its
// last commit on nothing may be missing, or those behind would count as if they had never been.
bool is_complete(const Call &call, RevSpec *spec, const std::vector<Oid> &ids) {
    if (spec->limit > 0 && ids.size() >= static_cast<uint64_t>(spec->limit)) return true;
    Repository *repository = call.repository.get();
    const Oid *last = ids.empty() ? zRevBaseResolve(zRevSpecBase(spec), repository) : &ids.back();
    CommitPtr commit(last ? zCommitByid(repository, last) : nullptr);
    bool is_sound = commit || ids.empty(); // before the first commit there is none
    for (Time time; commit && is_sound; is_sound = go_back(commit)) {
        zCommitTime(&time, commit.get());
        if (time.seconds < spec->since.seconds) break;
    }
    return is_sound;
}

// ---- One revision

// Anybody can send a commit that no branch knows. Of the two trees that it changes, what differs is
// gone through. Raised where it isn't.
bool has_bounded_changes(Commit *commit) {
    const CommitPtr parent(zCommitParentCount(commit) ? zCommitParent(commit) : nullptr);
    const TreePtr before(parent ? zCommitTree(parent.get()) : nullptr), after(zCommitTree(commit));
    git_tree *old = before ? before->handle.get() : nullptr;
    return after && has_bounded_change(old, after->handle.get()) &&
           has_bounded_change(after->handle.get(), old);
}

// The record is looked for first: it stands for a commit that is not here. Null when there is no
// such commit; also where what it names is lost or beyond the bounds, which is the store's failure.
RevisionPtr find_revision(const Call &call, Revdb *db, const Oid &id) {
    RevisionPtr found;
    if (find_record(db, &id, found) == Lookup::whole) return found;
    const CommitPtr commit(by_id<Commit>(call.repository.get(), &id));
    if (!commit) return nullptr;
    RevisionPtr made;
    if (has_bounded_changes(commit.get())) made = kept_revision(db, *commit);
    if (!made && !fail_lost() && zErrorClass() == error_class::kOutOfRange) fail_os(EOVERFLOW);
    return made;
}

Absent no_revision(const zwchar *id) {
    return {404, u"srv.eNoSuchRevision_s", id, u"odb.eFailedToOpenRevdb"};
}

Tree revision_tree(const RevisionPtr &revision) {
    return Tree(revision_to_json(revision.get()).release());
}

// One element of a batch, added to the answer.
HttpResponse *add_revision(const Call &call, Revdb *db, Json *element, Json *answer) {
    Oid id;
    Json *text = zJsonIsObject(element) ? zJsonObjectAt(element, u"oid") : nullptr;
    if (!text) return refuse(call, 400, u"srv.eFieldRequired_s", u"id");
    const zwchar *digits = zJsonGetString(text);
    if (!parse_id(&id, digits)) return refuse(call, 400, u"srv.eFieldInvalid_s", u"id");
    const RevisionPtr revision = find_revision(call, db, id);
    if (!revision) return refuse_absent(call, no_revision(digits));
    return push(answer, revision_tree(revision)) ? nullptr : refuse(call, 500);
}

} // namespace

HttpResponse *list_revisions(Call &call) {
    if (HttpResponse *refusal = open_project(call)) return refusal;
    const SpecPtr spec(zRevSpecNew());
    if (HttpResponse *refusal = fill_spec(call, spec.get())) return refusal;
    RevBase *base = zRevSpecBase(spec.get()); // a branch that isn't there would count as unborn
    constexpr Absent kNone{404, nullptr, nullptr, nullptr};
    const auto refuse_all = [&]() -> HttpResponse * {
        const bool is_named = zRevBaseType(base) != Z_REV_BY_ID;
        if (is_named) fail_lost_at(call.repository.get(), zRevBaseRef(base));
        return refuse_absent(call, kNone);
    };
    if (zRevBaseType(base) == Z_REV_BY_REF && !zRevBaseResolve(base, call.repository.get()))
        return refuse_all();
    std::vector<Oid> ids;
    if (!revision_ids(call.repository.get(), spec.get(), ids)) return refuse_all();
    if (!is_complete(call, spec.get(), ids)) return refuse(call, 500);
    Tree entries(zJsonNew(Z_JSON_ARRAY));
    for (const Oid &id : ids)
        if (entries && !push(entries.get(), Tree(zJsonNewId(&id)))) entries.reset();
    return entries ? answer_entries(std::move(entries)) : refuse(call, 500);
}

HttpResponse *read_revision(Call &call) {
    const zwchar *other = capture(call, u":other");
    Oid id;
    if (!parse_id(&id, other)) return refuse(call, 400, u"srv.eFieldInvalid_s", u"id");
    if (HttpResponse *refusal = open_project(call)) return refusal;
    const RevdbPtr db(zRevdbOpen(call.repository.get()));
    if (!db) return refuse(call, 500, u"odb.eFailedToOpenRevdb");
    const RevisionPtr revision = find_revision(call, db.get(), id);
    if (!revision) return refuse_absent(call, no_revision(other));
    HttpResponse *response = answer(200, revision_tree(revision));
    return response ? response : refuse(call, 500);
}

HttpResponse *read_revisions(Call &call) {
    if (HttpResponse *refusal = open_project(call)) return refusal;
    Tree body;
    if (HttpResponse *refusal = read_json(call, body)) return refusal;
    if (!zJsonIsArray(body.get())) return refuse(call, 400, u"srv.eUnresolvableContent");
    const uint64_t count = zJsonArraySize(body.get());
    const RevdbPtr db(count ? zRevdbOpen(call.repository.get()) : nullptr);
    Tree entries(zJsonNew(Z_JSON_ARRAY));
    if ((count && !db) || !entries) return refuse(call, 500, u"odb.eFailedToOpenRevdb");
    for (uint64_t n = 0; n < count; ++n)
        if (HttpResponse *refusal =
                add_revision(call, db.get(), zJsonArrayAt(body.get(), n), entries.get()))
            return refusal;
    return answer_entries(std::move(entries));
}

} // namespace zev::rest
