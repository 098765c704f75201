// What the downloads read from a server's answers, taken apart with no session and no repository;
// and the steps that several of them share.
#pragma once

#include "remote/remote.hpp"
#include "zev/pathspec.h"

#include <optional>
#include <string>
#include <vector>

namespace zev {

// ---- References

// An entry of the server's list; texts are lent by it.
struct ListedRef {
    const zwchar *name;
    const zwchar *target; // of a symbolic one; else the id
    bool symbolic;
    Oid id;
};
bool read_ref(const Json *entry, ListedRef &ref);

// Whether a server may write a reference of this name here: it lies below refs/, and is no branch
// and no note of this copy. And whether a symbolic one may lead to a name: not to such a branch,
// else what tracks the server would be a second name of it.
bool may_write_ref(std::u16string_view name);

// One reference of this copy that isn't moved while the list is read: whoever wants it knows first
// where the server has it, and moves it when what it is to name is here.
struct HeldRef {
    std::u16string name;
    std::optional<Oid> id{}; // none where the list hasn't got it
};

// zRemoteDownloadRefs, but for the one that is held, which may be null. May throw.
bool download_refs(Remote *remote, const Notify *notify, HeldRef *held);

// Each write of a reference costs a sync: whether it names the id already. May throw.
bool reference_is_at(Repository *repository, const zwchar *name, const Oid &id);

// ---- Trees

// An entry of a listing, as far as a download needs it.
struct ListedEntry {
    Oid id;
    uint64_t size;     // bytes
    bool blob = false; // a file, with the rights of who asks
    bool link = false; // such a file, of which the listing tells no rights: as if it had them all
    bool readable = true, writable = true;
    bool foreign = false;  // a commit of another repository
    std::u16string path{}; // below the tree; empty where none is told
};
// False for an entry without an id, of a size that is none, or of a path that no index may hold.
// May throw.
bool read_listed(const Json *entry, ListedEntry &listed);

// How many are asked for, as it stands in a query.
std::u16string limit_text(uint64_t limit);

// ---- Packs

// Objects of one query, however small they are: two nodes of JSON each.
inline constexpr uint64_t kQueried = 100'000;

// {"id": ID} of each, for a pack.
class PackQuery {
  public:
    PackQuery() { clear(); }
    void add(const Oid &id);
    bool is_empty() const { return !zJsonArraySize(entries_.get()); }
    uint64_t size() const { return zJsonArraySize(entries_.get()); }
    // Asks for the pack, and begins anew.
    bool fetch(Remote *remote, const Notify *notify);

  private:
    void clear();
    JsonGuard entries_;
};

// Fetches what is missing of a listing, in its order: large objects alone, others in packs; of
// files only those that the spec selects, if there is one, and that may be read. May throw.
bool fetch_missing(Remote *remote, const std::vector<ListedEntry> &missing, PathSpec *spec,
                   const Notify *notify);

} // namespace zev
