// Text functions, narrow and wide: each pair is one template. Wide text is folded unit by unit,
// narrow text within ASCII, and numbers are read as in the C locale.
#include "zev/str.h"

#include "common/c_locale.hpp"
#include "common/fold.hpp"
#include "common/format.hpp"
#include "common/guard.hpp"
#include "common/utf.hpp"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>

namespace zev {
namespace {

template <class C> using Traits = std::char_traits<C>;

template <class C> constexpr C kBlanks[] = {'\t', '\r', '\n', ' ', 0};

// Narrow text is folded within ASCII: of bytes beyond, one cannot tell what letter they are.
char lower_unit(char unit) {
    return unit >= 'A' && unit <= 'Z' ? static_cast<char>(unit + 32) : unit;
}
char upper_unit(char unit) {
    return unit >= 'a' && unit <= 'z' ? static_cast<char>(unit - 32) : unit;
}
char folded(char unit) { return lower_unit(unit); }
zwchar lower_unit(zwchar unit) { return lower(unit); }
zwchar upper_unit(zwchar unit) { return upper(unit); }
zwchar folded(zwchar unit) { return fold(unit); }

// ---- Copies

template <class C> C *new_text(uint64_t length) {
    if (length >= INT64_MAX / sizeof(C)) return nullptr;
    return static_cast<C *>(calloc(length + 1, sizeof(C)));
}

template <class C> C *copy_text(const C *text, uint64_t length) {
    auto *copy = static_cast<C *>(malloc((length + 1) * sizeof(C)));
    if (!copy) return nullptr;
    memcpy(copy, text, length * sizeof(C));
    copy[length] = 0;
    return copy;
}

template <class C> C *dup(const C *text) {
    return text ? copy_text(text, Traits<C>::length(text)) : nullptr;
}

template <class C> uint64_t bounded_length(const C *text, uint64_t count) {
    uint64_t length = 0;
    while (length < count && text[length]) ++length;
    return length;
}

template <class C> C *dup_part(const C *text, uint64_t count) {
    if (!text) return nullptr;
    return copy_text(text, bounded_length(text, count ? count : UINT64_MAX));
}

// The new text is made before the old one goes, of which it may be a part.
template <class C> C *update(C **target, C *copy) {
    free(*target);
    return *target = copy;
}

template <class C> C *update_text(C **target, const C *text) {
    C *copy = dup(text);
    return text && !copy ? nullptr : update(target, copy);
}

template <class C> C *update_part(C **target, const C *text, uint64_t count) {
    C *copy = dup_part(text, count);
    return copy ? update(target, copy) : nullptr;
}

// ---- Comparison

template <class C> int32_t order(C a, C b) {
    using Unit = std::make_unsigned_t<C>;
    return static_cast<Unit>(a) < static_cast<Unit>(b) ? -1 : a == b ? 0 : 1;
}

template <class C> int32_t compare(const C *a, const C *b, uint64_t count = UINT64_MAX) {
    for (uint64_t i = 0; i < count; ++i)
        if (a[i] != b[i] || !a[i]) return order(a[i], b[i]);
    return 0;
}

template <class C> int32_t compare_folded(const C *a, const C *b, uint64_t count = UINT64_MAX) {
    for (uint64_t i = 0; i < count; ++i) {
        if (a[i] == b[i] && a[i]) continue; // most units of names that are compared
        if (int32_t found = order(folded(a[i]), folded(b[i])); found || !a[i]) return found;
    }
    return 0;
}

// ---- In place

template <class C> bool contains(const C *set, C unit) {
    for (; *set; ++set)
        if (*set == unit) return true;
    return false;
}

template <class C> C *trim(C *text, const C *set) {
    if (!set) set = kBlanks<C>;
    const C *first = text;
    while (*first && contains(set, *first)) ++first;
    if (first != text) memmove(text, first, (Traits<C>::length(first) + 1) * sizeof(C));
    return text;
}

template <class C> C *trim_end(C *text, const C *set) {
    if (!set) set = kBlanks<C>;
    C *end = text + Traits<C>::length(text);
    while (end > text && contains(set, end[-1])) --end;
    *end = 0;
    return text;
}

template <class C> C *reverse(C *text) {
    std::reverse(text, text + Traits<C>::length(text));
    return text;
}

template <class C, class F> C *each(C *text, F change) {
    for (C *unit = text; *unit; ++unit) *unit = change(*unit);
    return text;
}

// ---- As the standard library's

template <class C> C *copy_part(C *target, const C *source, uint64_t count) {
    const uint64_t length = bounded_length(source, count);
    memcpy(target, source, length * sizeof(C));
    memset(target + length, 0, (count - length) * sizeof(C));
    return target;
}

template <class C> C *append(C *target, const C *source, uint64_t length) {
    C *end = target + Traits<C>::length(target);
    memcpy(end, source, length * sizeof(C));
    end[length] = 0;
    return target;
}

template <class C> C *find(const C *text, C unit) {
    for (; *text != unit; ++text)
        if (!*text) return nullptr;
    return const_cast<C *>(text);
}

template <class C> C *find_last(const C *text, C unit) {
    const C *end = text + Traits<C>::length(text);
    for (;; --end) {
        if (*end == unit) return const_cast<C *>(end);
        if (end == text) return nullptr;
    }
}

template <class C> C *find_folded(const C *text, const C *part) {
    for (;; ++text) {
        uint64_t i = 0;
        while (part[i] && folded(text[i]) == folded(part[i])) ++i;
        if (!part[i]) return const_cast<C *>(text);
        if (!*text) return nullptr;
    }
}

template <class C> C *find_any(const C *text, const C *set) {
    for (; *text; ++text)
        if (contains(set, *text)) return const_cast<C *>(text);
    return nullptr;
}

template <class C> C *token(C *text, const C *set, C **context) {
    if (!text) text = *context;
    while (text && *text && contains(set, *text)) ++text;
    if (!text || !*text) return *context = text, nullptr;
    C *end = find_any(text, set);
    if (end)
        *end++ = 0;
    else
        end = text + Traits<C>::length(text);
    *context = end;
    return text;
}

// ---- Numbers

template <class C> const C *skip_blanks(const C *text) {
    while (*text == ' ' || (*text >= '\t' && *text <= '\r')) ++text;
    return text;
}

template <class C> uint32_t digit(C unit) {
    if (unit >= '0' && unit <= '9') return static_cast<uint32_t>(unit - '0');
    if (unit >= 'a' && unit <= 'z') return static_cast<uint32_t>(unit - 'a' + 10);
    if (unit >= 'A' && unit <= 'Z') return static_cast<uint32_t>(unit - 'A' + 10);
    return UINT32_MAX;
}

// Takes "0x" where the base allows it and a digit follows, and says what base is left.
template <class C> uint32_t take_base(const C *&at, int32_t base) {
    const bool hexadecimal = at[0] == '0' && (at[1] == 'x' || at[1] == 'X') && digit(at[2]) < 16;
    if ((base == 0 || base == 16) && hexadecimal) return at += 2, 16;
    if (base == 0) return *at == '0' ? 8 : 10;
    return base >= 2 && base <= 36 ? static_cast<uint32_t>(base) : 0;
}

// A whole number, saturated at the limits; without digits 0, and `end` is the text's start.
template <class C>
int64_t to_integer(const C *text, C **end, int32_t base, int64_t least, int64_t most) {
    const C *at = skip_blanks(text);
    const bool negative = *at == '-';
    if (negative || *at == '+') ++at;
    const uint32_t radix = take_base(at, base);
    const uint64_t limit =
        negative ? 0 - static_cast<uint64_t>(least) : static_cast<uint64_t>(most);
    const C *first = at;
    uint64_t value = 0;
    for (uint32_t next; (next = digit(*at)) < radix; ++at)
        value = value > (limit - std::min<uint64_t>(next, limit)) / radix ? limit
                                                                          : value * radix + next;
    if (end) *end = const_cast<C *>(at == first ? text : at);
    return static_cast<int64_t>(negative ? 0 - value : value);
}

double to_real(const char *text, char **end) { return strtod_l(text, end, c_locale()); }

// A number is ASCII, so it is copied as far as it can reach and read from there.
double to_real(const zwchar *text, zwchar **end) {
    const zwchar *at = skip_blanks(text), *last = at;
    while (digit(*last) < 36 || (*last && find(u"+-.()_", *last))) ++last;
    const auto length = static_cast<uint64_t>(last - at);
    char local[64];
    Narrow longer(length < sizeof local ? nullptr : new_text<char>(length));
    char *copy = longer ? longer.get() : local;
    const uint64_t kept = longer ? length : std::min<uint64_t>(length, sizeof local - 1);
    std::transform(at, at + kept, copy, [](zwchar unit) { return static_cast<char>(unit); });
    copy[kept] = 0;
    char *stop = copy;
    const double value = to_real(copy, &stop);
    if (end) *end = const_cast<zwchar *>(stop == copy ? text : at + (stop - copy));
    return value;
}

// ---- Printing

int32_t print(const char *text, uint64_t bytes) {
    if (fwrite(text, 1, bytes, stdout) != bytes) return -1;
    return static_cast<int32_t>(bytes);
}

// Narrow, never wide stdio: a stream that became wide takes no bytes any more.
int32_t print(const zwchar *text, uint64_t units) {
    Narrow bytes(utf8_dup(text, units));
    if (!bytes || print(bytes.get(), strlen(bytes.get())) < 0) return -1;
    return static_cast<int32_t>(units);
}

} // namespace
} // namespace zev

