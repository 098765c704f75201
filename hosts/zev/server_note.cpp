// The note, "zev-server" in the Git directory, is one JSON object, written aside and renamed:
//   at       string   id of a commit; absent before the first update
//   seconds  integer  of the last answer, since 1970
#include "server_note.hpp"

#include "output.hpp"
#include "refs.hpp"

#include <fstream>

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr const char *kNote = "zev-server";

} // namespace

ServerNote read_note(const WorkingCopy &copy) {
    const fs::path path = own_directory(copy) / kNote;
    std::error_code ignored;
    if (!fs::exists(path, ignored)) return {};
    const OwnedJson json(zJsonReadFile(path.u16string().c_str()));
    if (!json || !zJsonIsObject(json.get())) return {};
    ServerNote note;
    note.seconds = zJsonPathGetLarge(json.get(), u"seconds");
    Oid id;
    const Json *at = zJsonObjectAt(json.get(), u"at");
    if (at && zJsonIsString(at) && zOidFromStr(&id, zJsonGetString(at))) note.at = id;
    return note;
}

void note_answer(const WorkingCopy &copy, const Oid *at) {
    const std::optional<Oid> kept = at ? std::optional<Oid>(*at) : read_note(copy).at;
    Time now{};
    if (!zTimeGlobal(&now)) return;
    Record record;
    record.set(u"seconds", now.seconds);
    if (kept) record.set(u"at", &*kept);
    const fs::path path = own_directory(copy) / kNote, aside = path.string() + ".new";
    std::error_code ignored;
    if (std::ofstream(aside) << record.text() << '\n') fs::rename(aside, path, ignored);
}

std::optional<uint64_t> known_updates(const WorkingCopy &copy) try {
    const OwnedCommit newest = server_commit(copy);
    if (!newest) return 0;
    OwnedTree ours;
    if (copy.born()) ours.reset(check(zCommitTree(copy.head().get())));
    const OwnedTree theirs(check(zCommitTree(newest.get())));
    if (ours && zOidIsEqual(zTreeId(ours.get()), zTreeId(theirs.get()))) return 0;
    const Owned<Authdb, zAuthdbFree> rules(check(zAuthdbOpen(copy.repository())));
    const OwnedDiff list(check(zDiffTreeToTree(ours.get(), theirs.get(), nullptr, nullptr)));
    uint64_t count = 0;
    for (uint64_t i = 0; i < zDiffListLength(list.get()); ++i)
        count +=
            zAuthdbEntryReadable(rules.get(), zDiffEntryNewPath(zDiffListEntry(list.get(), i)));
    return count;
} catch (const Failed &) {
    return {}; // of a part of the trees nobody knows
}

} // namespace host
