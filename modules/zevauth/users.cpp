// Users: who may log in, and who has power over the server. A user is his uid; logins may change.
#include "operations.hpp"
#include "secret.hpp"
#include "store.hpp"

#include <algorithm>
#include <limits>

namespace zevauth {

namespace {

constexpr const zwchar *kNothing = u"";

Tree info_of(const User &user) {
    Tree fields = object(), tree = object();
    put(fields, u"login", text(user.login));
    put(fields, u"name", text(user.name));
    put(fields, u"mail", text(user.mail));
    put(fields, u"power", truth(user.power));
    put(fields, u"lock", truth(user.lock));
    put(tree, u"user", std::move(fields));
    return tree;
}

User *find(Team &team, const zwchar *login) {
    const User *found = team.find(login);
    return found ? &team.users.at(found->uid) : nullptr;
}

// Somebody must stay who can administer: one with power, and one who isn't locked out if there
// was one.
bool keeps_power(const Team &before, const Team &after) {
    const auto any = [](const Team &team, auto is) {
        return std::any_of(team.users.begin(), team.users.end(),
                           [&](const auto &user) { return is(user.second); });
    };
    const auto has_power = [](const User &user) { return user.power; };
    const auto can_act = [](const User &user) { return user.power && !user.lock; };
    return any(after, has_power) && (any(after, can_act) || !any(before, can_act));
}

bool is_admin(const User &user) { return is_same(user.login, kAdmin); }

// A new login is nobody's but his own, and "admin" is always there.
int32_t set_login(const Team &team, User &user, const zwchar *login) {
    const User *taken = team.find(login);
    if (!is_name(login)) return Z_AUTH_BAD_NAME;
    if (taken && taken->uid != user.uid) return Z_AUTH_EXISTS;
    if (is_admin(user) && !taken) return Z_AUTH_POWER_NEEDED;
    user.login = login;
    return Z_AUTH_DONE;
}

} // namespace

int32_t create_user(const zwchar *login, const zwchar *name, const zwchar *password,
                    const zwchar *mail, bool power, bool lock) {
    std::string wire;
    if (!login || !password || !wire_password(password, &wire)) return Z_AUTH_BAD_ARGUMENT;
    if (!name) name = kNothing;
    if (!mail) mail = kNothing;
    if (!is_label(name) || !is_label(mail)) return Z_AUTH_BAD_ARGUMENT;
    if (!is_name(login)) return Z_AUTH_BAD_NAME;
    const std::string hash = hash_password(wire); // takes long: before the lock
    if (hash.empty()) return Z_AUTH_STORE_FAILED;
    return change_team([&](Team &team) -> int32_t {
        if (team.find(login)) return Z_AUTH_EXISTS;
        if (team.next_user == std::numeric_limits<int32_t>::max()) return Z_AUTH_STORE_FAILED;
        const int32_t uid = team.next_user++;
        team.users[uid] = {uid, login, name, mail, power, lock};
        return set_secret(team, uid, hash) ? Z_AUTH_DONE : Z_AUTH_STORE_FAILED;
    });
}

int32_t modify_user(const zwchar *login, const zwchar *newlogin, const zwchar *name,
                    const zwchar *mail, bool power, bool lock) {
    if (!login || (name && !is_label(name)) || (mail && !is_label(mail)))
        return Z_AUTH_BAD_ARGUMENT;
    int32_t uid = 0;
    const int32_t status = change_team([&](Team &team) -> int32_t {
        const Team before = team;
        User *user = find(team, login);
        if (!user) return Z_AUTH_NOT_FOUND;
        if (newlogin)
            if (const int32_t set = set_login(team, *user, newlogin); set != Z_AUTH_DONE)
                return set;
        if (name) user->name = name;
        if (mail) user->mail = mail;
        user->power = power;
        user->lock = lock;
        uid = user->uid;
        return keeps_power(before, team) ? Z_AUTH_DONE : Z_AUTH_POWER_NEEDED;
    });
    forget_password(uid);
    return status;
}

int32_t delete_user(const zwchar *login) {
    if (!login) return Z_AUTH_BAD_ARGUMENT;
    int32_t uid = 0;
    const int32_t status = change_team([&](Team &team) -> int32_t {
        const Team before = team;
        const User *user = team.find(login);
        if (!user) return Z_AUTH_NOT_FOUND;
        if (is_admin(*user)) return Z_AUTH_POWER_NEEDED;
        uid = user->uid;
        for (auto &[id, group] : team.groups) group.users.erase(uid);
        team.users.erase(uid);
        return keeps_power(before, team) ? Z_AUTH_DONE : Z_AUTH_POWER_NEEDED;
    });
    if (status != Z_AUTH_DONE) return status;
    forget_password(uid);
    // He is gone; a secret that can't be taken away now goes with the next one that is set.
    change_team(
        [&](Team &team) { return set_secret(team, uid, {}) ? Z_AUTH_DONE : Z_AUTH_STORE_FAILED; });
    return status;
}

int32_t reset_password(const zwchar *login, const zwchar *password) {
    std::string wire;
    if (!login || !password || !wire_password(password, &wire)) return Z_AUTH_BAD_ARGUMENT;
    const std::string hash = hash_password(wire);
    if (hash.empty()) return Z_AUTH_STORE_FAILED;
    return change_team([&](Team &team) -> int32_t { // which stays as it is
        const User *user = team.find(login);
        if (!user) return Z_AUTH_NOT_FOUND;
        forget_password(user->uid);
        return set_secret(team, user->uid, hash) ? Z_AUTH_DONE : Z_AUTH_STORE_FAILED;
    });
}

int32_t user_info(const zwchar *login, Json **info) {
    if (!login || !info) return Z_AUTH_BAD_ARGUMENT;
    const Shared<Team> known = team();
    if (!known) return Z_AUTH_STORE_FAILED;
    const User *user = known->find(login);
    if (!user) return Z_AUTH_NOT_FOUND;
    *info = info_of(*user).release();
    return Z_AUTH_DONE;
}

int32_t user_list(Json **list) {
    if (!list) return Z_AUTH_BAD_ARGUMENT;
    const Shared<Team> known = team();
    if (!known) return Z_AUTH_STORE_FAILED;
    Tree users = array();
    for (const auto &[uid, user] : known->users) push(users, info_of(user));
    *list = users.release();
    return Z_AUTH_DONE;
}

// The password is judged before anything else is told of the user. One who never had a password
// is locked, whatever is tried.
int32_t check_user(const zwchar *login, const zwchar *password, bool power) {
    if (!login || !password) return Z_AUTH_BAD_ARGUMENT;
    const Shared<Team> known = team();
    const Shared<Secrets> kept = secrets();
    if (!known || !kept) return Z_AUTH_STORE_FAILED;
    std::string wire;
    const bool can_match = wire_password(password, &wire);
    const User *user = known->find(login);
    const auto secret = user ? kept->hashes.find(user->uid) : kept->hashes.end();
    const std::string *hash = secret != kept->hashes.end() ? &secret->second : nullptr;
    const bool matches = is_password(user ? user->uid : 0, can_match ? hash : nullptr, wire);
    if (user && !hash) return Z_AUTH_LOCKED;
    if (!matches) return Z_AUTH_WRONG_PASSWORD;
    if (user->lock) return Z_AUTH_LOCKED;
    return power && !user->power ? Z_AUTH_POWER_NEEDED : Z_AUTH_DONE;
}

} // namespace zevauth
