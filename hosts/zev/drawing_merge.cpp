// The work file is written before the index, so that a merge that is cut short between them leaves
// the conflict, and the result in the work file. Merging once more would take the objects that
// theirs got new handles for as missing, and add them again: a work file that is what the merge
// comes to, by the same rows, is taken for the result.
#include "drawing_merge.hpp"

#include "dxf/rows.hpp"
#include "merge_report.hpp"
#include "needed_rows.hpp"
#include "object_names.hpp"
#include "thumbnail.hpp"

#include <algorithm>
#include <unordered_map>

namespace host {

namespace fs = std::filesystem;

// ---- The versions of a conflict

namespace {

bool is_file(const IndexEntry *entry) {
    constexpr uint32_t kKind = 0170000, kRegular = 0100000;
    return entry && (zIndexEntryMode(entry) & kKind) == kRegular;
}

} // namespace

std::optional<ThreeWays> three_ways(const ConflictNode *node, std::string &why) {
    const std::string path = narrow(zConflictNodePath(node));
    if (!is_drawing_name(path)) return why = say("is no drawing"), std::nullopt;
    const bool single = kOurs.count(node) == 1 && kTheirs.count(node) == 1 &&
                        kOurs.path(node, 0) == path && kTheirs.path(node, 0) == path;
    if (!single) return why = say("one side has something else there"), std::nullopt;
    if (!kOurs.keeps(node, 0) || !kTheirs.keeps(node, 0))
        return why = say("one side has deleted it"), std::nullopt;
    const IndexEntry *base = zConflictNodeTheirAncestor(node, 0);
    const IndexEntry *ours = kOurs.entry(node, 0), *theirs = kTheirs.entry(node, 0);
    if (!base) return why = say("both sides began it, each its own"), std::nullopt;
    if (!is_file(base) || !is_file(ours) || !is_file(theirs))
        return why = say("it is no file on one of the sides"), std::nullopt;
    return ThreeWays{path, *zIndexEntryID(base), *zIndexEntryID(ours), *zIndexEntryID(theirs)};
}

// ---- Whether a version is what a merge comes to

namespace {

class Comparison {
  public:
    Comparison(const dxf::Manifest &version, const dxf::Merge &merge)
        : version_(version), merge_(merge) {
        for (const auto &[object, value] : merge.rows) values_.emplace(object, value);
    }

    // But for the summary, which follows from the others.
    bool is_same() {
        const dxf::KeyList &objects = version_.objects, &classes = version_.classes;
        if (objects.size() != merge_.objects.size() || classes.size() != merge_.classes.size())
            return false;
        bool same = agrees(version_.header, merge_.header);
        same = same && agrees(version_.layout, merge_.layout);
        same = same && dxf::merging::Besides(version_) == merge_.besides;
        for (size_t i = 0; same && i < classes.size(); ++i)
            same = agrees(classes[i], merge_.classes[i]);
        for (size_t i = 0; same && i < objects.size(); ++i)
            same = agrees(objects[i], merge_.objects[i]);
        return same;
    }

    // Any of the objects that neither side has under these numbers.
    bool has_added(const dxf::KeyList &ours, const dxf::KeyList &theirs) {
        std::map<uint64_t, bool> added; // and whether it is here
        for (const DrawingKey &key : merge_.objects)
            if (!key.tag) added.emplace(key.object, false);
        for (const dxf::KeyList *side : {&ours, &theirs})
            for (size_t i = 0; i < side->size(); ++i) added.erase(dxf::turned(side->object(i)));
        for (size_t i = 0; i < version_.objects.size(); ++i) {
            const auto found = added.find(dxf::turned(version_.objects.object(i)));
            if (found != added.end()) found->second = true, take(version_.objects[i]);
        }
        return std::ranges::any_of(added, [](auto &one) { return one.second; });
    }

    // The rows that take part in this, which have to be as the merge makes them.
    bool has_rows(Repository *repository, const std::string &name, const Notify *notify) {
        if (fresh_.empty()) return true;
        std::sort(fresh_.begin(), fresh_.end(), dxf::before);
        const OwnedTable table = dxf::open_table(repository, &version_.table, name);
        uint64_t same = 0;
        dxf::read_rows(table.get(), fresh_, notify, [&](size_t place, std::string_view row) {
            same += values_[fresh_[place].object] == row;
        });
        return same == fresh_.size();
    }

  private:
    void take(const dxf::RawKey &key) { fresh_.push_back(dxf::turned(key)); }
    bool agrees(const dxf::RawKey &found, const DrawingKey &key) {
        const DrawingKey turned = dxf::turned(found);
        if (turned.object != key.object) return false;
        if (key.tag || !key.object) return turned.tag == key.tag;
        return take(found), true;
    }

