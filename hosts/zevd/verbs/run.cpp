// run: serves until a signal ends it. Signals are waited for by a thread of their own, so that none
// breaks into a request; the one at work is answered first.
#include "identity.hpp"
#include "readiness.hpp"
#include "service.hpp"
#include "verb.hpp"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <thread>

#include <pthread.h>

namespace host {

namespace {

struct Options {
    bool shared = false;
};

void declare(Command &verb, Options &options) {
    verb.description("Serve; what zevd does without a verb");
    verb.footer("SIGTERM and SIGINT end it when the request at work is answered.\n"
                "Examples:\n  zevd run --config /srv/zev/server.conf");
    verb.add_flag("--shared", options.shared,
                  "Beside others that serve the same directory, each with --shared");
}

constexpr int kOver = SIGUSR1; // sent by ourselves: the service has ended

sigset_t awaited() {
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGTERM, SIGINT, SIGHUP, kOver}) sigaddset(&set, signal);
    return set;
}

// One that comes while the service is not up yet finds nothing to shut down: it is asked again.
void shut_down(const std::atomic<bool> &over) {
    tell_manager("STOPPING=1");
    do {
        zServerShutdown();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    } while (!over);
}

// The service goes on with all that the library can use: an old certificate is better than none.
void warn_of_identity(const std::string &certificate, const std::string &key) {
    if (certificate.empty()) return;
    const Identity identity = look_at_identity(certificate, key);
    for (const auto *list : {&identity.problems, &identity.warnings})
        for (const std::string &line : *list) fprintf(stderr, "zevd: %s\n", line.c_str());
}

// Waits for signals from its making to its end. They are blocked in this thread, and in all that it
// starts afterwards. A hangup asks for a new certificate to be taken, and for logs to be opened
// anew, which each line does by itself.
class Signals {
  public:
    explicit Signals(const Config &config)
        : certificate_(config.certificate()), key_(config.key()), thread_([this] { wait(); }) {}
    ~Signals() {
        over_ = true;
        pthread_kill(thread_.native_handle(), kOver);
        thread_.join();
    }
    Signals(const Signals &) = delete;
    Signals &operator=(const Signals &) = delete;

    // Before anything starts a thread.
    static void block() {
        const sigset_t set = awaited();
        pthread_sigmask(SIG_BLOCK, &set, nullptr);
        signal(SIGPIPE, SIG_IGN);
    }

  private:
    void wait() {
        const sigset_t set = awaited();
        for (int signal = 0; !over_;) {
            if (sigwait(&set, &signal) != 0) continue;
            if (signal == SIGTERM || signal == SIGINT) return shut_down(over_);
            if (signal == SIGHUP) renew();
        }
    }

    void renew() const {
        warn_of_identity(certificate_, key_);
        if (zServerReload()) return;
        fprintf(stderr, "zevd: the certificate stays as it was: %s\n",
                narrow(zErrorDetail()).c_str());
    }

    const std::string certificate_, key_;
    std::atomic<bool> over_ = false;
    std::thread thread_; // last: it uses the others
};

void tell_ready(uint32_t port, void *) {
    printf("zevd serves port %u\n", port);
    fflush(stdout);
    tell_manager("READY=1");
}

// Where connections had all the files that the process may open, no request could be answered.
void leave_files(Config &config) {
    const uint64_t files = allow_files(), most = std::max<uint64_t>(files / 4 * 3, 1);
    if (!config.bound_connections(most)) return;
    fprintf(stderr, "zevd: takes %llu connections, as it may open %llu files (ulimit -n)\n",
            static_cast<unsigned long long>(most), static_cast<unsigned long long>(files));
}

int run(const std::string &file, const Options &options) {
    Signals::block();
    Config config(file);
    config.require_sound();
    leave_files(config);
    warn_of_identity(config.certificate(), config.key());
    use_data(config);
    ServiceLock lock(config.repos(), options.shared);
    lock.begin_service();
    zServerOnReady(tell_ready, nullptr);
    const Signals signals(config);
    check(zServerStartup(config.tree()), file);
    return kDone;
}

} // namespace

extern const Verb kRunVerb{"run", bind<Options, declare, run>};

} // namespace host
