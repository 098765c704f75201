// The note, "zev-server" in the Git directory, is one JSON object, written aside and renamed:
//   at       string   id of a commit; absent before the first update
//   seconds  integer  of the last answer, since 1970
#include "server_note.hpp"

#include "refs.hpp"
#include "scratch.hpp"
#include "show.hpp"

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

void note_answer(const WorkingCopy &copy, const Oid *at) try {
    const std::optional<Oid> kept = at ? std::optional<Oid>(*at) : read_note(copy).at;
    Time now{};
    if (!zTimeGlobal(&now)) return;
    Record record;
    record.set(u"seconds", now.seconds);
    if (kept) record.set(u"at", &*kept);
    replace_file(own_directory(copy) / kNote, record.text() + "\n");
} catch (const std::exception &) { // the next answer notes it
}

std::optional<uint64_t> known_updates(const WorkingCopy &copy) try {
    const OwnedCommit newest = server_commit(copy);
    if (!newest) return 0;
    const OwnedTree ours(check(zRemoteGround(copy.repository())));
    const OwnedTree theirs(check(zCommitTree(newest.get())));
    if (zOidIsEqual(zTreeId(ours.get()), zTreeId(theirs.get()))) return 0;
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

ServerStanding known_standing(const WorkingCopy &copy) {
    RemoteStanding found{};
    if (!zRemoteStanding(&found, copy.repository(), nullptr, nullptr)) return {};
    ServerStanding standing{.unsent = found.unsent};
    if (found.went_back) standing.from = found.from, standing.to = found.to;
    return standing;
}

std::vector<std::string> standing_lines(const ServerStanding &standing) {
    std::vector<std::string> lines;
    if (standing.unsent)
        lines.push_back(say(standing.unsent == 1 ? "%s commit of yours is not on the server; "
                                                   "\"zev commit\" sends what it did"
                                                 : "%s commits of yours are not on the server; "
                                                   "\"zev commit\" sends what they did",
                            grouped(standing.unsent)));
    if (standing.from && zOidIsZero(&*standing.to))
        lines.push_back(say("the branch is no longer on the server, where it stood at %s; its "
                            "files stay here as changes of yours when you update",
                            short_id(&*standing.from)));
    else if (standing.from)
        lines.push_back(say("the server's branch went back from %s to %s; what it lost stays here "
                            "as your change when you update",
                            short_id(&*standing.from), short_id(&*standing.to)));
    return lines;
}

void set_standing(Record &record, const ServerStanding &standing) {
    if (standing.unsent) record.set(u"unsent", standing.unsent);
    if (standing.from) record.set(u"from", &*standing.from).set(u"to", &*standing.to);
}

} // namespace host
