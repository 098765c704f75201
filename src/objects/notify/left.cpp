// Why a path is left, as a user can act upon it: the system's words name no remedy, and are
// English.
#include "objects/notify/left.hpp"

#include "common/told_errno.hpp"
#include "common/utf.hpp"

#include <cerrno>
#include <string>

namespace zev {

namespace {

// What the system says, wherever a reason has it, is put into the catalogue's words.
void reword_reason() {
    constexpr struct {
        int host;
        const zwchar *key;
    } kWords[] = {{ENOSPC, u"reason.eNoSpace"},
                  {EDQUOT, u"reason.eNoSpace"},
                  {EACCES, u"reason.eNoAccess"},
                  {EPERM, u"reason.eNoAccess"},
                  {EROFS, u"reason.eReadOnly"},
                  {EBUSY, u"reason.eBusy"},
                  {EEXIST, u"reason.eExists"},
                  {EINVAL, u"reason.eName"},
                  {ENAMETOOLONG, u"reason.eNameTooLong"},
                  {ENOENT, u"reason.eNotThere"},
                  {ENOTDIR, u"reason.eNotDirectory"}};
    const std::string told = to_utf8(zErrorReason());
    for (const auto &[host, key] : kWords)
        if (tells_errno(told, host)) {
            zSetErrorReason(u"%s", word(key));
            return;
        }
}

} // namespace

void notify_left(const Notify *notify, const zwchar *key, const zwchar *path) {
    const KeptFailure kept;
    reword_reason();
    zSetErrorMsg(u"%s", path);
    notify_action(notify, key, path);
}

} // namespace zev
