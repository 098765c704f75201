// Trees: a listing with the caller's rights in the modes of its files, and a new tree of a base and
// a list of changes, which is all or nothing.
#include "common/fold.hpp"
#include "common/pathname.hpp"
#include "network/rest/operations.hpp"
#include "network/rest/repos/content.hpp"
#include "objects/store/object.hpp"
#include "objects/store/odb.hpp"
#include "objects/store/tree_extent.hpp"
#include "objects/work/gitkeep.hpp"
#include "objects/work/treebuilder.hpp"
#include "rms/privilege.hpp"
#include "zev/object.h"
#include "zev/odb.h"
#include "zev/str.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

namespace zev::rest {

namespace {

constexpr uint32_t kMayRead = 0x100, kMayWrite = 0x80; // bits of a file's mode

// Its `data` in every answer; null when there is no memory or no room for the URL.
Tree tree_record(const Call &call, const ::Tree *tree) {
    const std::u16string id = id_text(*zTreeId(tree));
    return with_id(project_record(call, u"tree", {u"trees", id.c_str()}), *zTreeId(tree));
}

// ---- The listing

// Sizes of objects by their headers. A miss makes libgit2 look for new packs: once is enough.
class Sizes {
  public:
    explicit Sizes(git_odb *odb) : odb_(odb) {}

    int64_t of(const git_oid *id) { // 0 for what is not there
        if (missed_ && !is_stored(odb_, id)) return 0;
        size_t size = 0;
        git_object_t type;
        if (!git_odb_read_header(&size, &type, odb_, id)) return static_cast<int64_t>(size);
        git_error_clear();
        missed_ = true;
        return 0;
    }

  private:
    git_odb *odb_;
    bool missed_ = false;
};

struct Listing {
    Call &call;
    Sizes sizes;
    Json *entries;
    bool recursive = true;
    std::optional<int32_t> type{};
    std::string directory{}; // of the last entry, with a slash at its end, and in wide text
    std::u16string path{};

    void read_query();
    int visit(const char *root, const git_tree_entry *entry);
    bool add(const git_tree_entry *entry, git_object_t kind);
    uint32_t mode_of(const git_tree_entry *entry, git_object_t kind, const std::u16string &name);

    static int step(const char *root, const git_tree_entry *entry, void *self) try {
        return static_cast<Listing *>(self)->visit(root, entry);
    } catch (...) {
        return fail_thrown(), GIT_ERROR;
    }
};

void Listing::read_query() {
    const zwchar *levels = capture(call, u"recursive"), *only = capture(call, u"otype");
    recursive = !levels || !(zStrsameW(levels, u"0") || zStrcasesameW(levels, u"false"));
    if (only) type = zOTypeId(only);
}

// A directory's path is converted once for all its entries.
int Listing::visit(const char *root, const git_tree_entry *entry) {
    if (directory != root) {
        directory = root;
        path = to_wide(directory);
    }
    const git_object_t kind = git_tree_entry_type(entry);
    if ((!type || *type == kind) && !add(entry, kind)) return GIT_EUSER;
    return !recursive && kind == GIT_OBJECT_TREE ? 1 : 0; // 1 leaves out what is below
}

// Members in the order in which they will stand.
bool Listing::add(const git_tree_entry *entry, git_object_t kind) {
    const git_oid *id = git_tree_entry_id(entry);
    const std::u16string name = to_wide(git_tree_entry_name(entry));
    const int64_t size = kind == GIT_OBJECT_COMMIT ? 0 : sizes.of(id); // another repository's
    return push(entries,
                Tree(zJsonNewObject(u"id", zJsonNewId(git::oid(id)), u"mode",
                                    zJsonNewInt(mode_of(entry, kind, name)), u"name",
                                    zJsonNewString(name.c_str()), u"path",
                                    zJsonNewString(path.c_str()), u"size", zJsonNewInt(size),
                                    u"type", zJsonNewString(zOTypeName(kind)), nullptr)));
}

// The files that keep directories alive are everybody's.
uint32_t Listing::mode_of(const git_tree_entry *entry, git_object_t kind,
                          const std::u16string &name) {
    const uint32_t mode = git_tree_entry_filemode(entry);
    if (kind != GIT_OBJECT_BLOB || zStrcasesameW(name.c_str(), kKeepFileWide.data())) return mode;
    const int32_t bits = rights(call).at(path + name);
    if (!(bits & Z_PRIVILEGE_READ)) return mode & ~(kMayRead | kMayWrite);
    return bits & Z_PRIVILEGE_WRITE ? mode : mode & ~kMayWrite;
}

// ---- A new tree

// What of a list of places the caller may not write: each once, whatever its case.
class Denied {
  public:
    explicit Denied(Privileges &rights) : rights_(rights) {}

