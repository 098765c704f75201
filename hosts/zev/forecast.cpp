// Nothing here changes the copy: what is asked for goes into the stores alone, where the update
// finds it.
#include "forecast.hpp"

#include "drawing_merge.hpp"
#include "dxf/history.hpp"
#include "kinds.hpp"
#include "merge_report.hpp"
#include "show.hpp"
#include "when.hpp"

#include <algorithm>

namespace host {

namespace {

constexpr uint64_t kFirstLook = 64; // commits; most updates lie within

template <class Visit> void each_entry(const DiffList *list, Visit visit) {
    for (uint64_t i = 0; i < zDiffListLength(list); ++i) visit(zDiffListEntry(list, i));
}

std::string path_of(const DiffEntry *entry) { return narrow(zDiffEntryNewPath(entry)); }

// ---- Who and when

class Search {
  public:
    Search(const Host &host, const WorkingCopy &copy, const Entries &list)
        : host_(host), copy_(copy), db_(check(zRevdbOpen(copy.repository()))) {
        std::ranges::for_each(list, [&](const DiffEntry *entry) {
            left_.insert(path_of(entry));
            if (zDiffEntryStatus(entry) == Z_KIND_RENAMED)
                renamed_[narrow(zDiffEntryOldPath(entry))] = path_of(entry);
        });
    }
    bool is_done() const { return left_.empty(); }

    // From a commit back, until all are found or the known history ends.
    void walk(const Commit *newest) {
        OwnedCommit commit(check(zCommitByid(copy_.repository(), zCommitId(newest))));
        while (commit && !is_done()) {
            stop_on_break(host_.notify);
            const OwnedDiff changes(zRevdbChanges(db_.get(), zCommitId(commit.get())));
            if (!changes) return;
            each_entry(changes.get(), [&](const DiffEntry *entry) { take(commit.get(), entry); });
            commit.reset(zCommitParentCount(commit.get()) ? zCommitParent(commit.get()) : nullptr);
        }
    }
    LastChanges found;

  private:
    // A move stands in the list by its new name, in the history of a server by both.
    void take(const Commit *commit, const DiffEntry *entry) {
        for (const zwchar *side : {zDiffEntryNewPath(entry), zDiffEntryOldPath(entry)}) {
            std::string path = narrow(side);
            const auto renamed = renamed_.find(path);
            if (!left_.contains(path) && renamed != renamed_.end()) path = renamed->second;
            if (left_.erase(path))
                found[path] = {*zCommitId(commit), narrow(zCommitAuthor(commit)),
                               seconds_of(commit)};
        }
    }

