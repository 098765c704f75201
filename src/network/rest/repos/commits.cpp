// Commits: the history along first parents, one commit, and a new one on a branch that is still
// where the client believes it. A commit is answered when it would survive a loss of power.
#include "common/error_class.hpp"
#include "common/text.hpp"
#include "common/utf.hpp"
#include "network/rest/operations.hpp"
#include "network/rest/repos/content.hpp"
#include "network/rest/repos/paths_of.hpp"
#include "objects/store/commit.hpp"
#include "objects/store/object.hpp"
#include "objects/store/odb.hpp"
#include "objects/store/tree_extent.hpp"
#include "objects/store/tree_pairs.hpp"
#include "rms/privilege.hpp"
#include "zev/oid.h"
#include "zev/revlist.h"
#include "zev/str.h"
#include "zev/time.h"

#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zev::rest {

namespace {

// Puts what every form has into a record, which a failure turns into null.
Tree with_commit(Tree record, const Commit *commit) {
    zwchar date[32] = {};
    Time time;
    zTimeFormatGlobal(date, std::size(date), kDate, zCommitTime(&time, commit)->seconds);
    Json *to = record.get();
    const bool put =
        to && zJsonPathSetString(to, u"type", u"commit") &&
        zJsonPathSetId(to, u"id", zCommitId(commit)) &&
        zJsonPathSetString(to, u"author", without_controls(zCommitAuthor(commit)).c_str()) &&
        zJsonPathSetString(to, u"message", without_controls(zCommitMessage(commit)).c_str()) &&
        zJsonPathSetId(to, u"tree", zCommitTreeId(commit)) && zJsonPathSetString(to, u"date", date);
    return put ? std::move(record) : Tree();
}

Tree commit_record(const Commit *commit) {
    return with_commit(Tree(zJsonNew(Z_JSON_OBJECT)), commit);
}

// With owner, name and URL of the project.
Tree full_record(const Call &call, const Commit *commit) {
    const std::u16string id = id_text(*zCommitId(commit));
    return with_commit(project_record(call, u"commit", {u"commits", id.c_str()}), commit);
}

HttpResponse *answer_commit(const Call &call, const Commit *commit) {
    HttpResponse *response = answer_data(200, full_record(call, commit));
    return response ? response : refuse(call, 500, u"srv.eInternalError");
}

// ---- The list

struct Range {
    std::optional<Time> since, until;
    uint64_t limit = 0; // 0 is none

    explicit Range(const Call &call);
};

Range::Range(const Call &call)
    : since(query_date(call, u"since")), until(query_date(call, u"until")) {
    const zwchar *text = capture(call, u"limit");
    const std::string digits = text ? to_utf8(text) : std::string();
    if (digits.find_first_not_of("0123456789") == digits.npos)
        limit = std::strtoull(digits.c_str(), nullptr, 10);
}

// Adds the commits of a range, newest first; an older one than `since` hides all behind it.
bool add_history(Json *entries, CommitPtr commit, const Range &range) {
    bool is_sound = true;
    for (; commit; is_sound = go_back(commit)) {
        Time time;
        zCommitTime(&time, commit.get());
        if (range.since && time.seconds < range.since->seconds) break;
        if (range.until && time.seconds >= range.until->seconds) continue;
        if (!push(entries, commit_record(commit.get()))) return false;
        if (range.limit && zJsonArraySize(entries) >= range.limit) break;
    }
    return is_sound;
}

bool set_base(RevBase *base, const zwchar *head) {
    Oid id;
    if (!head) return zRevBaseSetByhead(base);
    return parse_id(&id, head) ? zRevBaseSetByid(base, &id) : zRevBaseSetByref(base, head);
}

// ---- A new commit

struct NewCommit {
    Call &call;
    Tree fields{};
    const zwchar *author = nullptr, *message = nullptr, *tree_id = nullptr;
    const zwchar *update = nullptr; // the reference that moves
    CommitPtr tip{};                // where it stands; null for a new one
    TreePtr before{}, tree{};       // the tip's, and the new one

