// The bytes of a pack, given to a writer in pieces: of one that is refused nothing stays, the
// objects of the others are readable. The first byte is the pieces' size; with its top bit the
// digest at the end is made right, so that the objects before it are looked at.
#include "common/sha1.hpp"
#include "objects/store/odb.hpp"
#include "zev/error.h"
#include "zev/pack.h"
#include "zev/repository.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

// libgit2 1.5 forgets an object that a pack holds twice, once as a delta.
extern "C" const char *__lsan_default_suppressions() { return "leak:libgit2\n"; }

namespace {

namespace fs = std::filesystem;
using namespace zev;

// One for the whole run, as long as nothing gets in.
struct Place {
    fs::path path, store;
    Owned<Repository, zRepositoryFree> repository;

    Place() {
        char name[] = "/tmp/fuzz_pack_XXXXXX";
        if (!zGlobalInit(nullptr, nullptr) || !mkdtemp(name)) abort();
        path = name;
        store = path / "objects/pack";
        make();
    }
    ~Place() {
        repository.reset();
        fs::remove_all(path);
    }
    void make() {
        repository.reset();
        for (auto &entry : fs::directory_iterator(path)) fs::remove_all(entry.path());
        repository.reset(zRepositoryInit(path.u16string().c_str(), true));
        if (!repository) abort();
    }
};

int on_object(const git_oid *id, void *context) {
    git::OdbObject object;
    return git_odb_read(out(object), static_cast<git_odb *>(context), id);
}

bool take(Repository *repository, const std::string &pack, size_t step) {
    const Owned<PackWriter, zPackWriterFree> writer(zPackWriterNew(repository));
    if (!writer) abort();
    for (size_t at = 0; at < pack.size(); at += step)
        if (!zPackWriterAppend(writer.get(), pack.data() + at, std::min(step, pack.size() - at)))
            return false;
    return zPackWriterCommit(writer.get());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static Place place;
    if (!size) return 0;
    std::string pack(reinterpret_cast<const char *>(data) + 1, size - 1);
    if (data[0] & 0x80) {
        uint8_t digest[20];
        sha1(pack.data(), pack.size(), digest);
        pack.append(reinterpret_cast<char *>(digest), sizeof digest);
    }
    const size_t step = (data[0] & 0x7F) ? data[0] & 0x7F : pack.size();
    const bool taken = take(place.repository.get(), pack, step);
    if (!taken && fs::directory_iterator(place.store) != fs::directory_iterator()) abort();
    if (!taken) return 0;
    git::Odb odb;
    if (git_repository_odb(out(odb), place.repository->handle.get()) < 0) abort();
    if (git_odb_foreach(odb.get(), on_object, odb.get()) < 0) abort();
    odb.reset();
    place.make();
    return 0;
}