    const dxf::Manifest &version_;
    const dxf::Merge &merge_;
    std::unordered_map<uint64_t, std::string_view> values_;
    std::vector<DrawingKey> fresh_;
};

} // namespace

// ---- The merge of one drawing

DrawingMerge::DrawingMerge(const Host &host, const WorkingCopy &copy, const ThreeWays &ways,
                           const Decisions &decisions) try
    : host_(host), copy_(copy), ways_(ways), decisions_(decisions),
      base_(copy, ways.base, ways.path), theirs_(copy, ways.theirs, ways.path) {
    require_place();
    find_ours();
    if (!is_done_) result_ = bring(*ours_);
    require_met();
} catch (const fs::filesystem_error &error) {
    throw failed_at(error);
}

// Nothing is read or written by way of a link.
void DrawingMerge::require_place() const {
    for (size_t end = 0; end != std::string::npos;) {
        end = ways_.path.find('/', end + 1);
        const std::string above = ways_.path.substr(0, end);
        if (fs::is_symlink(fs::symlink_status(copy_.absolute(above))))
            throw Failed(kInvalid, say("%s is a symbolic link", above));
    }
}

// The work file; where it is gone, what the merge met. One that is neither may have been made by a
// merge that was cut short.
void DrawingMerge::find_ours() {
    const fs::path file = copy_.absolute(ways_.path);
    const auto stored = [&] {
        return std::make_unique<DrawingVersion>(copy_, ways_.ours, ways_.path);
    };
    if (!fs::exists(file)) {
        ours_ = stored();
        return;
    }
    if (!fs::is_regular_file(file)) throw Failed(kInvalid, "it is no file any more");
    check(zOidFromFile(&on_disk_.emplace(), file.u16string().c_str()), ways_.path);
    ours_ = std::make_unique<DrawingVersion>(host_, copy_, ways_.path, "");
    if (zOidIsEqual(&*on_disk_, &ways_.ours)) return;
    const auto met = stored();
    dxf::Merge merge = bring(*met);
    const bool is_whole = merge.conflicts.empty();
    if (!is_whole) { // it may have been decided before: new handles don't depend on that
        dxf::MergeRequest all = request_for(*met);
        all.others = dxf::Side::theirs;
        merge = dxf::merge_drawings(all);
        if (!merge.conflicts.empty()) return;
    }
    Comparison same(ours_->manifest, merge), added(ours_->manifest, merge);
    Repository *repository = copy_.repository();
    is_done_ = is_whole && same.is_same() && same.has_rows(repository, ways_.path, host_.notify);
    if (is_done_)
        result_ = counts_of(merge); // the rest lends from what the merge met
    else if (added.has_added(met->manifest.objects, theirs_.manifest.objects) &&
             added.has_rows(repository, ways_.path, host_.notify))
        throw Failed(kOther,
                     "it was merged by a command that was cut short, and has changed since; "
                     "\"zev resolve --mine\" keeps it as it is");
}

dxf::MergeRequest DrawingMerge::request_for(const DrawingVersion &ours) const {
    dxf::MergeRequest request{.repository = copy_.repository(),
                              .base = &base_.manifest,
                              .ours = &ours.manifest,
                              .theirs = &theirs_.manifest,
                              .name = ways_.path,
                              .notify = host_.notify,
                              .decided = met_.objects};
    request.header = met_.header, request.classes = met_.classes, request.layout = met_.layout;
    request.others = met_.rest;
    if (!origin_of(copy_).empty())
        request.fetch_rows = [this](const Oid &table, const std::vector<DrawingKey> &keys) {
            fetch_rows(host_, copy_, table, keys, ways_.path);
        };
    return request;
}

// What is decided may bring up more that is to be.
dxf::Merge DrawingMerge::bring(const DrawingVersion &ours) {
    const Oid *table = &ours.manifest.table;
    if (!zOidIsEqual(table, &base_.manifest.table) || !zOidIsEqual(table, &theirs_.manifest.table))
        throw Failed(kOther, "its versions are kept in different tables");
    met_ = {};
    dxf::Merge merge = dxf::merge_drawings(request_for(ours));
    while (take_up(merge.conflicts)) {
        stop_on_break(host_.notify);
        merge = dxf::merge_drawings(request_for(ours));
    }
    return merge;
}

namespace {

using Part = std::optional<dxf::Side> Decisions::*;

constexpr struct {
    dxf::MergeConflict::What what;
    Part part;
    const char *text;
} kParts[] = {{dxf::MergeConflict::variable, &Decisions::header, "the header"},
              {dxf::MergeConflict::classes, &Decisions::classes, "the classes"},
              {dxf::MergeConflict::layout, &Decisions::layout, "the layout"}};

} // namespace

// True if there is a decision that wasn't asked for before.
bool DrawingMerge::take_up(const std::vector<dxf::MergeConflict> &conflicts) {
    bool any = false;
    for (const dxf::MergeConflict &conflict : conflicts) {
        if (conflict.what == dxf::MergeConflict::object) {
            const auto named = decisions_.objects.find(conflict.number);
            any |= named != decisions_.objects.end() && met_.objects.insert(*named).second;
            continue;
        }
        for (const auto &[what, part, text] : kParts) {
            if (what != conflict.what || met_.*part) continue;
            met_.*part = decisions_.*part;
            any |= (met_.*part).has_value();
        }
    }
    if (any || conflicts.empty() || met_.rest) return any;
    met_.rest = decisions_.rest;
    return met_.rest.has_value();
}

void DrawingMerge::require_met() const {
    const auto fail = [&](const std::string &what) {
        throw Failed(kNotFound, say("%s: %s is in no conflict", ways_.path, what));
    };
    for (const auto &[number, side] : decisions_.objects)
        if (!met_.objects.contains(number)) fail(object_name(number));
    for (const auto &[what, part, text] : kParts)
        if (decisions_.*part && !(met_.*part)) fail(say(text));
}

namespace {

// A setting that makes no sense is an import's to tell; the merge needs no picture.
bool may_have_thumbnail(const WorkingCopy &copy) try {
    return wants_thumbnails(copy);
} catch (const Failed &) {
    return false;
}

} // namespace

// Another program may have written it since it was read.
void DrawingMerge::keep_former() const {
    if (!on_disk_) return;
    Oid now{};
    check(zOidFromFile(&now, copy_.absolute(ways_.path).u16string().c_str()), ways_.path);
    if (!zOidIsEqual(&now, &*on_disk_))
        throw Failed(kOther, "it has changed meanwhile; merge again");
    check(zTrashKeep(copy_.repository(), wide(ways_.path).c_str()), ways_.path);
}

bool DrawingMerge::write() try {
    if (is_done_ || result_.is_ours) return false;
    const fs::path file = copy_.absolute(ways_.path);
    if (on_disk_) { // or it is in use, or may not be changed
        const Owned<Share, zShareClose> own(
            check(zShareOpen(file.u16string().c_str(), u"r+b", Z_SHARE_NONE), ways_.path));
    } else {
        fs::create_directories(file.parent_path());
    }
    dxf::MergeTarget target{
        .drawing = file.u16string(), .path = ways_.path, .keep_former = [this] { keep_former(); }};
    if (!origin_of(copy_).empty())
        target.ask_tag = [this](Table *table) { return ask_tag(host_, copy_, table, ways_.path); };
    if (may_have_thumbnail(copy_))
        target.thumbnail = [](const dxf::Content &content) { return thumbnail_of(content); };
    dxf::write_merge(request_for(*ours_), result_, target);
    return true;
} catch (const fs::filesystem_error &error) {
    throw failed_at(error);
}

// ---- The index

std::set<std::string> settle(Index *index, const std::set<std::string> &paths) {
    std::set<std::string> settled;
    if (paths.empty()) return settled;
    const Nodes nodes = look(index);
    for (ConflictNode *node : nodes.all())
        check(zConflictNodeSetSolution(node, paths.contains(narrow(zConflictNodePath(node)))
                                                 ? uint32_t{Z_CONFLICT_USE_OURS}
                                                 : uint32_t{Z_CONFLICT_UNDECIDED}));
    check(zConflictResolve(index, nodes.analysis()));
    for (ConflictNode *node : nodes.all())
        if (zConflictNodeIsResolved(node)) settled.insert(narrow(zConflictNodePath(node)));
    return settled;
}

namespace {

// What it came to, without what it is made of; nothing where it is left, which is told.
std::optional<dxf::Merge> merge_one(Host &host, const WorkingCopy &copy, const ThreeWays &ways,
                                    bool &is_cut_short) try {
    DrawingMerge merge(host, copy, ways);
    if (merge.is_whole()) return merge.write(), counts_of(merge.result());
    host.notify->drop_drawing(ways.path);
    tell_unmerged(host, ways.path, merge.result(), false, true);
    return {};
} catch (const Failed &failed) {
    is_cut_short = failed.error_class == kCanceled;
    if (is_cut_short) return {};
    host.notify->drop_drawing(ways.path);
    tell_refused(host, ways.path, failed.what(), false, true);
    return {};
}

} // namespace

// A break ends it with the drawing that is under way; those before it are settled.
void merge_by_itself(Host &host, const WorkingCopy &copy, Index *index, PathSpec *paths) {
    std::map<std::string, dxf::Merge> merged;
    std::set<std::string> done;
    std::string ignored;
    bool is_cut_short = false;
    const Nodes nodes = look(index);
    for (const ConflictNode *node : nodes.all()) {
        if (broken() || is_cut_short) break;
        const auto ways = three_ways(node, ignored);
        if (!ways || (paths && !zPathSpecMatched(paths, wide(ways->path).c_str()))) continue;
        if (auto merge = merge_one(host, copy, *ways, is_cut_short)) {
            done.insert(ways->path);
            merged.emplace(ways->path, std::move(*merge));
        }
    }
    for (const std::string &path : settle(index, done)) {
        host.notify->drop_drawing(path);
        tell_merged(host, path, merged[path], false);
    }
    host.notify->let_drawings_go();
    stop_on_break(host.notify);
    if (is_cut_short) throw Failed(kCanceled, "cancelled");
}

} // namespace host
