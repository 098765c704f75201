// show: a commit, and what it changed.

#include "show.hpp"
#include "dxf/history.hpp"
#include "server_history.hpp"

namespace host {

namespace {

struct Options {
    std::string revision; // empty: the newest
    bool stat = false;
};

void declare(Command &verb, Options &options) {
    verb.description("Show a commit and the paths that it changed");
    verb.footer("Examples:\n  zev show\n  zev show 1a2b3c4d --stat");
    verb.add_option("revision", options.revision, "A commit; else the last")->type_name("REV");
    verb.add_flag("--stat", options.stat, "Count the objects that it changed in each drawing");
}

// How many objects of each drawing that a commit changed are not as before.
class ObjectCounts {
  public:
    explicit ObjectCounts(const WorkingCopy &copy) : odb_(check(zOdbOpen(copy.repository()))) {}

    void print(Host &host, const DiffEntry *entry) {
        const std::string path = narrow(zDiffEntryNewPath(entry));
        if (zDiffEntryStatus(entry) != Z_KIND_MODIFIED || !is_drawing_name(path)) return;
        if (!zOdbExists(odb_.get(), zDiffEntryOldId(entry)) ||
            !zOdbExists(odb_.get(), zDiffEntryNewId(entry)))
            return; // of another's commit over a server
        from_.load(odb_.get(), {{}, path, *zDiffEntryOldId(entry)});
        to_.load(odb_.get(), {{}, path, *zDiffEntryNewId(entry)});
        if (!from_.manifest || !to_.manifest ||
            !zOidIsEqual(&from_.manifest->table, &to_.manifest->table))
            return;
        uint64_t counts[3] = {};
        for (const auto &change : compare_objects(from_.manifest->objects, to_.manifest->objects))
            ++counts[change.kind];
        host.out.line(padded("", 12) + say("%s objects added, %s modified, %s removed", counts[0],
                                           counts[1], counts[2]));
        host.out.record(Record("drawing")
                            .set(u"path", path)
                            .set(u"added", counts[0])
                            .set(u"modified", counts[1])
                            .set(u"removed", counts[2]));
    }

  private:
    OwnedOdb odb_;
    dxf::VersionFile from_, to_;
};

// By the record where the trees may not be here.
OwnedDiff changes_of(const WorkingCopy &copy, Commit *commit) {
    if (!origin_of(copy).empty()) {
        const Owned<Revdb, zRevdbFree> db(check(zRevdbOpen(copy.repository())));
        if (OwnedDiff recorded(zRevdbChanges(db.get(), zCommitId(commit))); recorded)
            return recorded;
    }
    return OwnedDiff(check(zCommitChanges(commit, nullptr, nullptr)));
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    bring_history(host, copy);
    OwnedCommit commit =
        options.revision.empty() ? newest_commit(copy) : copy.commit(options.revision);
    print_commit(host, commit.get());
    const OwnedDiff changes = changes_of(copy, commit.get());
    ObjectCounts counts(copy);
    for (uint64_t i = 0; i < zDiffListLength(changes.get()); ++i) {
        stop_on_break(host.notify);
        const DiffEntry *entry = zDiffListEntry(changes.get(), i);
        print_change(host, entry);
        if (options.stat) counts.print(host, entry);
    }
    return kDone;
}

} // namespace

extern const Verb kShowVerb{"show", Group::history, Nature::paged, bind<Options, declare, run>};

} // namespace host
