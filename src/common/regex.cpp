// Regular expressions, compiled at each call. Patterns and texts are foreign, so that every match
// has a budget, see limits.hpp; a search that spends it ends as no match, with class 5 raised.
#include "zev/regex.h"

#include "common/failure.hpp"
#include "common/guard.hpp"
#include "common/limits.hpp"
#include "common/utf.hpp"
#include "zev/vector.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <algorithm>
#include <string>
#include <string_view>

namespace zev {
namespace {

using Code = Owned<pcre2_code, pcre2_code_free>;
using CompileContext = Owned<pcre2_compile_context, pcre2_compile_context_free>;
using MatchContext = Owned<pcre2_match_context, pcre2_match_context_free>;
using MatchData = Owned<pcre2_match_data, pcre2_match_data_free>;

PCRE2_SPTR bytes(std::string_view text) { return reinterpret_cast<PCRE2_SPTR>(text.data()); }

// `\C` would let a match go on within a character, where the library reads out of bounds.
Code compile(const char *pattern) {
    CompileContext context(pcre2_compile_context_create(nullptr));
    if (!context) return fail_memory(), nullptr;
    pcre2_set_max_pattern_length(context.get(), limits::regex_pattern);
    int error = 0;
    PCRE2_SIZE offset = 0;
    return Code(pcre2_compile(bytes(pattern), PCRE2_ZERO_TERMINATED,
                              PCRE2_UTF | PCRE2_NEVER_BACKSLASH_C, &error, &offset, context.get()));
}

constexpr uint64_t kLeastShare = 16; // steps that a place may take before it is asked for more

bool is_spent(int result) {
    return result == PCRE2_ERROR_MATCHLIMIT || result == PCRE2_ERROR_DEPTHLIMIT ||
           result == PCRE2_ERROR_HEAPLIMIT;
}

// One pattern over one text. Steps are what the library counts against its match limit, which
// holds for each place where a match could begin, not for all of them; one step may look at all
// of the text.
class Search {
  public:
    explicit Search(std::string_view text) : text_(text) {}

    bool run(const char *pattern);
    uint32_t count() const { return pcre2_get_ovector_count(data_.get()); }
    std::string_view group(uint32_t index) const;

  private:
    int match(uint64_t start, uint32_t options, uint64_t limit);
    int match_at(uint64_t start, uint64_t &share);
    int match_stepwise();