using namespace zev;

char *zStrnewA(uint64_t length) { return new_text<char>(length); }
zwchar *zStrnewW(uint64_t length) { return new_text<zwchar>(length); }

char *zStrdupA(const char *text) { return dup(text); }
zwchar *zStrdupW(const zwchar *text) { return dup(text); }

char *zStrndupA(const char *text, uint64_t count) { return dup_part(text, count); }
zwchar *zStrndupW(const zwchar *text, uint64_t count) { return dup_part(text, count); }

char *zStrupdA(char **target, const char *text) { return update_text(target, text); }
zwchar *zStrupdW(zwchar **target, const zwchar *text) { return update_text(target, text); }

char *zStrnupdA(char **target, const char *text, uint64_t count) {
    return update_part(target, text, count);
}
zwchar *zStrnupdW(zwchar **target, const zwchar *text, uint64_t count) {
    return update_part(target, text, count);
}

void zStrfreeA(char *text) { free(text); }
void zStrfreeW(zwchar *text) { free(text); }

int32_t zStrcmpA(const char *a, const char *b) { return compare(a, b); }
int32_t zStrcmpW(const zwchar *a, const zwchar *b) { return compare(a, b); }

int32_t zStrncmpA(const char *a, const char *b, uint64_t count) { return compare(a, b, count); }
int32_t zStrncmpW(const zwchar *a, const zwchar *b, uint64_t count) { return compare(a, b, count); }