    HttpResponse *fail_inside(Here at = {}) const;
    HttpResponse *read();
    HttpResponse *find_parent();
    HttpResponse *find_tree();
    struct Changes;
    HttpResponse *check_changes();
    HttpResponse *refuse_walk(bool is_cut) const;
    enum class Tip { stands, moved, unknown };
    Tip look_again() const;
    CommitPtr create() const;
};

// With what was raised in the log.
HttpResponse *NewCommit::fail_inside(Here at) const {
    log_raised(kError, at, kFacilitySrv);
    return refuse(call, 500, u"srv.eCreateCommit", nullptr, at);
}

HttpResponse *NewCommit::read() {
    if (HttpResponse *refusal = read_json(call, fields)) return refusal;
    const auto need = [&](const zwchar *path, const zwchar *&text) -> HttpResponse * {
        text = text_at(fields, path);
        return text ? nullptr : refuse(call, 400, u"srv.eFieldRequired_s", path);
    };
    update = text_at(fields, u"query.update");
    if (HttpResponse *refusal = need(u"query.author", author)) return refusal;
    if (HttpResponse *refusal = need(u"query.message", message)) return refusal;
    return need(u"query.tree", tree_id);
}

// Null where nothing is, and, raised as the store's failure, where what the reference names is
// lost.
CommitPtr commit_at(Repository *repository, const zwchar *reference) {
    CommitPtr commit(zCommitByref(repository, reference));
    if (!commit) fail_lost_at(repository, reference);
    return commit;
}

// The reference must be where the client believes it.
HttpResponse *NewCommit::find_parent() {
    const Json *told = zJsonPathGet(fields.get(), u"query.update");
    if (told && !zJsonIsNull(told) && !zJsonIsString(told)) // nothing would move, unnoticed
        return refuse(call, 400, u"srv.eFieldInvalid_s", u"query.update");
    if (!update) return nullptr;
    constexpr const zwchar *kField = u"query.parent";
    const zwchar *parent = text_at(fields, kField);
    Oid id;
    if (parent && !parse_id(&id, parent)) return refuse(call, 400, u"srv.eFieldInvalid_s", kField);
    tip = commit_at(call.repository.get(), update);
    if (!tip && has_store_failed(call)) return fail_inside();
    if (tip && !parent) return refuse(call, 400, u"srv.sFiledRequired_s", kField);
    if (tip && !zOidIsEqual(zCommitId(tip.get()), &id))
        return refuse(call, 409, u"srv.eWorktreeNeedsUpdate");
    if (!tip && parent) return refuse(call, 400, u"srv.eFieldUnacceptable_s", kField);
    return nullptr;
}

// All that is named by a commit is walked later, without a bound; what the tip names was looked at
// when that was made.
HttpResponse *NewCommit::find_tree() {
    Oid id;
    if (!parse_id(&id, tree_id)) return refuse(call, 400, u"srv.eFieldInvalid_s", u"tree");
    tree.reset(zTreeByid(call.repository.get(), &id));
    if (!tree)
        return refuse_absent(call, {400, u"srv.eNoSuchTree_s", tree_id, u"srv.eCreateCommit"});
    if (tip) before.reset(zCommitTree(tip.get()));
    if (tip && !before) return fail_inside();
    if (!has_bounded_change(before ? before->handle.get() : nullptr, tree->handle.get()))
        return refuse_absent(call, {400, u"srv.eInvalidContent", nullptr, u"srv.eCreateCommit"});
    return nullptr;
}

// Of a link, with the byte behind it; no system makes one that leads farther, or nowhere.
constexpr size_t kLongestTarget = 4096;

bool is_link(TreePairs::Entry entry) { return git_tree_entry_filemode(entry) == GIT_FILEMODE_LINK; }

// All that is asked about what the tree changes.
struct NewCommit::Changes {
    git_odb *odb;
    Privileges *granted; // null where everybody may write
    std::vector<NamedFile> entering{};
    std::string unfit{};   // the first path at which no file can stand, or none does
    bool denied = false;   // one that the caller may not write
    bool unlooked = false; // an object that can't be looked at, raised

