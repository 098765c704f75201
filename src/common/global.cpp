#include "common/global.hpp"

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
constinit std::atomic<void (*)()> stop_first{nullptr};

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
    zI18nSetCurrentLang(lang);
    return true;
}

bool start(const zwchar *lang, const zwchar *locale) {
    os::occupy_standard();
    if (locale) set_locale(locale);
    const int code = git_libgit2_init();
    if (code > 0 && settings_load() && start_catalogues(lang)) return true;
    if (code <= 0) fail_git(code);
    zI18nDeinit();
    git_libgit2_shutdown(); // a failed start of libgit2 counts too, the next one would do nothing
    return false;           // the thread's error record tells why and is kept
}

constexpr uint64_t kRing = 1024; // parkings that a temporary result outlives

Recycle *make_ring() { return zRecycleNew(kRing); }
void free_ring(void *ring) { zRecyleFree(static_cast<Recycle *>(ring)); }

} // namespace

namespace zev {

void at_stop(void (*release)()) { stop_first = release; }

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
    if (auto release = stop_first.exchange(nullptr)) release();
    zI18nDeinit();
    zThreadCleanup();
    git_libgit2_shutdown();
    return true;
}

bool zGlobalRecyclePut(void *pointer, ReleaseFn release) {
    if (!pointer) return true;
    Recycle *ring = per_thread<Recycle, make_ring, free_ring>();
    return ring && zRecyclePut(ring, pointer, release);
}
