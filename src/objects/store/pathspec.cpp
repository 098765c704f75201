// Path specs, and the matcher that is made of one at its first use. Whatever changes patterns or
// options drops the matcher; names without wildcards cost a path one look-up a directory level.
#include "objects/store/pathspec.hpp"

#include "common/failure.hpp"
#include "common/fold.hpp"
#include "common/utf.hpp"
#include "zev/pathspec.h"
#include "zev/str.h"

#include <memory>
#include <new>

namespace zev {

namespace {

// Wildcards of a compiled glob, above every unit of text.
enum : char32_t { kAnyText = 0x10000, kAnyOne = 0x10001 };

zwchar folded(zwchar unit) {
    if (unit < 0x80) return unit >= u'A' && unit <= u'Z' ? static_cast<zwchar>(unit + 32) : unit;
    return fold(unit);
}

bool is_high(zwchar unit) { return unit >= 0xD800 && unit < 0xDC00; }

// How many units `?` takes: a character beyond the basic plane is two.
size_t one_character(std::u16string_view text, size_t at) {
    return is_high(text[at]) && at + 1 < text.size() ? 2 : 1;
}

// A star that fails to match on takes one unit more; only the last star can need to.
bool glob_matches(std::u32string_view glob, std::u16string_view text) {
    size_t g = 0, t = 0, star = std::u32string_view::npos, resume = 0;
    while (t < text.size()) {
        if (g < glob.size() && glob[g] == kAnyText) {
            star = g++;
            resume = t;
        } else if (g < glob.size() && glob[g] == kAnyOne) {
            t += one_character(text, t);
            ++g;
        } else if (g < glob.size() && glob[g] == text[t]) {
            ++t;
            ++g;
        } else if (star != std::u32string_view::npos) {
            g = star + 1;
            t = ++resume;
        } else {
            return false;
        }
    }
    while (g < glob.size() && glob[g] == kAnyText) ++g;
    return g == glob.size();
}

std::u16string_view without_slashes(std::u16string_view path) {
    while (!path.empty() && path.back() == u'/') path.remove_suffix(1);
    return path;
}

const zwchar *pattern_at(const Vector *patterns, uint64_t index) {
    return static_cast<const zwchar *const *>(zVectorDataConst(patterns))[index];
}

} // namespace

// Most paths are ASCII and need no conversion.
void fold_path(std::u16string &out, std::string_view path) {
    out.resize(path.size());
    size_t count = 0;
    while (count < path.size() && static_cast<unsigned char>(path[count]) < 0x80) {
        out[count] = folded(static_cast<zwchar>(path[count]));
        ++count;
    }
    if (count == path.size()) return;
    out.resize(wide_from_utf8(path.data(), path.size(), out.data()));
    for (zwchar &unit : out) unit = folded(unit);
}

// Names go into one table, so that many of them cost a path one look-up a directory level.
Matcher::Matcher(const Vector *patterns, bool literal) : patterns_(zVectorSize(patterns)) {
    for (uint64_t i = 0; i < patterns_; ++i) {
        const zwchar *pattern = pattern_at(patterns, i);
        if (!pattern || !*pattern) continue;
        const std::u16string_view text(pattern);
        if (text == u"." || text == u"./")
            all_ = true;
        else if (literal)
            add_literal(pattern);
        else
            add_pattern(pattern);
    }
    if (names_.empty() && globs_.empty()) all_ = true; // no patterns
}

// Slashes alone end as an empty name, which no path has.
void Matcher::add_literal(std::u16string_view pattern) {
    const bool below = pattern.back() == u'/';
    add_name(without_slashes(pattern), below ? kBelow : kItself);
}

// A name without wildcards is kept as text too: libgit2 can be told it, a glob not.
void Matcher::add_pattern(std::u16string_view pattern) {
    if (pattern.front() == u'/') pattern.remove_prefix(1);
    pattern = without_slashes(pattern);
    if (pattern == u"*") {
        all_ = true;
        return;
    }
    Glob glob;
    std::u16string plain;
    bool wild = false;
    for (size_t i = 0; i < pattern.size(); ++i) {
        const zwchar unit = pattern[i];
        if (unit == u'*' || unit == u'?') {
            wild = true;
            glob += unit == u'*' ? kAnyText : kAnyOne;
            continue;
        }
        if (unit == u'\\' && i + 1 < pattern.size()) ++i;
        plain += pattern[i];
        glob += folded(pattern[i]);
    }
    if (wild)
        globs_.push_back(std::move(glob));
    else
        add_name(plain, kItself | kBelow);
}

void Matcher::add_name(std::u16string_view path, uint8_t how) {
    std::u16string key(path);
    for (zwchar &unit : key) unit = folded(unit);
    for (size_t slash = key.find(u'/'); slash != key.npos; slash = key.find(u'/', slash + 1))
        folded_[key.substr(0, slash)] |= kAbove;
    folded_[std::move(key)] |= how;
    names_.push_back({to_utf8(path), (how & kItself) != 0, (how & kBelow) != 0});
}

bool Matcher::is_marked(std::u16string_view path, unsigned how) const {
    const auto found = folded_.find(path);
    return found != folded_.end() && found->second & how;
}

// A path is named by itself or by one of the directories above it.
bool Matcher::named(std::u16string_view path) const {
    return is_marked(path, kItself) || is_below_named(path);
}

bool Matcher::is_below_named(std::u16string_view path) const {
    for (size_t slash = path.find(u'/'); slash != path.npos; slash = path.find(u'/', slash + 1))
        if (is_marked(path.substr(0, slash), kBelow)) return true;
    return false;
}

bool Matcher::names_itself(std::string_view path) {
    fold_path(scratch_, path);
    return is_marked(scratch_, kItself);
}

bool Matcher::may_match_below(std::string_view directory) {
    if (all_ || !globs_.empty()) return true;
    fold_path(scratch_, directory);
    return is_marked(scratch_, kBelow | kAbove) || is_below_named(scratch_);
}

bool Matcher::matches(std::string_view path) {
    if (all_) return true;
    fold_path(scratch_, path);
    if (!folded_.empty() && named(scratch_)) return true;
    for (const Glob &glob : globs_)
        if (glob_matches(glob, scratch_)) return true;
    return false;
}

Matcher &spec_matcher(PathSpec *spec) {
    // The count tells when patterns came or went through a vector call.
    if (!spec->matcher || spec->matcher->patterns() != zVectorSize(&spec->patterns))
        spec->matcher =
            std::make_shared<Matcher>(&spec->patterns, (spec->options & Z_SPEC_LITERAL) != 0);
    return *spec->matcher;
}

bool spec_matches(PathSpec *spec, std::string_view path) {
    return !spec || spec_matcher(spec).matches(path);
}

} // namespace zev

