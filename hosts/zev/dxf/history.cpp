// Versions are compared by the keys in their manifests alone. A version is read once for each line
// of history that leads through it, and of two that follow each other both lists are walked in
// step.
#include "dxf/history.hpp"

#include <algorithm>
#include <bitset>
#include <deque>

namespace dxf {

namespace {

bool ends_as_drawing(const std::string &path) {
    return path.size() > 4 && zStrcasesameA(path.c_str() + path.size() - 4, ".dwx");
}

} // namespace

// ---- States

States::States(Repository *repository, const Commit *start, const std::string &path,
               const Notify *notify, Line line)
    : notify_(notify), line_(line), odb_(host::check(zOdbOpen(repository))),
      commit_(host::check(zCommitByid(repository, zCommitId(start)))), path_(path),
      blob_(find(start, path)) {}

std::optional<Oid> States::find(const Commit *commit, const std::string &path) const {
    host::OwnedTree tree(host::check(zCommitTree(commit)));
    host::OwnedTreeEntry entry(zTreeEntryBypath(tree.get(), host::wide(path).c_str()));
    if (!entry && zErrorClass() != host::kNotFound) host::fail_raised();
    if (!entry || zTreeEntryType(entry.get()) != Z_OBJECT_BLOB) return {};
    return *zTreeEntryId(entry.get());
}

bool States::next(State &state) {
    while (commit_) {
        host::stop_on_break(notify_);
        host::OwnedCommit commit = std::move(commit_);
        state = {*zCommitId(commit.get()), path_, blob_};
        if (!zCommitParentCount(commit.get())) return true;
        commit_ = before(commit.get(), state);
        if (zOidIsEqual(zCommitTreeId(commit.get()), zCommitTreeId(commit_.get()))) continue;
        blob_ = find(commit_.get(), path_);
        if (!blob_ && state.blob) blob_ = origin(commit.get(), *state.blob);
        const bool same = blob_ ? state.blob && zOidIsEqual(&*blob_, &*state.blob) : !state.blob;
        if (!same) return true;
    }
    return false;
}

// The parent to go on with. A merge brings files whole, so that one of its parents has the same,
// unless somebody settled it.
host::OwnedCommit States::before(const Commit *commit, State &state) const {
    host::OwnedCommit first(host::check(zCommitParent(commit)));
    const uint64_t count = zCommitParentCount(commit);
    if (line_ == Line::first_parents || count == 1 || !state.blob) return first;
    for (uint64_t n = 0; n < count; ++n) {
        host::OwnedCommit parent(zCommitByid(zCommitOwner(commit), zCommitParentIdAt(commit, n)));
        const std::optional<Oid> found = parent ? find(parent.get(), path_) : std::nullopt;
        if (found && zOidIsEqual(&*found, &*state.blob)) return parent;
    }
    for (uint64_t n = 1; n < count; ++n) state.others.push_back(*zCommitParentIdAt(commit, n));
    return first;
}

// Where a commit that made the file took it from: moved as it was, or from a deleted drawing that
// has the same table.
std::optional<Oid> States::origin(Commit *commit, const Oid &made) {
    host::OwnedDiff changes(host::check(zCommitChanges(commit, nullptr, nullptr)));
    const DiffEntry *source = nullptr;
    for (uint64_t i = 0; i < zDiffListLength(changes.get()); ++i) {
        const DiffEntry *entry = zDiffListEntry(changes.get(), i);
        const int32_t kind = zDiffEntryStatus(entry);
        if (kind == Z_KIND_RENAMED && host::narrow(zDiffEntryNewPath(entry)) == path_) {
            source = entry;
            break;
        }
        const bool candidate = !source && kind == Z_KIND_DELETED && ends_as_drawing(path_) &&
                               ends_as_drawing(host::narrow(zDiffEntryOldPath(entry)));
        if (candidate && same_drawing(made, *zDiffEntryOldId(entry))) source = entry;
    }
    if (!source) return {};
    path_ = host::narrow(zDiffEntryOldPath(source));
    return *zDiffEntryOldId(source);
}

bool States::same_drawing(const Oid &a, const Oid &b) {
    host::Bytes bytes;
    Oid tables[2]{};
    for (int i = 0; i < 2; ++i) {
        host::read_object(odb_.get(), i ? &b : &a, bytes);
        if (auto manifest = Manifest::read(bytes.data)) tables[i] = manifest->table;
    }
    return !zOidIsZero(&tables[0]) && zOidIsEqual(&tables[0], &tables[1]);
}

void VersionFile::load(Odb *odb, const State &state) {
    manifest.reset();
    if (!state.blob) return;
    host::read_object(odb, &*state.blob, bytes, state.path);
    manifest = Manifest::read(bytes.data);
}

// ---- Settler

// Where an object stands in an older list, if that differs from the newer one by a few objects
// here and there only: as far from its former place as its predecessor turned out to be.
struct Settler::Guess {
    explicit Guess(const KeyList &older) : older(older) {}

