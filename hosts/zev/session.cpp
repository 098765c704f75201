// The journal, "zev-journal" in the Git directory, is one JSON object, and always whole: it is
// written aside, synced and renamed.
//   verb     string   of the command
//   seconds  integer  when it began, since 1970
//   slots    array of strings, "<2 digits>/<38 digits>" below the trash; after an undo those that
//            the user left there
//
// Recovery. A process that was killed leaves ".<name>.zlck" beside the index, HEAD or a reference:
// a copy of that file from before it began; complete if the owner may not execute it. Going back
// to it is right as long as nobody has gone on from what the process left. Git doesn't know these
// copies, and commits on top. So they are only followed
//   - when the index has one: a copy of a branch alone is left by a process that was done;
//   - for a branch that stands where it was, or one automatic merge, by "remote", further;
//   - without one of the branch, when HEAD and its branch are older than the index's copy: our own
//     commits make that incomplete before the branch moves.
// Otherwise they are dropped, and index and branch stay as they are.
#include "session.hpp"

#include "refs.hpp"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr const char *kJournal = "zev-journal";
constexpr std::string_view kTail = ".zlck";

std::string read_text(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// ---- Trash

bool takes_things(const std::string &verb) {
    return verb == "rm" || verb == "revert" || verb == "resolve" || verb == "switch" ||
           verb == "merge" || verb == "cleanup";
}

bool changes_copy(const std::string &verb) {
    return takes_things(verb) || verb == "add" || verb == "mkdir" || verb == "mv" ||
           verb == "commit" || verb == "import" || verb == "undo" || verb == "restore" ||
           verb == "purge";
}

std::set<std::string> slots_of(const WorkingCopy &copy) {
    std::set<std::string> slots;
    std::error_code ignored;
    const fs::path root(std::u16string(check(zRepositoryTrash(copy.repository()))));
    for (const auto &upper : fs::directory_iterator(root, ignored))
        for (const auto &slot : fs::directory_iterator(upper.path(), ignored))
            slots.insert(upper.path().filename().string() + "/" + slot.path().filename().string());
    return slots;
}

// ---- Recovery

// A copy that was left behind.
struct Left {
    fs::path file, target;
    timespec time{};
    bool complete = false;
};

bool is_before(const timespec &a, const timespec &b) {
    return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_nsec < b.tv_nsec;
}

std::optional<Left> left_at(const fs::path &file) {
    struct stat status;
    if (lstat(file.c_str(), &status) || !S_ISREG(status.st_mode)) return {};
    std::string name = file.filename().string();
    name = name.substr(1, name.size() - 1 - kTail.size());
    return Left{file, file.parent_path() / name, status.st_mtim, !(status.st_mode & S_IXUSR)};
}

bool is_held(const Left &left) {
    const Owned<Share, zShareClose> share(
        zShareOpen(left.file.u16string().c_str(), u"rb", Z_SHARE_NONE));
    return !share && errno != ENOENT;
}

std::vector<Left> left_references(const fs::path &directory) {
    std::vector<Left> found;
    std::error_code ignored;
    for (const auto &entry : fs::recursive_directory_iterator(directory / "refs", ignored)) {
        const std::string name = entry.path().filename().string();
        if (!name.starts_with('.') || !name.ends_with(kTail)) continue;
        if (auto left = left_at(entry.path()); left && left->complete)
            found.push_back(std::move(*left));
    }
    return found;
}

// Where the branch stood, and where it stands.
bool can_go_back(const WorkingCopy &copy, const Left &left) {
    const std::string before = read_text(left.file).substr(0, 40);
    const std::string now = read_text(left.target).substr(0, 40);
    Oid id;
    if (before == now || now.empty()) return true;
    if (!zOidFromStr(&id, wide(now).c_str())) return false;
    const OwnedCommit tip(zCommitByid(copy.repository(), &id));
    if (!tip || narrow(zCommitAuthor(tip.get())) != "remote") return false;
    const Oid *parent = zCommitParentId(tip.get());
    return before.empty() ? !parent : parent && hex(parent) == before;
}

// Nothing that tells where HEAD is has changed since.
bool head_is_older(const WorkingCopy &copy, const fs::path &directory, const timespec &time) {
    std::vector<fs::path> files{directory / "HEAD"};
    const Owned<Reference, zReferenceFree> head(zReferenceHead(copy.repository()));
    if (head) files.emplace_back(std::u16string(check(zReferencePath(head.get()))));
    for (const fs::path &file : files) {
        struct stat status;
        if (!stat(file.c_str(), &status) && !is_before(status.st_mtim, time)) return false;
    }
    return true;
}

bool stands(const WorkingCopy &copy, const fs::path &directory, const Left &index,
            const std::vector<Left> &references) {
    for (const Left &left : references)
        if (!can_go_back(copy, left)) return false;
    return !references.empty() || head_is_older(copy, directory, index.time);
}

void go_back(const WorkingCopy &copy) {
    Owned<CleanupSpec, zCleanupSpecFree> spec(check(zCleanupSpecNew()));
    check(zCleanupSpecSetOptions(spec.get(), Z_CLEANUP_KEEP_UNTRACKED | Z_CLEANUP_USE_TRASH));
    check(zRepositoryCleanup(copy.repository(), spec.get()));
}

} // namespace

