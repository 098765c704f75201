// Names, layers and values are others' words.
#include "merge_report.hpp"

#include "dxf/reader.hpp"
#include "field_changes.hpp"
#include "object_names.hpp"

#include <algorithm>

namespace host {

namespace {

using dxf::MergeConflict;

uint64_t objects_in(const dxf::Merge &merge) {
    const auto is_object = [](const MergeConflict &one) {
        return one.what == MergeConflict::object;
    };
    return static_cast<uint64_t>(std::ranges::count_if(merge.conflicts, is_object));
}

uint64_t changes_in(const dxf::Merge &merge) {
    return merge.added + merge.modified + merge.removed;
}

Record merge_record(const std::string &path, const char *result, const dxf::Merge &merge,
                    bool is_dry) {
    Record record("meeting");
    record.set(u"path", path).set(u"result", result);
    record.set(u"added", merge.added).set(u"modified", merge.modified);
    record.set(u"removed", merge.removed).set(u"renumbered", merge.renumbered);
    record.set(u"conflicts", uint64_t{merge.conflicts.size()});
    return std::move(record.set(u"dry_run", is_dry));
}

} // namespace

dxf::Merge counts_of(const dxf::Merge &merge) {
    dxf::Merge counts;
    counts.added = merge.added, counts.modified = merge.modified, counts.removed = merge.removed;
    counts.renumbered = merge.renumbered;
    counts.is_ours = merge.is_ours, counts.is_theirs = merge.is_theirs;
    return counts;
}

// ---- In a line

std::string merged_text(const dxf::Merge &merge) {
    const struct {
        uint64_t count;
        const char *first, *next;
    } kinds[] = {{merge.added, "%s of theirs added", "%s added"},
                 {merge.modified, "%s of theirs modified", "%s modified"},
                 {merge.removed, "%s of theirs removed", "%s removed"}};
    std::string text;
    for (const auto &[count, first, next] : kinds)
        if (count)
            text += text.empty() ? say(first, count_of(count, "object"))
                                 : ", " + say(next, grouped(count));
    if (text.empty()) text = say("no object of theirs is new");
    if (merge.renumbered) text += "; " + say("%s under new handles", grouped(merge.renumbered));
    return text;
}

std::string conflicts_text(const dxf::Merge &merge) {
    std::vector<std::string> parts;
    if (const uint64_t objects = objects_in(merge)) parts.push_back(count_of(objects, "object"));
    const auto has = [&](MergeConflict::What what) {
        return std::ranges::any_of(merge.conflicts,
                                   [what](auto &conflict) { return conflict.what == what; });
    };
    if (has(MergeConflict::variable)) parts.push_back(say("the header"));
    if (has(MergeConflict::classes)) parts.push_back(say("the classes"));
    if (has(MergeConflict::layout)) parts.push_back(say("the layout"));
    std::string list = parts.empty() ? "" : parts.front();
    for (size_t i = 1; i < parts.size(); ++i)
        list = i + 1 < parts.size() ? list + ", " + parts[i] : say("%s and %s", list, parts[i]);
    const std::string what = say("%s in conflict", list);
    const uint64_t others = changes_in(merge);
    if (!others) return what;
    return what + "; " +
           say(others == 1 ? "%s other comes together" : "%s others come together",
               grouped(others));
}

void tell_merged(Host &host, const std::string &path, const dxf::Merge &merge, bool is_dry) {
    host.out.line(host.out.paint(Colour::green, action_column(say("Merged"))) + typed_path(path) +
                  ": " + merged_text(merge));
    host.out.record(merge_record(path, "merged", merge, is_dry));
}

void tell_unmerged(Host &host, const std::string &path, const dxf::Merge &merge, bool is_dry,
                   bool is_first) {
    host.out.line((is_first ? conflict_column(host.out) : "") + typed_path(path) + ": " +
                  conflicts_text(merge));
    host.out.record(merge_record(path, "conflicts", merge, is_dry));
}

namespace {

// Behind whatever begins the line; the path may stand in front of the reason, too.
void refuse(Host &host, const std::string &begin, const std::string &path,
            const std::string &reason, bool is_dry) {
    const std::string again = path + ": ";
    const std::string why = reason.starts_with(again) ? reason.substr(again.size()) : reason;
    host.out.line(begin + say("can't be brought together: %s", why));
    host.out.record(Record("meeting")
                        .set(u"path", path)
                        .set(u"result", "refused")
                        .set(u"reason", why)
                        .set(u"dry_run", is_dry));
}

} // namespace

void tell_refused(Host &host, const std::string &path, const std::string &reason, bool is_dry,
                  bool is_first) {
    const std::string begin = is_first ? conflict_column(host.out) : "";
    refuse(host, begin + typed_path(path) + ": ", path, reason, is_dry);
}

void tell_no_outlook(Host &host, const std::string &path, const std::string &reason) {
    refuse(host, "  ", path, reason, true);
}

void tell_outlook(Host &host, const std::string &path, const dxf::Merge &merge) {
    const bool is_whole = merge.conflicts.empty();
    if (is_whole)
        host.out.line("  " +
                      say("comes together by \"zev resolve --merge\": %s", merged_text(merge)));
    else
        host.out.line("  " + conflicts_text(merge));
    host.out.record(merge_record(path, is_whole ? "merged" : "conflicts", merge, true));
}

// ---- What is in conflict

namespace {

using Row = std::optional<std::string>;

// What a side did.
const char *change_of(const Row &base, const Row &side) {
    if (!base) return side ? "added" : "unchanged";
    if (!side) return "removed";
    return *base == *side ? "unchanged" : "modified";
}

std::vector<dxf::FieldChange> fields_of(const Row &base, const Row &side) {
    const auto text = [](const Row &row) { return row ? std::string_view(*row) : ""; };
    return side ? dxf::compare_fields(text(base), text(side)) : std::vector<dxf::FieldChange>();
}

class ConflictView {
  public:
    ConflictView(Host &host, const std::string &path, const MergeConflict &conflict)
        : host_(host), path_(path), conflict_(conflict) {}