    bool ask(std::u16string_view place) { // false without memory
        if (asked_ && place == last_) return true;
        asked_ = true, last_ = place;
        if (rights_.at(place) & Z_PRIVILEGE_WRITE) return true;
        if (!told_.insert(folded(place)).second) return true;
        Tree node(zJsonNewObject(u"path", zJsonNewString(last_.c_str()), nullptr));
        return list_ && push(list_.get(), std::move(node));
    }
    bool any() const { return !told_.empty(); }
    HttpResponse *answer();

  private:
    static std::u16string folded(std::u16string_view place) {
        std::u16string key(place);
        for (char16_t &unit : key) unit = fold(unit);
        return key;
    }

    Privileges &rights_;
    Tree list_{zJsonNew(Z_JSON_ARRAY)};
    std::unordered_set<std::u16string> told_;
    std::u16string last_;
    bool asked_ = false;
};

HttpResponse *Denied::answer() {
    Tree whole(zJsonNewPath(u"error", list_.get()));
    if (whole) static_cast<void>(list_.release());
    return rest::answer(401, std::move(whole));
}

// A text of a change; null where there is none.
const zwchar *text_of(const Json *change, const zwchar *member) {
    const Json *node = zJsonIsObject(change) ? zJsonObjectAt(change, member) : nullptr;
    return node && zJsonIsString(node) ? zJsonGetString(node) : nullptr;
}

struct NewTree {
    Call &call;
    Tree body{};
    Json *entries = nullptr;
    uint64_t count = 0;
    TreePtr base{};
    Owned<TreeBuilder, zTreeBuilderFree> builder{};
    std::string directory{}; // above the last path that entered, which holds files since then

