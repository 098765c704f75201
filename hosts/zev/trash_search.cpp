// An entry's path in the trash is its slot, "<2 digits>/<38 digits>", with what lies below it.
#include "trash_search.hpp"

#include "when.hpp"

namespace host {

namespace {

constexpr size_t kShortId = 8;   // digits shown
constexpr size_t kSlotPath = 41; // two digits, a slash, 38 digits

} // namespace

std::string id_of(const TrashEntry *entry) {
    return narrow(zTrashEntryPath(entry)).substr(0, kSlotPath).erase(2, 1);
}

std::string original_of(const TrashEntry *entry) {
    std::string directory = narrow(zTrashEntryOrig(entry)), name = narrow(zTrashEntryName(entry));
    return directory.empty() ? name : directory + "/" + name;
}

void print_entry(Host &host, const TrashEntry *entry) {
    const int64_t time = zTrashEntryDTime(entry)->seconds;
    const bool is_file = zTrashEntryIsFile(entry), is_dir = zTrashEntryIsDir(entry);
    if (host.out.json()) {
        Record record("trash");
        record.set(u"id", id_of(entry)).set(u"path", original_of(entry));
        record.set(u"entry", narrow(zTrashEntryPath(entry)));
        record.set(u"kind", is_file ? "file" : is_dir ? "directory" : "other");
        record.set(u"time", iso_time(time)).set(u"seconds", time);
        if (is_file) record.set(u"size", zTrashEntrySize(entry));
        return host.out.record(record);
    }
    const std::string size = is_file ? bytes_text(zTrashEntrySize(entry)) : "-";
    host.out.line(short_time(time) + "  " + padded(size, 12) +
                  host.out.paint(Colour::yellow, id_of(entry).substr(0, kShortId)) + "  " +
                  typed_path(original_of(entry)) + (is_dir ? "/" : ""));
}

uint64_t print_found(Host &host, const std::string &pattern, bool recursive) {
    WorkingCopy copy;
    const std::u16string wanted = wide_path(pattern);
    const uint64_t count =
        search(host, copy.repository(), pattern.empty() ? nullptr : wanted.c_str(), recursive,
               [&](const TrashEntry *entry) { print_entry(host, entry); });
    host.out.record(Record("summary").set(u"entries", count));
    return count;
}

} // namespace host
