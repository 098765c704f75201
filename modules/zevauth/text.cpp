// Texts that come from outside. Whatever is stored is well-formed UTF-16 without control
// characters, so that it is read back from UTF-8 as it was written.
#include "text.hpp"

#include "zev/base.h"
#include "zev/path.h"

namespace zevauth {

namespace {

bool is_high(zwchar unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool is_low(zwchar unit) { return unit >= 0xDC00 && unit < 0xE000; }

// At most `longest` units, each surrogate in its pair, nothing that a terminal would obey.
bool is_plain(const zwchar *text, size_t longest) {
    const size_t length = zStrnlenW(text, longest + 1);
    if (length > longest) return false;
    for (size_t i = 0; i < length; ++i) {
        if (text[i] < 0x20 || text[i] == 0x7F || is_low(text[i])) return false;
        if (is_high(text[i]) && !is_low(text[++i])) return false;
    }
    return true;
}

Text without_slashes(const Text &path) {
    const size_t from = path.find_first_not_of(u'/');
    if (from == path.npos) return u"/";
    return path.substr(from, path.find_last_not_of(u'/') - from + 1);
}

} // namespace

bool is_name(const zwchar *text) {
    return *text && is_plain(text, kNameMax) && !zStrpbrkW(text, u"<>/\\\":;?*|,=`@&#$^~% ");
}

bool is_label(const zwchar *text) { return is_plain(text, kLabelMax); }

// What is kept must read as itself, or the whole file counts as damaged: a slash less can turn what
// stands behind it into a way up, or into a drive.
bool rule_path(const zwchar *path, Text *out) {
    constexpr int kRounds = 8;
    if (!is_plain(path, Z_PATH_MAX - 1)) return false;
    Text now(path);
    for (int round = 0; round < kRounds; ++round) {
        zwchar canonical[Z_PATH_MAX];
        if (!zPathCanonicalized(canonical, now.c_str())) return false;
        *out = without_slashes(canonical);
        if (*out == now) return true;
        now = *out;
    }
    return false;
}

bool wire_password(const zwchar *text, std::string *out) {
    constexpr size_t kDigits = 40;
    out->clear();
    for (; *text && out->size() <= kDigits; ++text) {
        const zwchar digit = *text >= u'A' && *text <= u'F' ? *text + 0x20 : *text;
        if (!(digit >= u'0' && digit <= u'9') && !(digit >= u'a' && digit <= u'f')) return false;
        *out += static_cast<char>(digit);
    }
    return out->size() == kDigits;
}

} // namespace zevauth
