// Records of history for their families: revisions and their database, bases, specs and lists.
#pragma once

#include "common/json.hpp"
#include "objects/store/diff.hpp"
#include "zev/revdb.h"
#include "zev/revision.h"
#include "zev/revlist.h"

#include <optional>
#include <vector>

struct Revdb { // plain memory, freed as such
    Repository *owner;
};

struct Revision {
    Repository *owner = nullptr;
    Oid id{};
    zev::Wide author{}, message{};
    Time time{};
    zev::DiffListPtr changes{}; // null until asked for
};

struct RevBase {
    int32_t kind = Z_REV_BY_HEAD;
    zev::Wide reference{};       // by reference only
    std::optional<Oid> id{};     // by id only
    std::optional<Oid> commit{}; // result of zRevBaseResolve
    zwchar text[9] = {};         // result of zRevBaseStringfy, by id
};

namespace zev {
using RevdbPtr = Owned<Revdb, zRevdbFree>;
using RevisionPtr = Owned<Revision, zRevisionFree>;
using RevSpecPtr = Owned<RevSpec, zRevSpecFree>;
} // namespace zev

struct RevSpec {
    uint32_t options = 0;
    int64_t limit = 0;
    Time since{}, until{}; // all zero: not set
    RevBase base{};
    zev::PathSpecPtr paths{};
    zev::PathSpecPtr include_authors{}, exclude_authors{};
    zev::PathSpecPtr include_messages{}, exclude_messages{};
    const Notify *notify = nullptr; // lent
};

struct RevList {
    std::vector<zev::RevisionPtr> entries;
};

namespace zev {

// ---- JSON forms, described in revision_json.cpp. Null with class 2 raised, logged, for what has
// not that form. Each may throw.
JsonGuard diff_list_to_json(const DiffList *list);
DiffListPtr diff_list_from_json(const Json *array);
JsonGuard revision_to_json(Revision *revision); // takes the changes, which may compute them
RevisionPtr revision_from_json(Repository *owner, const Json *object);
RevisionPtr revision_from_text(Repository *owner, std::string_view utf8);

// What a commit says, with its changes, or null with what zCommitChanges raised; and without them.
// May throw.
RevisionPtr revision_of(Commit *commit);
RevisionPtr words_of(const Commit *commit);

// What came of the look-up of a record; all but `whole` are raised.
enum class Lookup { whole, missing, damaged, failed };
Lookup find_record(const Revdb *db, const Oid *id, RevisionPtr &found); // may throw

// The revision of a commit, from its record, or a new one, which gets a record. Null with the
// reason raised. May throw.
RevisionPtr kept_revision(Revdb *db, Commit &commit);

// Where a walk gets what is not here: calls of a session, as zev/remote.h has them, up to whose
// family this one does not reach.
struct HistorySource {
    Remote *remote = nullptr; // lent; none: what is here is all there is
    bool (*refs)(Remote *, const Notify *) = nullptr;
    bool (*commits)(Remote *, const Oid *head, uint64_t limit, const Notify *) = nullptr;
    bool (*records)(Remote *, const Oid *head, uint64_t limit, const Notify *) = nullptr;
    // A server has the rest, whether it may be asked or not: what is missing here is no damage.
    bool is_partial = false;
};

// zRevListBuild with a source, which a branch that tracks nothing doesn't use. May throw.
Owned<RevList, zRevListFree> rev_list(Repository *repository, RevSpec *spec,
                                      const HistorySource &source);

// The ids of what is here of such a list, without making its revisions: records are read or
// written only if a spec has paths. May throw.
bool revision_ids(Repository *repository, RevSpec *spec, std::vector<Oid> &ids);

} // namespace zev
