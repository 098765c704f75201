// log, show, cat: what was committed.

#include "verbs.hpp"

#include <ctime>

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

// Local time with its offset, as in 2024-05-17T09:30:00+02:00.
std::string iso_time(int64_t seconds) {
    time_t time = static_cast<time_t>(seconds);
    tm local{};
    char text[40] = "";
    if (!localtime_r(&time, &local)) return std::to_string(seconds);
    std::string stamp(text, strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z", &local));
    return stamp.size() > 2 ? stamp.insert(stamp.size() - 2, ":") : stamp;
}

std::string indented(const std::string &text) {
    std::string out;
    for (size_t at = 0; at < text.size();) {
        size_t end = std::min(text.find('\n', at), text.size());
        out += "\n    " + text.substr(at, end - at);
        at = end + 1;
    }
    return out;
}

int64_t seconds_of(const Commit *commit) {
    Time time{};
    check(zCommitTime(&time, commit));
    return time.seconds;
}

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

// Bytes as they come from the store.
struct Bytes : Stream {
    Bytes() : Stream{} {
        read = [](Stream *, void *, uint64_t) -> uint64_t { return 0; };
        write = [](Stream *stream, const void *data, uint64_t count) -> uint64_t {
            try {
                static_cast<Bytes *>(stream)->data.append(static_cast<const char *>(data), count);
                return count;
            } catch (...) {
                return static_cast<Bytes *>(stream)->failed = true, 0;
            }
        };
        free = [](Stream *) {};
        eof = [](Stream *) { return true; };
        error = [](Stream *stream) { return static_cast<Bytes *>(stream)->failed; };
    }
    std::string data;
    bool failed = false;
};

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

} // namespace

const char *kind_name(int32_t kind) {
    return kind >= 0 && kind < 12 ? kKinds[kind].name : "unknown";
}

Colour kind_colour(int32_t kind) {
    return kind >= 0 && kind < 12 ? kKinds[kind].colour : Colour::plain;
}

std::string padded(const std::string &text, size_t width) {
    return text + std::string(text.size() < width ? width - text.size() : 1, ' ');
}

int log(Host &host, const LogOptions &options) {
    WorkingCopy copy;
    OwnedCommit commit = copy.commit(options.revision);
    for (uint64_t left = options.count; left && commit; --left) {
        stop_on_break(host.notify);
        print_commit(host, commit.get());
        commit.reset(zCommitParent(commit.get()));
        if (!commit && zErrorClass() != kNotFound) fail_raised();
    }
    return kDone;
}

int show(Host &host, const std::string &revision) {
    WorkingCopy copy;
    OwnedCommit commit = copy.commit(revision);
    print_commit(host, commit.get());
    OwnedDiff changes(check(zCommitChanges(commit.get(), nullptr, nullptr)));
    for (uint64_t i = 0; i < zDiffListLength(changes.get()); ++i)
        print_change(host, zDiffListEntry(changes.get(), i));
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
    check(zOdbRead(odb.get(), zTreeEntryId(entry.get()), &bytes));
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
