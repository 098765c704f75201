// show, cat: what was committed.

#include "bytes.hpp"
#include "dxf/history.hpp"
#include "history.hpp"
#include "when.hpp"

namespace host {

namespace {

constexpr struct {
    const char *name;
    Colour colour;
} kKinds[] = {
    {"unchanged", Colour::plain}, {"added", Colour::green},    {"deleted", Colour::red},
    {"modified", Colour::yellow}, {"renamed", Colour::cyan},   {"copied", Colour::cyan},
    {"ignored", Colour::dim},     {"untracked", Colour::dim},  {"typechange", Colour::yellow},
    {"unreadable", Colour::red},  {"conflicted", Colour::red}, {"missing", Colour::red},
};

std::string indented(const std::string &text) {
    std::string out;
    for (size_t at = 0; at < text.size();) {
        size_t end = std::min(text.find('\n', at), text.size());
        out += "\n    " + text.substr(at, end - at);
        at = end + 1;
    }
    return out;
}

std::string base64(const std::string &data) {
    static constexpr char digits[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (size_t i = 0; i < data.size(); i += 3) {
        uint32_t bits = 0;
        for (size_t j = i; j < i + 3; ++j)
            bits = bits << 8 | (j < data.size() ? static_cast<uint8_t>(data[j]) : 0);
        for (int shift = 18; shift >= 0; shift -= 6) out += digits[bits >> shift & 63];
    }
    size_t missing = (3 - data.size() % 3) % 3;
    return out.replace(out.size() - missing, missing, missing, '=');
}

// Text that comes back from JSON as it was: UTF-8, nothing that cleaning would change.
bool is_plain_text(const std::string &data) {
    return data.find('\0') == std::string::npos && clean(data) == data &&
           narrow(wide(data).c_str()) == data;
}

// How many objects of each drawing that a commit changed are not as before.
class ObjectCounts {
  public:
    explicit ObjectCounts(const WorkingCopy &copy) : odb_(check(zOdbOpen(copy.repository()))) {}

    void print(Host &host, const DiffEntry *entry) {
        const std::string path = narrow(zDiffEntryNewPath(entry));
        if (zDiffEntryStatus(entry) != Z_KIND_MODIFIED || !is_drawing_name(path)) return;
        from_.load(odb_.get(), {{}, path, *zDiffEntryOldId(entry)});
        to_.load(odb_.get(), {{}, path, *zDiffEntryNewId(entry)});
        if (!from_.manifest || !to_.manifest ||
            !zOidIsEqual(&from_.manifest->table, &to_.manifest->table))
            return;
        uint64_t counts[3] = {};
        for (const auto &change : compare_objects(from_.manifest->objects, to_.manifest->objects))
            ++counts[change.kind];
        host.out.line(padded("", 12) + std::to_string(counts[0]) + " objects added, " +
                      std::to_string(counts[1]) + " modified, " + std::to_string(counts[2]) +
                      " removed");
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

} // namespace

const char *kind_name(int32_t kind) {
    return kind >= 0 && kind < 12 ? kKinds[kind].name : "unknown";
}

Colour kind_colour(int32_t kind) {
    return kind >= 0 && kind < 12 ? kKinds[kind].colour : Colour::plain;
}

int64_t seconds_of(const Commit *commit) {
    Time time{};
    check(zCommitTime(&time, commit));
    return time.seconds;
}

std::string short_id(const Oid *id) { return hex(id).substr(0, 8); }

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
    host.out.line(host.out.paint(Colour::yellow, "commit " + id) + "\nAuthor: " + author +
                  "\nDate:   " + time + "\n" + indented(clean(message)) + "\n");
}

void print_change(Host &host, const DiffEntry *entry) {
    int32_t kind = zDiffEntryStatus(entry);
    std::string path = shown_path(zDiffEntryNewPath(entry));
    std::string from = shown_path(zDiffEntryOldPath(entry));
    if (host.out.json()) {
        Record record("change");
        record.set(u"status", kind_name(kind)).set(u"path", path);
        if (kind == Z_KIND_RENAMED) record.set(u"from", from);
        if (kind != Z_KIND_DELETED) record.set(u"id", zDiffEntryNewId(entry));
        if (kind != Z_KIND_ADDED) record.set(u"old", zDiffEntryOldId(entry));
        return host.out.record(record);
    }
    host.out.line(host.out.paint(kind_colour(kind), padded(kind_name(kind), 12)) +
                  (kind == Z_KIND_RENAMED ? from + " -> " + path : path));
}

int show(Host &host, const ShowOptions &options) {
    WorkingCopy copy;
    OwnedCommit commit = copy.commit(options.revision);
    print_commit(host, commit.get());
    OwnedDiff changes(check(zCommitChanges(commit.get(), nullptr, nullptr)));
    ObjectCounts counts(copy);
    for (uint64_t i = 0; i < zDiffListLength(changes.get()); ++i) {
        stop_on_break(host.notify);
        const DiffEntry *entry = zDiffListEntry(changes.get(), i);
        print_change(host, entry);
        if (options.stat) counts.print(host, entry);
    }
    return kDone;
}

int cat(Host &host, const std::string &revision_path) {
    WorkingCopy copy;
    RevisionPath name = parse_revision_path(revision_path);
    OwnedCommit commit = copy.commit(name.revision);
    OwnedTreeEntry entry = copy.file(commit.get(), name.path);
    OwnedOdb odb(check(zOdbOpen(copy.repository())));
    if (!host.out.json()) {
        OwnedStream out(check(zStdioStream(stdout)));
        check(zOdbRead(odb.get(), zTreeEntryId(entry.get()), out.get()));
        return kDone;
    }
    Bytes bytes;
    read_object(odb.get(), zTreeEntryId(entry.get()), bytes);
    bool text = is_plain_text(bytes.data);
    host.out.record(Record("blob")
                        .set(u"path", name.path)
                        .set(u"id", zTreeEntryId(entry.get()))
                        .set(u"size", uint64_t{bytes.data.size()})
                        .set(u"encoding", text ? "utf-8" : "base64")
                        .set(u"content", text ? bytes.data : base64(bytes.data)));
    return kDone;
}

} // namespace host