    void record() const {
        constexpr const char *kWhat[] = {"object", "variable", "classes", "layout"};
        Record record("clash");
        record.set(u"path", path_).set(u"what", kWhat[conflict_.what]);
        if (is_object()) {
            record.set(u"handle", object_name(conflict_.number));
            record.set(u"kind", conflict_.kind).set(u"layer", conflict_.layer);
        } else if (!conflict_.name.empty()) {
            record.set(u"name", conflict_.name);
        }
        record.set(u"reason", conflict_.reason);
        record.set(u"ours", change_of(conflict_.base, conflict_.ours));
        record.set(u"theirs", change_of(conflict_.base, conflict_.theirs));
        if (is_object() || conflict_.what == MergeConflict::variable) {
            record.set(u"our_fields", field_records(conflict_.kind, fields(conflict_.ours)));
            record.set(u"their_fields", field_records(conflict_.kind, fields(conflict_.theirs)));
        }
        host_.out.record(record);
    }

    void print(bool with_fields) const {
        host_.out.line(host_.out.paint(Colour::red, padded(say("conflict"), 10)) + name() + ": " +
                       conflict_.reason);
        if (!with_fields || conflict_.what > MergeConflict::variable) return;
        print_side("ours", conflict_.ours);
        print_side("theirs", conflict_.theirs);
    }

  private:
    bool is_object() const { return conflict_.what == MergeConflict::object; }
    std::vector<dxf::FieldChange> fields(const Row &side) const {
        return fields_of(conflict_.base, side);
    }

    std::string name() const {
        if (conflict_.what == MergeConflict::classes) return say("the classes");
        if (conflict_.what == MergeConflict::layout) return say("the layout");
        if (!is_object()) return clean(conflict_.name);
        const std::string name = padded(object_name(conflict_.number), 10) + clean(conflict_.kind);
        return conflict_.layer.empty() ? name
                                       : name + " " + say("on layer %s", clean(conflict_.layer));
    }

    void print_side(const char *side, const Row &row) const {
        host_.out.line("  " + padded(say(side), 8) + say(change_of(conflict_.base, row)));
        for (const dxf::FieldChange &field : fields(row))
            host_.out.line(
                field_line(host_.out, conflict_.kind, field, conflict_.base.has_value(), true));
    }

    Host &host_;
    const std::string &path_;
    const MergeConflict &conflict_;
};

} // namespace

void print_conflicts(Host &host, const std::string &path, const dxf::Merge &merge,
                     bool with_fields) {
    for (const MergeConflict &conflict : merge.conflicts) {
        stop_on_break(host.notify);
        const ConflictView view(host, path, conflict);
        if (host.out.json())
            view.record();
        else
            view.print(with_fields);
    }
}

} // namespace host
