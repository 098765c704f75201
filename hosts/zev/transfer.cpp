// A checkout's own result doesn't tell what it left out; the count of what it told does.
#include "transfer.hpp"

namespace host {

namespace {

constexpr size_t kExamples = 10; // files that a message names

} // namespace

Transfer transfer(Host &host, const WorkingCopy &copy, const zwchar *branch, const Oid *target,
                  uint32_t options) {
    Owned<CheckSpec, zCheckSpecFree> spec(check(zCheckSpecBuild(branch, target, nullptr, options)));
    check(zCheckSpecSetNotify(spec.get(), host.notify));
    host.notify->forget();
    check(zRepositoryCheckout(copy.repository(), spec.get()));
    const Outcome &outcome = host.notify->outcome();
    return {outcome.failed + outcome.skipped, outcome.aborted || broken()};
}

bool has_conflicts(const WorkingCopy &copy) {
    OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    return zIndexHasConflicts(index.get());
}

void require_settled(const WorkingCopy &copy) {
    constexpr int kUnmerged = -10; // as git counts it, which makes it exit code 4
    if (has_conflicts(copy))
        throw Failed(kGit, kUnmerged, "conflicts remain; \"zev conflicts\" lists them");
}

int tell_conflicts(Host &host) {
    host.out.warn("there are conflicts: \"zev conflicts\" shows them, \"zev resolve\" decides");
    return kConflicts;
}

std::vector<std::string> local_work(const WorkingCopy &copy) {
    OwnedSpec spec(check(
        zPathSpecNew(nullptr, Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_UNTRACKED | Z_SPEC_NO_IGNORED)));
    OwnedStatus list(check(zShellStatus(copy.repository(), spec.get())));
    std::vector<std::string> found;
    for (uint64_t i = 0; i < zStatusListLength(list.get()); ++i) {
        const StatusEntry *entry = zStatusListEntry(list.get(), i);
        std::string path = narrow(zStatusEntryPath(entry));
        if (copy.is_on_disk(path)) found.push_back(std::move(path));
    }
    return found;
}

std::string some_of(const std::vector<std::string> &names) {
    std::string text;
    for (size_t i = 0; i < names.size() && i < kExamples; ++i) text += (i ? ", " : "") + names[i];
    if (names.size() > kExamples)
        text += " and " + std::to_string(names.size() - kExamples) + " more";
    return text;
}

void confirm_trash(Host &host, const std::vector<std::string> &work) {
    if (work.empty()) return;
    const std::string count = std::to_string(work.size());
    const int32_t answer = ask(host.notify, {.id = "zev.force",
                                             .title = "",
                                             .instruction = count + " changed files go to the "
                                                                    "trash. Go on?",
                                             .content = some_of(work),
                                             .buttons = {"Go on", "Keep my changes"}});
    if (answer == 1) return;
    if (host.notify->outcome().unanswered)
        throw Failed(kOther, "nothing was changed; --yes says that it is meant");
    throw Failed(kCanceled, "nothing was changed");
}

} // namespace host
