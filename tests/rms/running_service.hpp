// The service as its host runs it, with the built module and accounts required, on a thread of this
// process.
#pragma once

#include "auth_fixture.hpp"

#include <future>
#include <thread>

namespace test {

class ServiceTest : public AuthTest {
  protected:
    std::u16string url;

    void SetUp() override {
        AuthTest::SetUp();
        ASSERT_EQ(auth->ResetPassword(u"admin", code(u"secret").c_str()), 100);
        std::promise<uint32_t> ready;
        zServerOnReady(
            [](uint32_t port, void *promise) {
                static_cast<std::promise<uint32_t> *>(promise)->set_value(port);
            },
            &ready);
        std::filesystem::create_directories(dir.path() / "repos");
        thread_ = std::thread([this] {
            const auto config = guard(settings(), zJsonFree);
            zServerStartup(config.get());
            zThreadCleanup();
        });
        const uint32_t port = ready.get_future().get();
        url = wide("http://127.0.0.1:" + std::to_string(port));
    }
    void TearDown() override {
        stop();
        AuthTest::TearDown();
    }
    void stop() {
        zServerShutdown();
        if (thread_.joinable()) thread_.join();
    }

    static std::u16string code(const std::u16string &password) {
        Oid id;
        zwchar digits[41] = {};
        zOidFromBuffer(&id, password.data(), password.size() * sizeof(zwchar));
        zOidFormat(digits, &id);
        return digits;
    }
    Guard<Admin> log_in(const zwchar *login, const zwchar *password, bool power = false) {
        Admin *admin = nullptr;
        EXPECT_EQ(zAdminLoginRms(url.c_str(), login, password, false, power, &admin), 100);
        return guard(admin, zAdminLogoutRms);
    }

  private:
    Json *settings() const {
        Json *config = zJsonNew(Z_JSON_OBJECT);
        zJsonPathSetString(config, u"schema", u"http");
        zJsonPathSetString(config, u"path.root", dir.path().u16string().c_str());
        zJsonPathSetString(config, u"http.host", u"127.0.0.1");
        zJsonPathSetInt(config, u"http.port", 0);
        zJsonPathSetString(config, u"http.auth", u"required");
        return config;
    }
    std::thread thread_;
};

} // namespace test
