// Read only what is at hand: a shell asks at each touch of a key.
#include "words.hpp"

#include "copy.hpp"
#include "dxf/manifest.hpp"
#include "object_names.hpp"
#include "refs.hpp"
#include "trash_search.hpp"
#include "walks.hpp"

#include <algorithm>
#include <fstream>
#include <iterator>

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

void add_objects(Words &words, const Words &line) {
    const auto drawing = std::find_if(line.begin(), line.end(), [](const std::string &word) {
        std::error_code ignored;
        return is_drawing_name(word) && fs::file_size(word, ignored) < kMostBytes;
    });
    if (drawing == line.end()) return;
    std::ifstream in(*drawing, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    const auto manifest = dxf::Manifest::read(bytes);
    for (size_t i = 0; manifest && i < manifest->objects.size(); ++i)
        words.push_back(object_name(dxf::turned(manifest->objects.object(i))));
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
    std::erase_if(words, [](const std::string &word) {
        return std::any_of(word.begin(), word.end(),
                           [](char c) { return static_cast<unsigned char>(c) < ' '; });
    });
    return words;
} catch (const Failed &) {
    return {}; // no working copy
}

} // namespace host