    const Host &host_;
    const WorkingCopy &copy_;
    Owned<Revdb, zRevdbFree> db_;
    std::set<std::string> left_;
    std::map<std::string, std::string> renamed_;
};

} // namespace

Entries entries_of(const DiffList *list) {
    Entries entries;
    each_entry(list, [&](const DiffEntry *entry) { entries.push_back(entry); });
    return entries;
}

LastChanges last_changes(const Host &host, const WorkingCopy &copy, Remote *remote,
                         const Commit *newest, const Entries &list) {
    Search search(host, copy, list);
    search.walk(newest);
    for (const uint64_t limit : {kFirstLook, uint64_t{0}}) {
        if (!remote || search.is_done()) break;
        const Oid *id = zCommitId(newest);
        if (!zRemoteDownloadCommits(remote, id, limit, host.notify) ||
            !zRemoteDownloadRevlist(remote, id, limit, host.notify))
            break; // who it was is not worth a failure, and was told
        search.walk(newest);
    }
    return std::move(search.found);
}

// ---- Objects of drawings

namespace {

bool is_drawing_entry(const DiffEntry *entry) {
    const int32_t kind = zDiffEntryStatus(entry);
    return (kind == Z_KIND_MODIFIED || kind == Z_KIND_ADDED) && is_drawing_name(path_of(entry));
}

// The lists of objects that are missing, in one request.
void fetch_manifests(const Host &host, Remote *remote, Odb *odb, const Entries &list) {
    OwnedJson ids(check(zJsonNew(Z_JSON_ARRAY)));
    std::ranges::for_each(list, [&](const DiffEntry *entry) {
        if (!is_drawing_entry(entry) || zOdbExists(odb, zDiffEntryNewId(entry))) return;
        Json *id = check(zJsonNewObject(u"id", zJsonNewId(zDiffEntryNewId(entry)), nullptr));
        check(zJsonArrayPush(ids.get(), id));
    });
    if (!zJsonArraySize(ids.get())) return;
    const OwnedJson query(check(zJsonNewPath(u"query.entries", ids.get())));
    static_cast<void>(ids.release());
    zRemoteDownloadPack(remote, query.get(), host.notify); // what can't be had isn't counted
}

bool load(Odb *odb, const std::string &path, const Oid *id, dxf::VersionFile &file) {
    if (!zOdbExists(odb, id)) return false;
    file.load(odb, {{}, path, *id});
    return file.manifest.has_value();
}

} // namespace

std::map<std::string, ObjectCount> count_objects(const Host &host, const WorkingCopy &copy,
                                                 Remote *remote, const Entries &list) {
    std::map<std::string, ObjectCount> counts;
    const OwnedOdb odb(check(zOdbOpen(copy.repository())));
    if (remote) fetch_manifests(host, remote, odb.get(), list);
    dxf::VersionFile from, to;
    std::ranges::for_each(list, [&](const DiffEntry *entry) {
        const std::string path = path_of(entry);
        if (!is_drawing_entry(entry) || !load(odb.get(), path, zDiffEntryNewId(entry), to)) return;
        ObjectCount count{to.manifest->objects.size(), to.manifest->objects.size()};
        const bool changed = zDiffEntryStatus(entry) == Z_KIND_MODIFIED;
        if (changed && !load(odb.get(), path, zDiffEntryOldId(entry), from)) return;
        if (changed && zOidIsEqual(&from.manifest->table, &to.manifest->table))
            count.changed =
                dxf::compare_objects(from.manifest->objects, to.manifest->objects).size();
        counts[path] = count;
    });
    return counts;
}

namespace {

// What was committed and never sent is a change of the user's from the update on.
void add_unsent(const WorkingCopy &copy, std::set<std::string> &paths) {
    const OwnedTree ground(check(zRemoteGround(copy.repository())));
    const OwnedTree ours(check(zCommitTree(copy.head().get())));
    const OwnedSpec all(check(zPathSpecNew(nullptr, Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_RENAMED)));
    const OwnedDiff list(check(zDiffTreeToTree(ground.get(), ours.get(), all.get(), nullptr)));
    each_entry(list.get(), [&](const DiffEntry *entry) { paths.insert(path_of(entry)); });
}

} // namespace

std::set<std::string> changed_here(const WorkingCopy &copy) {
    const OwnedSpec spec(
        check(zPathSpecNew(nullptr, Z_SPEC_NO_UNCHANGED | Z_SPEC_NO_IGNORED | Z_SPEC_NO_RENAMED)));
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    const OwnedStatus list(check(zStatusListBuild(index.get(), spec.get())));
    std::set<std::string> paths;
    for (uint64_t i = 0; i < zStatusListLength(list.get()); ++i)
        paths.insert(narrow(zStatusEntryPath(zStatusListEntry(list.get(), i))));
    if (copy.born()) add_unsent(copy, paths);
    return paths;
}

// ---- Drawings that both sides changed

namespace {

// Of a drawing that can't be brought together nothing is told but that both changed it.
std::optional<dxf::Merge> foresee(const Host &host, const WorkingCopy &copy,
                                  const DiffEntry *entry) try {
    ThreeWays ways{path_of(entry), *zDiffEntryOldId(entry), {}, *zDiffEntryNewId(entry)};
    const std::u16string file = copy.absolute(ways.path).u16string();
    if (!zOidFromFile(&ways.ours, file.c_str())) return {};
    const DrawingMerge merge(host, copy, ways);
    dxf::Merge told = counts_of(merge.result());
    told.conflicts = merge.result().conflicts;
    return told;
} catch (const Failed &failed) {
    if (failed.error_class == kCanceled) throw;
    return {};
}

} // namespace

Meetings foresee_meetings(const Host &host, const WorkingCopy &copy, Remote *remote,
                          const Entries &list, const std::set<std::string> &here) {
    Entries met;
    std::ranges::copy_if(list, std::back_inserter(met), [&](const DiffEntry *entry) {
        return zDiffEntryStatus(entry) == Z_KIND_MODIFIED && is_drawing_name(path_of(entry)) &&
               here.contains(path_of(entry));
    });
    Meetings meetings;
    if (met.empty()) return meetings;
    const OwnedOdb odb(check(zOdbOpen(copy.repository())));
    fetch_manifests(host, remote, odb.get(), met);
    for (const DiffEntry *entry : met) {
        stop_on_break(host.notify);
        if (auto merge = foresee(host, copy, entry)) meetings[path_of(entry)] = std::move(*merge);
    }
    return meetings;
}

// ---- One line, or one record, a file

namespace {

std::string meeting_text(const dxf::Merge *merge) {
    if (!merge) return say("(changed here, too)");
    return merge->conflicts.empty() ? say("(changed here, too, and comes together)")
                                    : say("(changed here, too: %s)", conflicts_text(*merge));
}

std::string objects_text(const ObjectCount &count) {
    const std::string all = count_of(count.all, "object");
    return count.changed == count.all ? all : say("%s of %s", grouped(count.changed), all);
}

} // namespace

void Forecast::print(Host &host, const Entries &list) const {
    constexpr size_t kWidest = 40;
    size_t width = 0;
    std::ranges::for_each(list, [&](const DiffEntry *entry) {
        width = std::max(width, std::min(columns(typed_path(zDiffEntryNewPath(entry))), kWidest));
    });
    std::ranges::for_each(list, [&](const DiffEntry *entry) {
        stop_on_break(host.notify);
        const int32_t kind = zDiffEntryStatus(entry);
        const std::string name = path_of(entry), path = shown_path(zDiffEntryNewPath(entry));
        const std::string from = shown_path(zDiffEntryOldPath(entry));
        const auto who = last.find(name);
        const auto count = objects.find(name);
        const bool moved = kind == Z_KIND_RENAMED;
        const bool both = here.contains(name) || (moved && here.contains(from));
        Record record("incoming");
        record.set(u"path", path).set(u"status", kind_name(kind)).set(u"here", both);
        const bool ends = !both && who == last.end() && count == objects.end();
        const std::string names =
            (moved ? typed_path(from) + " -> " : "") + typed_path(zDiffEntryNewPath(entry));
        std::string line = host.out.paint(kind_colour(kind), kind_column(kind)) +
                           (ends ? names : padded(names, width));
        if (moved) record.set(u"from", from);
        if (who != last.end()) {
            const LastChange &change = who->second;
            line += "  " + change.author + ", " + short_time(change.seconds);
            record.set(u"commit", &change.commit).set(u"author", change.author);
            record.set(u"time", iso_time(change.seconds)).set(u"seconds", change.seconds);
        }
        if (count != objects.end()) {
            line += "  " + objects_text(count->second);
            record.set(u"changed", count->second.changed).set(u"objects", count->second.all);
        }
        const auto met = meetings.find(name);
        const dxf::Merge *merge = met == meetings.end() ? nullptr : &met->second;
        if (merge) record.set(u"merges", merge->conflicts.empty());
        host.out.line(line + (both ? "  " + meeting_text(merge) : ""));
        host.out.record(record);
    });
}

} // namespace host
