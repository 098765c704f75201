// The commit that settles a merge is made while its reference stands, and only then the reference
// goes: one more commit with a parent that is contained already does no harm, a lost merge does.
#include "merge_state.hpp"

#include "refs.hpp"
#include "scratch.hpp"
#include "show.hpp"

#include <fstream>

namespace host {

namespace fs = std::filesystem;

static constexpr const char *kMessageFile = "MERGE_MSG"; // git's, too

bool is_as_head(const WorkingCopy &copy, Index *index) {
    const OwnedTree tree(check(zIndexWriteTree(index)));
    return zOidIsEqual(zTreeId(tree.get()), zCommitTreeId(copy.head().get()));
}

std::optional<Unsettled> unsettled_merge(const WorkingCopy &copy) {
    for (const zwchar *name : {kMergeHead, kPartHead}) {
        if (!zReferenceExists(copy.repository(), name)) continue;
        const OwnedCommit theirs(check(zCommitByref(copy.repository(), name), narrow(name)));
        return Unsettled{*zCommitId(theirs.get()), name == kMergeHead};
    }
    return {};
}

static void forget_part(const WorkingCopy &copy) {
    if (zReferenceExists(copy.repository(), kPartHead)) delete_reference(copy, narrow(kPartHead));
}

void note_merge(const WorkingCopy &copy, const Unsettled &merge, const std::string &message) {
    replace_file(own_directory(copy) / kMessageFile, message + "\n");
    Owned<Reference, zReferenceFree>(check(
        zReferenceCreate(copy.repository(), merge.whole ? kMergeHead : kPartHead, &merge.theirs)));
    if (merge.whole) forget_part(copy);
}

// Git writes hints for an editor into it, each line behind a "#".
std::string noted_message(const WorkingCopy &copy) {
    constexpr size_t kLongest = 1 << 16;
    if (!unsettled_merge(copy)) return {};
    std::ifstream file(own_directory(copy) / kMessageFile);
    std::string message;
    for (std::string line; message.size() < kLongest && std::getline(file, line);)
        if (!line.starts_with('#')) message += line + "\n";
    return message.substr(0, message.find_last_not_of(" \t\r\n") + 1);
}

// With what git keeps beside it, and with a commit that git was to pick or to take back.
void finish_merge(const WorkingCopy &copy) {
    for (const zwchar *name : {kMergeHead, kPartHead, u"CHERRY_PICK_HEAD", u"REVERT_HEAD"})
        if (zReferenceExists(copy.repository(), name)) delete_reference(copy, narrow(name));
    for (const char *name : {kMessageFile, "MERGE_MODE"}) {
        std::error_code ignored;
        fs::remove(own_directory(copy) / name, ignored);
    }
}

void require_no_merge(const WorkingCopy &copy) {
    if (unsettled_merge(copy))
        throw Failed(kOther, "the last merge is not committed yet; commit it, or take it back by "
                             "\"zev merge --abort\"");
}

void require_no_other_merge(const WorkingCopy &copy, const Oid &theirs) {
    const auto merge = unsettled_merge(copy);
    if (!merge || merge->whole || !zOidIsEqual(&merge->theirs, &theirs)) require_no_merge(copy);
}

BegunMerge::BegunMerge(const WorkingCopy &copy, Index *index, const Oid &theirs)
    : copy_(copy), index_(index) {
    Owned<Reference, zReferenceFree>(
        check(zReferenceCreate(copy.repository(), kPartHead, &theirs)));
}

BegunMerge::~BegunMerge() {
    try {
        if (!zIndexHasConflicts(index_) && is_as_head(copy_, index_)) end();
    } catch (...) { // then it stays, and is taken back or goes on
    }
}

void BegunMerge::end() const { forget_part(copy_); }

namespace {

Record merge_record(const Unsettled &merge, bool conflicts) {
    Record record("merging");
    record.set(u"theirs", &merge.theirs).set(u"whole", merge.whole).set(u"conflicts", conflicts);
    return record;
}

} // namespace

void tell_merge(Host &host, const WorkingCopy &copy, bool conflicts, bool beside) {
    const auto merge = unsettled_merge(copy);
    if (!merge) return;
    const std::string text =
        say(conflicts ? "the merge of %s is not committed yet: \"zev resolve\" settles its "
                        "conflicts, \"zev commit\" ends it, \"zev merge --abort\" takes it back"
                      : "the merge of %s is not committed yet: \"zev commit\" ends it, \"zev merge "
                        "--abort\" takes it back",
            short_id(&merge->theirs));
    if (beside) return host.out.warn(text);
    host.out.line(text);
    host.out.record(merge_record(*merge, conflicts));
}

void tell_merge_ends(Host &host, const Unsettled &merge) {
    host.out.line(say(merge.whole ? "this commit ends the merge of %s"
                                  : "this commit ends the merge of %s as far as it came in; merge "
                                    "again for the rest",
                      short_id(&merge.theirs)));
    host.out.record(merge_record(merge, false));
}

std::string part_note(const Oid &theirs) {
    return "Merge of " + hex(&theirs).substr(0, 8) + ", not all of it";
}

} // namespace host
