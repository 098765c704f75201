// Pictures by the program: of a sheet of 13,851 objects as SVG beside ezdxf's drawing add-on, which
// a Python with ezdxf and matplotlib runs, and the memory that a large drawing's takes, as shares
// of its file. ZEV_BENCH_SHEET names a sheet of one's own, ZEV_BENCH_OBJECTS the size of the large
// one. gen_dxf, peak and zev stand beside this program.
#include "bench.hpp"

#include <fstream>

namespace {

namespace fs = std::filesystem;

constexpr char kAddOn[] = R"(
import sys, time
import ezdxf, matplotlib
from ezdxf.addons.drawing import Frontend, RenderContext
from ezdxf.addons.drawing.matplotlib import MatplotlibBackend
matplotlib.use("Agg")
import matplotlib.pyplot as plt
start = time.perf_counter()
document = ezdxf.readfile(sys.argv[1])
figure = plt.figure()
axes = figure.add_axes([0, 0, 1, 1])
Frontend(RenderContext(document), MatplotlibBackend(axes)).draw_layout(document.modelspace())
figure.savefig(sys.argv[2])
print((time.perf_counter() - start) * 1e3)
)";

void shell(const std::string &command) {
    if (system(command.c_str())) exit(1);
}

// The last number of what a command prints.
double number(const std::string &command, const char *format) {
    const bench::File pipe(popen(command.c_str(), "r"), pclose);
    double value = 0;
    if (!pipe || fscanf(pipe.get(), format, &value) != 1) {
        fprintf(stderr, "bench_picture: no figure comes from %s\n", command.c_str());
        exit(1);
    }
    return value;
}

// A Python that has both; empty where none does.
std::string python() {
    const char *given = getenv("ZEV_BENCH_PYTHON");
    for (const std::string program : {given ? given : "python3", "/usr/bin/python3"})
        if (!system((program + " -c 'import ezdxf, matplotlib' 2>/dev/null").c_str()))
            return program;
    return {};
}

// What is timed of the peer is its work alone, without the start of its interpreter.
void compare_sheet(const std::string &root, const std::string &bin, const std::string &sheet) {
    const std::string program = python();
    if (program.empty()) {
        fputs("bench_picture: no Python with ezdxf and matplotlib, so no peer\n", stderr);
        return;
    }
    std::ofstream(root + "/addon.py") << kAddOn;
    const std::string ours = bin + "/peak " + bin + "/zev view " + sheet + " --force -o " + root +
                             "/ours.svg",
                      theirs = program + " " + root + "/addon.py " + sheet + " " + root +
                               "/theirs.svg 2>/dev/null";
    bench::by_turns(
        "picture-sheet", "ezdxf", [&] { return number(ours, "%lf"); },
        [&] { return number(theirs, "%lf"); }, 1); // a minute long
    fs::remove(root + "/ours.svg");
}

void measure_memory(const std::string &root, const std::string &bin, const std::string &objects) {
    const std::string file = root + "/big.dxf", zev = bin + "/zev -C " + root;
    shell(bin + "/gen_dxf " + file + " " + objects);
    shell(zev + " init copy >/dev/null && " + zev + "/copy import " + file + " big.dwx >/dev/null");
    const double kibibytes = number(bin + "/peak " + bin + "/zev -C " + root +
                                        "/copy view big.dwx -o " + root + "/big.svg",
                                    "%*f %lf");
    const double size = static_cast<double>(fs::file_size(file)) / 1024;
    bench::compare("picture-memory", "file", "KiB", kibibytes, size);
}

} // namespace

int main() {
    const std::string bin = fs::read_symlink("/proc/self/exe").parent_path().string();
    const std::string objects = std::to_string(bench::size("ZEV_BENCH_OBJECTS", 100000));
    bench::Scratch scratch;
    const std::string root = scratch.path().string();
    const char *given = getenv("ZEV_BENCH_SHEET");
    const std::string sheet = given ? given : root + "/sheet.dxf";
    if (!given) shell(bin + "/gen_dxf " + sheet + " 13851");
    compare_sheet(root, bin, sheet);
    measure_memory(root, bin, objects);
    return 0;
}
