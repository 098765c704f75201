// Texts are compared as bytes: lines of any encoding that has no zero bytes. Others differ as
// wholes.
#include "file_diff.hpp"

#include "bytes.hpp"
#include "server_history.hpp"
#include "text_diff.hpp"

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr size_t kMaxText = size_t{64} << 20; // bytes; what is larger nobody reads by lines

using Content = std::optional<std::string>;

Content work_file(const WorkingCopy &copy, const std::string &path) {
    const fs::path file = copy.absolute(path);
    const fs::file_status status = fs::symlink_status(file);
    if (!fs::exists(status)) return {};
    if (fs::is_symlink(status)) return fs::read_symlink(file).string(); // as it is committed
    if (!fs::is_regular_file(status)) throw Failed(kInvalid, say("%s: is no file", path));
    const OwnedFile in(check(zFileOpen(file.u16string().c_str(), u"rb"), path));
    std::string bytes;
    char block[1 << 16];
    while (const size_t count = fread(block, 1, sizeof block, in.get())) bytes.append(block, count);
    if (ferror(in.get())) throw Failed(kSystem, say("%s: can't be read", path));
    return bytes;
}

Content content_of(const Host &host, const WorkingCopy &copy, const std::string &path,
                   const std::string &revision) {
    if (revision.empty()) return work_file(copy, path);
    const OwnedCommit commit = commit_with(host, copy, revision, path);
    const OwnedTreeEntry entry = copy.entry(commit.get(), path);
    if (!entry) return {};
    if (zTreeEntryType(entry.get()) != Z_OBJECT_BLOB)
        throw Failed(kInvalid, say("%s: is no file", revision + ":" + path));
    const OwnedOdb odb(check(zOdbOpen(copy.repository())));
    Bytes bytes;
    read_object(odb.get(), zTreeEntryId(entry.get()), bytes, revision + ":" + path);
    return std::move(bytes.data);
}

bool is_comparable(const std::string &bytes) {
    return bytes.size() <= kMaxText && bytes.find('\0') == bytes.npos;
}

// Lines are counted from 1; of none the place is that of the line before.
std::string place(size_t at, size_t count) {
    return std::to_string(at + (count ? 1 : 0)) + (count == 1 ? "" : "," + std::to_string(count));
}

LineCounts counts_of(const std::vector<Hunk> &hunks) {
    LineCounts counts;
    for (const Hunk &hunk : hunks)
        for (const std::string &line : hunk.lines) {
            counts.added += line[0] == '+';
            counts.removed += line[0] == '-';
        }
    return counts;
}

void print(const Host &host, const Hunk &hunk) {
    Output &out = host.out;
    out.line(out.paint(Colour::cyan, "@@ -" + place(hunk.from, hunk.from_count) + " +" +
                                         place(hunk.to, hunk.to_count) + " @@"));
    for (const std::string &line : hunk.lines)
        out.line(out.paint(line[0] == '+'   ? Colour::green
                           : line[0] == '-' ? Colour::red
                                            : Colour::plain,
                           line));
    out.record(Record("hunk")
                   .set(u"from", uint64_t{hunk.from + (hunk.from_count ? 1 : 0)})
                   .set(u"from_count", uint64_t{hunk.from_count})
                   .set(u"to", uint64_t{hunk.to + (hunk.to_count ? 1 : 0)})
                   .set(u"to_count", uint64_t{hunk.to_count})
                   .set(u"lines", hunk.lines));
}

} // namespace

LineCounts diff_file(const Host &host, const WorkingCopy &copy, const FileVersions &versions) {
    const auto &[path, older, newer, only_counts] = versions;
    const Content from = content_of(host, copy, path, older);
    const Content to = content_of(host, copy, path, newer);
    if (!from && !to) throw Failed(kNotFound, say("%s: no such file in either version", path));
    const std::string before = from.value_or(""), now = to.value_or("");
    const bool by_lines = is_comparable(before) && is_comparable(now);
    const std::vector<Hunk> hunks = by_lines ? hunks_of(before, now) : std::vector<Hunk>();
    const LineCounts counts = counts_of(hunks);
    host.out.record(Record("file")
                        .set(u"path", path)
                        .set(u"added", counts.added)
                        .set(u"removed", counts.removed)
                        .set(u"lines", by_lines));
    if (!by_lines && before != now)
        host.out.line(say("no text: %s -> %s", bytes_text(before.size()), bytes_text(now.size())));
    if (only_counts) return counts;
    for (const Hunk &hunk : hunks) {
        stop_on_break(host.notify);
        print(host, hunk);
    }
    return counts;
}

} // namespace host
