// The journal, "zev-journal" in the Git directory, is one JSON object, and always whole: it is
// written aside, synced and renamed.
//   verb     string   of the command
//   seconds  integer  when it began, since 1970
//   slots    array of strings, "<2 digits>/<38 digits>" below the trash; after an undo those that
//            the user left there
#include "session.hpp"

#include "reception.hpp"
#include "refs.hpp"
#include "remote_copy.hpp"
#include "server.hpp"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr const char *kJournal = "zev-journal";

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
        Journal journal{verb_.name, began_, {}};
        for (const std::string &slot : slots_of(*copy_))
            if (!before_.contains(slot)) journal.slots.push_back(slot);
        if (!journal.slots.empty()) write_journal(*copy_, journal);
    } catch (const std::exception &error) {
        host_.out.warn(std::string("\"zev undo\" won't know of this: ") + error.what());
    }
}

} // namespace host
