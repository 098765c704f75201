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

// What a commit says, with its changes, or null with what zCommitChanges raised. May throw.
RevisionPtr revision_of(Commit *commit);

// What came of the look-up of a record; all but `whole` are raised.
enum class Lookup { whole, missing, damaged, failed };
Lookup find_record(const Revdb *db, const Oid *id, RevisionPtr &found); // may throw

// The revision of a commit, from its record, or a new one, which gets a record. Null with the
// reason raised. May throw.
RevisionPtr kept_revision(Revdb *db, Commit &commit);

// The ids of what zRevListBuild would list, without making its revisions: records are read or
// written only if a spec has paths. May throw.
bool revision_ids(Repository *repository, RevSpec *spec, std::vector<Oid> &ids);

} // namespace zev