    std::string_view text_;
    Code code_;
    MatchContext context_;
    MatchData data_;
    uint64_t steps_ = 0; // what is left of the budget
};

bool Search::run(const char *pattern) {
    if (text_.size() > limits::regex_text || !(code_ = compile(pattern))) return false;
    context_.reset(pcre2_match_context_create(nullptr));
    data_.reset(pcre2_match_data_create_from_pattern(code_.get(), nullptr));
    if (!context_ || !data_) return fail_memory();
    pcre2_set_depth_limit(context_.get(), limits::regex_depth);
    pcre2_set_heap_limit(context_.get(), limits::regex_heap / 1024);
    const uint64_t places = text_.size() + 1;
    steps_ = std::min<uint64_t>(limits::regex_steps, limits::regex_work / places);
    int result = match(0, 0, steps_ / places);
    if (result == PCRE2_ERROR_MATCHLIMIT) result = match_stepwise();
    return result > 0 || (is_spent(result) && raise_range());
}

int Search::match(uint64_t start, uint32_t options, uint64_t limit) {
    pcre2_set_match_limit(context_.get(), static_cast<uint32_t>(limit));
    return pcre2_match(code_.get(), bytes(text_), text_.size(), start, options, data_.get(),
                       context_.get());
}

// At one place, with growing shares until one suffices, which the next place begins with. It is
// halved where it sufficed at once: one costly place must not make all behind it dear.
int Search::match_at(uint64_t start, uint64_t &share) {
    constexpr uint32_t kOptions = PCRE2_ANCHORED | PCRE2_NO_UTF_CHECK; // checked the first time
    for (bool at_once = true; steps_; at_once = false, share *= 2) {
        share = std::min(share, steps_);
        steps_ -= share;
        const int result = match(start, kOptions, share);
        if (result == PCRE2_ERROR_MATCHLIMIT) continue;
        if (at_once) share = std::max(share / 2, kLeastShare);
        return result;
    }
    return PCRE2_ERROR_MATCHLIMIT;
}

// An even share was too little for one of the places, as when the first of them has to go through
// all of a long text. Each place in turn takes what it needs.
int Search::match_stepwise() {
    uint64_t share = kLeastShare;
    for (uint64_t start = 0; start <= text_.size(); ++start) {
        if (start < text_.size() && (text_[start] & 0xC0) == 0x80) continue; // in a character
        const int result = match_at(start, share);
        if (result != PCRE2_ERROR_NOMATCH) return result;
    }
    return PCRE2_ERROR_NOMATCH;
}

// Both offsets of a group that took no part are the same. `\K` can put the start behind the end.
std::string_view Search::group(uint32_t index) const {
    const PCRE2_SIZE *offsets = pcre2_get_ovector_pointer(data_.get()) + uint64_t{2} * index;
    if (offsets[0] >= offsets[1]) return {};
    return text_.substr(offsets[0], offsets[1] - offsets[0]);
}

// ---- Lists, of text as the caller wants it

template <class C> constexpr uint64_t kCapacity = 16;
template <> constexpr uint64_t kCapacity<char> = 8;

char *copy(std::string_view text, char) {
    return text.empty() ? zStrdupA("") : zStrndupA(text.data(), text.size());
}
zwchar *copy(std::string_view text, zwchar) { return wide_dup(text.data(), text.size()); }

template <class C> Vector *list_of(const Search &search) {
    Owned<Vector, zVectorFree> list(zVectorNewPtr(kCapacity<C>, nullptr, free));
    if (!list) return nullptr;
    for (uint32_t i = 0; i < search.count(); ++i) {
        Malloced<C> element(copy(search.group(i), C()));
        if (!element) return fail_memory();
        if (!zVectorPush(list.get(), element.get())) return nullptr;
        static_cast<void>(element.release());
    }
    return list.release();
}

template <class C> Vector *catch_groups(const char *text, const char *pattern) {
    Search search(text);
    return search.run(pattern) ? list_of<C>(search) : nullptr;
}

uint64_t count(const Vector *list) {
    if (!list) return fail_args(), 0;
    return zVectorSize(list);
}

template <class C> const C *element(const Vector *list, uint64_t index) {
    if (!list) return fail_args();
    const C *text = nullptr;
    return zVectorAt(list, index, &text) ? text : nullptr;
}

} // namespace
} // namespace zev

using namespace zev;

bool zRegexMatchA(const char *text, const char *pattern) {
    if (!text || !pattern) return fail_args();
    return Search(text).run(pattern);
}

bool zRegexMatchW(const zwchar *text, const zwchar *pattern) try {
    if (!text || !pattern) return fail_args();
    return zRegexMatchA(to_utf8(text).c_str(), to_utf8(pattern).c_str());
} catch (...) {
    return fail_thrown();
}

Vector *zRegexCatchA(const char *text, const char *pattern) {
    if (!text || !pattern) return fail_args();
    return catch_groups<char>(text, pattern);
}

Vector *zRegexCatchW(const zwchar *text, const zwchar *pattern) try {
    if (!text || !pattern) return fail_args();
    return catch_groups<zwchar>(to_utf8(text).c_str(), to_utf8(pattern).c_str());
} catch (...) {
    return fail_thrown();
}

uint64_t zMatchCountA(const Vector *list) { return count(list); }
uint64_t zMatchCountW(const Vector *list) { return count(list); }

const char *zMatchResultA(const Vector *list, uint64_t index) { return element<char>(list, index); }
const zwchar *zMatchResultW(const Vector *list, uint64_t index) {
    return element<zwchar>(list, index);
}

void zMatchFreeA(Vector *list) { zVectorFree(list); }
void zMatchFreeW(Vector *list) { zVectorFree(list); }
