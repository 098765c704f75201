// Order of names for sorted lists: the user's language, case and accents aside.
//
// ICU is loaded at the first comparison: linked, its relocations would take more than a
// millisecond of every start, and most processes never sort a name.
#include "zev/str.h"

#include "common/utf.hpp"
#include "system/os.hpp"

#include <unicode/ucol.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

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

// ICU's headers append its version to each name, as the file's name has it.
#define ZEV_NAME_(name) #name
#define ZEV_NAME(name) ZEV_NAME_(name)

struct Icu {
    decltype(&ucol_open) open;
    decltype(&ucol_setStrength) set_strength;
    decltype(&ucol_strcollUTF8) compare_narrow;
    decltype(&ucol_strcoll) compare_wide;
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
           take(module, ZEV_NAME(ucol_strcoll), icu.compare_wide);
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
    const Icu *icu = collation();
    return icu ? collate(*icu, a, b) : order_folded(a, b);
}

} // namespace
} // namespace zev

int32_t zStricollA(const char *a, const char *b) { return zev::order(a, b); }
int32_t zStricollW(const zwchar *a, const zwchar *b) { return zev::order(a, b); }
