// Passwords. What is stored is yescrypt's hash, costly on purpose; so one that was right is
// remembered for a while, as a digest under a key that lives in this process alone. The digest
// covers the hash too: a password that is set by another server is not the remembered one.
#include "secret.hpp"

#include "zev/log.h"

#include <array>
#include <chrono>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include <crypt.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

namespace zevauth {

namespace {

using Clock = std::chrono::steady_clock;
using Digest = std::array<unsigned char, 32>;

constexpr auto kRemembered = std::chrono::minutes(5);
constexpr size_t kRememberedMax = 4096; // users
constexpr const char *kMethod = "$y$";

bool complain(const char *what) {
    return zLogReport(__FILE__, __LINE__, 2, 5, u"%hs", what), false;
}

// A hash's working memory, cleared: the password is in it.
struct Work {
    ~Work() { OPENSSL_cleanse(&data, sizeof data); }
    crypt_data data = {};
};

// Under the setting, which may be a whole hash; empty on failure.
std::string hashed(const std::string &password, const char *setting) {
    const auto work = std::make_unique<Work>();
    const char *hash = crypt_r(password.c_str(), setting, &work->data);
    if (hash && *hash != '*') return hash;
    complain("a password can't be hashed");
    return {};
}

std::string fresh_setting() {
    char setting[CRYPT_GENSALT_OUTPUT_SIZE];
    if (crypt_gensalt_rn(kMethod, 0, nullptr, 0, setting, sizeof setting)) return setting;
    complain("no salt for a password");
    return {};
}

bool is_equal(const std::string &a, const std::string &b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

// Who was let in. Wrong passwords are never in it.
class Remembered {
  public:
    Remembered() : usable_(RAND_bytes(key_.data(), static_cast<int>(key_.size())) == 1) {}
    ~Remembered() { OPENSSL_cleanse(key_.data(), key_.size()); }

    bool digest(int32_t uid, const std::string &hash, const std::string &password,
                Digest *out) const {
        const std::string text = std::to_string(uid) + ' ' + hash + ' ' + password;
        unsigned length = 0;
        return usable_ && HMAC(EVP_sha256(), key_.data(), static_cast<int>(key_.size()),
                               reinterpret_cast<const unsigned char *>(text.data()), text.size(),
                               out->data(), &length);
    }
    bool has(int32_t uid, const Digest &digest) {
        const std::lock_guard lock(mutex_);
        const auto found = entries_.find(uid);
        return found != entries_.end() && Clock::now() < found->second.until &&
               CRYPTO_memcmp(found->second.digest.data(), digest.data(), digest.size()) == 0;
    }
    void keep(int32_t uid, const Digest &digest) {
        const std::lock_guard lock(mutex_);
        if (entries_.size() >= kRememberedMax && !entries_.contains(uid)) entries_.clear();
        entries_[uid] = {digest, Clock::now() + kRemembered};
    }
    void forget(int32_t uid) {
        const std::lock_guard lock(mutex_);
        entries_.erase(uid);
    }

  private:
    struct Entry {
        Digest digest;
        Clock::time_point until;
    };
    Digest key_;
    bool usable_;
    std::mutex mutex_;
    std::map<int32_t, Entry> entries_;
};

Remembered &remembered() {
    static Remembered entries;
    return entries;
}

} // namespace

std::string hash_password(const std::string &password) {
    const std::string setting = fresh_setting();
    return setting.empty() ? setting : hashed(password, setting.c_str());
}

bool is_password(int32_t uid, const std::string *hash, const std::string &password) {
    static const std::string nobodys = fresh_setting();
    Digest digest;
    if (!hash) return hashed(password, nobodys.c_str()), false;
    const bool keyed = remembered().digest(uid, *hash, password, &digest);
    if (keyed && remembered().has(uid, digest)) return true;
    if (!is_equal(hashed(password, hash->c_str()), *hash)) return false;
    if (keyed) remembered().keep(uid, digest);
    return true;
}

void forget_password(int32_t uid) { remembered().forget(uid); }

} // namespace zevauth
