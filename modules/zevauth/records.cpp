// The records of the store's files, their texts and the way back. A reader is strict: what it
// accepts is written again with the same bytes, but for blanks and order.
#include "records.hpp"

#include "zev/stream.h"

#include <algorithm>
#include <limits>
#include <new>

namespace zevauth {

namespace {

constexpr int32_t kVersion = 1;
constexpr int32_t kIdMax = std::numeric_limits<int32_t>::max();

struct FreeStream {
    void operator()(Stream *stream) const { zStreamFree(stream); }
};
using StreamPtr = std::unique_ptr<Stream, FreeStream>;

Tree made(Json *node) {
    if (!node) throw std::bad_alloc();
    return Tree(node);
}

StreamPtr memory(uint64_t capacity) {
    Stream *stream = zMemStream(0, capacity);
    if (!stream) throw std::bad_alloc();
    return StreamPtr(stream);
}

// ---- Writing

Tree list(const Ids &ids) {
    Tree tree = array();
    for (const int32_t id : ids) push(tree, number(id));
    return tree;
}

std::string bytes_of(Tree tree) {
    put(tree, u"version", number(kVersion));
    const StreamPtr stream = memory(0);
    if (!zJsonWriteStream(tree.get(), stream.get())) throw std::bad_alloc();
    const Buffer &buffer = reinterpret_cast<const MemStream *>(stream.get())->buffer;
    return std::string(reinterpret_cast<const char *>(buffer.data), buffer.size);
}

Tree tree_of(const User &user) {
    Tree tree = object();
    put(tree, u"uid", number(user.uid));
    put(tree, u"login", text(user.login));
    put(tree, u"name", text(user.name));
    put(tree, u"mail", text(user.mail));
    put(tree, u"power", truth(user.power));
    put(tree, u"lock", truth(user.lock));
    return tree;
}

Tree tree_of(const Group &group) {
    Tree tree = object();
    put(tree, u"id", number(group.id));
    put(tree, u"name", text(group.name));
    if (group.id != kRootGroup) put(tree, u"parent", number(group.parent));
    put(tree, u"users", list(group.users));
    return tree;
}

Tree tree_of(const Role &role) {
    Tree tree = object();
    put(tree, u"name", text(role.name));
    put(tree, u"users", list(role.users));
    put(tree, u"groups", list(role.groups));
    return tree;
}

Tree tree_of(const Place &place, int32_t bits) {
    Tree tree = object();
    put(tree, u"path", text(place.path));
    put(tree, u"role", text(place.role));
    put(tree, u"privilege", number(bits));
    return tree;
}

// ---- Reading

Tree parsed(std::string_view bytes) {
    const StreamPtr stream = memory(bytes.size());
    if (zStreamWrite(stream.get(), bytes.data(), bytes.size()) != bytes.size())
        throw std::bad_alloc();
    zStreamRewind(stream.get());
    return Tree(zJsonReadStream(stream.get()));
}

// The member, if it is there and of that type.
Json *member(const Json *object, const zwchar *name, int32_t type) {
    Json *node = zJsonObjectAt(object, name);
    return node && zJsonIsA(node, type) ? node : nullptr;
}

bool read(const Json *node, int32_t from, int32_t to, int32_t *out) {
    if (!node || !zJsonIsInt(node)) return false;
    const int64_t value = zJsonGetInt(node);
    *out = static_cast<int32_t>(value);
    return value >= from && value <= to;
}
bool read(const Json *object, const zwchar *name, int32_t from, int32_t to, int32_t *out) {
    return read(zJsonObjectAt(object, name), from, to, out);
}

bool read(const Json *object, const zwchar *name, bool (*is_valid)(const zwchar *), Text *out) {
    const Json *node = member(object, name, Z_JSON_STRING);
    if (!node || !is_valid(zJsonGetString(node))) return false;
    *out = zJsonGetString(node);
    return true;
}

bool read(const Json *object, const zwchar *name, bool *out) {
    const Json *node = member(object, name, Z_JSON_BOOLEAN);
    *out = node && zJsonGetBoolean(node);
    return node != nullptr;
}

// Each element of a list that must be there, until one is refused.
template <class Visit> bool each(const Json *object, const zwchar *name, Visit visit) {
    const Json *list = member(object, name, Z_JSON_ARRAY);
    if (!list) return false;
    for (uint64_t i = 0, count = zJsonArraySize(list); i < count; ++i)
        if (!visit(zJsonArrayAt(list, i))) return false;
    return true;
}
template <class Visit> bool each_object(const Json *object, const zwchar *name, Visit visit) {
    return each(object, name, [&](const Json *node) { return zJsonIsObject(node) && visit(node); });
}

bool read(const Json *object, const zwchar *name, int32_t from, Ids *out) {
    return each(object, name, [&](const Json *node) {
        int32_t id = 0;
        return read(node, from, kIdMax, &id) && out->insert(id).second;
    });
}

bool read_bits(const Json *object, const zwchar *name, int32_t *out) {
    return read(object, name, 0, kBits, out) && !(*out & ~kBits);
}

bool is_known_version(const Json *tree) {
    int32_t version = 0;
    return zJsonIsObject(tree) && read(tree, u"version", kVersion, kVersion, &version);
}

bool read_user(const Json *node, Team *team) {
    User user;
    if (!read(node, u"uid", 1, team->next_user - 1, &user.uid) ||
        !read(node, u"login", is_name, &user.login) || !read(node, u"name", is_label, &user.name) ||
        !read(node, u"mail", is_label, &user.mail) || !read(node, u"power", &user.power) ||
        !read(node, u"lock", &user.lock))
        return false;
    const int32_t uid = user.uid;
    return team->users.emplace(uid, std::move(user)).second;
}

bool read_group(const Json *node, Team *team) {
    const int32_t last = team->next_group - 1;
    Group group;
    if (!read(node, u"id", kRootGroup, last, &group.id) ||
        !read(node, u"name", is_name, &group.name) || !read(node, u"users", 1, &group.users))
        return false;
    if (group.id != kRootGroup && !read(node, u"parent", kRootGroup, last, &group.parent))
        return false;
    const int32_t id = group.id;
    return team->groups.emplace(id, std::move(group)).second;
}

// Every group leads up to the root, and holds known users.
bool is_sound(const Team &team) {
    Ids sound{kRootGroup};
    for (const auto &[id, group] : team.groups) {
        for (const int32_t uid : group.users)
            if (!team.users.contains(uid)) return false;
        Ids way;
        for (int32_t at = id; !sound.contains(at); at = team.groups.at(at).parent)
            if (!team.groups.contains(at) || !way.insert(at).second) return false;
        sound.merge(way);
    }
    return team.groups.contains(kRootGroup);
}

bool read_role(const Json *node, Rights *rights) {
    Role role;
    if (!read(node, u"name", is_name, &role.name) || !read(node, u"users", 1, &role.users) ||
        !read(node, u"groups", kRootGroup, &role.groups))
        return false;
    const Text name = role.name;
    return rights->roles.emplace(name, std::move(role)).second;
}

bool is_rule_path(const zwchar *path) {
    Text kept;
    return rule_path(path, &kept) && kept == path;
}

bool read_setting(const Json *node, Rights *rights) {
    Place place;
    int32_t bits = 0;
    if (!read(node, u"path", is_rule_path, &place.path) ||
        !read(node, u"role", is_name, &place.role) || !read_bits(node, u"privilege", &bits))
        return false;
    const auto role = rights->roles.find(place.role);
    return role != rights->roles.end() && role->second.name == place.role &&
           rights->settings.emplace(std::move(place), bits).second;
}

// In the system's form: ASCII, and none of its marks of failure, which begin with "*".
bool is_hash(const zwchar *text) {
    const auto is_graphic = [](zwchar unit) { return unit > u' ' && unit < 0x7F; };
    const std::u16string_view hash(text);
    return hash.starts_with(u'$') && std::all_of(hash.begin(), hash.end(), is_graphic);
}

bool read_secret(const Json *node, Secrets *secrets) {
    int32_t uid = 0;
    Text hash;
    if (!read(node, u"uid", 1, kIdMax, &uid) || !read(node, u"hash", is_hash, &hash)) return false;
    std::string bytes;
    for (const zwchar unit : hash) bytes += static_cast<char>(unit);
    return secrets->hashes.emplace(uid, std::move(bytes)).second;
}

} // namespace

Team::Team() {
    groups[kRootGroup].name = u"root";
    User &admin = users[next_user];
    admin.uid = next_user++;
    admin.login = kAdmin;
    admin.power = true;
    index();
}

bool Team::index() {
    logins_.clear();
    children_.clear();
    bool differ = true;
    for (const auto &[uid, user] : users) differ &= logins_.emplace(user.login, uid).second;
    for (const auto &[id, group] : groups)
        differ &= children_[group.parent].emplace(group.name, id).second;
    return differ;
}

const User *Team::find(const zwchar *login) const {
    const auto found = logins_.find(login);
    return found != logins_.end() ? &users.at(found->second) : nullptr;
}

const Group *Team::child(int32_t parent, const zwchar *name) const {
    const auto level = children_.find(parent);
    if (level == children_.end()) return nullptr;
    const auto found = level->second.find(name);
    return found != level->second.end() ? &groups.at(found->second) : nullptr;
}

bool Place::operator<(const Place &other) const {
    const int32_t order = zStrcasecmpW(path.c_str(), other.path.c_str());
    return order ? order < 0 : zStrcasecmpW(role.c_str(), other.role.c_str()) < 0;
}

std::string text_of(const Team &team) {
    Tree next = object(), users = array(), groups = array(), tree = object();
    put(next, u"user", number(team.next_user));
    put(next, u"group", number(team.next_group));
    for (const auto &[uid, user] : team.users) push(users, tree_of(user));
    for (const auto &[id, group] : team.groups) push(groups, tree_of(group));
    put(tree, u"next", std::move(next));
    put(tree, u"users", std::move(users));
    put(tree, u"groups", std::move(groups));
    return bytes_of(std::move(tree));
}

std::string text_of(const Rights &rights) {
    Tree roles = array(), settings = array(), tree = object();
    for (const auto &[name, role] : rights.roles) push(roles, tree_of(role));
    for (const auto &[place, bits] : rights.settings) push(settings, tree_of(place, bits));
    if (rights.fallback) put(tree, u"default", number(*rights.fallback));
    put(tree, u"roles", std::move(roles));
    put(tree, u"settings", std::move(settings));
    return bytes_of(std::move(tree));
}

std::string text_of(const Secrets &secrets) {
    Tree list = array(), tree = object();
    for (const auto &[uid, hash] : secrets.hashes) {
        Tree secret = object();
        put(secret, u"uid", number(uid));
        put(secret, u"hash", text(Text(hash.begin(), hash.end())));
        push(list, std::move(secret));
    }
    put(tree, u"secrets", std::move(list));
    return bytes_of(std::move(tree));
}

bool parse(std::string_view text, Team *team) {
    const Tree tree = parsed(text);
    if (!tree || !is_known_version(tree.get())) return false;
    const Json *next = member(tree.get(), u"next", Z_JSON_OBJECT);
    if (!next || !read(next, u"user", 1, kIdMax, &team->next_user) ||
        !read(next, u"group", 1, kIdMax, &team->next_group))
        return false;
    team->users.clear();
    team->groups.clear();
    return each_object(tree.get(), u"users",
                       [&](const Json *node) { return read_user(node, team); }) &&
           each_object(tree.get(), u"groups",
                       [&](const Json *node) { return read_group(node, team); }) &&
           is_sound(*team) && team->index();
}

bool parse(std::string_view text, Rights *rights) {
    const Tree tree = parsed(text);
    if (!tree || !is_known_version(tree.get())) return false;
    if (zJsonObjectHas(tree.get(), u"default")) {
        if (!read_bits(tree.get(), u"default", &rights->fallback.emplace())) return false;
    }
    return each_object(tree.get(), u"roles",
                       [&](const Json *node) { return read_role(node, rights); }) &&
           each_object(tree.get(), u"settings",
                       [&](const Json *node) { return read_setting(node, rights); });
}

bool parse(std::string_view text, Secrets *secrets) {
    const Tree tree = parsed(text);
    return tree && is_known_version(tree.get()) &&
           each_object(tree.get(), u"secrets",
                       [&](const Json *node) { return read_secret(node, secrets); });
}

Tree object() { return made(zJsonNew(Z_JSON_OBJECT)); }
Tree array() { return made(zJsonNew(Z_JSON_ARRAY)); }
Tree text(const Text &value) { return made(zJsonNewString(value.c_str())); }
Tree number(int32_t value) { return made(zJsonNewInt(value)); }
Tree truth(bool value) { return made(zJsonNewBoolean(value)); }

void put(const Tree &object, const zwchar *name, Tree node) {
    if (!zJsonObjectPut(object.get(), name, node.get())) throw std::bad_alloc();
    node.release(); // the object's now
}

void push(const Tree &array, Tree node) {
    if (!zJsonArrayPush(array.get(), node.get())) throw std::bad_alloc();
    node.release();
}

} // namespace zevauth
