// The files of the store, kept in memory and written under locks.
//
// What holds at every moment, whenever a process is killed:
//
// 1. Each file is one whole version, see replace_file.
// 2. A user's secret is written before the user: one without a secret is locked, and a secret
//    without a user waits for its uid, which its own creation alone can give out next.
// 3. Where there are secrets there is a file of users. Its loss would give ids out again, and with
//    them what projects have granted: it is a damage, and no first start.
// 4. Where there is a file of users there is one of secrets, from the first start on, when it is
//    made behind the other. Without it nobody could be told from one who never had a password.
#include "store.hpp"

#include "file.hpp"
#include "zev/error.h"
#include "zev/flock.h"
#include "zev/log.h"
#include "zev/path.h"

#include <cerrno>
#include <cstring>
#include <mutex>

namespace zevauth {

namespace {

constexpr size_t kKeptMax = 1024; // projects whose rights are kept in memory
constexpr mode_t kSecretMode = 0600;
constexpr int kLockTries = 4; // of half a second each; others write within milliseconds
constexpr int32_t kErrorLevel = 3, kServerFacility = 5, kLockedClass = 7;

// Why a file can't be used, for the log; always false.
bool complain(const Text &path, const char *why) {
    zLogReport(__FILE__, __LINE__, kErrorLevel, kServerFacility, u"%s: %hs", path.c_str(), why);
    return false;
}
bool complain_errno(const Text &path) { return complain(path, strerror(errno)); }

template <class T> class Cache {
  public:
    // Of a missing file the first records; null for one that can't be used.
    Shared<T> at(const Text &path, Stamp *seen = nullptr);

  private:
    struct Kept {
        Stamp stamp;
        bool settled = false;
        Shared<T> records; // null: damaged
    };
    static Kept read(const Text &path);

    std::mutex mutex_;
    std::map<Text, Kept> kept_;
};

template <class T> typename Cache<T>::Kept Cache<T>::read(const Text &path) {
    Kept fresh;
    std::string bytes;
    if (!read_file(path, &bytes, &fresh.stamp)) return complain_errno(path), fresh;
    fresh.settled = fresh.stamp.is_settled();
    auto records = std::make_shared<T>();
    if (!fresh.stamp.exists || parse(bytes, records.get()))
        fresh.records = std::move(records);
    else
        complain(path, "damaged, or of a later version");
    return fresh;
}

template <class T> Shared<T> Cache<T>::at(const Text &path, Stamp *seen) {
    const std::lock_guard lock(mutex_);
    Stamp now;
    if (path.empty()) return complain(u"AUTHZ", strerror(ENAMETOOLONG)), nullptr;
    if (!look(path, &now)) return complain_errno(path), nullptr;
    auto found = kept_.find(path);
    if (found == kept_.end() || !found->second.settled || found->second.stamp != now) {
        Kept fresh = read(path);
        if (kept_.size() >= kKeptMax && found == kept_.end()) kept_.erase(kept_.begin());
        found = kept_.insert_or_assign(path, std::move(fresh)).first;
    }
    if (seen) *seen = found->second.stamp;
    return found->second.records;
}

Cache<Team> &teams() {
    static Cache<Team> cache;
    return cache;
}
Cache<Rights> &projects() {
    static Cache<Rights> cache;
    return cache;
}
Cache<Secrets> &vault() {
    static Cache<Secrets> cache;
    return cache;
}

// Empty for a path that has no room: cut, it would name another file.
Text whole(const zwchar *path) { return zStrlenW(path) < Z_PATH_MAX - 1 ? Text(path) : Text(); }

Text conf_file(const zwchar *name) {
    zwchar path[Z_PATH_MAX];
    return zPathGetConf(path) && zPathAppend(path, name) ? whole(path) : Text();
}
Text team_file() { return conf_file(u"AUTHZ"); }
Text secrets_file() { return conf_file(u"AUTHZ.secret"); }

Text rights_file(Repository *repository) {
    zwchar path[Z_PATH_MAX];
    const zwchar *directory = zRepositoryPath(repository);
    return directory && zPathBuild(path, directory, u"AUTHZ", nullptr) ? whole(path) : Text();
}

class Lock {
  public:
    explicit Lock(const Text &path) {
        if (!can_replace(path)) { // which the lock would tell like one held elsewhere
            complain_errno(path);
            return;
        }
        for (int i = 0; i < kLockTries && !flock_; ++i) {
            flock_ = zFlockOpen(path.c_str(), false);
            if (!flock_ && zErrorClass() != kLockedClass) break;
        }
        if (!flock_) complain(path, zStrtoutf8(zErrorDetail()));
    }
    ~Lock() { zFlockClose(flock_); }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;
    explicit operator bool() const { return flock_ != nullptr; }

