// diff: which objects of a drawing are not the same in two versions of it, and what in them; of
// other files, which lines.

#include "diff_picture.hpp"
#include "drawing_version.hpp"
#include "dxf/check.hpp"
#include "dxf/reader.hpp"
#include "dxf/rows.hpp"
#include "field_changes.hpp"
#include "file_diff.hpp"
#include "needed_rows.hpp"
#include "object_names.hpp"
#include "verb.hpp"

#include <algorithm>
#include <array>
#include <map>

namespace host {

namespace {

struct Options {
    std::string file;     // a drawing or another one; empty: all that were changed
    std::string from, to; // revisions; empty: HEAD, the work directory
    bool stat = false;    // totals in place of the objects
    bool brief = false;   // objects without their fields
    bool full = false;    // the fields of added and removed objects, too
    std::string picture;  // the file of a picture in place of all text; empty for none
    bool is_dark = false; // the picture's ground
    bool is_paper = false;
    uint64_t size = 0;  // of a PNG file in pixels; 0 for the usual one
    bool force = false; // what its file displaces goes to the trash without a question
};

void declare(Command &verb, Options &options) {
    verb.description("Show which objects of a drawing changed, and lines of other files");
    verb.footer("Without a file all are shown that were changed since HEAD.\n"
                "Without a revision the work file is compared with HEAD, with one\n"
                "with that, with two the first with the second. A modified object\n"
                "shows the fields that changed, by group code, old and new. A version\n"
                "that hasn't got the drawing is as an empty one.\n"
                "--svg draws the changes of one drawing: what stayed in grey, old lines with\n"
                "gaps, new ones heavy, what was moved with an arrow; each place with changes is\n"
                "numbered, and shown enlarged below. Paper space is drawn where the model\n"
                "shows no change, and with --paper.\n"
                "Examples:\n  zev diff\n  zev diff plan.dwx\n  zev diff plan.dwx HEAD~1 HEAD\n"
                "  zev diff plan.dwx --stat\n  zev diff plan.dwx --svg changes.svg\n"
                "  zev diff notes.txt");
    verb.add_option("file", options.file, "A .dwx file, or another one");
    verb.add_option("from", options.from, "Older version")->type_name("REV");
    verb.add_option("to", options.to, "Newer version")->type_name("REV");
    const Argument full =
        verb.add_flag("--full", options.full, "All fields of added and removed objects, too");
    const Argument brief =
        verb.add_flag("--brief,--no-fields", options.brief, "Only which objects, not what in them");
    const Argument stat =
        verb.add_flag("--stat", options.stat, "Totals by kind and by layer in place of objects");
    stat->excludes(full)->excludes(brief);
    full->excludes(brief);
    const Argument svg =
        verb.add_option("--svg", options.picture,
                        "The changes of a drawing as a picture; also .png, .pdf; - is stdout");
    svg->type_name("FILE")->excludes(stat)->excludes(brief)->excludes(full);
    verb.add_flag("--dark", options.is_dark, "The picture on a dark ground")->needs(svg);
    verb.add_flag("--paper", options.is_paper, "The paper space in place of the model")->needs(svg);
    verb.add_option("--size", options.size, "Pixels of a PNG file's longer side, else 2000")
        ->type_name("N")
        ->needs(svg);
    verb.add_flag("--force", options.force,
                  "A file of that name goes to the trash, without a question")
        ->needs(svg);
}

using dxf::ObjectChange;

constexpr struct {
    const char *name;
    Colour colour;
} kChanges[] = {{"added", Colour::green}, {"modified", Colour::yellow}, {"removed", Colour::red}};

class Difference {
  public:
    Difference(Host &host, const WorkingCopy &copy, const Options &options, const std::string &path)
        : host_(host), copy_(copy), options_(options), path_(path),
          versions_(host, copy, path, options.from, options.to) {
        for (const ObjectChange &change :
             dxf::compare_objects(versions_.from().objects, versions_.to().objects)) {
            changes_.push_back({change, {}, {}, {}, {}});
            ++totals_[change.kind];
        }
        read_rows();
        std::erase_if(changes_, [this](const Change &change) {
            const bool end = change.kind == "ENDTAB"; // no object, but what ends a table
            totals_[change.object.kind] -= end;
            return end;
        });
    }

    using Counts = std::array<uint64_t, 3>; // by kind of change

    const Counts &totals() const { return totals_; }

    void print() const {
        if (options_.stat) {
            print_totals("kind", &Change::kind);
            print_totals("layer", &Change::layer);
        } else {
            for (const Change &change : changes_) {
                stop_on_break(host_.notify);
                print(change);
            }
        }
        print_blocks();
    }

  private:
    struct Change {
        ObjectChange object;
        std::string kind, layer;                // of the newer side that has the object
        std::optional<std::string> before, now; // rows, as far as they are to be shown
    };

    bool wants_rows(const ObjectChange &change) const {
        if (options_.stat || options_.brief) return false;
        return options_.full || change.kind == ObjectChange::modified;
    }

