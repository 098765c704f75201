// Locks that a process left. Without a copy of the index that its holder left nothing tells a dead
// owner from a live one.
#include "common/utf.hpp"
#include "objects/work/recovery.hpp"
#include "verify/files.hpp"
#include "verify/parts.hpp"

namespace zev::verify {

namespace {

void check_lock(Report &report, const std::u16string &path, const std::u16string &name,
                bool heals) {
    const bool ours = name.ends_with(kLockTail);
    if ((!ours && !name.ends_with(u".lock")) || (ours && is_held(path))) return;
    const bool passing = name.starts_with(u"refs/zev/checkout-"); // the next one takes it along
    if (ours || heals || passing)
        report.left_over(to_utf8(name) + ": left by a process that died; the next command that "
                                         "changes something puts it right");
    else
        report.damage({.path = to_utf8(name)}, "a lock; unless git is at work, it was left behind");
}

} // namespace

void check_locks(Report &report) {
    if (!report.is_wanted(Z_VERIFY_LOCKS) || report.broken()) return;
    git_repository *git = report.repository->handle.get();
    const std::u16string guard = own_directory(git) + lock_name(u"index");
    const bool heals = exists(guard) && !is_held(guard);
    const auto check = [&](const std::u16string &path, const std::u16string &name) {
        check_lock(report, path, name, heals);
    };
    visit_files(own_directory(git), false, check);
    visit_files(shared_directory(git) + u"refs/", true, check, u"refs/");
}

} // namespace zev::verify
