// Import of a drawing by the program beside bare LevelDB that writes the same rows in batches of
// 1 MiB, the file read and cut beforehand; sizes by ZEV_BENCH_OBJECTS. gen_dxf and zev stand
// beside this program.
#include "bench.hpp"

#include "common/reader.hpp"
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
    std::ifstream in(file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
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
    return 0;
}
