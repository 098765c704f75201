// Commits are read as they lie in the store, since the library hands out first parents only. Each
// is read once.
#include "graph.hpp"

#include <algorithm>

namespace host {

namespace {

constexpr size_t kDigits = 8; // of the id in a note
constexpr std::string_view kNote = "MERGE: ";

std::string short_digits(const Oid *id) { return hex(id).substr(0, kDigits); }

// The last line of a text that may end in line feeds.
std::string_view last_line(std::string_view text) {
    while (text.ends_with('\n')) text.remove_suffix(1);
    return text.substr(text.rfind('\n') + 1);
}

} // namespace

std::string merge_note(const Oid *merged) { return std::string(kNote) + short_digits(merged); }
std::string part_note(const Oid *merged) { return merge_note(merged) + ", not all of it"; }

Graph::Graph(const WorkingCopy &copy, const Notify *notify)
    : copy_(copy), notify_(notify), odb_(check(zOdbOpen(copy.repository()))) {}

const Graph::Parents &Graph::parents(const Oid &id) {
    auto [at, fresh] = known_.try_emplace(id);
    if (fresh) at->second = read(id); // nothing is added meanwhile
    return at->second;
}

// From the commit as git writes it: lines "tree <hex>", "parent <hex>" (any number), "author
// <name> ...", others, an empty line, the message. A commit that isn't here has no parents.
Graph::Parents Graph::read(const Oid &id) {
    stop_on_break(notify_);
    Parents found;
    bytes_.data.clear();
    if (!zOdbRead(odb_.get(), &id, &bytes_)) return found;
    const std::string text = bytes_.data;
    const size_t end = std::min(text.find("\n\n"), text.size());
    std::string_view head(text.data(), end), tree;
    bool of_checkout = false;
    while (!head.empty()) {
        const std::string_view line = head.substr(0, head.find('\n'));
        head.remove_prefix(std::min(line.size() + 1, head.size()));
        Oid parent;
        if (line.starts_with("tree ")) tree = line.substr(5);
        if (line.starts_with("author remote <remote>")) of_checkout = true;
        if (line.starts_with("parent ") &&
            zOidFromStr(&parent, wide(std::string(line.substr(7, 40))).c_str()))
            found.push_back(parent);
    }
    const std::string_view message = std::string_view(text).substr(std::min(end + 2, text.size()));
    if (const auto merged = noted(message, of_checkout, tree)) found.push_back(*merged);
    return found;
}

std::optional<Oid> Graph::noted(std::string_view message, bool of_checkout, std::string_view tree) {
    const std::string_view line = last_line(message);
    if (!line.starts_with(kNote) || line.size() != kNote.size() + kDigits) return {};
    std::string digits(line.substr(kNote.size()));
    digits.resize(40, '0');
    Oid prefix;
    if (digits.find_first_not_of("0123456789abcdef") != digits.npos ||
        !zOidFromStr(&prefix, wide(digits).c_str()))
        return {};
    const OwnedCommit merged(zCommitByprefix(copy_.repository(), &prefix, kDigits));
    if (!merged || (of_checkout && hex(zCommitTreeId(merged.get())) != tree)) return {};
    return *zCommitId(merged.get());
}

Ids Graph::ancestors(const Oid &tip) {
    Ids found{tip};
    for (std::vector<Oid> pending{tip}; !pending.empty();) {
        const Oid id = pending.back();
        pending.pop_back();
        for (const Oid &parent : parents(id))
            if (found.insert(parent).second) pending.push_back(parent);
    }
    return found;
}

bool Graph::contains(const Oid &tip, const Oid &wanted) { return ancestors(tip).contains(wanted); }

// With a common one all that it contains is common; the newest is contained in no other.
std::optional<Oid> Graph::common(const Oid &ours, const Oid &theirs) {
    const Ids mine = ancestors(ours);
    Ids both;
    for (const Oid &id : ancestors(theirs))
        if (mine.contains(id)) both.insert(id);
    Ids newest = both;
    for (const Oid &id : both)
        for (const Oid &parent : parents(id)) newest.erase(parent);
    if (newest.empty()) return {};
    for (Oid id = ours;;) {
        if (newest.contains(id)) return id;
        const Parents &above = parents(id);
        if (above.empty()) break;
        id = above.front();
    }
    return *std::ranges::min_element(newest, OidLess());
}

} // namespace host
