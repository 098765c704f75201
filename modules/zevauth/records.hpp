// What the store's three files say, and their texts.
//
// <application data>/conf/AUTHZ, who there is:
//   {"version":1,"next":{"group":2,"user":3},
//    "groups":[{"id":0,"name":"root","users":[]},{"id":1,"name":"site","parent":0,"users":[2]}],
//    "users":[{"lock":false,"login":"admin","mail":"","name":"","power":true,"uid":1}, ...]}
// <repository>/AUTHZ, who may what in one project:
//   {"version":1,"default":16,"roles":[{"groups":[1],"name":"draft","users":[2]}],
//    "settings":[{"path":"docs","privilege":48,"role":"draft"}]}
// <application data>/conf/AUTHZ.secret, mode 0600:
//   {"version":1,"secrets":[{"hash":"$y$...","uid":1}, ...]}
//
// The same records always have the same text: members are in order of their names, lists in that
// of ids, of names and of paths. So the bytes of the two AUTHZ change with the rights alone. A
// reader refuses what it doesn't know, as damaged: nothing is put in the place of such a file.
//
// Ids are never used twice: `next` only grows. A project's roles may hold ids of users and groups
// that are no more; those mean nobody, and go with the file's next change.
#pragma once

#include "text.hpp"
#include "zev/auth.h"
#include "zev/json.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace zevauth {

struct FreeJson {
    void operator()(Json *tree) const { zJsonFree(tree); }
};
using Tree = std::unique_ptr<Json, FreeJson>;

constexpr int32_t kBits = Z_PRIVILEGE_READ | Z_PRIVILEGE_WRITE | Z_PRIVILEGE_EXPORT;
constexpr int32_t kRootGroup = 0, kNoGroup = -1;
constexpr const zwchar *kAdmin = u"admin";

using Ids = std::set<int32_t>;

struct User {
    int32_t uid = 0;
    Text login, name, mail;
    bool power = false, lock = false;
};

struct Group {
    int32_t id = kRootGroup;
    Text name;
    int32_t parent = kNoGroup; // of the root alone
    Ids users;
};

// Begins with the root group and "admin", who has power and no password yet.
struct Team {
    Team();
    // After every change: makes the two look-ups anew. False where a login, or a name among the
    // children of one group, is there twice, case aside.
    bool index();
    const User *find(const zwchar *login) const;
    const Group *child(int32_t parent, const zwchar *name) const;

    int32_t next_user = 1, next_group = kRootGroup + 1;
    std::map<int32_t, User> users;
    std::map<int32_t, Group> groups; // a tree below the root

  private:
    std::map<Text, int32_t, CaseLess> logins_;
    std::map<int32_t, std::map<Text, int32_t, CaseLess>> children_; // by parent
};

struct Role {
    Text name;
    Ids users, groups;
};

// One path and role, case aside; in the map's key as they are shown.
struct Place {
    Text path, role;
    bool operator<(const Place &other) const;
};

struct Rights {
    std::optional<int32_t> fallback; // where no rule says anything
    std::map<Text, Role, CaseLess> roles;
    std::map<Place, int32_t> settings;
};

struct Secrets {
    std::map<int32_t, std::string> hashes; // by uid
};

// The files' texts, UTF-8.
std::string text_of(const Team &team);
std::string text_of(const Rights &rights);
std::string text_of(const Secrets &secrets);
// False for what no text_of has written, or could have.
bool parse(std::string_view text, Team *team);
bool parse(std::string_view text, Rights *rights);
bool parse(std::string_view text, Secrets *secrets);

// ---- Building trees; memory that runs out is thrown.
Tree object();
Tree array();
Tree text(const Text &value);
Tree number(int32_t value);
Tree truth(bool value);
void put(const Tree &object, const zwchar *name, Tree node);
void push(const Tree &array, Tree node);

} // namespace zevauth