using namespace zev;

PathSpec *zPathSpecNew(const zwchar *pattern, uint32_t options) {
    return zPathSpecNewMulti(&pattern, 1, options);
}

PathSpec *zPathSpecNewMulti(const zwchar *const *patterns, uint64_t count, uint32_t options) {
    if (!patterns && count) return fail_args();
    PathSpecPtr spec(new (std::nothrow) PathSpec{});
    if (!spec) return fail_memory();
    spec->options = options;
    if (!zVectorInitPrim(&spec->patterns, Z_TYPE_STRINGW, 0)) return nullptr;
    for (uint64_t i = 0; i < count; ++i)
        if (patterns[i] && *patterns[i] && !zPathSpecAdd(spec.get(), patterns[i])) return nullptr;
    return spec.release();
}

PathSpec *zPathSpecDup(const PathSpec *spec) {
    if (!spec) return fail_args();
    PathSpecPtr copy(zPathSpecNewMulti(nullptr, 0, 0));
    if (!copy || !zPathSpecCopy(copy.get(), spec)) return nullptr;
    return copy.release();
}

bool zPathSpecCopy(PathSpec *target, const PathSpec *source) {
    if (!target || !source) return fail_args();
    const uint64_t count = zVectorSize(&source->patterns); // of a spec copied onto itself
    for (uint64_t i = 0; i < count; ++i)
        if (!zPathSpecAdd(target, pattern_at(&source->patterns, i))) return false;
    target->notify = source->notify;
    return zPathSpecSetOptions(target, source->options);
}

