// Lock, save and unlock of an index of 3 MB, beside a plain copy of the file.
#include "bench.hpp"

#include "zev/zev.h"

#include <fcntl.h>
#include <fstream>
#include <unistd.h>

int main() {
    const uint64_t bytes = bench::size("ZEV_BENCH_INDEX", 3000000);
    if (!zGlobalInit(nullptr, nullptr)) return 1;
    bench::Scratch scratch;
    std::string content(bytes, 'x'), from = (scratch.path() / "index").string(),
                                     to = from + "-copy";
    std::ofstream(from) << content;
    std::u16string path = scratch / u"index";
    auto copy = [&](bool sync) {
        int in = open(from.c_str(), O_RDONLY),
            target = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        static char block[1 << 16];
        for (ssize_t n; (n = read(in, block, sizeof block)) > 0;)
            if (write(target, block, static_cast<size_t>(n)) != n) exit(2);
        if (sync) fdatasync(target);
        close(in), close(target), unlink(to.c_str());
    };
    double ours = bench::median([&] { zFlockClose(zFlockOpen(path.c_str(), true)); }, 15);
    bench::compare("lock-save-unlock", "copy-synced", "ms", ours,
                   bench::median([&] { copy(true); }, 15));
    bench::compare("lock-save-unlock", "copy", "ms", ours, bench::median([&] { copy(false); }, 15));
    zGlobalCleanup();
    return 0;
}
