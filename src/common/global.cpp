// Start and stop, and the ring of temporary results. The first zGlobalInit starts, the
// zGlobalCleanup that matches it stops, both under one spin flag, which other threads wait for.
// Keys and values of threads outlive a stop.
#include "common/global.hpp"

#include "common/catalogue.hpp"
#include "common/failure.hpp"
#include "common/per_thread.hpp"
#include "common/settings.hpp"
#include "common/utf.hpp"
#include "system/os.hpp"
#include "zev/error.h"
#include "zev/lang.h"
#include "zev/recycle.h"
#include "zev/thread.h"

#include <atomic>
#include <clocale>
#include <string>

#include <git2.h>

using namespace zev;

namespace {

constinit std::atomic<uint32_t> starting{0};   // spin flag
constinit std::atomic<uint32_t> references{0}; // starts not yet matched by a stop

struct Stop {
    void (*release)();
    Stop *before; // registered before this one
};
constinit std::atomic<Stop *> stops{nullptr}; // the last to have asked, in front of the others

constexpr uint64_t kRing = 1024; // parkings that a temporary result outlives

Recycle *make_ring() { return zRecycleNew(kRing); }
void free_ring(void *ring) { zRecyleFree(static_cast<Recycle *>(ring)); }
Recycle *ring() { return PerThread<Recycle, make_ring, free_ring>::get(); }

// Keeps start and stop apart, through the whole of the first start and the last stop.
class Spin {
  public:
    Spin() {
        for (uint32_t open = 0; !starting.compare_exchange_weak(open, 1); open = 0) zMilliSleep(0);
    }
    Spin(const Spin &) = delete;
    ~Spin() { starting = 0; }
};

// A locale name as it stands, then the form xx-YY as xx_YY.UTF-8. One that the system doesn't
// have leaves the host's locale, which is no failure.
void set_locale(const zwchar *locale) {
    std::string name = to_utf8(locale);
    if (setlocale(LC_ALL, name.c_str())) return;
    if (size_t hyphen = name.find('-'); hyphen != name.npos) name[hyphen] = '_';
    setlocale(LC_ALL, (name + ".UTF-8").c_str());
}

// The product language may have no catalogue at all; texts are their keys then.
bool start_catalogues(const zwchar *lang) {
    if (!zI18nInit()) return false;
    const bool users = lang && !*lang;
    if (users) follow_user_language();
    zI18nSetCurrentLang(users ? nullptr : lang);
    return true;
}

bool start(const zwchar *lang, const zwchar *locale) {
    os::occupy_standard();
    if (locale) set_locale(locale);
    if (!prepare_error_record() || !ring()) return false;
    const int code = git_libgit2_init();
    try {
        if (code > 0 && settings_load() && start_catalogues(lang)) return true;
        if (code <= 0) fail_git(code);
    } catch (...) {
        fail_thrown();
    }
    zI18nDeinit();
    git_libgit2_shutdown(); // a failed start of libgit2 counts too, the next one would do nothing
    return false;           // the thread's error record tells why and is kept
}

// A layer stops before those that it stands on.
void run_stops() {
    while (const std::unique_ptr<Stop> stop{stops.load()}) {
        stops = stop->before;
        stop->release();
    }
}

} // namespace

namespace zev {

void at_stop(void (*release)()) {
    auto *stop = new Stop{release, stops};
    while (!stops.compare_exchange_weak(stop->before, stop)) {
    }
}

} // namespace zev

bool zGlobalInit(const zwchar *lang, const zwchar *locale) try {
    Spin spin;
    if (references.load() == 0 && !start(lang, locale)) return false;
    ++references;
    return true;
} catch (...) {
    return fail_thrown();
}

bool zGlobalCleanup() {
    Spin spin;
    if (references.load() == 0 || --references != 0) return true;
    run_stops();
    zI18nDeinit();
    zThreadCleanup();
    git_libgit2_shutdown();
    return true;
}

bool zGlobalRecyclePut(void *pointer, ReleaseFn release) {
    if (!pointer) return true;
    Recycle *own = ring();
    return own && zRecyclePut(own, pointer, release);
}