void zPathSpecFree(PathSpec *spec) {
    if (!spec) return;
    zVectorCleanup(&spec->patterns);
    delete spec;
}

bool zPathSpecReset(PathSpec *spec) {
    if (!spec) return fail_args();
    spec->notify = nullptr;
    return zPathSpecSetOptions(spec, 0) && zVectorRemoveAll(&spec->patterns);
}

uint32_t zPathSpecOptions(const PathSpec *spec) {
    if (!spec) return fail_args(), 0;
    return spec->options;
}

bool zPathSpecSetOptions(PathSpec *spec, uint32_t options) {
    if (!spec) return fail_args();
    spec->options = options;
    spec->matcher.reset();
    return true;
}

bool zPathSpecIsOn(const PathSpec *spec, uint32_t bits) {
    return spec && (spec->options & bits) == bits;
}

bool zPathSpecIsOff(const PathSpec *spec, uint32_t bits) {
    return !spec || (spec->options & bits) == 0;
}

bool zPathSpecSetOn(PathSpec *spec, uint32_t bits) {
    if (!spec) return fail_args();
    return zPathSpecSetOptions(spec, spec->options | bits);
}

bool zPathSpecSetOff(PathSpec *spec, uint32_t bits) {
    if (!spec) return fail_args();
    return zPathSpecSetOptions(spec, spec->options & ~bits);
}

bool zPathSpecAdd(PathSpec *spec, const zwchar *pattern) {
    if (!spec || !pattern || !*pattern) return fail_args();
    spec->matcher.reset();
    return zVectorPush(&spec->patterns, pattern);
}

uint64_t zPathSpecCount(const PathSpec *spec) {
    if (!spec) return fail_args(), 0;
    return zVectorSize(&spec->patterns);
}

const zwchar *zPathSpecEntry(const PathSpec *spec, uint64_t index) {
    if (!spec) return fail_args();
    const zwchar *pattern = nullptr;
    return zVectorAt(&spec->patterns, index, &pattern) ? pattern : nullptr;
}

const Notify *zPathSpecNotify(const PathSpec *spec) {
    if (!spec) return fail_args();
    return spec->notify;
}

bool zPathSpecSetNotify(PathSpec *spec, const Notify *notify) {
    if (!spec) return fail_args();
    spec->notify = notify;
    return true;
}

bool zPathSpecMatched(PathSpec *spec, const zwchar *text) try {
    if (!spec || !text) return fail_args();
    return spec_matches(spec, to_utf8(text));
} catch (...) {
    return fail_thrown();
}

bool zPathSpecStrstr(const PathSpec *spec, const zwchar *text) {
    if (!spec || !text) return fail_args();
    for (uint64_t i = 0; i < zVectorSize(&spec->patterns); ++i)
        if (zStrcasestrW(text, pattern_at(&spec->patterns, i))) return true;
    return false;
}

uint64_t zPathListLength(const Vector *list) {
    if (!list) return fail_args(), 0;
    return zVectorSize(list);
}

const zwchar *zPathListEntry(const Vector *list, uint64_t index) {
    if (!list) return fail_args();
    const zwchar *path = nullptr;
    return zVectorAt(list, index, &path) ? path : nullptr;
}

void zPathListFree(Vector *list) { zVectorFree(list); }
