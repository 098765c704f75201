// The list of updates of a copy that knows the server's state, beside reading the file that keeps
// it; nobody is asked. bench/remote.sh makes the copy.
//   bench_updates COPY
#include "bench.hpp"

#include "zev/zev.h"

#include <filesystem>

namespace {

constexpr int kRuns = 9;

void need(const void *made) {
    if (made) return;
    fprintf(stderr, "bench_updates: no list\n");
    exit(1);
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 2 || !zGlobalInit(nullptr, nullptr)) return 2;
    const std::filesystem::path place = std::filesystem::absolute(argv[1]);
    Repository *repository = zRepositoryOpen(place.u16string().c_str());
    Remote *remote = repository ? zRemoteOpen(repository) : nullptr;
    need(remote);
    const std::u16string file = (place / ".git/tmp/updates.json").u16string();
    uint64_t count = 0;
    const auto list = [&] {
        DiffList *updates = zRemoteListUpdates(remote, nullptr, false);
        need(updates);
        count = zDiffListLength(updates);
        zDiffListFree(updates);
    };
    const auto read = [&] {
        Json *tree = zJsonReadFile(file.c_str());
        need(tree);
        zJsonFree(tree);
    };
    list(); // makes the file where there is none
    bench::by_turns(
        "remote-updates-kept", "reading", [&] { return bench::once(list); },
        [&] { return bench::once(read); }, kRuns);
    bench::line("remote-updates-kept", "zev", "entries", static_cast<double>(count));
    zRemoteFree(remote);
    zRepositoryFree(repository);
    zGlobalCleanup();
    return 0;
}
