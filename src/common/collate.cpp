// Order of names for sorted lists: the user's language, case and accents aside.
#include "zev/str.h"

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

const UCollator *open_collator() try {
    UErrorCode status = U_ZERO_ERROR; // negative is a warning
    UCollator *collator = ucol_open(environment_locale().c_str(), &status);
    if (U_FAILURE(status)) return nullptr;
    ucol_setStrength(collator, UCOL_PRIMARY);
    return collator;
} catch (...) {
    return nullptr;
}

// Opened at first use, which takes 10 ms, and kept for the process.
const UCollator *collator() {
    static std::once_flag once;
    static const UCollator *opened;
    std::call_once(once, [] { opened = open_collator(); });
    return opened;
}

UCollationResult collate(const char *a, const char *b, UErrorCode *status) {
    return ucol_strcollUTF8(collator(), a, -1, b, -1, status);
}
UCollationResult collate(const zwchar *a, const zwchar *b, UErrorCode *) {
    return ucol_strcoll(collator(), a, -1, b, -1);
}

bool has_text(const char *text) { return zStrvalidA(text); }
bool has_text(const zwchar *text) { return zStrvalidW(text); }
int32_t order_folded(const char *a, const char *b) { return zStrcasecmpA(a, b); }
int32_t order_folded(const zwchar *a, const zwchar *b) { return zStrcasecmpW(a, b); }

template <class C> int32_t order(const C *a, const C *b) {
    // Null and empty texts are equal and come before all others.
    if (!has_text(a) || !has_text(b)) return has_text(a) - has_text(b);
    if (!collator()) return order_folded(a, b);
    UErrorCode status = U_ZERO_ERROR;
    return collate(a, b, &status);
}

} // namespace
} // namespace zev

int32_t zStricollA(const char *a, const char *b) { return zev::order(a, b); }
int32_t zStricollW(const zwchar *a, const zwchar *b) { return zev::order(a, b); }