    size_t find(const Pending &object) {
        const size_t size = older.size();
        const size_t guess = std::min(object.latest + shift, size); // modulo 2^64, also downwards
        size_t place = guess < size && older.object(guess) == object.key.object
                           ? guess
                           : near(guess, object.key.object);
        // After a long gap, in either list, it is worth a look at all.
        if (place == kNowhere && run % kMaxReach == 0 && searches && searches--)
            place = search(guess, object.key.object);
        run = place == kNowhere ? run + 1 : 0;
        if (place != kNowhere) shift = place - object.latest;
        return place;
    }

    // The objects that this list lacks may have stood between.
    size_t near(size_t guess, uint64_t object) const {
        const size_t reach = std::min(kReach + run, kMaxReach), size = older.size();
        for (size_t step = 0; step <= reach; ++step) {
            if (guess + step < size && older.object(guess + step) == object) return guess + step;
            if (step <= guess && guess - step < size && older.object(guess - step) == object)
                return guess - step;
        }
        return kNowhere;
    }

    size_t search(size_t from, uint64_t object) const {
        for (size_t place = from; place < older.size(); ++place)
            if (older.object(place) == object) return place;
        for (size_t place = 0; place < std::min(from, older.size()); ++place)
            if (older.object(place) == object) return place;
        return kNowhere;
    }

    static constexpr size_t kReach = 8, kMaxReach = 256;
    const KeyList &older;
    size_t shift = 0;
    size_t run = 0; // of objects not found
    int searches = 16;
};

Settler::Settler(const KeyList &newest)
    : versions_(std::make_shared<std::vector<uint32_t>>(newest.size())) {
    pending_.reserve(newest.size());
    for (size_t i = 0; i < newest.size(); ++i) pending_.push_back({newest[i], i, i});
}

Settler Settler::part(const KeyList &older) {
    Settler others(versions_);
    if (!locate(older)) return others;
    const auto is_nowhere = [](const Pending &object) { return object.latest == kNowhere; };
    for (const Pending &object : pending_)
        if (is_nowhere(object)) others.pending_.push_back({object.key, object.place, object.place});
    std::erase_if(pending_, is_nowhere);
    return others;
}

void Settler::settle(uint32_t version) {
    for (const Pending &object : pending_) (*versions_)[object.place] = version;
    pending_.clear();
}

// Gives each its place in an older list. Whether that may lack one.
bool Settler::locate(const KeyList &older) {
    missed_.clear();
    Guess guess(older);
    size_t gone = 0;
    for (Pending &object : pending_) {
        const size_t expected = object.latest + guess.shift;
        if (expected < older.size() && older[expected] == object.key) {
            object.latest = expected;
            guess.run = 0;
            continue;
        }
        object.latest = guess.find(object);
        if (object.latest == kNowhere)
            missed_.push_back(&object);
        else if (older[object.latest] != object.key)
            object.latest = kNowhere, ++gone;
    }
    look_everywhere(older);
    return gone || !missed_.empty();
}

// One pass for all. A bit a number, of its lowest digits, spares most objects of the list the
// search among the missed ones.
void Settler::look_everywhere(const KeyList &older) {
    if (missed_.empty()) return;
    constexpr size_t kBits = 1 << 16;
    const auto bit = [](uint64_t object) { return turned(object) % kBits; };
    std::bitset<kBits> wanted;
    for (const Pending *object : missed_) wanted.set(bit(object->key.object));
    std::sort(missed_.begin(), missed_.end(),
              [](const Pending *a, const Pending *b) { return a->key.object < b->key.object; });
    for (size_t place = 0; place < older.size(); ++place) {
        const RawKey key = older[place];
        if (!wanted.test(bit(key.object))) continue;
        auto at = std::lower_bound(
            missed_.begin(), missed_.end(), key.object,
            [](const Pending *object, uint64_t number) { return object->key.object < number; });
        for (; at != missed_.end() && (*at)->key.object == key.object; ++at)
            if ((*at)->key == key) (*at)->latest = place;
    }
}

// ---- Questions

namespace {

// Each object is followed along one line of history: where a merge was settled, along the first
// one that has its key.
class BlameWalk {
  public:
    BlameWalk(Repository *repository, const Notify *notify, Blame &result)
        : repository_(repository), notify_(notify), result_(result),
          odb_(host::check(zOdbOpen(repository))) {}

