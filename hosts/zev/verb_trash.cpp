// trash: list, find, restore, purge. What the library took out of the work directory.

#include "verbs.hpp"
#include "when.hpp"

#include <algorithm>
#include <deque>
#include <map>
#include <utility>

namespace host {

namespace {

using OwnedTrashEntry = Owned<TrashEntry, zTrashEntryFree>;
using OwnedTrashFind = Owned<TrashFind, zTrashFindFree>;

constexpr size_t kShortId = 8;   // digits shown
constexpr size_t kMinPrefix = 4; // digits that may name a slot
constexpr size_t kSlotPath = 41; // two digits, a slash, 38 digits
constexpr int64_t kSecondsPerDay = 86400;

std::string plural(uint64_t count, const char *noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

bool is_hex(const std::string &text) {
    return text.find_first_not_of("0123456789abcdef") == text.npos;
}

// ---- What an entry is called

// The 40 digits of its slot.
std::string id_of(const TrashEntry *entry) {
    return narrow(zTrashEntryPath(entry)).substr(0, kSlotPath).erase(2, 1);
}

// The path that it had in the work directory.
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
    const std::string size = is_file ? narrow(zNumToHumanBytes(zTrashEntrySize(entry))) : "-";
    host.out.line(short_time(time) + "  " + padded(size, 12) +
                  host.out.paint(Colour::yellow, id_of(entry).substr(0, kShortId)) + "  " +
                  original_of(entry) + (is_dir ? "/" : ""));
}

// Visits what a search finds, as it is found.
template <class Visit>
uint64_t search(Host &host, Repository *repository, const zwchar *pattern, bool recursive,
                Visit visit) {
    OwnedTrashFind find(check(zTrashFindNew(repository, nullptr, pattern, recursive)));
    zRaiseError(0, 0, nullptr, nullptr); // nothing found raises nothing
    uint64_t count = 0;
    for (bool more = zTrashFindFirst(find.get()); more; more = zTrashFindNext(find.get())) {
        stop_on_break(host.notify);
        visit(zTrashFindEntry(find.get()));
        ++count;
    }
    if (!count && zErrorClass()) fail_raised();
    return count;
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

// ---- Which entries the user means

struct Item {
    OwnedTrashEntry entry;
    std::string id, original;

    explicit Item(const TrashEntry *found) : Item(OwnedTrashEntry(check(zTrashEntryDup(found)))) {}
    explicit Item(OwnedTrashEntry owned)
        : entry(std::move(owned)), id(id_of(entry.get())), original(original_of(entry.get())) {}
};

bool is_older(const Item *a, const Item *b) {
    return zTrashEntryDTime(a->entry.get())->seconds < zTrashEntryDTime(b->entry.get())->seconds;
}

// Each word of the user's as entries: by the path that they had, by the id, as a pattern.
class Choice {
  public:
    Choice(Host &host, const WorkingCopy &copy, bool newest)
        : host_(host), copy_(copy), newest_(newest) {
        search(host, copy.repository(), nullptr, false,
               [this](const TrashEntry *entry) { items_.emplace_back(entry); });
    }

    void add(const std::string &word) {
        const std::string path = copy_.relative(word);
        if (Found found = by_path(path); !found.empty()) return choose(word, found, newest_);
        if (Found found = by_id(word); !found.empty()) return choose(word, found, false);
        std::map<std::string, Found> matched;
        if (is_wild(path)) matched = by_pattern(path);
        if (matched.empty())
            throw Failed(kNotFound, word + ": not in the trash; \"zev trash find\" looks closer");
        for (auto &[original, found] : matched) choose(original, found, newest_);
    }

    const std::vector<const Item *> &chosen() const { return chosen_; }

  private:
    using Found = std::vector<const Item *>;

    // What was taken under that path itself comes before what lies in a directory that was taken.
    Found by_path(const std::string &path) {
        Found found;
        for (const Item &item : items_)
            if (item.original == path) found.push_back(&item);
        for (size_t i = 0, count = found.empty() ? items_.size() : 0; i < count; ++i)
            if (same_or_below(path, items_[i].original))
                add_inner(found, items_[i], path.substr(items_[i].original.size() + 1));
        return found;
    }

    // "1a2b3c4d", or "1a2b3c4d/ground/plan.dwx" for what lies in the directory that was taken.
    Found by_id(const std::string &word) {
        const size_t slash = word.find('/');
        const std::string prefix = word.substr(0, slash);
        Found found;
        if (prefix.size() < kMinPrefix || !is_hex(prefix)) return found;
        for (size_t i = 0, count = items_.size(); i < count; ++i) {
            if (!items_[i].id.starts_with(prefix)) continue;
            if (slash == word.npos)
                found.push_back(&items_[i]);
            else
                add_inner(found, items_[i], word.substr(slash + 1));
        }
        return found;
    }

    std::map<std::string, Found> by_pattern(const std::string &pattern) {
        OwnedSpec spec(check(zPathSpecNew(wide(pattern).c_str(), 0)));
        std::map<std::string, Found> found;
        for (const Item &item : items_)
            if (zPathSpecMatched(spec.get(), wide(item.original).c_str()))
                found[item.original].push_back(&item);
        return found;
    }

    void add_inner(Found &found, const Item &item, const std::string &rest) {
        if (!zTrashEntryIsDir(item.entry.get())) return;
        const std::string path = narrow(zTrashEntryPath(item.entry.get())) + "/" + rest;
        OwnedTrashEntry inner(zTrashEntryDiscover(copy_.repository(), wide(path).c_str()));
        if (inner) found.push_back(&inner_.emplace_back(std::move(inner)));
    }

    void choose(const std::string &word, const Found &found, bool newest) {
        if (found.size() == 1 || newest) return take(*std::ranges::max_element(found, is_older));
        for (const Item *item : found) print_entry(host_, item->entry.get());
        throw Failed(kInvalid, word + ": stands for " + std::to_string(found.size()) + " entries" +
                                   " of the trash; give the id of one, or --newest for a path");
    }

    void take(const Item *item) {
        if (std::ranges::find(chosen_, item) == chosen_.end()) chosen_.push_back(item);
    }

    Host &host_;
    const WorkingCopy &copy_;
    bool newest_;
    std::deque<Item> items_, inner_; // stay where they are
    Found chosen_;
};

// Back to where it came from, or into a directory. What stands in the way is the library's
// question; without an answer all stays as it is.
bool restore(Host &host, const WorkingCopy &copy, const Item &item, const std::u16string *target) {
    const TrashEntry *entry = item.entry.get();
    const bool done = target ? zTrashMoveTo(copy.repository(), entry, target->c_str(), host.notify)
                             : zTrashMoveBack(copy.repository(), entry, host.notify);
    if (done) return true;
    if (zErrorClass() != kExists) fail_raised(item.original);
    const std::string reason = narrow(zErrorDetail());
    host.out.fail(Failed(kExists, item.original + ": stays in the trash: " + reason), kFailed);
    return false;
}

// ---- For good

// Nothing goes without a yes.
void confirm(Host &host, const std::string &what) {
    enum : int32_t { kDelete = 1, kKeep = 2 };
    const int32_t answer = ask(host.notify, {.id = "zev.trash.purge",
                                             .title = "",
                                             .instruction = "Delete " + what + " for good?",
                                             .content = "Nothing brings back what is deleted here.",
                                             .buttons = {"Delete", "Keep"}});
    if (answer == kDelete) return;
    if (answer == kKeep) throw Failed(kCanceled, "nothing was deleted");
    throw Failed(kOther, "nothing was deleted; --yes says that it is meant");
}

// How many entries are that old, or with a null limit how many there are.
uint64_t count_older(Host &host, const WorkingCopy &copy, const int64_t *limit) {
    uint64_t count = 0;
    search(host, copy.repository(), nullptr, false, [&](const TrashEntry *entry) {
        count += !limit || zTrashEntryDTime(entry)->seconds <= *limit;
    });
    return count;
}

} // namespace

int trash_list(Host &host, const std::string &pattern) {
    if (!print_found(host, pattern, false))
        host.out.line(pattern.empty() ? "the trash is empty" : "nothing in the trash matches");
    return kDone;
}

int trash_find(Host &host, const std::string &pattern) {
    if (!print_found(host, pattern, true))
        throw Failed(kNotFound, pattern + ": nothing in the trash matches");
    return kDone;
}

int trash_restore(Host &host, const RestoreOptions &options) {
    WorkingCopy copy;
    std::u16string target;
    if (!options.target.empty()) target = wide(copy.relative(options.target));
    Choice choice(host, copy, options.newest);
    for (const std::string &word : options.entries) choice.add(word);
    uint64_t restored = 0;
    for (const Item *item : choice.chosen()) {
        stop_on_break(host.notify);
        restored += restore(host, copy, *item, options.target.empty() ? nullptr : &target);
    }
    host.out.line(std::to_string(restored) + " restored");
    host.out.record(Record("summary").set(u"restored", restored));
    return restored == choice.chosen().size() ? kDone : kFailed;
}

int trash_purge(Host &host, const PurgeOptions &options) {
    if (options.all == (options.days >= 0))
        throw Failed(kInvalid, "give the age in days, --older DAYS, or --all");
    WorkingCopy copy;
    Time now{};
    check(zTimeGlobal(&now));
    const int64_t oldest = now.seconds - options.days * kSecondsPerDay;
    const int64_t *limit = options.all ? nullptr : &oldest;
    const uint64_t count = count_older(host, copy, limit);
    if (count) {
        confirm(host, plural(count, "item") + " of the trash");
        check(options.all ? zTrashCleanup(copy.repository())
                          : zTrashPurge(copy.repository(), options.days));
    }
    const uint64_t left = count ? count_older(host, copy, limit) : 0;
    host.out.line(plural(count - std::min(count, left), "item") + " deleted");
    host.out.record(
        Record("summary").set(u"deleted", count - std::min(count, left)).set(u"left", left));
    if (left) host.out.warn(plural(left, "item") + " can't be deleted");
    return left ? kFailed : kDone;
}

} // namespace host
