// Read only what is at hand: a shell asks at each touch of a key.
#include "words.hpp"

#include "drawing_version.hpp"
#include "object_names.hpp"
#include "refs.hpp"
#include "trash_search.hpp"
#include "walks.hpp"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>

namespace host {

namespace fs = std::filesystem;

namespace {

using Words = std::vector<std::string>;

constexpr size_t kMostBytes = 64u << 20; // of a drawing's file that is read for a touch of a key

void add_references(Words &words, const WorkingCopy &copy, std::string_view space) {
    each_reference(copy.repository(), [&](Reference *reference) {
        const std::string name = narrow(zReferenceName(reference));
        if (name.starts_with(space)) words.push_back(name.substr(space.size()));
        return true;
    });
}

void add_trash(Words &words, const WorkingCopy &copy) {
    const Owned<TrashFind, zTrashFindFree> find(
        zTrashFindNew(copy.repository(), nullptr, nullptr, false));
    for (bool more = find && zTrashFindFirst(find.get()); more; more = zTrashFindNext(find.get()))
        words.push_back(typed_path(original_of(zTrashFindEntry(find.get()))));
}

Words::const_iterator find_drawing(const Words &line) {
    return std::find_if(line.begin(), line.end(), [](const std::string &word) {
        std::error_code ignored;
        return is_drawing_name(word) && fs::file_size(word, ignored) < kMostBytes;
    });
}

void add_objects(Words &words, const Words &line) {
    const auto drawing = find_drawing(line);
    if (drawing == line.end()) return;
    std::ifstream in(*drawing, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    const auto manifest = dxf::Manifest::read(bytes);
    for (size_t i = 0; manifest && i < manifest->objects.size(); ++i)
        words.push_back(object_name(dxf::turned(manifest->objects.object(i))));
}

std::set<uint64_t> changed(const dxf::Manifest &from, const dxf::Manifest &to) {
    std::set<uint64_t> numbers;
    for (const dxf::ObjectChange &change : dxf::compare_objects(from.objects, to.objects))
        numbers.insert(change.number);
    return numbers;
}

// Behind the side that is to have them: the objects of a drawing that both sides changed.
void add_clashes(Words &words, const WorkingCopy &copy, const Words &line) {
    const auto has = [&](const char *word) { return std::ranges::find(line, word) != line.end(); };
    const auto drawing = find_drawing(line);
    if (!has("--merge") || !(has("--ours") || has("--mine") || has("--theirs")) ||
        drawing == line.end())
        return;
    const std::string path = copy.relative(*drawing);
    const OwnedIndex index(check(zIndexHead(copy.repository(), false)));
    const Owned<Conflict, zConflictFree> conflict(zConflictGet(index.get(), wide(path).c_str()));
    if (!conflict) return;
    const IndexEntry *base = zConflictAncestorEntry(conflict.get());
    const IndexEntry *ours = zConflictOurEntry(conflict.get());
    const IndexEntry *theirs = zConflictTheirEntry(conflict.get());
    if (!base || !ours || !theirs) return;
    const DrawingVersion from(copy, *zIndexEntryID(base), path);
    const DrawingVersion mine(copy, *zIndexEntryID(ours), path);
    const DrawingVersion other(copy, *zIndexEntryID(theirs), path);
    const std::set<uint64_t> others = changed(from.manifest, other.manifest);
    for (const uint64_t number : changed(from.manifest, mine.manifest))
        if (others.contains(number)) words.push_back(object_name(number));
    words.insert(words.end(), {"header", "classes", "layout"});
}

} // namespace

std::vector<std::string> words_of(const std::string &kind,
                                  const std::vector<std::string> &line) try {
    Words words;
    const WorkingCopy copy;
    const bool revisions = kind == "revisions";
    if (revisions) words.emplace_back("HEAD");
    if (revisions || kind == "branches") add_references(words, copy, kHeads);
    if (revisions || kind == "tags") add_references(words, copy, kTags);
    if (kind == "trash") add_trash(words, copy);
    if (kind == "objects") add_objects(words, line);
    if (kind == "clashes") add_clashes(words, copy, line);
    std::erase_if(words, [](const std::string &word) {
        return std::any_of(word.begin(), word.end(),
                           [](char c) { return static_cast<unsigned char>(c) < ' '; });
    });
    return words;
} catch (const Failed &) {
    return {}; // no working copy
}

} // namespace host
