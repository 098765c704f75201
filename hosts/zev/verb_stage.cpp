// init, add, mkdir, mv: what changes the index.

#include "verbs.hpp"

#include "dxf/rows.hpp"

#include <set>

namespace host {

namespace fs = std::filesystem;

namespace {

// What helps with a file that isn't there any more.
std::string hint(const WorkingCopy &copy, const std::string &path) {
    OwnedIndex index(zIndexHead(copy.repository(), false));
    bool tracked = index && zIndexEntryBypath(index.get(), wide(path).c_str());
    return tracked ? "; \"zev commit\" with its name keeps that it is gone" : "";
}

// Git keeps no directories, so that each tracked one holds a keep-file: those below and above
// the paths get theirs.
void keep_directories(const WorkingCopy &copy, Index *index,
                      const std::vector<std::string> &paths) {
    std::set<std::string> parents; // of files; their directories are looked at once
    for (const std::string &path : paths) {
        if (path.empty()) {
            for (const auto &entry : fs::directory_iterator(copy.root()))
                if (std::string name = entry.path().filename();
                    entry.is_directory() && !entry.is_symlink() && name != ".git" && is_text(name))
                    check(zIndexFixupGitkeep(index, wide(name).c_str()));
        } else if (fs::is_directory(copy.absolute(path)) ||
                   parents.insert(fs::path(path).parent_path()).second) {
            check(zIndexFixupGitkeep(index, wide(path).c_str()));
        }
    }
}

// The tables of moved drawings follow, so that the next add doesn't take these for copies. A
// drawing whose table belongs to another path is a copy and stays one.
class TableMover {
  public:
    TableMover(const WorkingCopy &copy, const std::string &from, const std::string &to)
        : copy_(copy), from_(from), to_(to) {}

    void run(Index *index) {
        collect(index);
        for (const std::string &path : drawings_) move(path);
    }

  private:
    void collect(Index *index) {
        zIndexWalk(
            index,
            [](const IndexEntry *entry, void *context) -> int32_t {
                try {
                    static_cast<TableMover *>(context)->visit(narrow(zIndexEntryPath(entry)));
                    return 0;
                } catch (...) {
                    return -1;
                }
            },
            this);
    }

    void visit(const std::string &path) {
        if (is_drawing_name(path) && same_or_below(path, to_)) drawings_.push_back(path);
    }

    void move(const std::string &path) {
        Oid id;
        std::u16string file = copy_.absolute(path).u16string();
        if (!zDrawingDetect(&id, file.c_str())) return;
        if (!zPathDirExists(dxf::table_path(copy_.repository(), &id).c_str())) return;
        OwnedTable table(check(zTableByid(copy_.repository(), &id), path));
        std::string before = from_ + path.substr(to_.size());
        if (!zStrcasesameA(dxf::table_owner(table.get()).c_str(), before.c_str())) return;
        check(zDrawingTableBackwardRefSet(table.get(), copy_.root().u16string().c_str(),
                                          file.c_str()));
    }

    const WorkingCopy &copy_;
    const std::string &from_, &to_;
    std::vector<std::string> drawings_;
};

} // namespace

int init(Host &host, const std::string &directory) {
    fs::path full = fs::absolute(directory).lexically_normal();
    if (!full.has_filename()) full = full.parent_path();
    const std::string path = full.string();
    if (fs::exists(full / ".git")) throw Failed(kInvalid, path + ": is a working copy already");
    if (fs::exists(full) && !(fs::is_directory(full) && fs::is_empty(full)))
        throw Failed(kInvalid, path + ": a working copy needs a new or an empty directory");
    OwnedRepository repository(check(zRepositoryInit(wide(path).c_str(), false), path));
    host.out.line("a new working copy in " + path);
    host.out.record(Record("init").set(u"path", path));
    return kDone;
}

int add(Host &host, const Paths &paths) {
    WorkingCopy copy;
    std::vector<std::string> present;
    for (const std::string &path : paths) {
        std::string below = copy.relative(path);
        if (fs::exists(fs::symlink_status(copy.absolute(below))))
            present.push_back(below);
        else if (!is_wild(path))
            throw Failed(kNotFound, path + ": no such file or directory" + hint(copy, below));
    }
    OwnedSpec spec = copy.spec(paths, 0, host.notify);
    OwnedIndex index = copy.lock_index();
    keep_directories(copy, index.get(), present);
    check(zIndexAdd(index.get(), spec.get()));
    stop_on_break(host.notify);
    check(zIndexWrite(index.get()));
    return kDone;
}

int make_directories(Host &host, const Paths &paths) {
    WorkingCopy copy;
    std::vector<std::string> made;
    for (const std::string &path : paths) made.push_back(copy.relative(path));
    OwnedIndex index = copy.lock_index();
    for (const std::string &path : made)
        if (fs::exists(fs::symlink_status(copy.absolute(path))))
            throw Failed(kExists, path + ": is there already");
    for (const std::string &path : made) {
        check(zDirMake(copy.absolute(path).u16string().c_str(), true), path);
    }
    keep_directories(copy, index.get(), made);
    check(zIndexWrite(index.get()));
    for (const std::string &path : made) {
        host.out.line(host.out.paint(Colour::green, "Added     ") + " " + path + "/");
        host.out.record(Record("action").set(u"action", "added").set(u"path", path + "/"));
    }
    return kDone;
}

int move(Host &host, const std::string &from, const std::string &to) {
    WorkingCopy copy;
    std::string source = copy.relative(from), target = copy.relative(to);
    if (!fs::exists(fs::symlink_status(copy.absolute(source))))
        throw Failed(kNotFound, from + ": no such file or directory");
    if (fs::is_directory(copy.absolute(target))) {
        std::string name = fs::path(source).filename().string();
        target = target.empty() ? name : target + "/" + name;
    }
    if (same_or_below(target, source)) throw Failed(kInvalid, from + ": can't move into itself");
    if (fs::exists(fs::symlink_status(copy.absolute(target))))
        throw Failed(kExists, target + ": is there already");
    OwnedIndex index = copy.lock_index();
    check(zIndexRename(index.get(), wide(source).c_str(), wide(target).c_str()), from);
    keep_directories(copy, index.get(), {target});
    TableMover(copy, source, target).run(index.get());
    check(zIndexWrite(index.get()));
    host.out.line(host.out.paint(Colour::cyan, "Renamed   ") + " " + source + " -> " + target);
    host.out.record(
        Record("action").set(u"action", "renamed").set(u"from", source).set(u"path", target));
    return kDone;
}

} // namespace host
