// By the two commits and the files; the index is only asked for files that the disk lacks.
#include "merge_forecast.hpp"

#include "drawing_merge.hpp"
#include "merge_report.hpp"

namespace host {

namespace fs = std::filesystem;

namespace {

using File = std::optional<Oid>; // none: it isn't there

bool same(const File &a, const File &b) { return a ? b && zOidIsEqual(&*a, &*b) : !b; }

class MergeForecast {
  public:
    MergeForecast(Host &host, const WorkingCopy &copy, bool merges)
        : host_(host), copy_(copy), merges_(merges),
          index_(check(zIndexHead(copy.repository(), false))) {}

    void look(const DiffEntry *entry) {
        stop_on_break(host_.notify);
        const int32_t kind = zDiffEntryStatus(entry);
        const std::string path = narrow(zDiffEntryNewPath(entry));
        File base, theirs;
        if (kind != Z_KIND_ADDED) base = *zDiffEntryOldId(entry);
        if (kind != Z_KIND_DELETED) theirs = *zDiffEntryNewId(entry);
        const File ours = our_file(path);
        if (same(ours, base) || same(ours, theirs)) return;
        if (!base)
            tell_apart(path, "both sides began it, each its own");
        else if (!ours || !theirs)
            tell_apart(path, "one side has deleted it");
        else if (!merges_ || !is_drawing_name(path))
            tell_apart(path, "both sides changed it");
        else
            foresee({path, *base, *ours, *theirs});
    }
    const Outlook &outlook() const { return outlook_; }

  private:
    File our_file(const std::string &path) const {
        const fs::path file = copy_.absolute(path);
        Oid id{};
        if (fs::is_regular_file(fs::symlink_status(file))) {
            check(zOidFromFile(&id, file.u16string().c_str()), path);
            return id;
        }
        const IndexEntry *entry = zIndexEntryBypath(index_.get(), wide(path).c_str());
        return entry ? File(*zIndexEntryID(entry)) : File();
    }

    void foresee(const ThreeWays &ways) try {
        const DrawingMerge merge(host_, copy_, ways);
        ++(merge.is_whole() ? outlook_.merged : outlook_.conflicts);
        if (merge.is_whole())
            tell_merged(host_, ways.path, merge.result(), true);
        else
            tell_unmerged(host_, ways.path, merge.result(), true, true);
    } catch (const Failed &failed) {
        if (failed.error_class == kCanceled) throw;
        tell_refused(host_, ways.path, failed.what(), true, true);
        ++outlook_.conflicts;
    }

    void tell_apart(const std::string &path, const char *why) {
        tell_refused(host_, path, say(why), true, true);
        ++outlook_.conflicts;
    }

    Host &host_;
    const WorkingCopy &copy_;
    const bool merges_;
    const OwnedIndex index_;
    Outlook outlook_;
};

} // namespace

Outlook foresee_merge(Host &host, const WorkingCopy &copy, const Oid &base, Commit *theirs,
                      bool merges) {
    const OwnedCommit from(check(zCommitByid(copy.repository(), &base)));
    const OwnedSpec spec(check(zPathSpecNew(nullptr, Z_SPEC_NO_RENAMED | Z_SPEC_NO_UNCHANGED)));
    const OwnedDiff changes(check(zCommitDiff(from.get(), theirs, spec.get(), nullptr)));
    MergeForecast forecast(host, copy, merges);
    for (uint64_t i = 0; i < zDiffListLength(changes.get()); ++i)
        forecast.look(zDiffListEntry(changes.get(), i));
    return forecast.outlook();
}

} // namespace host
