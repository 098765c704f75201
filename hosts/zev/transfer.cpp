// A checkout's own result doesn't tell what it left out; the count of what it told does.
#include "transfer.hpp"

#include "refs.hpp"

namespace host {

namespace {

constexpr size_t kExamples = 10; // files that a message names

} // namespace

Transfer transfer(Host &host, const WorkingCopy &copy, const zwchar *branch, const Oid *target,
                  uint32_t options, const PathSpec *paths) {
    Owned<CheckSpec, zCheckSpecFree> spec(check(zCheckSpecBuild(branch, target, paths, options)));
    check(zCheckSpecSetNotify(spec.get(), host.notify));
    host.notify->forget();
    check(zRepositoryCheckout(copy.repository(), spec.get()));
    const Outcome &outcome = host.notify->outcome();
    return {outcome.done, outcome.failed + outcome.skipped, outcome.aborted || broken()};
}

std::vector<std::string> changed_files(Commit *from, Commit *to) {
    OwnedSpec spec(check(zPathSpecNew(nullptr, Z_SPEC_NO_RENAMED | Z_SPEC_NO_UNCHANGED)));
    OwnedDiff changes(check(zCommitDiff(from, to, spec.get(), nullptr)));
    std::vector<std::string> files;
    for (uint64_t i = 0; i < zDiffListLength(changes.get()); ++i)
        files.push_back(narrow(zDiffEntryNewPath(zDiffListEntry(changes.get(), i))));
    return files;
}

// ---- Passage

Passage::Passage(Host &host, const WorkingCopy &copy, Index *index, Commit *head, Commit *target)
    : host_(host), copy_(copy), index_(index), head_(head), target_(target),
      before_(check(zIndexDup(index))) {}

Transfer Passage::run(uint32_t options) {
    const TempBranch temporary(copy_, head_ ? zCommitId(head_) : nullptr);
    const std::u16string branch = wide(temporary.name());
    const Transfer taken =
        transfer(host_, copy_, branch.c_str(), zCommitId(target_), options | Z_CHECK_NO_LOCKS);
    if (!taken.whole() && head_) take_back(branch.c_str());
    return taken;
}

// On the branch stands by now what was taken, so that a checkout from there undoes just that. In a
// conflict the file is still the user's; only the index knows of theirs.
void Passage::take_back(const zwchar *branch) {
    OwnedSpec taken(check(zPathSpecNew(nullptr, Z_SPEC_LITERAL)));
    std::vector<std::string> conflicted;
    for (const std::string &path : changed_files(head_, target_)) {
        if (zIndexPathIsConflict(index_, wide(path).c_str()))
            conflicted.push_back(path);
        else
            check(zPathSpecAdd(taken.get(), wide(path).c_str()));
    }
    if (zPathSpecCount(taken.get()))
        stuck_ =
            transfer(host_, copy_, branch, zCommitId(head_), Z_CHECK_NO_LOCKS, taken.get()).missed;
    for (const std::string &path : conflicted) put_back_entry(path);
    if (!conflicted.empty()) check(zIndexWrite(index_));
}

void Passage::put_back_entry(const std::string &path) {
    const std::u16string name = wide(path);
    check(zIndexRemoveEntry(index_, name.c_str()), path);
    const IndexEntry *entry = zIndexEntryBypath(before_.get(), name.c_str());
    if (entry) check(zIndexEntryAdd(index_, entry), path);
}

void Passage::fail(const Transfer &taken) const {
    std::string text = taken.broken_off ? say("cancelled")
                                        : say("%s could not be changed; close what uses them",
                                              plural(taken.missed, "file"));
    text += "; ";
    if (!head_)
        text += say("what came in is staged, and once more goes on from there");
    else if (stuck_)
        text += say("%s could not go back and are as over there", plural(stuck_, "file"));
    else
        text += say("the branch is the same as before");
    throw Failed(taken.broken_off ? kCanceled : kOther, text);
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
    if (names.size() > kExamples) text = say("%s and %s more", text, names.size() - kExamples);
    return text;
}

void confirm_trash(Host &host, const std::vector<std::string> &work) {
    if (work.empty()) return;
    const std::string count = std::to_string(work.size());
    require_yes(host.notify,
                {.id = "zev.force",
                 .title = "",
                 .instruction = say(work.size() == 1 ? "%s changed file goes to the trash. Go on?"
                                                     : "%s changed files go to the trash. Go on?",
                                    count),
                 .content = some_of(work),
                 .buttons = {"Go on", "Keep my changes"}},
                "nothing was changed");
}

} // namespace host
