// Which paths may enter an index, a tree or a route: none that leads out of its root or means Git's
// own directory on any file system.
#include "common/pathname.hpp"

#include "common/failure.hpp"
#include "common/utf.hpp"
#include "zev/str.h"

#include <algorithm>
#include <cstdint>
#include <string>

namespace zev {

namespace {

// Bytes of the UTF-8 sequence at the front, 0 if it is none: no surrogates, nothing overlong.
size_t sequence_length(std::string_view text) {
    const auto at = [&](size_t i) -> uint32_t {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
    };
    const auto tail = [&](size_t i) { return (at(i) & 0xC0) == 0x80; };
    const uint32_t first = at(0), second = at(1);
    if (first < 0x80) return 1;
    if (first < 0xC2 || first > 0xF4 || !tail(1)) return 0;
    if (first < 0xE0) return 2;
    if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second >= 0xA0)) return 0;
    if (first < 0xF0) return tail(2) ? 3 : 0;
    if ((first == 0xF0 && second < 0x90) || (first == 0xF4 && second >= 0x90)) return 0;
    return tail(2) && tail(3) ? 4 : 0;
}

bool is_well_formed(std::string_view text) {
    while (!text.empty()) {
        const size_t length = sequence_length(text);
        if (length == 0 || static_cast<unsigned char>(text.front()) < 0x20 || text.front() == 0x7F)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

// Marks that the file system of macOS drops from names: U+200C to U+200F, U+202A to U+202E,
// U+206A to U+206F, U+FEFF. All take three bytes.
bool is_dropped(std::string_view three) {
    if (three == "\xEF\xBB\xBF") return true;
    if (three.size() < 3 || three[0] != '\xE2') return false;
    const auto second = static_cast<unsigned char>(three[1]);
    const auto third = static_cast<unsigned char>(three[2]);
    if (second == 0x80) return (third >= 0x8C && third <= 0x8F) || (third >= 0xAA && third <= 0xAE);
    return second == 0x81 && third >= 0xAA && third <= 0xAF;
}

// `.git` as any file system may spell it: in any case, with marks that macOS drops, and for
// Windows by its short name, with blanks and dots behind it or with the name of a stream.
bool is_git(std::string_view part) {
    std::string name;
    for (size_t i = 0; i < part.size() && name.size() < 8; ++i) {
        if (is_dropped(part.substr(i, 3))) {
            i += 2;
            continue;
        }
        if (part[i] == ':') break;
        const char c = part[i];
        name += c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    }
    if (name.starts_with("git~1")) name.replace(0, 5, ".git");
    if (!name.starts_with(".git")) return false;
    return name.find_first_not_of(" .", 4) == name.npos;
}

bool part_can_enter(std::string_view part) {
    return !part.empty() && part != "." && part != ".." && !is_git(part);
}

bool begins_with_drive(std::string_view path) {
    const char letter = static_cast<char>(path[0] | 0x20);
    return path.size() > 1 && path[1] == ':' && letter >= 'a' && letter <= 'z';
}

} // namespace

bool path_can_enter(std::string_view path) {
    if (path.empty() || begins_with_drive(path)) return false;
    if (path.find('\\') != path.npos || !is_well_formed(path)) return false;
    for (size_t start = 0;;) {
        const size_t slash = path.find('/', start);
        if (!part_can_enter(path.substr(start, slash - start))) return false;
        if (slash == path.npos) return true;
        start = slash + 1;
    }
}

bool check_path(std::string_view path) { return path_can_enter(path) || raise_args(to_wide(path)); }

bool path_has_room(std::string_view path) {
    constexpr size_t kLongest = 255;
    for (;;) {
        const size_t slash = path.find('/');
        if (std::min(slash, path.size()) > kLongest) return false;
        if (slash == path.npos) return true;
        path.remove_prefix(slash + 1);
    }
}

bool is_drawing_name(std::string_view path) {
    constexpr std::string_view kEnd = ".dwx";
    if (path.size() <= kEnd.size()) return false;
    return zStrcasesameA(std::string(path.substr(path.size() - kEnd.size())).c_str(), kEnd.data());
}

} // namespace zev