    HttpResponse *read();
    HttpResponse *start();
    HttpResponse *check_rights();
    HttpResponse *remove_paths();
    HttpResponse *insert_paths();
    bool remove(const zwchar *path);
    bool insert(const zwchar *path, const Oid &id, const zwchar *kind);
    bool has_room(const std::string &path);
};

HttpResponse *NewTree::read() {
    if (HttpResponse *refusal = read_json(call, body)) return refusal;
    const Json *query = zJsonIsObject(body.get()) ? zJsonObjectAt(body.get(), u"query") : nullptr;
    if (!query || !zJsonIsObject(query))
        return refuse(call, 400, u"srv.eFiledRequired_s", u"query");
    Json *list = zJsonObjectAt(query, u"entries");
    if (list && zJsonIsArray(list)) entries = list, count = zJsonArraySize(list);
    return nullptr;
}

HttpResponse *NewTree::start() {
    Repository *repository = call.repository.get();
    const Json *told = zJsonPathGet(body.get(), u"query.base");
    if (told && !zJsonIsNull(told)) {
        const zwchar *text = zJsonIsString(told) ? zJsonGetString(told) : nullptr;
        Oid id;
        if (!parse_id(&id, text)) return refuse(call, 400, u"srv.eFieldInvalid_s", u"base");
        base.reset(zTreeByid(repository, &id));
        if (!base) return refuse_absent(call, {400, u"srv.eNoSuchTree_s", text});
    }
    const bool usable =
        !base || has_bounded_extent(repository->handle.get(), git_tree_id(base->handle.get()));
    if (usable) builder.reset(zTreeBuilderNew(repository, base.get()));
    if (!builder) return refuse(call, 500, u"srv.eAccessProject");
    if (!entries) return refuse(call, 400, u"srv.eFieldInvalid_s", u"entries");
    return nullptr;
}

// Those of the directories; where rights are required those of the paths, too.
HttpResponse *NewTree::check_rights() {
    Privileges &granted = rights(call);
    if (granted.has_failed()) return refuse(call, 500, u"srv.eInternalError");
    Denied directories(granted), paths(granted);
    bool done = true;
    for (uint64_t i = 0; done && i < count; ++i) {
        const zwchar *text = text_of(zJsonArrayAt(entries, i), u"path");
        if (!text) continue;
        std::u16string path = text;
        std::ranges::replace(path, u'\\', u'/');
        const size_t slash = path.rfind(u'/');
        done = directories.ask(std::u16string_view(path).substr(0, slash)) &&
               (!call.guarded || paths.ask(path));
    }
    if (!done) return refuse(call, 500, u"srv.eInternalError");
    if (directories.any()) return directories.answer();
    return paths.any() ? paths.answer() : nullptr;
}

// Removing what isn't there succeeds.
bool NewTree::remove(const zwchar *path) {
    return check_path(to_utf8(path)) && zTreeBuilderRemove(builder.get(), path);
}

HttpResponse *NewTree::remove_paths() {
    for (uint64_t i = 0; i < count; ++i) {
        const Json *change = zJsonArrayAt(entries, i);
        const zwchar *oper = text_of(change, u"oper"), *path = text_of(change, u"path");
        if (!oper || !path) return refuse_entry(call, i);
        if (zStrsameW(oper, u"delete") && !remove(path)) return refuse_entry(call, i);
    }
    return nullptr;
}

// A file takes no directory's place, nor the other way round, unless that was deleted.
bool NewTree::has_room(const std::string &path) {
    git_index *index = builder->index->handle.get();
    size_t at;
    if (!git_index_find_prefix(&at, index, (path + "/").c_str())) return raise_exists(path);
    const size_t slash = path.rfind('/');
    if (slash == path.npos || directory == std::string_view(path).substr(0, slash)) return true;
    std::string above = path.substr(0, slash);
    for (size_t end = 0; end != above.npos;) {
        end = above.find('/', end + 1);
        if (git_index_get_bypath(index, above.substr(0, end).c_str(), 0)) return raise_exists(path);
    }
    directory = std::move(above);
    return true;
}

// The member `kind` alone makes a link or a file to run. A client that has only modes tells those
// of its own disk, where any file may have the bit.
git_filemode_t kept_mode(const zwchar *kind) {
    if (!kind) return GIT_FILEMODE_BLOB;
    if (zStrsameW(kind, u"link")) return GIT_FILEMODE_LINK;
    return zStrsameW(kind, u"program") ? GIT_FILEMODE_BLOB_EXECUTABLE : GIT_FILEMODE_BLOB;
}

bool NewTree::insert(const zwchar *path, const Oid &id, const zwchar *kind) {
    const std::string name = to_utf8(path);
    if (!copy_can_hold(name)) return raise_args(path); // nor is one deeper than path_depth
    return check_path(name) && has_room(name) &&
           builder_insert(builder.get(), name, *git::oid(&id), kept_mode(kind));
}

HttpResponse *NewTree::insert_paths() {
    for (uint64_t i = 0; i < count; ++i) {
        const Json *change = zJsonArrayAt(entries, i);
        const zwchar *oper = text_of(change, u"oper"), *path = text_of(change, u"path");
        const zwchar *text = text_of(change, u"id");
        const Json *mode = zJsonIsObject(change) ? zJsonObjectAt(change, u"mode") : nullptr;
        if (!oper || !text || !path || !mode || !zJsonGetInt(mode)) return refuse_entry(call, i);
        Oid id;
        if (!parse_id(&id, text)) return refuse(call, 400, u"srv.eFieldInvalid_s", text);
        if (zStrsameW(oper, u"delete")) continue;
        const bool enters = zStrsameW(oper, u"add") || zStrsameW(oper, u"modify");
        if (!enters || !insert(path, id, text_of(change, u"kind"))) return refuse_entry(call, i);
    }
    return nullptr;
}

} // namespace

HttpResponse *list_tree(Call &call) {
    if (HttpResponse *refusal = open_project(call)) return refusal;
    const zwchar *text = capture(call, u":other");
    Oid id;
    if (!parse_id(&id, text)) return refuse(call, 404, u"srv.eFieldInvalid_s", u"id");
    const TreePtr tree(zTreeByid(call.repository.get(), &id));
    if (!tree) return refuse_absent(call, {404, u"srv.eNoSuchTree_s", text});
    const Owned<Odb, zOdbFree> odb(zOdbOpen(call.repository.get()));
    if (!odb) return refuse(call, 500, u"srv.eAccessProject");
    if (rights(call).has_failed()) return refuse(call, 500, u"srv.eInternalError");
    Listing listing{call, Sizes(odb->handle.get()), nullptr};
    listing.read_query();
    Tree record = tree_record(call, tree.get());
    const int64_t size = listing.sizes.of(git_tree_id(tree->handle.get()));
    Tree entries(zJsonNew(Z_JSON_ARRAY));
    if (!record || !zJsonPathSetLarge(record.get(), u"size", size) || !entries ||
        !zJsonObjectPut(record.get(), u"entries", entries.get()))
        return refuse(call, 500, u"srv.eInternalError");
    listing.entries = entries.release();
    const git_tree *root = tree->handle.get();
    if (listing.recursive && !has_bounded_extent(git_tree_owner(root), git_tree_id(root)))
        return refuse(call, 500, u"srv.eAccessProject");
    if (git_tree_walk(root, GIT_TREEWALK_PRE, Listing::step, &listing) < 0)
        return refuse(call, 500, u"srv.eAccessProject");
    HttpResponse *response = answer_data(200, std::move(record));
    return response ? response : refuse(call, 500, u"srv.eInternalError");
}

HttpResponse *create_tree(Call &call) {
    if (HttpResponse *refusal = open_project(call)) return refusal;
    NewTree made{call};
    if (HttpResponse *refusal = made.read()) return refusal;
    if (HttpResponse *refusal = made.start()) return refusal;
    if (HttpResponse *refusal = made.check_rights()) return refusal;
    if (HttpResponse *refusal = made.remove_paths()) return refusal;
    if (HttpResponse *refusal = made.insert_paths()) return refusal;
    const TreePtr tree(zTreeBuilderWrite(made.builder.get(), call.repository.get()));
    if (!tree) return refuse(call, 500, u"srv.eAccessProject");
    HttpResponse *response = answer_data(200, tree_record(call, tree.get()));
    return response ? response : refuse(call, 500, u"srv.eInternalError");
}

} // namespace zev::rest