    // A row to look at, for an object or, without one, for its share of the digest.
    struct Side {
        dxf::OtherKey key;
        Change *change;
    };

    // Both sides of all changes in one walk over the table.
    void read_rows() {
        std::vector<Side> sides;
        for (Change &change : changes_) {
            const ObjectChange &object = change.object;
            if (object.kind != ObjectChange::removed) sides.push_back({{object.to, true}, &change});
            if (object.kind != ObjectChange::added)
                sides.push_back({{object.from, false}, &change});
        }
        for (const dxf::OtherKey &key : dxf::other_blocks(versions_.from(), versions_.to()))
            sides.push_back({key, nullptr});
        if (sides.empty()) return;
        std::sort(sides.begin(), sides.end(),
                  [](const Side &a, const Side &b) { return dxf::before(a.key.key, b.key.key); });
        std::vector<DrawingKey> keys;
        for (const Side &side : sides) keys.push_back(side.key.key);
        fetch_rows(host_, copy_, versions_.table(), keys, path_);
        dxf::DigestCheck check(versions_.from(), versions_.to());
        OwnedTable table = dxf::look_at_table(copy_.repository(), &versions_.table(), path_);
        const uint64_t found = dxf::read_rows(table.get(), keys, host_.notify,
                                              [&](size_t place, std::string_view row) {
                                                  const auto &[key, change] = sides[place];
                                                  if (change) take(*change, key.is_newer, row);
                                                  check.take(key, row);
                                              });
        if (found == keys.size() && check.is_mixed()) dxf::fail_mixed(path_);
    }

    void take(Change &change, bool now, std::string_view row) const {
        if (now || change.object.kind == ObjectChange::removed) {
            change.kind = dxf::record_type(row);
            change.layer = dxf::record_layer(row);
        }
        if (wants_rows(change.object)) (now ? change.now : change.before) = row;
    }

    // ---- One object

    // They lend from the change. Without the row of a side that has the object there are none.
    static std::vector<dxf::FieldChange> fields_of(const Change &change) {
        const ObjectChange::Kind kind = change.object.kind;
        if ((kind != ObjectChange::added && !change.before) ||
            (kind != ObjectChange::removed && !change.now))
            return {};
        const auto row = [](const std::optional<std::string> &side) {
            return side ? std::string_view(*side) : std::string_view();
        };
        return dxf::compare_fields(row(change.before), row(change.now));
    }

    void print(const Change &change) const {
        const auto &how = kChanges[change.object.kind];
        const std::string handle = object_name(change.object.number);
        const bool with_fields = wants_rows(change.object);
        const auto fields = with_fields ? fields_of(change) : std::vector<dxf::FieldChange>();
        if (host_.out.json()) {
            Record record("object");
            record.set(u"change", how.name).set(u"handle", handle);
            record.set(u"kind", change.kind).set(u"layer", change.layer);
            if (with_fields) record.set(u"fields", field_records(change.kind, fields));
            return host_.out.record(record);
        }
        host_.out.line(host_.out.paint(how.colour, padded(say(how.name), 10)) + padded(handle, 10) +
                       change.kind);
        const bool had = change.object.kind != ObjectChange::added;
        const bool has = change.object.kind != ObjectChange::removed;
        for (const dxf::FieldChange &field : fields)
            host_.out.line(field_line(host_.out, change.kind, field, had, has));
    }

    // ---- Totals

    void print_totals(const char *by, std::string Change::*name) const {
        std::map<std::string, Counts> rows;
        for (const Change &change : changes_) ++rows[change.*name][change.object.kind];
        if (rows.empty()) return;
        host_.out.line(
            host_.out.paint(Colour::bold, padded(say(by), 24) + say("   added modified  removed")));
        for (const auto &[what, counts] : rows) {
            std::string line = padded(clean(what.empty() ? say("(none)") : what), 24);
            for (const uint64_t count : counts) {
                const std::string number = std::to_string(count);
                line += std::string(number.size() < 8 ? 8 - number.size() : 0, ' ') + number + " ";
            }
            line.pop_back();
            host_.out.line(line);
            host_.out.record(Record("total")
                                 .set(u"by", by)
                                 .set(u"name", what)
                                 .set(u"added", counts[ObjectChange::added])
                                 .set(u"modified", counts[ObjectChange::modified])
                                 .set(u"removed", counts[ObjectChange::removed]));
        }
        host_.out.line("");
    }

    // ---- What is no object

    // Of a drawing that is new, or gone, they go without saying.
    void print_blocks() const {
        if (!versions_.has_both()) return;
        const dxf::Manifest &from = versions_.from(), &to = versions_.to();
        print_block("header", "the header", from.header == to.header);
        bool same = from.classes.size() == to.classes.size();
        for (size_t i = 0; same && i < to.classes.size(); ++i)
            same = from.classes[i] == to.classes[i];
        print_block("classes", "the classes", same);
        print_block("layout", "the layout", from.layout == to.layout);
    }

