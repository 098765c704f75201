// import: a working copy becomes a project. It is made aside, read through by the verification,
// brought to the disk, and gets its own name by one rename: there is the whole project or none.
// Servers and other imports may run meanwhile: the library gives names to one at a time.
#include "aside.hpp"
#include "findings.hpp"
#include "projects.hpp"
#include "service.hpp"
#include "verb.hpp"

#include <algorithm>
#include <cstdio>
#include <filesystem>

namespace host {

namespace fs = std::filesystem;

namespace {

struct Options {
    std::string project, copy;
};

void declare(Command &verb, Options &options) {
    verb.description("Make a project of a working copy with its whole history");
    verb.footer("All branches and tags come along, and the tables of all drawings. What was not\n"
                "committed stays behind. A bare repository will do. The project has no roles yet.\n"
                "Examples:\n  zevd import team/plant ~/plant");
    verb.add_option("project", options.project, "Its name")->type_name("OWNER/NAME")->required();
    verb.add_option("copy", options.copy, "The working copy")->type_name("COPY")->required();
}

// What is found before the work is done; whoever gives the name later is found by the library. A
// name in another spelling would be hidden from those who don't tell cases apart.
void require_free(const fs::path &path, const std::string &name, bool is_owner = false) {
    if (!is_owner) require_free(path.parent_path(), name, true);
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(path.parent_path(), error)) {
        const std::string other = entry.path().filename().string(), own = path.filename().string();
        if (is_owner && other == own) continue;
        if (!zStrcasesameW(wide(other).c_str(), wide(own).c_str())) continue;
        const char *what = is_owner ? "an owner" : "a project";
        throw Failed(kExists, name + ": there is " + what + " \"" + other + "\"");
    }
}

// The Git directory that holds what all work trees of a repository share.
std::string shared_directory(Repository *copy) {
    if (zRepositoryIsBare(copy)) {
        const fs::path git = narrow(check(zRepositoryPath(copy)));
        return (git.has_filename() ? git : git.parent_path()).string();
    }
    const fs::path trash = narrow(check(zRepositoryTrash(copy)));
    return (trash.has_filename() ? trash : trash.parent_path()).parent_path().string();
}

// What HEAD leads to becomes the project's default branch.
Owned<Branch, zBranchFree> branch_of(Repository *copy, const std::string &at) {
    Owned<Branch, zBranchFree> head(zBranchHead(copy));
    if (head) return head;
    if (zErrorClass() != kNotFound) fail_raised(at);
    throw Failed(kOther, at + ": is on no branch, its HEAD is detached; a project begins with a "
                              "branch: switch to one first");
}

// Branches and tags as they are, and the branch of HEAD as the default one.
void copy_references(Repository *copy, Repository *project, const Branch *head) {
    const auto each = [](Reference *reference, void *context) {
        if (!zReferenceIsBranch(reference) && !zReferenceIsTag(reference)) return true;
        auto *to = static_cast<Repository *>(context);
        const zwchar *name = zReferenceName(reference);
        Reference *made = zReferenceType(reference) == 1
                              ? zReferenceCreate(to, name, zReferenceTarget(reference))
                              : zReferenceSymlink(to, name, zReferenceSymbolic(reference));
        zReferenceFree(made);
        return made != nullptr;
    };
    check(zReferenceForeach(copy, each, project), "a reference");
    check(zReferenceSetHead(project, zBranchMerge(head)), "the default branch");
}

// The highest tag of a row, 0 without rows. Keys stand in the order of their tags; behind them
// stands the counter's own, all ones.
uint64_t highest_tag(Table *table) {
    const Owned<TableIter, zTableIterFree> iter(check(zTableIterNew(table), "a table"));
    zTableIterSeekToLast(iter.get());
    for (; !zTableIterDone(iter.get()); zTableIterPrev(iter.get())) {
        const void *key = nullptr;
        uint64_t length = 0, tag = 0;
        check(zTableIterKey(&key, &length, iter.get()), "a table");
        if (length != sizeof(DrawingKey)) continue;
        for (int i = 0; i < 8; ++i) tag = tag << 8 | static_cast<const uint8_t *>(key)[i];
        if (tag != UINT64_MAX) return tag;
    }
    return 0;
}

// Row by row, so that the project's tables hold what can be read and nothing else. The counter goes
// above every row, also where the copy's lags behind or is missing, as in one that was split: what
// is committed from now on gets keys of its own.
void copy_table(Repository *copy, Repository *project, const Oid &id) {
    const OwnedTable from(check(zTableByid(copy, &id), "a table of the copy"));
    const OwnedTable to(check(zTableByid(project, &id), "a table"));
    const OwnedStream rows(check(zTableWriteOut(from.get()), "a table of the copy"));
    check(zTableReadStream(to.get(), rows.get()), "a table");
    const uint64_t tag = std::max(zTableTagGet(to.get()), highest_tag(to.get()));
    check(zTableTagSet(to.get(), tag + 1), "a table");
}

uint64_t copy_tables(Repository *copy, Repository *project) {
    uint64_t count = 0;
    std::error_code none;
    const fs::path tables = fs::path(shared_directory(copy)) / "tables";
    for (const auto &two : fs::directory_iterator(tables, none)) {
        if (!two.is_directory()) continue;
        for (const auto &entry : fs::directory_iterator(two.path())) {
            const std::string text =
                two.path().filename().string() + entry.path().filename().string();
            Oid id;
            if (text.size() != 40 || !zOidFromStr(&id, wide(text).c_str())) continue;
            copy_table(copy, project, id);
            ++count;
        }
    }
    return count;
}

OwnedRepository make_project(const std::string &path, Repository *copy, const Branch *head) {
    OwnedRepository project(check(zRepositoryInit(wide(path).c_str(), true), path));
    const std::string objects = shared_directory(copy) + "/objects", own = path + "/objects";
    fs::remove_all(own); // else the copy would go into it
    check(zCopy(wide(objects).c_str(), wide(own).c_str()), objects);
    project.reset(check(zRepositoryOpenBare(wide(path).c_str()), path));
    copy_references(copy, project.get(), head);
    check(zRepositoryId(project.get(), true), path);
    return project;
}

int run(const std::string &file, const Options &options) {
    const Config config(file);
    config.require_sound();
    use_data(config);
    const std::string &name = options.project;
    const std::string path = project_path(config, name);
    require_free(path, name);
    const std::string at = fs::absolute(options.copy).lexically_normal().string();
    const OwnedRepository copy(check(zRepositoryDiscover(wide(at).c_str(), nullptr), at));
    const auto head = branch_of(copy.get(), at);

    const Aside aside(config.repos());
    OwnedRepository project = make_project(aside.project(), copy.get(), head.get());
    const uint64_t tables = copy_tables(copy.get(), project.get());
    const VerifyCounts counts = verify_project(project.get(), name, false);
    if (counts.damages)
        throw Failed(kOther, at + ": is damaged; nothing was imported (\"zev verify\" tells more)");
    project.reset();

    const size_t slash = name.find('/');
    const bool given =
        zServerAdopt(wide(config.repos()).c_str(), wide(aside.project()).c_str(),
                     wide(name.substr(0, slash)).c_str(), wide(name.substr(slash + 1)).c_str());
    check(given, name);
    printf("%s: %llu commits, %llu tables of drawings\n", name.c_str(),
           static_cast<unsigned long long>(counts.commits),
           static_cast<unsigned long long>(tables));
    return kDone;
}

} // namespace

extern const Verb kImportVerb{"import", bind<Options, declare, run>};

} // namespace host
