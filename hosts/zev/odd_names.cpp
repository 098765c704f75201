// The library takes names of well-formed text only: these are moved by the system's own call.
#include "odd_names.hpp"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

bool is_odd_byte(char c) { return static_cast<unsigned char>(c) < ' ' || c == '\177' || c == '\\'; }

bool is_odd_name(const std::string &name) {
    return !is_text(name) || std::any_of(name.begin(), name.end(), is_odd_byte);
}

std::string plain(const std::string &name) {
    const bool broken = !is_text(name);
    std::string out;
    for (const char c : name) {
        char code[4] = {c};
        if (is_odd_byte(c) || (broken && (c & 0x80)))
            snprintf(code, sizeof code, "%%%02X", static_cast<unsigned char>(c));
        out += code;
    }
    return out;
}

fs::path without_slash(const std::string &path) {
    const fs::path full = fs::path(path).lexically_normal();
    return full.has_filename() ? full : full.parent_path();
}

} // namespace

bool is_odd(const std::string &path) {
    std::error_code ignored;
    const fs::path file = without_slash(path);
    return is_odd_name(file.filename().string()) && fs::exists(fs::symlink_status(file, ignored));
}

void move_odd(const WorkingCopy &copy, const std::string &from, const std::string &to) {
    const fs::path above = without_slash(from).parent_path();
    static_cast<void>(copy.relative(above.empty() ? "." : above.string())); // or it throws
    if (renameat2(AT_FDCWD, without_slash(from).c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE))
        throw fs::filesystem_error({}, errno == EEXIST ? to : from,
                                   {errno, std::generic_category()});
}

std::string under_plain_name(Host &host, const WorkingCopy &copy, const std::string &path) {
    if (!is_odd(path)) return path;
    const fs::path file = without_slash(path);
    const fs::path target = file.parent_path() / plain(file.filename().string());
    move_odd(copy, file.string(), target.string());
    host.out.line(host.out.paint(Colour::cyan, action_column(say("Renamed"))) + path + " -> " +
                  target.string());
    host.out.record(Record("action")
                        .set(u"action", "renamed")
                        .set(u"from", visible(path))
                        .set(u"path", copy.relative(target.string())));
    return target.string();
}

} // namespace host
