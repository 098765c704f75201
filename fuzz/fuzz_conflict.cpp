// Conflicts as an index may hold them, however they came there: each belongs to one node, in any
// mixture of files and directories, and a node tells its kind. A line of input is one path, after
// a digit whose bits say which of ancestor, ours and theirs are there, 0 for a tracked file, and
// one that tells the contents.
#include "common/utf.hpp"
#include "objects/conflict/conflict.hpp"
#include "zev/error.h"
#include "zev/repository.h"

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

using namespace zev;

using RepositoryPtr = Owned<Repository, zRepositoryFree>;

// One for the whole run; only the index in memory differs.
struct Place {
    std::filesystem::path path;
    RepositoryPtr repository;

    Place() {
        char name[] = "/tmp/fuzz_conflict_XXXXXX";
        if (!zGlobalInit(nullptr, nullptr) || !mkdtemp(name)) abort();
        path = name;
        repository.reset(zRepositoryInit(path.u16string().c_str(), false));
        if (!repository) abort();
    }
    ~Place() {
        repository.reset();
        std::filesystem::remove_all(path);
    }
};

void enter(Index *index, std::string_view line) {
    if (line.size() < 3) return;
    const std::string path(line.substr(2));
    const auto entry = [&](int part) {
        git_index_entry made{};
        made.path = path.c_str();
        made.mode = GIT_FILEMODE_BLOB;
        made.id.id[0] = static_cast<unsigned char>(line[1] >> part & 1);
        return made;
    };
    const git_index_entry made[] = {entry(0), entry(1), entry(2)};
    const auto part = [&](int i) { return line[0] >> i & 1 ? zev_entry(&made[i]) : nullptr; };
    if (line[0] & 7)
        zConflictAdd(index, part(0), part(1), part(2));
    else
        zIndexEntryAdd(index, zev_entry(&made[0]));
}

// Every conflict's path stands on one side at least, and on each side once.
void check(const ConflictAnalysis *analysis, const ConflictList *list) {
    std::unordered_map<std::string, int> found;
    for (uint64_t i = 0; i < zConflictAnalysisLength(analysis); ++i) {
        ConflictNode *node = zConflictAnalysisEntry(analysis, i);
        if (!*zConflictNodeType(node)) abort();
        for (const ConflictSide &side : node->theirs.list) ++found[side.path()];
        for (const ConflictSide &side : node->ours.list)
            if (!node->theirs.find(side.path())) ++found[side.path()];
    }
    for (uint64_t i = 0; i < zConflictListLength(list); ++i)
        if (found[to_utf8(zConflictTheirPath(zConflictListEntry(list, i)))] < 1) abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const Place place;
    if (size > 4096) return 0;
    IndexPtr index(zIndexNew(place.repository.get()));
    std::string_view text(reinterpret_cast<const char *>(data), size);
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        enter(index.get(), text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    Owned<ConflictList, zConflictListFree> list(zConflictMatch(index.get(), nullptr));
    AnalysisPtr analysis(zConflictAnalyze(index.get(), nullptr));
    if (!list || !analysis) abort();
    check(analysis.get(), list.get());
    return 0;
}
