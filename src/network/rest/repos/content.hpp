// What the resources share that carry content: objects, packs, revisions and tables.
#pragma once

#include "network/rest/rest.hpp"
#include "objects/store/object.hpp"
#include "zev/time.h"

#include <functional>
#include <optional>
#include <string_view>

namespace zev::rest {

// The identifier that stands behind the pattern of objects and tables: 400 "srv.eFieldInvalid_s"
// ("id") where there is none, 400 "srv.eFieldRequired_s" ("id") for what is none.
HttpResponse *need_id(const Call &call, Oid *id);

// `query.entries` of the body's JSON, lent by `body`; else null in `entries` and the refusal.
HttpResponse *read_entries(const Call &call, Tree &body, Json *&entries);

// What is asked for in a pack; not sound without an identifier.
struct PackEntry {
    bool is_sound = false, recursive = false;
    Oid id{};
};
PackEntry pack_entry(const Json *entry);

// False when there is no memory, or no node.
bool push(Json *array, Tree node);
// Puts `id` into a record, which a failure turns into null.
Tree with_id(Tree record, const Oid &id);

// All that was written is on the disk when it gives true. The one sync of a request.
bool sync_project(const Call &call);

// Makes a commit, again where somebody else's git had the branch's lock, which it takes for a
// moment when it packs references: it would wait as long for ours.
CommitPtr commit_patiently(const std::function<CommitPtr()> &create);

// Whether a working copy could hold a file at a path (UTF-8): no name that no file system has, and
// no more units than an operation takes. What enters is asked, what is there was there before.
bool copy_can_hold(std::string_view path);

// Raises a failure of the store in place of what was just raised, if that says that something isn't
// there: it was named by what is, and is lost.
Failure fail_lost();
// The same for what a reference leads to; a reference that isn't there is an absence.
Failure fail_lost_at(Repository *repository, const zwchar *reference);

// From a commit to its first parent, null at the end of history. False, raised and logged, when
// there is one that can't be read: who took that for the end would show a history as whole that
// was cut short.
bool go_back(CommitPtr &commit);

// The form of a date in queries and answers.
inline constexpr const zwchar *kDate = u"%Y-%m-%dT%H:%M:%SZ";
// A date of the request's query; none where it is absent, or isn't one.
std::optional<Time> query_date(const Call &call, const zwchar *name);

// Bytes of a stream from where it stands.
uint64_t bytes_left(Stream *stream);

} // namespace zev::rest
