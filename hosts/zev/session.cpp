// The journal, "zev-journal" in the Git directory, is one JSON object, and always whole: it is
// written aside, synced and renamed, under a lock on that directory. Its member "commands" is an
// array of at most twenty objects, the oldest first:
//   verb     string   of the command
//   seconds  integer  when it began, since 1970
//   count    integer  how many items it put into the trash
//   slots    array of strings, "<2 digits>/<38 digits>" below the trash; after an undo those that
//            the user left there
//   undone   boolean
#include "session.hpp"

#include "reception.hpp"
#include "refs.hpp"
#include "remote_copy.hpp"
#include "scratch.hpp"
#include "server.hpp"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr const char *kJournal = "zev-journal";
constexpr size_t kMaxEntries = 20;

// ---- Trash

std::set<std::string> slots_of(const WorkingCopy &copy) {
    std::set<std::string> slots;
    std::error_code ignored;
    const fs::path root(std::u16string(check(zRepositoryTrash(copy.repository()))));
    for (const auto &upper : fs::directory_iterator(root, ignored))
        for (const auto &slot : fs::directory_iterator(upper.path(), ignored))
            slots.insert(upper.path().filename().string() + "/" + slot.path().filename().string());
    return slots;
}

} // namespace

// ---- Journal

namespace {

JournalEntry entry_of(Json *json) {
    JournalEntry entry;
    entry.verb = narrow(zJsonPathGetString(json, u"verb"));
    entry.seconds = zJsonPathGetLarge(json, u"seconds");
    const Json *slots = zJsonPathGet(json, u"slots");
    const uint64_t count = slots ? zJsonArraySize(slots) : 0;
    for (uint64_t i = 0; i < count; ++i)
        entry.slots.push_back(narrow(zJsonGetString(zJsonArrayAt(slots, i))));
    const int64_t told = zJsonPathGetLarge(json, u"count");
    entry.count = std::max(told > 0 ? static_cast<uint64_t>(told) : 0, count);
    entry.undone = zJsonPathGetBool(json, u"undone");
    return entry;
}

void write_journal(const WorkingCopy &copy, const Journal &journal) {
    std::vector<Record> commands;
    for (const JournalEntry &entry : journal)
        commands.push_back(std::move(Record()
                                         .set(u"verb", entry.verb)
                                         .set(u"seconds", entry.seconds)
                                         .set(u"count", entry.count)
                                         .set(u"slots", entry.slots)
                                         .set(u"undone", entry.undone)));
    Record record;
    record.set(u"commands", std::move(commands));
    replace_file(own_directory(copy) / kJournal, record.text());
}

// A file system that knows no such locks goes without.
class DirectoryLock {
  public:
    explicit DirectoryLock(const fs::path &path)
        : directory_(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        while (directory_ >= 0 && flock(directory_, LOCK_EX) && errno == EINTR) {
        }
    }
    ~DirectoryLock() {
        if (directory_ >= 0) close(directory_);
    }
    DirectoryLock(const DirectoryLock &) = delete;
    DirectoryLock &operator=(const DirectoryLock &) = delete;

  private:
    int directory_;
};

} // namespace

// One that can't be read is as none: nothing but the convenience is lost.
Journal read_journal(const WorkingCopy &copy) {
    const fs::path path = own_directory(copy) / kJournal;
    if (!fs::exists(path)) return {};
    const OwnedJson json(zJsonReadFile(path.u16string().c_str()));
    if (!json) return {};
    const Json *commands = zJsonPathGet(json.get(), u"commands");
    Journal journal;
    const auto add = [&](JournalEntry entry) {
        if (entry.count) journal.push_back(std::move(entry));
    };
    if (!commands) return add(entry_of(json.get())), journal; // one command, as it was kept first
    const uint64_t count = zJsonArraySize(commands);
    for (uint64_t i = count > kMaxEntries ? count - kMaxEntries : 0; i < count; ++i)
        add(entry_of(zJsonArrayAt(commands, i)));
    return journal;
}

void change_journal(const WorkingCopy &copy, const std::function<void(Journal &)> &change) {
    const DirectoryLock lock(own_directory(copy));
    Journal journal = read_journal(copy);
    change(journal);
    if (journal.size() > kMaxEntries)
        journal.erase(journal.begin(), journal.end() - static_cast<ptrdiff_t>(kMaxEntries));
    write_journal(copy, journal);
}

// ---- Recovery

void recover(Host &host, const WorkingCopy &copy) {
    int32_t outcome = Z_RECOVERY_NOTHING;
    check(zRepositoryRecover(&outcome, copy.repository()));
    if (outcome == Z_RECOVERY_PUT_BACK)
        host.out.warn("the last command was cut short; index and branch are back to what they "
                      "were before it");
    if (outcome == Z_RECOVERY_GONE_ON)
        host.out.warn("a command was cut short, and somebody has gone on since; index and branch "
                      "stay as they are");
}

// ---- Session

// The library may fetch what a drawing lacks on its own. A verb that can't do without says so.
static void set_account(const WorkingCopy &copy) try {
    if (const std::string url = origin_of(copy); !url.empty()) use_account(server_of(url));
} catch (const Failed &) {
    zLoginInfoClear();
}

Session::Session(Host &host, const Verb &verb) : host_(host), verb_(verb) {
    if (verb.nature != Nature::changes && verb.nature != Nature::displaces) return;
    const OwnedRepository there(zRepositoryDiscover(u".", nullptr));
    if (!there || zRepositoryIsBare(there.get())) return;
    copy_.emplace();
    recover(host, *copy_);
    set_account(*copy_);
    if (std::string_view(verb.name) != "update") tell_unfinished(host, *copy_);
    if (verb.nature != Nature::displaces) {
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
        JournalEntry entry{verb_.name, began_, 0, {}, false};
        for (const std::string &slot : slots_of(*copy_))
            if (!before_.contains(slot)) entry.slots.push_back(slot);
        entry.count = entry.slots.size();
        if (entry.count) change_journal(*copy_, [&](Journal &all) { all.push_back(entry); });
    } catch (const std::exception &error) {
        host_.out.warn(say("\"zev undo\" won't know of this: %s", error.what()));
    }
}

} // namespace host
