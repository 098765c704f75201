// Status of a clean working copy with the repository open, beside libgit2's own; and again after
// every time stamp has changed, as a restore does: the first status looks, the second must not.
#include "bench.hpp"

#include "zev/zev.h"

#include <fstream>
#include <git2.h>
#include <memory>

namespace {

namespace fs = std::filesystem;

void fill(const fs::path &root, uint64_t files) {
    bench::Random random(7);
    for (uint64_t n = 0; n < files; ++n) {
        fs::path dir = root / ("d" + std::to_string(n / 100));
        fs::create_directories(dir);
        std::ofstream file(dir / ("f" + std::to_string(n) + ".txt"));
        for (int k = 0; k < 250; ++k) file << random.next() % 9000000 + 1000000;
    }
}

uint64_t ours(Repository *repository, bool lock) {
    auto index =
        std::unique_ptr<Index, void (*)(Index *)>(zIndexHead(repository, lock), zIndexFree);
    auto list = std::unique_ptr<StatusList, void (*)(StatusList *)>(
        zStatusListBuild(index.get(), nullptr), zStatusListFree);
    if (!list) exit(2);
    return zStatusListLength(list.get());
}

uint64_t bare(git_repository *repository) {
    git_status_options options = GIT_STATUS_OPTIONS_INIT;
    options.flags = GIT_STATUS_OPT_INCLUDE_UNTRACKED | GIT_STATUS_OPT_RECURSE_UNTRACKED_DIRS |
                    GIT_STATUS_OPT_INCLUDE_IGNORED | GIT_STATUS_OPT_RECURSE_IGNORED_DIRS |
                    GIT_STATUS_OPT_INCLUDE_UNMODIFIED | GIT_STATUS_OPT_RENAMES_HEAD_TO_INDEX;
    git_status_list *list = nullptr;
    if (git_status_list_new(&list, repository, &options) < 0) exit(3);
    uint64_t count = git_status_list_entrycount(list);
    git_status_list_free(list);
    return count;
}

void touch(const fs::path &root) {
    auto time = fs::file_time_type::clock::now() - std::chrono::hours(5);
    for (const auto &entry : fs::recursive_directory_iterator(root))
        if (entry.is_regular_file() && entry.path().string().find("/.git/") == std::string::npos)
            fs::last_write_time(entry.path(), time);
}

} // namespace

int main() {
    const uint64_t files = bench::size("ZEV_BENCH_FILES", 10000);
    if (!zGlobalInit(nullptr, nullptr)) return 1;
    bench::Scratch scratch;
    fill(scratch.path(), files);
    std::string make = "cd " + scratch.path().string() +
                       " && git init -q -b master && git add . && git -c user.name=b -c "
                       "user.email=b commit -qm all && sleep 1.1 && git status >/dev/null";
    if (system(make.c_str())) return 1;
    Repository *repository = zRepositoryOpen(scratch.path().u16string().c_str());
    git_repository *handle = nullptr;
    if (!repository || git_repository_open(&handle, scratch.path().c_str()) < 0) return 1;

    bench::compare("status-clean", "libgit2", "ms",
                   bench::median([&] { ours(repository, false); }, 9),
                   bench::median([&] { bare(handle); }, 9));
    const double clean = bench::median([&] { ours(repository, true); }, 9);
    touch(scratch.path());
    bench::line("status-restored-first", "zev", "ms", bench::once([&] { ours(repository, true); }));
    bench::compare("status-restored-second", "zev-clean", "ms",
                   bench::median([&] { ours(repository, true); }, 5), clean);
    bench::line("status-restored-second", "libgit2", "ms", bench::median([&] { bare(handle); }, 3));
    git_repository_free(handle);
    zRepositoryFree(repository);
    zGlobalCleanup();
    return 0;
}
