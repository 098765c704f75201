// Differences of two manifests, 1 % changed, beside a bare merge of two sorted key arrays: read
// from two files that hold nothing else, and lying ready in memory.
#include "bench.hpp"

#include "objects/drawing/drawing.hpp"

#include "zev/zev.h"

using namespace zev;

namespace {

struct Versions {
    std::vector<DrawingKey> before, after;
};

// Of each hundred objects one has another tag; of each thousand one is gone and one is new.
Versions make_versions(uint64_t count) {
    bench::Random random(5);
    Versions versions;
    for (uint64_t i = 0; i < count; ++i) {
        const DrawingKey key{1, 2 * i + 1};
        versions.before.push_back(key);
        const uint64_t fate = random.below(1000);
        if (fate != 0) versions.after.push_back({fate <= 10 ? 2u : 1u, key.object});
        if (fate == 999) versions.after.push_back({2, key.object + 1});
    }
    return versions;
}

std::u16string save(const bench::Scratch &scratch, const char16_t *name,
                    const std::vector<DrawingKey> &objects) {
    const DrawingPtr drawing{zDrawingNew(nullptr, nullptr)};
    for (const DrawingKey &key : objects) zVectorPush(drawing->objects.get(), &key);
    std::u16string path = scratch / name;
    if (!zDrawingWrite(drawing.get(), path.c_str())) exit(1);
    return path;
}

uint64_t merge(const Versions &v) {
    std::vector<uint64_t> added, modified, removed;
    size_t i = 0, j = 0;
    while (i < v.before.size() && j < v.after.size()) {
        const DrawingKey &a = v.before[i], &b = v.after[j];
        if (a.object < b.object) {
            removed.push_back(a.object), ++i;
        } else if (b.object < a.object) {
            added.push_back(b.object), ++j;
        } else {
            if (a.tag != b.tag) modified.push_back(b.object);
            ++i, ++j;
        }
    }
    for (; i < v.before.size(); ++i) removed.push_back(v.before[i].object);
    for (; j < v.after.size(); ++j) added.push_back(v.after[j].object);
    return added.size() + modified.size() + removed.size();
}

std::vector<DrawingKey> load(const std::string &path) {
    FILE *file = fopen(path.c_str(), "rb");
    std::vector<DrawingKey> keys(std::filesystem::file_size(path) / sizeof(DrawingKey));
    if (!file || fread(keys.data(), sizeof(DrawingKey), keys.size(), file) != keys.size()) exit(1);
    fclose(file);
    for (DrawingKey &key : keys) key = key_from(reinterpret_cast<const uint8_t *>(&key));
    return keys;
}

void store(const std::string &path, const std::vector<DrawingKey> &keys) {
    FILE *file = fopen(path.c_str(), "wb");
    if (!file) exit(1);
    for (const DrawingKey &key : keys) fwrite(key_bytes(key).data(), 1, sizeof key, file);
    fclose(file);
}

uint64_t differences(const std::u16string &from, const std::u16string &to) {
    Vector *lists[3] = {};
    if (!zDrawingGetDifference(from.c_str(), to.c_str(), &lists[0], &lists[1], &lists[2])) exit(1);
    uint64_t count = 0;
    for (Vector *list : lists) {
        count += zVectorSize(list);
        zVectorFree(list);
    }
    return count;
}

// `order` is the one in which a file lists its objects.
void run(const char *scenario, Versions versions, bool shuffled) {
    bench::Scratch scratch;
    uint64_t found = 0, expected = 0;
    const std::string bare[] = {scratch.path() / "from.keys", scratch.path() / "to.keys"};
    store(bare[0], versions.before);
    store(bare[1], versions.after);
    const double in_memory = bench::median([&] { expected = merge(versions); }, 15);
    const double from_files = bench::median(
        [&] {
            expected = merge({load(bare[0]), load(bare[1])});
        },
        15);
    if (shuffled) {
        const auto scatter = [](const DrawingKey &k) { return k.object * 0x9E3779B97F4A7C15; };
        std::ranges::sort(versions.before, {}, scatter);
        std::ranges::sort(versions.after, {}, scatter);
    }
    const std::u16string from = save(scratch, u"from.dwx", versions.before);
    const std::u16string to = save(scratch, u"to.dwx", versions.after);
    const double ours = bench::median([&] { found = differences(from, to); }, 15);
    if (found != expected) exit(1);
    bench::compare(scenario, "merge", "ms", ours, from_files);
    bench::line(scenario, "merge-in-memory", "ms", in_memory);
}

} // namespace

int main() {
    if (!zGlobalInit(nullptr, nullptr)) return 1;
    const Versions versions = make_versions(bench::size("ZEV_BENCH_OBJECTS", 100000));
    run("diff", versions, false);
    run("diff-unordered", versions, true);
    zGlobalCleanup();
    return 0;
}