int32_t zStrcasecmpA(const char *a, const char *b) { return compare_folded(a, b); }
int32_t zStrcasecmpW(const zwchar *a, const zwchar *b) { return compare_folded(a, b); }

int32_t zStrncasecmpA(const char *a, const char *b, uint64_t count) {
    return compare_folded(a, b, count);
}
int32_t zStrncasecmpW(const zwchar *a, const zwchar *b, uint64_t count) {
    return compare_folded(a, b, count);
}

bool zStrsameA(const char *a, const char *b) { return !compare(a, b); }
bool zStrsameW(const zwchar *a, const zwchar *b) { return !compare(a, b); }

bool zStrnsameA(const char *a, const char *b, uint64_t count) { return !compare(a, b, count); }
bool zStrnsameW(const zwchar *a, const zwchar *b, uint64_t count) { return !compare(a, b, count); }

bool zStrcasesameA(const char *a, const char *b) { return !compare_folded(a, b); }
bool zStrcasesameW(const zwchar *a, const zwchar *b) { return !compare_folded(a, b); }

bool zStrncasesameA(const char *a, const char *b, uint64_t count) {
    return !compare_folded(a, b, count);
}
bool zStrncasesameW(const zwchar *a, const zwchar *b, uint64_t count) {
    return !compare_folded(a, b, count);
}

bool zStrvalidA(const char *text) { return text && *text; }
bool zStrvalidW(const zwchar *text) { return text && *text; }

const char *zStrsafeA(const char *text) { return text ? text : ""; }
const zwchar *zStrsafeW(const zwchar *text) { return text ? text : u""; }

char *zStrtrimA(char *text, const char *set) { return trim(text, set); }
zwchar *zStrtrimW(zwchar *text, const zwchar *set) { return trim(text, set); }

char *zStrrtrimA(char *text, const char *set) { return trim_end(text, set); }
zwchar *zStrrtrimW(zwchar *text, const zwchar *set) { return trim_end(text, set); }

char *zStrrevA(char *text) { return reverse(text); }
zwchar *zStrrevW(zwchar *text) { return reverse(text); }

char *zStrlwrA(char *text) {
    return each(text, [](auto unit) { return lower_unit(unit); });
}
zwchar *zStrlwrW(zwchar *text) {
    return each(text, [](auto unit) { return lower_unit(unit); });
}

char *zStruprA(char *text) {
    return each(text, [](auto unit) { return upper_unit(unit); });
}
zwchar *zStruprW(zwchar *text) {
    return each(text, [](auto unit) { return upper_unit(unit); });
}

uint64_t zStrlenA(const char *text) { return Traits<char>::length(text); }
uint64_t zStrlenW(const zwchar *text) { return Traits<zwchar>::length(text); }

uint64_t zStrnlenA(const char *text, uint64_t count) { return bounded_length(text, count); }
uint64_t zStrnlenW(const zwchar *text, uint64_t count) { return bounded_length(text, count); }

char *zStrcpyA(char *target, const char *source) {
    return copy_part(target, source, Traits<char>::length(source) + 1);
}
zwchar *zStrcpyW(zwchar *target, const zwchar *source) {
    return copy_part(target, source, Traits<zwchar>::length(source) + 1);
}