// ---- Journal

std::optional<Journal> read_journal(const WorkingCopy &copy) {
    const fs::path path = own_directory(copy) / kJournal;
    if (!fs::exists(path)) return {};
    const OwnedJson json(zJsonReadFile(path.u16string().c_str()));
    if (!json) return {};
    Journal journal;
    journal.verb = narrow(zJsonPathGetString(json.get(), u"verb"));
    journal.seconds = zJsonPathGetLarge(json.get(), u"seconds");
    const Json *slots = zJsonPathGet(json.get(), u"slots");
    const uint64_t count = slots ? zJsonArraySize(slots) : 0;
    for (uint64_t i = 0; i < count; ++i)
        journal.slots.push_back(narrow(zJsonGetString(zJsonArrayAt(slots, i))));
    return journal;
}

void write_journal(const WorkingCopy &copy, const Journal &journal) {
    Record record;
    record.set(u"verb", journal.verb).set(u"seconds", journal.seconds);
    const std::string text = record.set(u"slots", journal.slots).text();
    const fs::path path = own_directory(copy) / kJournal, aside = path.string() + ".new";
    const int file = open(aside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const bool written =
        file >= 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
        !fsync(file);
    if (file >= 0) close(file);
    if (!written || rename(aside.c_str(), path.c_str()))
        throw fs::filesystem_error({}, path, {errno, std::generic_category()});
}

// ---- Recovery

void recover(Host &host, const WorkingCopy &copy) {
    const fs::path directory = own_directory(copy);
    const auto index = left_at(directory / ".index.zlck");
    const std::vector<Left> references = left_references(shared_directory(copy));
    const bool whole = index && index->complete;
    if (!whole && references.empty()) return;
    if (index && is_held(*index)) return; // at work
    for (const Left &left : references)
        if (is_held(left)) return;
    if (whole && stands(copy, directory, *index, references)) {
        go_back(copy);
        return host.out.warn("the last command was cut short; index and branch are back to what "
                             "they were before it");
    }
    if (whole) zFlockPurge(index->target.u16string().c_str());
    for (const Left &left : references) zFlockPurge(left.target.u16string().c_str());
    if (whole)
        host.out.warn("a command was cut short, and somebody has gone on since; index and branch "
                      "stay as they are");
}

// ---- Session

Session::Session(Host &host, const std::string &verb) : host_(host), verb_(verb) {
    if (!changes_copy(verb)) return;
    const OwnedRepository there(zRepositoryDiscover(u".", nullptr));
    if (!there || zRepositoryIsBare(there.get())) return;
    copy_.emplace();
    recover(host, *copy_);
    if (!takes_things(verb)) {
        copy_.reset();
        return;
    }
    before_ = slots_of(*copy_);
    Time now{};
    check(zTimeGlobal(&now));
    began_ = now.seconds;
}

Session::~Session() {
    if (!copy_) return;
    try {
        if (verb_ == "revert") forget_merge(*copy_);
        Journal journal{verb_, began_, {}};
        for (const std::string &slot : slots_of(*copy_))
            if (!before_.contains(slot)) journal.slots.push_back(slot);
        if (!journal.slots.empty()) write_journal(*copy_, journal);
    } catch (const std::exception &error) {
        host_.out.warn(std::string("\"zev undo\" won't know of this: ") + error.what());
    }
}

} // namespace host