    void print_block(const char *name, const char *text, bool same) const {
        if (same) return;
        host_.out.line(host_.out.paint(Colour::yellow, padded(say("modified"), 10)) + say(text));
        host_.out.record(Record("block").set(u"change", "modified").set(u"block", name));
    }

    Host &host_;
    const WorkingCopy &copy_;
    const Options &options_;
    const std::string path_;
    const DrawingVersions versions_;
    std::vector<Change> changes_;
    Counts totals_{};
};

Record &set_counts(Record &record, const Difference::Counts &counts) {
    return record.set(u"added", counts[ObjectChange::added])
        .set(u"modified", counts[ObjectChange::modified])
        .set(u"removed", counts[ObjectChange::removed]);
}

// Of all files that were looked at.
struct Totals {
    Difference::Counts objects{};
    std::optional<LineCounts> lines; // of files that are no drawings, if there were any
    bool has_drawings = false;

    void add(const Difference::Counts &more) {
        has_drawings = true;
        for (size_t i = 0; i < objects.size(); ++i) objects[i] += more[i];
    }
    void add(const LineCounts &more) {
        if (!lines) lines.emplace();
        lines->added += more.added;
        lines->removed += more.removed;
    }
};

std::string counted_lines(const LineCounts &lines) {
    return say("%s added, %s removed", plural(lines.added, "line"), lines.removed);
}

void print_summary(Host &host, const Totals &totals) {
    const Difference::Counts &counts = totals.objects;
    std::string text;
    if (totals.has_drawings || !totals.lines)
        text = say("%s added, %s modified, %s removed", counts[ObjectChange::added],
                   counts[ObjectChange::modified], counts[ObjectChange::removed]);
    Record record("summary");
    set_counts(record, counts);
    if (totals.lines) {
        text += (text.empty() ? "" : "; ") + counted_lines(*totals.lines);
        record.set(u"lines_added", totals.lines->added);
        record.set(u"lines_removed", totals.lines->removed);
    }
    host.out.line(text);
    host.out.record(record);
}

// The files that are in HEAD and whose work file is another one.
Paths changed_files(const WorkingCopy &copy) {
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    const OwnedStatus list(check(zStatusListBuild(index.get(), nullptr)));
    Paths paths;
    for (uint64_t i = 0; i < zStatusListLength(list.get()); ++i) {
        const StatusEntry *entry = zStatusListEntry(list.get(), i);
        if (zStatusEntryStatus(entry) == Z_KIND_MODIFIED)
            paths.push_back(narrow(zStatusEntryPath(entry)));
    }
    return paths;
}

LineCounts diff_text(const Host &host, const WorkingCopy &copy, const Options &options,
                     const std::string &path) {
    return diff_file(host, copy,
                     {path, options.from.empty() ? "HEAD" : options.from, options.to,
                      options.stat || options.brief});
}

// A work file that is no drawing any more is told, and the others are shown.
Totals diff_all(Host &host, const WorkingCopy &copy, const Options &options) {
    Totals totals;
    for (const std::string &path : changed_files(copy)) try {
            if (!is_drawing_name(path)) {
                host.out.line(host.out.paint(Colour::bold, typed_path(path)));
                totals.add(diff_text(host, copy, options, path));
                continue;
            }
            const Difference difference(host, copy, options, path);
            host.out.line(host.out.paint(Colour::bold, typed_path(path)));
            Record record("drawing");
            record.set(u"path", path);
            host.out.record(set_counts(record, difference.totals()));
            difference.print();
            totals.add(difference.totals());
        } catch (const Failed &failed) {
            if (failed.error_class == kCanceled) throw;
            host.out.warn(failed.what());
        }
    return totals;
}

int draw(Host &host, const WorkingCopy &copy, const Options &options) {
    if (options.file.empty()) throw Failed(kInvalid, "--svg draws one drawing; name it");
    const std::string path = copy.relative(options.file);
    if (!is_drawing_name(path)) throw Failed(kInvalid, say("%s: is no drawing", options.file));
    draw_diff(host, copy,
              {.path = path,
               .from = options.from,
               .to = options.to,
               .file = options.picture,
               .size = options.size,
               .is_dark = options.is_dark,
               .is_paper = options.is_paper,
               .is_forced = options.force});
    return kDone;
}

// A question about the picture's file is asked on the terminal itself: no pager may hold it.
int run(Host &host, const Options &options) {
    if (options.picture.empty()) host.out.page();
    WorkingCopy copy;
    if (!options.picture.empty()) return draw(host, copy, options);
    if (options.file.empty()) return print_summary(host, diff_all(host, copy, options)), kDone;
    const std::string path = copy.relative(options.file);
    Totals totals;
    if (is_drawing_name(path)) {
        const Difference difference(host, copy, options, path);
        difference.print();
        totals.add(difference.totals());
    } else {
        totals.add(diff_text(host, copy, options, path));
    }
    print_summary(host, totals);
    return kDone;
}

} // namespace

extern const Verb kDiffVerb{"diff", Group::drawings, Nature::plain, bind<Options, declare, run>};

} // namespace host