  private:
    Flock *flock_ = nullptr;
};

bool write(const Text &path, const std::string &bytes, mode_t mode = 0) {
    return replace_file(path, bytes, mode) || complain_errno(path);
}

// `before` and `after` are records of one file, under its lock.
template <class T> int32_t store(const Text &path, const T &before, const T &after) {
    const std::string bytes = text_of(after);
    if (bytes == text_of(before)) return Z_AUTH_DONE;
    return write(path, bytes) ? Z_AUTH_DONE : Z_AUTH_STORE_FAILED;
}

// A first start, and no loss.
bool is_new(const Text &path) {
    Stamp secrets;
    if (!look(secrets_file(), &secrets)) return complain_errno(secrets_file());
    return !secrets.exists || complain(path, "missing, although there are secrets");
}

Shared<Team> team_at(const Text &path) {
    Stamp stamp;
    Shared<Team> found = teams().at(path, &stamp);
    return found && (stamp.exists || is_new(path)) ? found : nullptr;
}

// Under the lock of the team: the file of secrets, of a team to which nobody was ever added.
bool begin_secrets(const Team &team) {
    const Text path = secrets_file();
    Stamp stamp;
    if (!look(path, &stamp)) return complain_errno(path);
    if (stamp.exists) return true;
    if (team.next_user != Team().next_user)
        return complain(path, "missing, although there are users");
    return write(path, text_of(Secrets()), kSecretMode);
}

// Under the lock: what the roles grant to nobody goes.
void forget_departed(Rights &rights, const Team &team) {
    for (auto &[name, role] : rights.roles) {
        std::erase_if(role.users, [&](int32_t uid) { return !team.users.contains(uid); });
        std::erase_if(role.groups, [&](int32_t id) { return !team.groups.contains(id); });
    }
}

} // namespace

Shared<Team> team() { return team_at(team_file()); }
Shared<Rights> rights(Repository *repository) { return projects().at(rights_file(repository)); }
Shared<Secrets> secrets() {
    const Text path = secrets_file();
    Stamp stamp;
    Shared<Secrets> found = vault().at(path, &stamp);
    if (found && !stamp.exists) return complain(path, "missing, although there are users"), nullptr;
    return found;
}

int32_t change_team(const std::function<int32_t(Team &)> &edit) {
    const Text path = team_file();
    const Lock lock(path);
    if (!lock) return Z_AUTH_STORE_FAILED;
    const Shared<Team> before = team_at(path);
    if (!before) return Z_AUTH_STORE_FAILED;
    Stamp stamp;
    if (!look(path, &stamp) || (!stamp.exists && !write(path, text_of(*before))))
        return Z_AUTH_STORE_FAILED;
    Team after = *before;
    const int32_t status = edit(after);
    return status == Z_AUTH_DONE ? store(path, *before, after) : status;
}

int32_t change_rights(Repository *repository,
                      const std::function<int32_t(Rights &, const Team &)> &edit) {
    const Text path = rights_file(repository);
    const Lock lock(path);
    if (!lock) return Z_AUTH_STORE_FAILED;
    const Shared<Team> known = team();
    const Shared<Rights> before = projects().at(path);
    if (!known || !before) return Z_AUTH_STORE_FAILED;
    Rights after = *before;
    forget_departed(after, *known);
    const int32_t status = edit(after, *known);
    return status == Z_AUTH_DONE ? store(path, *before, after) : status;
}

bool set_secret(const Team &team, int32_t uid, const std::string &hash) {
    const Shared<Secrets> before = secrets();
    if (!before) return false;
    Secrets after = *before;
    std::erase_if(after.hashes, [&](const auto &kept) { return !team.users.contains(kept.first); });
    if (hash.empty())
        after.hashes.erase(uid);
    else
        after.hashes[uid] = hash;
    return write(secrets_file(), text_of(after), kSecretMode);
}

bool prepare_store() {
    return change_team([](Team &team) {
               return begin_secrets(team) ? Z_AUTH_DONE : Z_AUTH_STORE_FAILED;
           }) == Z_AUTH_DONE;
}

} // namespace zevauth
