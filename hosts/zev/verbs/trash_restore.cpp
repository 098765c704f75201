// trash restore: back to where it came from.

#include "trash_search.hpp"

#include <algorithm>
#include <deque>
#include <map>
#include <utility>

namespace host {

namespace {

struct Options {
    Paths entries;       // the paths that they had, digits of ids, or patterns
    std::string target;  // a directory; empty: each to where it came from
    bool newest = false; // of several with one path
};

void declare(Command &verb, Options &options) {
    verb.description("Bring files back");
    verb.footer(
        "By the path that they had, or by the first digits of an id from \"zev trash list\";\n"
        "behind an id a slash and a path name what lies in a directory. What has the name by\n"
        "now stays unless you say otherwise.\n"
        "Examples:\n  zev trash restore plan.dwx\n  zev trash restore 1a2b3c4d --to old\n"
        "  zev trash restore --newest 'plans/*.dwx'");
    verb.add_option("entries", options.entries, "Paths, ids, patterns")->required();
    verb.add_option("--to", options.target, "Into this directory")->type_name("DIR");
    verb.add_flag("--newest", options.newest,
                  "Of several that had the same path, the one taken last");
}

constexpr size_t kMinPrefix = 4; // digits that may name a slot

bool is_hex(const std::string &text) {
    return text.find_first_not_of("0123456789abcdef") == text.npos;
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
            throw Failed(kNotFound,
                         say("%s: not in the trash; \"zev trash find\" looks closer", word));
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
        throw Failed(kInvalid, say("%s: stands for %s entries of the trash; give the id of one, or "
                                   "--newest for a path",
                                   word, found.size()));
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
    host.out.fail(Failed(kExists, say("%s: stays in the trash: %s", item.original, reason)),
                  kBroken);
    return false;
}

int run(Host &host, const Options &options) {
    WorkingCopy copy;
    std::u16string target;
    if (!options.target.empty()) target = wide(copy.relative(options.target));
    Choice choice(host, copy, options.newest);
    for (const std::string &word : options.entries) choice.add(word);
    host.notify->from_trash();
    uint64_t restored = 0;
    for (const Item *item : choice.chosen()) {
        stop_on_break(host.notify);
        restored += restore(host, copy, *item, options.target.empty() ? nullptr : &target);
    }
    host.out.line(say("%s restored", restored));
    host.out.record(Record("summary").set(u"restored", restored));
    return restored == choice.chosen().size() ? kDone : kBroken; // a question was declined
}

} // namespace

extern const Verb kTrashRestoreVerb{"trash restore", Group::rescue, Nature::changes,
                                    bind<Options, declare, run>};

} // namespace host