    void take(std::string path, TreePairs::Entry before, TreePairs::Entry made);
    bool is_here(TreePairs::Entry made);
};

// A file, whatever a tree says of it, or a link that can be made.
bool NewCommit::Changes::is_here(TreePairs::Entry made) {
    size_t size = 0;
    git_object_t type = GIT_OBJECT_INVALID;
    const int code = git_odb_read_header(&size, &type, odb, git_tree_entry_id(made));
    if (code < 0 && code != GIT_ENOTFOUND) unlooked = true, fail_git(code);
    if (code || type != GIT_OBJECT_BLOB) return false;
    return !is_link(made) || (size && size < kLongestTarget);
}

// A file that enters is named by its path from then on.
void NewCommit::Changes::take(std::string path, TreePairs::Entry before, TreePairs::Entry made) {
    if (denied || unlooked) return;
    const git_oid *id = made ? git_tree_entry_id(made) : nullptr;
    if (granted) {
        std::u16string wide = to_wide(path);
        denied = !(granted->at(wide) & Z_PRIVILEGE_WRITE);
        if (id && !denied) entering.push_back({std::move(wide), *git::oid(id)});
    }
    if (denied || !unfit.empty() || !made) return;
    const bool is_file = git_tree_entry_type(made) == GIT_OBJECT_BLOB;
    if ((is_file && !is_here(made)) || (!before && !copy_can_hold(path))) unfit = std::move(path);
}

// What isn't there, and a path of no length that anybody takes, are the client's; else a tree that
// can't be read is the store's.
HttpResponse *NewCommit::refuse_walk(bool is_cut) const {
    if (!is_cut && zErrorClass() != error_class::kStd) return fail_inside();
    if (!is_cut || !has_store_failed(call)) return refuse(call, 400, u"srv.eInvalidContent");
    return fail_inside();
}

// The rights first, to write the paths and to name what enters by them; then what enters is here,
// and a file: a commit that names another can't be copied any more.
HttpResponse *NewCommit::check_changes() {
    const OdbPtr odb(zOdbOpen(call.repository.get()));
    if (!odb || git_odb_refresh(odb->handle.get()) < 0) return fail_inside();
    Changes changes{odb->handle.get(), call.guarded ? &rights(call) : nullptr};
    TreePairs pairs(call.repository->handle.get(), false, [&](auto path, auto old, auto made) {
        changes.take(std::move(path), old, made);
    });
    const bool walked = pairs.walk(before ? before->handle.get() : nullptr, tree->handle.get());
    if (changes.unlooked) return fail_inside();
    git_error_clear();
    if (changes.denied) return refuse(call, 403);
    if (!walked) return refuse_walk(pairs.is_after_cut());
    if (HttpResponse *refusal = admit_names(call, changes.entering)) return refusal;
    if (changes.unfit.empty()) return nullptr;
    raise_not_found(changes.unfit);
    return refuse_absent(
        call, {400, u"srv.eFieldInvalid_s", to_wide(changes.unfit).c_str(), u"srv.eCreateCommit"});
}

// Another server on the same directory may have moved the reference since.
NewCommit::Tip NewCommit::look_again() const {
    const KeptFailure kept;
    const CommitPtr now = commit_at(call.repository.get(), update);
    if (!now && has_store_failed(call)) return Tip::unknown;
    const Oid *then = tip ? zCommitId(tip.get()) : nullptr;
    return zOidIsEqual(now ? zCommitId(now.get()) : nullptr, then) ? Tip::stands : Tip::moved;
}

// Below that name a copy notes what it knows of its server: no project has anything there.
bool is_note(std::string_view name) {
    constexpr std::string_view kNotes = "refs/zev";
    const std::string first(name.substr(0, name.find('/', kNotes.find('/') + 1)));
    return zStrcasesameA(first.c_str(), kNotes.data());
}

// HEAD, or a name below refs/: any other would be a file among the repository's own.
bool is_full_name(const zwchar *text) {
    const std::string name = to_utf8(text);
    int valid = 0;
    return name == "HEAD" || (name.starts_with("refs/") && !is_note(name) &&
                              !git_reference_name_is_valid(&valid, name.c_str()) && valid);
}

CommitPtr NewCommit::create() const {
    if (update && !is_full_name(update)) return raise_args(update), CommitPtr();
    const auto before_move = [this] { return !update || look_again() == Tip::stands; };
    return commit_patiently(
        [&] { return CommitPtr(commit_create(update, author, message, tree.get(), before_move)); });
}

} // namespace

HttpResponse *list_commits(Call &call) {
    if (HttpResponse *refusal = open_project(call)) return refusal;
    const zwchar *head = capture(call, u"head");
    const zwchar *told = head ? head : u"HEAD";
    const Owned<RevBase, zRevBaseFree> base(zRevBaseNew());
    const Range range(call);
    if (!base || !set_base(base.get(), head)) return refuse(call, 500, u"srv.eInternalError");
    const Oid *id = zRevBaseResolve(base.get(), call.repository.get());
    if (!id && zRevBaseType(base.get()) != Z_REV_BY_ID) fail_lost_at(call.repository.get(), told);
    if (!id)
        return refuse_absent(call,
                             {404, u"srv.eNoSuchCommit_s", told, u"odb.eFailedToResolveCommit_s"});
    CommitPtr commit(zCommitByid(call.repository.get(), id));
    if (!commit) return refuse(call, 500, u"odb.eFailedToResolveCommit_s", told);
    Tree entries(zJsonNew(Z_JSON_ARRAY));
    const bool done = entries && add_history(entries.get(), std::move(commit), range);
    HttpResponse *response = done ? answer_entries(std::move(entries)) : nullptr;
    return response ? response : refuse(call, 500, u"srv.eInternalError");
}

HttpResponse *read_commit(Call &call) {
    const zwchar *text = capture(call, u":other");
    Oid id;
    if (!parse_id(&id, text)) return refuse(call, 400);
    if (HttpResponse *refusal = open_project(call)) return refusal;
    const CommitPtr commit(zCommitByid(call.repository.get(), &id));
    if (!commit) return refuse_absent(call, {404, u"srv.eNoSuchCommit_s", text});
    return answer_commit(call, commit.get());
}

HttpResponse *create_commit(Call &call) {
    if (HttpResponse *refusal = open_project(call)) return refusal;
    NewCommit made{call};
    if (HttpResponse *refusal = made.read()) return refusal;
    if (HttpResponse *refusal = made.find_parent()) return refusal;
    if (HttpResponse *refusal = made.find_tree()) return refusal;
    if (HttpResponse *refusal = made.check_changes()) return refusal;
    const CommitPtr commit = made.create();
    if (!commit && made.update && made.look_again() == NewCommit::Tip::moved)
        return refuse(call, 409, u"srv.eWorktreeNeedsUpdate");
    if (!commit) return made.fail_inside();
    return answer_commit(call, commit.get());
}

} // namespace zev::rest
