// The service as its host runs it, with the built module and accounts required, on a thread of this
// process.
#pragma once

#include "auth_fixture.hpp"

#include <atomic>
#include <future>
#include <optional>
#include <thread>

namespace test {

// One run of the service, on a thread of its own.
struct Served {
    explicit Served(const Json *config) {
        zServerOnReady(
            [](uint32_t port, void *self) { static_cast<Served *>(self)->ready.set_value(port); },
            this);
        thread = std::thread([this, config] {
            served = zServerStartup(config);
            reason = zErrorCode();
            over = true;
            zThreadCleanup();
        });
    }
    ~Served() {
        if (thread.joinable()) thread.join();
    }
    uint32_t port() { return ready.get_future().get(); }

    std::promise<uint32_t> ready;
    std::atomic<bool> over = false;
    bool served = false;
    int32_t reason = 0;
    std::thread thread; // last: it uses the others
};

class ServiceTest : public AuthTest {
  protected:
    std::u16string url;

    void SetUp() override {
        AuthTest::SetUp();
        ASSERT_EQ(auth->ResetPassword(u"admin", code(u"secret").c_str()), 100);
        std::filesystem::create_directories(dir.path() / "repos");
        served_.emplace(config_.get());
        url = wide("http://127.0.0.1:" + std::to_string(served_->port()));
    }
    void TearDown() override {
        stop();
        AuthTest::TearDown();
    }
    void stop() {
        zServerShutdown();
        served_.reset();
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
    Guard<Json> config_{settings(), zJsonFree};
    std::optional<Served> served_;
};

} // namespace test
