// What a checkout is to do, as a record that its setters keep whole: the paths are never null.
#include "objects/operations/checkspec.hpp"

#include "objects/store/pathspec.hpp"
#include "zev/oid.h"
#include "zev/pathspec.h"

#include <memory>

using namespace zev;

namespace {

constexpr size_t kDigits = 8; // of an id, for people

std::u16string short_id(const Oid &id) {
    zwchar text[41] = {};
    zOidFormat(text, &id);
    return std::u16string(text, kDigits);
}

} // namespace

CheckSpec *zCheckSpecNew() { return zCheckSpecBuild(nullptr, nullptr, nullptr, 0); }

CheckSpec *zCheckSpecDup(const CheckSpec *spec) {
    if (!spec) return fail_args();
    return zCheckSpecBuild(zCheckSpecBranch(spec), zCheckSpecTarget(spec), spec->paths.get(),
                           spec->options);
}

void zCheckSpecFree(CheckSpec *spec) { delete spec; }

CheckSpec *zCheckSpecBuild(const zwchar *branch, const Oid *target, const PathSpec *paths,
                           uint32_t options) try {
    CheckSpecPtr spec(new CheckSpec);
    spec->paths.reset(paths ? zPathSpecDup(paths) : zPathSpecNew(nullptr, 0));
    if (!spec->paths) return nullptr;
    if (branch) spec->branch = branch;
    if (target) spec->target = *target;
    spec->options = options;
    return spec.release();
} catch (...) {
    return fail_thrown();
}

CheckSpec *zCheckSpecByref(const zwchar *branch, const PathSpec *paths) {
    return zCheckSpecBuild(branch, nullptr, paths, 0);
}
CheckSpec *zCheckSpecByid(const Oid *target, const PathSpec *paths) {
    return zCheckSpecBuild(nullptr, target, paths, 0);
}
CheckSpec *zCheckSpecBypath(const PathSpec *paths) {
    return zCheckSpecBuild(nullptr, nullptr, paths, 0);
}

// ---- Branch and target

const zwchar *zCheckSpecBranch(const CheckSpec *spec) {
    if (!spec) return fail_args();
    return spec->branch ? spec->branch->c_str() : nullptr;
}

bool zCheckSpecSetBranch(CheckSpec *spec, const zwchar *branch) try {
    if (!spec) return fail_args();
    branch ? spec->branch = branch : spec->branch = std::nullopt;
    return true;
} catch (...) {
    return fail_thrown();
}

const Oid *zCheckSpecTarget(const CheckSpec *spec) {
    if (!spec) return fail_args();
    return spec->target ? &*spec->target : nullptr;
}

bool zCheckSpecSetTarget(CheckSpec *spec, const Oid *target) {
    if (!spec) return fail_args();
    target ? spec->target = *target : spec->target = std::nullopt;
    return true;
}

// ---- Paths

PathSpec *zCheckSpecPaths(CheckSpec *spec) { return spec ? spec->paths.get() : fail_args(); }
const PathSpec *zCheckSpecPathsConst(const CheckSpec *spec) {
    return spec ? spec->paths.get() : fail_args();
}

bool zCheckSpecSetPaths(CheckSpec *spec, const PathSpec *paths) {
    if (!spec) return fail_args();
    const PathSpec *old = spec->paths.get();
    PathSpecPtr taken(paths ? zPathSpecDup(paths) : zPathSpecNew(nullptr, old->options));
    if (!taken) return false;
    if (!paths) taken->notify = old->notify;
    spec->paths = std::move(taken);
    return true;
}

bool zCheckSpecAddPath(CheckSpec *spec, const zwchar *path) {
    return spec ? zPathSpecAdd(spec->paths.get(), path) : fail_args();
}

bool zCheckSpecUseGlob(CheckSpec *spec, bool use) {
    if (!spec) return fail_args();
    PathSpec *paths = spec->paths.get();
    return use ? zPathSpecSetOff(paths, Z_SPEC_LITERAL) : zPathSpecSetOn(paths, Z_SPEC_LITERAL);
}

// ---- Options and notify

uint32_t zCheckSpecOptions(const CheckSpec *spec) {
    if (!spec) return fail_args(), 0;
    return spec->options;
}
bool zCheckSpecSetOptions(CheckSpec *spec, uint32_t options) {
    if (!spec) return fail_args();
    spec->options = options;
    return true;
}
bool zCheckSpecIsOn(const CheckSpec *spec, uint32_t bits) {
    if (!spec) return fail_args();
    return (spec->options & bits) == bits;
}
bool zCheckSpecIsOff(const CheckSpec *spec, uint32_t bits) {
    if (!spec) return fail_args();
    return (spec->options & bits) == 0;
}
bool zCheckSpecSetOn(CheckSpec *spec, uint32_t bits) {
    if (!spec) return fail_args();
    spec->options |= bits;
    return true;
}
bool zCheckSpecSetOff(CheckSpec *spec, uint32_t bits) {
    if (!spec) return fail_args();
    spec->options &= ~bits;
    return true;
}

const Notify *zCheckSpecNotify(const CheckSpec *spec) {
    return spec ? spec->paths->notify : fail_args();
}
bool zCheckSpecSetNotify(CheckSpec *spec, const Notify *notify) {
    return spec ? zPathSpecSetNotify(spec->paths.get(), notify) : fail_args();
}

const zwchar *zCheckSpecStringfy(CheckSpec *spec) try {
    if (!spec) return u"HEAD";
    if (!spec->target) return spec->branch ? spec->branch->c_str() : u"HEAD";
    spec->text = short_id(*spec->target);
    if (spec->branch) spec->text = *spec->branch + u"@" + spec->text;
    return spec->text.c_str();
} catch (...) {
    return fail_thrown();
}
