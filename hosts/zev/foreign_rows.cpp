// A drawing's file names its table; the rows lie in the repository of the project that it comes
// from. A table appears here under its name when all rows are in it.
#include "foreign_rows.hpp"

#include "dxf/rows.hpp"
#include "moved.hpp"
#include "needed_rows.hpp"

namespace host {

namespace fs = std::filesystem;

void copy_table(const fs::path &from, const fs::path &to) {
    const fs::path aside = to.string() + ".new";
    fs::remove_all(aside);
    try {
        const OwnedTable theirs(check(zTableOpen(from.u16string().c_str(), false), from.string()));
        const OwnedStream rows(check(zTableWriteOut(theirs.get()), from.string()));
        OwnedTable ours(check(zTableOpen(aside.u16string().c_str(), true), to.string()));
        check(zTableReadStream(ours.get(), rows.get()), to.string());
    } catch (...) {
        std::error_code ignored;
        fs::remove_all(aside, ignored);
        throw;
    }
    fs::rename(aside, to);
}

namespace {

struct Beside {
    fs::path project, table;
};

// The table of a project in a directory beside this one, if any has it. A worktree of this very
// project has it where it isn't here either.
std::optional<Beside> table_beside(const WorkingCopy &copy, const Oid &id) {
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(copy.root().parent_path(), error)) {
        zwchar place[Z_PATH_MAX];
        if (!zTablePlaceIn(place, wide(entry.path().string()).c_str(), &id)) continue;
        const fs::path table{std::u16string(place)};
        if (fs::is_directory(table, error)) return Beside{entry.path(), table};
    }
    return {};
}

// A copy of a drawing of this very project, of which nobody has looked into the original yet.
bool has_server_rows(Host &host, const WorkingCopy &copy, const std::string &path) try {
    const OwnedDrawing drawing(zDrawingRead(copy.absolute(path).u16string().c_str()));
    return drawing && fetch_rows(host, copy, drawing.get(), path);
} catch (const Failed &failed) {
    if (failed.error_class == kCanceled) throw;
    return false;
}

void fetch(Host &host, const WorkingCopy &copy, const std::string &path) {
    Oid id;
    if (!zDrawingDetect(&id, copy.absolute(path).u16string().c_str())) return;
    const fs::path table = dxf::table_path(copy.repository(), &id);
    if (fs::exists(table)) return;
    const std::optional<Beside> theirs = table_beside(copy, id);
    if (!theirs && has_server_rows(host, copy, path)) return;
    if (!theirs)
        return host.out.warn(say("%s: comes from another project and its rows are not here; import "
                                 "its DXF file, or add it beside that project",
                                 typed_path(path)));
    copy_table(theirs->table, table);
    const std::string project = theirs->project.string();
    host.out.line(say("%s: its rows come from %s", typed_path(path), project));
    host.out.record(
        Record("info").set(u"message", say("%s: its rows come from %s", path, project)));
}

} // namespace

Paths prepare_drawings(Host &host, const WorkingCopy &copy, PathSpec *spec) {
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    const OwnedStatus list(check(zStatusListBuild(index.get(), spec)));
    Paths drawings, moved, untracked;
    for (uint64_t i = 0; i < zStatusListLength(list.get()); ++i) {
        const StatusEntry *entry = zStatusListEntry(list.get(), i);
        const int32_t kind = zStatusEntryStatus(entry);
        const std::string path = narrow(zStatusEntryPath(entry));
        if (kind == Z_KIND_UNTRACKED) untracked.push_back(path);
        if (kind == Z_KIND_UNCHANGED || !is_drawing_name(path) || !copy.is_on_disk(path)) continue;
        drawings.push_back(path);
        if (kind == Z_KIND_UNTRACKED) moved.push_back(path);
    }
    for (const std::string &path : drawings) fetch(host, copy, path);
    follow_moves(copy, moved);
    return untracked;
}

} // namespace host
