// Counting failed log-ins. Each key has the times of its last failures: it is shut while the oldest
// of as many as are allowed lies within the span, so that no ten fit twice into one minute.
#include "rms/throttle.hpp"

#include "common/fold.hpp"
#include "common/utf.hpp"
#include "system/os.hpp"

#include <algorithm>

#include <uv.h>

namespace zev {

namespace {

constexpr size_t kLoginMax = 65; // a unit more than a name may have
constexpr size_t kNetwork = 8;   // bytes of an IPv6 address
// What an IPv4 address begins with where a socket takes both.
constexpr unsigned char kMapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};

bool is_recent(int64_t time, int64_t now) { return now - time < limits::login_span; }

// Logins and addresses are told apart by their first unit.
std::u16string login_key(std::u16string_view login) {
    if (login.empty()) return {};
    std::u16string key = u"u";
    for (zwchar unit : login.substr(0, kLoginMax)) key += fold(unit);
    return key;
}

std::u16string address_key(std::u16string_view address) {
    if (address.empty()) return {};
    unsigned char bytes[16];
    const bool is_new = address.find(u':') != address.npos;
    if (!is_new || uv_inet_pton(AF_INET6, to_utf8(address).c_str(), bytes))
        return std::u16string(u"a").append(address);
    if (std::equal(std::begin(kMapped), std::end(kMapped), bytes))
        return std::u16string(u"a").append(address.substr(address.rfind(u':') + 1));
    return std::u16string(u"n").append(bytes, bytes + kNetwork);
}

} // namespace

Attempt::Attempt(std::u16string_view name, std::u16string_view from)
    : login(login_key(name)), address(address_key(from)) {}

bool Throttle::is_shut_out(const Attempt &attempt) const {
    const int64_t now = os::calls.steady();
    return is_shut(attempt.login, now) || is_shut(attempt.address, now);
}

void Throttle::count_failure(const Attempt &attempt) {
    const int64_t now = os::calls.steady();
    count(attempt.login, now);
    count(attempt.address, now);
}

bool Throttle::is_shut(const std::u16string &key, int64_t now) const {
    const auto found = failures_.find(key);
    if (found == failures_.end()) return false;
    const Failures &failures = found->second;
    if (failures.count < failures.times.size()) return false;
    return is_recent(failures.times[failures.count % failures.times.size()], now);
}

void Throttle::count(const std::u16string &key, int64_t now) {
    if (key.empty()) return;
    if (failures_.size() >= limits::login_keys && !failures_.contains(key)) make_room(now);
    Failures &failures = failures_[key];
    failures.times[failures.count++ % failures.times.size()] = now;
}

void Throttle::make_room(int64_t now) {
    std::erase_if(failures_, [now](auto &each) { return !is_recent(each.second.last(), now); });
    if (failures_.size() < limits::login_keys) return;
    failures_.erase(std::ranges::min_element(failures_, {},
                                             [](const auto &each) { return each.second.last(); }));
}

} // namespace zev
