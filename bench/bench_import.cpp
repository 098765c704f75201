// Import of a drawing by the program beside bare LevelDB that writes the same rows in batches of
// 1 MiB, the file read and cut beforehand; then imports again, beside the first one: of the same
// file, with a hundredth of the objects changed, as another program writes it, and with all handles
// anew. Sizes by ZEV_BENCH_OBJECTS. gen_dxf, peak and zev stand beside this program.
#include "bench.hpp"

#include "common/reader.hpp"
#include "dxf/groups.hpp"
#include "dxf/reader.hpp"

#include <fstream>
#include <iterator>
#include <leveldb/c.h>

namespace {

namespace fs = std::filesystem;

void bare(const dxf::Document &document, const fs::path &path) {
    leveldb_options_t *options = leveldb_options_create();
    leveldb_options_set_create_if_missing(options, 1);
    char *error = nullptr;
    leveldb_t *database = leveldb_open(options, path.c_str(), &error);
    leveldb_writeoptions_t *writing = leveldb_writeoptions_create();
    leveldb_writebatch_t *batch = leveldb_writebatch_create();
    uint64_t held = 0, number = 0;
    for (const dxf::Part &part : document.parts) {
        uint8_t key[16];
        zev::store_u64(key, 1);
        zev::store_u64(key + 8, part.handle ? part.handle : ++number << 40);
        leveldb_writebatch_put(batch, reinterpret_cast<const char *>(key), sizeof key,
                               part.bytes.data(), part.bytes.size());
        if ((held += part.bytes.size()) < 1 << 20) continue;
        leveldb_write(database, writing, batch, &error);
        leveldb_writebatch_clear(batch);
        held = 0;
    }
    leveldb_write(database, writing, batch, &error);
    leveldb_writebatch_destroy(batch);
    leveldb_writeoptions_destroy(writing);
    leveldb_close(database);
    leveldb_options_destroy(options);
    if (error) exit(2);
}

std::string read_file(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// As another program writes it: each line ends in CR LF, codes and handles have another form.
std::string rewritten(std::string_view bytes) {
    std::string out;
    dxf::RawGroup group;
    while (dxf::take_group(bytes, group)) {
        out += std::to_string(group.code) + "\r\n";
        if (dxf::value_type(group.code) == dxf::ValueType::handle) out += '0';
        out += group.value;
        out += "\r\n";
    }
    return out;
}

// All handles anew, from the last one down.
std::string renumbered(const dxf::Document &document) {
    dxf::HandleMap map;
    uint64_t number = document.parts.size() + 0x9000;
    for (const dxf::Part &part : document.parts)
        if (part.handle) map.put(part.handle, number--);
    std::string out;
    for (const dxf::Part &part : document.parts)
        out += dxf::translated(part.bytes, map, part.handle != 0);
    return out;
}

struct Cost {
    double ms = 0, kib = 0;
};

Cost cost_of(const std::string &peak, const std::string &command) {
    Cost cost;
    const std::unique_ptr<FILE, int (*)(FILE *)> out(popen((peak + command).c_str(), "r"), pclose);
    if (!out || fscanf(out.get(), "%lf %lf", &cost.ms, &cost.kib) != 2) exit(1);
    return cost;
}

// Of `next` over `first`: times by turns, and the largest memory by the size of the file.
void again(const char *scenario, const std::string &bin, const std::string &root,
           const std::string &first, const std::string &next) {
    const std::string zev = bin + "/zev -C " + root + "/copy import ", peak = bin + "/peak ";
    double times[2] = {}, ratio = 0, kib = 0;
    std::vector<double> ratios;
    for (int n = 0; n < 5; ++n) {
        fs::remove_all(root + "/copy");
        if (system((bin + "/zev -C " + root + " init copy >/dev/null").c_str())) exit(1);
        const Cost one = cost_of(peak, zev + first + " big.dwx");
        const Cost two = cost_of(peak, zev + next + " big.dwx");
        times[0] += one.ms / 5, times[1] += two.ms / 5;
        ratios.push_back(two.ms / one.ms);
        kib = std::max(kib, two.kib);
    }
    std::ranges::nth_element(ratios, ratios.begin() + 2);
    ratio = ratios[2];
    bench::line(scenario, "zev", "ms", times[1]);
    bench::line(scenario, "first", "ms", times[0]);
    bench::line(scenario, "first", "ratio", ratio);
    bench::line(scenario, "file", "memory-ratio",
                kib * 1024 / static_cast<double>(fs::file_size(next)));
}

} // namespace

int main() {
    const fs::path bin = fs::read_symlink("/proc/self/exe").parent_path();
    const std::string objects = std::to_string(bench::size("ZEV_BENCH_OBJECTS", 100000));
    bench::Scratch scratch;
    const std::string root = scratch.path().string(), zev = bin.string() + "/zev -C " + root;
    const std::string file = root + "/big.dxf";
    auto shell = [](const std::string &command) {
        if (system(command.c_str())) exit(1);
    };
    shell(bin.string() + "/gen_dxf " + file + " " + objects);
    const std::string bytes = read_file(file);
    const dxf::Document document = dxf::split(bytes, file);

    const double ours =
        bench::median([&] { shell(zev + "/copy import " + file + " big.dwx >/dev/null"); },
                      [&] {
                          fs::remove_all(root + "/copy");
                          shell(zev + " init copy >/dev/null");
                      });
    const double theirs = bench::median([&] { bare(document, root + "/bare"); },
                                        [&] { fs::remove_all(root + "/bare"); });
    bench::compare("import", "leveldb", "ms", ours, theirs);

    const auto write = [&](const char *name, const std::string &text) {
        std::ofstream(root + name, std::ios::binary) << text;
        return root + name;
    };
    again("import-again-same", bin, root, file, file);
    shell(bin.string() + "/gen_dxf " + root + "/changed.dxf " + objects + " 500 1 100 1");
    again("import-again-1%", bin, root, file, root + "/changed.dxf");
    again("import-again-rewritten", bin, root, file, write("/rewritten.dxf", rewritten(bytes)));
    again("import-again-renumbered", bin, root, file, write("/new.dxf", renumbered(document)));
    return 0;
}
