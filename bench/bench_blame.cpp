// Who changed each object of a drawing, and when was one object changed, over a history of the
// drawing: beside libgit2 reading the versions' blobs and doing nothing with them.
#include "bench.hpp"

#include "dxf/history.hpp"

#include "objects/store/odb.hpp"

#include "zev/zev.h"

using namespace zev;

namespace {

void check(bool good) {
    if (good) return;
    fprintf(stderr, "%s\n", zStrtoutf8(zErrorDetail()));
    exit(1);
}

void put(std::string &out, uint64_t number, int bytes) {
    for (int shift = bytes * 8 - 8; shift >= 0; shift -= 8)
        out += static_cast<char>(number >> shift);
}

void put(std::string &out, const DrawingKey &key) {
    put(out, key.tag, 8);
    put(out, key.object, 8);
}

// A .dwx file as the library writes it.
std::string manifest(const std::vector<DrawingKey> &objects) {
    std::string out("VANE ZEV\0", 9);
    for (const uint64_t number : {uint64_t{1}, uint64_t{1}, uint64_t{0xD2FD1072}, uint64_t{5}})
        put(out, number, 4);
    const uint64_t list = 194, end = list + 4 + objects.size() * 16;
    const std::pair<const char *, uint64_t> sections[] = {{"DWXHEADER", 106},
                                                          {"CLASSES", 190},
                                                          {"OBJECTS", list},
                                                          {"THUMBNAIL", end},
                                                          {"REFERENCE", end + 4}};
    for (const auto &[name, offset] : sections) {
        put(out, strlen(name), 4);
        out += name;
        put(out, offset, 4);
    }
    out += std::string(20, 't');
    for (uint64_t block = 1; block <= 4; ++block) put(out, DrawingKey{1, 0 - block});
    put(out, 0, 4);
    put(out, objects.size(), 4);
    for (const DrawingKey &key : objects) put(out, key);
    return out + std::string(8, '\0');
}

// One commit of the drawing, on top of the branch.
git_oid commit(Repository *repository, const std::string &bytes, git_commit *parent, uint64_t n) {
    git_repository *handle = repository->handle.get();
    git_oid blob, tree, id;
    git_treebuilder *builder = nullptr;
    check(!git_blob_create_from_buffer(&blob, handle, bytes.data(), bytes.size()));
    check(!git_treebuilder_new(&builder, handle, nullptr));
    check(!git_treebuilder_insert(nullptr, builder, "plan.dwx", &blob, GIT_FILEMODE_BLOB));
    check(!git_treebuilder_write(&tree, builder));
    git_treebuilder_free(builder);
    git::Tree made;
    check(!git_tree_lookup(out(made), handle, &tree));
    git_signature *author = nullptr;
    check(!git_signature_new(&author, "Ann", "ann@x", static_cast<git_time_t>(1700000000 + n), 0));
    const git_commit *parents[] = {parent};
    check(!git_commit_create(&id, handle, "HEAD", author, author, nullptr, "change", made.get(),
                             parent ? 1 : 0, parents));
    git_signature_free(author);
    return id;
}

// Each version changes one object in two hundred, adds fifty and takes away twenty.
void import(Repository *repository, uint64_t count, uint64_t versions) {
    bench::Random random(5);
    std::vector<DrawingKey> objects;
    for (uint64_t i = 0; i < count; ++i) objects.push_back({1, 0x100 + i * 2});
    git::Commit parent;
    for (uint64_t n = 1; n <= versions; ++n) {
        const git_oid id = commit(repository, manifest(objects), parent.get(), n);
        check(!git_commit_lookup(out(parent), repository->handle.get(), &id));
        for (uint64_t i = 0; i < count / 200; ++i)
            objects[random.below(objects.size())].tag = n + 1;
        const auto at = [&] {
            return objects.begin() + static_cast<ptrdiff_t>(random.below(objects.size()));
        };
        for (int i = 0; i < 20; ++i) objects.erase(at());
        const auto place = at(); // what was drawn together stands together
        for (uint64_t i = 0; i < 50; ++i)
            objects.insert(place, {n + 1, 0x100 + (count + n * 50 + i) * 2});
    }
}

// The blobs of all versions, and nothing else.
void read_blobs(git_repository *repository) {
    git::Odb odb;
    check(!git_repository_odb(out(odb), repository));
    git_oid id;
    check(!git_reference_name_to_id(&id, repository, "HEAD"));
    for (bool more = true; more;) {
        git::Commit commit;
        git::Tree tree;
        git::OdbObject blob;
        check(!git_commit_lookup(out(commit), repository, &id));
        check(!git_commit_tree(out(tree), commit.get()));
        const git_oid *file = git_tree_entry_id(git_tree_entry_byindex(tree.get(), 0));
        check(!git_odb_read(out(blob), odb.get(), file));
        more = git_commit_parentcount(commit.get()) > 0;
        if (more) id = *git_commit_parent_id(commit.get(), 0);
    }
}

} // namespace

int main() {
    if (!zGlobalInit(nullptr, nullptr)) return 1;
    bench::Scratch scratch;
    const std::u16string path = scratch / u"drawing";
    Owned<Repository, zRepositoryFree> repository(zRepositoryInit(path.c_str(), false));
    check(repository != nullptr);
    const uint64_t objects = bench::size("ZEV_BENCH_OBJECTS", 100000);
    const uint64_t versions = bench::size("ZEV_BENCH_VERSIONS", 200);
    import(repository.get(), objects, versions);
    // Turn about, so that both sides meet the same disturbances.
    const auto rate = [&](const char *scenario, auto work) {
        std::vector<double> ours, theirs;
        for (int run = 0; run < 3; ++run) {
            repository.reset(zRepositoryOpen(path.c_str())); // without libgit2's cache of objects
            ours.push_back(bench::once([&] {
                const Owned<Commit, zCommitFree> head(zCommitByref(repository.get(), u"HEAD"));
                work(head.get());
            }));
            repository.reset(zRepositoryOpen(path.c_str()));
            theirs.push_back(bench::once([&] { read_blobs(repository->handle.get()); }));
        }
        std::ranges::sort(ours);
        std::ranges::sort(theirs);
        bench::compare(scenario, "reading-blobs", "ms", ours[1], theirs[1]);
    };
    rate("blame", [&](const Commit *head) {
        dxf::Blame result;
        dxf::blame(repository.get(), head, "plan.dwx", nullptr, result);
        check(result.versions.size() == versions);
    });
    rate("log-object", [&](const Commit *head) {
        check(dxf::object_events(repository.get(), head, "plan.dwx", 0x100, nullptr,
                                 [](const dxf::ObjectEvent &) { return true; }));
    });
    repository.reset();
    zGlobalCleanup();
    return 0;
}
