// Every fuzz target over its own seeds, whole and cut short, built as the tests are: a change that
// breaks a target, or lets an old finding come back, shows without the fuzzer's compiler.
//
//   replay SEEDS [NAME]
// Each target has a process of its own, as it has when it fuzzes. Exits with 1 if one of them died.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

// The build gives each target's entry its file's name, and lists them.
#define TARGET(name) extern "C" int name(const uint8_t *data, size_t size);
#include "targets.inc"
#undef TARGET

namespace {

struct Target {
    const char *name;
    int (*run)(const uint8_t *data, size_t size);
};

constexpr Target kTargets[] = {
#define TARGET(name) {#name, name},
#include "targets.inc"
#undef TARGET
};

std::vector<uint8_t> read(const fs::path &file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// A copy of its own of just that size, so that a byte read behind it is one too far.
void run(const Target &target, const std::vector<uint8_t> &seed, size_t size) {
    const std::vector<uint8_t> bytes(seed.begin(), seed.begin() + static_cast<ptrdiff_t>(size));
    target.run(bytes.data(), size);
}

int replay(const Target &target, const fs::path &seeds) {
    int count = 0;
    for (const auto &file : fs::directory_iterator(seeds)) {
        const std::vector<uint8_t> seed = read(file);
        for (const size_t size : {seed.size(), seed.size() - seed.size() / 3, seed.size() / 2})
            run(target, seed, size);
        ++count;
    }
    run(target, {}, 0);
    return count;
}

// Exits as a process does, so that what the target keeps is taken down, too.
bool outlives(const Target &target, const fs::path &seeds) {
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) exit(replay(target, seeds) > 0 ? 0 : 2);
    int status = 0;
    waitpid(child, &status, 0);
    if (status)
        printf("%s: %s %d\n", target.name, WIFSIGNALED(status) ? "signal" : "exit",
               WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status));
    return status == 0;
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 2) return fprintf(stderr, "usage: replay SEEDS [NAME]\n"), 2;
    const size_t prefix = strlen("fuzz_");
    bool all = true;
    for (const Target &target : kTargets)
        if (argc < 3 || strcmp(argv[2], target.name + prefix) == 0)
            all = outlives(target, fs::path(argv[1]) / (target.name + prefix)) && all;
    return all ? 0 : 1;
}
