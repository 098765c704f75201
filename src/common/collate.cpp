// Order of names for sorted lists: the user's language, case and accents aside.
//
// ICU is loaded at the first comparison that needs it: linked, its relocations would take more
// than a millisecond of every start, and opening a collator takes ten. ASCII texts need none in
// languages that order them as Unicode's root does, which is what most names are.
#include "common/collate.hpp"

#include "common/fold.hpp"
#include "common/utf.hpp"
#include "system/os.hpp"
#include "zev/str.h"

#include <unicode/ucol.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <numeric>
#include <string>
#include <string_view>

namespace zev {
namespace {

// The environment's locale as ICU names it, "de_DE". ICU would take C and POSIX for a locale
// that tells upper case from lower, so these become the root locale "".
std::string environment_locale() {
    for (const char *name : {"LC_ALL", "LC_COLLATE", "LANG"}) {
        const char *value = getenv(name);
        if (!value || !*value) continue;
        std::string locale(value, strcspn(value, ".@"));
        return locale == "C" || locale == "POSIX" ? "" : locale;
    }
    return "";
}

// ---- ASCII

// Weights in Unicode's root order. A control character has none: it doesn't count.
constexpr auto kWeights = [] {
    constexpr std::string_view kOrder = "\t\n\v\f\r _-,;:!?.'\"()[]{}@*/\\&#%`^+<=>|~$0123456789";
    std::array<uint8_t, 128> weights = {};
    for (size_t i = 0; i < kOrder.size(); ++i)
        weights[static_cast<uint8_t>(kOrder[i])] = static_cast<uint8_t>(i + 1);
    for (size_t i = 0; i < 26; ++i)
        weights['a' + i] = weights['A' + i] = static_cast<uint8_t>(kOrder.size() + i + 1);
    return weights;
}();

// Languages whose own rules, if they have any, are about other letters. In others "ch", "aa" or
// "dz" is one letter, or y comes after i.
bool has_root_ascii() {
    static const bool has = [] {
        const std::string locale = environment_locale(), language = locale.substr(0, 2);
        constexpr std::string_view kLanguages[] = {"de", "en", "es", "fr", "it", "ja", "ko",
                                                   "nl", "pl", "pt", "ru", "uk", "zh"};
        return locale.empty() ||
               ((locale.size() == 2 || (locale.size() == 5 && locale[2] == '_')) &&
                std::ranges::find(kLanguages, language) != std::end(kLanguages));
    }();
    return has;
}

template <class C> bool is_plain(const C *text) {
    while (*text && static_cast<std::make_unsigned_t<C>>(*text) < kWeights.size()) ++text;
    return !*text;
}

template <class C> uint8_t next_weight(const C *&text) {
    uint8_t weight = 0;
    while (*text && !(weight = kWeights[static_cast<size_t>(*text++)])) continue;
    return weight;
}

template <class C> int32_t order_plain(const C *a, const C *b) {
    for (;;) {
        const int32_t left = next_weight(a), right = next_weight(b);
        if (left != right || !left) return (left > right) - (left < right);
    }
}

// ---- All others

// ICU's headers append its version to each name, as the file's name has it.
#define ZEV_NAME_(name) #name
#define ZEV_NAME(name) ZEV_NAME_(name)

struct Icu {
    decltype(&ucol_open) open;
    decltype(&ucol_setStrength) set_strength;
    decltype(&ucol_strcollUTF8) compare_narrow;
    decltype(&ucol_strcoll) compare_wide;
    decltype(&ucol_getSortKey) sort_key;
    UCollator *collator;
};

template <class Fn> bool take(void *module, const char *name, Fn &function) {
    function = reinterpret_cast<Fn>(os::module_symbol(module, name));
    return function != nullptr;
}

bool load(Icu &icu) {
    std::string reason;
    const std::string file = "libicui18n.so." ZEV_NAME(U_ICU_VERSION_MAJOR_NUM);
    void *module = os::module_open(to_wide(file).c_str(), &reason);
    return module && take(module, ZEV_NAME(ucol_open), icu.open) &&
           take(module, ZEV_NAME(ucol_setStrength), icu.set_strength) &&
           take(module, ZEV_NAME(ucol_strcollUTF8), icu.compare_narrow) &&
           take(module, ZEV_NAME(ucol_strcoll), icu.compare_wide) &&
           take(module, ZEV_NAME(ucol_getSortKey), icu.sort_key);
}

bool open_collator(Icu &icu) try {
    UErrorCode status = U_ZERO_ERROR; // negative is a warning
    if (!load(icu)) return false;
    icu.collator = icu.open(environment_locale().c_str(), &status);
    if (U_FAILURE(status)) return false;
    icu.set_strength(icu.collator, UCOL_PRIMARY);
    return true;
} catch (...) {
    return false;
}

// Opened at first use, which takes 10 ms, and kept for the process. Null where there is no ICU.
const Icu *collation() {
    static std::once_flag once;
    static Icu icu;
    static bool usable;
    std::call_once(once, [] { usable = open_collator(icu); });
    return usable ? &icu : nullptr;
}

UCollationResult collate(const Icu &icu, const char *a, const char *b) {
    UErrorCode status = U_ZERO_ERROR;
    return icu.compare_narrow(icu.collator, a, -1, b, -1, &status);
}
UCollationResult collate(const Icu &icu, const zwchar *a, const zwchar *b) {
    return icu.compare_wide(icu.collator, a, -1, b, -1);
}

bool has_text(const char *text) { return zStrvalidA(text); }
bool has_text(const zwchar *text) { return zStrvalidW(text); }
int32_t order_folded(const char *a, const char *b) { return zStrcasecmpA(a, b); }
int32_t order_folded(const zwchar *a, const zwchar *b) { return zStrcasecmpW(a, b); }

template <class C> int32_t order(const C *a, const C *b) {
    // Null and empty texts are equal and come before all others.
    if (!has_text(a) || !has_text(b)) return has_text(a) - has_text(b);
    if (has_root_ascii() && is_plain(a) && is_plain(b)) return order_plain(a, b);
    const Icu *icu = collation();
    return icu ? collate(*icu, a, b) : order_folded(a, b);
}

// ---- Many at once, by keys that compare byte by byte

std::string plain_key(const zwchar *text) {
    std::string key;
    while (const uint8_t weight = next_weight(text)) key += static_cast<char>(weight);
    return key;
}

std::string icu_key(const Icu &icu, const zwchar *text) {
    std::string key(64, 0);
    const auto make = [&] {
        const auto size =
            icu.sort_key(icu.collator, text, -1, reinterpret_cast<uint8_t *>(key.data()),
                         static_cast<int32_t>(key.size()));
        return static_cast<size_t>(size);
    };
    const size_t size = make();
    if (size > key.size()) key.resize(size), make();
    key.resize(size);
    return key;
}

std::string folded_key(const zwchar *text) {
    std::string key;
    for (; *text; ++text) {
        const zwchar unit = fold(*text);
        key += {static_cast<char>(unit >> 8), static_cast<char>(unit)};
    }
    return key;
}

std::vector<std::string> keys_of(std::span<const zwchar *const> texts) {
    const bool plain = has_root_ascii() && std::ranges::all_of(texts, is_plain<zwchar>);
    const Icu *icu = plain ? nullptr : collation();
    std::vector<std::string> keys;
    keys.reserve(texts.size());
    for (const zwchar *text : texts)
        keys.push_back(plain ? plain_key(text) : icu ? icu_key(*icu, text) : folded_key(text));
    return keys;
}

} // namespace

std::vector<uint32_t> collation_ranks(std::span<const zwchar *const> texts) {
    const auto keys = keys_of(texts);
    std::vector<uint32_t> order(texts.size()), ranks(texts.size());
    std::iota(order.begin(), order.end(), 0u);
    const auto by_key = [&](uint32_t a, uint32_t b) { return keys[a] < keys[b]; };
    if (!std::ranges::is_sorted(order, by_key)) std::ranges::sort(order, by_key);
    for (size_t i = 1; i < order.size(); ++i)
        ranks[order[i]] = ranks[order[i - 1]] + (keys[order[i - 1]] < keys[order[i]] ? 1 : 0);
    return ranks;
}

} // namespace zev

int32_t zStricollA(const char *a, const char *b) { return zev::order(a, b); }
int32_t zStricollW(const zwchar *a, const zwchar *b) { return zev::order(a, b); }
