// Where a list of commits begins: HEAD, a reference or an id. What it comes to is looked up when it
// is asked for, and kept with the record until it is set anew.
#include "objects/history/revision.hpp"

#include "zev/commit.h"
#include "zev/oid.h"

#include <new>

using namespace zev;

namespace {

constexpr uint64_t kDigits = 8; // of an id, for people

// Moves a record's new state in, so that nothing of the old one stays.
bool start_over(RevBase *base, RevBase fresh) {
    *base = std::move(fresh);
    return true;
}

} // namespace

RevBase *zRevBaseNew() {
    auto *base = new (std::nothrow) RevBase();
    return base ? base : fail_memory();
}

void zRevBaseFree(RevBase *base) { delete base; }

bool zRevBaseSetByhead(RevBase *base) {
    if (!base) return fail_args();
    return start_over(base, {});
}

bool zRevBaseSetByref(RevBase *base, const zwchar *reference) {
    if (!base || !reference) return fail_args();
    Wide copy(zStrdupW(reference)); // which may be the record's own
    if (!copy) return false;
    return start_over(base, {.kind = Z_REV_BY_REF, .reference = std::move(copy)});
}

bool zRevBaseSetByid(RevBase *base, const Oid *id) {
    if (!base || !id) return fail_args();
    return start_over(base, {.kind = Z_REV_BY_ID, .id = *id});
}

int32_t zRevBaseType(const RevBase *base) {
    if (!base) return fail_args(), -1;
    return base->kind;
}

const zwchar *zRevBaseRef(const RevBase *base) {
    if (!base) return fail_args();
    return base->kind == Z_REV_BY_HEAD ? u"HEAD" : base->reference.get();
}

const Oid *zRevBaseId(const RevBase *base) {
    if (!base) return fail_args();
    return base->id ? &*base->id : nullptr;
}

const Oid *zRevBaseResolve(RevBase *base, Repository *repository) {
    if (!base || !repository) return fail_args();
    const Owned<Commit, zCommitFree> commit(base->id ? zCommitByid(repository, &*base->id)
                                                     : zCommitByref(repository, zRevBaseRef(base)));
    if (!commit) return nullptr;
    base->commit = *zCommitId(commit.get());
    return &*base->commit;
}

const zwchar *zRevBaseStringfy(RevBase *base) {
    if (!base) return fail_args();
    if (!base->id) return zRevBaseRef(base);
    return zOidNFormat(base->text, kDigits, &*base->id) ? base->text : nullptr;
}
