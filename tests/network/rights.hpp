// The other side of the authentication contract, in memory: accounts, rules of paths, one role.
#pragma once

#include "support.hpp"

#include <map>
#include <string>
#include <vector>

namespace test {

// One at a time, since the contract's functions have no context.
class Rights {
  public:
    Rights() { now_ = this; }
    ~Rights() { now_ = nullptr; }
    Rights(const Rights &) = delete;
    Rights &operator=(const Rights &) = delete;

    std::map<std::string, std::string> codes;               // by user
    std::string power;                                      // the user who has it
    std::map<std::string, std::map<std::string, int>> bits; // of a user's paths, in any project
    std::string project;                                    // if not empty, only in this one
    bool has_role = false;                                  // it came with a template
    std::vector<std::string> calls;                         // what was asked of the role

    AuthTable *table() { return &table_; }

  private:
    static int32_t check(const zwchar *user, const zwchar *code, bool power) {
        const auto known = now_->codes.find(narrow(user));
        if (known == now_->codes.end() || known->second != narrow(code))
            return Z_AUTH_WRONG_PASSWORD;
        return power && narrow(user) != now_->power ? Z_AUTH_POWER_NEEDED : Z_AUTH_DONE;
    }
    static int32_t settings(Repository *repository, const zwchar *user, Json **list) {
        *list = zJsonNew(Z_JSON_ARRAY);
        if (!now_->project.empty() && now_->project != narrow(zRepositoryName(repository)))
            return Z_AUTH_DONE;
        for (const auto &[path, privilege] : now_->bits[narrow(user)]) {
            Json *element = zJsonNew(Z_JSON_OBJECT);
            zJsonPathSetString(element, u"setting.path", wide(path).c_str());
            zJsonPathSetInt(element, u"setting.privilege", privilege);
            zJsonArrayPush(*list, element);
        }
        return Z_AUTH_DONE;
    }
    static int32_t note(const std::string &call) {
        now_->calls.push_back(call);
        return Z_AUTH_DONE;
    }
    static AuthTable make() {
        AuthTable table{};
        table.CheckUser = check;
        table.UserSettings = settings;
        table.GetDefault = [](Repository *, int32_t *) -> int32_t { return Z_AUTH_NOT_FOUND; };
        table.CreateRole = [](Repository *, const zwchar *name) -> int32_t {
            note("create " + narrow(name));
            return now_->has_role ? Z_AUTH_EXISTS : Z_AUTH_DONE;
        };
        table.GroupMembers = [](int32_t, Json **) -> int32_t { return Z_AUTH_NOT_FOUND; };
        table.RoleMembers = [](Repository *, const zwchar *, Json **list) -> int32_t {
            if (!now_->has_role) return Z_AUTH_NOT_FOUND;
            *list = zJsonReadTextual(u"[{\"isgroup\":true,\"id\":7},"
                                     u"{\"isgroup\":false,\"username\":\"old\"}]");
            return Z_AUTH_DONE;
        };
        table.RoleRemoveGroup = [](Repository *, const zwchar *name, int32_t id) {
            return note("remove " + narrow(name) + " " + std::to_string(id));
        };
        table.RoleRemoveUser = [](Repository *, const zwchar *name, const zwchar *user) {
            return note("remove " + narrow(name) + " " + narrow(user));
        };
        table.RoleAddUser = [](Repository *, const zwchar *name, const zwchar *user) {
            return note("add " + narrow(name) + " " + narrow(user));
        };
        table.AddSetting = [](Repository *, const zwchar *path, const zwchar *role, int32_t bits) {
            return note("set " + narrow(path) + " " + narrow(role) + " " + std::to_string(bits));
        };
        return table;
    }

    static inline Rights *now_ = nullptr;
    AuthTable table_ = make();
};

} // namespace test