    void run(const Commit *start, const std::string &path) {
        State state;
        States states(repository_, start, path, notify_, Line::of_the_file);
        states.next(state);
        VersionFile &newest = result_.newest;
        newest.load(odb_.get(), state);
        if (!state.blob)
            throw host::Failed(host::kNotFound, host::say("there is no %s in this commit", path));
        if (!newest.manifest)
            throw host::Failed(host::kOther, host::say("%s: is no drawing", path));
        lines_.push_back({std::move(states), std::move(state), Settler(newest.manifest->objects)});
        for (size_t i = 0; i < lines_.size(); ++i) follow(lines_[i]);
        result_.changed = lines_.front().settler.versions();
    }

  private:
    struct FollowedLine {
        States states;
        State state; // that all in the settler are in
        Settler settler;
    };

    void follow(FollowedLine &line) {
        VersionFile older;
        do {
            const auto version = static_cast<uint32_t>(result_.versions.size());
            result_.versions.push_back(std::move(line.state));
            older.manifest.reset();
            if (line.states.next(line.state)) older.load(odb_.get(), line.state);
            Settler others = line.settler.part(kin(older));
            const State &made = result_.versions.back();
            for (const Oid &parent : made.others) branch_off(others, parent, made.path);
            others.settle(version);
            if (notify_)
                zNotifyProgress(notify_, u"%s",
                                host::wide(host::say("version %s", version + 1)).c_str());
        } while (!line.settler.done());
    }

    // Leaves what another parent of a merge lacks as well.
    void branch_off(Settler &objects, const Oid &parent, const std::string &path) {
        const host::OwnedCommit commit(objects.done() ? nullptr
                                                      : zCommitByid(repository_, &parent));
        if (!commit) return; // a copy may have a part of the history
        State state;
        States states(repository_, commit.get(), path, notify_, Line::of_the_file);
        states.next(state);
        VersionFile theirs;
        theirs.load(odb_.get(), state);
        Settler others = objects.part(kin(theirs));
        if (!objects.done())
            lines_.push_back({std::move(states), std::move(state), std::move(objects)});
        objects = std::move(others);
    }

    // Keys of another table say nothing about these.
    KeyList kin(const VersionFile &file) const {
        const Oid &table = result_.newest.manifest->table;
        const bool is_kin = file.manifest && zOidIsEqual(&file.manifest->table, &table);
        return is_kin ? file.manifest->objects : KeyList();
    }

    Repository *repository_;
    const Notify *notify_;
    Blame &result_;
    host::OwnedOdb odb_;
    std::deque<FollowedLine> lines_; // stay where they are while others come
};

} // namespace

void blame(Repository *repository, const Commit *start, const std::string &path,
           const Notify *notify, Blame &result) {
    BlameWalk(repository, notify, result).run(start, path);
}

namespace {

// The key of one object in a version, if it has it.
struct ObjectKey {
    std::optional<RawKey> key;
    Oid table{};
    size_t place = 0;

    // Likely to stand where it stood in another version.
    void find(const VersionFile &version, uint64_t raw_number) {
        key.reset();
        if (!version.manifest) return;
        const KeyList &objects = version.manifest->objects;
        table = version.manifest->table;
        if (place >= objects.size() || objects.object(place) != raw_number)
            for (place = 0; place < objects.size() && objects.object(place) != raw_number;) ++place;
        if (place < objects.size()) key = objects[place];
    }
};

std::optional<ObjectChange::Kind> change_of(const ObjectKey &newer, const ObjectKey &older) {
    if (!newer.key && !older.key) return {};
    if (!older.key) return ObjectChange::added;
    if (!newer.key) return ObjectChange::removed;
    if (*newer.key == *older.key && zOidIsEqual(&newer.table, &older.table)) return {};
    return ObjectChange::modified;
}

} // namespace

bool object_events(Repository *repository, const Commit *start, const std::string &path,
                   uint64_t number, const Notify *notify,
                   const std::function<bool(const ObjectEvent &)> &visit) {
    States states(repository, start, path, notify);
    host::OwnedOdb odb(host::check(zOdbOpen(repository)));
    State newer, older;
    VersionFile file;
    ObjectKey now, before;
    const uint64_t raw_number = turned(number);
    bool seen = false, more = states.next(newer);
    if (more) file.load(odb.get(), newer);
    if (more) now.find(file, raw_number);
    for (; more; newer = std::move(older), now = before) {
        older = {};
        more = states.next(older);
        file.manifest.reset();
        if (more) file.load(odb.get(), older);
        before.place = now.place;
        before.find(file, raw_number);
        const auto kind = change_of(now, before);
        seen = seen || kind;
        if (kind && !visit({*kind, newer.commit, newer.path})) return true;
    }
    return seen;
}

} // namespace dxf
