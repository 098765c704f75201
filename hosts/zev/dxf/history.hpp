// History: what the commits did to one drawing and to each of its objects, from manifests alone.
// An object's key changes if and only if its bytes do, so that no table is read.
#pragma once

#include "bytes.hpp"
#include "dxf/manifest.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace dxf {

// A state of the drawing's file, and the commit that brought it about.
struct State {
    Oid commit;
    std::string path;        // the drawing's at that time
    std::optional<Oid> blob; // none: the file isn't there
    // Along the file's own line: of a merge that has it from no parent, those behind the first.
    std::vector<Oid> others{};
};

// The states of a drawing, newest first, along first parents, or at a merge along the line that the
// file came from; where it was settled there, and came from none, along the first. A move makes no
// state; it is followed, also when the drawing was changed in the same commit.
enum class Line { first_parents, of_the_file };
class States {
  public:
    // From a commit on, which is copied.
    States(Repository *repository, const Commit *start, const std::string &path,
           const Notify *notify, Line line = Line::first_parents);
    // False behind the oldest one.
    bool next(State &state);

  private:
    std::optional<Oid> find(const Commit *commit, const std::string &path) const;
    host::OwnedCommit before(const Commit *commit, State &state) const;
    std::optional<Oid> origin(Commit *commit, const Oid &made);
    bool same_drawing(const Oid &a, const Oid &b);

    const Notify *notify_;
    Line line_;
    host::OwnedOdb odb_;
    host::OwnedCommit commit_; // null at the end
    std::string path_;
    std::optional<Oid> blob_; // in commit_
};

// Bytes of a version and the keys in them; a file that is no drawing has none.
struct VersionFile {
    host::Bytes bytes;
    std::optional<Manifest> manifest;
    void load(Odb *odb, const State &state);
};

// Finds for each object of a list the newest version in which it got its key.
//
// Most objects stand in the older list near where they stood in the newer one, so that their
// places are guessed; those not found there are looked for together, in one pass over the list.
class Settler {
  public:
    explicit Settler(const KeyList &newest);
    bool done() const { return pending_.empty(); }
    // Keeps what an older list has as well, and gives the others, to be settled, or looked for in
    // another list.
    Settler part(const KeyList &older);
    // Settles all that is here on `version`.
    void settle(uint32_t version);
    // Settles on `version` what an older list lacks, which makes the next older one the next
    // version to settle on.
    void compare(const KeyList &older, uint32_t version) { part(older).settle(version); }
    // The number of the version of each object, by its place in the newest list, also of those that
    // were parted.
    const std::vector<uint32_t> &versions() const { return *versions_; }

  private:
    static constexpr size_t kNowhere = SIZE_MAX;
    struct Pending {
        RawKey key;
        size_t place;  // in the newest list
        size_t latest; // in the oldest list so far, kNowhere when that lacks it
    };
    using Versions = std::shared_ptr<std::vector<uint32_t>>;
    struct Guess;
    explicit Settler(Versions versions) : versions_(std::move(versions)) {}
    bool locate(const KeyList &older);
    void look_everywhere(const KeyList &older);

    std::vector<Pending> pending_;
    std::vector<Pending *> missed_; // their numbers are not where they were expected
    Versions versions_;
};

struct Blame {
    VersionFile newest;
    std::vector<State> versions;   // of each line newest first, as far as it took
    std::vector<uint32_t> changed; // by place in the newest list: which version changed the object
};
// Throws when the commit has no drawing of that name.
void blame(Repository *repository, const Commit *start, const std::string &path,
           const Notify *notify, Blame &result);

struct ObjectEvent {
    ObjectChange::Kind kind;
    Oid commit;
    std::string path;
};
// What happened to the object of a number, newest first, until `visit` says false. False when no
// version has it.
bool object_events(Repository *repository, const Commit *start, const std::string &path,
                   uint64_t number, const Notify *notify,
                   const std::function<bool(const ObjectEvent &)> &visit);

} // namespace dxf
