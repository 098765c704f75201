// Texts that come from outside: what may be a name, a label, the path of a rule; and their order.
#pragma once

#include "zev/str.h"

#include <cstddef>
#include <string>

namespace zevauth {

using Text = std::u16string;

// Bounds of what is stored, in units.
constexpr size_t kNameMax = 64;   // logins, groups, roles
constexpr size_t kLabelMax = 256; // display names, mail addresses

// Case aside, as names and paths compare.
struct CaseLess {
    using is_transparent = void;
    bool operator()(const Text &a, const Text &b) const { return less(a.c_str(), b.c_str()); }
    bool operator()(const Text &a, const zwchar *b) const { return less(a.c_str(), b); }
    bool operator()(const zwchar *a, const Text &b) const { return less(a, b.c_str()); }

  private:
    static bool less(const zwchar *a, const zwchar *b) { return zStrcasecmpW(a, b) < 0; }
};

inline bool is_same(const Text &a, const zwchar *b) { return zStrcasesameW(a.c_str(), b); }

// 1 to 64 units, without blanks, control characters and what means something in paths and queries.
bool is_name(const zwchar *text);
// What people read: of bounded length, without control characters. May be empty.
bool is_label(const zwchar *text);

// The form in which the path of a rule is kept: canonical, "/" for the root, else without a slash
// at its ends. False for what is no path.
bool rule_path(const zwchar *path, Text *out);

// A password as it comes over the wire: 40 hexadecimal digits, lower case in the result.
bool wire_password(const zwchar *text, std::string *out);

} // namespace zevauth
