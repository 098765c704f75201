// The picture of a diff of a drawing of 100,000 objects, of which one in a hundred changed, beside
// the picture of the drawing, by the program; and the memory that it takes beside the size of the
// file. ZEV_BENCH_OBJECTS is the drawing's size. gen_dxf, peak and zev stand beside this program.
#include "bench.hpp"

namespace {

namespace fs = std::filesystem;

void shell(const std::string &command) {
    if (system(command.c_str())) exit(1);
}

struct Run {
    double milliseconds = 0, kibibytes = 0;
};

// By peak, which prints both.
Run measured(const std::string &command) {
    const bench::File pipe(popen(command.c_str(), "r"), pclose);
    Run run;
    if (!pipe || fscanf(pipe.get(), "%lf %lf", &run.milliseconds, &run.kibibytes) != 2) exit(1);
    return run;
}

} // namespace

int main() {
    const std::string bin = fs::read_symlink("/proc/self/exe").parent_path().string();
    const std::string objects = std::to_string(bench::size("ZEV_BENCH_OBJECTS", 100000));
    bench::Scratch scratch;
    const std::string root = scratch.path().string(), file = root + "/big.dxf";
    const std::string zev = bin + "/zev -C " + root + "/copy";
    setenv("ZEV_AUTHOR", "bench", 1);
    shell(bin + "/zev init " + root + "/copy >/dev/null");
    shell(bin + "/gen_dxf " + file + " " + objects);
    shell(zev + " import " + file + " big.dwx >/dev/null");
    shell("(" + zev + " add . && " + zev + " commit -m one) >/dev/null");
    shell(bin + "/gen_dxf " + file + " " + objects + " 500 1 100"); // one in a hundred
    shell(zev + " import " + file + " big.dwx >/dev/null");

    const std::string peak = bin + "/peak " + zev, out = root + "/picture.svg";
    double most = 0;
    bench::by_turns(
        "diff-picture", "view",
        [&] {
            fs::remove(out);
            const Run run = measured(peak + " diff big.dwx --svg " + out);
            most = std::max(most, run.kibibytes);
            return run.milliseconds;
        },
        [&] {
            fs::remove(out);
            return measured(peak + " view big.dwx -o " + out).milliseconds;
        });
    const double size = static_cast<double>(fs::file_size(file)) / 1024;
    bench::compare("diff-picture-memory", "file", "KiB", most, size);
    return 0;
}
