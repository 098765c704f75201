// Merge of two versions of a drawing, 1 % changed on each side, by a process of its own beside the
// program that shows the difference of one of them to the base; the memory that it takes beside the
// size of the file. Sizes by ZEV_BENCH_OBJECTS. gen_dxf and zev stand beside this program.
#include "bench.hpp"

#include "dxf/drawing.hpp"
#include "dxf/merge.hpp"
#include "dxf/reader.hpp"

#include <fstream>
#include <iterator>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

std::string load(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The file with other coordinates in one of each hundred entities.
void change(const fs::path &from, const fs::path &to, size_t which) {
    const std::string bytes = load(from);
    std::ofstream out(to, std::ios::binary);
    size_t number = 0;
    for (const dxf::Part &part : dxf::split(bytes, from.string()).parts) {
        std::string record(part.bytes);
        const size_t x = record.find("\n 10\n");
        if (part.kind == dxf::Kind::object && x != record.npos && number++ % 100 == which)
            record.insert(x + 5, "1");
        out << record;
    }
}

fs::path drawing(const fs::path &root) { return root / "copy/big.dwx"; }

void import(const fs::path &root, const char *file, const char *kept) {
    const host::OwnedRepository repository(zRepositoryOpen((root / "copy").u16string().c_str()));
    dxf::import_drawing({repository.get(), (root / file).u16string(), file,
                         drawing(root).u16string(), "big.dwx", nullptr, zNotifyNull()});
    fs::copy_file(drawing(root), root / kept);
}

// What the child process does.
int merge(const fs::path &root) {
    const std::string bytes[] = {load(root / "base.dwx"), load(root / "ours.dwx"),
                                 load(root / "theirs.dwx")};
    std::optional<dxf::Manifest> versions[3];
    for (size_t v = 0; v < 3; ++v) versions[v] = dxf::Manifest::read(bytes[v]);
    const host::OwnedRepository repository(zRepositoryOpen((root / "copy").u16string().c_str()));
    const dxf::MergeRequest request{repository.get(), &*versions[0], &*versions[1],
                                    &*versions[2],    "big.dwx",     zNotifyNull()};
    const dxf::Merge merge = dxf::merge_drawings(request);
    if (!merge.conflicts.empty() || !merge.modified) return 1;
    dxf::write_merge(request, merge, {drawing(root).u16string(), "big.dwx"});
    return 0;
}

struct Cost {
    double milliseconds, megabytes;
};

Cost run(const std::vector<std::string> &command) {
    std::vector<char *> arguments;
    for (const std::string &word : command) arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    Cost cost{};
    cost.milliseconds = bench::once([&] {
        const pid_t child = fork();
        if (!child) {
            if (!freopen("/dev/null", "w", stdout)) _exit(127);
            execv(arguments[0], arguments.data());
            _exit(127);
        }
        int status = 0;
        rusage used{};
        if (wait4(child, &status, 0, &used) != child || status) exit(1);
        cost.megabytes = static_cast<double>(used.ru_maxrss) / 1024;
    });
    return cost;
}

int measure(const fs::path &self) {
    const fs::path bin = self.parent_path();
    bench::Scratch scratch;
    const fs::path root = scratch.path();
    const std::string zev = (bin / "zev").string(), copy = (root / "copy").string();
    const std::string count = std::to_string(bench::size("ZEV_BENCH_OBJECTS", 100000));
    run({(bin / "gen_dxf").string(), (root / "base.dxf").string(), count});
    change(root / "base.dxf", root / "ours.dxf", 3);
    change(root / "base.dxf", root / "theirs.dxf", 7);
    run({zev, "init", copy});
    import(root, "base.dxf", "base.dwx");
    run({zev, "-C", copy, "add", "."});
    run({zev, "-C", copy, "commit", "-m", "base"});
    import(root, "theirs.dxf", "theirs.dwx");
    fs::copy_file(root / "base.dwx", drawing(root), fs::copy_options::overwrite_existing);
    import(root, "ours.dxf", "ours.dwx");
    double memory = 0;
    const auto put_back = [&] {
        fs::copy_file(root / "ours.dwx", drawing(root), fs::copy_options::overwrite_existing);
    };
    const auto merging = [&] {
        put_back();
        const Cost cost = run({self.string(), "merge", root.string()});
        memory = std::max(memory, cost.megabytes);
        return cost.milliseconds;
    };
    const auto diff = [&] {
        put_back();
        return run({zev, "-C", copy, "diff", "big.dwx"}).milliseconds;
    };
    bench::by_turns("merge-drawing", "diff", merging, diff, 9);
    const double size = static_cast<double>(fs::file_size(root / "base.dxf")) / (1 << 20);
    bench::compare("merge-drawing-memory", "file", "MiB", memory, size);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    if (!zGlobalInit(nullptr, nullptr)) return 1;
    try {
        const int failed = argc == 3 ? merge(argv[2]) : measure(fs::read_symlink("/proc/self/exe"));
        zGlobalCleanup();
        return failed;
    } catch (const host::Failed &failed) {
        fprintf(stderr, "%s\n", failed.what());
        return 1;
    }
}
