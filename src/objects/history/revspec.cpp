// What of history is asked for. The five lists of patterns live as long as the record; options that
// they share with it are handed on whenever these change.
#include "objects/history/revision.hpp"

#include "zev/pathspec.h"

#include <new>

using namespace zev;

namespace {

// What the paths take over from the options; they always leave out what is unchanged.
uint32_t path_options(uint32_t options) {
    uint32_t passed = Z_SPEC_NO_UNCHANGED;
    if (options & Z_REV_LITERAL) passed |= Z_SPEC_LITERAL;
    if (options & Z_REV_MUST_MATCH) passed |= Z_SPEC_MUST_MATCH;
    if (options & Z_REV_NO_RENAMES) passed |= Z_SPEC_NO_RENAMED;
    return passed;
}

bool make(PathSpecPtr &list, uint32_t options) {
    list.reset(zPathSpecNew(nullptr, options));
    return list != nullptr;
}

bool add(RevSpec *spec, PathSpecPtr RevSpec::*list, const zwchar *text) {
    if (!spec || !text) return fail_args();
    return !*text || zPathSpecAdd((spec->*list).get(), text);
}

bool set(RevSpec *spec, Time RevSpec::*which, const Time *time) {
    if (!spec) return fail_args();
    spec->*which = time ? *time : Time{};
    return true;
}

} // namespace

RevSpec *zRevSpecNew() {
    Owned<RevSpec, zRevSpecFree> spec(new (std::nothrow) RevSpec());
    if (!spec) return fail_memory();
    const bool whole = make(spec->paths, path_options(0)) && make(spec->include_authors, 0) &&
                       make(spec->exclude_authors, 0) && make(spec->include_messages, 0) &&
                       make(spec->exclude_messages, 0);
    return whole ? spec.release() : nullptr;
}

void zRevSpecFree(RevSpec *spec) { delete spec; }

// The path spec that was lent stays the same record.
bool zRevSpecReset(RevSpec *spec) {
    if (!spec) return fail_args();
    for (PathSpec *list :
         {spec->paths.get(), spec->include_authors.get(), spec->exclude_authors.get(),
          spec->include_messages.get(), spec->exclude_messages.get()})
        if (!zPathSpecReset(list)) return false;
    spec->limit = 0;
    spec->since = spec->until = {};
    return zRevBaseSetByhead(&spec->base) && zRevSpecSetOptions(spec, 0);
}

RevBase *zRevSpecBase(RevSpec *spec) { return spec ? &spec->base : fail_args(); }
PathSpec *zRevSpecPaths(RevSpec *spec) { return spec ? spec->paths.get() : fail_args(); }

bool zRevSpecSetOptions(RevSpec *spec, uint32_t options) {
    if (!spec) return fail_args();
    spec->options = options;
    return zPathSpecSetOptions(spec->paths.get(), path_options(options));
}

bool zRevSpecIsOn(const RevSpec *spec, uint32_t bits) {
    if (!spec) return fail_args();
    return (spec->options & bits) == bits;
}

bool zRevSpecSetOn(RevSpec *spec, uint32_t bits) {
    if (!spec) return fail_args();
    return zRevSpecSetOptions(spec, spec->options | bits);
}

bool zRevSpecSetOff(RevSpec *spec, uint32_t bits) {
    if (!spec) return fail_args();
    return zRevSpecSetOptions(spec, spec->options & ~bits);
}

bool zRevSpecAddPath(RevSpec *spec, const zwchar *text) { return add(spec, &RevSpec::paths, text); }
bool zRevSpecIncludeAuthor(RevSpec *spec, const zwchar *text) {
    return add(spec, &RevSpec::include_authors, text);
}
bool zRevSpecExcludeAuthor(RevSpec *spec, const zwchar *text) {
    return add(spec, &RevSpec::exclude_authors, text);
}
bool zRevSpecIncludeMessage(RevSpec *spec, const zwchar *text) {
    return add(spec, &RevSpec::include_messages, text);
}
bool zRevSpecExcludeMessage(RevSpec *spec, const zwchar *text) {
    return add(spec, &RevSpec::exclude_messages, text);
}

bool zRevSpecSetLimit(RevSpec *spec, int64_t count) {
    if (!spec) return fail_args();
    spec->limit = count;
    return true;
}

bool zRevSpecSetSince(RevSpec *spec, const Time *time) { return set(spec, &RevSpec::since, time); }
bool zRevSpecSetUntil(RevSpec *spec, const Time *time) { return set(spec, &RevSpec::until, time); }

bool zRevSpecSetNotify(RevSpec *spec, const Notify *notify) {
    if (!spec) return fail_args();
    spec->notify = notify;
    return true;
}
