// mv: files and directories under another name, drawings with their tables.

#include "dxf/rows.hpp"
#include "index_change.hpp"
#include "keep_files.hpp"
#include "odd_names.hpp"
#include "verb.hpp"

namespace host {

namespace fs = std::filesystem;

namespace {

struct Options {
    std::string from, to;
};

void declare(CLI::App &verb, Options &options) {
    verb.description("Move or rename a file or a directory");
    verb.footer("Examples:\n  zev mv plan.dwx ground.dwx\n  zev mv plan.dwx plans");
    verb.add_option("from", options.from, "What to move")->required();
    verb.add_option("to", options.to, "New name, or a directory to move into")->required();
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

// What no commit holds is moved on the disk only.
int move_odd_file(Host &host, const WorkingCopy &copy, const Options &options) {
    std::string target = copy.relative(options.to);
    if (fs::is_directory(copy.absolute(target)))
        throw Failed(kInvalid, options.to + ": is a directory; give a new name, too");
    move_odd(copy, options.from, copy.absolute(target).string());
    host.out.line(host.out.paint(Colour::cyan, "Renamed   ") + " " + options.from + " -> " +
                  typed_path(target));
    host.out.record(Record("action")
                        .set(u"action", "renamed")
                        .set(u"from", visible(options.from))
                        .set(u"path", target));
    return kDone;
}

int run(Host &host, const Options &options) {
    const std::string &from = options.from;
    WorkingCopy copy;
    if (is_odd(from)) return move_odd_file(host, copy, options);
    std::string source = copy.relative(from), target = copy.relative(options.to);
    if (!copy.is_on_disk(source)) throw Failed(kNotFound, from + ": no such file or directory");
    if (fs::is_directory(copy.absolute(target))) {
        std::string name = fs::path(source).filename().string();
        target = target.empty() ? name : target + "/" + name;
    }
    if (same_or_below(target, source)) throw Failed(kInvalid, from + ": can't move into itself");
    if (copy.is_on_disk(target)) throw Failed(kExists, typed_path(target) + ": is there already");
    const std::u16string old_path = wide(source), new_path = wide(target);
    const OwnedIndex index = change_index(
        copy,
        [&](Index *changed, bool) {
            check(zIndexRename(changed, old_path.c_str(), new_path.c_str()), from);
            keep_directories(copy, changed, {target});
        },
        [&] { // what the index doesn't say did not happen
            zWorkdirRename(zRepositoryWorkdir(copy.repository()), new_path.c_str(),
                           old_path.c_str(), false);
        });
    TableMover(copy, source, target).run(index.get());
    host.out.line(host.out.paint(Colour::cyan, "Renamed   ") + " " + typed_path(source) + " -> " +
                  typed_path(target));
    host.out.record(
        Record("action").set(u"action", "renamed").set(u"from", source).set(u"path", target));
    return kDone;
}

} // namespace

extern const Verb kMvVerb{"mv", Group::work, Nature::changes, bind<Options, declare, run>};

} // namespace host
