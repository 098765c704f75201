// A directory's name ends in a slash; in text as in JSON.
//
// All keep-files are alike: which of them is taken for which is chance where several directories
// moved. The files that came along know better.
#include "listing.hpp"

#include "keep_files.hpp"
#include "kinds.hpp"

#include <map>
#include <set>

namespace host {

namespace {

// Of a directory below the top, which has no name here.
bool is_kept(const std::string &path) { return is_keep(path) && path != kKeepFile; }

bool is_of_tracked(int32_t kind) {
    return kind != Z_KIND_UNCHANGED && kind != Z_KIND_UNTRACKED && kind != Z_KIND_IGNORED &&
           kind != Z_KIND_UNREADABLE;
}

using Names = std::set<std::string>;

// Where a keep-file went away.
Names gone_keeps(const std::vector<Listed> &changes) {
    Names gone;
    for (const Listed &change : changes) {
        const bool renamed = change.kind == Z_KIND_RENAMED;
        const std::string &path = renamed ? change.old : change.path;
        if ((renamed || change.kind == Z_KIND_DELETED) && is_kept(path)) gone.insert(path);
    }
    return gone;
}

std::map<std::string, Names> origins_of(const std::vector<Listed> &changes) {
    std::map<std::string, Names> origins; // of a directory's files
    for (const Listed &change : changes)
        if (change.kind == Z_KIND_RENAMED && !is_kept(change.path))
            origins[directory_of(change.path)].insert(directory_of(change.old));
    return origins;
}

bool is_new_keep(const Listed &change) {
    return is_kept(change.path) && (change.kind == Z_KIND_RENAMED || change.kind == Z_KIND_ADDED);
}

// By the files that came along first; another one may have been given that place.
void find_origins(std::vector<Listed> &changes) {
    const Names gone = gone_keeps(changes);
    const std::map<std::string, Names> origins = origins_of(changes);
    Names taken, known;
    for (Listed &change : changes) {
        const auto from = origins.find(directory_of(change.path));
        if (!is_new_keep(change) || from == origins.end() || from->second.size() != 1) continue;
        const std::string keep = *from->second.begin() + std::string(kKeepFile);
        if (!gone.contains(keep) || !taken.insert(keep).second) continue;
        change = {Z_KIND_RENAMED, keep, change.path};
        known.insert(change.path);
    }
    for (Listed &change : changes)
        if (is_new_keep(change) && change.kind == Z_KIND_RENAMED && !known.contains(change.path) &&
            !taken.insert(change.old).second)
            change = {Z_KIND_ADDED, "", change.path};
    std::erase_if(changes, [&](const Listed &change) {
        return change.kind == Z_KIND_DELETED && taken.contains(change.path);
    });
}

} // namespace

std::vector<Listed> listed_changes(const StatusList *list) {
    std::vector<Listed> changes;
    for (uint64_t i = 0; i < zStatusListLength(list); ++i) {
        const StatusEntry *entry = zStatusListEntry(list, i);
        Listed listed{zStatusEntryStatus(entry), "", narrow(zStatusEntryPath(entry))};
        if (!is_of_tracked(listed.kind)) continue;
        if (listed.kind == Z_KIND_RENAMED) listed.old = narrow(zStatusEntryFrom(entry));
        changes.push_back(std::move(listed));
    }
    find_origins(changes);
    for (Listed &change : changes)
        for (std::string *path : {&change.old, &change.path})
            if (is_kept(*path)) *path = directory_of(*path);
    return changes;
}

void print_listed(Host &host, const char *type, const Listed &listed) {
    const char *kind = kind_name(listed.kind);
    if (host.out.json()) {
        Record record(type);
        record.set(u"path", listed.path).set(u"status", kind);
        record.set(u"directory", listed.path.ends_with('/'));
        if (!listed.old.empty()) record.set(u"from", listed.old);
        return host.out.record(record);
    }
    host.out.line(host.out.paint(kind_colour(listed.kind), kind_column(listed.kind)) +
                  (listed.old.empty() ? "" : typed_path(listed.old) + " -> ") +
                  typed_path(listed.path));
}

} // namespace host
