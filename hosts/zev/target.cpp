// The file is made beside its place, so that it can be renamed into it.
#include "target.hpp"

#include "permissions.hpp"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

Target::Target(const WorkingCopy *copy, const std::string &path, Former former)
    : copy_(copy), former_(former), path_(path) {
    const bool direct = former == to_trash && fs::exists(path) && !fs::is_regular_file(path);
    if (!direct) temporary_ = sibling();
    const std::u16string name = wide_path(direct ? path : temporary_.string());
    file_.reset(zFileOpen(name.c_str(), direct ? u"wb" : u"wbx"));
    if (!file_) throw Failed(zErrorClass(), zErrorCode(), path + ": " + narrow(zErrorReason()));
}

Target::~Target() {
    std::error_code ignored;
    if (!temporary_.empty()) fs::remove(temporary_, ignored);
}

void Target::write(std::string_view bytes) {
    errno = 0;
    if (fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) fail();
}

void Target::finish() {
    errno = 0;
    if (!zFileClose(file_.release())) fail();
    if (temporary_.empty()) return;
    if (former_ == to_trash) displace();
    check(zMove(wide(temporary_.string()).c_str(), wide(path_).c_str(), true));
    temporary_.clear();
}

void Target::displace() const {
    const fs::file_status status = fs::symlink_status(path_);
    if (!fs::exists(status)) return;
    const auto take = fs::is_regular_file(status) ? zTrashKeep : zTrashMoveInto;
    const auto below = copy_ ? copy_->below(path_) : std::nullopt;
    if (below && !below->empty())
        check(take(copy_->repository(), wide(*below).c_str()), path_);
    else if (!zDrop(wide_path(fs::absolute(path_).string()).c_str()))
        throw fs::filesystem_error({}, path_, {errno, std::generic_category()});
}

// A process that was killed may have left one behind; where numbers of processes are few, as in a
// container, it had the same.
fs::path Target::sibling() const {
    const std::string begin = ".zev-" + std::to_string(getpid());
    std::error_code ignored;
    fs::path name = fs::path(path_).replace_filename(begin + ".tmp");
    for (int i = 1; fs::exists(fs::symlink_status(name, ignored)); ++i)
        name.replace_filename(begin + "-" + std::to_string(i) + ".tmp");
    return name;
}

void Target::fail() const {
    const int code = errno;
    const std::string text = say("%s: can't be written", path_);
    if (!code) throw Failed(kSystem, text);
    throw Failed(kSystem, code, text + ": " + strerror(code));
}

void require_free(const HostNotify *notify, const WorkingCopy *copy, const std::string &target,
                  bool is_forced) {
    if (fs::is_directory(target))
        throw Failed(kInvalid, say("%s: is a directory; name the file", target));
    if (copy && copy->in_repository(target))
        throw Failed(kInvalid, say("%s: lies in the repository", target));
    const fs::file_status status = fs::symlink_status(target);
    if (is_forced || (!fs::is_regular_file(status) && !fs::is_symlink(status))) return;
    require_yes(notify,
                {.id = "zev.export.replace",
                 .title = "",
                 .instruction = say("Replace %s?", target),
                 .content = "The file that is there goes to the trash.",
                 .buttons = {"Replace", "Keep"}},
                say("%s: is there already, and stays as it is", target),
                "--force says that it may go to the trash");
}

void require_export_right(const WorkingCopy &copy, const std::string &path) {
    constexpr int kForbidden = 403;
    const Permission permission = Permissions(copy).of(path);
    if (permission.bits & Z_PRIVILEGE_EXPORT) return;
    throw Failed(kServer, kForbidden,
                 say(permission.rule.empty() ? "%s: you may not export it"
                                             : "%s: you may not export it, by the rule on %s",
                     path, permission.rule));
}

} // namespace host
