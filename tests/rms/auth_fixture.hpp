// The built module, loaded as a service does it, over an application data directory and a bare
// project of the test's own.
#pragma once

#include "support.hpp"

#include "zev/auth.h"

#include <string>

namespace test {

// A password in its wire form.
inline std::u16string wire(char16_t digit) { return std::u16string(40, digit); }

class AuthTest : public testing::Test {
  protected:
    TempDir dir;
    std::filesystem::path conf = dir.path() / "conf", place = dir.path() / "house.git";
    std::filesystem::path authz = conf / "AUTHZ", secret = conf / "AUTHZ.secret";
    std::filesystem::path project_authz = place / "AUTHZ";
    AuthTable *auth = nullptr;
    Repository *project = nullptr;

    void SetUp() override {
        ASSERT_TRUE(zPathGetAppData(former_));
        std::filesystem::create_directories(conf);
        ASSERT_TRUE(zPathSetAppData(dir.path().u16string().c_str(), nullptr));
        auth = zAuthServerStart();
        ASSERT_OK(auth);
        project = zRepositoryInit(place.u16string().c_str(), true);
        ASSERT_OK(project);
    }
    void TearDown() override {
        zRepositoryFree(project);
        zAuthServerShutdown(auth);
        zPathSetAppData(former_, nullptr);
    }

    // Of a service over the directory, on a port of its own.
    Json *settings() const {
        std::filesystem::create_directories(dir.path() / "logs");
        Json *config = zJsonNew(Z_JSON_OBJECT);
        zJsonPathSetString(config, u"schema", u"http");
        zJsonPathSetString(config, u"path.root", dir.path().u16string().c_str());
        zJsonPathSetString(config, u"http.host", u"127.0.0.1");
        zJsonPathSetInt(config, u"http.port", 0);
        zJsonPathSetString(config, u"http.auth", u"required");
        return config;
    }

    int32_t create(const zwchar *login, char16_t digit = u'1', bool power = false) {
        return auth->CreateUser(login, nullptr, wire(digit).c_str(), nullptr, power, false);
    }
    int32_t check(const zwchar *login, char16_t digit = u'1', bool power = false) {
        return auth->CheckUser(login, wire(digit).c_str(), power);
    }
    int32_t group(const zwchar *name, int32_t parent = 0) {
        int32_t id = -1;
        EXPECT_EQ(auth->CreateGroup(name, parent, &id), 100);
        return id;
    }
    int32_t role(const zwchar *name) { return auth->CreateRole(project, name); }

    // What a call gives, as its JSON; its status if that isn't 100.
    template <class Call> static std::string shown(Call call) {
        Json *tree = nullptr;
        const int32_t status = call(&tree);
        const auto owned = guard(tree, zJsonFree);
        if (status != Z_AUTH_DONE) return std::to_string(status) + (tree ? " and a tree" : "");
        const auto text = guard(tree ? zJsonWriteTextual(tree) : nullptr, zStrfreeW);
        return narrow(text.get());
    }
    std::string settings_of(const zwchar *user) {
        return shown([&](Json **out) { return auth->UserSettings(project, user, out); });
    }
    std::string members_of(const zwchar *name) {
        return shown([&](Json **out) { return auth->RoleMembers(project, name, out); });
    }
    std::string members_of(int32_t id) {
        return shown([&](Json **out) { return auth->GroupMembers(id, out); });
    }
    std::string info_of(const zwchar *login) {
        return shown([&](Json **out) { return auth->UserInfo(login, out); });
    }

  private:
    zwchar former_[Z_PATH_MAX] = {};
};

} // namespace test
