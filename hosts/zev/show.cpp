// Names and messages are others' words: they are cleaned before they reach the terminal.
#include "show.hpp"

#include "kinds.hpp"
#include "when.hpp"

namespace host {

namespace {

std::string indented(const std::string &text) {
    std::string out;
    for (size_t at = 0; at < text.size();) {
        size_t end = std::min(text.find('\n', at), text.size());
        out += "\n    " + text.substr(at, end - at);
        at = end + 1;
    }
    return out;
}

} // namespace

int64_t seconds_of(const Commit *commit) {
    Time time{};
    check(zCommitTime(&time, commit));
    return time.seconds;
}

std::string short_id(const Oid *id) { return hex(id).substr(0, 8); }

std::string first_line(const std::string &text) { return text.substr(0, text.find('\n')); }

void print_commit(Host &host, const Commit *commit) {
    std::string id = hex(zCommitId(commit)), time = iso_time(seconds_of(commit));
    std::string author = narrow(zCommitAuthor(commit)), message = narrow(zCommitMessage(commit));
    if (host.out.json()) {
        Record record("commit");
        record.set(u"id", id).set(u"tree", zCommitTreeId(commit)).set(u"author", author);
        record.set(u"time", time).set(u"seconds", seconds_of(commit)).set(u"message", message);
        if (const Oid *parent = zCommitParentId(commit)) record.set(u"parent", parent);
        return host.out.record(record);
    }
    host.out.line(host.out.paint(Colour::yellow, say("commit %s", id)));
    host.out.line(say("Author: %s", author));
    host.out.line(say("Date:   %s", time));
    host.out.text(indented(message) + "\n");
}

void print_change(Host &host, const DiffEntry *entry) {
    int32_t kind = zDiffEntryStatus(entry);
    if (host.out.json()) {
        Record record("change");
        record.set(u"status", kind_name(kind)).set(u"path", shown_path(zDiffEntryNewPath(entry)));
        if (kind == Z_KIND_RENAMED) record.set(u"from", shown_path(zDiffEntryOldPath(entry)));
        if (kind != Z_KIND_DELETED) record.set(u"id", zDiffEntryNewId(entry));
        if (kind != Z_KIND_ADDED) record.set(u"old", zDiffEntryOldId(entry));
        return host.out.record(record);
    }
    host.out.line(host.out.paint(kind_colour(kind), kind_column(kind)) +
                  (kind == Z_KIND_RENAMED ? typed_path(zDiffEntryOldPath(entry)) + " -> " : "") +
                  typed_path(zDiffEntryNewPath(entry)));
}

} // namespace host