char *zStrncpyA(char *target, const char *source, uint64_t count) {
    return copy_part(target, source, count);
}
zwchar *zStrncpyW(zwchar *target, const zwchar *source, uint64_t count) {
    return copy_part(target, source, count);
}

char *zStrcatA(char *target, const char *source) {
    return append(target, source, Traits<char>::length(source));
}
zwchar *zStrcatW(zwchar *target, const zwchar *source) {
    return append(target, source, Traits<zwchar>::length(source));
}

char *zStrncatA(char *target, const char *source, uint64_t count) {
    return append(target, source, bounded_length(source, count));
}
zwchar *zStrncatW(zwchar *target, const zwchar *source, uint64_t count) {
    return append(target, source, bounded_length(source, count));
}

char *zStrchrA(const char *text, char character) { return find(text, character); }
zwchar *zStrchrW(const zwchar *text, zwchar character) { return find(text, character); }

char *zStrrchrA(const char *text, char character) { return find_last(text, character); }
zwchar *zStrrchrW(const zwchar *text, zwchar character) { return find_last(text, character); }

char *zStrstrA(const char *text, const char *part) {
    return const_cast<char *>(strstr(text, part));
}
zwchar *zStrstrW(const zwchar *text, const zwchar *part) {
    const auto at = std::u16string_view(text).find(part);
    return at == std::u16string_view::npos ? nullptr : const_cast<zwchar *>(text + at);
}

char *zStrcasestrA(const char *text, const char *part) { return find_folded(text, part); }
zwchar *zStrcasestrW(const zwchar *text, const zwchar *part) { return find_folded(text, part); }

char *zStrpbrkA(const char *text, const char *set) { return find_any(text, set); }
zwchar *zStrpbrkW(const zwchar *text, const zwchar *set) { return find_any(text, set); }

char *zStrtokA(char *text, const char *set, char **context) { return token(text, set, context); }
zwchar *zStrtokW(zwchar *text, const zwchar *set, zwchar **context) {
    return token(text, set, context);
}

int32_t zStrtolA(const char *text, char **end, int32_t base) {
    return static_cast<int32_t>(to_integer(text, end, base, INT32_MIN, INT32_MAX));
}
int32_t zStrtolW(const zwchar *text, zwchar **end, int32_t base) {
    return static_cast<int32_t>(to_integer(text, end, base, INT32_MIN, INT32_MAX));
}

int64_t zStrtollA(const char *text, char **end, int32_t base) {
    return to_integer(text, end, base, INT64_MIN, INT64_MAX);
}
int64_t zStrtollW(const zwchar *text, zwchar **end, int32_t base) {
    return to_integer(text, end, base, INT64_MIN, INT64_MAX);
}

double zStrtodA(const char *text, char **end) { return to_real(text, end); }
double zStrtodW(const zwchar *text, zwchar **end) { return to_real(text, end); }

int32_t zPrintfA(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Malloced<char> text(format_narrow_dup(format, arguments));
    va_end(arguments);
    return text ? print(text.get(), zStrlenA(text.get())) : -1;
}

int32_t zSprintfA(char *buffer, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int32_t length = format_narrow(buffer, UINT64_MAX, format, arguments);
    va_end(arguments);
    return length;
}

int32_t zSnprintfA(char *buffer, uint64_t size, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int32_t length = format_narrow(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

int32_t zVsnprintfA(char *buffer, uint64_t size, const char *format, va_list arguments) {
    return format_narrow(buffer, size, format, arguments);
}

int32_t zPrintfW(const zwchar *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Malloced<zwchar> text(format_wide_dup(format, arguments));
    va_end(arguments);
    return text ? print(text.get(), zStrlenW(text.get())) : -1;
}

int32_t zSprintfW(zwchar *buffer, const zwchar *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int32_t length = format_wide(buffer, UINT64_MAX, format, arguments);
    va_end(arguments);
    return length;
}

int32_t zSnprintfW(zwchar *buffer, uint64_t size, const zwchar *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int32_t length = format_wide(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

int32_t zVsnprintfW(zwchar *buffer, uint64_t size, const zwchar *format, va_list arguments) {
    return format_wide(buffer, size, format, arguments);
}

void *zMemcpy(void *target, const void *source, uint64_t count) {
    return memcpy(target, source, count);
}
void *zMemmove(void *target, const void *source, uint64_t count) {
    return memmove(target, source, count);
}
void *zMemset(void *target, int32_t value, uint64_t count) { return memset(target, value, count); }
void zBzero(void *target, uint64_t count) { memset(target, 0, count); }
int32_t zMemcmp(const void *a, const void *b, uint64_t count) { return memcmp(a, b, count); }
